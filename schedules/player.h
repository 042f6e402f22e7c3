/// Makes one order happen: plays the host and the vendor around the library, and looks at what the
/// host is told.
#pragma once

#include "kit/camera.h"
#include "kit/stream.h"
#include "schedules/plan.h"
#include "schedules/vendor_thread.h"

#include <array>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace schedules {

class Player;

/// Starts with the record that the library gets, so that callbacks find their request.
struct Request : OemLayer::RequestPrivData {
    // cppcheck-suppress uninitDerivedMemberVar ; the braces make all of it zero
    explicit Request(Player& owner) : RequestPrivData{}, camera(owner) {}

    Player& camera;
    uint32_t index = 0;
    std::vector<void*> metadata; ///< Of its one input set.
    buffer_handle_t output = nullptr;
    size_t delivered = 0;     ///< Results.
    std::vector<Told> toCome; ///< Of the result that is being delivered, from `told` on.
    size_t told = 0;
    bool isOver = false;
};

/// A player for one process, which lives as long as it. Callbacks come on the thread that plays, or
/// on the vendor's.
class Player : public kit::HostCamera<Player, Request> {
  public:
    struct Settings {
        bool hasVendorThread = false; ///< Who delivers where the host does not submit from within.
        bool tells = false;           ///< Prints each step.
        /// Gets what is wrong, and ends the process: nothing goes on from there.
        std::function<void(const std::string& what)> fail;
    };

    /// Both must outlive the player. The library is loaded.
    Player(const kit::Adapter& library, const Plan& plan, Settings settings);

    /// From a new device to a camera that is gone.
    void Play(const Order& order);

    // For the base.
    void OnResult(Request& request, const camera3_capture_result& result);
    void OnRelease(Request& request);
    void OnCompletion(Request& request, uint32_t status);
    buffer_handle_t* Lend(const camera3_stream* /*stream*/) { return nullptr; }

  private:
    static constexpr uint32_t kId = 0;

    void WarmUp();
    void Begin();
    void End();
    void GoOn();
    void OnVendor(bool isInCall, const std::function<void()>& act);
    void Submit();
    void WhenExecuted(size_t index, const standin::Execution& execution);
    void Deliver(uint32_t index);
    const Told& TakeTold(Request& request, Within callback);
    void CheckMark(const Request& request, const camera_metadata* android);
    void Callback(const Request& request, Within callback, const std::string& with);
    void Tell(const std::string& line) const;
    void Expect(bool holds, const Request& request, const std::string& what) const;
    void ExpectSame(const Request& request, const char* what, uint64_t got, uint64_t must) const;

    const Plan& mPlan;
    const Settings mSettings;
    std::optional<VendorThread> mVendor;
    camera3_stream mRaw;
    std::array<camera3_stream, 2> mOutputs;
    std::deque<Request> mRequests; ///< Of the order.
    uint32_t mSubmitted = 0;
    Order mSteps;
    size_t mNext = 0; ///< Step.
    size_t mDepth = 0;
    std::optional<int64_t> mHeapBlocks; ///< Taken after the last order, or the warm-up.
};

} // namespace schedules
