/// Fault campaigns: every fault in every scenario, and pairs of faults, each in a process of its
/// own, held against what the documents say.
#include "campaign/page.h"
#include "campaign/results.h"
#include "kit/child.h"
#include "kit/library.h"
#include "kit/output_file.h"
#include "kit/shared.h"
#include "standin/located_json.h"
#include "view/command.h"
#include "view/report.h"
#include "view/text.h"

#include <atomic>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <thread>
#include <unistd.h>

namespace {

using namespace campaign;
using standin::InputError;
using view::Colour;
using view::Painted;
using view::PrintFact;

enum ExitStatus { kAsDocumented = 0, kFound = 1, kWrongInput = 2, kInterrupted = 130 };

#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr uint32_t kLimit = 200;
#else
constexpr uint32_t kLimit = 40; // Beyond the patience of the host, once at a flush and at the end.
#endif

struct Options {
    std::vector<std::string> scenarios;
    Choice choice;
    std::string pairs;
    uint32_t limit = kLimit;
    std::string file = "out/campaign.jsonl";
    bool isAnew = false;
    std::string shard = "1/1";
    uint32_t jobs = 0;
    std::vector<std::string> merged;
    std::string output;
    std::string page;
    std::string library;
    bool lists = false;
};

// NOLINTNEXTLINE(cert-err58-cpp): without memory the program may end
const std::map<std::string, Pairs> kPairs{{"first", Pairs::First}, {"all", Pairs::All}};

void Declare(CLI::App& app, Options& options) {
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    const auto many = CLI::MultiOptionPolicy::TakeAll;
    app.add_option("--scenario", options.scenarios, "Scenarios: names, or JSON files [all by name]")
        ->multi_option_policy(many);
    app.add_option("--fault", options.choice.places,
                   "Only faults at this entry or path; several: and pairs of them")
        ->multi_option_policy(many);
    app.add_option("--pairs", options.pairs,
                   "Pairs of faults, too: those of all or the first calls, or all that there are")
        ->expected(0, 1)
        ->default_str("first")
        ->check(view::OneOf(kPairs));
    app.add_option("--most-calls", options.choice.mostCalls,
                   "Have no more calls of an entry fail, one at a time [all]")
        ->check(CLI::Range(1U, 1'000'000U));
    app.add_option("--limit", options.limit, "Seconds until a run is given up")
        ->capture_default_str()
        ->check(CLI::Range(1U, 1'000'000U));
    auto* const list = app.add_flag("--list", options.lists, "List the cells, and run none");
    auto* const file = app.add_option("--file", options.file,
                                      "The results, which grow; what is there is not run again")
                           ->capture_default_str();
    app.add_flag("--anew", options.isAnew, "Drop what the file of results holds");
    auto* const shard = app.add_option("--shard", options.shard,
                                       "The cells of one machine among several, as in 1/3");
    app.add_option("--jobs", options.jobs, "Runs at once [one for each core]")
        ->check(CLI::Range(size_t{1}, kit::kMostChildren));
    auto* const merge = app.add_option("--merge", options.merged,
                                       "Put the results of all shards together, and run none")
                            ->multi_option_policy(many)
                            ->check(CLI::ExistingFile)
                            ->excludes(list)
                            ->excludes(file)
                            ->excludes(shard);
    app.add_option("-o,--output", options.output, "Where the merged results go")
        ->needs(merge)
        ->check(view::NamesFile());
    app.add_option("--page", options.page, "Write the results as one HTML file for a browser")
        ->check(view::NamesFile());
    app.add_option("--library", options.library, "The adapter library to load")
        ->check(CLI::ExistingFile);
}

// --- What came of it ----------------------------------------------------------------------------

using ByClass = std::array<size_t, static_cast<size_t>(Class::Count)>;

void PrintRow(const std::string& scenario, const ByClass& counts) {
    size_t all = 0;
    for (const size_t count : counts) {
        all += count;
    }
    printf("%-22s %7zu", scenario.c_str(), all);
    for (size_t i = 0; i < counts.size(); ++i) {
        char text[32];
        const auto width = static_cast<int>(std::strlen(NameOf(Class{static_cast<int>(i)}))) + 2;
        (void)snprintf(text, sizeof text, "%*zu", width, counts.at(i));
        printf("%s",
               Painted(i == 0 || counts.at(i) == 0 ? Colour::Plain : Colour::Bad, text).c_str());
    }
    printf("\n");
}

/// A table by scenario and class, and each cell that is not as documented. \returns how many.
size_t Print(const Results& results) {
    ByClass all{};
    std::map<std::string, ByClass> counts;
    std::vector<std::string> scenarios;
    for (const std::string& cell : results.cells) {
        const Result& result = results.ended.at(cell);
        if (counts.try_emplace(result.scenario).second) {
            scenarios.push_back(result.scenario);
        }
        ++counts[result.scenario].at(static_cast<size_t>(result.its));
        ++all.at(static_cast<size_t>(result.its));
    }
    printf("%-22s %7s", "scenario", "cells");
    for (size_t i = 0; i < all.size(); ++i) {
        printf("  %s", NameOf(Class{static_cast<int>(i)}));
    }
    printf("\n");
    for (const std::string& scenario : scenarios) {
        PrintRow(scenario, counts[scenario]);
    }
    PrintRow("all", all);
    for (const std::string& cell : results.cells) {
        const Result& result = results.ended.at(cell);
        if (result.its != Class::AsDocumented) {
            printf("\n%s  %s\n  %s\n  %s\n", Painted(Colour::Bad, NameOf(result.its)).c_str(),
                   cell.c_str(), result.text.c_str(), result.command.c_str());
        }
    }
    return results.cells.size() - all[0];
}

/// A bare name goes below the folder for output.
std::string InOutput(const std::string& name) {
    return name.find('/') == std::string::npos && name != "-" ? "out/" + name : name;
}

int Tell(const Results& results, kit::OutputFile* page) {
    const size_t found = Print(results);
    if (page != nullptr) {
        page->Write(PageOf(results));
        PrintFact("page", page->Name() + ", for a browser");
    }
    return found == 0 ? kAsDocumented : kFound;
}

int MergeFiles(const Options& options, kit::OutputFile* page) {
    const Results results = Merge(options.merged);
    if (!options.output.empty()) {
        kit::OutputFile file(InOutput(options.output));
        file.Write(results.Text());
        PrintFact("results", file.Name());
    }
    return Tell(results, page);
}

// --- The cells ----------------------------------------------------------------------------------

/// Reads I/N.
void ReadShard(const std::string& text, Results& results) {
    int end = 0;
    const bool isRead =
        sscanf(text.c_str(), "%9u/%9u%n", &results.shard, &results.shards, &end) == 2 &&
        static_cast<size_t>(end) == text.size() &&
        text.find_first_not_of("0123456789/") == std::string::npos;
    if (!isRead || results.shard < 1 || results.shard > results.shards) {
        throw InputError("--shard: '" + text + "' must be as in 2/3, and from 1/3 to 3/3");
    }
}

/// Tells sets of cells apart.
std::string SetOf(const std::vector<std::string>& commands) {
    uint64_t hash = 0xcbf29ce484222325;
    for (const std::string& command : commands) {
        for (const char c : command + "\n") {
            hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
        }
    }
    return view::Hex(hash).substr(2);
}

std::vector<Target> ReadTargets(const Options& options) {
    std::vector<std::string> names = options.scenarios;
    if (names.empty()) {
        for (const std::filesystem::path& file : host::ScenarioFiles()) {
            names.push_back(file.stem());
        }
    }
    std::vector<Target> targets;
    for (const std::string& name : names) {
        targets.push_back(ReadTarget(name));
        for (size_t i = 0; i + 1 < targets.size(); ++i) {
            if (targets[i].name == name) {
                throw InputError("--scenario: '" + name + "' stands there twice");
            }
        }
    }
    return targets;
}

/// How far the processes of a campaign are.
struct Progress {
    std::atomic<size_t> next = 0;
    std::atomic<size_t> ended = 0;
};

class Campaign {
  public:
    explicit Campaign(const Options& options)
        : mOptions(options),
          mTargets(ReadTargets(options)), mSettings{options.library.empty()
                                                        ? kit::AdapterFile(false)
                                                        : options.library,
                                                    std::chrono::seconds(options.limit)} {
        ReadShard(options.shard, mWanted);
        mOptions.choice.pairs = options.pairs.empty() ? Pairs::None : kPairs.at(options.pairs);
    }

    int Go(kit::OutputFile* page) {
        if (!CountCalls()) {
            return kInterrupted;
        }
        Choose();
        if (mOptions.lists) {
            for (const std::string& cell : mWanted.cells) {
                printf("%s\n", cell.c_str());
            }
            return kAsDocumented;
        }
        const ResultFile file(InOutput(mOptions.file), mWanted, mOptions.isAnew);
        if (!file.Ended().empty()) {
            PrintFact("resumed", std::to_string(file.Ended().size()) + " of " +
                                     view::Count(mWanted.cells.size(), "cell") + " had ended");
        }
        const auto start = std::chrono::steady_clock::now();
        if (const int status = RunMissing(file); status != kAsDocumented) {
            return status;
        }
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        char text[64];
        (void)snprintf(text, sizeof text, "%.1f s for %zu cells", took.count(), mCells.size());
        PrintFact("took", text);
        const Results results = file.Finish();
        PrintFact("results", InOutput(mOptions.file));
        return Tell(results, page);
    }

  private:
    /// Runs each scenario without a fault. \returns false where it was interrupted.
    bool CountCalls() {
        for (Target& target : mTargets) {
            if (!RunCell(target, {}, mSettings, &target.calls).has_value()) {
                return false;
            }
        }
        return true;
    }

    /// Makes the plan, tells of it, and takes this shard's part.
    void Choose() {
        const Plan plan = MakePlan(mTargets, mOptions.choice);
        std::vector<std::string> commands;
        for (const Cell& cell : plan.cells) {
            commands.push_back(CommandOf(mTargets[cell.target], cell.faults, mOptions.limit));
            if ((commands.size() - 1) % mWanted.shards + 1 == mWanted.shard) {
                mCells.push_back(cell);
                mWanted.cells.push_back(NameOf(mTargets[cell.target].name, cell.faults));
            }
        }
        mWanted.set = SetOf(commands);
        mWanted.library = kit::BuildIdOf(mSettings.library);
        if (mWanted.library.empty()) {
            throw InputError(mSettings.library + ": this is no library with a build id");
        }
        FILE* const out = mOptions.lists ? stderr : stdout;
        (void)fprintf(
            out, "cells      %zu of %zu scenarios%s\n", plan.cells.size(), mTargets.size(),
            mWanted.shards == 1
                ? ""
                : (", " + std::to_string(mCells.size()) + " in shard " + mOptions.shard).c_str());
        const std::pair<size_t, const char*> left[] = {
            {plan.beyond, "later calls, which --most-calls leaves out"},
            {plan.taken, "faults where a scenario has one of its own"},
            {plan.pairs, "pairs with a later call, which --pairs all has"}};
        for (const auto& [count, what] : left) {
            if (count > 0) {
                (void)fprintf(out, "left out   %zu %s\n", count, what);
            }
        }
    }

    int RunMissing(const ResultFile& file) {
        std::erase_if(mCells, [&](const Cell& cell) {
            return file.Ended().contains(NameOf(mTargets[cell.target].name, cell.faults));
        });
        kit::Shared<Progress> shared;
        const uint32_t jobs =
            mOptions.jobs != 0 ? mOptions.jobs : std::max(1U, std::thread::hardware_concurrency());
        std::vector<std::function<int()>> works;
        for (size_t i = 0;
             i < std::min<size_t>(std::min<size_t>(jobs, kit::kMostChildren), mCells.size()); ++i) {
            works.emplace_back([&, i] { return Take(file, *shared, i == 0); });
        }
        int status = kAsDocumented;
        for (const kit::ChildEnd& end : kit::RunInChildren(works, {.takesInterrupts = true})) {
            status = end.wasInterrupted ? int{kInterrupted} : std::max(status, end.ExitStatus());
            if (end.signal != 0 && !end.wasInterrupted) {
                (void)fprintf(stderr, "a process that runs cells %s\n", end.Describe().c_str());
            }
        }
        if (status == kInterrupted) {
            PrintFact("ended",
                      "by an interruption: the same command goes on, after " +
                          std::to_string(mWanted.cells.size() - mCells.size() + shared->ended) +
                          " cells");
        }
        return status;
    }

    /// The work of one process: takes cells for as long as there are some.
    int Take(const ResultFile& file, Progress& shared, bool isFirst) const try {
        auto shown = std::chrono::steady_clock::now();
        for (size_t i = 0; (i = shared.next++) < mCells.size();) {
            const Target& target = mTargets[mCells[i].target];
            const std::vector<std::string>& faults = mCells[i].faults;
            const std::optional<Verdict> verdict = RunCell(target, faults, mSettings);
            if (!verdict.has_value()) {
                return kInterrupted;
            }
            file.Add({target.name, faults, verdict->its, verdict->text,
                      CommandOf(target, faults, mOptions.limit, mOptions.library)});
            ++shared.ended;
            if (isFirst) {
                Show(shared.ended, shown);
            }
        }
        return kAsDocumented;
    } catch (const std::exception& error) {
        (void)fprintf(stderr, "%s\n", error.what());
        return kWrongInput;
    }

    /// How far it is, from time to time. No thread does this, since there are forks.
    void Show(size_t ended, std::chrono::steady_clock::time_point& shown) const {
        const bool isTerminal = isatty(STDERR_FILENO) != 0;
        const auto now = std::chrono::steady_clock::now();
        if (now - shown < std::chrono::seconds(isTerminal ? 1 : 30)) {
            return;
        }
        shown = now;
        (void)fprintf(stderr, isTerminal ? "\r\033[K%zu of %zu cells%s" : "%zu of %zu cells%s",
                      ended, mCells.size(), isTerminal && ended < mCells.size() ? "" : "\n");
    }

    Options mOptions;
    std::vector<Target> mTargets;
    const CellSettings mSettings;
    std::vector<Cell> mCells; ///< Of this shard, that are to be run.
    Results mWanted;
};

} // namespace

int main(int argc, char** argv) try {
    (void)setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    Options options;
    CLI::App app{"Runs scenarios with every fault of the device, and holds what comes of it "
                 "against the documents.",
                 "./dev campaign"};
    Declare(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return view::ExitOf(app, error);
    }
    std::optional<kit::OutputFile> page;
    if (!options.page.empty()) {
        page.emplace(InOutput(options.page));
        view::OutliveReader();
    }
    kit::OutputFile* const its = page.has_value() ? &*page : nullptr;
    return options.merged.empty() ? Campaign(options).Go(its) : MergeFiles(options, its);
} catch (const std::exception& error) {
    return view::Report(error);
}
