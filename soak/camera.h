/// A camera of the endurance run, with the threads that submit to it.
#pragma once

#include "kit/camera.h"
#include "standin/control.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace soak {

/// What the requests of a round have in common. A round ends with all cameras idle.
struct Round {
    bool isMixed = false; ///< Several input sets, two raw inputs; else one raw input at most.
    standin::Shape shape = standin::Shape::MetadataFirst;
    standin::Order order = standin::Order::InOrder;
    bool lends = false;  ///< The framework is asked for each output buffer.
    bool isLate = false; ///< The vendor takes its time over each request.
};

/// What the cameras did.
struct Tally {
    std::atomic<uint64_t> accepted = 0;
    std::atomic<uint64_t> released = 0;
    std::atomic<uint64_t> completed = 0;
    std::atomic<uint64_t> failed = 0;   ///< Completions with a failure, as they were to be.
    std::atomic<uint64_t> sessions = 0; ///< Identities that had a request, for each burst.
    std::atomic<uint64_t> bursts = 0;
    std::atomic<uint64_t> creations = 0;
    std::atomic<int64_t> formatsLeft = 0; ///< Format records that accepted requests leave.
    std::atomic<bool> isOver = false;     ///< Nothing is submitted any more.
};

class Camera;

/// Starts with the record that the library gets, so that callbacks find their request.
struct Request : OemLayer::RequestPrivData {
    // cppcheck-suppress uninitDerivedMemberVar ; the braces make all of it zero
    explicit Request(Camera& owner) : RequestPrivData{}, camera(owner) {}

    Camera& camera;
    std::string name; ///< Its camera's id and its frame number.
    uint32_t frame = 0;
    std::vector<void*> metadata; ///< Of the input sets.
    buffer_handle_t output = nullptr;
    bool isInFlight = false; ///< The camera's mutex guards its end.
};

/// The camera layer's side of a camera. Two threads submit for every other camera, and some
/// requests are submitted from within the completion of another one. One in some hundreds of the
/// callbacks takes its time, and so does a submission.
class Camera : public kit::HostCamera<Camera, Request> {
  public:
    /// Both must outlive the camera. Makes no camera in the library yet.
    Camera(const kit::Adapter& library, uint32_t id, Tally& tally);

    void Create();
    void Destroy() { mTable.Destroy(&mTable); }

    /// Sends bursts of requests until there were so many, or the run is over, and flushes after
    /// each. Now and then the camera is destroyed and created again. Leaves it idle, without
    /// sessions and buffer managers.
    void Drive(const Round& round, uint64_t requests);

    // For the base.
    void OnResult(Request& request, const camera3_capture_result& result);
    void OnRelease(Request& request);
    void OnCompletion(Request& request, uint32_t status);
    buffer_handle_t* Lend(const camera3_stream* stream);

  private:
    static constexpr uint32_t kStreams = 2;
    static constexpr uint32_t kFeatures = 3;
    static constexpr uint32_t kIdentities = kStreams * kFeatures;

    std::span<void*> Raws() { return {mWrapper.pRDIBufferHandles, OemLayer::kMaxInputBuffers}; }
    void TakeImages();
    void GiveImagesBack();
    void SendBurst(uint32_t count);
    void SendAll();
    void Prepare(Request& request, const OemLayer::OfflineDataWraper& wrapper,
                 std::string_view inputs);
    void Send(uint32_t index);
    void End(Request& request);

    const uint32_t mId;
    Tally& mTally;
    std::array<camera3_stream, 2> mRaw;
    camera3_stream mYuv;
    std::array<camera3_stream, kStreams> mOutputs;
    std::array<buffer_handle_t, kStreams> mLent{}; ///< Without memory, as all outputs here.

    Round mRound; ///< As all below, written only while the camera is idle.
    uint32_t mBursts = 0;
    uint32_t mFirstFrame = 1;        ///< Of the burst.
    std::atomic<uint32_t> mNext = 0; ///< Request of the burst.
    uint32_t mCount = 0;             ///< Of the burst.
    std::atomic<uint32_t> mUsed = 0; ///< Identities of the burst, as bits.
    std::deque<Request> mRequests;   ///< Of the burst, so that none stands for two in it.

    std::mutex mMutex; ///< Guards who is in flight.
    std::condition_variable mReturned;
    uint32_t mInFlight = 0; ///< With submissions under way from within completions.
};

} // namespace soak
