/// What the host does: its cameras with their images and metadata, its requests, and what comes
/// back of them.

#include "fuzz/scene.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace fuzz {

Camera& Scene::PickCamera() {
    Camera& camera = Pick(cameras);
    if (!camera.exists) {
        Trace("Create %u", camera.id);
        PlatformIntContext(&camera.slots, camera.id);
        model.Create(camera);
        Check(camera.slots.Create(&camera.slots, camera.id) != nullptr, "there is no camera");
    }
    return camera;
}

namespace {

void* GetImage(Scene& scene, Camera& camera, size_t stream) {
    const bool comes = scene.model.GetImage(camera, g_inputs[stream], stream < kImages);
    void* const image = camera.slots.GetImageBuffer(&camera.slots, &g_inputs[stream]);
    Expect("the presence of an image", image != nullptr, comes);
    if (image != nullptr) {
        camera.images.push_back({image, stream});
    }
    return image;
}

void ReleaseImage(Scene& scene, Camera& camera) {
    const Image image = scene.Take(camera.images);
    scene.model.ReleaseImage(camera, g_inputs[image.stream]);
    camera.slots.ReleaseImageBuffer(&camera.slots, image.handle);
}

/// A host that is careful gives its images back first.
void TearDown(Scene& scene, Camera& camera) {
    const bool isCareful = !scene.Flag();
    StandinControl()->SetTracePoints(scene.Flag());
    Trace("TearDown %u, careful %d", camera.id, isCareful);
    while (isCareful && !camera.images.empty()) {
        ReleaseImage(scene, camera);
    }
    camera.images.clear();
    scene.model.TearDown(camera);
    camera.slots.TearDownResource(&camera.slots);
    Expect("the number of open sections", g_platform.openSections, 0);
}

/// An image that the host has already, or a new one.
void* ImageFor(Scene& scene, Camera& camera, size_t stream) {
    const auto known =
        std::find_if(camera.images.begin(), camera.images.end(),
                     [stream](const Image& image) { return image.stream == stream; });
    return known != camera.images.end() ? known->handle : GetImage(scene, camera, stream);
}

/// What was made is there if it must come, and then is alive.
void* Made(void* made, bool comes, size_t& alive, const char* what) {
    Expect(what, made != nullptr, comes);
    alive += comes ? 1 : 0;
    return made;
}

void* CreateWithUsage(Scene& scene, Camera& camera) {
    const bool comes = scene.model.Metadata(camera, Entry::MetadataCreateWithUsage);
    const uint32_t tags[] = {1, 2};
    return Made(camera.slots.CreateWithUsage(&camera.slots, tags, 2, scene.Byte()), comes,
                scene.model.alive.metadata, "the presence of metadata");
}

} // namespace

void Destroy(Scene& scene, Camera& camera) {
    TearDown(scene, camera);
    Trace("Destroy %u", camera.id);
    scene.model.Destroy(camera);
    Expect("what Destroy returns", camera.slots.Destroy(&camera.slots), 0);
}

void DestroyStep(Scene& scene) { Destroy(scene, scene.PickCamera()); }

void TearDownStep(Scene& scene) { TearDown(scene, scene.PickCamera()); }

void FlushStep(Scene& scene) {
    Camera& camera = scene.PickCamera();
    Trace("Flush %u", camera.id);
    scene.model.Flush(camera);
    camera.slots.Flush(&camera.slots);
}

void ImageStep(Scene& scene) {
    Camera& camera = scene.PickCamera();
    void* const image = GetImage(scene, camera, scene.Below(std::size(kInputs)));
    if (image != nullptr) {
        const bool isThere = scene.model.Buffers(camera, Entry::GetCPUAddress);
        void* const address = camera.slots.GetCPUAddress(&camera.slots, image);
        Expect("the presence of memory", address != nullptr, isThere);
    }
}

void ReleaseImageStep(Scene& scene) {
    Camera& camera = scene.PickCamera();
    if (!camera.images.empty()) {
        ReleaseImage(scene, camera);
    }
}

void TranslateStep(Scene& scene) {
    PlatFormIntCallbacks* const table = &scene.PickCamera().slots;
    const camera3_stream_buffer source{
        .stream = &g_outputs[0], .buffer = &g_handle, .status = scene.Byte()};
    ChiStreamBuffer chi{};
    camera3_stream_buffer back{};
    const Answered to = scene.model.Interface(Entry::TranslateToChiBuffer);
    const Answered from = scene.model.Interface(Entry::TranslateFromChiBuffer);
    Expect("the status of a translation to the vendor",
           table->TranslateToBuffer(table, &source, &chi), to.status);
    Expect("the status of a translation from the vendor",
           table->TranslateFromBuffer(table, &chi, &back), from.status);
    Check(!to.works || !from.works ||
              (back.stream == source.stream && back.buffer == source.buffer &&
               back.status == source.status),
          "a buffer comes back as another one");
}

/// For ids without camera, and for such as no camera can have, too.
void NoCameraStep(Scene& scene) {
    constexpr uint32_t kIds[] = {0, 7, 15, 1, 16, UINT32_MAX};
    PlatFormIntCallbacks table{};
    PlatformIntContext(&table, scene.Pick(kIds));
    PlatFormIntCallbacks* const argument = scene.Flag() ? &table : nullptr;
    table.ProcRequest(argument);
    Check(table.GetNCSCallback(argument) != nullptr && table.GetHWCallback(argument) != nullptr &&
              table.GetPerfCallback(argument) != nullptr,
          "the camera module has a function less");
    const auto statusOf = [&](Entry entry) { return scene.model.Call(entry).status; };
    int settings = 0;
    void* result = nullptr;
    const uint32_t status = statusOf(Entry::CreateSensorInitSettings);
    Expect("the status of the sensor's settings",
           static_cast<uint32_t>(table.CreateSensorInitSettings(argument, settings, 77)), status);
    Expect("the sensor's settings", settings, status == 0 ? 77 : 0);
    Expect("the status of the modes", table.EnumerateSensorModes(1, 2, nullptr),
           statusOf(Entry::EnumerateSensorModes));
    Expect("the status of the extension", table.ExtensionProcessResultMeta(1, &result),
           statusOf(Entry::ExtensionProcessResultMeta));
}

// --- Metadata, in the vendor's form and in Android's --------------------------------------------

void MakeStep(Scene& scene) {
    Camera& camera = scene.PickCamera();
    void* made = nullptr;
    if (scene.Flag()) {
        made = CreateWithUsage(scene, camera);
    } else {
        // Android metadata that the vendor made, or the host, or none.
        void* const sources[] = {nullptr, g_memory,
                                 scene.android.empty() ? nullptr : scene.android[0]};
        void* const source = scene.Pick(sources);
        const bool comes =
            source != nullptr && scene.model.Metadata(camera, Entry::MetadataCreateFromAndroid);
        made = Made(camera.slots.CreateByAndroidMetadata(&camera.slots, source), comes,
                    scene.model.alive.metadata, "the presence of metadata from Android");
    }
    if (made != nullptr) {
        scene.metadata.push_back(made);
    }
}

void ReleaseAndroidStep(Scene& scene) {
    Camera& camera = scene.PickCamera();
    void* const object = scene.android.empty() ? nullptr : scene.Take(scene.android);
    // The presence of the one entry decides for the other.
    const bool isAsked = object != nullptr && scene.model.Has(Entry::MetadataCreateFromAndroid);
    const Answered answered =
        scene.model.Ask(isAsked && camera.hasMetadata, Entry::MetadataReleaseAndroid);
    scene.model.alive.androidMetadata -= answered.works ? 1 : 0;
    Expect("the status of a release", camera.slots.ReleaseAndroidMetadata(&camera.slots, object),
           answered.status);
}

/// An object from hand to hand, and its end.
void MetadataStep(Scene& scene) {
    Camera& camera = scene.PickCamera();
    if (scene.metadata.empty()) {
        return;
    }
    Model& model = scene.model;
    PlatFormIntCallbacks* const table = &camera.slots;
    void* const object = scene.Take(scene.metadata);
    const std::vector<uint8_t> value(1 + scene.Below(8), scene.Byte());
    // A new one each time: an object made from Android metadata has the tags that were left in it.
    const uint32_t tag = ++scene.lastTag;
    const Answered set = model.Metadata(camera, Entry::MetadataSetTag);
    Expect("the status of writing a tag",
           table->SetTag(table, object, tag, value.data(), uint32_t(value.size()), 0), set.status);
    Expect("the status of a copy", table->Copy(table, object, object, 0),
           model.Metadata(camera, Entry::MetadataCopy).status);
    const bool isThere = model.Metadata(camera, Entry::MetadataGetTag).works && set.works;
    uint32_t size = 0;
    const void* const data = table->GetTag(table, object, tag, &size, scene.Byte());
    Expect("a tag's size", size, isThere ? value.size() : 0);
    Check(isThere ? std::memcmp(data, value.data(), size) == 0 : data == nullptr,
          "a tag has another value");
    const Answered deleted = model.Metadata(camera, Entry::MetadataDeleteTag);
    Expect("the status of removing a tag", table->DeleteTag(table, object, tag),
           deleted.works && !set.works ? 1 : deleted.status);
    const bool comes = model.Metadata(camera, Entry::MetadataCreateAndroid);
    void* const made = Made(table->CreateAndroidMetadata(table, object, scene.Byte(), nullptr),
                            comes, model.alive.androidMetadata, "the presence of Android metadata");
    if (made != nullptr) {
        scene.android.push_back(made);
    }
    const Answered destroyed = model.Metadata(camera, Entry::MetadataDestroy);
    model.alive.metadata -= destroyed.works ? 1 : 0;
    Expect("the status of a destruction", table->MetadataDestroy(table, object), destroyed.status);
}

// --- The host is called back, and its framework is asked

namespace {

using OemLayer::OffCamApplicationCallbacks;
using OemLayer::OfflineDataWraper;
using OemLayer::RequestPrivData;

Scene* g_scene; ///< Of the last submission; there is one at a time.

constexpr size_t kFeatureLengths[] = {5, 4, 0, 40, 600}; ///< A feature is named by so many letters.
constexpr uint32_t kIdentityCameras[] = {0, 1, 0x80000000, UINT32_MAX};

void Submit(Request& request);

void OnEvent(RequestPrivData* data, const Event& event) {
    Request& request = *static_cast<Request::PrivData*>(data)->owner;
    request.seen.push_back(event);
    if (request.hostsNested != nullptr && request.nestedAt == event.kind) {
        Submit(*std::exchange(request.hostsNested, nullptr));
    }
}

void OnResult(RequestPrivData* data, Event event, const camera3_capture_result& result) {
    event.number = result.frame_number;
    event.partial = result.partial_result;
    for (uint32_t i = 0; i < result.num_output_buffers; ++i) {
        const camera3_stream_buffer& buffer = result.output_buffers[i];
        event.buffers.push_back({static_cast<uint32_t>(buffer.status), buffer.stream != nullptr});
    }
    event.hasMetadata = result.result != nullptr;
    if (event.hasMetadata) {
        g_scene->android.push_back(const_cast<camera_metadata*>(result.result));
    }
    OnEvent(data, event);
}

template <uint32_t Index> OffCamApplicationCallbacks MakeTable() {
    return {[](auto* data) {
                OnEvent(data, {Event::Release, Index});
            },
            [](auto* data, auto status) {
                OnEvent(data, {Event::Complete, Index, status});
            },
            [](auto* data, auto* result) {
                OnResult(data, {Event::Result, Index}, *result);
            }};
}

OffCamApplicationCallbacks* Callbacks(uint32_t table) {
    static OffCamApplicationCallbacks tables[] = {MakeTable<All>(), MakeTable<Other>(),
                                                  MakeTable<NoRelease>(), MakeTable<NoComplete>(),
                                                  MakeTable<NoResult>()};
    tables[NoRelease].releaseRtBuffers = nullptr;
    tables[NoComplete].requestComplete = nullptr;
    tables[NoResult].captureResult = nullptr;
    return table == NoTable ? nullptr : &tables[table];
}

/// A framework that says more than it was asked for, or less.
int32_t Answer(const camera3_callback_ops*, uint32_t count, const camera3_buffer_request* requests,
               uint32_t* returned, camera3_stream_buffer_ret* answers) {
    const Framework& answer = g_scene->model.answer;
    for (uint32_t i = 0; i < count; ++i) {
        answers[i].num_output_buffers = answer.count;
        std::fill_n(
            answers[i].output_buffers, std::min(answer.count, requests[i].num_buffers_requested),
            camera3_stream_buffer{
                .stream = requests[i].stream, .buffer = &g_handle, .status = answer.status});
    }
    *returned = answer.returned;
    return answer.result;
}

camera3_callback_ops* FrameworkOps(Framework::Kind kind) {
    static camera3_callback_ops without{};
    static camera3_callback_ops with{.request_stream_buffers = Answer};
    return kind == Framework::NoOps ? nullptr : kind == Framework::NoEntry ? &without : &with;
}

// --- A request

void DrawStreams(Scene& scene, Request& request) {
    OfflineDataWraper& wrapper = request.wrapper;
    wrapper.identity = {.pOutStream = &scene.Pick(g_outputs),
                        .cameraId = scene.Pick(kIdentityCameras),
                        .featureName = std::string(scene.Pick(kFeatureLengths), 'f')};
    request.output = {.stream = wrapper.identity.pOutStream,
                      .buffer = &g_handle,
                      .status = static_cast<int32_t>(scene.Below(3))};
    std::vector<camera3_stream*>& inputs = request.privData.inputStreams;
    inputs.push_back(&scene.Pick(g_inputs));
    for (uint32_t more = scene.Below(8); more >= 3; --more) {
        inputs.push_back(&scene.Pick(g_inputs));
    }
    if (scene.Flag() && !scene.android.empty()) {
        wrapper.m_pRealtimeSessionParameters = static_cast<camera_metadata*>(scene.android[0]);
    }
}

void DrawInputs(Scene& scene, Camera& camera, Request& request) {
    OfflineDataWraper& wrapper = request.wrapper;
    wrapper.rtFrameNumber = scene.Byte();
    wrapper.numBuffers = scene.Below(16) == 15 ? scene.Word() : scene.Below(14);
    wrapper.yuvInput = scene.Below(3);
    wrapper.dualRdi = scene.Below(3);
    request.privData.partialResultBase = scene.Below(2) * UINT32_MAX;
    const size_t rawStream = request.privData.inputStreams[0] == &g_inputs[1] ? 1 : 0;
    request.pRawImage = &g_inputs[rawStream];
    void* const raw = ImageFor(scene, camera, rawStream);
    void* const yuv = wrapper.yuvInput == 1 ? ImageFor(scene, camera, kYuv) : nullptr;
    request.hasImages = raw != nullptr && (yuv != nullptr || wrapper.yuvInput != 1);
    request.privData.pBufferManager = StandinControl()->ManagerOf(raw);
    request.privData.pSecondRawBufferManager = request.privData.pBufferManager;
    request.privData.pYuvBufferManager = StandinControl()->ManagerOf(yuv);
    std::fill(std::begin(wrapper.pRDIBufferHandles), std::end(wrapper.pRDIBufferHandles), raw);
    std::fill_n(wrapper.pRDIBufferStream, OemLayer::kMaxInputBuffers, raw);
    std::fill(std::begin(wrapper.yuvBufferHandles), std::end(wrapper.yuvBufferHandles), yuv);
    const uint32_t sets = std::min(wrapper.numBuffers, OemLayer::kMaxInputSets);
    while (camera.setMetadata.size() < sets) {
        camera.setMetadata.push_back(CreateWithUsage(scene, camera));
    }
    std::copy_n(camera.setMetadata.begin(), sets, wrapper.pChiMetadataHandles);
}

/// Leaves out what a request may lack, and makes wrong what the vendor alone looks at.
void Spoil(Request& request, uint32_t how) {
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

/// Reads a request into a free record. Null if there is none.
Request* Draw(Scene& scene, Camera& camera, bool mayNest) {
    Request* const request = scene.model.NewRequest(camera);
    if (request == nullptr) {
        return nullptr;
    }
    request->table = scene.Below(NumTables);
    request->framework = static_cast<Framework::Kind>(scene.Below(3));
    request->wrapper.pCamera3CbOps = FrameworkOps(request->framework);
    DrawStreams(scene, *request);
    DrawInputs(scene, camera, *request);
    Spoil(*request, scene.Below(32));
    if (mayNest && scene.Below(4) == 1) {
        request->nestedAt = static_cast<Event::Kind>(scene.Below(3));
        request->nested = Draw(scene, camera, false);
        request->hostsNested = request->nested;
    }
    return request;
}

void Submit(Request& request) {
    PlatFormIntCallbacks& table = request.camera->slots;
    // The record and the output are the library's only during the call.
    OfflineDataWraper wrapper = request.wrapper;
    camera3_stream_buffer output = request.output;
    request.returned =
        table.SubmitRequestFromRT(&table, request.hasWrapper ? &wrapper : nullptr,
                                  request.hasPrivData ? &request.privData : nullptr,
                                  request.hasOutput ? &output : nullptr, Callbacks(request.table));
}

} // namespace

void SubmitStep(Scene& scene) {
    g_scene = &scene;
    if (Request* const request = Draw(scene, scene.PickCamera(), true)) {
        scene.model.Submit(*request);
        Trace("Submit: status %u, execution %zu", request->status, request->execution);
        Submit(*request);
    }
}

} // namespace fuzz
