/// The host as an instrument: scenarios and their mistakes, what a run finds, and its timeline.
#include "host/junit.h"
#include "host/run.h"
#include "standin/located_json.h"
#include "tests/support/device.h"
#include "view/timeline.h"

#include <set>

namespace {

using namespace host;
using test::Folder;
using test::Texts;
using test::Thrown;

Outcome RunText(const std::string& text) {
    const Folder folder;
    StandinControl()->Reset();
    const Scenario scenario = Scenario::Read(folder.Write("scenario.json", text));
    host::Run run(scenario, kit::AdapterFile(false), {});
    run.Go();
    return run.Judge();
}

/// The same, interrupted once the vendor got so many requests.
Outcome RunInterrupted(const std::string& text, size_t requests) {
    StandinControl()->Reset(); // Otherwise an earlier run's calls are taken for this one's.
    std::thread other([requests] {
        while (StandinControl()->CallCount(standin::Entry::ExecuteRequest) < requests) {
            std::this_thread::yield();
        }
        host::Run::Interrupt();
    });
    Outcome outcome = RunText(text);
    other.join();
    return outcome;
}

/// Three requests for two features, with a fault of the vendor's and what is expected then.
std::string WithFault(const std::string& fault, const std::string& expect = "") {
    return R"({"cameras": [{"features": ["Night", "Night", "Portrait"], "frames": 2,
                            "width": 128, "height": 96}],
               "patience": 60, "vendor": {"faults": [")" +
           fault + R"("]}, "expect": {)" + expect + "}}";
}

using Mistakes = const std::pair<std::string, std::string>[];

TEST(Scenario, NamesTheLineOfAMistakeAndWhatWasExpected) {
    static Mistakes anywhere = {
        {"{\n\"cameras\": [\n{\"frames\": 13}]}",
         "3: cameras/0/frames is 13, and must be a whole number from 1 to 12"},
        {"{\n\"cameras\": [{}, {\n\"width\":\n 130}]}",
         "3: cameras/1/width is 130, and must be a multiple of 4 from 128 to 16384"},
        {"{\n\n\"vendor\": {\"shape\": \"round\"}}",
         R"(3: vendor/shape is "round", and must be one of "buffers-first", "error-buffer", )"
         R"("metadata-first", "partials", "second-block", "together")"},
        {R"({"expect": {"complete": 3}})",
         "1: 'complete' is not among the keys that there are: completed, refused, notSent, "
         "unanswered, errors, sessions, pictures, abort, violations; did you mean 'completed'?"},
        {R"({"vendor": {"order": "suffled"}})",
         R"(1: vendor/order is "suffled", and must be one of "in-order", "shuffled"; did you )"
         "mean 'shuffled'?"},
        {"{\"seed\": 1,\n\"seed\": 2}", "2: 'seed' stands there twice"},
        {"{\"vendor\": {\"faults\": [\n\"fail OpenDoor\"]}}",
         R"(2: vendor/faults/0 is "fail OpenDoor", and there is no entry OpenDoor at the device)"},
        {R"({"vendor": {"faults": ["fail CloseSession 1", "missing CloseSession"]}})",
         R"(1: vendor/faults/1 is "missing CloseSession", and is the second fault at the same )"
         "place"},
        {"{\"cameras\": [{},\n{\"id\": 0}]}", "2: camera 0: there are two of this id"},
        {R"({"expect": {"violations": ["V99"]}})",
         R"(1: expect/violations/0 is "V99", and must be the number of a rule, as in )"
         "docs/contract.md"},
        {R"({"expect": {"violations": ["v23"]}})",
         R"(1: expect/violations/0 is "v23", and must be the number of a rule, as in )"
         "docs/contract.md; did you mean 'V23'?"},
        {R"({"cameras": []})", "1: cameras is [], and must not be empty"},
        {"[1]", "1: the file's content is [1], and must be an object with some of the keys shows, "
                "cameras, vendor, seed, patience, scene, expect"},
        {"{\"seed\":\n}", "2: syntax error while parsing value - unexpected '}'; expected "
                          "'[', '{', or a literal"},
    };
    static Mistakes ofACamera = {
        {R"("inputs": ["RAW10", "RAW10"])", "two raw inputs can have 6 frames at most"},
        {R"("inputs": ["YUV", "RAW10"])", "a YUV input must be the last"},
        {"\"width\": 128, \"height\": 96, \"frames\": 7,\n\"inputs\": [\"RAW10\", \"YUV\"]",
         "the size must be from 256 x 192 for so many frames to 16384 x 16384"},
        {R"("requests": 1000000)", "the pictures of so many requests take more than 4 GiB"},
        {R"("flushAfter": 3)", "flushAfter must be less than requests"},
        {R"("flushAfter": 2, "heldAtFlush": 2, "inFlight": 2)",
         "heldAtFlush must be flushAfter at most and less than inFlight, on one camera with one "
         "thread"},
    };
    static Mistakes inAFault = {
        {"missing GetKeyCount", "GetKeyCount is in no table, so that it cannot be missing there"},
        {"missing CloseSesion",
         "there is no entry CloseSesion at the device; did you mean 'CloseSession'?"},
        {"refuse /vendor/lib64/camera.qcom.so",
         "there is no library on the device at /vendor/lib64/camera.qcom.so; did you mean "
         "'/vendor/lib64/hw/camera.qcom.so'?"},
        {"fail CloseSession 0", "a count must be a number from 1 on"},
        {"refuse /vendor/lib64/none.so",
         "there is no library on the device at /vendor/lib64/none.so"},
    };
    const Folder folder;
    const auto expect = [&](const std::string& text, const std::string& problem) {
        const std::string file = folder.Write("a.json", text);
        EXPECT_EQ(Thrown([&] { Scenario::Read(file); }), file + ":" + problem) << text;
    };
    for (const auto& [text, problem] : anywhere) {
        expect(text, problem);
    }
    for (const auto& [camera, problem] : ofACamera) {
        expect(R"({"cameras": [{)" + camera + "}]}", "1: camera 0: " + problem);
    }
    for (const auto& [fault, problem] : inAFault) {
        expect(WithFault(fault), test::Printed("3: vendor/faults/0 is \"%s\", and %s",
                                               fault.c_str(), problem.c_str()));
    }
    EXPECT_EQ(Thrown([&] { Scenario::Read(folder.Write("a.json", "{}")); }), "");
}

TEST(Scenario, ThatCannotBeReadIsNamedAndSoIsItsScene) {
    for (const std::string name : {"no/such.json", "/proc"}) {
        EXPECT_EQ(Thrown([&] { Scenario::Read(name); }), name + ": the file cannot be read");
    }
    const Folder folder;
    const std::string file = folder.Write("a.json", "{\n\"scene\": \"none.png\"}");
    const Scenario scenario = Scenario::Read(file);
    const std::string problem =
        Thrown([&] { const host::Run run(scenario, kit::AdapterFile(false), {}); });
    EXPECT_TRUE(problem.starts_with(file + ":2: ")) << problem;
    EXPECT_NE(problem.find("none.png"), std::string::npos);
}

struct FaultCase {
    const char* fault;
    const char* expect;           ///< Of a scenario.
    const char* unfulfilled = ""; ///< What has no word there.
};
void PrintTo(const FaultCase& fault, std::ostream* out) { *out << fault.fault; }
class RunWithFault : public testing::TestWithParam<FaultCase> {};

constexpr const char kRefused[] = R"("completed": 0, "refused": {"4": 3})";
constexpr const char kNotConfigured[] =
    R"("completed": 0, "refused": {"4": 3}, "violations": ["V5", "V23"])";
constexpr const char kNotExecuted[] =
    R"("completed": 0, "refused": {"1": 3}, "violations": ["V23"])";
constexpr const char kNotSent[] = R"("completed": 0, "notSent": 3)";
constexpr const char kNoMetadata[] = R"("violations": ["H5"])";
constexpr const char kNoBuffer[] = R"("violations": ["H4"])";
constexpr FaultCase kFaults[] = {
    {"fail OpenSession", kRefused},
    {"missing OpenSession", kRefused},
    {"fail OpenSession 1 1", R"("completed": 1, "refused": {"4": 2})"},
    {"fail OpenSession 2 1", R"("completed": 2, "refused": {"4": 1})"},
    {"fail ConfigureStreams", kNotConfigured},
    {"fail ConfigureStreams 1 1",
     R"("completed": 1, "refused": {"4": 2}, "violations": ["V5", "V23"])"},
    {"missing ConfigureStreams", kNotConfigured},
    {"fail ExecuteRequest", kNotExecuted},
    {"missing ExecuteRequest", kNotExecuted},
    {"missing TranslateToChiBuffer", kNoBuffer, "wrong pictures: 0 expected, 3 found"},
    {"missing TranslateFromChiBuffer", kNoBuffer},
    {"fail GetCPUAddress", "", "wrong pictures: 0 expected, 3 found"},
    {"fail GetImageBuffer", kNotSent},
    {"fail MetadataCreate", ""},
    {"fail MetadataCreateAndroid", kNoMetadata},
    {"fail OpenMetadataOps", ""},
    {"fail CloseSession", R"("violations": ["V5"])"},
    {"fail OpenBufferOps", kNotSent},
    {"refuse /vendor/lib64/hw/com.qti.chi.offline.so", kNotSent},
    {"refuse /vendor/lib64/libcamxcommonutils.so", ""},
    {"variant /vendor/lib64/hw/camera.qcom.so camera.qcom.no-perf.so", ""},
    {"variant /vendor/lib64/libcamxcommonutils.so libcamxcommonutils.no-log-entry.so", ""},
};

TEST_P(RunWithFault, FindsWhatItDoes) {
    const Outcome outcome = RunText(WithFault(GetParam().fault, GetParam().expect));
    const std::string unfulfilled = GetParam().unfulfilled;
    EXPECT_EQ(outcome.unfulfilled, unfulfilled.empty() ? Texts() : Texts{unfulfilled})
        << outcome.violations.size() << " violations";
}

INSTANTIATE_TEST_SUITE_P(Each, RunWithFault, testing::ValuesIn(kFaults));

TEST(Run, ComparesWithWhatIsExpected) {
    const Outcome outcome = RunText(R"({
        "cameras": [{"requests": 2, "frames": 1, "width": 128, "height": 96, "announcedSets": 13}],
        "vendor": {"faults": ["fail ExecuteRequest 5"]},
        "expect": {"completed": 1, "refused": {"1": 1}, "errors": 1, "sessions": 1,
                   "violations": ["V4"], "abort": true}})");
    const Texts expected{
        "completed requests: 1 expected, 0 found",
        "submissions refused with status 1: 1 expected, 0 found",
        "submissions refused with status 4: 0 expected, 2 found",
        "completions with a failure: 1 expected, 0 found",
        "sessions opened: 1 expected, 0 found",
        "rules broken: V4 expected, none found",
        "the fault \"fail ExecuteRequest 5\": reached expected, never reached found",
        "the process should have ended by SIGABRT"};
    EXPECT_EQ(outcome.unfulfilled, expected);
}

TEST(JUnit, HasNoTextThatXmlForbids) {
    static Mistakes texts = {
        {"a < b && \"c\" > d", "a &lt; b &amp;&amp; &quot;c&quot; &gt; d"},
        {"tab\tand\nline", "tab\tand\nline"},
        {"\033[31mred\r", "\xEF\xBF\xBD[31mred\xEF\xBF\xBD"},
        {std::string("a\0b", 3), "a\xEF\xBF\xBD"
                                 "b"},
        {"\xC3\xA9 is one, \xC3 and \xFF are none",
         "\xC3\xA9 is one, \xEF\xBF\xBD and \xEF\xBF\xBD are none"},
        {"no character: \xEF\xBF\xBF", "no character: \xEF\xBF\xBD"},
    };
    for (const auto& [text, escaped] : texts) {
        EXPECT_EQ(XmlText(text), escaped) << text;
    }
}

constexpr const char kSilent[] = R"({"cameras": [{"requests": 2, "inFlight": 2, "frames": 1,
                                                  "width": 128, "height": 96}],
                                     "vendor": {"delivery": "never"}, "patience": )";

TEST(Run, ThatTheVendorDoesNotEndIsEndedByItsPatience) {
    EXPECT_EQ(RunText(std::string(kSilent) + "1}").unanswered, 2U);
}

TEST(Run, ThatTheVendorDoesNotEndIsEndedByAnInterruption) {
    const auto start = Clock::now();
    EXPECT_EQ(RunInterrupted(std::string(kSilent) + "3600}", 2).unanswered, 2U);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(60));
}

TEST(Run, ThatIsInterruptedEndsWithWhatIsInFlight) {
    const Outcome outcome = RunInterrupted(R"({
        "cameras": [{"rate": 100, "requests": 10000, "frames": 1, "width": 128, "height": 96}],
        "vendor": {"latency": 20}})",
                                           3);
    EXPECT_TRUE(outcome.wasInterrupted);
    EXPECT_EQ(outcome.unanswered, 0U);
    EXPECT_GE(outcome.completed, 3U);
    EXPECT_LT(outcome.completed, 10000U);
    EXPECT_TRUE(outcome.violations.empty());
}

TEST(Run, IsFlushedThoughTheRequestBeforeWhichThatIsDueIsDropped) {
    const Outcome outcome = RunText(R"({
        "cameras": [{"requests": 3, "flushAfter": 1, "frames": 1, "width": 128, "height": 96}],
        "vendor": {"faults": ["fail GetImageBuffer 2 1"]},
        "expect": {"completed": 2, "notSent": 1, "sessions": 2}})");
    EXPECT_EQ(outcome.unfulfilled, Texts{});
}

TEST(Run, HasAPictureOfEachKindOfInputThatTheAdapterFeeds) {
    std::string cameras; // Up to the fourth, each has a sensor of its own.
    for (const char* plan : {
             R"("inputs": ["RAW10"], "frames": 12)",
             R"("inputs": ["RAW16"], "frames": 8)",
             R"("inputs": ["RAW10"], "frames": 2)",
             R"("inputs": ["RAW16"], "frames": 1)",
             R"("inputs": ["YUV"], "frames": 8)",
             R"("inputs": ["RAW10", "YUV"], "frames": 2)",
             R"("inputs": ["RAW10", "RAW10"], "frames": 4)",
             R"("inputs": ["RAW16", "RAW16", "YUV"], "frames": 1)",
         }) {
        cameras += std::string(cameras.empty() ? "" : ",") + "{" + plan +
                   R"(, "requests": 1, "width": 256, "height": 192})";
    }
    const Outcome outcome = RunText(R"({"cameras": [)" + cameras + "]}");
    EXPECT_EQ(outcome.completed, 8U);
    EXPECT_EQ(outcome.unfulfilled, Texts{});
}

using nlohmann::json;

struct Lane {
    std::string name;
    Texts open; ///< Slices, from the outermost.
    double last = 0;
};

/// Reads a trace lane by lane, as a viewer does. What cannot be shown is a failure.
struct Trace {
    std::map<int, Lane> lanes;
    std::map<std::string, std::set<std::string>> slices; ///< Of each lane, or of all the vendor's.
    std::map<int64_t, std::multimap<double, std::string>> arrows; ///< The phases by time.
    std::vector<int64_t> counts;

    explicit Trace(const std::string& text) {
        for (const json& event : json::parse(text).at("traceEvents").get<std::vector<json>>()) {
            Read(event);
        }
    }

    void Read(const json& event) {
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
            const bool isVendor = lane.name.starts_with("vendor session ");
            slices[isVendor ? "vendor" : lane.name].insert(event.at("name"));
        } else if (phase == "C") {
            counts.push_back(event.at("args").at("requests"));
        } else {
            ASSERT_FALSE(lane.open.empty()) << lane.name << ": nothing for " << event;
            if (phase == "E") {
                lane.open.pop_back();
            } else {
                arrows[event.at("id").get<int64_t>()].emplace(lane.last, phase);
            }
        }
    }
};

TEST(Timeline, HasALaneForEachThreadWithSlicesThatNestAndArrowsFromSubmissionToCompletion) {
    const Folder folder;
    const std::string file = folder.Write("a.json", R"({
        "cameras": [{"requests": 6, "threads": 2, "features": ["Night", "Hdr"], "frames": 1,
                     "width": 128, "height": 96}],
        "vendor": {"latency": 20}})"); // Long enough for both threads to get something to do.
    const Scenario scenario = Scenario::Read(file);
    host::Run run(scenario, kit::AdapterFile(false), {});
    run.Go();
    Trace trace(view::TimelineOf(run.Told().story, run.Told().Start()));

    for (const auto& [number, lane] : trace.lanes) {
        EXPECT_EQ(lane.open, Texts{}) << lane.name;
    }
    const auto has = [&](const std::string& lane, const std::set<std::string>& wanted) {
        EXPECT_TRUE(std::includes(trace.slices[lane].begin(), trace.slices[lane].end(),
                                  wanted.begin(), wanted.end()))
            << lane << " has " << testing::PrintToString(trace.slices[lane]);
    };
    has("host", {"loadLib", "OpenContext", "Create", "Flush", "CloseSession", "Destroy"});
    has("host camera 0, thread 0", {"GetImageBuffer", "SubmitRequestFromRT", "ExecuteRequest"});
    has("vendor",
        {"ProcessCaptureResultCb", "captureResult", "releaseRtBuffers", "requestComplete"});
    EXPECT_EQ(trace.lanes.size(), 1U + 1U + 2U + 2U) << "counter, host, two threads, two sessions";

    EXPECT_EQ(trace.arrows.size(), 6U);
    for (const auto& [id, phases] : trace.arrows) {
        std::string inOrder;
        for (const auto& [time, phase] : phases) {
            inOrder += phase;
        }
        EXPECT_EQ(inOrder, "sttf") << id;
    }
    EXPECT_EQ(trace.counts.size(), 12U);
    EXPECT_EQ(trace.counts.back(), 0);
    EXPECT_LE(*std::max_element(trace.counts.begin(), trace.counts.end()), 2);
}

TEST(Run, NamesARecordingThatCannotBeMade) {
    const Folder folder;
    const Scenario scenario = Scenario::Read(folder.Write("a.json", "{}"));
    for (const std::string& file :
         {folder / "", std::string("/dev/full"), folder / "no/such", folder / "#1"}) {
        const std::string problem =
            Thrown([&] { const host::Run run(scenario, kit::AdapterFile(false), {.file = file}); });
        EXPECT_TRUE(problem.starts_with(file + ": no recording can be made here: ")) << problem;
    }
}

} // namespace
