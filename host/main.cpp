/// The maker's camera layer on a workstation: loads the adapter library, opens a camera on the
/// stand-in device, and sends three requests through it.
#include "host/report.h"

#include <CLI/CLI.hpp>

#include <android/log.h>
#include <filesystem>

namespace {

using namespace host;

constexpr int kNotAsItShould = 1;
constexpr int kWrongArguments = 2;
constexpr uint32_t kCameraId = 0;
constexpr uint32_t kMostPixels = 16384; // In a row or a column.

struct Options {
    std::string library;
    std::string device;
    std::string logLevel;
    std::string fault;
    std::string shape = "metadata-first";
    Plan plan;
};

const std::map<std::string, int>& LogLevels() {
    static const std::map<std::string, int> levels{{"verbose", ANDROID_LOG_VERBOSE},
                                                   {"info", ANDROID_LOG_INFO},
                                                   {"warn", ANDROID_LOG_WARN},
                                                   {"error", ANDROID_LOG_ERROR}};
    return levels;
}

/// Accepts multiples of `unit`.
CLI::Validator Length(uint32_t unit) {
    const std::string text = "a multiple of " + std::to_string(unit) + " from " +
                             std::to_string(unit) + " to " + std::to_string(kMostPixels);
    const auto check = [unit, text](const std::string& value) {
        uint32_t number = 0;
        const bool fits = CLI::detail::lexical_cast(value, number) && number != 0 &&
                          number % unit == 0 && number <= kMostPixels;
        return fits ? std::string{} : "'" + value + "' is not " + text;
    };
    return {check, "", "length"};
}

std::string CheckFault(const std::string& name) {
    return name == "list" || FindFault(name) != nullptr
               ? std::string{}
               : "there is no fault '" + name + "'; '--fault list' lists what there is";
}

void Declare(CLI::App& app, Options& options) {
    app.add_option("--library", options.library, "The adapter library to load")
        ->check(CLI::ExistingFile);
    app.add_option("--device", options.device, "The folder that stands for / on the device")
        ->check(CLI::ExistingDirectory);
    app.add_option("--log", options.logLevel, "Show the library's log from this level on")
        ->expected(0, 1)
        ->default_str("verbose")
        ->check(CLI::IsMember(&LogLevels()));
    app.add_option("--fault", options.fault, "Run with a fault; 'list' lists the faults")
        ->check(CheckFault);
    app.add_option("--shape", options.shape, "How results come back")
        ->check(CLI::IsMember(&Shapes()));
    app.add_option("--width", options.plan.width, "Width of the pictures, a multiple of 4")
        ->check(Length(4));
    app.add_option("--height", options.plan.height, "Height of the pictures, a multiple of 2")
        ->check(Length(2));
    app.add_option("--frames", options.plan.frames, "Frames of a burst")
        ->check(CLI::Range(1U, OemLayer::kMaxInputSets));
}

/// A file of the build tree, from where this program lies in it.
std::string Beside(const std::string& path) {
    const auto self = std::filesystem::read_symlink("/proc/self/exe");
    return (self.parent_path() / path).lexically_normal().string();
}

/// Writes as the log library does here anyway, less the line end that the message brings.
void WriteLogLine(const __android_logger_data* data, const char* message) {
    const std::string text = message;
    __android_log_stderr_logger(data, text.substr(0, text.find_last_not_of('\n') + 1).c_str());
}

void Complete(Options& options) {
    const bool logs = !options.logLevel.empty() || !options.fault.empty();
    if (options.library.empty()) {
        const std::string folder = logs ? "../adapterlayer/verbose/" : "../adapterlayer/";
        options.library = Beside(folder + "camera.oemlayer.adapter.so");
    }
    if (options.device.empty()) {
        options.device = Beside("../device");
    }
    options.plan.shape = Shapes().at(options.shape);
    __android_log_set_logger(WriteLogLine);
    __android_log_set_minimum_priority(
        LogLevels().at(options.logLevel.empty() ? "warn" : options.logLevel));
}

int ListFaults() {
    for (const Fault& fault : Faults()) {
        printf("%-26s%s\n", fault.name, fault.what);
    }
    return 0;
}

void RunRequests(Camera& camera, const Plan& plan) {
    for (const Step& step : plan.Steps()) {
        PrintRequestHeading(camera.Requests().size() + 1, step);
        Request& request = camera.Submit(step);
        const bool inTime = !request.IsAccepted() || request.WaitForCompletion();
        if (inTime) {
            StandinControl()->WaitIdle(); // The library's last lines come first.
        }
        PrintRequest(request);
        if (!inTime) {
            printf("  The time is up, and the request is not completed: no further one is sent.\n");
            return;
        }
    }
}

int Run(Options& options) {
    standin::Control& device = *StandinControl();
    const Fault* const fault = FindFault(options.fault);
    device.SetDeviceRoot(options.device);
    if (fault != nullptr) {
        fault->apply(device, options.plan);
    }
    device.SetShape(options.plan.shape);
    PrintPlan(options.library, fault, options.plan);

    Library library;
    if (const std::string problem = library.Open(options.library); !problem.empty()) {
        fprintf(stderr, "The adapter library cannot be used: %s\n", problem.c_str());
        return kNotAsItShould;
    }
    library.Load();
    PrintLibraries(device, library.Table(kCameraId));
    Camera camera(library, kCameraId, options.plan);
    PrintCamera(device, camera.Table(), options.plan);
    RunRequests(camera, options.plan);
    PrintSessions(device, camera);
    camera.Close();
    return PrintVerdict(device, camera) ? 0 : kNotAsItShould;
}

int ParseAndRun(int argc, char** argv) {
    Options options;
    CLI::App app{"Drives camera.oemlayer.adapter.so on the stand-in device."};
    Declare(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kWrongArguments;
    }
    if (options.fault == "list") {
        return ListFaults();
    }
    Complete(options);
    return Run(options);
}

} // namespace

int main(int argc, char** argv) {
    // Lines go out at once, so that they stand in order with the log's on standard error.
    (void)setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    try {
        return ParseAndRun(argc, argv);
    } catch (const std::exception& error) {
        fprintf(stderr, "%s\n", error.what());
        return kNotAsItShould;
    }
}
