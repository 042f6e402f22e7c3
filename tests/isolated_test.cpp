/// Runs in processes of their own: what is said of one, however it ends, and of all together.
#include "host/all.h"
#include "host/isolated.h"
#include "standin/located_json.h"
#include "tests/support/device.h"

#include <csignal>
#include <map>

namespace {

using namespace host;
using nlohmann::ordered_json;
using test::Folder;
using test::Thrown;

Scenario OneRequest(const Folder& folder, bool aborts) {
    Scenario scenario = Scenario::Read(folder.Write(
        "a.json", R"({"cameras": [{"width": 128, "height": 96, "frames": 1, "requests": 1}]})"));
    scenario.expect.abort = aborts;
    return scenario;
}

int StatusOf(const std::exception& /*error*/) { return 7; }

/// A run that comes to its end, and says so.
void Keep(const Isolated& isolated, const Scenario& scenario) {
    Run run(scenario, kit::AdapterFile(false), {});
    run.Go();
    isolated.Keep(run, run.Judge());
}

TEST(Isolated, SaysOfEachEndWhatItIs) {
    using Work = int (*)(const Isolated& isolated, const Scenario& scenario);
    const Work kills = [](const Isolated&, const Scenario&) { return raise(SIGKILL); };
    const Work throws = [](const Isolated&, const Scenario&) -> int {
        throw std::runtime_error("no camera");
    };
    const struct {
        Work work;
        bool aborts; ///< It is expected to.
        const char* status;
        const char* text; ///< Its end.
        int signal;       ///< Of the report.
        int exitStatus;
        bool isMet = false; ///< What is expected.
        std::chrono::seconds limit = std::chrono::seconds(60);
    } rows[] = {
        {[](const Isolated&, const Scenario&) { return 0; }, false, "crashed",
         "the process ended early, with status 0", 0, 0},
        {[](const Isolated&, const Scenario&) { return 3; }, false, "crashed",
         "the process ended with status 3", 0, 3},
        {[](const Isolated&, const Scenario&) { return 0; }, true, "passed",
         "the process ended by SIGABRT", SIGABRT, 0, true},
        {kills, false, "crashed", "the process died by signal 9 (Killed)", SIGKILL, 137},
        {kills, true, "crashed", "the process died by signal 9 (Killed)", SIGKILL, 137},
        {throws, false, "failed", "no camera", 0, 7},
        {throws, true, "failed", "no camera", 0, 7},
        {[](const Isolated&, const Scenario&) { return pause(); }, false, "timed out",
         "the process was ended when its time was over", SIGALRM, 142, false,
         std::chrono::seconds(1)},
        {[](const Isolated&, const Scenario&) {
             (void)kill(getppid(), SIGTERM);
             return pause();
         },
         false, "interrupted", "the process died by signal 15 (Terminated)", SIGTERM, 143},
        {[](const Isolated&, const Scenario&) { // Of something else, though it was interrupted.
             (void)std::signal(SIGTERM, SIG_IGN);
             (void)kill(getppid(), SIGTERM);
             return raise(SIGKILL);
         },
         false, "crashed", "the process died by signal 9 (Killed)", SIGKILL, 137},
        {[](const Isolated& isolated, const Scenario& scenario) {
             Keep(isolated, scenario);
             return 0;
         },
         false, "passed", "", 0, 0, true},
        {[](const Isolated& isolated, const Scenario& scenario) { // As a leak makes it end.
             Keep(isolated, scenario);
             return 1;
         },
         false, "failed", "; the process ended with status 1", 0, 1, true},
        {[](const Isolated& isolated, const Scenario& scenario) {
             Keep(isolated, scenario);
             return raise(SIGKILL);
         },
         false, "crashed", "the process died by signal 9 (Killed)", SIGKILL, 137},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.status) + ": " + row.text);
        const Folder folder;
        const Scenario scenario = OneRequest(folder, row.aborts);
        const Isolated isolated(scenario, {.library = kit::AdapterFile(false)});
        const auto ended =
            isolated.Go([&] { return row.work(isolated, scenario); }, StatusOf, row.limit);
        const ordered_json& result = ended.report.at("result");
        EXPECT_EQ(result.at("status"), row.status);
        EXPECT_TRUE(result.at("text").get<std::string>().ends_with(row.text)) << result;
        EXPECT_EQ(result.at("signal").is_null() ? 0 : result.at("signal").get<int>(), row.signal);
        EXPECT_EQ(ended.end.ExitStatus(), row.exitStatus);
        bool isMet = !result.at("expectations").empty();
        for (const auto& each : result.at("expectations")) {
            isMet = isMet && each.at("met");
        }
        EXPECT_EQ(isMet, row.isMet) << result;
        EXPECT_FALSE(isolated.TraceOf(ended).has_value()) << "nothing was recorded for it";
    }
}

TEST(Isolated, IsBlamedForWhatIsWrongBesideItAndKeepsWhatWasWorse) {
    const struct {
        const char* status;
        kit::ChildEnd end;
        const char* problem;
        const char* blamed;
        const char* text;
        int exitStatus;
    } rows[] = {
        {"passed", {}, "", "passed", "text", 0},
        {"passed", {}, "full", "failed", "text; full", 1},
        {"crashed", {.signal = SIGABRT}, "full", "crashed", "text; full", 134},
        {"failed", {.status = 7}, "full", "failed", "text; full", 7},
    };
    for (const auto& row : rows) {
        Isolated::Ended ended{{{"result", {{"status", row.status}, {"text", "text"}}}}, row.end};
        Isolated::Blame(ended, row.problem);
        EXPECT_EQ(ended.report["result"]["status"], row.blamed);
        EXPECT_EQ(ended.report["result"]["text"], row.text);
        EXPECT_EQ(ended.end.ExitStatus(), row.exitStatus);
    }
}

/// Runs scenarios that come to these ends, by their names. \returns the status, and for each that
/// ran its end in the file of results, if it has one there.
std::string RunAllTo(const std::map<std::string, std::string>& statuses, const std::string& known) {
    const Folder folder;
    std::filesystem::create_directory(folder / "all");
    for (const auto& [name, status] : statuses) {
        folder.Write("all/" + name + ".json", status);
    }
    folder.Write("all/other.txt", "no scenario");
    const AllSettings settings{.folder = folder / "all",
                               .junit = folder / "a.xml",
                               .known = folder.Write("known", known),
                               .limit = std::chrono::seconds(9)};
    std::string ran;
    const int status = RunAll(settings, [&](const std::string& file, std::chrono::seconds limit) {
        EXPECT_EQ(limit, settings.limit);
        const std::string name = std::filesystem::path(file).stem();
        ran += name;
        (void)printf("output of %s\n", name.c_str());
        (void)fflush(stdout);
        return Isolated::Ended{
            {{"result", {{"status", statuses.at(name)}, {"text", "text of " + name}}}}, {}};
    });
    std::ifstream in(settings.junit);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    for (const char each : ran) {
        const std::string name(1, each);
        EXPECT_EQ(text.find("output of " + name) != std::string::npos,
                  statuses.at(name) != "passed" || known == name)
            << text;
    }
    for (const char* const mark : {"<failure", "<error", "<skipped"}) {
        size_t count = 0;
        for (size_t at = 0; (at = text.find(mark, at)) != std::string::npos; ++at) {
            ++count;
        }
        ran += count == 0 ? "" : " " + std::to_string(count) + std::string(mark);
    }
    return std::to_string(status) + " " + ran;
}

TEST(All, ComeToWhatIsKnownOfThemOrNot) {
    const struct {
        std::map<std::string, std::string> statuses;
        const char* known;
        const char* come; ///< See above.
    } rows[] = {
        {{{"a", "passed"}, {"b", "passed"}}, "", "0 ab"},
        {{{"a", "failed"}, {"b", "passed"}}, "", "1 ab 1<failure"},
        {{{"a", "crashed"}, {"b", "timed out"}}, "", "1 ab 2<error"},
        {{{"a", "crashed"}, {"b", "failed"}}, "# a b\nb a # why", "0 ab 2<skipped"},
        {{{"a", "failed"}, {"b", "failed"}}, "a # b", "1 ab 1<failure 1<skipped"},
        {{{"a", "passed"}, {"b", "passed"}}, "a", "1 ab 1<failure"},
        // What comes after an interruption is not run, and known is it never.
        {{{"a", "passed"}, {"b", "interrupted"}, {"c", "passed"}}, "", "130 ab 1<error"},
        {{{"a", "interrupted"}, {"c", "passed"}}, "a", "130 a 1<skipped"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(RunAllTo(row.statuses, row.known), row.come);
    }
}

TEST(All, NamesAMistakeInAScenarioAndGoesOn) {
    const Folder folder;
    folder.Write("a.json", "");
    folder.Write("b.json", "");
    size_t runs = 0;
    const int status = RunAll({.folder = folder / ""}, [&](const std::string& file, auto) {
        if (++runs == 1) {
            throw standin::InputError(file + ":1: wrong");
        }
        return Isolated::Ended{{{"result", {{"status", "passed"}, {"text", ""}}}}, {}};
    });
    EXPECT_EQ(status, 1);
    EXPECT_EQ(runs, 2U);
}

TEST(All, NeedsAFolderWithScenariosAndAListOfTheirNames) {
    const Folder folder;
    const auto problem = [&](const std::string& known) {
        return Thrown([&] {
            RunAll({.folder = folder / "", .known = known},
                   [](const std::string&, auto) { return Isolated::Ended{}; });
        });
    };
    EXPECT_EQ(problem(""), folder / "" + ": there is no scenario in this folder");
    folder.Write("near.json", "");
    const std::string known = folder.Write("known", "# none\n\nneat");
    EXPECT_EQ(problem(known), known + ":3: there is no scenario 'neat'; did you mean 'near'?");
    EXPECT_EQ(problem(folder / "no"), folder / "no" + ": the list cannot be read");
    std::filesystem::remove_all(folder / "");
    EXPECT_EQ(problem(""), folder / "" + ": No such file or directory");
}

} // namespace
