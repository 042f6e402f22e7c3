/// Forks for a cell, learns what came of it, and holds that against the documents.
#include "campaign/cell_run.h"

#include "campaign/heap.h"
#include "host/run.h"
#include "kit/child.h"
#include "kit/unnamed_file.h"
#include "standin/located_json.h"

#include <nlohmann/json.hpp>

#include <csignal>
#include <fstream>
#include <iterator>
#include <sstream>
#include <unistd.h>

namespace campaign {
namespace {

using host::CameraPlan;
using host::Outcome;
using host::Scenario;
using nlohmann::json;

// docs/kept-behaviours.md, "Memory that stays allocated".
constexpr size_t kRequest = 88;
constexpr size_t kChain = 48;
constexpr size_t kSession = 288;
constexpr size_t kStreamInfo = 16;

constexpr int kAborted = 77; // The status of a process that the library ended while it loads.

/// What can be read of a file that another process has written.
std::string ContentOf(const kit::UnnamedFile& file) {
    std::ifstream in(file.Path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// --- In the cell's process ----------------------------------------------------------------------

const kit::UnnamedFile* g_counts; ///< Where calls are counted.

void TellCounts() {
    Counts counts{};
    for (uint32_t i = 0; i < counts.size(); ++i) {
        counts[i] = StandinControl()->CallCount(standin::Entry{i});
    }
    std::ofstream(g_counts->Path(), std::ios::binary)
        .write(reinterpret_cast<const char*>(counts.data()), sizeof counts);
}

/// On the thread that loads: the device's locks are free.
void OnAbort(int /*signal*/) {
    if (host::Run::IsLoading()) {
        TellCounts();
        _exit(kAborted);
    }
    (void)std::signal(SIGABRT, SIG_DFL); // Returning from here ends the process.
}

json FactsOf(const Outcome& outcome, const std::map<size_t, size_t>& blocks) {
    const standin::Alive alive = StandinControl()->CountAlive();
    json violations = json::array();
    for (const contract::Violation& violation : outcome.violations) {
        violations.push_back({contract::TextOf(violation.rule).number, violation.entry == nullptr,
                              contract::LineOf(violation)});
    }
    json refused = json::object();
    for (const auto& [status, count] : outcome.refused) {
        if (count > 0) {
            refused[std::to_string(status)] = count;
        }
    }
    json heap = json::array();
    for (const auto& [size, count] : blocks) {
        heap.push_back({size, count});
    }
    return {{"requests", outcome.requests},
            {"sent", outcome.sent},
            {"completed", outcome.completed},
            {"errors", outcome.errors},
            {"unanswered", outcome.unanswered},
            {"refused", refused},
            {"wrongPictures", outcome.wrongPictures},
            {"lost", outcome.lost},
            {"unfulfilled", outcome.unfulfilled},
            {"violations", violations},
            {"heap", heap},
            {"alive",
             {{"sessions", alive.sessions},
              {"metadata", alive.metadata},
              {"Android metadata", alive.androidMetadata},
              {"buffer managers", alive.bufferManagers},
              {"image buffers", alive.imageBuffers},
              {"operation tables", alive.metadataOps + alive.bufferOps}}}};
}

/// The work of the cell's process. What it prints goes into a file.
int Work(const Scenario& scenario, const std::string& library, const kit::UnnamedFile& facts,
         const kit::UnnamedFile& counts, const kit::UnnamedFile& printed) {
    g_counts = &counts;
    if (freopen(printed.Path().c_str(), "a", stdout) == nullptr ||
        dup2(STDOUT_FILENO, STDERR_FILENO) < 0) {
        return 1;
    }
    (void)std::signal(SIGABRT, OnAbort);
    host::Run run(scenario, library, {});
    run.Go();
    StandinControl()
        ->WaitIdle(); // A session that was not closed may still return from a completion.
    const auto blocks = LibraryBlocks();
    const Outcome outcome = run.Judge();
    TellCounts();
    std::ofstream(facts.Path())
        << FactsOf(outcome, blocks).dump(-1, ' ', false, json::error_handler_t::replace);
    return 0;
}

// --- The judgement ------------------------------------------------------------------------------

/// Collects what is found; the worst class wins.
class Finding {
  public:
    void Add(Class its, const std::string& text) {
        mVerdict.its = std::max(mVerdict.its, its);
        mVerdict.text += (mVerdict.text.empty() ? "" : "; ") + text;
    }
    void AddUnless(bool holds, Class its, const std::string& text) {
        if (!holds) {
            Add(its, text);
        }
    }
    const Verdict& Of() const { return mVerdict; }

  private:
    Verdict mVerdict;
};

uint64_t Refused(const json& facts, const char* status) {
    return facts["refused"].value(status, uint64_t{0});
}

/// Requests that may never be completed, since the scenario does not let the vendor.
uint64_t MayStay(const Scenario& scenario, const json& facts) {
    uint64_t held = 0;
    for (const CameraPlan& plan : scenario.cameras) {
        held += plan.heldAtFlush;
    }
    return scenario.delivery == standin::Delivery::ByHand ? facts["sent"].get<uint64_t>() : held;
}

void JudgeRequests(const Scenario& scenario, const Allowed& allowed, const json& facts,
                   Finding& finding) {
    const auto number = [&](const char* key) { return facts[key].get<uint64_t>(); };
    uint64_t refused = 0;
    for (const auto& [status, count] : facts["refused"].items()) {
        refused += count.get<uint64_t>();
        const auto found = allowed.refused.find(static_cast<uint32_t>(std::stoul(status)));
        finding.AddUnless(found != allowed.refused.end() && count <= found->second,
                          Class::Violation,
                          "submissions refused with status " + status + " for no reason");
    }
    finding.AddUnless(number("sent") == number("completed") + refused + number("unanswered"),
                      Class::Violation, "requests that are not accounted for");
    finding.AddUnless(number("unanswered") <= MayStay(scenario, facts), Class::Hang,
                      "requests that were never completed, though the vendor delivers");
    finding.AddUnless(number("requests") - number("sent") <= allowed.notSent, Class::Violation,
                      "requests that were not sent, for no reason");
    const bool hasErrors = scenario.shape == standin::Shape::ErrorBuffer;
    finding.AddUnless(number("errors") == 0 || hasErrors, Class::Violation,
                      "completions with a failure for no reason");
    finding.AddUnless(number("wrongPictures") <= allowed.wrongPictures, Class::Violation,
                      "wrong pictures");
    finding.AddUnless(number("lost") == 0, Class::Violation, "events that found no room");
}

/// What is left where the end breaks a rule.
// NOLINTNEXTLINE(cert-err58-cpp): without memory the program may end
const std::map<std::string, const char*> kLeft{
    {"V5", "sessions"},         {"V23", "metadata"},      {"V24", "Android metadata"},
    {"V27", "buffer managers"}, {"V29", "image buffers"}, {"V30", "operation tables"}};

/// \returns the rules that are broken as they may be.
std::set<std::string> JudgeRules(const Allowed& allowed, const json& facts, Finding& finding) {
    std::set<std::string> broken;
    std::set<std::string> told;
    for (const auto& violation : facts["violations"]) {
        const auto rule = violation[0].get<std::string>();
        // Objects that are left are counted. Any that came back later were late.
        const auto kind = violation[1].get<bool>() ? kLeft.find(rule) : kLeft.end();
        const bool isLeft = kind != kLeft.end() && facts["alive"][kind->second] > 0;
        if (isLeft || allowed.rules.contains(rule)) {
            broken.insert(rule);
        } else if (told.insert(rule).second) {
            finding.Add(Class::Violation, violation[2]);
        }
    }
    return broken;
}

/// docs/kept-behaviours.md, "Memory that stays allocated", by size.
/// \param ended requests that the vendor did not complete.
std::map<size_t, uint64_t> BlocksThatMayStay(const Scenario& scenario, const Allowed& allowed,
                                             const json& facts, uint64_t ended) {
    std::map<size_t, uint64_t> most;
    uint64_t formats = 0;
    std::set<size_t> inputs; // Of a session.
    uint64_t keeping = 0;    // Requests whose completion frees no format record.
    for (const CameraPlan& plan : scenario.cameras) {
        const size_t records = std::max<size_t>(size_t{2} * plan.frames, plan.inputs.size());
        most[kRequest + records * sizeof(ChiStreamBuffer)] = ended;
        inputs.insert(plan.inputs.size());
        formats += uint64_t{plan.requests} * plan.CountRaws() * plan.frames;
        keeping += plan.CountRaws() > 0 ? 0 : plan.requests;
    }
    const auto completed = facts["completed"].get<uint64_t>();
    most[sizeof(ChiInputFormat)] = formats - (completed - std::min(completed, keeping));
    most[sizeof(ChiStreamBuffer)] = ended;
    constexpr size_t kPointer = sizeof(uint64_t);
    for (const size_t count : inputs) { // The list has the output, too.
        for (const size_t size :
             {(count + 1) * kPointer, count * sizeof(ChiStream), count * kStreamInfo}) {
            most[size] += allowed.sessions;
        }
    }
    most[kChain] += allowed.chains;
    most[kSession] += allowed.sessions;
    return most;
}

void JudgeLeft(const Scenario& scenario, const Allowed& allowed, const json& facts,
               Finding& finding) {
    const uint64_t ended = Refused(facts, "1") + facts["unanswered"].get<uint64_t>();
    for (const auto& [kind, count] : facts["alive"].items()) {
        const auto found = allowed.left.find(kind);
        uint64_t most = found == allowed.left.end() ? 0 : found->second;
        most += kind == "metadata" ? ended : 0; // Their outputs'.
        finding.AddUnless(count.get<uint64_t>() <= most, Class::Leak, kind + " left at the vendor");
    }
    uint64_t sessions = 0; // Their records.
    const std::map<size_t, uint64_t> mayStay = BlocksThatMayStay(scenario, allowed, facts, ended);
    for (const auto& block : facts["heap"]) {
        const auto size = block[0].get<size_t>();
        sessions = size == kSession ? block[1].get<uint64_t>() : sessions;
        const auto found = mayStay.find(size);
        finding.AddUnless(found != mayStay.end() && block[1].get<uint64_t>() <= found->second,
                          Class::Leak,
                          "blocks of " + std::to_string(size) + " bytes left on the heap");
    }
    finding.AddUnless(sessions >= facts["alive"]["sessions"].get<uint64_t>(), Class::Violation,
                      "the record of a session is gone, with which the vendor may call back");
}

/// The line in which a sanitizer says what it found, or the first that there is.
std::string Complaint(const std::string& printed) {
    std::istringstream lines(printed);
    std::string first;
    for (std::string line; std::getline(lines, line);) {
        for (const char* const mark : {"SUMMARY: ", "runtime error: ", "FOUND: "}) {
            if (const size_t at = line.find(mark); at != std::string::npos) {
                return ": " + line.substr(at);
            }
        }
        first = first.empty() ? line : first;
    }
    return first.empty() ? "" : ": " + first;
}

Verdict JudgeEnd(const Scenario& scenario, bool isUsual, const kit::ChildEnd& end,
                 const std::string& said, const std::string& printed) {
    if (end.IsTimedOut()) {
        return {Class::Hang, "it was ended when its time was over"};
    }
    if (end.status == kAborted && end.signal == 0) {
        const bool isAllowed = AllowedBy(scenario.faults).abort;
        return {isAllowed ? Class::AsDocumented : Class::Crash,
                "the load ended by SIGABRT" + std::string(isAllowed ? ", as it may" : "")};
    }
    if (end.IsDead()) {
        const bool isLeak = printed.find("LeakSanitizer") != std::string::npos;
        return {isLeak ? Class::Leak : Class::Crash,
                "the process " + end.Describe() + Complaint(printed)};
    }
    const json facts = json::parse(said, nullptr, false);
    if (!facts.is_object()) {
        return {Class::Crash, "the process ended early, with status 0"};
    }
    return Judge(scenario, isUsual, facts);
}

} // namespace

const char* NameOf(Class its) {
    static constexpr const char* kNames[] = {"as documented", "leak", "violation", "hang", "crash"};
    return kNames[static_cast<size_t>(its)];
}

Verdict Judge(const Scenario& scenario, bool isUsual, const json& facts) {
    const Allowed allowed = AllowedBy(scenario.faults);
    Finding finding;
    finding.AddUnless(!allowed.abortIsDue, Class::Violation,
                      "the load should have ended by SIGABRT");
    if (isUsual) {
        for (const auto& unfulfilled : facts["unfulfilled"]) {
            finding.Add(Class::Violation, unfulfilled);
        }
    }
    JudgeRequests(scenario, allowed, facts, finding);
    const std::set<std::string> broken = JudgeRules(allowed, facts, finding);
    JudgeLeft(scenario, allowed, facts, finding);
    if (finding.Of().its == Class::AsDocumented && !broken.empty()) {
        return {Class::AsDocumented, "broken, as they may be: " + standin::Joined(broken)};
    }
    return finding.Of();
}

std::optional<Verdict> RunCell(const Target& target, const std::vector<std::string>& faults,
                               const CellSettings& settings, Counts* calls) {
    Scenario scenario = target.scenario;
    for (const std::string& fault : faults) {
        scenario.faults.push_back({fault});
    }
    const kit::UnnamedFile facts;
    const kit::UnnamedFile printed;
    const kit::UnnamedFile counts;
    const kit::ChildEnd end =
        kit::RunInChild([&] { return Work(scenario, settings.library, facts, counts, printed); },
                        {.limit = settings.limit, .takesInterrupts = true});
    if (end.wasInterrupted) {
        return std::nullopt;
    }
    if (const std::string told = ContentOf(counts);
        calls != nullptr && told.size() == sizeof *calls) {
        std::copy(told.begin(), told.end(), reinterpret_cast<char*>(calls->data()));
    }
    return JudgeEnd(scenario, faults.empty(), end, ContentOf(facts), ContentOf(printed));
}

} // namespace campaign
