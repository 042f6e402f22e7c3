/// Timelines of made-up events, line by line.
#include "tests/support/script.h"
#include "view/timeline.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using contract::Entry;
using contract::Event;
using test::Script;
using Texts = std::vector<std::string>;
using nlohmann::json;

/// As in "3 B 1 Flush 12 frame 101 session 1": when, the phase, the lane, the name, and of a call
/// its number and subjects. Lanes have their names, and counters their values.
std::string LineOf(const json& event) {
    const std::string phase = event.at("ph");
    const json args = event.value("args", json::object());
    if (phase == "M") {
        return args.at("name");
    }
    std::string line = std::to_string(event.at("ts").get<int>()) + " " + phase + " " +
                       std::to_string(event.at("tid").get<int>()) + " " +
                       event.at("name").get<std::string>();
    if (phase == "B") {
        line += " " + args.at("event").dump();
        line += args.contains("frame") ? " frame " + args["frame"].dump() : "";
        line += args.contains("session") ? " session " + args["session"].dump() : "";
    }
    return line + (phase == "C" ? " " + args.at("requests").dump() : "") +
           (event.contains("id") ? " " + event["id"].dump() : "");
}

/// \param phases of the events that are wanted
Texts Drawn(const std::vector<Event>& events, const std::string& phases,
            view::TimelinePart* part = nullptr) {
    const view::Serials serials(events);
    const view::Story story(serials);
    Texts lines;
    const json trace = json::parse(view::TimelineOf(story, 0, part));
    for (const json& event : trace.at("traceEvents")) {
        if (phases.find(event.at("ph").get<std::string>()) != phases.npos) {
            lines.push_back(LineOf(event));
        }
    }
    return lines;
}

/// Two cameras' threads and one of the vendor's. The closing of the session never returns alone.
Script TwoCameras() {
    Script script;
    script.thread = 70;
    const uint64_t first = script.Submit(0, 0xa00, 101); // 1
    script.Both(Entry::OpenSession, {}, 0x5000);         // 2
    script.thread = 90;
    const uint64_t result = script.Call(Entry::CaptureResult, {0, 0xa00}); // 4
    script.thread = 80;
    const uint64_t second = script.Submit(1, 0xb00, 7); // 5
    script.thread = 70;
    script.Call(Entry::CloseSession, {0x5000}); // 6
    script.Return(first);
    script.Return(result);
    script.Return(second);
    script.thread = 90;
    script.Both(Entry::Pixels);                         // 10
    script.Call(Entry::RequestComplete, {0, 0xb00, 0}); // 12
    script.Call(Entry::Copy);                           // 13
    return script;
}

TEST(Timeline, HasALaneForEachThreadAndASliceForEachCall) {
    const Texts lanes{"host, adapter and vendor", "counters", "host camera 0", "vendor, thread 2",
                      "host camera 1"};
    EXPECT_EQ(Drawn(TwoCameras().Events(), "M"), lanes);
    const Texts slices{
        "1 B 1 SubmitRequestFromRT 1 frame 101",
        "2 B 1 OpenSession 2 frame 101",
        "3 E 1 OpenSession",
        "4 B 2 captureResult 4 frame 101",
        "5 B 3 SubmitRequestFromRT 5 frame 7",
        "6 B 1 CloseSession 6 frame 101 session 1",
        "7 E 1 CloseSession",
        "7 E 1 SubmitRequestFromRT",
        "8 E 2 captureResult",
        "9 E 3 SubmitRequestFromRT",
        "12 B 2 requestComplete 12 frame 7",
        "13 B 2 Copy 13 frame 7", // Within the completion.
        "13 E 2 Copy",
        "13 E 2 requestComplete",
    };
    EXPECT_EQ(Drawn(TwoCameras().Events(), "BE"), slices);
}

TEST(Timeline, LeadsAnArrowFromTheSubmissionThroughResultsToTheCompletion) {
    const Texts arrows{"1 s 1 request 1", "4 t 2 request 1", "5 s 3 request 2", "12 f 2 request 2"};
    EXPECT_EQ(Drawn(TwoCameras().Events(), "stf"), arrows);
    Script script; // Whose submission was overwritten.
    script.Both(Entry::CaptureResult, {0, 0xa00});
    script.Both(Entry::RequestComplete, {0, 0xa00, 0});
    EXPECT_EQ(Drawn(script.Events(), "stf"), Texts());
}

TEST(Timeline, EndsNothingOfWhatReturnsWithoutItsCall) {
    Script script;
    const uint64_t lost = script.Call(Entry::ProcRequest); // 1
    script.Both(Entry::Flush);                             // 2
    script.Call(Entry::Copy);                              // 4
    script.Return(lost);
    script.Call(Entry::LogMap); // 6
    const std::vector<Event> rest(script.Events().begin() + 1, script.Events().end());
    const Texts slices{"2 B 1 Flush 2",  "3 E 1 Flush",  "4 B 1 Copy 4",
                       "6 B 1 logMap 6", "6 E 1 logMap", "6 E 1 Copy"};
    EXPECT_EQ(Drawn(rest, "BE"), slices);
}

struct CounterCase {
    const char* what;
    void (*play)(Script& script);
    std::vector<int> counts;
};

/// \param status of the submission
void Submit(Script& script, uint32_t camera, uint64_t request, uint64_t status = 0) {
    script.Return(script.Submit(camera, request, 101), status);
}

void Complete(Script& script, uint64_t request) {
    script.Both(Entry::RequestComplete, {0, request, 0});
}

TEST(Timeline, CountsARequestUntilItsCompletionItsRefusalOrItsLoss) {
    static const CounterCase kCases[] = {
        {"completed", [](auto& it) { Submit(it, 0, 1), Complete(it, 1); }, {1, 0}},
        {"refused, and flushed",
         [](auto& it) { Submit(it, 0, 1, 22), it.Both(Entry::Flush); },
         {1, 0}},
        {"completed twice",
         [](auto& it) { Submit(it, 0, 1), Complete(it, 1), Complete(it, 1); },
         {1, 0}},
        {"another completed", [](auto& it) { Submit(it, 0, 1), Complete(it, 2); }, {1}},
        {"completed within",
         [](auto& it) {
             const uint64_t call = it.Submit(0, 1, 101);
             Complete(it, 1);
             it.Return(call);
         },
         {1, 0}},
        {"flushed, two of three",
         [](auto& it) {
             Submit(it, 0, 1), Submit(it, 1, 2), Submit(it, 0, 3);
             it.Both(Entry::Flush, {0});
         },
         {1, 2, 3, 2, 1}},
        {"destroyed", [](auto& it) { Submit(it, 1, 1), it.Both(Entry::Destroy, {1}); }, {1, 0}},
        {"torn down", [](auto& it) { Submit(it, 0, 1), it.Both(Entry::TearDownResource); }, {1}},
        {"in a flush", [](auto& it) { Submit(it, 0, 1), it.Call(Entry::Flush); }, {1}},
        {"flushed twice, and completed",
         [](auto& it) {
             Submit(it, 0, 1), it.Both(Entry::Flush), it.Both(Entry::Flush);
             Complete(it, 1);
         },
         {1, 0}},
        {"used again",
         [](auto& it) { Submit(it, 0, 1), Complete(it, 1), Submit(it, 0, 1); },
         {1, 0, 1}},
    };
    for (const CounterCase& each : kCases) {
        Script script;
        each.play(script);
        std::vector<int> counts;
        for (const std::string& line : Drawn(script.Events(), "C")) {
            counts.push_back(std::stoi(line.substr(line.rfind(' '))));
            EXPECT_NE(line.find(" C 0 requests in flight "), line.npos) << line;
        }
        EXPECT_EQ(counts, each.counts) << each.what;
    }
}

/// Of two requests the second, and of what belongs to none the first call.
TEST(Timeline, OfAPartSaysHowManyCallsItLeavesOut) {
    Script script;
    script.Both(Entry::LogMap);                           // 1
    const uint64_t first = script.Submit(0, 0xa00, 101);  // 3
    script.Both(Entry::OpenMetadataOps);                  // 4
    const uint64_t second = script.Submit(0, 0xb00, 102); // 6
    script.Both(Entry::OpenMetadataOps);                  // 7
    script.Return(second);                                // 9
    script.Return(first);                                 // 10
    script.Both(Entry::RequestComplete, {0, 0xa00, 0});   // 11
    script.Both(Entry::LogMap);                           // 13
    script.Both(Entry::RequestComplete, {0, 0xb00, 0});   // 15
    view::TimelinePart part{.shows = [](const auto& request) { return request.frame == 102; },
                            .others = 1};
    const Texts lines{
        "1 B 1 logMap 1",
        "2 E 1 logMap",
        "6 B 1 SubmitRequestFromRT 6 frame 102",
        "6 s 1 request 2",
        "6 C 0 requests in flight 2",
        "7 B 1 OpenMetadataOps 7 frame 102",
        "8 E 1 OpenMetadataOps",
        "9 E 1 SubmitRequestFromRT",
        "15 B 1 requestComplete 15 frame 102",
        "15 f 1 request 2",
        "15 C 0 requests in flight 0",
        "16 E 1 requestComplete",
    };
    EXPECT_EQ(Drawn(script.Events(), "BEstfC", &part), lines);
    EXPECT_EQ(part.leftOut, 4U);
}

} // namespace
