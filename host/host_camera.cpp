/// A request of the host from its buffers to its end.
#include "host/host_camera.h"

#include "standin/pixels.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace host {
namespace {

using OemLayer::OfflineDataWraper;

constexpr uint32_t kFirstFrame = 101;      // Far from the vendor's own frame numbers.
constexpr uint32_t kFramesOfCamera = 1000; // So that each camera's pictures are its own.
constexpr int kOverwritten = 0xEE;

} // namespace

// --- Camera: from buffers to submission ---------------------------------------------------------

Camera::Camera(const kit::Adapter& library, const CameraPlan& plan, const Scenario& scenario,
               const Scene& scene)
    : HostCamera(library, plan.id), mPlan(plan), mScenario(scenario), mScene(scene),
      mOutputStream(kit::MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888, plan.width, plan.height)) {
    for (const int32_t format : plan.inputs) {
        mInputStreams.push_back(kit::MakeStream(format, plan.width, plan.height));
    }
    mTable.Create(&mTable, plan.id);
}

Request* Camera::Prepare() {
    std::unique_lock lock(mMutex);
    const auto index = static_cast<uint32_t>(mRequests.size());
    if (index == mPlan.requests) {
        return nullptr;
    }
    const uint32_t frame = kFirstFrame + kFramesOfCamera * mPlan.id + index;
    mRequests.push_back(std::make_unique<Request>(*this, mPlan, index, frame));
    Request* const request = mRequests.back().get();
    lock.unlock();
    request->feature = mPlan.features[index % mPlan.features.size()];
    for (camera3_stream& stream : mInputStreams) {
        request->inputStreams.push_back(&stream);
    }
    request->numInputBuffers = mPlan.frames * static_cast<uint32_t>(mPlan.inputs.size());
    request->partialResultBase = kit::kPartialBase;
    if (TakeBuffers(*request)) {
        CreateSetMetadata(request->metadata, mPlan.frames);
    } else {
        Drop(*request, "the vendor gives no image buffers");
    }
    return request;
}

void Camera::Drop(Request& request, const std::string& why) {
    request.problem = why;
    GiveBack(request);
}

/// Takes and exposes a buffer for each input of each set. In dual RDI set i finds its two raw
/// frames at the indices i and 2i + 1 of one array, so that several sets share frames: all are then
/// taken from the first stream.
bool Camera::TakeBuffers(Request& request) {
    const bool isDual = mPlan.IsDualRdi();
    const uint32_t raws = mPlan.CountRaws();
    const bool hasYuv = raws < mPlan.inputs.size();
    const uint32_t rawFrames = raws * mPlan.frames;
    const uint32_t count = rawFrames + (hasYuv ? mPlan.frames : 0);
    bool isGood = true;
    for (uint32_t i = 0; i < rawFrames; ++i) {
        const uint32_t asFirst = i < mPlan.frames ? 1 : 0;
        const uint32_t asSecond = isDual ? i % 2 : 0;
        const uint32_t stream = isDual && mPlan.frames == 1 ? i : 0;
        request.rawBuffers.push_back(TakeFrame(request, stream, i, count, asFirst + asSecond));
        isGood &= request.rawBuffers.back() != nullptr;
    }
    for (uint32_t i = 0; hasYuv && i < mPlan.frames; ++i) {
        request.yuvBuffers.push_back(TakeFrame(request, raws, rawFrames + i, count, 1));
        isGood &= request.yuvBuffers.back() != nullptr;
    }
    const auto managerOf = [](const std::vector<void*>& buffers, size_t i) {
        return i < buffers.size() ? StandinControl()->ManagerOf(buffers[i]) : nullptr;
    };
    request.pBufferManager = managerOf(request.rawBuffers, 0);
    request.pSecondRawBufferManager = managerOf(request.rawBuffers, 1);
    request.pYuvBufferManager = managerOf(request.yuvBuffers, 0);
    return isGood;
}

/// Takes a buffer of an input stream, and, where it is mapped, writes what the sensor sees. Null if
/// there is none.
void* Camera::TakeFrame(Request& request, uint32_t input, uint32_t shot, uint32_t count,
                        uint32_t weight) {
    camera3_stream& stream = mInputStreams[input];
    std::unique_lock lock(mBufferMutex);
    void* const buffer = mTable.GetImageBuffer(&mTable, &stream);
    lock.unlock();
    auto* const memory =
        static_cast<uint8_t*>(buffer == nullptr ? nullptr : mTable.GetCPUAddress(&mTable, buffer));
    if (memory != nullptr) {
        const Exposure exposure{.shot = {request.rtFrameNumber, shot, count, mScenario.seed},
                                .format = static_cast<uint32_t>(stream.format),
                                .cfaPattern = standin::CfaPatternOf(mPlan.id),
                                .weight = weight};
        const auto size = standin::ImageSize(exposure.format, stream.width, stream.height);
        host::Expose(mScene, exposure, /*isNoisy=*/true, {memory, size});
        request.frames.push_back(exposure);
    }
    return buffer;
}

void Camera::Send(Request& request) {
    // The request with this index may have been dropped.
    if (mPlan.flushAfter > 0 && request.index >= mPlan.flushAfter && !mWasFlushed.exchange(true)) {
        // When no submission is under way, and the vendor has delivered all but what it shall hold.
        const std::unique_lock lock(mFlushMutex);
        const auto until = Clock::now() + mScenario.patience;
        WaitForVendor(mPlan.heldAtFlush, [until] { return Clock::now() >= until; });
        Flush();
        StandinControl()->SetDelivery(mScenario.delivery);
    }
    const bool isHeld =
        request.index < mPlan.flushAfter && request.index + mPlan.heldAtFlush >= mPlan.flushAfter;
    if (isHeld) {
        StandinControl()->SetDelivery(standin::Delivery::ByHand);
    }
    std::shared_lock lock(mFlushMutex);
    ++mInVendor;
    request.status = Submit(request);
    lock.unlock();
    if (*request.status != 0) {
        GiveBack(request);
        EndInFlight(request, std::nullopt);
    }
}

/// Both records are overwritten as soon as the library has returned: they are the host's again.
/// From the submission on the request is the vendor's threads'.
uint32_t Camera::Submit(Request& request) {
    alignas(OfflineDataWraper) std::byte memory[sizeof(OfflineDataWraper)];
    auto* const wrapper = new (memory) OfflineDataWraper(mWrapper);
    wrapper->rtFrameNumber = request.rtFrameNumber;
    wrapper->numBuffers = mPlan.announcedSets == 0 ? mPlan.frames : mPlan.announcedSets;
    wrapper->identity.pOutStream = &mOutputStream;
    wrapper->identity.featureName = request.feature;
    wrapper->dualRdi = mPlan.IsDualRdi() ? 1 : 0;
    wrapper->yuvInput = request.yuvBuffers.empty() ? 0 : 1;
    std::copy(request.metadata.begin(), request.metadata.end(), wrapper->pChiMetadataHandles);
    std::copy(request.rawBuffers.begin(), request.rawBuffers.end(), wrapper->pRDIBufferHandles);
    std::copy(request.yuvBuffers.begin(), request.yuvBuffers.end(), wrapper->yuvBufferHandles);
    camera3_stream_buffer output =
        StreamBuffer(&mOutputStream, mPlan.lends ? nullptr : request.output.Reference());
    mLast = &request;
    const uint32_t status = mTable.SubmitRequestFromRT(
        &mTable, wrapper, &request, mPlan.sendsOutput ? &output : nullptr, &mCallbacks);
    wrapper->~OfflineDataWraper();
    std::memset(memory, kOverwritten, sizeof memory);
    std::memset(&output, kOverwritten, sizeof output);
    return status;
}

// --- Camera: the end of requests that are not completed ------------------------------------------

/// Closes all sessions. What the vendor still works on is lost.
void Camera::Flush() {
    mTable.Flush(&mTable);
    const std::lock_guard listLock(mMutex);
    for (const auto& request : mRequests) {
        const bool isInFlight = request->status == 0U && !request->completion.has_value();
        if (isInFlight && !request->isLost) {
            request->isLost = true;
            GiveBack(*request);
            --mInFlight;
            --mInVendor;
        }
    }
    mChanged.notify_all();
}

void Camera::Close() {
    Flush();
    mTable.TearDownResource(&mTable);
    mTable.Destroy(&mTable);
}

bool Camera::TakeRoom(uint32_t limit, const std::function<bool()>& isOver) {
    std::unique_lock lock(mMutex);
    while (mInFlight >= limit && !isOver()) {
        mChanged.wait_for(lock, kGlance);
    }
    if (mInFlight >= limit || isOver()) {
        return false;
    }
    ++mInFlight;
    return true;
}

void Camera::WaitForVendor(uint32_t limit, const std::function<bool()>& isOver) {
    std::unique_lock lock(mMutex);
    while (mInVendor > limit && !isOver()) {
        mChanged.wait_for(lock, kGlance);
    }
}

void Camera::EndInFlight(Request& request, std::optional<uint32_t> completion) {
    const std::lock_guard lock(mMutex);
    request.completion = completion;
    --mInFlight;
    --mInVendor;
    mChanged.notify_all();
}

void Camera::GiveBack(Request& request) {
    GiveBackBuffers(request);
    GiveBackAll(&PlatFormIntCallbacks::MetadataDestroy, request.metadata);
}

void Camera::GiveBackBuffers(Request& request) {
    GiveBackAll(&PlatFormIntCallbacks::ReleaseImageBuffer, request.rawBuffers);
    GiveBackAll(&PlatFormIntCallbacks::ReleaseImageBuffer, request.yuvBuffers);
}

// --- Camera: what comes back, on the vendor's threads -------------------------------------------

void Camera::OnResult(Request& /*request*/, const camera3_capture_result& result) {
    if (result.result != nullptr) {
        mTable.ReleaseAndroidMetadata(&mTable, const_cast<camera_metadata*>(result.result));
    }
}

/// Lends the output buffer of the request that is under way.
buffer_handle_t* Camera::Lend(const camera3_stream* /*stream*/) {
    return mLast.load()->output.Reference();
}

void Camera::OnRelease(Request& request) {
    if (!request.isLost) {
        GiveBackBuffers(request);
    }
}

void Camera::OnCompletion(Request& request, uint32_t status) {
    if (request.isLost) {
        return;
    }
    GiveBack(request);
    ++mCompleted;
    EndInFlight(request, status);
}

} // namespace host
