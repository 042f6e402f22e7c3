/// Tables and lines for people.
#include "view/report.h"

#include "view/text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

namespace view {
namespace {

constexpr size_t kMostRows = 24; // Of a table that shows all requests.
constexpr size_t kWorstRows = 10;

/// The columns of a request's times, all since its submission.
constexpr std::array kColumns{&Request::returned, &Request::metadata, &Request::buffer,
                              &Request::released, &Request::completed};
using Times = std::array<std::optional<double>, kColumns.size()>; ///< In milliseconds.

double Between(Moment start, Moment moment) {
    return static_cast<double>(static_cast<int64_t>(moment - start)) / 1e6;
}

std::string Number(double value) {
    char text[32];
    (void)snprintf(text, sizeof text, "%.1f", value);
    return text;
}

Times TimesOf(const Request& request) {
    Times times;
    for (size_t i = 0; i < kColumns.size(); ++i) {
        const auto& moment = request.*kColumns[i];
        if (moment.has_value() && request.submitted.has_value()) {
            times[i] = Between(*request.submitted, *moment);
        }
    }
    return times;
}

void PrintCells(const std::string& name, const std::string& feature, const std::string& submitted,
                const Times& times, const std::string& end) {
    printf("  %-9s %-10s %10s", name.c_str(), feature.c_str(), submitted.c_str());
    for (const auto& time : times) {
        printf(" %9s", time.has_value() ? Number(*time).c_str() : "-");
    }
    printf("%s%s\n", end.empty() ? "" : "  ", end.c_str());
}

std::string NameOf(const Request& request) {
    return (request.camera.has_value() ? std::to_string(*request.camera) : "?") + "/" +
           std::to_string(request.frame);
}

void PrintRow(const Row& row, Moment start) {
    const Request& request = row.request;
    const std::string submitted =
        request.submitted.has_value() ? Milliseconds(start, *request.submitted) : "-";
    PrintCells(NameOf(request), request.feature, submitted, TimesOf(request),
               Painted(row.isGood ? Colour::Plain : Colour::Bad,
                       row.outcome + (row.picture.empty() ? "" : ", " + row.picture)));
}

/// A line with the value at this share of each column: 0.5 for the median, 1 for the worst.
void PrintSummary(const char* name, const std::vector<Row>& rows, double share) {
    Times times;
    for (size_t column = 0; column < times.size(); ++column) {
        std::vector<double> values;
        for (const Row& row : rows) {
            if (const auto time = TimesOf(row.request)[column]; time.has_value()) {
                values.push_back(*time);
            }
        }
        std::sort(values.begin(), values.end());
        // The nearest rank, as on the page.
        const auto rank = std::ceil(share * static_cast<double>(values.size()));
        if (!values.empty()) {
            times[column] = values[static_cast<size_t>(rank) - 1];
        }
    }
    PrintCells(name, "", "", times, "");
}

/// A moment of a session, or a dash.
std::string Cell(const std::optional<Moment>& moment, Moment start) {
    return moment.has_value() ? Milliseconds(start, *moment) : "-";
}

std::string DateOf(uint64_t nanoseconds) {
    const auto seconds = static_cast<time_t>(nanoseconds / 1'000'000'000);
    tm parts{};
    char text[64] = "";
    if (gmtime_r(&seconds, &parts) != nullptr) {
        (void)strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts);
    }
    return text;
}

} // namespace

std::string Painted(Colour colour, const std::string& text) {
    static const char* const noColour = getenv("NO_COLOR");
    static const bool colours =
        isatty(STDOUT_FILENO) != 0 && std::string_view(noColour == nullptr ? "" : noColour).empty();
    return colours && colour != Colour::Plain
               ? "\033[" + std::to_string(static_cast<int>(colour)) + "m" + text + "\033[0m"
               : text;
}

void PrintFact(const std::string& heading, const std::string& fact) {
    printf("%-10s %s\n", heading.c_str(), fact.c_str());
}

std::string Milliseconds(Moment start, Moment moment) { return Number(Between(start, moment)); }

// --- Requests -----------------------------------------------------------------------------------

std::string OutcomeOf(const Request& request) {
    if (request.status.value_or(0) != 0) {
        return "refused, status " + std::to_string(*request.status);
    }
    if (request.completion.has_value()) {
        return *request.completion == 0 ? "ok"
                                        : "error, status " + std::to_string(*request.completion);
    }
    return request.returned.has_value() ? "never completed" : "never returned";
}

std::vector<Row> RowsOf(const Story& story) {
    std::vector<Row> rows;
    for (const Request& request : story.Requests()) {
        rows.push_back({request, OutcomeOf(request), request.completion == 0U});
    }
    std::stable_sort(rows.begin(), rows.end(), [](const Row& one, const Row& other) {
        return one.request.camera < other.request.camera;
    });
    return rows;
}

void PrintRequests(const std::vector<Row>& rows, Moment start) {
    if (rows.empty()) {
        return;
    }
    std::vector<Row> shown = rows;
    if (rows.size() > kMostRows) {
        // The slower it was completed, the further in front; what was not completed comes first.
        const auto took = [](const Row& row) { return TimesOf(row.request).back().value_or(1e12); };
        std::stable_sort(shown.begin(), shown.end(),
                         [&](const Row& one, const Row& other) { return took(one) > took(other); });
        shown.resize(kWorstRows);
    }
    printf("\n  %-9s %-10s %10s %9s %9s %9s %9s %9s\n", "request", "feature", "at ms", "returned",
           "metadata", "buffer", "release", "complete");
    for (const Row& row : shown) {
        PrintRow(row, start);
    }
    if (shown.size() < rows.size()) {
        printf("  (the %zu slowest of %zu requests)\n", shown.size(), rows.size());
    }
    if (rows.size() > 1) {
        PrintSummary("median", rows, 0.5);
        PrintSummary("worst", rows, 1);
    }
}

std::optional<double> RateOf(const Story& story, uint32_t camera) {
    std::vector<Moment> submitted;
    for (const Request& request : story.Requests()) {
        if (request.camera == camera && request.submitted.has_value()) {
            submitted.push_back(*request.submitted);
        }
    }
    if (submitted.size() < 2) {
        return std::nullopt;
    }
    const auto [first, last] = std::minmax_element(submitted.begin(), submitted.end());
    return static_cast<double>(submitted.size() - 1) / (Between(*first, *last) / 1e3);
}

// --- Sessions, open calls, the recording --------------------------------------------------------

void PrintSessions(const Story& story, Moment start) {
    if (story.Sessions().empty()) {
        return;
    }
    printf("\n  %-9s %-10s %-8s %10s %10s %10s %10s %9s\n", "session", "feature", "camera",
           "asked ms", "opened", "configured", "closed", "requests");
    for (const Session& session : story.Sessions()) {
        const bool isThere = session.serial != 0;
        const std::string camera = !session.cameraText.empty()  ? session.cameraText
                                   : session.camera.has_value() ? std::to_string(*session.camera)
                                                                : "?";
        printf("  %-9s %-10s %-8s %10s %10s %10s %10s %9u%s\n",
               isThere ? std::to_string(session.serial).c_str() : "-", session.feature.c_str(),
               camera.c_str(), Cell(session.asked, start).c_str(),
               Cell(session.opened, start).c_str(), Cell(session.configured, start).c_str(),
               Cell(session.closed, start).c_str(), session.requests,
               isThere ? "" : Painted(Colour::Bad, "  not opened").c_str());
    }
}

namespace {

/// Of each thread, by its index.
std::vector<size_t> LastEvents(const Story& story) {
    std::vector<size_t> last(story.Threads().size());
    for (size_t i = 0; i < story.Events().size(); ++i) {
        last[story.Serials().ThreadOf(i) - 1] = i;
    }
    return last;
}

/// Under each thread's name the events that `choose` has for its index; nothing where it has none.
template <class Choose> void PrintEvents(const Story& story, Moment start, const Choose& choose) {
    for (size_t i = 0; i < story.Threads().size(); ++i) {
        const Thread& thread = story.Threads()[i];
        const std::vector<size_t> events = choose(i);
        if (!events.empty()) {
            printf("  %s, kernel thread %u\n", thread.name.c_str(), thread.kernel);
        }
        for (const size_t index : events) {
            const contract::Event& event = story.Events()[index];
            printf("    event %llu at %s ms: %s%s\n",
                   static_cast<unsigned long long>(event.Number()),
                   Milliseconds(start, event.Time()).c_str(), event.IsCall() ? "" : "return of ",
                   LineOf(story.Serials(), index).c_str());
        }
    }
}

} // namespace

void PrintOpenCalls(const Story& story, Moment start) {
    const auto sessions =
        std::count_if(story.Sessions().begin(), story.Sessions().end(), [](const Session& session) {
            return session.serial != 0 && !session.closed.has_value();
        });
    const auto requests =
        std::count_if(story.Requests().begin(), story.Requests().end(), [](const Request& request) {
            return request.status.value_or(0) == 0 && !request.completion.has_value() &&
                   !request.lost.has_value();
        });
    if (sessions + requests > 0) {
        PrintFact("ends", "with " + Count(static_cast<uint64_t>(sessions), "session") +
                              " open and " + Count(static_cast<uint64_t>(requests), "request") +
                              " in flight");
    }
    if (!story.IsOpen() && sessions + requests == 0) {
        return;
    }
    if (story.IsOpen()) {
        PrintFact("open", Painted(Colour::Bad, "these calls never returned: the process died in "
                                               "one of them, or went on after the recording"));
    } else {
        PrintFact("last", "what each thread did: the process died, or went on");
    }
    const std::vector<size_t> last = LastEvents(story);
    PrintEvents(story, start, [&](size_t thread) {
        const auto& open = story.Threads()[thread].open;
        return open.empty() ? std::vector{last[thread]} : open;
    });
}

void PrintAbout(const std::string& file, const contract::Recording& recording, const Story& story) {
    const contract::FileHeader& about = recording.About();
    const auto& events = recording.Events();
    PrintFact("recording", file + ": " + Count(events.size(), "event") + " of " +
                               Count(story.Threads().size(), "thread"));
    PrintFact("of", std::string(about.program) + ", process " + std::to_string(about.process) +
                        " on " + about.machine + ", from " + DateOf(about.realTime));
    if (recording.CountLost() > 0) {
        PrintFact("lost", Count(recording.CountLost(), "event") +
                              " at the beginning, which newer " + "ones have overwritten");
    }
    if (!recording.Damage().empty()) {
        PrintFact("damaged", Painted(Colour::Bad, recording.Damage()));
    }
}

void PrintAll(const std::string& file, const contract::Recording& recording, const Story& story) {
    const Moment start = recording.About().time;
    PrintAbout(file, recording, story);
    PrintOpenCalls(story, start);
    PrintRequests(RowsOf(story), start);
    PrintSessions(story, start);
}

} // namespace view
