/// The maker's camera layer on a workstation: runs a scenario through the adapter library on the
/// stand-in device, and says whether what it expects came true.
#include "host/report.h"
#include "kit/output_file.h"
#include "standin/located_json.h"
#include "view/command.h"
#include "view/timeline.h"

#include <android/log.h>
#include <csignal>
#include <filesystem>
#include <set>
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
    uint32_t width = 0; ///< Here and below 0 leaves what the scenario says.
    uint32_t height = 0;
    uint32_t frames = 0;
    uint32_t requests = 0;
};

// NOLINTNEXTLINE(cert-err58-cpp): without memory the program may end
const std::map<std::string, int> kLogLevels{{"verbose", ANDROID_LOG_VERBOSE},
                                            {"info", ANDROID_LOG_INFO},
                                            {"warn", ANDROID_LOG_WARN},
                                            {"error", ANDROID_LOG_ERROR}};

constexpr char kOwnRecording[] = "out/SCENARIO.rec"; // Where the option names no file.

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
    app.add_option("--width", options.width, "Width of the pictures, a multiple of 4");
    app.add_option("--height", options.height, "Height of the pictures, a multiple of 2");
    app.add_option("--frames", options.frames, "Frames of a burst")
        ->check(CLI::Range(1U, OemLayer::kMaxInputSets));
    app.add_option("--requests", options.requests, "Requests of each camera")
        ->check(CLI::Range(1U, 1'000'000U));
    app.add_option("--library", options.library, "The adapter library to load")
        ->check(CLI::ExistingFile);
}

// --- From the arguments to the run --------------------------------------------------------------

std::set<std::filesystem::path> ScenarioFiles() {
    using std::filesystem::directory_iterator;
    return {directory_iterator(kit::Beside("scenarios")), directory_iterator()};
}

int ListScenarios() {
    for (const std::filesystem::path& file : ScenarioFiles()) {
        const std::string shows = Scenario::Read(file).shows;
        printf("%-22s %s\n", file.stem().c_str(), shows.c_str());
    }
    return kCameTrue;
}

/// The file's scenario, with what the options want otherwise.
Scenario ReadScenario(const Options& options) {
    const bool isFile = options.scenario.ends_with(".json");
    const std::string file =
        isFile ? options.scenario : kit::Beside("scenarios/" + options.scenario + ".json");
    if (!isFile && !std::filesystem::exists(file)) {
        const std::string meant = kit::DidYouMean(options.scenario, ScenarioFiles(),
                                                  [](const auto& known) { return known.stem(); });
        throw InputError("there is no scenario '" + options.scenario + "'" +
                         (meant.empty() ? ";" : meant) +
                         " --list lists what there is, and a file's name ends in .json");
    }
    Scenario scenario = Scenario::Read(file);
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
    for (CameraPlan& plan : scenario.cameras) {
        plan.width = options.width == 0 ? plan.width : options.width;
        plan.height = options.height == 0 ? plan.height : options.height;
        plan.frames = options.frames == 0 ? plan.frames : options.frames;
        plan.requests = options.requests == 0 ? plan.requests : options.requests;
    }
    if (options.requests > 0) {
        scenario.expect.sessions.reset(); // It depends on how many there are.
    }
    scenario.Check([](size_t, const std::string& problem) { throw InputError(problem); });
    return scenario;
}

/// Writes as the log library does here anyway, less the line end that the message brings.
void WriteLogLine(const __android_logger_data* data, const char* message) {
    const std::string text = message;
    __android_log_stderr_logger(data, text.substr(0, text.find_last_not_of('\n') + 1).c_str());
}

/// The built library; the one that logs where the log is wanted or something is to go wrong.
std::string ChooseLibrary(const Options& options, const Scenario& scenario) {
    const bool logs = !options.logLevel.empty() || !scenario.faults.empty();
    __android_log_set_logger(WriteLogLine);
    __android_log_set_minimum_priority(
        kLogLevels.at(options.logLevel.empty() ? "warn" : options.logLevel));
    return options.library.empty() ? kit::AdapterFile(logs) : options.library;
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

/// The files that are wanted, open before the run.
struct Files {
    std::optional<kit::OutputFile> picture;
    std::optional<kit::OutputFile> trace;

    explicit Files(const Options& options) {
        Open(picture, options.picture);
        Open(trace, options.trace);
    }

    /// A bare name goes below the folder for output; an empty one is not wanted.
    static void Open(std::optional<kit::OutputFile>& file, const std::string& name) {
        if (!name.empty()) {
            file.emplace(name.find('/') == std::string::npos ? "out/" + name : name);
        }
    }
};

/// Writes the files that are wanted, and tells of them. \returns false, with a line on standard
/// error, if one cannot be written.
bool WriteFiles(const Options& options, Files& files, const Run& run) {
    bool areWritten = true;
    const auto write = [&](const char* what, kit::OutputFile& file, const std::string& content,
                           const char* use = "") {
        try {
            file.Write(content);
            PrintFact(what, file.Name() + use);
        } catch (const kit::OutputError& error) {
            (void)fprintf(stderr, "%s\n", error.what());
            areWritten = false;
        }
    };
    const auto picture = files.picture.has_value() ? run.MakePicture() : std::nullopt;
    if (picture.has_value()) {
        write("picture", *files.picture, picture->png);
        PrintFact("", picture->quality);
    } else if (files.picture.has_value()) {
        PrintFact("picture", "there is none to write");
    }
    if (files.trace.has_value()) {
        write("trace", *files.trace, view::TimelineOf(run.Told().story, run.Told().Start()),
              ", for ui.perfetto.dev or chrome://tracing");
    }
    if (!options.record.empty()) {
        PrintFact("recording", options.record + ", for ./dev show, check, diff and replay");
    }
    return areWritten;
}

/// The file to record into; empty for none.
std::string RecordingOf(const Options& options) {
    return options.record != kOwnRecording
               ? options.record
               : "out/" + std::filesystem::path(options.scenario).stem().string() + ".rec";
}

int RunScenario(Options options) {
    const Scenario scenario = ReadScenario(options);
    options.record = RecordingOf(options);
    Files files(options);
    const std::string library = ChooseLibrary(options, scenario);
    (void)std::signal(SIGINT, OnInterrupt);
    if (scenario.expect.abort) {
        (void)std::signal(SIGABRT, OnExpectedAbort);
    }
    Run run(
        scenario, library,
        {.file = options.record, .hasLayers = !options.hasNoLayers, .watches = options.watches});
    PrintScenario(scenario, std::filesystem::proximate(library).string());
    run.Go();
    const Outcome outcome = run.Judge();
    PrintRequests(run);
    const bool areWritten = WriteFiles(options, files, run);
    PrintOutcome(scenario, outcome);
    if (outcome.wasInterrupted) {
        return kInterrupted;
    }
    const bool isPrinted = fflush(stdout) == 0 && ferror(stdout) == 0;
    return outcome.unfulfilled.empty() && areWritten && isPrinted ? kCameTrue : kFailed;
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
    return options.lists ? ListScenarios() : RunScenario(options);
} catch (const std::exception& error) {
    (void)fprintf(stderr, "%s\n", error.what());
    return dynamic_cast<const InputError*>(&error) != nullptr ? kWrongInput : kFailed;
}
