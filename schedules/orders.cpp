/// Walks through the tree of steps.
#include "schedules/orders.h"

#include <algorithm>

namespace schedules {
namespace {

constexpr uint16_t kExecute = 0;
constexpr uint16_t kOneCallback = 256; ///< The request is below.

uint16_t Callbacks(uint32_t request, uint32_t count) {
    return static_cast<uint16_t>(count * kOneCallback + request);
}

} // namespace

Orders::State Orders::Start() const {
    return {.submitted = mFreedom.duringSubmissions ? 0 : mFreedom.Requests(),
            .delivered = std::vector<uint32_t>(mFreedom.Requests()),
            .open = {}};
}

/// In the order in which they are tried. None where all is done; there is no other end.
std::vector<Step> Orders::Choices(const State& state) const {
    std::vector<Step> choices;
    const bool isHostsTurn = state.open.empty() || state.open.back() != kExecute;
    if (state.submitted < mFreedom.Requests() && isHostsTurn &&
        (state.open.empty() || mFreedom.submitsWithin)) {
        choices.push_back(kSubmit);
    }
    for (uint32_t i = 0; i < state.submitted; ++i) {
        const bool isInside = std::any_of(state.open.begin(), state.open.end(), [i](Open open) {
            return open != kExecute && open % kOneCallback == i;
        });
        if (!isInside && state.delivered[i] < mFreedom.Results(i)) {
            choices.push_back(static_cast<Step>(i));
        }
    }
    if (!state.open.empty()) {
        choices.push_back(kLeave);
    }
    return choices;
}

void Orders::Take(State& state, Step step) const {
    if (step == kSubmit) {
        ++state.submitted;
        state.open.push_back(kExecute);
    } else if (step == kLeave) {
        Open& open = state.open.back();
        if (open >= 2 * kOneCallback) {
            open = static_cast<Open>(open - kOneCallback); // The next callback.
        } else {
            state.open.pop_back();
        }
    } else {
        const uint32_t callbacks = mFreedom.callbacks[step][state.delivered[step]++];
        if (callbacks > 0) {
            state.open.push_back(Callbacks(step, callbacks));
        }
    }
}

/// Goes on with the first choice each time.
void Orders::Complete(State state, Order& order) const {
    for (auto choices = Choices(state); !choices.empty(); choices = Choices(state)) {
        order.push_back(choices.front());
        Take(state, choices.front());
    }
}

Order Orders::First() const {
    Order order;
    Complete(Start(), order);
    return order;
}

bool Orders::Advance(Order& order) const {
    std::vector<State> states{Start()};
    for (const Step step : order) {
        Take(states.emplace_back(states.back()), step);
    }
    for (size_t i = order.size(); i-- > 0;) {
        const auto choices = Choices(states[i]);
        const auto next = std::find(choices.begin(), choices.end(), order[i]) + 1;
        if (next != choices.end()) {
            order.resize(i);
            order.push_back(*next);
            Take(states[i], *next);
            Complete(states[i], order);
            return true;
        }
    }
    return false;
}

// --- Numbers ------------------------------------------------------------------------------------

uint64_t Orders::CountFrom(const State& state) {
    if (const auto known = mCounts.find(state); known != mCounts.end()) {
        return known->second;
    }
    const auto choices = Choices(state);
    uint64_t count = choices.empty() ? 1 : 0;
    for (const Step step : choices) {
        State next = state;
        Take(next, step);
        if (__builtin_add_overflow(count, CountFrom(next), &count)) {
            count = UINT64_MAX;
        }
    }
    return mCounts[state] = count;
}

Order Orders::At(uint64_t number) {
    Order order;
    State state = Start();
    uint64_t before = number - 1; // Orders of those that are still possible.
    for (auto choices = Choices(state); !choices.empty(); choices = Choices(state)) {
        for (const Step step : choices) {
            State next = state;
            Take(next, step);
            const uint64_t count = CountFrom(next);
            if (before < count) {
                order.push_back(step);
                state = std::move(next);
                break;
            }
            before -= count;
        }
    }
    return order;
}

uint64_t Orders::NumberOf(const Order& order) {
    uint64_t number = 1;
    State state = Start();
    for (const Step taken : order) {
        for (const Step step : Choices(state)) {
            State next = state;
            Take(next, step);
            if (step == taken) {
                state = std::move(next);
                break;
            }
            number += CountFrom(next);
        }
    }
    return number;
}

} // namespace schedules
