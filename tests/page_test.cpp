/// Pages and their reports: what is in them of much, and what no text can do to them.
#include "contract/rules.h"
#include "tests/support/device.h"
#include "tests/support/script.h"
#include "view/page.h"
#include "view/report_json.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>

namespace {

using contract::Entry;
using nlohmann::json;
using nlohmann::ordered_json;
using test::Folder;
using test::Script;
using view::ReportFacts;
using view::Told;

/// The JSON of one of a page's scripts: "report", "trace" or "picture".
json DataOf(const std::string& page, const std::string& name) {
    const std::string mark = "<script type=\"application/json\" id=\"" + name + "-data\">";
    const size_t start = page.find(mark) + mark.size();
    return json::parse(page.substr(start, page.find("</script", start) - start));
}

size_t CountScripts(const std::string& page) {
    size_t scripts = 0;
    for (size_t at = page.find("<script"); at != page.npos; at = page.find("<script", at + 1)) {
        ++scripts;
    }
    return scripts;
}
constexpr size_t kScripts = 4; ///< Of the template.

TEST(Page, HasItsDataAsJsonThatEndsNoScript) {
    const std::string report = R"({"a":"</script><!--<script>&lt;{{trace}}\\"})";
    const std::string trace = R"({"traceEvents":[]})";
    const std::string page = view::MakePage(
        report, trace,
        {{"<b>", "", "M"}, {"two", "note", std::string("Ma\0\xff", 4)}, {"", "", ""}});
    EXPECT_EQ(DataOf(page, "report"), json::parse(report));
    EXPECT_EQ(DataOf(page, "trace"), json::parse(trace));
    const json pictures = DataOf(page, "picture");
    ASSERT_EQ(pictures.size(), 3U);
    EXPECT_EQ(pictures[0]["title"], "<b>");
    EXPECT_EQ(pictures[0]["data"], "data:image/png;base64,TQ==");
    EXPECT_EQ(pictures[1]["data"], "data:image/png;base64,TWEA/w==");
    EXPECT_EQ(pictures[2]["data"], "data:image/png;base64,");
    EXPECT_EQ(CountScripts(page), kScripts);
}

/// Of a vendor, who may say anything.
TEST(Page, HasTextsThatAreNeitherMarkupNorUtf8) {
    const std::pair<const char*, const char*> cases[] = {
        {"</script><script>alert(1)</script>", "</script><script>alert(1)</script>"},
        {"<!--<script>", "<!--<script>"},
        {R"(quotes " ' \ {{pictures}} &quot;)", R"(quotes " ' \ {{pictures}} &quot;)"},
        {"\xff\xfe<", "\uFFFD\uFFFD<"},
        {"cut \xe2\x82", "cut \uFFFD"},
        {"\xf0\x9f\x93\xb7 \x01", "\xf0\x9f\x93\xb7 \x01"},
    };
    const Folder folder;
    for (const auto& [text, expected] : cases) {
        Script script;
        script.Return(script.Submit(0, 0xa00, 101, text));
        const Told told(folder.Write("a.rec", script.File()));
        ReportFacts facts = view::FactsOf(told);
        facts.log.push_back({1, 4, text, text});
        const ordered_json report = view::MakeReport(&told, facts);
        const std::string page = view::MakePage(report, &told, {});
        EXPECT_EQ(CountScripts(page), kScripts) << text;
        const json shown = DataOf(page, "report");
        EXPECT_EQ(shown["requests"][0]["feature"], expected);
        EXPECT_EQ(shown["log"][0]["text"], expected);
        EXPECT_EQ(DataOf(page, "picture"), json::array());
        EXPECT_EQ(json::parse(view::TextOf(report))["log"][0]["tag"], expected);
    }
}

constexpr uint32_t kMany = 1500;
/// How long a request took, in microseconds: each from 1 to `kMany` once.
constexpr uint32_t Took(uint32_t request) { return request * 7919 % kMany + 1; }
uint32_t TookFrame(const json& request) { return Took(request.at("frame").get<uint32_t>()); }

/// Requests with these frames, from 0 on. The slowest one is refused, and the three fastest fail.
Script ManyRequests() {
    Script script;
    for (uint32_t frame = 0; frame < kMany; ++frame) {
        const bool isRefused = Took(frame) == kMany;
        const uint64_t began = script.time;
        script.Return(script.Submit(0, 0xa000 + frame, frame), isRefused ? 22 : 0);
        if (!isRefused) {
            script.time = began + 1000 * uint64_t{Took(frame)};
            script.Both(Entry::RequestComplete, {0, 0xa000 + frame, Took(frame) <= 3 ? 1U : 0U});
        }
        script.time = began + 10'000'000;
    }
    return script;
}

/// Request 10, by its slowness, broke a rule.
ReportFacts FactsOfMany(const Told& told) {
    ReportFacts facts;
    facts.rows = view::RowsOf(told.story);
    for (const view::Row& row : facts.rows) {
        if (Took(row.request.frame) == 10) {
            facts.violations.push_back({.rule = contract::Rule::ResultFrame,
                                        .event = 0,
                                        .text = "",
                                        .camera = 0,
                                        .request = row.request.frame});
        }
    }
    return facts;
}

/// Those that are kept, by their slowness.
std::set<uint32_t> KeptOf(const json& report) {
    std::set<uint32_t> kept;
    uint32_t last = 0;
    for (const json& request : report.at("requests")) {
        const uint32_t frame = request.at("frame");
        EXPECT_TRUE(kept.empty() || frame > last) << "they stay in their order";
        last = frame;
        kept.insert(TookFrame(request));
    }
    return kept;
}

/// What went wrong, and the slowest.
std::set<uint32_t> Expected(uint32_t count) {
    std::set<uint32_t> kept{1, 2, 3, 10, kMany};
    for (uint32_t took = kMany - 1; kept.size() < count; --took) {
        kept.insert(took);
    }
    return kept;
}

TEST(Page, OfManyRequestsHasTheBadOnesAndTheSlowest) {
    const Folder folder;
    const Told told(folder.Write("a.rec", ManyRequests().File()));
    const ordered_json report = view::MakeReport(&told, FactsOfMany(told));
    for (const bool hasRecording : {false, true}) {
        const std::string page = view::MakePage(report, hasRecording ? &told : nullptr, {});
        const json shown = DataOf(page, "report");
        EXPECT_LE(page.size(), 3'000'000U);
        EXPECT_EQ(KeptOf(shown), Expected(1024));
        const json& left = shown.at("leftOut");
        // Of those that are left out, the submission and the completion.
        const uint32_t calls = hasRecording ? 2 * (kMany - 1024) : 0;
        const json counts{{"requests", kMany - 1024},
                          {"sessions", 0},
                          {"violations", 0},
                          {"log", 0},
                          {"calls", calls}};
        EXPECT_EQ(left.at("counts"), counts);
        EXPECT_EQ(left.at("of").at("requests"), kMany);
        // The refused one has returned, and was not completed.
        const json latencies{{"returned", {{"ranks", {1, 1, 1, 1}}, {"count", kMany}}},
                             {"complete", {{"ranks", {1, 750, 1425, 1499}}, {"count", kMany - 1}}}};
        EXPECT_EQ(left.at("latencies"), latencies);
        std::set<uint32_t> drawn;
        const json trace = DataOf(page, "trace");
        for (const json& event : trace.at("traceEvents")) {
            if (event.at("ph") == "B") {
                drawn.insert(Took(event.at("args").at("frame").get<uint32_t>()));
            }
        }
        EXPECT_EQ(drawn, hasRecording ? Expected(1024) : std::set<uint32_t>());
    }
}

TEST(Page, OfFewRequestsHasAllAndSaysNothing) {
    const Folder folder;
    Script script;
    script.Return(script.Submit(0, 0xa00, 101));
    script.Both(Entry::Flush);
    const Told told(folder.Write("a.rec", script.File()));
    const json shown =
        DataOf(view::MakePage(view::MakeReport(&told, view::FactsOf(told)), &told, {}), "report");
    EXPECT_EQ(shown.at("requests").size(), 1U);
    EXPECT_FALSE(shown.contains("leftOut")) << shown;
}

/// Half of them each time, and in the end nothing but the rest.
TEST(Page, StaysSmallHoweverLongItsTextsAre) {
    const Folder folder;
    const Told told(folder.Write("a.rec", ManyRequests().File()));
    const std::vector<view::Picture> small{{"one", "", "png"}};
    const std::vector<view::Picture> large{{"one", "", std::string(3'000'000, 'x')}};
    struct {
        size_t bytes, ofViolation;
        const std::vector<view::Picture>* pictures;
        uint32_t kept;
    } const cases[] = {{1'000, 0, &small, 1024},
                       {3'000, 0, &small, 512},
                       {0, 3'000'000, &small, 0},
                       {0, 0, &large, 0}};
    for (const auto& [bytes, ofViolation, pictures, kept] : cases) {
        ReportFacts facts = FactsOfMany(told);
        for (view::Row& row : facts.rows) {
            row.picture = std::string(bytes, 'x');
        }
        facts.violations.at(0).text = std::string(ofViolation, 'x');
        const std::string page = view::MakePage(view::MakeReport(&told, facts), nullptr, *pictures);
        EXPECT_LE(page.size(), 3'000'000U);
        const json shown = DataOf(page, "report");
        EXPECT_EQ(KeptOf(shown), kept == 0 ? std::set<uint32_t>() : Expected(kept));
        EXPECT_EQ(shown.at("leftOut").at("counts").at("requests"), kMany - kept);
        EXPECT_EQ(DataOf(page, "picture").size(), kept == 0 ? 0U : 1U);
    }
}

TEST(Page, KeepsTheWarningsTheLastLinesAndTheSessionsOfItsRequests) {
    ordered_json report = view::MakeReport(nullptr, {});
    for (int i = 1; i <= 1100; ++i) {
        report["sessions"].push_back({{"session", i}});
        report["violations"].push_back({{"camera", 0}, {"request", i}});
    }
    for (int i = 1; i <= 5000; ++i) {
        const char* const level = i == 1 ? "E" : i == 2 ? "W" : i == 3 ? "D" : "I";
        report["log"].push_back({{"level", level}, {"text", i}});
    }
    json latency;
    for (const char* const stage : {"returned", "metadata", "buffer", "release", "complete"}) {
        latency[stage] = nullptr;
    }
    report["requests"].push_back({{"camera", 0},
                                  {"frame", 1},
                                  {"session", 1099},
                                  {"sent", 1},
                                  {"good", true},
                                  {"latency", latency}});
    const json shown = DataOf(view::MakePage(report, nullptr, {}), "report");
    const json& sessions = shown.at("sessions");
    ASSERT_EQ(sessions.size(), 1024U);
    EXPECT_EQ(sessions[1022].at("session"), 1023);
    EXPECT_EQ(sessions[1023].at("session"), 1099);
    EXPECT_EQ(shown.at("violations").back().at("request"), 1024);
    const json& log = shown.at("log");
    ASSERT_EQ(log.size(), 4096U);
    EXPECT_EQ(log[0].at("text"), 1);
    EXPECT_EQ(log[1].at("text"), 2);
    EXPECT_EQ(log[2].at("text"), 5000 - 4093);
    EXPECT_EQ(log.back().at("text"), 5000);
    const json counts{
        {"requests", 0}, {"sessions", 76}, {"violations", 76}, {"log", 904}, {"calls", 0}};
    EXPECT_EQ(shown.at("leftOut").at("counts"), counts);
}

// --- Reports ------------------------------------------------------------------------------------

TEST(Report, HasTheMomentsOfARequestFromItsSubmission) {
    Script script;
    const uint64_t open = script.Both(Entry::OpenSession, {}, 0x5000); // 2
    ASSERT_EQ(open, 2U);
    const uint64_t call = script.Submit(3, 0xa00, 101); // 3
    camera3_capture_result result{.num_output_buffers = 1};
    script.Call(Entry::CaptureResult, {3, 0xa00, 1}, [&](contract::Writer& writer) {
        writer.Put(contract::Record::CaptureResult, reinterpret_cast<void*>(1), &result,
                   sizeof result);
    });
    script.Both(Entry::ReleaseRtBuffers, {3, 0xa00});
    script.Both(Entry::RequestComplete, {3, 0xa00, 5});
    script.Return(call);
    const Folder folder;
    const Told told(folder.Write("a.rec", script.File()));
    const json report = view::MakeReport(&told, view::FactsOf(told));
    const json request{{"camera", 3},
                       {"frame", 101},
                       {"feature", "Night"},
                       {"session", nullptr},
                       {"thread", "host camera 3"},
                       {"sent", 3.0},
                       {"latency",
                        {{"returned", 6.0},
                         {"metadata", nullptr},
                         {"buffer", 1.0},
                         {"release", 2.0},
                         {"complete", 4.0}}},
                       {"status", 0},
                       {"completion", 5},
                       {"outcome", "error, status 5"},
                       {"good", false},
                       {"picture", nullptr}};
    EXPECT_EQ(report.at("requests").at(0), request);
    EXPECT_EQ(report.at("run").at("started"), "2026-01-31T12:00:00.250Z");
    EXPECT_EQ(report.at("run").at("kind"), "recording");
    EXPECT_EQ(report.at("events"), 9);
    const json session{{"session", 1},      {"feature", ""}, {"camera", nullptr},
                       {"asked", 1.0},      {"opened", 2.0}, {"configured", nullptr},
                       {"closed", nullptr}, {"requests", 0}};
    EXPECT_EQ(report.at("sessions").at(0), session);
}

struct Place {
    uint64_t event;
    std::optional<uint32_t> camera, request;
    json expected; ///< The camera, the request and the time.
};

/// Events 3 to 6 are of request 102 of camera 1, whose recording lacks its beginning.
TEST(Report, FindsWhereAViolationWas) {
    Script script;
    script.Return(script.Submit(0, 0xa00, 101));     // 1
    script.Return(script.Submit(1, 0xb00, 102));     // 3
    script.Both(Entry::RequestComplete, {1, 0xb00}); // 5
    const Folder folder;
    const Told told(folder.Write("a.rec", script.File()));
    const Place places[] = {
        {1, {}, {}, {0, 101, 1.0}},
        {6, {}, {}, {1, 102, 6.0}},
        {3, 5, 7, {5, 7, 3.0}},
        {3, 5, {}, {5, 102, 3.0}},
        {7, {}, {}, {nullptr, nullptr, nullptr}},
        {0, {}, 7, {nullptr, 7, nullptr}},
    };
    ReportFacts facts;
    for (const Place& place : places) {
        facts.violations.push_back({.rule = contract::Rule::ResultFrame,
                                    .event = place.event,
                                    .text = "",
                                    .camera = place.camera,
                                    .request = place.request});
    }
    const json report = view::MakeReport(&told, facts);
    const json blind = view::MakeReport(nullptr, facts);
    for (size_t i = 0; i < std::size(places); ++i) {
        const json& found = report.at("violations").at(i);
        EXPECT_EQ(json({found.at("camera"), found.at("request"), found.at("time")}),
                  places[i].expected)
            << places[i].event;
        EXPECT_EQ(blind.at("violations").at(i).at("time"), nullptr);
    }
}

TEST(Report, HasTheLevelsOfALog) {
    ReportFacts facts;
    std::string levels;
    for (const int priority : {-1, 0, 2, 3, 4, 5, 6, 7, 1000}) {
        facts.log.push_back({.time = 0, .priority = priority, .tag = "", .text = ""});
    }
    const json report = view::MakeReport(nullptr, facts, "no room");
    for (const json& line : report.at("log")) {
        levels += line.at("level").get<std::string>();
        EXPECT_EQ(line.at("time"), nullptr) << "nothing was recorded that it could count from";
    }
    EXPECT_EQ(levels, "VVVDIWEEE");
    EXPECT_EQ(report.at("damage"), "no room");
    EXPECT_EQ(report.at("run").at("adapter"), nullptr);
}

TEST(Report, OfARecordingSaysHowItEnded) {
    struct {
        const char* what;
        void (*play)(Script& script);
        size_t lacks, open; ///< Bytes of the file, and calls.
        const char *status, *text;
    } const cases[] = {
        {"whole", [](Script& it) { it.Both(Entry::LogMap); }, 0, 0, "passed",
         "0 requests, 0 violations of the contract"},
        {"open", [](Script& it) { it.Call(Entry::LogMap); }, 0, 1, "failed",
         "0 requests, 0 violations of the contract, and calls that never returned: the process "
         "died, or went on"},
        {"broken", [](Script& it) { it.Both(Entry::OpenSession); }, 0, 0, "failed",
         "0 requests, 1 violation of the contract"},
        {"cut", [](Script& it) { it.Both(Entry::LogMap); }, 1, 1, "damaged",
         "0 requests, 0 violations of the contract, and calls that never returned: the process "
         "died, or went on; "},
    };
    const Folder folder;
    for (const auto& each : cases) {
        Script script;
        each.play(script);
        const std::string file = script.File();
        const Told told(folder.Write("a.rec", file.substr(0, file.size() - each.lacks)));
        const ReportFacts facts = view::FactsOf(told);
        EXPECT_EQ(facts.status, each.status) << each.what << ": " << facts.text;
        EXPECT_EQ(facts.text, each.text + told.recording.Damage());
        EXPECT_EQ(told.recording.Damage().empty(), each.lacks == 0);
        const json report = view::MakeReport(&told, facts);
        EXPECT_EQ(report.at("result").at("open").size(), each.open);
    }
}

} // namespace
