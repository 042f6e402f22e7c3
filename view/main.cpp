/// Shows recordings, holds the contract against them, and compares them.
#include "view/check.h"
#include "view/diff.h"
#include "view/json.h"
#include "view/report.h"
#include "view/text.h"
#include "view/timeline.h"
#include "view/told.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

using namespace view;

enum ExitStatus { kGood = 0, kFound = 1, kWrongInput = 2 };

struct Options {
    std::string file;
    std::string other;
    std::string trace;
    bool isJson = false;
    bool hasTimes = false;
};

/// What was read of the file where it is damaged, for who prints nothing else of it.
void WarnOfDamage(const Told& told) {
    if (!told.recording.Damage().empty()) {
        (void)fprintf(stderr, "%s: damaged: %s\n", told.file.c_str(),
                      told.recording.Damage().c_str());
    }
}

int Show(const Options& options) {
    const Told told(options.file.empty() ? NewestRecording() : options.file);
    if (!options.trace.empty()) {
        WriteTimeline(options.trace, told.story, told.Start());
    }
    if (options.isJson) {
        WarnOfDamage(told);
        if (!WriteJson(stdout, told.story, told.Start())) {
            throw std::runtime_error(std::string("the events cannot be printed: ") +
                                     strerror(errno));
        }
    } else {
        PrintAll(told.file, told.recording, told.story);
        if (!options.trace.empty()) {
            PrintFact("trace", options.trace + ", for ui.perfetto.dev or chrome://tracing");
        }
    }
    return told.recording.Damage().empty() ? kGood : kFound;
}

int Check(const Options& options) {
    const Told told(options.file.empty() ? NewestRecording() : options.file);
    WarnOfDamage(told);
    const auto violations = FindViolations(told.Events());
    PrintViolations(violations, told.story, told.Start());
    const bool isGood = violations.empty();
    PrintFact(isGood ? "held" : "broken",
              Painted(isGood ? Colour::Good : Colour::Bad,
                      Count(violations.size(), "violation") + " of the contract in " +
                          Count(told.Events().size(), "event")));
    return isGood && told.recording.Damage().empty() ? kGood : kFound;
}

int Diff(const Options& options) {
    const Told one(options.file);
    const Told other(options.other);
    WarnOfDamage(one);
    WarnOfDamage(other);
    const auto difference = FindDifference(one.story, other.story);
    if (!difference.has_value()) {
        PrintFact("alike", Count(one.Events().size(), "event") + " of " +
                               Count(one.story.Threads().size(), "thread"));
        const bool areWhole = one.recording.Damage().empty() && other.recording.Damage().empty();
        return areWhole ? kGood : kFound;
    }
    PrintDifference(*difference, one.story, other.story,
                    options.hasTimes ? std::optional(std::pair(one.Start(), other.Start()))
                                     : std::nullopt);
    return kFound;
}

CLI::App* Declare(CLI::App& app, const char* name, const char* what, std::string& file) {
    CLI::App* const command = app.add_subcommand(name, what);
    command->add_option("file", file, "A recording [the newest out/*.rec]");
    return command;
}

} // namespace

int main(int argc, char** argv) try {
    Options options;
    CLI::App app{"Views of recordings.", "./dev"};
    app.require_subcommand(1);
    CLI::App* const show = Declare(app, "show",
                                   "What a recording tells: what was open at its end, the "
                                   "requests, the sessions",
                                   options.file);
    show->add_option("--trace", options.trace, "Write a timeline for Perfetto's viewer");
    show->add_flag("--json", options.isJson, "Print the events instead, one a line, for jq");
    CLI::App* const check =
        Declare(app, "check", "Hold the contract against a recording", options.file);
    CLI::App* const diff = Declare(
        app, "diff", "The first difference in what happened in two recordings", options.file);
    diff->get_option("file")->required()->description("A recording");
    diff->add_option("other", options.other, "Another recording")->required();
    diff->add_flag("--times", options.hasTimes, "Print when it happened, too");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kGood : kWrongInput;
    }
    const int status = *show ? Show(options) : *check ? Check(options) : Diff(options);
    if (fflush(stdout) != 0 || ferror(stdout) != 0) {
        throw std::runtime_error(std::string("standard output: ") + strerror(errno));
    }
    return status;
} catch (const std::exception& error) {
    (void)fprintf(stderr, "%s\n", error.what());
    return kWrongInput;
}
