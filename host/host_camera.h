/// A camera of the host, which is driven through the callback table alone, and its requests.
#pragma once

#include "host/picture.h"
#include "host/scenario.h"
#include "kit/camera.h"
#include "kit/stream.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

namespace host {

class Camera;
using Clock = std::chrono::steady_clock;
inline constexpr std::chrono::milliseconds kGlance{50}; ///< Between two looks at what is no event.

/// What the host lends to the library, and what comes back. Starts with the record that the library
/// gets, so that callbacks find their request. The host's thread has it until it is submitted, then
/// the vendor's threads until the completion.
struct Request : OemLayer::RequestPrivData {
    // cppcheck-suppress uninitDerivedMemberVar ; the braces make all of it zero
    Request(Camera& owner, const CameraPlan& plan, uint32_t number, uint32_t frame)
        : RequestPrivData{}, camera(owner), index(number), output(plan.width, plan.height) {
        rtFrameNumber = frame;
    }

    Camera& camera;
    const uint32_t index; ///< Among the camera's requests.
    std::string feature;
    std::vector<Exposure> frames; ///< That the vendor merges.
    kit::OutputBuffer output;
    std::vector<void*> rawBuffers;
    std::vector<void*> yuvBuffers;
    std::vector<void*> metadata;

    std::string problem;                ///< Why it was not submitted; empty if it was.
    std::optional<uint32_t> status;     ///< Of the submission, once it returned.
    std::optional<uint32_t> completion; ///< Its status, once the request is completed.
    std::atomic<bool> isLost = false;   ///< Its session was closed before its completion. Where the
                                        ///< vendor did not close it, it may go on with this.
    std::optional<Judgement> judgement; ///< Of its picture.
};

/// A camera of the host, and the framework's side of it. Its own callbacks run on the vendor's
/// threads. The members that work on requests may be called from several threads.
class Camera : public kit::HostCamera<Camera, Request> {
  public:
    /// All that is given must outlive the camera.
    Camera(const kit::Adapter& library, const CameraPlan& plan, const Scenario& scenario,
           const Scene& scene);

    const CameraPlan& Plan() const { return mPlan; }
    const Scene& Sees() const { return mScene; }

    /// Takes the next request's buffers and exposes its frames. Null when there are no more.
    Request* Prepare();

    /// Waits until fewer than `limit` requests are in flight, and counts one more as such. \returns
    /// false, without that, where `isOver` says so first.
    bool TakeRoom(uint32_t limit, const std::function<bool()>& isOver);

    /// Hands a prepared request, for which there is room, to the library. A flush that is due comes
    /// first.
    void Send(Request& request);

    /// Instead of sending a prepared request.
    void Drop(Request& request, const std::string& why);

    /// Waits until the vendor works on no more than `limit` requests, or `isOver`.
    void WaitForVendor(uint32_t limit, const std::function<bool()>& isOver);

    /// Ends the camera. Requests that were not completed never will be.
    void Close();

    uint32_t CountCompleted() const { return mCompleted; }

    /// In the order of their numbers. For when no thread works on them.
    const std::vector<std::unique_ptr<Request>>& Requests() const { return mRequests; }

    // For the base.
    void OnRelease(Request& request);
    void OnCompletion(Request& request, uint32_t status);
    void OnResult(Request& request, const camera3_capture_result& result);
    buffer_handle_t* Lend(const camera3_stream* stream);

  private:
    bool TakeBuffers(Request& request);
    void* TakeFrame(Request& request, uint32_t input, uint32_t shot, uint32_t count,
                    uint32_t weight);
    uint32_t Submit(Request& request);
    void Flush();
    void GiveBack(Request& request);
    void GiveBackBuffers(Request& request);
    void EndInFlight(Request& request, std::optional<uint32_t> completion);

    const CameraPlan& mPlan;
    const Scenario& mScenario;
    const Scene& mScene;
    std::vector<camera3_stream> mInputStreams; ///< Outputs of the real-time session.
    camera3_stream mOutputStream{};

    std::mutex mMutex; ///< Guards the list, its requests' ends, and the numbers.
    std::condition_variable mChanged;
    std::vector<std::unique_ptr<Request>> mRequests;
    uint32_t mInFlight = 0;              ///< With those that have room and are not sent yet.
    std::atomic<uint32_t> mInVendor = 0; ///< Without them. What lowers it holds the mutex.
    std::atomic<uint32_t> mCompleted = 0;
    std::atomic<Request*> mLast = nullptr; ///< The one that was submitted last.
    std::mutex mBufferMutex;               ///< The library takes one thread at a time for buffers.
    std::atomic<bool> mWasFlushed = false; ///< As the plan wants it.
    std::shared_mutex mFlushMutex;         ///< Shared by submissions, which a flush excludes.
};

} // namespace host
