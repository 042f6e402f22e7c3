/// Waits, and what ends them.
#include "replay/turns.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace replay {
namespace {

// What a thread has begun is recorded a moment later; whoever comes next leaves it that.
constexpr std::chrono::milliseconds kMoment{50};
// How long a turn is kept for somebody who may be waiting for a lock.
constexpr std::chrono::milliseconds kPatience{300};
constexpr std::chrono::milliseconds kLongPatience{2500};
constexpr std::chrono::hours kNever{24};
// What is later than that has a time that no recording has.
constexpr std::chrono::nanoseconds kLatest = std::chrono::hours{24};

thread_local uint64_t t_begun = 0; // The event that this thread has begun and not ended.

bool StandsAlone(Entry entry) {
    return entry == Entry::LoadLib || entry == Entry::Create || entry == Entry::Destroy ||
           entry == Entry::Flush || entry == Entry::TearDownResource;
}

} // namespace

Turns::Turns(const std::vector<Event>& events, bool isPaced)
    : mIsPaced(isPaced), mFirst(events.front().Number()), mFirstTime(events.front().Time()),
      mStates(events.size(), State::Done), mAlone(events.size()), mUndone(mFirst + events.size()),
      mUnbegun(mUndone) {}

void Turns::Expect(const Call& call) {
    const std::lock_guard lock(mMutex);
    const bool isAlone = StandsAlone(call.Of());
    const auto expect = [&](uint64_t number) {
        mUndone = mUnbegun = std::min(mUndone, number);
        Of(number) = State::Waits;
        mAlone[number - mFirst] = isAlone;
    };
    ForEach(call, [&](const Call& each) {
        expect(each.Number());
        if (each.end.has_value()) {
            expect(each.end->Number());
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

/// How long after the last progress an event is begun although others should come first.
Clock::duration Turns::PatienceFor(const Event& event) const {
    if (event.IsCall() && StandsAlone(event.Of())) {
        return kNever;
    }
    if (mUnbegun >= event.Number()) {
        return kMoment;
    }
    return event.IsCall() && IsAlone(mUndone) ? kLongPatience : kPatience;
}

void Turns::Begin(const Event& event, const Event* needed) {
    const uint64_t number = event.Number();
    std::unique_lock lock(mMutex);
    EndBegun();
    const uint64_t since = event.Time() - mFirstTime; // Huge for what is earlier.
    if (mIsPaced && since <= static_cast<uint64_t>(kLatest.count())) {
        const auto due = mStart + std::chrono::nanoseconds(since);
        mProgress = std::max(mProgress, due); // Until then, nothing is late.
        lock.unlock();
        std::this_thread::sleep_until(due);
        lock.lock();
    }
    std::condition_variable turn;
    mWaiting.emplace(number, &turn);
    for (;;) {
        const bool isThere = needed == nullptr || Of(needed->Number()) == State::Done;
        const auto look = mProgress + PatienceFor(event);
        if (isThere && (mUndone >= number || Clock::now() >= look)) {
            break;
        }
        turn.wait_until(lock, isThere ? look : Clock::now() + kPatience);
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
