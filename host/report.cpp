/// What a run prints.
#include "host/report.h"

#include "standin/located_json.h"
#include "view/text.h"

#include <algorithm>
#include <cstdio>

namespace host {

using view::Colour;
using view::Count;
using view::Painted;
using view::PrintFact;

namespace {

std::string Describe(const CameraPlan& plan) {
    std::string text = standin::Joined(plan.features);
    text += ": " + Count(plan.requests, "request") + " of " + Count(plan.frames, "frame") + " of ";
    for (size_t i = 0; i < plan.inputs.size(); ++i) {
        text += i == 0 ? "" : " and ";
        text += NameOfFormat(plan.inputs[i]);
    }
    text += ", " + std::to_string(plan.width) + " x " + std::to_string(plan.height);
    text += plan.rate > 0 ? ", " + std::to_string(plan.rate) + " a second" : "";
    return text + (plan.threads > 1 ? ", from " + Count(plan.threads, "thread") : "");
}

} // namespace

void PrintScenario(const Scenario& scenario, const std::string& library) {
    printf("%s  %s\n", Painted(Colour::Strong, scenario.name).c_str(), scenario.shows.c_str());
    PrintFact("adapter", library);
    for (const CameraPlan& plan : scenario.cameras) {
        PrintFact("camera " + std::to_string(plan.id), Describe(plan));
    }
    for (const Fault& fault : scenario.faults) {
        PrintFact("fault", fault.text);
    }
    if (scenario.expect.abort) {
        PrintFact("expected", "an error line, and the end of this process by SIGABRT");
    }
}

void PrintRequests(const Run& run) {
    view::PrintRequests(run.Rows(), run.Told().Start());
    for (const auto& camera : run.Cameras()) {
        const CameraPlan& plan = camera->Plan();
        const auto rate = view::RateOf(run.Told().story, plan.id);
        if (plan.rate > 0 && rate.has_value()) {
            printf("  camera %u sent %.1f of %u requests a second\n", plan.id, *rate, plan.rate);
        }
    }
    printf("\n");
}

std::string TextOf(const Outcome& outcome) {
    return std::to_string(outcome.completed) + " of " + Count(outcome.requests, "request") +
           " completed, " + Count(outcome.violations.size(), "violation") + " of the contract";
}

void PrintOutcome(const Scenario& scenario, const Outcome& outcome) {
    PrintFact("sessions", Count(outcome.sessions, "attempt") + " to open one");
    for (const contract::Violation& violation : outcome.violations) {
        const auto& expected = scenario.expect.violations;
        const std::string rule = contract::TextOf(violation.rule).number;
        const bool isExpected = std::find(expected.begin(), expected.end(), rule) != expected.end();
        PrintFact(isExpected ? "expected" : "violation",
                  Painted(isExpected ? Colour::Plain : Colour::Bad, LineOf(violation)));
    }
    const std::string text = TextOf(outcome);
    for (const std::string& unfulfilled : outcome.unfulfilled) {
        PrintFact("unlike", Painted(Colour::Bad, unfulfilled));
    }
    if (outcome.wasInterrupted) {
        PrintFact("stopped", text);
        return;
    }
    const bool isGood = outcome.unfulfilled.empty();
    PrintFact(isGood ? "came true" : "failed", Painted(isGood ? Colour::Good : Colour::Bad, text));
}

} // namespace host
