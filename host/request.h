/// One request of the host: what it lends to the library, and what comes back.
#pragma once

#include "adapterlayer/oemlayer_host.h"
#include "host/picture.h"
#include "host/scenario.h"
#include "host/watch.h"
#include "kit/stream.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace host {

class Camera;
using Clock = std::chrono::steady_clock;

/// When what happened to a request.
struct Moments {
    std::optional<Clock::time_point> submitted, returned, metadata, buffer, released, completed;
};

/// Starts with the record that the library gets, so that callbacks find their request. It is the
/// host's thread's until it is submitted, then the vendor's threads' until the completion.
struct Request : OemLayer::RequestPrivData {
    // cppcheck-suppress uninitDerivedMemberVar ; the braces make all of it zero
    Request(Camera& owner, const CameraPlan& plan, uint32_t number, uint32_t frame)
        : RequestPrivData{}, camera(owner), index(number), output(plan.width, plan.height),
          watch("camera " + std::to_string(plan.id) + ", frame " + std::to_string(frame)) {
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
    RequestWatch watch;

    /// Notes the time of an event, once.
    void Note(std::optional<Clock::time_point> Moments::*event) {
        const auto now = Clock::now();
        const std::lock_guard lock(mMutex);
        if (!(mMoments.*event).has_value()) {
            mMoments.*event = now;
        }
    }
    Moments When() const {
        const std::lock_guard lock(mMutex);
        return mMoments;
    }

    std::string problem;                ///< Why it was not submitted; empty if it was.
    std::optional<uint32_t> status;     ///< Of the submission, once it returned.
    std::optional<uint32_t> completion; ///< Its status, once the request is completed.
    std::atomic<bool> isLost = false;   ///< Its session was closed before its completion. Where the
                                        ///< vendor did not close it, it may go on with this.
    std::optional<Judgement> judgement; ///< Of its picture.

  private:
    mutable std::mutex mMutex;
    Moments mMoments;
};

} // namespace host
