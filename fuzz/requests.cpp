/// The host's requests, what it does when it is called back, and what its framework answers.

#include "fuzz/scene.h"

#include <algorithm>
#include <utility>

namespace fuzz {

namespace {

using OemLayer::OffCamApplicationCallbacks;
using OemLayer::OfflineDataWraper;
using OemLayer::RequestPrivData;

Scene* g_scene; ///< Of the last submission; there is one at a time.

constexpr size_t kFeatureLengths[] = {5, 4, 0, 40, 600}; ///< A feature is named by so many letters.
constexpr uint32_t kIdentityCameras[] = {0, 1, 0x80000000, UINT32_MAX};

void Submit(Request& request);

// --- The host is called back

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
