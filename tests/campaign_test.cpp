/// Campaigns: which faults are tried with which others, and what is taken for a finding.
#include "campaign/results.h"
#include "standin/located_json.h"
#include "tests/support/device.h"

#include <nlohmann/json.hpp>

#include <csignal>
#include <set>
#include <sys/resource.h>

namespace {

using namespace campaign;
using nlohmann::json;
using test::Folder;
using test::Texts;
using test::Thrown;

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
        // What faults cost adds up, and no further.
        {{"fail GetCPUAddress 1 1", "fail TranslateToChiBuffer 1 1"},
         R"({"wrongPictures": 2})",
         AsDocumented},
        {{"fail GetCPUAddress 1 1", "fail TranslateToChiBuffer 1 1"},
         R"({"requests": 3, "sent": 3, "completed": 3, "wrongPictures": 3})",
         Violation,
         "wrong pictures"},
        {{"fail MetadataDestroy 2 1", "fail ConfigureStreams 1 1"}, kMetadata2, AsDocumented},
        {{"fail MetadataDestroy 2 1", "fail ConfigureStreams 1 1"},
         R"({"alive": {"metadata": 3}})",
         Leak,
         "metadata left"},
        {{"fail CloseSession 1 1", "fail ConfigureStreams 1 1"},
         R"({"alive": {"sessions": 5}, "heap": [[288, 5], [48, 1]]})",
         AsDocumented},
        {{"fail CloseSession 1 1", "fail ConfigureStreams 1 1"},
         R"({"alive": {"sessions": 6}, "heap": [[288, 6]]})",
         Leak,
         "sessions left"},
        {{"fail CloseSession 1 1", "fail ConfigureStreams 1 1"},
         R"({"heap": [[288, 5], [48, 2]]})",
         Leak,
         "blocks of 48 bytes"},
        // Of one request that was refused: its records, and its output's metadata.
        {{"fail ExecuteRequest 1 1"},
         R"({"completed": 1, "refused": {"1": 1}, "heap": [[920, 2]]})",
         Leak,
         "blocks of 920 bytes"},
        {{"fail ExecuteRequest 1 1"},
         R"({"completed": 1, "refused": {"1": 1}, "heap": [[96, 4]]})",
         Leak,
         "blocks of 96 bytes"},
        {{"fail ExecuteRequest 1 1"},
         R"({"completed": 1, "refused": {"1": 1}, "alive": {"metadata": 1}})",
         AsDocumented},
        {{"fail ExecuteRequest 1 1"},
         R"({"completed": 1, "refused": {"1": 1}, "alive": {"metadata": 2}})",
         Leak,
         "metadata left"},
        {{"variant /vendor/lib64/hw/camera.qcom.so camera.qcom.no-perf.so"},
         kOneNotSent,
         Violation,
         "not sent"},
        {{"missing OpenSession"}, R"({"heap": [[288, 1]]})", Leak, "blocks of 288 bytes"},
        // The worst names it, and nothing is kept quiet.
        {{}, R"({"lost": 1, "alive": {"metadata": 1}})", Violation, "no room; metadata left"},
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
    facts.merge_patch({{"completed", 0}, {"unanswered", 2}});
    EXPECT_EQ(Judge(scenario, true, facts).its, Class::Hang);
}

TEST(Judge, TakesFailuresForDueWhereTheVendorReportsThem) {
    host::Scenario scenario = TwoRequests({});
    json facts = GoodFacts();
    facts["errors"] = 2;
    EXPECT_EQ(Judge(scenario, true, facts).its, Class::Violation);
    scenario.shape = standin::Shape::ErrorBuffer;
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

TEST(Plan, HasTheCellsOfEachScenarioAndNamesAPlaceThatNoneHas) {
    std::vector<Target> targets = Targets();
    targets.push_back({"other", TwoRequests({}), "", {}});
    targets[1].calls[static_cast<size_t>(standin::Entry::GetList)] = 1;
    const Plan both = MakePlan(targets, {{"GetList"}});
    Texts names;
    for (const Cell& cell : both.cells) {
        names.push_back(NameOf(targets[cell.target].name, cell.faults));
    }
    EXPECT_EQ(names, (Texts{"tiny: no fault", "tiny: fail GetList", "tiny: fail GetList 1 1",
                            "tiny: fail GetList 2 1", "other: no fault", "other: fail GetList",
                            "other: fail GetList 1 1"}));
    EXPECT_EQ(Thrown([] { MakePlan(Targets(), {{"GetLost"}}); }),
              "these scenarios leave no fault to try at 'GetLost'; did you mean 'GetList'?");
    EXPECT_NE(Thrown([] { MakePlan(Targets(), {{"CloseSession"}}); }), "") << "it has its own";
}

TEST(Target, IsSmallButForWhatNeedsItsRequests) {
    const struct {
        const char* scenario;
        const char* options;
    } rows[] = {
        {R"({"cameras": [{"requests": 8}]})", "--width 128 --height 96"},
        {R"({"cameras": [{"requests": 9}]})", "--width 128 --height 96 --requests 3"},
        {R"({"cameras": [{"requests": 9, "features": ["a", "b", "c", "d"]}, {"id": 1}]})",
         "--width 128 --height 96 --requests 4"},
        {R"({"cameras": [{"requests": 9}], "expect": {"completed": 9}})",
         "--width 128 --height 96"},
        {R"({"cameras": [{"requests": 9, "flushAfter": 8}]})", "--width 128 --height 96"},
        {R"({"cameras": [{"inputs": ["RAW10", "YUV"], "frames": 2}]})", "--width 256 --height 192"},
    };
    const Folder folder;
    for (const auto& [scenario, options] : rows) {
        const Target target = ReadTarget(folder.Write("a b.json", scenario));
        EXPECT_EQ(target.options, options) << scenario;
        const std::string command = "./dev host '" + target.name + "' " + options + " --limit 7";
        EXPECT_EQ(CommandOf(target, {}, 7), command);
        EXPECT_EQ(CommandOf(target, {"fail a", "fail b"}, 7, "/c d"),
                  command + " --fault 'fail a' --fault 'fail b' --library '/c d'");
    }
}

// --- Files of results

/// Of these cells of one scenario, all ended as they should.
Results ShardOf(uint32_t shard, uint32_t shards, const Texts& faults) {
    Results results{.library = "0f", .set = "a1", .shard = shard, .shards = shards};
    for (const std::string& fault : faults) {
        const Result result{.scenario = "tiny", .faults = {fault}};
        results.cells.push_back(result.Name());
        results.ended[result.Name()] = result;
    }
    return results;
}

/// Three shards of seven cells, which were dealt out in turn.
std::vector<Results> ThreeShards() {
    return {ShardOf(1, 3, {"a", "d", "g"}), ShardOf(2, 3, {"b", "e"}), ShardOf(3, 3, {"c", "f"})};
}

/// What `Merge` says of files with these results, without the folder.
std::string ProblemOf(const std::vector<Results>& shards) {
    const Folder folder;
    Texts files;
    for (const Results& shard : shards) {
        const std::string name(1, static_cast<char>('1' + files.size()));
        files.push_back(folder.Write(name, shard.Text()));
    }
    std::string problem = Thrown([&] { Merge(files); });
    for (size_t at = 0; (at = problem.find(folder / "")) != std::string::npos;) {
        problem.erase(at, (folder / "").size());
    }
    return problem;
}

TEST(Merge, BringsTheCellsOfAllShardsIntoTheirOrder) {
    const Folder folder;
    Texts files;
    for (const Results& shard : ThreeShards()) {
        files.insert(files.begin(), folder.Write(std::to_string(shard.shard), shard.Text()));
    }
    EXPECT_EQ(Merge(files).Text(), ShardOf(1, 1, {"a", "b", "c", "d", "e", "f", "g"}).Text());
}

TEST(Merge, NamesWhatDoesNotFit) {
    using Shards = std::vector<Results>;
    const struct {
        void (*edit)(Shards& shards);
        const char* problem;
    } rows[] = {
        {[](Shards&) {}, ""},
        {[](Shards& all) { all.pop_back(); }, "no file has shard 3/3"},
        {[](Shards& all) { all.erase(all.begin()); }, "no file has shard 1/3"},
        {[](Shards& all) { all[1].ended.erase("tiny: e"); },
         "2: these cells are missing, so go on with it:\n  tiny: e"},
        {[](Shards& all) {
             all[2] = ShardOf(3, 3, {"h", "i", "j", "k", "l"});
             all[2].ended.clear();
         },
         "3: these cells are missing, so go on with it:\n  tiny: h\n  tiny: i\n  tiny: j\n"
         "  tiny: k\n  tiny: l"},
        {[](Shards& all) {
             all[2] = ShardOf(3, 3, {"h", "i", "j", "k", "l", "m"});
             all[2].ended.clear();
         },
         "3: these cells are missing, so go on with it:\n  tiny: h\n  tiny: i\n  tiny: j\n"
         "  tiny: k\n  tiny: l\n  and 1 more"},
        {[](Shards& all) { all.push_back(all[1]); }, "4: this cell is in 2, too: tiny: b"},
        {[](Shards& all) {
             all[2] = ShardOf(3, 3, {"c", "f", "b"});
         },
         "3: this cell is in 2, too: tiny: b"},
        {[](Shards& all) {
             all.push_back(all[1]);
             all[3].ended["tiny: b"].its = Class::Leak;
         },
         "4: this cell is in 2, too, where it is 'as documented' and here 'leak': tiny: b"},
        {[](Shards& all) { all[1].library = "0e"; },
         "2: is of another build of the library, 0e and not 0f"},
        {[](Shards& all) { all[2].set = "a2"; },
         "3: is of another set of cells: other scenarios, options or shards"},
        {[](Shards& all) { all[2].shards = 4; },
         "3: is of another set of cells: other scenarios, options or shards"},
    };
    for (const auto& [edit, problem] : rows) {
        std::vector<Results> shards = ThreeShards();
        edit(shards);
        EXPECT_EQ(ProblemOf(shards), problem);
    }
}

TEST(Results, AreReadUpToATornLineAndNoFurtherThanADamagedOne) {
    const std::string good = ShardOf(2, 3, {"b", "e"}).Text();
    const size_t header = good.find('\n') + 1;
    const size_t first = good.find('\n', header) + 1;
    const auto with = [&](const std::string& from, const std::string& to) {
        std::string text = good;
        return text.replace(text.find(from), from.size(), to);
    };
    constexpr const char kNone[] = ": this file has no results of a campaign";
    constexpr const char kNoLine[] = ": this is no line of a campaign's results";
    const struct {
        std::string text;
        size_t ended, whole;
        std::string problem;
    } rows[] = {
        {good, 2, good.size(), ""},
        {good.substr(0, good.size() - 1), 1, first, ""}, // All of it but its end.
        {good.substr(0, first + 1), 1, first, ""},
        {good.substr(0, first - 1), 0, header, ""},
        {good.substr(0, header), 0, header, ""},
        {good.substr(0, header - 1), 0, 0, kNone},
        {"", 0, 0, kNone},
        {good.substr(header), 0, 0, std::string(":1") + kNoLine},
        {with("\"campaign\":1", "\"campaign\":2"), 0, 0, std::string(":1") + kNoLine},
        {with("{\"scenario\"", "{\"scen\""), 0, 0, std::string(":2") + kNoLine},
        {with("as documented", "fine"), 0, 0, std::string(":2") + kNoLine},
        {good.substr(0, first) + "\n", 0, 0, std::string(":3") + kNoLine},
    };
    const Folder folder;
    for (const auto& row : rows) {
        const std::string file = folder.Write("a", row.text);
        Results results;
        size_t whole = 0;
        EXPECT_EQ(Thrown([&] { results = ReadResults(file, &whole); }),
                  row.problem.empty() ? "" : file + row.problem);
        EXPECT_EQ(results.ended.size(), row.ended) << row.text;
        EXPECT_EQ(whole, row.whole) << row.text;
        EXPECT_EQ(results.shard, row.problem.empty() ? 2U : 1U);
    }
    EXPECT_EQ(Thrown([&] { ReadResults(folder / "none"); }),
              folder / "none" + ": no results can be read here");
}

/// The same campaign, of which nothing has ended.
Results Wanted(Results results) {
    results.ended.clear();
    return results;
}

TEST(ResultFile, GoesOnBehindTheLastWholeLineAndIsSortedAtItsEnd) {
    const Folder folder;
    const Results all = ShardOf(1, 1, {"a", "b", "c"});
    Results some = all;
    some.ended.erase("tiny: a");
    const std::string file = folder.Write("a", some.Text() + R"({"scenario":"ti)");
    {
        const ResultFile results(file, Wanted(all), false);
        EXPECT_EQ(results.Ended(), some.ended);
        results.Add(all.ended.at("tiny: a"));
        EXPECT_EQ(results.Finish().Text(), all.Text());
    }
    EXPECT_EQ(ReadResults(file).Text(), all.Text());
    EXPECT_EQ(std::filesystem::file_size(file), all.Text().size()) << "in their order, and no more";
    const ResultFile anew(file, Wanted(all), true);
    EXPECT_TRUE(anew.Ended().empty());
    EXPECT_EQ(ReadResults(file).Text(), Wanted(all).Text());
}

TEST(ResultFile, IsOfItsOwnCampaignAlone) {
    const Folder folder;
    const Results own = ShardOf(2, 3, {"b", "e"});
    const std::pair<void (*)(Results&), const char*> rows[] = {
        {[](Results& other) { other.library = "0e"; },
         "is of another build of the library, 0f and not 0e"},
        {[](Results& other) { other.set = "a2"; },
         "is of another set of cells: other scenarios, options or shards"},
        {[](Results& other) { other.shard = 3; }, "is of another shard"},
    };
    for (const auto& [edit, problem] : rows) {
        Results other = Wanted(own);
        edit(other);
        const std::string file = folder.Write(other.library + other.set, own.Text());
        EXPECT_EQ(Thrown([&] { ResultFile(file, other, false); }),
                  file + ": " + problem + "; --anew drops what it holds");
        EXPECT_EQ(ReadResults(file).Text(), own.Text()) << "it is lost";
    }
    EXPECT_EQ(Thrown([&] { ResultFile("/dev/null", own, false); }),
              "/dev/null: no results can be written here: it is no file");
    const std::string file = folder.Write("a", own.Text());
    const ResultFile open(file, Wanted(own), false);
    EXPECT_EQ(Thrown([&] { ResultFile(file, Wanted(own), true); }),
              file + ": another campaign writes its results here");
    EXPECT_EQ(ReadResults(file).Text(), own.Text()) << "it is lost";
}

TEST(ResultFile, SaysWhereALineFindsNoRoomAndGoesOnWithoutIt) {
    const Folder folder;
    const Results all = ShardOf(1, 1, {"a", "b"});
    const std::string file = folder / "a";
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    (void)std::signal(SIGXFSZ, SIG_IGN);
    Texts problems;
    {
        const ResultFile results(file, Wanted(all), false);
        const rlimit small{all.Text().size() - 5, limit.rlim_max}; // None for all of the last.
        results.Add(all.ended.at("tiny: a"));
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
        for (int i = 0; i < 2; ++i) {
            problems.push_back(Thrown([&] { results.Add(all.ended.at("tiny: b")); }));
        }
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    EXPECT_EQ(problems, (Texts{file + ": it could not be written: there is no room",
                               file + ": it could not be written: File too large"}));
    const ResultFile again(file, Wanted(all), false);
    EXPECT_EQ(again.Ended().size(), 1U);
    again.Add(all.ended.at("tiny: b"));
    EXPECT_EQ(ReadResults(file).Text(), all.Text());
}

} // namespace
