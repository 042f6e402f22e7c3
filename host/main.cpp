/// The maker's camera layer on a workstation: runs a scenario through the adapter library on the
/// stand-in device, and says whether what it expects came true.
#include "host/all.h"
#include "host/report.h"
#include "kit/output_file.h"
#include "standin/located_json.h"
#include "view/command.h"
#include "view/text.h"
#include "view/timeline.h"

#include <android/log.h>
#include <csignal>
#include <filesystem>
#include <unistd.h>

namespace {

using namespace host;
using standin::InputError;
using view::PrintFact;

enum ExitStatus { kCameTrue = 0, kFailed = 1, kWrongInput = 2, kInterrupted = 130 };

struct Options {
    std::string scenario = "night-burst";
    bool lists = false;
    bool hasNoLayers = false;
    bool watches = false;
    std::string library;
    std::string logLevel;
    std::string trace;
    std::string record;
    std::string picture;
    std::string scene;
    std::string shape;
    std::vector<std::string> faults;
    Sizes sizes;

    bool IsReported() const { return !report.empty() || !page.empty(); }
    std::string command; ///< That repeats the run.
    std::string report;
    std::string page;
    uint32_t limit = 0; ///< In seconds; 0 for none.
    std::string all;    ///< The folder of scenarios to run.
    std::string junit;
    std::string known;
};

// NOLINTNEXTLINE(cert-err58-cpp): without memory the program may end
const std::map<std::string, int> kLogLevels{{"verbose", ANDROID_LOG_VERBOSE},
                                            {"info", ANDROID_LOG_INFO},
                                            {"warn", ANDROID_LOG_WARN},
                                            {"error", ANDROID_LOG_ERROR}};

constexpr char kOwnRecording[] = "out/SCENARIO.rec"; // Where the option names no file.

constexpr char kOwnScenarios[] = "host/scenarios"; // Where the option names no folder.
constexpr uint32_t kLimitOfEach = 300;             // Seconds for one of all scenarios.

void DeclareReports(CLI::App& app, Options& options) {
    auto* const report = app.add_option(
        "--report", options.report,
        "Write a report for machines (JSON), however the run ends; '-': to standard output, and "
        "all else to standard error");
    auto* const page =
        app.add_option("--page", options.page,
                       "Write all about the run as one HTML file for a browser, however it ends");
    auto* const all = app.add_option("--all", options.all,
                                     "Run all scenarios of a folder, each in a process of its own")
                          ->expected(0, 1)
                          ->default_str(kOwnScenarios)
                          ->excludes(report)
                          ->excludes(page);
    for (const char* const one : {"scenario", "--record", "--picture", "--trace"}) {
        all->excludes(app.get_option(one));
    }
    app.add_option("--junit", options.junit, "Write what came of all scenarios (JUnit's XML)")
        ->needs(all);
    for (const char* const one :
         {"--report", "--page", "--record", "--picture", "--trace", "--junit"}) {
        app.get_option(one)->check(view::NamesFile());
    }
    app.add_option("--known", options.known,
                   "A file that lists the scenarios that are known to fail, a name a line")
        ->needs(all)
        ->check(CLI::ExistingFile);
    app.add_option("--limit", options.limit,
                   "Seconds until a run is given up [none; with --all 300 for each]")
        ->check(CLI::Range(1U, 1'000'000U));
}

void Declare(CLI::App& app, Options& options) {
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    app.add_option("scenario", options.scenario,
                   "A scenario's name, or a JSON file with one [night-burst]");
    app.add_flag("--list", options.lists, "List the scenarios that there are by name");
    app.add_option("--trace", options.trace, "Write a trace for Perfetto's viewer");
    app.add_option("--record", options.record,
                   "Keep the recording, for ./dev show, check, diff and replay")
        ->expected(0, 1)
        ->default_str(kOwnRecording);
    app.add_flag("--no-layers", options.hasNoLayers,
                 "Have no layers between host, adapter and vendor; nothing is kept")
        ->excludes("--record");
    app.add_flag("--watch", options.watches,
                 "Have the layers log at once which rules are broken, as on a device")
        ->excludes("--no-layers");
    app.add_option("--picture", options.picture,
                   "Write a noisy frame and its merged picture (PNG)");
    app.add_option("--scene", options.scene, "A PNG file that the cameras see");
    app.add_option("--log", options.logLevel, "Show the library's log from this level on")
        ->expected(0, 1)
        ->default_str("verbose")
        ->check(view::OneOf(kLogLevels));
    app.add_option("--fault", options.faults, std::string("A fault at the device: ") + kFaultForms)
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->check([](const std::string& text) { return Fault{text}.Check(); });
    app.add_option("--shape", options.shape, "How results come back")->check(view::OneOf(kShapes));
    app.add_option("--width", options.sizes.width, "Width of the pictures, a multiple of 4");
    app.add_option("--height", options.sizes.height, "Height of the pictures, a multiple of 2");
    app.add_option("--frames", options.sizes.frames, "Frames of a burst")
        ->check(CLI::Range(1U, OemLayer::kMaxInputSets));
    app.add_option("--requests", options.sizes.requests, "Requests of each camera")
        ->check(CLI::Range(1U, 1'000'000U));
    app.add_option("--library", options.library, "The adapter library to load")
        ->check(CLI::ExistingFile);
    DeclareReports(app, options);
}

// --- From the arguments to the run --------------------------------------------------------------

int ListScenarios() {
    for (const std::filesystem::path& file : ScenarioFiles()) {
        const std::string shows = Scenario::Read(file).shows;
        printf("%-22s %s\n", file.stem().c_str(), shows.c_str());
    }
    return kCameTrue;
}

/// The file's scenario, with what the options want otherwise.
Scenario ReadScenario(const Options& options) {
    Scenario scenario = Scenario::Read(FileOfScenario(options.scenario));
    for (const std::string& fault : options.faults) {
        scenario.faults.push_back({fault});
    }
    if (!options.shape.empty()) {
        scenario.shape = kShapes.at(options.shape);
    }
    if (!options.scene.empty()) {
        scenario.scene = options.scene;
        scenario.scenePlace.clear();
    }
    scenario.Resize(options.sizes);
    scenario.Check([](size_t, const std::string& problem) { throw InputError(problem); });
    return scenario;
}

constexpr char kLayers[] = "CamLayer"; // Begins their tags.

// Of the process, for its log's lines.
int g_shownFrom = ANDROID_LOG_WARN;   // The level from which on they are shown.
bool g_showsLibrary = true;           // Or the layers' lines alone.
const LogFile* g_keptLines = nullptr; // Where they are kept, or null.

/// Writes as the log library does here anyway, less the line end that the message brings.
void WriteLogLine(const __android_logger_data* data, const char* message) {
    const std::string all = message;
    const std::string text = all.substr(0, all.find_last_not_of('\n') + 1);
    if (g_keptLines != nullptr) {
        g_keptLines->Write(data->priority, data->tag == nullptr ? "" : data->tag, text);
    }
    const bool isLayers = data->tag != nullptr && std::string_view(data->tag).starts_with(kLayers);
    if (data->priority >= g_shownFrom && (g_showsLibrary || isLayers)) {
        __android_log_stderr_logger(data, text.c_str());
    }
}

/// The built library; the one that logs where the log is wanted or something is to go wrong.
std::string ChooseLibrary(const Options& options, const Scenario& scenario) {
    const bool isKept = options.IsReported();
    g_showsLibrary = !options.logLevel.empty() || !scenario.faults.empty();
    g_shownFrom = kLogLevels.at(options.logLevel.empty() ? "warn" : options.logLevel);
    __android_log_set_logger(WriteLogLine);
    __android_log_set_minimum_priority(isKept ? ANDROID_LOG_VERBOSE : g_shownFrom);
    return options.library.empty() ? kit::AdapterFile(g_showsLibrary || isKept) : options.library;
}

/// The second Ctrl-C ends the process as usual.
void OnInterrupt(int /*signal*/) {
    Run::Interrupt();
    (void)std::signal(SIGINT, SIG_DFL);
}

[[noreturn]] void OnExpectedAbort(int /*signal*/) {
    constexpr char kText[] = "came true  the process ended by SIGABRT\n";
    if (Run::IsLoading()) {
        (void)!write(STDOUT_FILENO, kText, sizeof kText - 1);
        _exit(kCameTrue);
    }
    _exit(kFailed); // Something else than the library, which only does so while it loads.
}

/// The files that are wanted, open before the run. It writes the picture; the process around it
/// writes the others, from what was recorded, however the run ends.
struct Files {
    std::optional<kit::OutputFile> picture;
    std::optional<kit::OutputFile> trace;
    std::optional<kit::OutputFile> report;
    std::optional<kit::OutputFile> page;

    explicit Files(const Options& options) {
        if (!options.report.empty()) { // For a script: where it says.
            report.emplace(options.report);
        }
        Open(page, options.page);
        Open(picture, options.picture);
        Open(trace, options.trace);
    }

    bool Any() const {
        return picture.has_value() || trace.has_value() || report.has_value() || page.has_value();
    }

    /// A bare name goes below the folder for output; an empty one is not wanted.
    static void Open(std::optional<kit::OutputFile>& file, const std::string& name) {
        if (!name.empty()) {
            const bool isBare = name.find('/') == std::string::npos && name != "-";
            file.emplace(isBare ? "out/" + name : name);
        }
    }
};

/// Writes the picture, if it is wanted. \returns false if it cannot be written.
bool WritePicture(Files& files, const Run& run) {
    if (!files.picture.has_value()) {
        return true;
    }
    const auto picture = run.MakePicture();
    if (!picture.has_value()) {
        PrintFact("picture", "there is none to write");
        return true;
    }
    const bool isWritten = view::WriteFile("picture", *files.picture, picture->png).empty();
    PrintFact("", picture->quality);
    return isWritten;
}

/// Writes the trace, if it is wanted and there is anything to show. What is wrong becomes a part of
/// the report.
void WriteTrace(Files& files, const Isolated& around, Isolated::Ended& ended) {
    const std::optional<std::string> trace =
        files.trace.has_value() ? around.TraceOf(ended) : std::nullopt;
    if (trace.has_value()) {
        around.Blame(ended, view::WriteFile("trace", *files.trace, *trace,
                                            ", for ui.perfetto.dev or chrome://tracing"));
    } else if (files.trace.has_value()) {
        PrintFact("trace", "there is none to write: nothing was recorded");
    }
}

/// The file to record into; empty for none.
std::string RecordingOf(const Options& options) {
    return options.record != kOwnRecording
               ? options.record
               : "out/" + std::filesystem::path(options.scenario).stem().string() + ".rec";
}

/// The run, in this process.
/// \param around the process that reports it; null where nobody does.
int RunHere(const Options& options, const Scenario& scenario, const std::string& library,
            Files& files, const Isolated* around) {
    (void)std::signal(SIGINT, OnInterrupt);
    if (scenario.expect.abort) {
        (void)std::signal(SIGABRT, OnExpectedAbort);
    }
    Run run(scenario, library,
            {.file = around == nullptr ? options.record : around->Recording(),
             .hasLayers = !options.hasNoLayers,
             .watches = options.watches});
    PrintScenario(scenario, std::filesystem::proximate(library).string());
    run.Go();
    const Outcome outcome = run.Judge();
    PrintRequests(run);
    const bool isWritten = WritePicture(files, run);
    if (!options.record.empty()) {
        PrintFact("recording", options.record + ", for ./dev show, check, diff and replay");
    }
    PrintOutcome(scenario, outcome);
    if (around != nullptr) {
        around->Keep(run, outcome);
    }
    if (outcome.wasInterrupted) {
        return kInterrupted;
    }
    const bool isPrinted = fflush(stdout) == 0 && ferror(stdout) == 0;
    return outcome.unfulfilled.empty() && isWritten && isPrinted ? kCameTrue : kFailed;
}

int StatusOf(const std::exception& error) {
    return dynamic_cast<const InputError*>(&error) != nullptr ? kWrongInput : kFailed;
}

/// The run, in a process of its own. Nothing is loaded here.
Isolated::Ended RunApart(const Options& options, const Scenario& scenario,
                         const std::string& library, Files& files) {
    const Isolated around(scenario, {.library = library,
                                     .command = options.command,
                                     .record = options.record,
                                     .hasPage = files.page.has_value()});
    g_keptLines = options.IsReported() ? &around.Log() : nullptr;
    const auto run = [&] { return RunHere(options, scenario, library, files, &around); };
    auto ended = around.Go(run, StatusOf, std::chrono::seconds(options.limit));
    g_keptLines = nullptr;
    WriteTrace(files, around, ended);
    if (files.page.has_value()) {
        around.Blame(ended,
                     view::WriteFile("page", *files.page, around.PageOf(ended), ", for a browser"));
    }
    return ended;
}

int RunScenario(Options options) {
    const Scenario scenario = ReadScenario(options);
    options.record = RecordingOf(options);
    const std::string library = ChooseLibrary(options, scenario);
    Files files(options);
    if (!files.Any() && options.limit == 0) {
        return RunHere(options, scenario, library, files, nullptr);
    }
    view::OutliveReader();
    const Isolated::Ended ended = RunApart(options, scenario, library, files);
    if (ended.end.signal != 0) {
        PrintFact("ended", view::Painted(view::Colour::Bad, "the process " + ended.end.Describe()));
    }
    if (files.report.has_value()) {
        files.report->Write(view::TextOf(ended.report));
        PrintFact("report", files.report->Name());
    }
    return ended.end.ExitStatus();
}

int RunAllScenarios(const Options& options) {
    if (!options.junit.empty()) {
        view::OutliveReader();
    }
    const auto run = [&](const std::string& file, std::chrono::seconds limit) {
        Options own = options;
        own.scenario = file;
        own.limit = static_cast<uint32_t>(limit.count());
        const Scenario scenario = ReadScenario(own);
        Files none(own);
        return RunApart(own, scenario, ChooseLibrary(own, scenario), none);
    };
    return RunAll(
        {.folder = options.all == kOwnScenarios ? kit::Beside("scenarios") : options.all,
         .junit = options.junit,
         .known = options.known,
         .limit = std::chrono::seconds(options.limit == 0 ? kLimitOfEach : options.limit)},
        run);
}

/// The command, as a person types it.
std::string CommandOf(int argc, char** argv) {
    std::string command = "./dev host";
    for (int i = 1; i < argc; ++i) {
        command += " " + view::ShellWord(argv[i]);
    }
    return command;
}

} // namespace

int main(int argc, char** argv) try {
    // Lines go out at once, so that they stand in order with the log's on standard error.
    (void)setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    Options options;
    CLI::App app{"Drives camera.oemlayer.adapter.so on the stand-in device, as a scenario says.",
                 "./dev host"};
    Declare(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return view::ExitOf(app, error);
    }
    options.command = CommandOf(argc, argv);
    const int status = options.lists          ? ListScenarios()
                       : !options.all.empty() ? RunAllScenarios(options)
                                              : RunScenario(options);
    view::CheckPrinted();
    return status;
} catch (const std::exception& error) {
    (void)fprintf(stderr, "%s\n", error.what());
    return StatusOf(error);
}
