/// The order and the pace of a replay: whose turn it is.
#pragma once

#include "replay/calls.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace replay {

using Clock = std::chrono::steady_clock;

/// Keeps threads in the order of a recording's events, as far as it can. What is done on purpose,
/// a call into the adapter or an answer to it, waits for all that came before; but not forever,
/// since the adapter's locks may order threads otherwise. What must not happen together, such as
/// the end of a camera and anything else, is waited for as long as it takes. Any thread may call.
class Turns {
  public:
    /// \param isPaced events are not earlier than they were in the recording, either.
    Turns(const std::vector<Event>& events, bool isPaced);

    /// Before the threads start: the call, and all below it, will happen.
    void Expect(const Call& call);
    /// Whatever of it has not happened never will.
    void Skip(const Call& call);

    /// Waits for the event's turn, and begins what makes it happen. Its thread has ended what it
    /// began before.
    /// \param needed another one that it cannot do without; null for none.
    void Begin(const Event& event, const Event* needed = nullptr);
    /// It has happened, and so has what its thread began before.
    void End(const Event& event);

    /// Waits until `count` threads have called `Leave`. \returns false where nothing happened for
    /// as long as `patience`.
    bool WaitForAll(size_t count, std::chrono::milliseconds patience);
    void Leave();

  private:
    enum class State : uint8_t { Waits, Begun, Done };

    Clock::duration PatienceFor(const Event& event) const;
    State& Of(uint64_t number) { return mStates[number - mFirst]; }
    bool IsAlone(uint64_t number) const {
        return number < mFirst + mAlone.size() && mAlone[number - mFirst];
    }
    void Mark(uint64_t number, State state);
    void EndBegun();

    const bool mIsPaced;
    const uint64_t mFirst;
    const uint64_t mFirstTime;
    const Clock::time_point mStart = Clock::now();
    std::mutex mMutex; ///< Guards all that follows.
    std::vector<State> mStates;
    std::vector<bool> mAlone; ///< Events of calls that do not stand others beside them.
    uint64_t mUndone;         ///< The number of the first event that is not done,
    uint64_t mUnbegun;        ///< or not even begun.
    Clock::time_point mProgress = mStart;
    std::map<uint64_t, std::condition_variable*> mWaiting; ///< By what they wait to begin.
    size_t mLeft = 0;
    std::condition_variable mAllLeft;
};

} // namespace replay
