/// Bursts of requests, and what comes back of them.
#include "soak/camera.h"

#include "kit/stream.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <thread>
#include <utility>

namespace soak {
namespace {

using OemLayer::OfflineDataWraper;
using standin::Shape;

constexpr uint32_t kBurst = 500;          // Requests between two flushes, at most.
constexpr uint32_t kBurstsOfACamera = 16; // Before it is created anew.
constexpr uint32_t kInFlight = 24;        // Requests of a camera.
constexpr uint32_t kSlowEvery = 211; // In frames; a prime, so that all identities have their turn.
constexpr std::chrono::microseconds kSlow{500};
constexpr uint32_t kChainedEvery = 7; // Likewise: of so many completions, one sends a request.
constexpr std::chrono::seconds kPatience{30}; // For room, or for the last completion of a burst.
// The last is longer than a string keeps in itself.
constexpr std::array kFeatureNames{"Night", "Hdr", "AFeatureWithANameThatIsLong"};

/// Small: what is in the pictures is no matter here.
camera3_stream MakeStream(int32_t format) { return kit::MakeStream(format, 16, 8); }

void BeSlow(uint32_t frame, uint32_t turn) {
    if (frame % kSlowEvery == turn) {
        std::this_thread::sleep_for(kSlow);
    }
}

/// For the end of the run, as violations of the contract.
void Complain(const Request& request, const std::string& what) {
    StandinControl()->Report(
        {.rule = standin::Rule::Completion, .event = 0, .text = request.name + ": " + what});
}

/// The inputs of an identity's sets, in the order of its streams: R for raw, Y for YUV.
struct Recipe {
    std::string_view inputs;
    uint32_t maxSets;

    uint32_t Raws() const {
        return static_cast<uint32_t>(std::count(inputs.begin(), inputs.end(), 'R'));
    }
    /// A completion frees as many format records as buffers came back, which is one, and only those
    /// of the last set. One that belongs to no raw input is none.
    int64_t FormatsLeft(uint32_t sets) const {
        return int64_t{Raws()} * sets - (inputs.front() == 'R' ? 1 : 0);
    }
};

const Recipe& RecipeOf(bool isMixed, uint32_t identity) {
    static constexpr Recipe kPlain[] = {{"R", 1}, {"RY", 1}, {"Y", 2}};
    static constexpr Recipe kMixed[] = {{"R", 12}, {"RR", 12}, {"RY", 4},
                                        {"YR", 1}, {"RRY", 8}, {"RR", 1}};
    return isMixed ? kMixed[identity % std::size(kMixed)] : kPlain[identity % std::size(kPlain)];
}

} // namespace

Camera::Camera(const kit::Adapter& library, uint32_t id, Tally& tally)
    : HostCamera(library, id), mId(id), mTally(tally),
      mYuv(MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888)) {
    mRaw.fill(MakeStream(id % 2 == 0 ? HAL_PIXEL_FORMAT_RAW10 : HAL_PIXEL_FORMAT_RAW16));
    mOutputs.fill(MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888));
    while (mRequests.size() < kBurst) {
        mRequests.emplace_back(*this).partialResultBase = kit::kPartialBase;
    }
}

void Camera::Create() {
    mTable.Create(&mTable, mId);
    ++mTally.creations;
}

// --- Rounds and bursts --------------------------------------------------------------------------

void Camera::Drive(const Round& round, uint64_t requests) {
    mRound = round;
    TakeImages();
    while (requests > 0 && !mTally.isOver) {
        const auto count = static_cast<uint32_t>(std::min<uint64_t>(requests, kBurst));
        requests -= count;
        SendBurst(count);
        mTable.Flush(&mTable);
        if (++mBursts % kBurstsOfACamera == 0) {
            GiveImagesBack();
            Destroy();
            Create();
            TakeImages();
        }
    }
    GiveImagesBack();
    mTable.TearDownResource(&mTable);
}

/// Takes what all requests are fed with. All raw inputs have one buffer manager: in dual RDI sets
/// share buffers.
void Camera::TakeImages() {
    for (void*& raw : Raws()) {
        raw = mTable.GetImageBuffer(&mTable, mRaw.data());
    }
    for (void*& yuv : mWrapper.yuvBufferHandles) {
        yuv = mTable.GetImageBuffer(&mTable, &mYuv);
    }
    for (Request& request : mRequests) {
        request.pBufferManager = StandinControl()->ManagerOf(mWrapper.pRDIBufferHandles[0]);
        request.pSecondRawBufferManager = request.pBufferManager;
        request.pYuvBufferManager = StandinControl()->ManagerOf(mWrapper.yuvBufferHandles[0]);
    }
}

void Camera::GiveImagesBack() {
    GiveBackAll(&PlatFormIntCallbacks::ReleaseImageBuffer, Raws());
    GiveBackAll(&PlatFormIntCallbacks::ReleaseImageBuffer, mWrapper.yuvBufferHandles);
}

/// Sends a burst, on two threads where the camera has them, and waits for its completion.
void Camera::SendBurst(uint32_t count) {
    mNext = 0;
    mCount = count;
    mUsed = 0;
    const auto send = [this] { SendAll(); };
    std::thread second = mId % 2 == 1 ? std::thread(send) : std::thread();
    send();
    if (second.joinable()) {
        second.join();
    }
    std::unique_lock lock(mMutex);
    mReturned.wait_for(lock, kPatience, [this] { return mInFlight == 0; });
    for (Request& request : mRequests) {
        if (std::exchange(request.isInFlight, false)) {
            Complain(request, "accepted and never completed");
            --mInFlight;
        }
    }
    mFirstFrame += count;
    mTally.sessions += static_cast<uint64_t>(std::popcount(mUsed.load()));
    ++mTally.bursts;
}

/// Ends the run where requests seem to be lost.
void Camera::SendAll() {
    for (uint32_t index = mNext++; index < mCount && !mTally.isOver; index = mNext++) {
        std::unique_lock lock(mMutex);
        if (!mReturned.wait_for(lock, kPatience, [this] { return mInFlight < kInFlight; })) {
            mTally.isOver = true;
            return;
        }
        ++mInFlight;
        lock.unlock();
        Send(index);
    }
}

// --- A request ----------------------------------------------------------------------------------

/// Makes the request's record anew: it is the library's from the submission to the completion.
void Camera::Prepare(Request& request, const OfflineDataWraper& wrapper, std::string_view inputs) {
    request.name = std::to_string(mId) + "/" + std::to_string(wrapper.rtFrameNumber);
    request.frame = wrapper.rtFrameNumber;
    request.isInFlight = true;
    request.inputStreams.clear();
    size_t raws = 0;
    for (const char input : inputs) {
        request.inputStreams.push_back(input == 'Y' ? &mYuv : &mRaw.at(raws++));
    }
    request.numInputBuffers = wrapper.numBuffers * static_cast<uint32_t>(inputs.size());
    request.metadata.clear();
    CreateSetMetadata(request.metadata, wrapper.numBuffers);
}

/// From the submission on the request is the vendor's threads'.
void Camera::Send(uint32_t index) {
    Request& request = mRequests[index];
    const uint32_t identity = index % kIdentities;
    const Recipe& recipe = RecipeOf(mRound.isMixed, identity);
    OfflineDataWraper wrapper = mWrapper;
    wrapper.rtFrameNumber = mFirstFrame + index;
    wrapper.numBuffers = 1 + wrapper.rtFrameNumber / kIdentities % recipe.maxSets;
    wrapper.identity.pOutStream = &mOutputs[identity % kStreams];
    wrapper.identity.featureName = kFeatureNames[identity / kStreams];
    wrapper.dualRdi = recipe.Raws() == 2 ? 1 : 0;
    wrapper.yuvInput = recipe.inputs.find('Y') == std::string_view::npos ? 0 : 1;
    Prepare(request, wrapper, recipe.inputs);
    std::copy(request.metadata.begin(), request.metadata.end(), wrapper.pChiMetadataHandles);
    BeSlow(wrapper.rtFrameNumber, 0);
    camera3_stream_buffer output =
        StreamBuffer(wrapper.identity.pOutStream, mRound.lends ? nullptr : &request.output);
    mUsed |= 1U << identity;
    const uint32_t status =
        mTable.SubmitRequestFromRT(&mTable, &wrapper, &request, &output, &mCallbacks);
    if (status == 0) {
        ++mTally.accepted;
        mTally.formatsLeft += recipe.FormatsLeft(wrapper.numBuffers);
    } else {
        mTally.isOver = true; // Before another one is refused.
        Complain(request, "refused with status " + std::to_string(status));
        End(request);
    }
}

/// Takes back what the request was lent. It is in flight until the next one, where that is sent
/// from here, is submitted.
void Camera::End(Request& request) {
    GiveBackAll(&PlatFormIntCallbacks::MetadataDestroy, request.metadata);
    std::unique_lock lock(mMutex);
    if (!std::exchange(request.isInFlight, false)) {
        return; // It was completed twice, which the contract reports.
    }
    const bool mayChain = request.frame % kChainedEvery == 0 && !mTally.isOver;
    const uint32_t next = mayChain ? mNext++ : mCount;
    if (next < mCount) {
        ++mInFlight;
        lock.unlock();
        Send(next);
        lock.lock();
    }
    --mInFlight;
    mReturned.notify_all();
}

// --- What comes back, on the vendor's threads ---------------------------------------------------

void Camera::OnResult(Request& request, const camera3_capture_result& result) {
    BeSlow(request.frame, 1);
    if (result.result != nullptr) {
        mTable.ReleaseAndroidMetadata(&mTable, const_cast<camera_metadata*>(result.result));
    }
}

void Camera::OnRelease(Request& request) {
    BeSlow(request.frame, 2);
    ++mTally.released;
}

void Camera::OnCompletion(Request& request, uint32_t status) {
    if (status != (mRound.shape == Shape::ErrorBuffer ? 1 : 0)) {
        Complain(request, "completed with status " + std::to_string(status));
    }
    BeSlow(request.frame, 3);
    ++mTally.completed;
    mTally.failed += status;
    End(request);
}

/// All requests of a stream get its one buffer.
buffer_handle_t* Camera::Lend(const camera3_stream* stream) {
    return &mLent.at(static_cast<size_t>(stream - mOutputs.data()));
}

} // namespace soak
