/// Sequences of calls over the whole callback table, on a device that has faults, held against the
/// model.
///
/// An input is: a byte for the log level, a byte for whether the device lacks its offline interface
/// (1 of 16), and then steps until it ends: a byte that names the step (in the order of `kSteps`),
/// and what the step reads. A step on a camera reads which one first, and makes it where it is not.
///
/// What the host may not do is not tried: callbacks for an id without camera other than those that
/// need none, wild pointers, handles after their end. Nor does the vendor send results of a request
/// that is over.

#include "adapterlayer/oemlog.h"
#include "adapterlayer/qcomadaptee.h"
#include "fuzz/check.h"
#include "fuzz/heap.h"
#include "fuzz/model.h"
#include "standin/gralloc.h"
#include "standin/session.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

using namespace fuzz;
using OemLayer::OffCamApplicationCallbacks;
using OemLayer::QcomAdaptee;
using OemLayer::RequestPrivData;

// --- What the host has

constexpr uint32_t kWidth = 8;
constexpr uint32_t kHeight = 4;

constexpr camera3_stream Stream(int32_t format, uint32_t width = kWidth, uint32_t height = kHeight,
                                int32_t type = CAMERA3_STREAM_OUTPUT) {
    return {.stream_type = type, .width = width, .height = height, .format = format};
}

/// Inputs; the first three are also those of the images that are fed. What comes after the first six
/// makes no image.
constexpr camera3_stream kInputs[] = {
    Stream(HAL_PIXEL_FORMAT_RAW10),
    Stream(HAL_PIXEL_FORMAT_RAW16),
    Stream(HAL_PIXEL_FORMAT_YCBCR_420_888),
    Stream(HAL_PIXEL_FORMAT_RAW12),
    Stream(HAL_PIXEL_FORMAT_BLOB),
    Stream(HAL_PIXEL_FORMAT_RAW10, kWidth, kHeight, CAMERA3_STREAM_INPUT),
    Stream(HAL_PIXEL_FORMAT_RAW10, 0),
    Stream(HAL_PIXEL_FORMAT_BLOB, 0x10000, 0x10000),
    Stream(ChiStreamFormatPD10, UINT32_MAX, UINT32_MAX),
    Stream(ChiStreamFormatUBWCNV124R, 0)};
constexpr size_t kImages = 6;
constexpr size_t kYuv = 2;
constexpr int32_t kFormats[] = {HAL_PIXEL_FORMAT_YCBCR_420_888, HAL_PIXEL_FORMAT_RAW10,
                                HAL_PIXEL_FORMAT_RAW16, HAL_PIXEL_FORMAT_BLOB};
constexpr uint32_t kSizes[] = {kWidth, kHeight, 0, 3, 64, UINT32_MAX};

camera3_stream g_inputs[std::size(kInputs)];
camera3_stream g_outputs[4];
uint8_t g_memory[64 * 64 * 3 / 2]; ///< Of all output buffers.
buffer_handle_t g_handle;

constexpr size_t kFeatureLengths[] = {5, 4, 0, 40, 600}; ///< A feature is named by so many letters.
constexpr uint32_t kIdentityCameras[] = {0, 1, 0x80000000, UINT32_MAX};

/// Ids of cameras, and behind them ids without one.
constexpr uint32_t kIds[] = {0, 7, 15, 1, 16, UINT32_MAX};
constexpr uint32_t kCameras = 3;

struct Image {
    void* handle;
    size_t stream; ///< Among the inputs.
};

struct HostCamera : Camera {
    PlatFormIntCallbacks slots{};
    std::vector<Image> images;
    std::vector<void*> setMetadata;
};

HostCamera& CameraOf(const Request& request) { return static_cast<HostCamera&>(*request.camera); }

// --- One input

struct Scene;
Scene* g_scene; ///< Of the input under way.

struct Scene {
    Scene(Input& bytes, bool hasInterface) : input(bytes), model(hasInterface) {
        g_scene = this;
        for (uint32_t i = 0; i < kCameras; ++i) {
            cameras[i].id = kIds[i];
            PlatformIntContext(&cameras[i].slots, kIds[i]);
        }
    }

    Input& input;
    Model model;
    HostCamera cameras[kCameras];
    std::vector<void*> metadata, android; ///< Objects that the host has.
    uint32_t lastTag = 0;

    // --- Cameras

    HostCamera& PickCamera() {
        HostCamera& camera = input.Pick(cameras);
        if (!camera.exists) {
            Trace("Create %u", camera.id);
            model.Create(camera);
            Check(camera.slots.Create(&camera.slots, camera.id) != nullptr, "there is no camera");
        }
        return camera;
    }

    void Destroy(HostCamera& camera) {
        TearDown(camera);
        Trace("Destroy %u", camera.id);
        model.Destroy(camera);
        Expect("what Destroy returns", camera.slots.Destroy(&camera.slots), 0);
        camera.setMetadata.clear();
    }

    void DestroyStep() { Destroy(PickCamera()); }

    void FlushStep() {
        HostCamera& camera = PickCamera();
        Trace("Flush %u", camera.id);
        model.Flush(camera);
        camera.slots.Flush(&camera.slots);
    }

    /// A host that is careful gives its images back first.
    void TearDown(HostCamera& camera) {
        const bool isCareful = !input.Flag();
        StandinControl()->SetTracePoints(input.Flag());
        Trace("TearDown %u, careful %d", camera.id, isCareful);
        while (isCareful && !camera.images.empty()) {
            ReleaseImage(camera, Take(camera.images));
        }
        camera.images.clear();
        model.TearDown(camera);
        camera.slots.TearDownResource(&camera.slots);
        Expect("the number of open sections", ThePlatform().openSections, 0);
    }

    void TearDownStep() { TearDown(PickCamera()); }

    // --- Submission

    void SubmitStep() {
        if (Request* const request = Draw(PickCamera(), true)) {
            model.Submit(*request);
            Trace("Submit: status %u, execution %zu", request->status, request->execution);
            Submit(*request);
        }
    }

    static void Submit(Request& request) {
        PlatFormIntCallbacks& table = CameraOf(request).slots;
        // The record and the output are the library's only during the call.
        OemLayer::OfflineDataWraper wrapper = request.wrapper;
        camera3_stream_buffer output = request.output;
        request.returned = table.SubmitRequestFromRT(
            &table, request.hasWrapper ? &wrapper : nullptr,
            request.hasPrivData ? &request.privData : nullptr,
            request.hasOutput ? &output : nullptr, Callbacks(request.table));
    }

    /// Reads a request into a free record. Null if there is none.
    Request* Draw(HostCamera& camera, bool mayNest) {
        Request* const free = model.NewRequest(camera);
        if (free == nullptr) {
            return nullptr;
        }
        Request& request = *free;
        request.table = input.Below(NumTables);
        request.framework = static_cast<Framework::Kind>(input.Below(3));
        request.wrapper.pCamera3CbOps = FrameworkOps(request.framework);
        DrawStreams(request);
        DrawInputs(camera, request);
        Spoil(request, input.Below(32));
        if (mayNest && input.Below(4) == 1) {
            request.nestedAt = static_cast<Event::Kind>(input.Below(3));
            request.nested = Draw(camera, false);
            request.hostsNested = request.nested;
        }
        return free;
    }

    void DrawStreams(Request& request) {
        OemLayer::OfflineDataWraper& wrapper = request.wrapper;
        wrapper.identity = {.pOutStream = &input.Pick(g_outputs),
                            .cameraId = input.Pick(kIdentityCameras),
                            .featureName = std::string(input.Pick(kFeatureLengths), 'f')};
        request.output = {.stream = wrapper.identity.pOutStream,
                          .buffer = &g_handle,
                          .status = static_cast<int32_t>(input.Below(3))};
        std::vector<camera3_stream*>& inputs = request.privData.inputStreams;
        inputs.push_back(&input.Pick(g_inputs));
        for (uint32_t more = input.Below(8); more >= 3; --more) {
            inputs.push_back(&input.Pick(g_inputs));
        }
        if (input.Flag() && !android.empty()) {
            wrapper.m_pRealtimeSessionParameters = static_cast<const camera_metadata*>(android[0]);
        }
    }

    void DrawInputs(HostCamera& camera, Request& request) {
        OemLayer::OfflineDataWraper& wrapper = request.wrapper;
        wrapper.rtFrameNumber = input.Byte();
        wrapper.numBuffers = input.Below(16) == 15 ? input.Word() : input.Below(14);
        wrapper.yuvInput = input.Below(3);
        wrapper.dualRdi = input.Below(3);
        request.privData.partialResultBase = input.Below(2) * UINT32_MAX;
        const bool isRaw16 = request.privData.inputStreams[0] == &g_inputs[1];
        request.pRawImage = &g_inputs[isRaw16 ? 1 : 0];
        void* const raw = ImageFor(camera, isRaw16 ? 1 : 0);
        void* const yuv = wrapper.yuvInput == 1 ? ImageFor(camera, kYuv) : nullptr;
        request.hasImages = raw != nullptr && (yuv != nullptr || wrapper.yuvInput != 1);
        request.privData.pBufferManager = StandinControl()->ManagerOf(raw);
        request.privData.pSecondRawBufferManager = request.privData.pBufferManager;
        request.privData.pYuvBufferManager = StandinControl()->ManagerOf(yuv);
        std::fill(std::begin(wrapper.pRDIBufferHandles), std::end(wrapper.pRDIBufferHandles), raw);
        std::fill_n(wrapper.pRDIBufferStream, OemLayer::kMaxInputBuffers, raw);
        std::fill(std::begin(wrapper.yuvBufferHandles), std::end(wrapper.yuvBufferHandles), yuv);
        const uint32_t sets = std::min(wrapper.numBuffers, OemLayer::kMaxInputSets);
        while (camera.setMetadata.size() < sets) {
            camera.setMetadata.push_back(CreateWithUsage(camera));
        }
        std::copy_n(camera.setMetadata.begin(), sets, wrapper.pChiMetadataHandles);
    }

    /// Leaves out what a request may lack, and makes wrong what the vendor alone looks at.
    static void Spoil(Request& request, uint32_t how) {
        request.hasWrapper = how != 1;
        request.hasPrivData = how != 2;
        request.hasOutput = how != 3;
        request.ownManagers = how != 4;
        if (how == 4) {
            request.privData.pSecondRawBufferManager = nullptr;
            request.privData.pYuvBufferManager = &request;
        } else if (how == 5) {
            request.wrapper.identity.pOutStream = nullptr;
        } else if (how == 6) {
            request.privData.inputStreams.clear();
        } else if (how == 7) {
            request.output.buffer = nullptr;
        } else if (how == 8) {
            request.output.stream = nullptr;
        }
    }

    // --- The host is called back

    static OffCamApplicationCallbacks* Callbacks(uint32_t table);
    static camera3_callback_ops* FrameworkOps(Framework::Kind kind);

    static void OnEvent(RequestPrivData* data, const Event& event) {
        Request& request = *static_cast<Request::PrivData*>(data)->owner;
        request.seen.push_back(event);
        if (request.hostsNested != nullptr && request.nestedAt == event.kind) {
            Submit(*std::exchange(request.hostsNested, nullptr));
        }
    }

    static void OnResult(RequestPrivData* data, Event event, const camera3_capture_result& result) {
        event.number = result.frame_number;
        event.partial = result.partial_result;
        event.numBuffers = result.num_output_buffers;
        for (uint32_t i = 0; i < event.numBuffers; ++i) {
            const camera3_stream_buffer& buffer = result.output_buffers[i];
            event.Add({static_cast<uint32_t>(buffer.status), buffer.stream != nullptr});
        }
        event.hasMetadata = result.result != nullptr;
        if (event.hasMetadata) {
            g_scene->android.push_back(const_cast<camera_metadata*>(result.result));
        }
        OnEvent(data, event);
    }

    /// A framework that says more than it was asked for, or less.
    static int32_t Answer(const camera3_callback_ops*, uint32_t count,
                          const camera3_buffer_request* requests, uint32_t* returned,
                          camera3_stream_buffer_ret* answers) {
        const Framework& answer = g_scene->model.answer;
        for (uint32_t i = 0; i < count; ++i) {
            answers[i].num_output_buffers = answer.count;
            std::fill_n(answers[i].output_buffers,
                        std::min(answer.count, requests[i].num_buffers_requested),
                        camera3_stream_buffer{.stream = requests[i].stream,
                                              .buffer = &g_handle,
                                              .status = answer.status});
        }
        *returned = answer.returned;
        return answer.result;
    }

    // --- Results

    /// One of the requests whose results are awaited, null if there is none.
    Request* PickWaiting() {
        std::vector<Request*> waiting;
        for (Request& request : model.requests) {
            if (request.state == Request::InFlight && request.waits) {
                waiting.push_back(&request);
            }
        }
        return waiting.empty() ? nullptr : waiting[input.Byte() % waiting.size()];
    }

    /// The device's own results, for a request that has had none yet.
    void DeliverStep() {
        Request* const request = PickWaiting();
        const auto shape = static_cast<Shape>(input.Below(static_cast<uint32_t>(Shape::Count)));
        if (request != nullptr && !request->wasTouched) {
            Trace("Deliver execution %zu in shape %u", request->execution,
                  static_cast<uint32_t>(shape));
            model.Deliver(*request, shape);
            StandinControl()->Deliver(request->execution, shape);
        }
    }

    static standin::Job JobOf(const Request& request) {
        return StandinControl()->Internals().Lock()->waiting.at(request.execution);
    }

    /// A result as no session of the device delivers it.
    void CraftStep() {
        Request* const request = PickWaiting();
        if (request == nullptr) {
            return;
        }
        const ChiMetadataHandle own = request->wrapper.pChiMetadataHandles[0];
        Delivered result;
        result.buffers.resize(input.Below(11));
        for (Buffer& buffer : result.buffers) {
            buffer = {input.Below(3), input.Flag()};
        }
        result.hasArray = input.Below(4) != 1;
        result.metadata = static_cast<Delivered::Metadata>(input.Below(own != nullptr ? 3 : 2));
        result.partials = input.Below(3);
        result.hasMain = input.Below(8) != 1;
        result.hasSecond = input.Flag();
        Send(*request, result, own);
    }

    void Send(Request& request, const Delivered& result, ChiMetadataHandle own) {
        const standin::Job job = JobOf(request);
        std::vector<ChiStreamBuffer> buffers(result.buffers.size());
        for (size_t i = 0; i < buffers.size(); ++i) {
            buffers[i].pStream = result.buffers[i].hasStream ? AsChi(&g_outputs[0]) : nullptr;
            buffers[i].bufferStatus = result.buffers[i].status;
        }
        const ChiMetadataHandle handles[] = {nullptr, job.execution->output.set.pMetadata, own};
        ChiOfflineResultBlock block{.numBuffers = static_cast<uint32_t>(buffers.size()),
                                    .pBuffers = result.hasArray ? buffers.data() : nullptr,
                                    .numPartialMetadata = result.partials,
                                    .pMetadata = handles[result.metadata]};
        ChiOfflineResultBlock second{.pMetadata = result.hasSecond ? &second : nullptr};
        ChiOfflineCaptureResultInfo info{.frameNumber = input.Below(8),
                                         .pResult = result.hasMain ? &block : nullptr,
                                         .pSecondResult = &second,
                                         .pPrivateData = job.execution->request.pPrivateData};
        Trace("Send %zu buffers for execution %zu", buffers.size(), request.execution);
        request.wasTouched = true;
        model.Receive(request, result);
        if (request.state != Request::InFlight) {
            StandinControl()->Internals().Lock()->waiting.erase(request.execution);
        }
        const ChiOfflineSessionCallbacks* callbacks = job.session->data.pCallbacks;
        callbacks->ProcessCaptureResultCb(callbacks, 1, &info);
    }

    static ChiStream* AsChi(camera3_stream* stream) { return std::bit_cast<ChiStream*>(stream); }

    /// A session's callbacks with nothing in them.
    void NothingStep() {
        ChiOfflineSessionCallbacks callbacks{};
        ChiOfflineResultBlock block{};
        ChiOfflineCaptureResultInfo info{.pResult = &block};
        ChiOfflineQueryBuffer query{&g_outputs[0], 1};
        ChiOfflineQueryStreamBuffer answer{};
        ChiOfflineSessionCallbacks* const record = input.Flag() ? &callbacks : nullptr;
        QcomAdaptee::ProcessNotifyCb(record, input.Byte(), nullptr);
        Expect("the result of asking without a session",
               QcomAdaptee::GetFrameworkBuffers(record, 1, input.Flag() ? &query : nullptr, nullptr,
                                                input.Flag() ? &answer : nullptr),
               1);
        callbacks.pPrivateCallbackData = input.Flag() ? &callbacks : nullptr;
        QcomAdaptee::ProcessCaptureResultCb(record, 1, input.Flag() ? &info : nullptr);
    }

    // --- The device's faults

    void FaultStep() {
        constexpr auto kFirst = static_cast<uint32_t>(Entry::OpenSession);
        constexpr uint32_t kResults[] = {1, 3, static_cast<uint32_t>(-3)};
        constexpr uint32_t kTimes[] = {1, 2, UINT32_MAX, 0};
        const auto entry =
            static_cast<Entry>(kFirst + input.Below(static_cast<uint32_t>(Entry::Count) - kFirst));
        Fault fault{input.Pick(kResults), input.Below(4), input.Pick(kTimes)};
        if (standin::FailureOf(entry) == 0) {
            fault.result = 0;
        }
        // Managers are destroyed in no order.
        if (entry == Entry::BufferManagerDestroy) {
            fault = {fault.result, 0, fault.times == 0 ? 0 : UINT32_MAX};
        }
        Trace("Fail %s %u + 1, %u times: %u", standin::EntryName(entry), fault.wait, fault.times,
              fault.result);
        model.faults[entry] = fault;
        StandinControl()->Fail(entry, fault.result, fault.wait + 1, fault.times);
    }

    void MissingStep() {
        constexpr auto kFirst = static_cast<uint32_t>(Entry::OpenSession);
        constexpr auto kLast = static_cast<uint32_t>(Entry::GetCPUAddress);
        const auto entry = static_cast<Entry>(kFirst + input.Below(kLast + 1 - kFirst));
        const bool missing = input.Flag();
        Trace("%s is missing: %d", standin::EntryName(entry), missing);
        model.missing.erase(entry);
        if (missing) {
            model.missing.insert(entry);
        }
        StandinControl()->SetMissing(entry, missing);
    }

    void VendorStep() {
        using standin::Delivery;
        model.delivery = input.Flag() ? Delivery::OnCallerThread : Delivery::ByHand;
        model.shape = static_cast<Shape>(input.Below(static_cast<uint32_t>(Shape::Count)));
        model.asks = input.Flag();
        StandinControl()->SetDelivery(model.delivery);
        StandinControl()->SetShape(model.shape);
        StandinControl()->SetAsksForFrameworkBuffers(model.asks);
    }

    void FrameworkStep() {
        model.answer = {.result = static_cast<int32_t>(input.Below(3)) - 1,
                        .returned = input.Below(5),
                        .count = input.Below(5),
                        .status = static_cast<int32_t>(input.Below(2))};
    }

    /// The host's own records are the vendor's output streams, too.
    void StreamStep() {
        input.Pick(g_outputs) = Stream(input.Pick(kFormats), input.Pick(kSizes), input.Pick(kSizes),
                                       static_cast<int32_t>(input.Below(3)));
    }

    // --- Images

    void* GetImage(HostCamera& camera, size_t stream) {
        const bool comes = model.GetImage(camera, g_inputs[stream], stream < kImages);
        void* const image = camera.slots.GetImageBuffer(&camera.slots, &g_inputs[stream]);
        Expect("the presence of an image", image != nullptr, comes);
        if (image != nullptr) {
            camera.images.push_back({image, stream});
        }
        return image;
    }

    /// One that the host has already, or a new one.
    void* ImageFor(HostCamera& camera, size_t stream) {
        const auto known =
            std::find_if(camera.images.begin(), camera.images.end(),
                         [stream](const Image& image) { return image.stream == stream; });
        return known != camera.images.end() ? known->handle : GetImage(camera, stream);
    }

    void ReleaseImage(HostCamera& camera, const Image& image) {
        model.ReleaseImage(camera, g_inputs[image.stream]);
        camera.slots.ReleaseImageBuffer(&camera.slots, image.handle);
    }

    void ImageStep() {
        HostCamera& camera = PickCamera();
        void* const image = GetImage(camera, input.Below(std::size(kInputs)));
        if (image != nullptr) {
            const bool isThere = model.Buffers(camera, Entry::GetCPUAddress);
            void* const address = camera.slots.GetCPUAddress(&camera.slots, image);
            Expect("the presence of memory", address != nullptr, isThere);
        }
    }

    void ReleaseImageStep() {
        HostCamera& camera = PickCamera();
        if (!camera.images.empty()) {
            ReleaseImage(camera, Take(camera.images));
        }
    }

    // --- Metadata

    void* CreateWithUsage(HostCamera& camera) {
        const bool comes = model.Metadata(camera, Entry::MetadataCreateWithUsage);
        const uint32_t tags[] = {1, 2};
        void* const made = camera.slots.CreateWithUsage(&camera.slots, tags, 2, input.Byte());
        Expect("the presence of metadata", made != nullptr, comes);
        model.alive.metadata += comes ? 1 : 0;
        return made;
    }

    void MakeStep() {
        HostCamera& camera = PickCamera();
        void* made = nullptr;
        if (input.Flag()) {
            made = CreateWithUsage(camera);
        } else {
            // Android metadata that the vendor made, or the host, or none.
            void* const sources[] = {nullptr, g_memory, android.empty() ? nullptr : android[0]};
            void* const source = input.Pick(sources);
            const bool comes =
                source != nullptr && model.Metadata(camera, Entry::MetadataCreateFromAndroid);
            made = camera.slots.CreateByAndroidMetadata(&camera.slots, source);
            Expect("the presence of metadata from Android", made != nullptr, comes);
            model.alive.metadata += comes ? 1 : 0;
        }
        if (made != nullptr) {
            metadata.push_back(made);
        }
    }

    void ReleaseAndroidStep() {
        HostCamera& camera = PickCamera();
        void* const object = android.empty() ? nullptr : Take(android);
        // The presence of the one entry decides for the other.
        const bool isAsked = object != nullptr && model.Has(Entry::MetadataCreateFromAndroid);
        const Answered answered =
            isAsked ? model.Ask(camera, Entry::MetadataReleaseAndroid) : Answered{};
        model.alive.androidMetadata -= answered.works ? 1 : 0;
        Expect("the status of a release",
               camera.slots.ReleaseAndroidMetadata(&camera.slots, object), answered.status);
    }

    /// An object from hand to hand, and its end.
    void MetadataStep() {
        HostCamera& camera = PickCamera();
        if (metadata.empty()) {
            return;
        }
        PlatFormIntCallbacks* const table = &camera.slots;
        void* const object = Take(metadata);
        const std::vector<uint8_t> value(1 + input.Below(8), input.Byte());
        // A new one each time: an object made from Android metadata has the tags that were left in it.
        const uint32_t tag = ++lastTag;
        Answered answered = model.Ask(camera, Entry::MetadataSetTag);
        const bool isSet = answered.works;
        Expect("the status of writing a tag",
               table->SetTag(table, object, tag, value.data(), uint32_t(value.size()), 0),
               answered.status);
        answered = model.Ask(camera, Entry::MetadataCopy);
        Expect("the status of a copy", table->Copy(table, object, object, 0), answered.status);
        answered = model.Ask(camera, Entry::MetadataGetTag);
        uint32_t size = 0;
        const bool isThere = isSet && answered.works;
        const void* const data = table->GetTag(table, object, tag, &size, input.Byte());
        Expect("a tag's size", size, isThere ? value.size() : 0);
        Check(isThere ? std::memcmp(data, value.data(), size) == 0 : data == nullptr,
              "a tag has another value");
        answered = model.Ask(camera, Entry::MetadataDeleteTag);
        Expect("the status of removing a tag", table->DeleteTag(table, object, tag),
               answered.works && !isSet ? 1 : answered.status);
        const bool comes = model.Metadata(camera, Entry::MetadataCreateAndroid);
        void* const made = table->CreateAndroidMetadata(table, object, input.Byte(), nullptr);
        Expect("the presence of Android metadata", made != nullptr, comes);
        model.alive.androidMetadata += comes ? 1 : 0;
        if (made != nullptr) {
            android.push_back(made);
        }
        answered = model.Ask(camera, Entry::MetadataDestroy);
        model.alive.metadata -= answered.works ? 1 : 0;
        Expect("the status of a destruction", table->MetadataDestroy(table, object),
               answered.status);
    }

    // --- The rest

    void TranslateStep() {
        HostCamera& camera = PickCamera();
        const camera3_stream_buffer source{
            .stream = &g_outputs[0], .buffer = &g_handle, .status = input.Byte()};
        ChiStreamBuffer chi{};
        camera3_stream_buffer back{};
        const Answered to = model.AskInterface(Entry::TranslateToChiBuffer);
        const Answered from = model.AskInterface(Entry::TranslateFromChiBuffer);
        Expect("the status of a translation to the vendor",
               camera.slots.TranslateToBuffer(&camera.slots, &source, &chi), to.status);
        Expect("the status of a translation from the vendor",
               camera.slots.TranslateFromBuffer(&camera.slots, &chi, &back), from.status);
        Check(!to.works || !from.works ||
                  (back.stream == source.stream && back.buffer == source.buffer &&
                   back.status == source.status),
              "a buffer comes back as another one");
    }

    /// What needs no camera, for ids that no camera can have, too.
    void NoCameraStep() {
        PlatFormIntCallbacks table{};
        PlatformIntContext(&table, input.Pick(kIds));
        PlatFormIntCallbacks* const argument = input.Flag() ? &table : nullptr;
        table.ProcRequest(argument);
        Check(table.GetNCSCallback(argument) != nullptr &&
                  table.GetHWCallback(argument) != nullptr &&
                  table.GetPerfCallback(argument) != nullptr,
              "the camera module has a function less");
        int settings = 0;
        void* result = nullptr;
        auto status = model.Call(Entry::CreateSensorInitSettings).value_or(0);
        Expect("the status of the sensor's settings",
               static_cast<uint32_t>(table.CreateSensorInitSettings(argument, settings, 77)),
               status);
        Expect("the sensor's settings", settings, status == 0 ? 77 : 0);
        status = model.Call(Entry::EnumerateSensorModes).value_or(0);
        Expect("the status of the modes", table.EnumerateSensorModes(1, 2, nullptr), status);
        status = model.Call(Entry::ExtensionProcessResultMeta).value_or(0);
        Expect("the status of the extension", table.ExtensionProcessResultMeta(1, &result), status);
    }

    template <class T> T Take(std::vector<T>& list) {
        const auto place = list.begin() + static_cast<std::ptrdiff_t>(input.Byte() % list.size());
        T taken = *place;
        list.erase(place);
        return taken;
    }

    // --- From the first step to the last check

    void Run();

    void Finish() {
        for (HostCamera& camera : cameras) {
            if (camera.exists) {
                Destroy(camera);
            }
        }
        model.CheckRequests();
        model.CheckDevice();
    }
};

void Scene::Run() {
    using S = Scene;
    constexpr void (Scene::*kSteps[])() = {
        &S::SubmitStep,       &S::DeliverStep,  &S::CraftStep,     &S::VendorStep,
        &S::FaultStep,        &S::MissingStep,  &S::FlushStep,     &S::DestroyStep,
        &S::TearDownStep,     &S::StreamStep,   &S::FrameworkStep, &S::ImageStep,
        &S::ReleaseImageStep, &S::NothingStep,  &S::MakeStep,      &S::MetadataStep,
        &S::TranslateStep,    &S::NoCameraStep, &S::SubmitStep,    &S::ReleaseAndroidStep};
    while (!input.IsEmpty()) {
        (this->*input.Pick(kSteps))();
        model.CheckRequests();
    }
}

// --- The host's tables

template <uint32_t Index> OffCamApplicationCallbacks MakeTable() {
    OffCamApplicationCallbacks table{
        .releaseRtBuffers =
            [](RequestPrivData* data) {
                Scene::OnEvent(data, {Event::Release, Index});
            },
        .requestComplete =
            [](RequestPrivData* data, uint32_t status) {
                Scene::OnEvent(data, {Event::Complete, Index, status});
            },
        .captureResult =
            [](RequestPrivData* data, camera3_capture_result* result) {
                Scene::OnResult(data, {Event::Result, Index}, *result);
            },
    };
    table.releaseRtBuffers = HasCallback(Index, Event::Release) ? table.releaseRtBuffers : nullptr;
    table.requestComplete = HasCallback(Index, Event::Complete) ? table.requestComplete : nullptr;
    table.captureResult = HasCallback(Index, Event::Result) ? table.captureResult : nullptr;
    return table;
}

OffCamApplicationCallbacks* Scene::Callbacks(uint32_t table) {
    static OffCamApplicationCallbacks tables[] = {MakeTable<All>(), MakeTable<Other>(),
                                                  MakeTable<NoRelease>(), MakeTable<NoComplete>(),
                                                  MakeTable<NoResult>()};
    return table == NoTable ? nullptr : &tables[table];
}

camera3_callback_ops* Scene::FrameworkOps(Framework::Kind kind) {
    static camera3_callback_ops without{};
    static camera3_callback_ops with{.request_stream_buffers = Answer};
    return kind == Framework::NoOps ? nullptr : kind == Framework::NoEntry ? &without : &with;
}

// --- The device

/// Binds the device's libraries, with the offline interface or without.
void Load(bool hasInterface) {
    if (g_handle == nullptr) {
        g_handle = standin::gralloc::Wrap(g_memory, sizeof g_memory);
    }
    StandinControl()->Reset();
    if (!hasInterface) {
        StandinControl()->Fail(Entry::OpenContext, 0);
    }
    PlatformLoadFunctions functions{};
    PlatformLoadContext(&functions);
    functions.logMap(4, nullptr, nullptr);
    functions.loadLib();
}

/// A new device, and streams as they were.
void Prepare() {
    static const std::vector<standin::Control::ConfigRow> rows(kConfigRows, {{"fffff", "8", "1f"}});
    StandinControl()->Reset();
    StandinControl()->SetRecording(false);
    StandinControl()->SetConfigRows(rows);
    StandinControl()->SetDelivery(standin::Delivery::ByHand);
    standin::FailureOf(Entry::GetList); // It makes a list of its own at first.
    std::copy(std::begin(kInputs), std::end(kInputs), g_inputs);
    std::fill(std::begin(g_outputs), std::end(g_outputs), kInputs[kYuv]);
}

void SetLogLevel(uint32_t level) {
    OemLayer::g_logErrorEnabled = level >= 1;
    OemLayer::g_logWarnEnabled = level >= 2;
    OemLayer::g_logInfoEnabled = level >= 3;
    OemLayer::g_logVerboseEnabled = level >= 4;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static std::optional<bool> loaded; ///< With the interface, or without.
    Input input(data, size);
    SetLogLevel(input.Below(5));
    const bool hasInterface = input.Below(16) != 1;
    if (hasInterface != loaded) {
        Load(hasInterface);
        loaded = hasInterface;
    }
    Prepare();
    HeapWatch heap;
    Left left{};
    {
        Scene scene(input, hasInterface);
        scene.Run();
        scene.Finish();
        left = scene.model.left;
    }
    StandinControl()->Reset();
    CheckHeap(heap.End(), left);
    return 0;
}
