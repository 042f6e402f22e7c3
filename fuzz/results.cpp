/// The vendor's results, its own and such as no session of the device delivers.

#include "adapterlayer/qcomadaptee.h"
#include "fuzz/scene.h"
#include "standin/session.h"

namespace fuzz {

namespace {

/// One of the requests whose results are awaited, null if there is none.
Request* PickWaiting(Scene& scene) {
    std::vector<Request*> waiting;
    for (Request& request : scene.model.requests) {
        if (request.state == Request::InFlight && request.waits) {
            waiting.push_back(&request);
        }
    }
    return waiting.empty() ? nullptr : waiting[scene.Byte() % waiting.size()];
}

void Send(Scene& scene, Request& request, const Delivered& result, ChiMetadataHandle own) {
    const standin::Job job = StandinControl()->Internals().Lock()->waiting.at(request.execution);
    const auto count = static_cast<uint32_t>(result.buffers.size());
    std::vector<ChiStreamBuffer> buffers(count + 1);
    buffers[count].bufferStatus = result.surplus;
    for (uint32_t i = 0; i < count; ++i) {
        buffers[i].pStream =
            result.buffers[i].hasStream ? std::bit_cast<ChiStream*>(&g_outputs[0]) : nullptr;
        buffers[i].bufferStatus = result.buffers[i].status;
    }
    const ChiMetadataHandle handles[] = {nullptr, job.execution->output.set.pMetadata, own};
    ChiOfflineResultBlock block{.numBuffers = count,
                                .pBuffers = result.hasArray ? buffers.data() : nullptr,
                                .numPartialMetadata = result.partials,
                                .pMetadata = handles[result.metadata]};
    ChiOfflineResultBlock second{.pMetadata = result.hasSecond ? &second : nullptr};
    ChiOfflineCaptureResultInfo info{.frameNumber = scene.Below(8),
                                     .pResult = result.hasMain ? &block : nullptr,
                                     .pSecondResult = &second,
                                     .pPrivateData = job.execution->request.pPrivateData};
    Trace("Send %u buffers for execution %zu", count, request.execution);
    request.wasTouched = true;
    scene.model.Receive(request, result);
    if (request.state != Request::InFlight) {
        StandinControl()->Internals().Lock()->waiting.erase(request.execution);
    }
    const ChiOfflineSessionCallbacks* callbacks = job.session->data.pCallbacks;
    callbacks->ProcessCaptureResultCb(callbacks, 1, &info);
}

} // namespace

/// The device's own results, for a request that has had none yet.
void DeliverStep(Scene& scene) {
    Request* const request = PickWaiting(scene);
    const auto shape = static_cast<Shape>(scene.Below(static_cast<uint32_t>(Shape::Count)));
    if (request != nullptr && !request->wasTouched) {
        Trace("Deliver execution %zu in shape %u", request->execution,
              static_cast<uint32_t>(shape));
        scene.model.Deliver(*request, shape);
        StandinControl()->Deliver(request->execution, shape);
    }
}

void CraftStep(Scene& scene) {
    Request* const request = PickWaiting(scene);
    if (request == nullptr) {
        return;
    }
    const ChiMetadataHandle own = request->wrapper.pChiMetadataHandles[0];
    Delivered result{.surplus = 1};
    result.buffers.resize(scene.Below(11));
    for (Buffer& buffer : result.buffers) {
        buffer = {scene.Below(3), scene.Flag()};
    }
    result.hasArray = scene.Below(4) != 1;
    result.metadata = static_cast<Delivered::Metadata>(scene.Below(own != nullptr ? 3 : 2));
    result.partials = scene.Below(3);
    result.hasMain = scene.Below(8) != 1;
    result.hasSecond = scene.Flag();
    Send(scene, *request, result, own);
}

/// A session's callbacks with nothing in them.
void NothingStep(Scene& scene) {
    using OemLayer::QcomAdaptee;
    ChiOfflineSessionCallbacks callbacks{};
    ChiOfflineResultBlock block{};
    ChiOfflineCaptureResultInfo info{.pResult = &block};
    ChiOfflineQueryBuffer query{&g_outputs[0], 1};
    ChiOfflineQueryStreamBuffer answer{};
    ChiOfflineSessionCallbacks* const record = scene.Flag() ? &callbacks : nullptr;
    QcomAdaptee::ProcessNotifyCb(record, scene.Byte(), nullptr);
    Expect("the result of asking without a session",
           QcomAdaptee::GetFrameworkBuffers(record, 1, scene.Flag() ? &query : nullptr, nullptr,
                                            scene.Flag() ? &answer : nullptr),
           1);
    callbacks.pPrivateCallbackData = scene.Flag() ? &callbacks : nullptr;
    QcomAdaptee::ProcessCaptureResultCb(record, 1, scene.Flag() ? &info : nullptr);
}

} // namespace fuzz
