/// What the device does from now on, with its faults, and the framework; and results, the device's
/// own and such as no session of it delivers.

#include "adapterlayer/qcomadaptee.h"
#include "fuzz/scene.h"
#include "standin/session.h"

namespace fuzz {

namespace {

constexpr int32_t kFormats[] = {HAL_PIXEL_FORMAT_YCBCR_420_888, HAL_PIXEL_FORMAT_RAW10,
                                HAL_PIXEL_FORMAT_RAW16, HAL_PIXEL_FORMAT_BLOB};
constexpr uint32_t kSizes[] = {kWidth, kHeight, 0, 3, 64, UINT32_MAX};

/// An entry of the operation tables, or of those behind them, up to `end`.
Entry PickEntry(Scene& scene, Entry end) {
    constexpr auto kFirst = static_cast<uint32_t>(Entry::OpenSession);
    return static_cast<Entry>(kFirst + scene.Below(static_cast<uint32_t>(end) - kFirst));
}

Shape PickShape(Scene& scene) {
    return static_cast<Shape>(scene.Below(static_cast<uint32_t>(Shape::Count)));
}

void TellModel(Scene& scene) { scene.model.script = StandinControl()->Internals().Lock()->script; }

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

void FaultStep(Scene& scene) {
    constexpr uint32_t kResults[] = {1, 3, static_cast<uint32_t>(-3)};
    constexpr uint32_t kTimes[] = {1, 2, UINT32_MAX, 0};
    const Entry entry = PickEntry(scene, Entry::Count);
    standin::Fault fault{scene.Pick(kResults), scene.Below(4), scene.Pick(kTimes)};
    if (standin::FailureOf(entry) == 0) {
        fault.result = 0;
    }
    // Managers are destroyed in no order.
    if (entry == Entry::BufferManagerDestroy) {
        fault = {fault.result, 0, fault.times == 0 ? 0 : UINT32_MAX};
    }
    Trace("Fail %s %u + 1, %u times: %lu", standin::EntryName(entry), fault.wait, fault.times,
          fault.result);
    StandinControl()->Fail(entry, fault.result, fault.wait + 1, fault.times);
    TellModel(scene);
}

void MissingStep(Scene& scene) {
    // GetCPUAddress is the last entry of a table.
    const Entry entry = PickEntry(scene, Entry(static_cast<uint32_t>(Entry::GetCPUAddress) + 1));
    const bool missing = scene.Flag();
    Trace("%s is missing: %d", standin::EntryName(entry), missing);
    StandinControl()->SetMissing(entry, missing);
    TellModel(scene);
}

void VendorStep(Scene& scene) {
    using standin::Delivery;
    StandinControl()->SetDelivery(scene.Flag() ? Delivery::OnCallerThread : Delivery::ByHand);
    StandinControl()->SetShape(PickShape(scene));
    StandinControl()->SetAsksForFrameworkBuffers(scene.Flag());
    TellModel(scene);
}

void FrameworkStep(Scene& scene) {
    scene.model.answer = {.result = static_cast<int32_t>(scene.Below(3)) - 1,
                          .returned = scene.Below(5),
                          .count = scene.Below(5),
                          .status = static_cast<int32_t>(scene.Below(2))};
}

/// The host's own records are the vendor's output streams, too.
void StreamStep(Scene& scene) {
    scene.Pick(g_outputs) = MakeStream(scene.Pick(kFormats), scene.Pick(kSizes), scene.Pick(kSizes),
                                       static_cast<int32_t>(scene.Below(3)));
}

// --- Results ------------------------------------------------------------------------------------

/// The device's own results, for a request that has had none yet.
void DeliverStep(Scene& scene) {
    Request* const request = PickWaiting(scene);
    const Shape shape = PickShape(scene);
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
