/// Bursts of requests, and what comes back of them.
#include "soak/camera.h"

#include "kit/stream.h"
#include "standin/tags.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <string_view>
#include <thread>

namespace soak {
namespace {

using OemLayer::kMaxInputSets;
using OemLayer::OfflineDataWraper;
using OemLayer::RequestPrivData;
using standin::Shape;

constexpr uint32_t kBurst = 500;          // Requests between two flushes, at most.
constexpr uint32_t kBurstsOfACamera = 16; // Before it is created anew.
constexpr uint32_t kInFlight = 24;        // Requests of a camera.
constexpr uint32_t kRdiHandles = std::extent_v<decltype(OfflineDataWraper::pRDIBufferHandles)>;
constexpr uint32_t kPartialBase = 2;
constexpr uint32_t kMetadataPartial = kPartialBase + 255;
constexpr uint32_t kSlowEvery = 211; // In frames; a prime, so that all identities have their turn.
constexpr std::chrono::microseconds kSlow{500};
constexpr uint32_t kChainedEvery = 7; // Likewise: of so many completions, one sends a request.
constexpr std::chrono::seconds kPatience{30}; // For the next completion of a camera.
constexpr uint64_t kSessionParameters = 0;    // Opaque to all but the framework.
// The last is longer than a string keeps in itself.
constexpr std::array kFeatureNames{"Night", "Hdr", "AFeatureWithANameThatIsLong"};

/// Small: what is in the pictures is no matter here.
camera3_stream MakeStream(int32_t format) { return kit::MakeStream(format, 16, 8); }

void BeSlow(uint32_t frame, uint32_t turn) {
    if (frame % kSlowEvery == turn) {
        std::this_thread::sleep_for(kSlow);
    }
}

} // namespace

/// What a request is fed with. A camera has no more of them than may be in flight.
struct Camera::Slot {
    std::vector<void*> raws;
    std::vector<void*> yuvs;
};

/// Starts with the record that the library gets, so that callbacks find their request.
struct Camera::Request : RequestPrivData {
    Camera* camera = nullptr;
    std::string name; ///< Its camera's id and its frame number.
    uint32_t frame = 0;
    uint32_t identity = 0;
    uint32_t sets = 0;
    std::vector<void*> metadata; ///< Of the input sets.
    std::optional<host::RequestWatch> watch;
    buffer_handle_t output = nullptr;
    OfflineDataWraper wrapper{}; ///< Not the slot's: its call may return after the completion.
    Slot* slot = nullptr;        ///< While in flight; the camera's mutex guards its end.
};

/// The inputs of an identity's sets, in the order of its streams: R for raw, Y for YUV.
struct Camera::Recipe {
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

const Camera::Recipe& Camera::RecipeOf(uint32_t identity) const {
    static constexpr Recipe kPlain[] = {{"R", 1}, {"RY", 1}, {"Y", 2}};
    static constexpr Recipe kMixed[] = {{"R", 12}, {"RR", 12}, {"RY", 4},
                                        {"YR", 1}, {"RRY", 8}, {"RR", 1}};
    return mRound.isMixed ? kMixed[identity % std::size(kMixed)]
                          : kPlain[identity % std::size(kPlain)];
}

// cppcheck-suppress uninitDerivedMemberVar ; the braces make all of it zero
Camera::Camera(const kit::Adapter& library, uint32_t id, Tally& tally)
    : camera3_callback_ops{}, mId(id), mTally(tally), mTable(library.Table(id)),
      mYuv(MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888)), mRequests(kBurst), mSlots(kInFlight) {
    mRaw.fill(MakeStream(id % 2 == 0 ? HAL_PIXEL_FORMAT_RAW10 : HAL_PIXEL_FORMAT_RAW16));
    mOutputs.fill(MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888));
    for (Slot& slot : mSlots) {
        mFree.push_back(&slot);
    }
    request_stream_buffers = Lend;
    mCallbacks.releaseRtBuffers = [](RequestPrivData* record) {
        auto& request = *static_cast<Request*>(record);
        request.camera->OnRelease(request);
    };
    mCallbacks.requestComplete = [](RequestPrivData* record, uint32_t status) {
        auto& request = *static_cast<Request*>(record);
        request.camera->OnCompletion(request, status);
    };
    mCallbacks.captureResult = [](RequestPrivData* record, camera3_capture_result* result) {
        auto& request = *static_cast<Request*>(record);
        request.camera->OnResult(request, *result);
    };
}

Camera::~Camera() = default;

void Camera::Create() {
    mTable.Create(&mTable, mId);
    ++mTally.creations;
}

void Camera::Destroy() { mTable.Destroy(&mTable); }

// --- Rounds and bursts --------------------------------------------------------------------------

void Camera::Drive(const Round& round, uint64_t requests) {
    mRound = round;
    FillSlots();
    while (requests > 0 && !mTally.isOver) {
        const auto count = static_cast<uint32_t>(std::min<uint64_t>(requests, kBurst));
        requests -= count;
        SendBurst(count);
        mTable.Flush(&mTable);
        if (++mBursts % kBurstsOfACamera == 0) {
            EmptySlots();
            Destroy();
            Create();
            FillSlots();
        }
    }
    EmptySlots();
    mTable.TearDownResource(&mTable);
}

/// Takes what the round's requests are fed with. All raw inputs have one buffer manager: in dual
/// RDI sets share buffers.
void Camera::FillSlots() {
    for (Slot& slot : mSlots) {
        for (uint32_t i = 0; i < (mRound.isMixed ? 2 * kMaxInputSets : 1); ++i) {
            slot.raws.push_back(mTable.GetImageBuffer(&mTable, mRaw.data()));
        }
        for (uint32_t i = 0; i < (mRound.isMixed ? kMaxInputSets : 2); ++i) {
            slot.yuvs.push_back(mTable.GetImageBuffer(&mTable, &mYuv));
        }
    }
    mRawManager = StandinControl()->ManagerOf(mSlots.front().raws.front());
    mYuvManager = StandinControl()->ManagerOf(mSlots.front().yuvs.front());
}

void Camera::EmptySlots() {
    for (Slot& slot : mSlots) {
        for (auto* const buffers : {&slot.raws, &slot.yuvs}) {
            for (void* const buffer : *buffers) {
                mTable.ReleaseImageBuffer(&mTable, buffer);
            }
            buffers->clear();
        }
    }
}

/// Sends a burst, on two threads where the camera has them, and waits for its completion.
void Camera::SendBurst(uint32_t count) {
    mNext = 0;
    mCount = count;
    mUsed = 0;
    std::thread second;
    if (mId % 2 == 1) {
        second = std::thread([this] { SendAll(); });
    }
    SendAll();
    if (second.joinable()) {
        second.join();
    }
    WaitUntilIdle();
    mFirstFrame += count;
    mTally.sessions += static_cast<uint64_t>(std::popcount(mUsed.load()));
    ++mTally.bursts;
}

void Camera::SendAll() {
    for (uint32_t index = mNext++; index < mCount && !mTally.isOver; index = mNext++) {
        Slot* const slot = TakeSlot();
        if (slot == nullptr) {
            return;
        }
        Send(index, *slot);
    }
}

/// Waits for a slot. \returns null, and ends the run, where requests seem to be lost.
Camera::Slot* Camera::TakeSlot() {
    std::unique_lock lock(mMutex);
    if (!mReturned.wait_for(lock, kPatience, [this] { return !mFree.empty(); })) {
        mTally.isOver = true;
        return nullptr;
    }
    Slot* const slot = mFree.back();
    mFree.pop_back();
    return slot;
}

void Camera::WaitUntilIdle() {
    const auto left = [this] { return mSlots.size() - mFree.size() + mChained; };
    std::unique_lock lock(mMutex);
    size_t last = left();
    while (last > 0 && mReturned.wait_for(lock, kPatience, [&] { return left() < last; })) {
        last = left();
    }
    for (Request& request : mRequests) {
        if (request.slot != nullptr) {
            Complain(request, "accepted and never completed");
            mFree.push_back(std::exchange(request.slot, nullptr));
        }
    }
}

/// For the end of the run, as violations of the contract.
void Camera::Complain(const Request& request, const std::string& what) {
    StandinControl()->Report(standin::Rule::Completion, request.name + ": " + what);
}

// --- A request ----------------------------------------------------------------------------------

/// Makes the request's record anew: it is the library's from the submission to the completion.
void Camera::Prepare(Request& request, uint32_t index, Slot& slot) {
    request.camera = this;
    request.slot = &slot;
    request.frame = mFirstFrame + index;
    request.identity = index % kIdentities;
    request.name = std::to_string(mId) + "/" + std::to_string(request.frame);
    const Recipe& recipe = RecipeOf(request.identity);
    request.sets = 1 + request.frame / kIdentities % recipe.maxSets;
    request.pBufferManager = mRawManager;
    request.pSecondRawBufferManager = mRawManager;
    request.pYuvBufferManager = mYuvManager;
    request.inputStreams.clear();
    for (const char input : recipe.inputs) {
        const bool isSecond = !request.inputStreams.empty() && input == 'R' &&
                              request.inputStreams.front() == mRaw.data();
        request.inputStreams.push_back(input == 'Y' ? &mYuv : &mRaw[isSecond ? 1 : 0]);
    }
    request.numInputBuffers = request.sets * static_cast<uint32_t>(recipe.inputs.size());
    request.partialResultBase = kPartialBase;
    for (uint32_t i = 0; i < request.sets; ++i) {
        request.metadata.push_back(mTable.CreateWithUsage(&mTable, nullptr, 0, 0));
        const standin::SetMark mark{mId, i};
        mTable.SetTag(&mTable, request.metadata.back(), standin::kSetMarkTag, &mark, sizeof mark,
                      0);
    }
    const uint32_t stream = request.identity % kStreams;
    request.watch.emplace(request.name);
    request.watch->Expect({.frameNumber = request.frame,
                           .partialNumber = kMetadataPartial,
                           .reports = mRound.shape == Shape::SecondBlock ? 2U : 1U,
                           .stream = &mOutputs[stream],
                           .buffer = mRound.lends ? &mLent[stream] : &request.output});
}

void Camera::FillWrapper(Request& request, const Recipe& recipe) {
    OfflineDataWraper& wrapper = request.wrapper;
    wrapper.rtFrameNumber = request.frame;
    wrapper.numBuffers = request.sets;
    wrapper.identity.pOutStream = &mOutputs[request.identity % kStreams];
    wrapper.identity.cameraId = mId;
    wrapper.identity.featureName = kFeatureNames[request.identity / kStreams];
    wrapper.pCamera3CbOps = this;
    wrapper.m_pRealtimeSessionParameters =
        reinterpret_cast<const camera_metadata*>(&kSessionParameters);
    std::copy(request.metadata.begin(), request.metadata.end(), wrapper.pChiMetadataHandles);
    const auto& [raws, yuvs] = *request.slot;
    std::copy(yuvs.begin(), yuvs.end(), wrapper.yuvBufferHandles);
    for (uint32_t i = 0; i < raws.size(); ++i) {
        (i < kRdiHandles ? wrapper.pRDIBufferHandles[i]
                         : wrapper.pRDIBufferStream[i - kRdiHandles]) = raws[i];
    }
    wrapper.dualRdi = recipe.Raws() == 2 ? 1 : 0;
    wrapper.yuvInput = recipe.inputs.find('Y') == std::string_view::npos ? 0 : 1;
}

/// From the submission on the request is the vendor's threads'.
void Camera::Send(uint32_t index, Slot& slot) {
    Request& request = mRequests[index];
    Prepare(request, index, slot);
    const Recipe& recipe = RecipeOf(request.identity);
    FillWrapper(request, recipe);
    BeSlow(request.frame, 0);
    camera3_stream_buffer output{.stream = request.wrapper.identity.pOutStream,
                                 .buffer = mRound.lends ? nullptr : &request.output,
                                 .acquire_fence = -1,
                                 .release_fence = -1};
    mUsed |= 1U << request.identity;
    const uint32_t status =
        mTable.SubmitRequestFromRT(&mTable, &request.wrapper, &request, &output, &mCallbacks);
    request.watch->OnSubmitted(status);
    if (status == 0) {
        ++mTally.accepted;
        mTally.formatsLeft += recipe.FormatsLeft(request.sets);
    } else {
        mTally.isOver = true; // Before another one is refused.
        Complain(request, "refused with status " + std::to_string(status));
        End(request);
    }
}

/// Takes back what the request was lent. Its slot is then free, or the next request's where one is
/// sent from here.
void Camera::End(Request& request) {
    for (void* const metadata : request.metadata) {
        mTable.MetadataDestroy(&mTable, metadata);
    }
    request.metadata.clear();
    std::unique_lock lock(mMutex);
    Slot* const slot = std::exchange(request.slot, nullptr);
    if (slot == nullptr) {
        return; // It was completed twice, which its watch reports.
    }
    const bool mayChain = request.frame % kChainedEvery == 0 && !mTally.isOver;
    const uint32_t next = mayChain ? mNext++ : mCount;
    if (next < mCount) {
        ++mChained;
        lock.unlock();
        Send(next, *slot);
        lock.lock();
        --mChained;
    } else {
        mFree.push_back(slot);
    }
    mReturned.notify_all();
}

// --- What comes back, on the vendor's threads ---------------------------------------------------

void Camera::OnResult(Request& request, const camera3_capture_result& result) {
    request.watch->OnResult(result);
    BeSlow(request.frame, 1);
    if (result.result != nullptr) {
        mTable.ReleaseAndroidMetadata(&mTable, const_cast<camera_metadata*>(result.result));
    }
}

void Camera::OnRelease(Request& request) {
    request.watch->OnRelease();
    BeSlow(request.frame, 2);
    ++mTally.released;
}

void Camera::OnCompletion(Request& request, uint32_t status) {
    request.watch->OnCompletion(status);
    if (status != (mRound.shape == Shape::ErrorBuffer ? 1 : 0)) {
        Complain(request, "completed with status " + std::to_string(status));
    }
    BeSlow(request.frame, 3);
    ++mTally.completed;
    mTally.failed += status;
    End(request);
}

/// All requests of a stream get its one buffer.
int32_t Camera::Lend(const camera3_callback_ops* ops, uint32_t count,
                     const camera3_buffer_request* requests, uint32_t* returned,
                     camera3_stream_buffer_ret* answers) {
    auto& camera = *const_cast<Camera*>(static_cast<const Camera*>(ops));
    for (uint32_t i = 0; i < count; ++i) {
        const auto stream = requests[i].stream - camera.mOutputs.data();
        answers[i].status = 0;
        answers[i].num_output_buffers = 1;
        *answers[i].output_buffers = {.stream = requests[i].stream,
                                      .buffer = &camera.mLent.at(static_cast<size_t>(stream)),
                                      .acquire_fence = -1,
                                      .release_fence = -1};
    }
    *returned = count;
    return 0;
}

} // namespace soak
