/// The host as an instrument: scenarios and their mistakes, what a run finds, and its timeline.
#include "host/run.h"
#include "host/timeline.h"
#include "standin/located_json.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <unistd.h>

namespace {

using namespace host;
using standin::InputError;

/// A file that is gone after the test.
struct File {
    static inline int number = 0;
    const std::string path = testing::TempDir() + "oemlayer_host_" + std::to_string(getpid()) +
                             "_" + std::to_string(++number) + ".json";

    explicit File(const std::string& text = "") { std::ofstream(path) << text; }
    ~File() { std::filesystem::remove(path); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
};

/// What is wrong with a scenario, less the file's name; "" for nothing.
std::string ProblemOf(const std::string& text) {
    const File file(text);
    try {
        Scenario::Read(file.path);
    } catch (const InputError& error) {
        return std::string(error.what()).substr(file.path.size());
    }
    return {};
}

Outcome RunText(const std::string& text) {
    const File file(text);
    StandinControl()->Reset();
    const Scenario scenario = Scenario::Read(file.path);
    host::Run run(scenario, TEST_ADAPTER_LIBRARY);
    run.Go();
    return run.Judge();
}

/// Three requests for two features, with a fault and further words of the vendor's.
std::string WithFault(const std::string& fault, const std::string& more = "") {
    return R"({"cameras": [{"features": ["Night", "Night", "Portrait"], "frames": 2,
                            "width": 128, "height": 96}],
               "patience": 60, "vendor": {"faults": [")" +
           fault + "\"]" + more + "}}";
}

} // namespace

TEST(Scenario, NamesTheLineOfAMistakeAndWhatWasExpected) {
    const struct {
        const char* text;
        const char* problem;
    } kMistakes[] = {
        {"{\n\"cameras\": [\n{\"frames\": 13}]}",
         ":3: cameras/0/frames is 13, and must be a whole number from 1 to 12"},
        {"{\n\"cameras\": [{}, {\n\"width\":\n 130}]}",
         ":3: cameras/1/width is 130, and must be a multiple of 4 from 128 to 16384"},
        {"{\n\n\"vendor\": {\"shape\": \"round\"}}",
         ":3: vendor/shape is \"round\", and must be one of \"buffers-first\", \"error-buffer\", "
         "\"metadata-first\", \"partials\", \"second-block\", \"together\""},
        {"{\"expect\": {\"complete\": 3}}",
         ":1: 'complete' is not among the keys that there are: completed, refused, notSent, "
         "unanswered, errors, sessions, pictures, abort, violations"},
        {"{\"seed\": 1,\n\"seed\": 2}", ":2: 'seed' stands there twice"},
        {"{\"vendor\": {\"faults\": [\n\"fail OpenDoor\"]}}",
         ":2: vendor/faults/0 is \"fail OpenDoor\", and there is no entry OpenDoor at the device"},
        {"{\"vendor\": {\"faults\": [\"missing GetKeyCount\"]}}",
         ":1: vendor/faults/0 is \"missing GetKeyCount\", and GetKeyCount is in no table, so that "
         "it "
         "cannot be missing there"},
        {"{\"cameras\": [{},\n{\"id\": 0}]}", ":2: camera 0: there are two of this id"},
        {"{\"cameras\": [{\"inputs\": [\"RAW10\", \"RAW10\"]}]}",
         ":1: camera 0: two raw inputs can have 6 frames at most"},
        {"{\"cameras\": [{\"inputs\": [\"YUV\", \"RAW10\"]}]}",
         ":1: camera 0: a YUV input must be the last"},
        {"{\"cameras\": [{\"width\": 128, \"height\": 96, \"frames\": 7,\n"
         "\"inputs\": [\"RAW10\", \"YUV\"]}]}",
         ":1: camera 0: the size must be from 256 x 192 for so many frames to 16384 x 16384"},
        {"{\"cameras\": [{\"requests\": 1000000}]}",
         ":1: camera 0: the pictures of so many requests take more than 4 GiB"},
        {"{\"cameras\": [{\"flushAfter\": 3}]}",
         ":1: camera 0: flushAfter must be less than requests"},
        {"{\"cameras\": [{\"flushAfter\": 2, \"heldAtFlush\": 2, \"inFlight\": 2}]}",
         ":1: camera 0: heldAtFlush must be flushAfter at most and less than inFlight, on one "
         "camera with one thread"},
        {"{\"vendor\": {\"faults\": [\"fail CloseSession 0\"]}}",
         ":1: vendor/faults/0 is \"fail CloseSession 0\", and a count must be a number from 1 on"},
        {"{\"vendor\": {\"faults\": [\"fail CloseSession 1\", \"missing CloseSession\"]}}",
         ":1: vendor/faults/1 is \"missing CloseSession\", and is the second fault at the same "
         "place"},
        {"{\"vendor\": {\"faults\": [\"refuse /vendor/lib64/none.so\"]}}",
         ":1: vendor/faults/0 is \"refuse /vendor/lib64/none.so\", and there is no library "
         "/vendor/lib64/none.so on the device"},
        {"{\"expect\": {\"violations\": [\"V99\"]}}",
         ":1: expect/violations/0 is \"V99\", and must be the number of a rule, as in "
         "docs/contract.md"},
        {"{\"cameras\": []}", ":1: cameras is [], and must not be empty"},
        {"[1]", ":1: the file's content is [1], and must be an object with some of the keys shows, "
                "cameras, vendor, seed, patience, scene, expect"},
        {"{\"seed\":\n}", ":2: syntax error while parsing value - unexpected '}'; expected "
                          "'[', '{', or a literal"},
    };
    for (const auto& [text, problem] : kMistakes) {
        EXPECT_EQ(ProblemOf(text), problem) << text;
    }
    EXPECT_EQ(ProblemOf("{}"), "");
}

TEST(Scenario, ThatCannotBeReadIsNamedAndSoIsItsScene) {
    for (const std::string name : {"no/such.json", "/proc"}) {
        try {
            Scenario::Read(name);
            ADD_FAILURE() << name;
        } catch (const InputError& error) {
            EXPECT_EQ(error.what(), name + ": the file cannot be read");
        }
    }
    const File file("{\n\"scene\": \"none.png\"}");
    const Scenario scenario = Scenario::Read(file.path);
    try {
        const host::Run run(scenario, TEST_ADAPTER_LIBRARY);
        ADD_FAILURE();
    } catch (const InputError& error) {
        EXPECT_TRUE(std::string(error.what()).starts_with(file.path + ":2: ")) << error.what();
        EXPECT_NE(std::string(error.what()).find("none.png"), std::string::npos);
    }
}

namespace {

struct FaultCase {
    const char* fault;
    uint32_t completed;
    std::map<uint32_t, uint32_t> refused;
    uint32_t wrongPictures;
    std::set<std::string> rules; ///< That are broken.
};
void PrintTo(const FaultCase& fault, std::ostream* out) { *out << fault.fault; }
class RunWithFault : public testing::TestWithParam<FaultCase> {};

} // namespace

TEST_P(RunWithFault, FindsWhatItDoes) {
    Outcome outcome = RunText(WithFault(GetParam().fault));
    std::set<std::string> rules;
    for (const std::string& violation : outcome.violations) {
        rules.insert(violation.substr(0, violation.find(' ')));
    }
    EXPECT_EQ(outcome.completed, GetParam().completed);
    EXPECT_EQ(outcome.refused[1], GetParam().refused.contains(1) ? GetParam().refused.at(1) : 0);
    EXPECT_EQ(outcome.refused[4], GetParam().refused.contains(4) ? GetParam().refused.at(4) : 0);
    EXPECT_EQ(outcome.wrongPictures, GetParam().wrongPictures);
    EXPECT_EQ(rules, GetParam().rules) << testing::PrintToString(outcome.violations);
}

INSTANTIATE_TEST_SUITE_P(
    Each, RunWithFault,
    testing::Values(
        FaultCase{"fail OpenSession", 0, {{4, 3}}, 0, {}},
        FaultCase{"missing OpenSession", 0, {{4, 3}}, 0, {}},
        FaultCase{"fail ConfigureStreams", 0, {{4, 3}}, 0, {"V5", "V23"}},
        FaultCase{"fail ConfigureStreams 1 1", 1, {{4, 2}}, 0, {"V5", "V23"}},
        FaultCase{"missing ConfigureStreams", 0, {{4, 3}}, 0, {"V5", "V23"}},
        FaultCase{"fail ExecuteRequest", 0, {{1, 3}}, 0, {"V23"}},
        FaultCase{"missing ExecuteRequest", 0, {{1, 3}}, 0, {"V23"}},
        FaultCase{"missing TranslateToChiBuffer", 3, {}, 3, {"H4"}},
        FaultCase{"missing TranslateFromChiBuffer", 3, {}, 0, {"H4"}},
        FaultCase{"fail MetadataCreate", 3, {}, 0, {"H5"}},
        FaultCase{"fail MetadataCreateAndroid", 3, {}, 0, {"H5"}},
        FaultCase{"fail CloseSession", 3, {}, 0, {"V5"}},
        FaultCase{"refuse /vendor/lib64/hw/com.qti.chi.offline.so", 0, {}, 0, {}},
        FaultCase{"fail OpenMetadataOps", 3, {}, 0, {"H5"}},
        FaultCase{"fail OpenBufferOps", 0, {}, 0, {}},
        FaultCase{"variant /vendor/lib64/hw/camera.qcom.so camera.qcom.no-perf.so", 3, {}, 0, {}},
        FaultCase{"refuse /vendor/lib64/libcamxcommonutils.so", 3, {}, 0, {}},
        FaultCase{"variant /vendor/lib64/libcamxcommonutils.so libcamxcommonutils.no-log-entry.so",
                  3,
                  {},
                  0,
                  {}}));

TEST(Run, ComparesWithWhatIsExpected) {
    const Outcome outcome = RunText(R"({
        "cameras": [{"requests": 2, "frames": 1, "width": 128, "height": 96, "announcedSets": 13}],
        "vendor": {"faults": ["fail ExecuteRequest 5"]},
        "expect": {"completed": 1, "refused": {"1": 1}, "errors": 1, "sessions": 1,
                   "violations": ["V4"], "abort": true}})");
    const std::vector<std::string> expected{
        "completed requests: 1 expected, 0 found",
        "submissions refused with status 1: 1 expected, 0 found",
        "submissions refused with status 4: 0 expected, 2 found",
        "completions with a failure: 1 expected, 0 found",
        "sessions opened: 1 expected, 0 found",
        "rules broken: V4 expected, none found",
        "a call that was to fail ExecuteRequest 5 never came",
        "the process should have ended by SIGABRT"};
    EXPECT_EQ(outcome.unfulfilled, expected);
}

TEST(Run, CountsWhatHasNoPictureAndWhatWasNotSent) {
    const Outcome blind = RunText(WithFault("fail GetCPUAddress"));
    EXPECT_EQ(blind.completed, 3U);
    EXPECT_EQ(blind.wrongPictures, 3U);
    const Outcome none = RunText(WithFault("fail GetImageBuffer"));
    EXPECT_EQ(none.requests, 3U);
    EXPECT_EQ(none.sent, 0U);
    EXPECT_FALSE(none.unfulfilled.empty());
}

TEST(Run, ThatTheVendorDoesNotEndIsEndedByItsPatienceOrByAnInterruption) {
    const std::string silent = R"({"cameras": [{"requests": 2, "inFlight": 2, "frames": 1,
                                                "width": 128, "height": 96}],
                                   "vendor": {"delivery": "never"}, "patience": )";
    EXPECT_EQ(RunText(silent + "1}").unanswered, 2U);
    StandinControl()->Reset(); // Otherwise the first run's calls are taken for the second's.
    std::thread other([] {
        while (StandinControl()->CallCount(standin::Entry::ExecuteRequest) < 2) {
            std::this_thread::yield();
        }
        host::Run::Interrupt();
    });
    const auto start = Clock::now();
    const Outcome outcome = RunText(silent + "3600}");
    other.join();
    EXPECT_EQ(outcome.unanswered, 2U);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(60));
}

TEST(Run, ThatIsInterruptedEndsWithWhatIsInFlight) {
    const File file(R"({"cameras": [{"rate": 100, "requests": 100000, "frames": 1, "width": 128,
                                     "height": 96}], "vendor": {"latency": 20}})");
    StandinControl()->Reset();
    const Scenario scenario = Scenario::Read(file.path);
    host::Run run(scenario, TEST_ADAPTER_LIBRARY);
    std::thread other([&] {
        while (StandinControl()->CallCount(standin::Entry::ExecuteRequest) < 3) {
            std::this_thread::yield();
        }
        host::Run::Interrupt();
    });
    run.Go();
    other.join();
    const Outcome outcome = run.Judge();
    EXPECT_TRUE(outcome.wasInterrupted);
    EXPECT_EQ(outcome.unanswered, 0U);
    EXPECT_GE(outcome.completed, 3U);
    EXPECT_LT(outcome.completed, 100000U);
    EXPECT_EQ(outcome.violations, std::vector<std::string>{});
}

// --- The timeline -------------------------------------------------------------------------------

namespace {

using nlohmann::json;

struct Lane {
    std::string name;
    std::vector<std::string> open; ///< Slices, from the outermost.
    double last = 0;
    std::set<std::string> slices;
};

/// Reads a trace lane by lane, as a viewer does. What cannot be shown is a failure.
struct Trace {
    std::map<int, Lane> lanes;
    std::map<int64_t, std::string> arrows; ///< The phases of each, in the order of time.
    std::vector<int64_t> counts;

    explicit Trace(const std::string& file) {
        std::ifstream in(file);
        auto events = json::parse(in).at("traceEvents").get<std::vector<json>>();
        for (const json& event : events) {
            ReadInOrderOfFile(event);
        }
        std::erase_if(events, [](const json& event) { return !event.contains("id"); });
        std::stable_sort(events.begin(), events.end(), [](const json& one, const json& other) {
            return one.at("ts") < other.at("ts");
        });
        for (const json& event : events) {
            arrows[event.at("id").get<int64_t>()] += event.at("ph").get<std::string>();
        }
    }

    void ReadInOrderOfFile(const json& event) {
        const std::string phase = event.at("ph");
        if (phase == "M") {
            if (event.at("name") == "thread_name") {
                lanes[event.at("tid")].name = event.at("args").at("name");
            }
            return;
        }
        Lane& lane = lanes.at(event.at("tid"));
        EXPECT_LE(lane.last, event.at("ts").get<double>()) << lane.name << ": " << event;
        lane.last = event.at("ts");
        if (phase == "B") {
            lane.open.push_back(event.at("name"));
            lane.slices.insert(event.at("name"));
        } else if (phase == "E") {
            ASSERT_FALSE(lane.open.empty()) << lane.name << ": " << event;
            lane.open.pop_back();
        } else if (phase == "C") {
            counts.push_back(event.at("args").at("requests"));
        } else {
            EXPECT_FALSE(lane.open.empty()) << "an arrow at nothing: " << event;
        }
    }
};

} // namespace

TEST(Timeline, HasALaneForEachThreadWithSlicesThatNestAndArrowsFromSubmissionToCompletion) {
    const File scenarioFile(R"({
        "cameras": [{"requests": 6, "threads": 2, "features": ["Night", "Hdr"], "frames": 1,
                     "width": 128, "height": 96}],
        "vendor": {"latency": 20}})"); // Long enough for both threads to get something to do.
    const File traceFile;
    const Scenario scenario = Scenario::Read(scenarioFile.path);
    timeline::Start();
    host::Run run(scenario, TEST_ADAPTER_LIBRARY);
    run.Go();
    timeline::Write(traceFile.path);
    const Trace trace(traceFile.path);

    std::map<std::string, std::set<std::string>> slices;
    for (const auto& [number, lane] : trace.lanes) {
        EXPECT_EQ(lane.open, std::vector<std::string>{}) << lane.name;
        const bool isVendor = lane.name.starts_with("vendor session ");
        slices[isVendor ? "vendor" : lane.name].insert(lane.slices.begin(), lane.slices.end());
    }
    const auto has = [&](const std::string& lane, const std::vector<std::string>& wanted) {
        for (const std::string& slice : wanted) {
            EXPECT_TRUE(slices[lane].contains(slice)) << lane << " lacks " << slice;
        }
    };
    has("host", {"load", "OpenContext", "create camera", "flush", "CloseSession", "destroy camera",
                 "PlatformAdapter_TearDownResource"});
    has("host camera 0, thread 0", {"prepare", "submit", "ExecuteRequest"});
    has("vendor", {"develop", "deliver", "result", "release", "completion"});
    EXPECT_EQ(trace.lanes.size(), 1U + 1U + 2U + 2U) << "counter, host, two threads, two sessions";

    EXPECT_EQ(trace.arrows.size(), 6U);
    for (const auto& [id, phases] : trace.arrows) {
        EXPECT_EQ(phases, "sttf") << id;
    }
    EXPECT_EQ(trace.counts.size(), 12U);
    EXPECT_EQ(trace.counts.back(), 0);
    EXPECT_LE(*std::max_element(trace.counts.begin(), trace.counts.end()), 2);
}

TEST(Timeline, ThatCannotBeWrittenIsNamed) {
    timeline::Start();
    try {
        timeline::Write("/proc/no/trace.json");
        ADD_FAILURE();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "/proc/no/trace.json: the trace cannot be written");
    }
}
