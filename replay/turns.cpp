/// Waits, and what ends them.
#include "replay/turns.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace replay {
namespace {

// What a thread has begun is recorded a moment later; whoever comes next leaves it that.
constexpr std::chrono::milliseconds kMoment{1};
// How long a turn is kept for somebody who may be waiting for a lock.
constexpr std::chrono::milliseconds kPatience{25};

thread_local uint64_t t_begun = 0; // The event that this thread has begun and not ended.

} // namespace

Turns::Turns(const std::vector<Event>& events, bool isPaced)
    : mIsPaced(isPaced), mFirst(events.front().Number()), mFirstTime(events.front().Time()),
      mStates(events.size(), State::Done), mUndone(mFirst + events.size()), mUnbegun(mUndone) {}

void Turns::Expect(const Call& call) {
    const std::lock_guard lock(mMutex);
    ForEach(call, [this](const Call& each) {
        mUndone = mUnbegun = std::min(mUndone, each.Number());
        Of(each.Number()) = State::Waits;
        if (each.end.has_value()) {
            Of(each.end->Number()) = State::Waits;
        }
    });
}

void Turns::Skip(const Call& call) {
    const std::lock_guard lock(mMutex);
    EndBegun();
    ForEach(call, [this](const Call& each) {
        Mark(each.Number(), State::Done);
        if (each.end.has_value()) {
            Mark(each.end->Number(), State::Done);
        }
    });
}

/// Whether an event may be begun now, and if not, when to look again.
bool Turns::MayBegin(uint64_t number, Clock::time_point& look) const {
    look = mProgress + (mUnbegun >= number ? kMoment : kPatience);
    return mUndone >= number || Clock::now() >= look;
}

void Turns::Begin(const Event& event) {
    const uint64_t number = event.Number();
    std::unique_lock lock(mMutex);
    EndBegun();
    if (mIsPaced) {
        const auto due = mStart + std::chrono::nanoseconds(event.Time() - mFirstTime);
        mProgress = std::max(mProgress, due); // Until then, nothing is late.
        lock.unlock();
        std::this_thread::sleep_until(due);
        lock.lock();
    }
    std::condition_variable turn;
    mWaiting.emplace(number, &turn);
    for (Clock::time_point look; !MayBegin(number, look);) {
        turn.wait_until(lock, look);
    }
    mWaiting.erase(number);
    Mark(number, State::Begun);
    t_begun = number;
}

void Turns::End(const Event& event) {
    const std::lock_guard lock(mMutex);
    EndBegun();
    Mark(event.Number(), State::Done);
}

void Turns::EndBegun() {
    if (t_begun != 0) {
        Mark(std::exchange(t_begun, 0), State::Done);
    }
}

void Turns::Mark(uint64_t number, State state) {
    if (Of(number) >= state) {
        return;
    }
    Of(number) = state;
    mProgress = std::max(mProgress, Clock::now());
    const uint64_t last = mFirst + mStates.size();
    for (; mUndone < last && Of(mUndone) == State::Done; ++mUndone) {
    }
    for (mUnbegun = std::max(mUnbegun, mUndone); mUnbegun < last && Of(mUnbegun) != State::Waits;
         ++mUnbegun) {
    }
    if (!mWaiting.empty() && mWaiting.begin()->first <= mUnbegun) {
        mWaiting.begin()->second->notify_one();
    }
}

bool Turns::WaitForAll(size_t count, std::chrono::milliseconds patience) {
    std::unique_lock lock(mMutex);
    while (mLeft < count && Clock::now() < mProgress + patience) {
        mAllLeft.wait_until(lock, mProgress + patience);
    }
    return mLeft >= count;
}

void Turns::Leave() {
    const std::lock_guard lock(mMutex);
    EndBegun();
    ++mLeft;
    mAllLeft.notify_all();
}

} // namespace replay
