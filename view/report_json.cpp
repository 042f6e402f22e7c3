/// Builds the report.
#include "view/report_json.h"

#include "view/check.h"
#include "view/text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace view {
namespace {

using nlohmann::ordered_json;
constexpr uint64_t kSecond = 1'000'000'000;

template <class T> ordered_json OrNull(const std::optional<T>& value) {
    return value.has_value() ? ordered_json(*value) : ordered_json();
}

/// A text that is empty where there is none.
ordered_json TextOrNull(const std::string& text) {
    return text.empty() ? ordered_json() : ordered_json(text);
}

ordered_json TimeOrNull(const std::optional<Moment>& moment, Moment start) {
    return moment.has_value() ? ordered_json(MicrosecondsFrom(start, *moment)) : ordered_json();
}

/// In UTC, as in "2026-01-31T12:00:00.250Z".
std::string TimeText(uint64_t nanoseconds) {
    const auto seconds = static_cast<time_t>(nanoseconds / kSecond);
    tm parts{};
    char date[64] = "";
    char text[80];
    if (gmtime_r(&seconds, &parts) != nullptr) {
        (void)strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
    }
    (void)snprintf(text, sizeof text, "%s.%03uZ", date,
                   static_cast<unsigned>(nanoseconds % kSecond / 1'000'000));
    return text;
}

/// What a recording says of itself; where there is none, of this process.
contract::FileHeader AboutOf(const Told* told) {
    if (told != nullptr) {
        return told->recording.About();
    }
    contract::FileHeader about{};
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    about.realTime =
        static_cast<uint64_t>(now.tv_sec) * kSecond + static_cast<uint64_t>(now.tv_nsec);
    utsname machine{};
    (void)uname(&machine);
    (void)snprintf(about.machine, sizeof about.machine, "%.15s", machine.machine);
    (void)snprintf(about.program, sizeof about.program, "%s", program_invocation_short_name);
    about.process = static_cast<uint32_t>(getpid());
    return about;
}

ordered_json RunOf(const contract::FileHeader& about, const ReportFacts& facts) {
    ordered_json adapter;
    if (!facts.adapter.empty()) {
        adapter = {{"file", facts.adapter}, {"buildId", TextOrNull(facts.buildId)}};
    }
    return {{"kind", facts.isRun ? "run" : "recording"},
            {"command", facts.command},
            {"scenario", OrNull(facts.scenario)},
            {"shows", OrNull(facts.shows)},
            {"seed", OrNull(facts.seed)},
            {"started", TimeText(about.realTime)},
            {"machine", about.machine},
            {"program", about.program},
            {"process", about.process},
            {"adapter", adapter}};
}

ordered_json ResultOf(const Told* told, const ReportFacts& facts) {
    ordered_json expectations = ordered_json::array();
    for (const Expectation& each : facts.expectations) {
        expectations.push_back({{"what", each.what},
                                {"expected", each.expected},
                                {"found", each.found},
                                {"met", each.isMet}});
    }
    ordered_json open = ordered_json::array();
    if (told != nullptr) {
        for (const Thread& thread : told->story.Threads()) {
            for (const size_t call : thread.open) {
                open.push_back(LineOf(told->serials, call));
            }
        }
    }
    return {{"status", facts.status},
            {"text", facts.text},
            {"signal", facts.signal == 0 ? ordered_json() : ordered_json(facts.signal)},
            {"expectations", expectations},
            {"open", open}};
}

ordered_json CamerasOf(const ReportFacts& facts) {
    ordered_json cameras = ordered_json::array();
    for (const ReportCamera& each : facts.cameras) {
        cameras.push_back({{"camera", each.camera},
                           {"features", each.features},
                           {"requests", each.requests},
                           {"frames", each.frames},
                           {"inputs", each.inputs},
                           {"width", each.width},
                           {"height", each.height},
                           {"rate", each.rate == 0 ? ordered_json() : ordered_json(each.rate)},
                           {"threads", each.threads}});
    }
    return cameras;
}

ordered_json RequestOf(const Row& row, const Told& told) {
    const Request& request = row.request;
    const auto latency = [&](const std::optional<Moment>& moment) {
        return request.submitted.has_value() ? TimeOrNull(moment, *request.submitted)
                                             : ordered_json();
    };
    const bool hasThread = request.thread != 0 && request.thread <= told.story.Threads().size();
    return {{"camera", OrNull(request.camera)},
            {"frame", request.frame},
            {"feature", request.feature},
            {"session", request.session == 0 ? ordered_json() : ordered_json(request.session)},
            {"thread", hasThread ? ordered_json(told.story.Threads()[request.thread - 1].name)
                                 : ordered_json()},
            {"sent", TimeOrNull(request.submitted, told.Start())},
            {"latency",
             {{"returned", latency(request.returned)},
              {"metadata", latency(request.metadata)},
              {"buffer", latency(request.buffer)},
              {"release", latency(request.released)},
              {"complete", latency(request.completed)}}},
            {"status", OrNull(request.status)},
            {"completion", OrNull(request.completion)},
            {"outcome", row.outcome},
            {"good", row.isGood},
            {"picture", TextOrNull(row.picture)}};
}

ordered_json SessionOf(const Session& session, Moment start) {
    return {{"session", session.serial == 0 ? ordered_json() : ordered_json(session.serial)},
            {"feature", session.feature},
            {"camera", OrNull(session.camera)},
            {"asked", TimeOrNull(session.asked, start)},
            {"opened", TimeOrNull(session.opened, start)},
            {"configured", TimeOrNull(session.configured, start)},
            {"closed", TimeOrNull(session.closed, start)},
            {"requests", session.requests}};
}

/// What the rules did not know of a violation's event, the story may.
ordered_json ViolationOf(const contract::Violation& violation, const Told* told) {
    const contract::RuleText& rule = contract::TextOf(violation.rule);
    std::optional<uint32_t> camera = violation.camera;
    std::optional<uint32_t> frame = violation.request;
    std::optional<Moment> time;
    const uint64_t first =
        told == nullptr || told->Events().empty() ? 0 : told->Events().front().Number();
    if (first != 0 && violation.event >= first && violation.event - first < told->Events().size()) {
        const auto index = static_cast<size_t>(violation.event - first);
        const Subject& subject = told->story.SubjectOf(index);
        time = told->Events()[index].Time();
        camera = camera.has_value() ? camera : subject.camera;
        for (const Request& request : told->story.Requests()) {
            if (!frame.has_value() && subject.request != 0 && request.serial == subject.request) {
                frame = request.frame;
            }
        }
    }
    return {{"rule", rule.number},
            {"title", rule.name},
            {"text", violation.text},
            {"side", contract::NameOf(contract::SideOf(violation.rule))},
            {"camera", OrNull(camera)},
            {"request", OrNull(frame)},
            {"entry", violation.entry == nullptr ? ordered_json() : ordered_json(violation.entry)},
            {"expected", TextOrNull(violation.expected)},
            {"got", TextOrNull(violation.got)},
            {"link", contract::LinkOf(violation.rule)},
            {"event", violation.event},
            {"time", told == nullptr ? ordered_json() : TimeOrNull(time, told->Start())}};
}

ordered_json LogOf(const std::vector<LogLine>& log, const Told* told) {
    ordered_json lines = ordered_json::array();
    for (const LogLine& line : log) {
        constexpr std::string_view kLevels = "??VDIWEF"; // As Android's priorities count.
        const auto level = std::min<size_t>(static_cast<size_t>(std::max(line.priority, 2)), 6);
        lines.push_back(
            {{"time", told == nullptr ? ordered_json() : TimeOrNull(line.time, told->Start())},
             {"level", std::string(1, kLevels[level])},
             {"tag", line.tag},
             {"text", line.text}});
    }
    return lines;
}

} // namespace

double MicrosecondsFrom(Moment start, Moment moment) {
    return static_cast<double>(static_cast<int64_t>(moment - start)) / 1e3;
}

ordered_json MakeReport(const Told* told, const ReportFacts& facts, const std::string& damage) {
    ordered_json requests = ordered_json::array();
    ordered_json sessions = ordered_json::array();
    ordered_json violations = ordered_json::array();
    if (told != nullptr) {
        for (const Row& row : facts.rows) {
            requests.push_back(RequestOf(row, *told));
        }
        for (const Session& session : told->story.Sessions()) {
            sessions.push_back(SessionOf(session, told->Start()));
        }
    }
    for (const contract::Violation& violation : facts.violations) {
        violations.push_back(ViolationOf(violation, told));
    }
    return {{"format", "oemlayer-report"},
            {"version", 1},
            {"run", RunOf(AboutOf(told), facts)},
            {"result", ResultOf(told, facts)},
            {"cameras", CamerasOf(facts)},
            {"requests", requests},
            {"sessions", sessions},
            {"violations", violations},
            {"log", LogOf(facts.log, told)},
            {"events", told == nullptr ? 0 : told->Events().size()},
            {"lost", told == nullptr ? 0 : told->recording.CountLost()},
            {"damage", TextOrNull(told == nullptr ? damage : told->recording.Damage())}};
}

ReportFacts FactsOf(const Told& told) {
    ReportFacts facts;
    facts.command = "./dev show " + ShellWord(told.file);
    facts.rows = RowsOf(told.story);
    facts.violations = FindViolations(told.Events());
    const std::string& damage = told.recording.Damage();
    facts.text = Count(facts.rows.size(), "request") + ", " +
                 Count(facts.violations.size(), "violation") + " of the contract";
    const bool isGood = facts.violations.empty() && !told.story.IsOpen();
    facts.status = isGood ? "passed" : "failed";
    if (told.story.IsOpen()) {
        facts.text += ", and calls that never returned: the process died, or went on";
    }
    if (!damage.empty()) {
        facts.status = "damaged";
        facts.text += "; " + damage;
    }
    return facts;
}

std::string TextOf(const ordered_json& report) {
    // JSON is UTF-8; a recorded text may be anything.
    return report.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

} // namespace view
