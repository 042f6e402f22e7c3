/// The rules over events: who has them checked, and when.
#include "contract/engine.h"

#include "contract/hostrules.h"
#include "contract/vendorrules.h"

namespace contract {

struct Engine::State {
    explicit State(const std::function<void(const Violation&)>& report)
        : checks(report), host(checks), vendor(checks, host) {}

    void OnCall(const Event& event);
    void OnReturn(const Event& event);
    void HostCalls(const Event& event, PendingCall& call);
    void HostReturns(const Event& event, const PendingCall& call);
    PendingCall EndCall(const Event& event);
    void NameSubmission(const Calls& outer);

    Checks checks;
    HostRules host;
    VendorRules vendor;
    bool hasBegun = false;
    std::unordered_map<uint32_t, Calls> threads; ///< Those that are in a call.
};

Engine::Engine(std::function<void(const Violation&)> report)
    : mReport(std::move(report)), mState(std::make_unique<State>(mReport)) {}

Engine::~Engine() = default;

void Engine::Take(const Event& event) {
    State& state = *mState;
    if (!std::exchange(state.hasBegun, true)) {
        state.checks.isLate = event.Number() > 1;
    }
    state.checks.Begin(event);
    if (event.Of() == Entry::Pixels) {
        return;
    }
    if (event.IsCall()) {
        state.OnCall(event);
    } else {
        state.OnReturn(event);
    }
}

void Engine::CheckAllReturned() { mState->vendor.CheckAllReturned(); }

void Engine::Reset() {
    // In place, so that who counts blocks of memory sees none come.
    std::destroy_at(mState.get());
    std::construct_at(mState.get(), mReport)->hasBegun = true;
}

void Engine::State::OnCall(const Event& event) {
    Calls& outer = threads[event.Thread()];
    PendingCall call{.entry = event.Of(), .call = event.Number()};
    if (event.Text().side == Side::Host) {
        HostCalls(event, call);
    } else {
        NameSubmission(outer);
        vendor.OnCall(event, call, outer);
    }
    if (outer.size() == kMostOpenCalls) {
        outer.erase(outer.begin());
    }
    outer.push_back(std::move(call));
}

void Engine::State::OnReturn(const Event& event) {
    const PendingCall call = EndCall(event);
    if (event.Text().side == Side::Host) {
        HostReturns(event, call);
    } else {
        if (const auto outer = threads.find(event.Thread()); outer != threads.end()) {
            NameSubmission(outer->second);
        }
        vendor.OnReturn(event, call);
    }
}

/// What the vendor is called for within a submission is of that request.
void Engine::State::NameSubmission(const Calls& outer) {
    for (const PendingCall& each : outer) {
        if (each.entry == Entry::SubmitRequestFromRT) {
            host.Name(each.request);
        }
    }
}

/// Calls that are further in have ended, too, however that was.
PendingCall Engine::State::EndCall(const Event& event) {
    PendingCall ended{.entry = event.Of(), .call = event.Header().call};
    const auto thread = threads.find(event.Thread());
    if (thread == threads.end()) {
        return ended; // Its call was not seen.
    }
    Calls& calls = thread->second;
    const auto isIt = [&](const PendingCall& each) { return each.call == ended.call; };
    const auto found = std::find_if(calls.begin(), calls.end(), isIt);
    if (found != calls.end()) {
        ended = std::move(*found);
        calls.erase(found, calls.end());
    }
    if (calls.empty()) {
        threads.erase(thread);
    }
    return ended;
}

void Engine::State::HostCalls(const Event& event, PendingCall& call) {
    switch (event.Of()) {
    case Entry::Create:
        host.OnCreated(static_cast<uint32_t>(event.Word(0)));
        break;
    case Entry::SubmitRequestFromRT:
        call.request = host.Submit(event);
        break;
    case Entry::CaptureResult:
        host.OnResult(event);
        break;
    case Entry::ReleaseRtBuffers:
        host.OnRelease(event);
        break;
    case Entry::RequestComplete:
        host.OnCompletion(event);
        break;
    default:
        break;
    }
}

void Engine::State::HostReturns(const Event& event, const PendingCall& call) {
    const auto camera = static_cast<uint32_t>(event.Word(0));
    switch (event.Of()) {
    case Entry::SubmitRequestFromRT:
        host.OnSubmitted(event, call.request);
        break;
    case Entry::RequestStreamBuffers:
        host.OnLent(event);
        break;
    case Entry::Flush:
        host.OnFlushed(camera);
        break;
    case Entry::Destroy:
        if (host.OnDestroyed(camera) && !checks.isLate) {
            vendor.CheckAllReturned();
        }
        break;
    default:
        break;
    }
}

} // namespace contract
