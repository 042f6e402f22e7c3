/// Forks for a run, and reports what it or its recording tells.
#include "host/isolated.h"

#include "host/report.h"
#include "kit/library.h"
#include "view/timeline.h"

#include <filesystem>
#include <fstream>

namespace host {

using nlohmann::ordered_json;

namespace {

constexpr char kFailure[] = "failure"; // The key of why there was no run.

view::ReportCamera Describe(const CameraPlan& plan) {
    std::vector<std::string> inputs;
    for (const int32_t input : plan.inputs) {
        inputs.push_back(NameOfFormat(input));
    }
    return {.camera = plan.id,
            .features = plan.features,
            .inputs = inputs,
            .requests = plan.requests,
            .frames = plan.frames,
            .width = plan.width,
            .height = plan.height,
            .rate = plan.rate,
            .threads = plan.threads};
}

} // namespace

Isolated::Isolated(const Scenario& scenario, Settings settings)
    : mScenario(scenario), mSettings(std::move(settings)), mRecording(mSettings.record) {}

view::ReportFacts Isolated::Facts() const {
    view::ReportFacts facts;
    facts.isRun = true;
    facts.command = mSettings.command;
    facts.scenario = mScenario.name;
    if (!mScenario.shows.empty()) {
        facts.shows = mScenario.shows;
    }
    facts.seed = mScenario.seed;
    facts.adapter = std::filesystem::proximate(mSettings.library).string();
    facts.buildId = kit::BuildIdOf(mSettings.library);
    for (const CameraPlan& plan : mScenario.cameras) {
        facts.cameras.push_back(Describe(plan));
    }
    facts.log = mLog.Read();
    return facts;
}

// --- In the run's process -----------------------------------------------------------------------

void Isolated::Say(const ordered_json& said) const {
    std::ofstream(mSaid.Path()) << said.dump(-1, ' ', false,
                                             ordered_json::error_handler_t::replace);
}

void Isolated::Keep(const Run& run, const Outcome& outcome) const {
    view::ReportFacts facts = Facts();
    const bool isGood = outcome.unfulfilled.empty();
    facts.status = outcome.wasInterrupted ? "interrupted" : isGood ? "passed" : "failed";
    facts.text = TextOf(outcome);
    for (const std::string& unfulfilled : outcome.unfulfilled) {
        facts.text += "; " + unfulfilled;
    }
    facts.expectations = outcome.expectations;
    facts.rows = run.Rows();
    facts.violations = outcome.violations;
    Say(view::MakeReport(&run.Told(), facts));
    if (mSettings.hasPage) {
        auto pictures = ordered_json::array();
        for (const view::Picture& picture : run.Pictures()) {
            pictures.push_back({picture.title, picture.note,
                                ordered_json::binary({picture.png.begin(), picture.png.end()})});
        }
        std::ofstream out(mPictures.Path(), std::ios::binary);
        ordered_json::to_cbor(pictures, out);
    }
}

// --- Around it ----------------------------------------------------------------------------------

std::vector<view::Picture> Isolated::Pictures() const {
    std::vector<view::Picture> pictures;
    std::ifstream in(mPictures.Path(), std::ios::binary);
    const auto kept = ordered_json::from_cbor(in, true, false);
    for (size_t i = 0; kept.is_array() && i < kept.size(); ++i) {
        const auto& bytes = kept[i][2].get_binary();
        pictures.push_back({kept[i][0], kept[i][1], {bytes.begin(), bytes.end()}});
    }
    return pictures;
}

ordered_json Isolated::Heard() const {
    std::ifstream in(mSaid.Path());
    const ordered_json heard = ordered_json::parse(in, nullptr, false);
    return heard.is_object() ? heard : ordered_json::object();
}

Isolated::Ended Isolated::Go(const std::function<int()>& work,
                             const std::function<int(const std::exception&)>& statusOf,
                             std::chrono::seconds limit) const {
    const auto act = [&] {
        try {
            return work();
        } catch (const std::exception& error) {
            (void)fprintf(stderr, "%s\n", error.what());
            Say({{kFailure, error.what()}});
            return statusOf(error);
        }
    };
    Ended ended{{}, kit::RunInChild(act, {.limit = limit, .takesInterrupts = true})};
    ended.report = Heard();
    if (!ended.report.contains("result") || ended.end.signal != 0) {
        ended.report = ReportOfEnd(ended.end, ended.report.value(kFailure, ""));
    } else if (ended.end.status != 0 && ended.report["result"]["status"] == "passed") {
        // Something beside the run: a file that could not be written, or a leak.
        Blame(ended, "the process " + ended.end.Describe());
    }
    return ended;
}

void Isolated::Blame(Ended& ended, const std::string& problem) {
    if (problem.empty()) {
        return;
    }
    ordered_json& result = ended.report["result"];
    if (result["status"] == "passed") {
        result["status"] = "failed";
    }
    result["text"] = result["text"].get<std::string>() + "; " + problem;
    ended.end.status = ended.end.IsDead() ? ended.end.status : 1;
}

/// What the run has recorded, if anything; else why not.
std::unique_ptr<view::Told> Isolated::ToldBy(const kit::ChildEnd& end, std::string* problem) const {
    try {
        if (contract::WriterOf(Recording()) == static_cast<uint32_t>(end.process)) {
            return std::make_unique<view::Told>(Recording());
        }
    } catch (const contract::RecordingError& error) {
        if (problem != nullptr) {
            *problem = error.what();
        }
    }
    return nullptr;
}

std::optional<std::string> Isolated::TraceOf(const Ended& ended) const {
    const auto told = ToldBy(ended.end);
    return told != nullptr ? std::optional(view::TimelineOf(told->story, told->Start()))
                           : std::nullopt;
}

std::string Isolated::PageOf(const Ended& ended) const {
    const auto told = ToldBy(ended.end); // The report says why not.
    return view::MakePage(ended.report, told.get(), Pictures());
}

/// Of a run that did not say itself what came of it.
ordered_json Isolated::ReportOfEnd(const kit::ChildEnd& end, const std::string& failure) const {
    view::ReportFacts facts = Facts();
    Classify(end, failure, facts);
    std::string damage = "nothing was recorded";
    const auto told = ToldBy(end, &damage);
    if (told != nullptr) {
        const view::ReportFacts recorded = FactsOf(*told);
        facts.rows = recorded.rows;
        facts.violations = recorded.violations;
    }
    return MakeReport(told.get(), facts, damage);
}

void Isolated::Classify(const kit::ChildEnd& end, const std::string& failure,
                        view::ReportFacts& facts) const {
    const bool isAbort = mScenario.expect.abort && failure.empty() && end.signal == 0;
    const bool isExpected = isAbort && end.status == 0;
    facts.signal = isAbort ? SIGABRT : end.signal;
    const std::string how = isAbort        ? "ended by SIGABRT"
                            : end.IsDead() ? end.Describe()
                                           : "ended early, with status 0";
    facts.text = "the process " + how;
    if (!failure.empty()) {
        facts.status = "failed";
        facts.text = failure;
        return;
    }
    const bool isInterrupted =
        end.wasInterrupted && (end.signal == SIGINT || end.signal == SIGTERM);
    facts.status = isExpected         ? "passed"
                   : isInterrupted    ? "interrupted"
                   : end.IsTimedOut() ? "timed out"
                                      : "crashed";
    facts.expectations.push_back({kEnd, mScenario.expect.abort ? kAbort : "as usual",
                                  isExpected ? kAbort : how, isExpected});
}

} // namespace host
