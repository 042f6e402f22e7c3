/// What a run prints.
#include "host/report.h"

#include "standin/located_json.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace host {
namespace {

constexpr size_t kMostRows = 24; // Of a table that shows all requests.
constexpr size_t kWorstRows = 10;

enum class Colour { Plain = 0, Strong = 1, Bad = 31, Good = 32 };

std::string Painted(Colour colour, const std::string& text) {
    static const char* const noColour = getenv("NO_COLOR");
    static const bool colours =
        isatty(STDOUT_FILENO) != 0 && std::string_view(noColour == nullptr ? "" : noColour).empty();
    return colours && colour != Colour::Plain
               ? "\033[" + std::to_string(static_cast<int>(colour)) + "m" + text + "\033[0m"
               : text;
}

std::string Number(double value) {
    char text[32];
    (void)snprintf(text, sizeof text, "%.1f", value);
    return text;
}

std::string Count(size_t count, const char* name) {
    return std::to_string(count) + " " + name + (count == 1 ? "" : "s");
}

std::string Describe(const CameraPlan& plan) {
    std::string text = standin::Joined(plan.features);
    text += ": " + Count(plan.requests, "request") + " of " + Count(plan.frames, "frame") + " of ";
    for (size_t i = 0; i < plan.inputs.size(); ++i) {
        const auto isThis = [&](const auto& format) { return format.second == plan.inputs[i]; };
        text += i == 0 ? "" : " and ";
        text += std::find_if(kFormats.begin(), kFormats.end(), isThis)->first;
    }
    text += ", " + std::to_string(plan.width) + " x " + std::to_string(plan.height);
    text += plan.rate > 0 ? ", " + std::to_string(plan.rate) + " a second" : "";
    return text + (plan.threads > 1 ? ", from " + Count(plan.threads, "thread") : "");
}

using Times = std::vector<std::optional<double>>; ///< Milliseconds since the submission.

/// A request's row.
struct Row {
    const Request* request;
    std::optional<Clock::time_point> submitted;
    Times times; ///< As in the table: returned, metadata, buffer, released, completed.
};

double Milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

Row RowOf(const Request& request) {
    const Moments when = request.When();
    Row row{&request, when.submitted, {}};
    for (const auto& moment :
         {when.returned, when.metadata, when.buffer, when.released, when.completed}) {
        row.times.push_back(moment.has_value() && when.submitted.has_value()
                                ? std::optional(Milliseconds(*moment - *when.submitted))
                                : std::nullopt);
    }
    return row;
}

std::string StatusOf(const Request& request) {
    if (!request.problem.empty()) {
        return "not sent: " + request.problem;
    }
    if (request.status != 0U) {
        return "refused, status " + std::to_string(request.status.value_or(0));
    }
    if (request.completion.has_value()) {
        return *request.completion == 0 ? "ok"
                                        : "error, status " + std::to_string(*request.completion);
    }
    return "never completed";
}

void PrintCells(const std::string& name, const std::string& feature, const std::string& submitted,
                const Times& times, const std::string& end) {
    printf("  %-9s %-10s %10s", name.c_str(), feature.c_str(), submitted.c_str());
    for (const auto& time : times) {
        printf(" %9s", time.has_value() ? Number(*time).c_str() : "-");
    }
    printf("%s%s\n", end.empty() ? "" : "  ", end.c_str());
}

void PrintRow(const Row& row, Clock::time_point start) {
    const Request& request = *row.request;
    const std::string submitted =
        row.submitted.has_value() ? Number(Milliseconds(*row.submitted - start)) : "-";
    const bool isGood = request.completion == 0U &&
                        (!request.judgement.has_value() || request.judgement->IsAsExpected());
    std::string end = StatusOf(request);
    if (request.judgement.has_value()) {
        end += isGood ? ", right picture" : ", wrong picture: " + request.judgement->Describe();
    }
    PrintCells(
        std::to_string(request.camera.Plan().id) + "/" + std::to_string(request.rtFrameNumber),
        request.feature, submitted, row.times, Painted(isGood ? Colour::Plain : Colour::Bad, end));
}

/// A line with the value at this share of each column: 0.5 for the median, 1 for the worst.
void PrintSummary(const char* name, const std::vector<Row>& rows, double share) {
    Times times;
    for (size_t column = 0; column < rows.front().times.size(); ++column) {
        std::vector<double> values;
        for (const Row& row : rows) {
            if (const auto time = row.times[column]; time.has_value()) {
                values.push_back(*time);
            }
        }
        std::sort(values.begin(), values.end());
        const auto index = static_cast<size_t>(share * static_cast<double>(values.size()));
        times.push_back(values.empty() ? std::nullopt
                                       : std::optional(values[std::min(index, values.size() - 1)]));
    }
    PrintCells(name, "", "", times, "");
}

/// The rate that a camera reached, where it was to have one.
void PrintRate(const Camera& camera) {
    std::vector<Clock::time_point> submitted;
    for (const auto& request : camera.Requests()) {
        if (const auto moment = request->When().submitted; moment.has_value()) {
            submitted.push_back(*moment);
        }
    }
    if (camera.Plan().rate == 0 || submitted.size() < 2) {
        return;
    }
    const auto [first, last] = std::minmax_element(submitted.begin(), submitted.end());
    const double seconds = std::chrono::duration<double>(*last - *first).count();
    printf("  camera %u sent %.1f of %u requests a second\n", camera.Plan().id,
           static_cast<double>(submitted.size() - 1) / seconds, camera.Plan().rate);
}

} // namespace

void PrintFact(const std::string& heading, const std::string& fact) {
    printf("%-10s %s\n", heading.c_str(), fact.c_str());
}

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
    std::vector<Row> rows;
    for (const auto& camera : run.Cameras()) {
        for (const auto& request : camera->Requests()) {
            rows.push_back(RowOf(*request));
        }
    }
    std::vector<Row> shown = rows;
    if (rows.size() > kMostRows) {
        // The slower it was completed, the further in front; what was not completed comes first.
        std::stable_sort(shown.begin(), shown.end(), [](const Row& one, const Row& other) {
            return one.times.back().value_or(1e12) > other.times.back().value_or(1e12);
        });
        shown.resize(kWorstRows);
    }
    printf("\n  %-9s %-10s %10s %9s %9s %9s %9s %9s\n", "request", "feature", "at ms", "returned",
           "metadata", "buffer", "release", "complete");
    for (const Row& row : shown) {
        PrintRow(row, run.Start());
    }
    if (shown.size() < rows.size()) {
        printf("  (the %zu slowest of %zu requests)\n", shown.size(), rows.size());
    }
    if (rows.size() > 1) {
        PrintSummary("median", rows, 0.5);
        PrintSummary("worst", rows, 1);
    }
    for (const auto& camera : run.Cameras()) {
        PrintRate(*camera);
    }
    printf("\n");
}

void PrintOutcome(const Scenario& scenario, const Outcome& outcome) {
    PrintFact("sessions", Count(outcome.sessions, "attempt") + " to open one");
    for (const std::string& violation : outcome.violations) {
        const auto& expected = scenario.expect.violations;
        const std::string rule = violation.substr(0, violation.find(' '));
        const bool isExpected = std::find(expected.begin(), expected.end(), rule) != expected.end();
        PrintFact(isExpected ? "expected" : "violation",
                  Painted(isExpected ? Colour::Plain : Colour::Bad, violation));
    }
    std::string text = std::to_string(outcome.completed) + " of " +
                       Count(outcome.requests, "request") + " completed, " +
                       Count(outcome.violations.size(), "violation") + " of the contract";
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
