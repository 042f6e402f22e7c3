/// Campaigns: which faults are tried with which others, and what is taken for a finding.
#include "campaign/cell_run.h"
#include "standin/located_json.h"
#include "tests/support/device.h"

#include <nlohmann/json.hpp>

#include <set>

namespace {

using namespace campaign;
using nlohmann::json;
using test::Texts;

/// What a good run of two requests tells.
json GoodFacts() {
    return json::parse(R"({
        "requests": 2, "sent": 2, "completed": 2, "errors": 0, "unanswered": 0, "refused": {},
        "wrongPictures": 0, "lost": 0, "unfulfilled": [], "violations": [], "heap": [],
        "alive": {"sessions": 0, "metadata": 0, "Android metadata": 0, "buffer managers": 0,
                  "image buffers": 0, "operation tables": 0}})");
}

/// Two requests of two raw frames.
host::Scenario TwoRequests(const Texts& faults) {
    host::Scenario scenario;
    scenario.cameras = {{.frames = 2, .requests = 2}};
    for (const std::string& fault : faults) {
        scenario.faults.push_back({fault});
    }
    return scenario;
}

struct FactCase {
    Texts faults;
    const char* otherwise; ///< What the run tells otherwise than a good one.
    Class its;
    const char* text = ""; ///< Of the finding, in part.
};

constexpr const char kOneRefused1[] = R"({"completed": 1, "refused": {"1": 1}})";
constexpr const char kOneRefused4[] = R"({"completed": 1, "refused": {"4": 1}})";
constexpr const char kBothRefused1[] = R"({"completed": 0, "refused": {"1": 2}})";
constexpr const char kBothNotSent[] = R"({"sent": 0, "completed": 0})";
constexpr const char kOneNotSent[] = R"({"sent": 1, "completed": 1})";
constexpr const char kH4[] = R"({"violations": [["H4", false, "H4 result's buffer"]]})";
constexpr const char kMetadata1[] = R"({"alive": {"metadata": 1}})";
constexpr const char kMetadata2[] = R"({"alive": {"metadata": 2}})";
/// A refused request with its output buffer and input array of four records.
constexpr const char kRefusedOnHeap[] =
    R"({"completed": 1, "refused": {"1": 1}, "heap": [[208, 1], [920, 1], [96, 3]]})";

const std::vector<FactCase>& FactCases() {
    using enum Class;
    static const std::vector<FactCase> cases = {
        {{}, "{}", AsDocumented},
        {{}, kOneRefused4, Violation, "status 4 for no reason"},
        {{"fail OpenSession 1 1"}, kOneRefused4, AsDocumented},
        {{"fail OpenSession 1 1"}, kOneRefused1, Violation, "status 1 for no reason"},
        {{"fail CloseSession", "missing OpenSession"}, kOneRefused4, AsDocumented},
        {{"fail ExecuteRequest 1 1"}, R"({"completed": 1, "refused": {"7": 1}})", Violation, "7"},
        {{}, kOneNotSent, Violation, "not sent"},
        {{"fail GetImageBuffer 3 1"}, kOneNotSent, AsDocumented},
        {{"fail GetImageBuffer 3 1"}, kBothNotSent, Violation, "not sent"},
        {{"fail ExecuteRequest 2 1"}, kBothRefused1, Violation, "status 1 for no reason"},
        {{"fail GetCPUAddress 2 1"}, R"({"lost": 1})", Violation, "found no room"},
        {{"fail GetCPUAddress 2 1"}, R"({"wrongPictures": 1})", AsDocumented},
        {{"fail GetCPUAddress 2 1"}, R"({"wrongPictures": 2})", Violation, "wrong pictures"},
        {{"fail BufferManagerDestroy"},
         R"({"violations": [["V23", true, "V23 left when"]]})",
         Violation,
         "V23 left when"},
        {{"fail MetadataDestroy"},
         R"({"alive": {"metadata": 1}, "violations": [["V23", true, "V23"]]})",
         AsDocumented,
         "as they may be: V23"},
        {{"fail CloseSession"}, R"({"completed": 1})", Violation, "not accounted for"},
        {{}, R"({"completed": 1, "unanswered": 1})", Hang, "never completed"},
        {{"fail CloseSession"}, R"({"errors": 1})", Violation, "with a failure"},
        {{"fail CloseSession"}, R"({"wrongPictures": 1})", Violation, "wrong pictures"},
        {{"missing TranslateToChiBuffer"}, kH4, AsDocumented},
        {{"fail OpenSession", "fail MetadataDestroy"}, kH4, Violation, "H4 result's buffer"},
        {{"fail MetadataDestroy 2 1"}, kMetadata1, AsDocumented},
        {{"fail MetadataDestroy 2 1"}, kMetadata2, Leak, "metadata left"},
        {{"fail MetadataDestroy 2 2"}, kMetadata2, AsDocumented},
        {{"fail BufferManagerDestroy"}, kMetadata1, Leak, "metadata left"},
        {{"missing MetadataCreateFromAndroid"},
         R"({"alive": {"Android metadata": 2}})",
         AsDocumented},
        {{"fail MetadataCreateFromAndroid"},
         R"({"alive": {"Android metadata": 2}})",
         Leak,
         "Android metadata left"},
        // Of two frames each, and a completion frees one.
        {{}, R"({"heap": [[96, 2]]})", AsDocumented},
        {{}, R"({"heap": [[96, 3]]})", Leak, "blocks of 96 bytes"},
        {{}, R"({"heap": [[72, 1]]})", Leak, "blocks of 72 bytes"},
        {{}, R"({"heap": [[288, 1]]})", Leak, "blocks of 288 bytes"},
        {{"fail OpenSession"}, R"({"heap": [[288, 2], [160, 1]]})", AsDocumented},
        {{"fail OpenSession 2 1"}, R"({"heap": [[288, 1]]})", Leak, "blocks of 288 bytes"},
        {{"fail CloseSession"}, R"({"alive": {"sessions": 1}, "heap": [[288, 1]]})", AsDocumented},
        {{"fail CloseSession"},
         R"({"alive": {"sessions": 2}, "heap": [[288, 1]]})",
         Violation,
         "may call back"},
        {{"fail CloseSession 1 1"}, R"({"heap": [[48, 1]]})", Leak, "blocks of 48 bytes"},
        {{"fail ConfigureStreams 1 1"}, R"({"heap": [[288, 3], [48, 1]]})", AsDocumented},
        {{"fail ConfigureStreams 1 1"}, R"({"heap": [[288, 4]]})", Leak, "blocks of 288 bytes"},
        {{"fail ExecuteRequest 1 1"}, kRefusedOnHeap, AsDocumented},
        {{"fail ExecuteRequest 1 1"}, R"({"heap": [[208, 1]]})", Leak, "blocks of 208 bytes"},
        {{"refuse /odm/lib64/libextensionlayer.so"}, "{}", Violation, "ended by SIGABRT"},
        {{"variant /vendor/lib64/hw/camera.qcom.so camera.qcom.no-perf.so"}, "{}", AsDocumented},
        {{"variant /vendor/lib64/hw/camera.qcom.so camera.qcom.no-sensor-modes.so"},
         "{}",
         Violation,
         "ended by SIGABRT"},
        {{"fail CloseSession"}, R"({"unfulfilled": ["sessions: 1 expected"]})", AsDocumented},
        {{}, R"({"unfulfilled": ["sessions: 1 expected"]})", Violation, "1 expected"},
        {{}, R"({"completed": 1, "unanswered": 1, "heap": [[72, 1]]})", Hang, "72"},
    };
    return cases;
}

TEST(Judge, FindsWhatNoFaultExplains) {
    for (const FactCase& each : FactCases()) {
        json facts = GoodFacts();
        facts.merge_patch(json::parse(each.otherwise));
        const Verdict verdict = Judge(TwoRequests(each.faults), each.faults.empty(), facts);
        const std::string what = standin::Joined(each.faults) + ": " + each.otherwise;
        EXPECT_STREQ(NameOf(verdict.its), NameOf(each.its)) << what << ": " << verdict.text;
        EXPECT_NE(verdict.text.find(each.text), std::string::npos) << what << ": " << verdict.text;
    }
}

TEST(Judge, ExplainsASilentVendor) {
    host::Scenario scenario = TwoRequests({});
    scenario.delivery = standin::Delivery::ByHand;
    json facts = GoodFacts();
    facts.merge_patch({{"completed", 0}, {"unanswered", 2}, {"alive", {{"metadata", 2}}}});
    EXPECT_EQ(Judge(scenario, true, facts).its, Class::AsDocumented);
    facts["alive"]["metadata"] = 3;
    EXPECT_EQ(Judge(scenario, true, facts).its, Class::Leak);
    // Or one that holds some until a flush.
    scenario.delivery = standin::Delivery::OnSessionThread;
    scenario.cameras[0].heldAtFlush = 1;
    facts = GoodFacts();
    facts.merge_patch({{"completed", 1}, {"unanswered", 1}, {"alive", {{"metadata", 1}}}});
    EXPECT_EQ(Judge(scenario, true, facts).its, Class::AsDocumented);
}

/// With calls of two entries, and a fault of the scenario's at one of a third.
std::vector<Target> Targets() {
    Target target{"tiny", TwoRequests({"fail CloseSession"}), "", {}};
    target.calls[static_cast<size_t>(standin::Entry::ExecuteRequest)] = 3;
    target.calls[static_cast<size_t>(standin::Entry::GetList)] = 2;
    target.calls[static_cast<size_t>(standin::Entry::CloseSession)] = 1;
    return {target};
}

TEST(Plan, HasEachFaultOnceAndAnswersForWhatIsLeftOut) {
    const Plan all = MakePlan(Targets(), {});
    std::set<std::string> names;
    for (const Cell& cell : all.cells) {
        EXPECT_TRUE(names.insert(NameOf("", cell.faults)).second) << NameOf("", cell.faults);
        for (const std::string& fault : cell.faults) {
            EXPECT_EQ(host::Fault{fault}.Check(), "");
            EXPECT_NE(host::Fault{fault}.Place(), "CloseSession");
        }
    }
    for (const char* fault :
         {"no fault", "fail ExecuteRequest", "fail ExecuteRequest 3 1", "missing ExecuteRequest",
          "fail GetList 2 1", "refuse /vendor/lib64/hw/camera.qcom.so",
          "variant /odm/lib64/libextensionlayer.so "
          "libextensionlayer.no-result-meta.so"}) {
        EXPECT_TRUE(names.contains(": " + std::string(fault))) << fault;
    }
    EXPECT_FALSE(names.contains(": fail OpenSession")) << "it is not called";
    EXPECT_EQ(all.taken, 3U) << "all calls, the one, and none there";
    const Plan fewer = MakePlan(Targets(), {.mostCalls = 1});
    EXPECT_EQ(fewer.cells.size() + fewer.beyond, all.cells.size());
    EXPECT_EQ(fewer.beyond, 3U);
}

TEST(Plan, PairsEachFaultWithThoseOfOtherPlaces) {
    const Texts places{"ExecuteRequest", "GetList"};
    // All calls, three or two alone, and, of one that is in a table, none there.
    const size_t singles = 1 + 5 + 3;
    EXPECT_EQ(MakePlan(Targets(), {places}).cells.size(), singles);
    EXPECT_EQ(MakePlan(Targets(), {places, Pairs::All}).cells.size(), singles + 5 * 3);
    const Plan first = MakePlan(Targets(), {places, Pairs::First});
    EXPECT_EQ(first.cells.size(), singles + 3 * 2);
    EXPECT_EQ(first.pairs, 5U * 3 - 3 * 2);
    const Plan one = MakePlan(Targets(), {{"GetList"}, Pairs::All});
    const size_t others = MakePlan(Targets(), {}).cells.size() - 1 - 3;
    EXPECT_EQ(one.cells.size(), 1 + 3 + 3 * others);
}

} // namespace
