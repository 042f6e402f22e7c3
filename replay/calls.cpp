/// Puts calls and returns together, and finds what later calls refer to.
#include "replay/calls.h"

#include "contract/engine.h"

#include <algorithm>

namespace replay {

bool LacksBeginning(const std::vector<Event>& events) {
    return std::none_of(events.begin(), events.end(),
                        [](const Event& event) { return event.IsCall(Entry::LoadLib); });
}

bool Call::HasCamera() const {
    const auto arguments = call.Text().arguments;
    return IsOutside() && Of() != Entry::ProcRequest && !arguments.empty() &&
           std::string_view(arguments[0].name) == "cameraId";
}

struct Calls::Open {
    uint32_t lane;
    std::vector<Call*> stack;
};

Calls::Calls(const std::vector<Event>& events) {
    std::map<uint32_t, Open> threads;
    for (const Event& event : events) {
        const auto [found, isNew] = threads.try_emplace(event.Thread());
        Open& open = found->second;
        if (isNew) {
            open.lane = static_cast<uint32_t>(mLanes.size());
            mLanes.push_back({event.Thread(), {}});
        }
        if (event.Of() == Entry::Pixels) {
            if (event.IsCall() && !open.stack.empty()) {
                open.stack.back()->pixels.push_back(event);
            }
        } else if (event.IsCall()) {
            Begin(event, open);
        } else {
            End(event, open.stack);
        }
    }
}

/// What the adapter calls outside of any call is what is left of one whose beginning is lost.
void Calls::Begin(const Event& event, Open& open) {
    Call* const outer = open.stack.empty() ? nullptr : open.stack.back();
    const bool isOutside = event.Text().caller == contract::Caller::Outside;
    if (outer == nullptr ? !isOutside : outer->IsOutside() == isOutside) {
        return;
    }
    if (open.stack.size() == contract::kMostOpenCalls) {
        throw contract::RecordingError(
            "event " + std::to_string(event.Number()) + ": more than " +
            std::to_string(contract::kMostOpenCalls) +
            " calls are open in its thread, and no replay goes that deep");
    }
    Call& call = mAll.emplace_back();
    call.call = event;
    call.lane = open.lane;
    Link(call);
    (outer == nullptr ? mLanes[open.lane].calls : outer->inner).push_back(&call);
    open.stack.push_back(&call);
}

/// Calls whose return is missing end with the one around them.
void Calls::End(const Event& event, std::vector<Call*>& stack) {
    const auto found = std::find_if(stack.rbegin(), stack.rend(), [&](const Call* call) {
        return call->Number() == event.Header().call;
    });
    if (found != stack.rend()) {
        (*found)->end = event;
        stack.erase(found.base() - 1, stack.end());
    }
}

/// Addresses are given out again: what a call refers to is what had the address last.
void Calls::Link(Call& call) {
    const auto find = [](const auto& calls, uint64_t address) {
        const auto found = calls.find(address);
        return found == calls.end() ? nullptr : found->second;
    };
    if (call.Of() == Entry::OpenSession) {
        if (const auto* info = call.call.At<ChiOfflineSessionCreateInfo>(call.Word(1))) {
            mOpenings[contract::WordOf(info->pCallbacks)] = &call;
        }
    } else if (call.Of() == Entry::ExecuteRequest) {
        if (const auto* request = call.call.At<ChiOfflineExecuteRequest>(call.Word(1))) {
            mExecutions[contract::WordOf(request->pPrivateData)] = &call;
        }
    } else if (call.IsOutside() && call.call.Text().side == contract::Side::Vendor) {
        call.opening = find(mOpenings, call.Word(0));
        if (const auto* result = call.call.At<ChiOfflineCaptureResultInfo>(call.Word(2))) {
            call.execution = find(mExecutions, contract::WordOf(result->pPrivateData));
        }
    }
}

std::span<Call* const> Preparation(const Call& outside, const Call& opening) {
    const auto first = std::find(outside.inner.begin(), outside.inner.end(), &opening);
    const auto last = std::find_if(first + 1, outside.inner.end(), [](const Call* call) {
        return IsOwnPart(call->Of()) || FindKept(call->Of(), &Kept::open) != nullptr;
    });
    return {first, last};
}

} // namespace replay
