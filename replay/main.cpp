/// Plays recordings again on the stand-in device, and shrinks them.
#include "kit/library.h"
#include "replay/compare.h"
#include "replay/shrink.h"
#include "view/report.h"
#include "view/text.h"

#include <CLI/CLI.hpp>

#include <android/log.h>
#include <cerrno>
#include <filesystem>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using view::PrintFact;

enum ExitStatus { kGood = 0, kFound = 1, kWrongInput = 2 };

struct Options {
    std::string file;
    std::string library = kit::AdapterFile(false);
    std::string record;
    bool isFast = false;
    std::string output;
    std::string rule;
    std::optional<uint32_t> status;
    bool isCrash = false;
};

struct InputError : std::runtime_error {
    using runtime_error::runtime_error;
};

// --- Input --------------------------------------------------------------------------------------

/// A recording that can be replayed.
class Input : public view::Told {
  public:
    explicit Input(const std::string& name) : Told(name) {
        bool hasHost = false;
        bool hasVendor = false;
        for (const contract::Event& event : Events()) {
            const contract::EntryText& text = event.Text();
            hasHost |=
                text.side == contract::Side::Host && text.caller == contract::Caller::Outside;
            hasVendor |= text.side == contract::Side::Vendor;
        }
        if (!hasHost || !hasVendor) {
            throw InputError(name + ": the " + (hasHost ? "vendor" : "host") +
                             "'s side is not recorded, and a replay needs both");
        }
        if (!recording.Damage().empty()) {
            (void)fprintf(stderr, "%s: damaged: %s\n", name.c_str(), recording.Damage().c_str());
        }
        if (recording.CountLost() > 0) {
            (void)fprintf(stderr,
                          "%s: the first %s are overwritten: what they made or opened is made up "
                          "for\n",
                          name.c_str(), view::Count(recording.CountLost(), "event").c_str());
        }
    }
};

/// \throws InputError where the file cannot be written, or is the recording itself.
void CheckOutput(const std::string& file, const std::string& input) {
    std::error_code ignored;
    if (fs::equivalent(file, input, ignored)) {
        throw InputError(file + ": this is the recording itself");
    }
    const bool wasThere = fs::exists(file, ignored);
    const std::string problem = contract::ProblemOfFile(file);
    if (!problem.empty()) {
        throw InputError(problem);
    }
    if (!wasThere) {
        (void)fs::remove(file, ignored); // Nothing may come of it.
    }
}

/// A file that is gone with this.
class TemporaryFile {
  public:
    TemporaryFile() : mName(fs::temp_directory_path() / "oemlayer-replay.XXXXXX") {
        const int file = mkstemp(mName.data());
        if (file < 0) {
            throw InputError(mName + ": " + strerror(errno));
        }
        close(file);
    }
    ~TemporaryFile() { (void)unlink(mName.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& Name() const { return mName; }

  private:
    std::string mName;
};

// --- Replay -------------------------------------------------------------------------------------

int Replay(const Options& options) {
    const Input input(options.file.empty() ? view::NewestRecording() : options.file);
    const TemporaryFile temporary;
    const std::string record = options.record.empty() ? temporary.Name() : options.record;
    CheckOutput(record, input.file);
    const replay::Ending ending = replay::PlayInProcess(
        input.Events(), {.library = options.library, .record = record, .isPaced = !options.isFast});
    const view::Told played(record);
    PrintRequests(RowsOf(played.story), played.Start());
    for (const std::string& omitted : ending.omitted) {
        PrintFact("left out", omitted);
    }
    if (!ending.stuck.empty()) {
        PrintFact("stuck", Painted(view::Colour::Bad, ending.stuck));
    }
    if (ending.IsDead()) {
        PrintFact("ended", Painted(view::Colour::Bad, "the process " + ending.Describe()));
        PrintOpenCalls(played.story, played.Start());
    }
    const bool didDie = input.story.IsOpen() && input.recording.Damage().empty();
    const bool doesDie = ending.IsDead() || !ending.stuck.empty();
    if (didDie && !doesDie) {
        PrintFact("ended", Painted(view::Colour::Bad, "as usual: the recording ends within calls, "
                                                      "which returned here"));
    }
    if (!options.record.empty()) {
        PrintFact("recording", options.record);
    }
    const replay::Comparison comparison(input, played);
    comparison.Print();
    const bool isEnded = ending.stuck.empty() && (ending.IsDead() ? input.story.IsOpen() : !didDie);
    return isEnded && !comparison.Difference().has_value() ? kGood : kFound;
}

// --- Shrink -------------------------------------------------------------------------------------

contract::Rule RuleOf(const std::string& number) {
    for (size_t i = 0; i < contract::kRules.size(); ++i) {
        if (number == contract::kRules[i].number) {
            return static_cast<contract::Rule>(i);
        }
    }
    throw InputError("there is no rule '" + number + "': docs/contract.md lists them");
}

replay::Wanted WantedOf(const Options& options) {
    if ((options.rule.empty() ? 0 : 1) + (options.status ? 1 : 0) + (options.isCrash ? 1 : 0) !=
        1) {
        throw InputError("one of --rule, --status and --crash says what the calls are to show");
    }
    replay::Wanted wanted{.status = options.status, .isCrash = options.isCrash};
    if (!options.rule.empty()) {
        wanted.rule = RuleOf(options.rule);
    }
    return wanted;
}

std::string Describe(const replay::Shrunk& shrunk) {
    return view::Count(shrunk.requests, "request") + " and " +
           view::Count(shrunk.others, "other call") + " are left, " +
           view::Count(shrunk.events, "event");
}

int Shrink(const Options& options) {
    const replay::Wanted wanted = WantedOf(options);
    const Input input(options.file);
    const std::string file = options.output.empty()
                                 ? fs::path(options.file).replace_extension(".shrunk.rec").string()
                                 : options.output;
    CheckOutput(file, options.file);
    const bool isTerminal = isatty(STDERR_FILENO) != 0;
    const auto progress = [&](const replay::Shrunk& shrunk) {
        if (isTerminal) {
            (void)fprintf(stderr, "\r%s after %s \033[K", Describe(shrunk).c_str(),
                          view::Count(shrunk.trials, "replay").c_str());
        }
    };
    const auto shrunk = replay::Shrink(input.recording, wanted, options.library, file, progress);
    if (isTerminal) {
        (void)fprintf(stderr, "\r\033[K");
    }
    if (!shrunk.has_value()) {
        PrintFact("not seen", "a replay of the whole recording does not show it");
        return kFound;
    }
    PrintFact("shrunk", Describe(*shrunk) + " of " + view::Count(input.Events().size(), "event") +
                            ", after " + view::Count(shrunk->trials, "replay"));
    PrintFact("recording", file);
    if (!shrunk->isConfirmed) {
        PrintFact("unsteady", "the last replay of what is left did not show it");
    }
    return kGood;
}

CLI::App* Declare(CLI::App& app, const char* name, const char* what, Options& options) {
    CLI::App* const command = app.add_subcommand(name, what);
    command->add_option("file", options.file, "A recording of both sides");
    command->add_option("--library", options.library, "The adapter library to load")
        ->check(CLI::ExistingFile);
    return command;
}

} // namespace

int main(int argc, char** argv) try {
    __android_log_set_minimum_priority(ANDROID_LOG_WARN);
    Options options;
    CLI::App app{"Plays recordings again on the stand-in device.", "./dev"};
    app.require_subcommand(1);
    CLI::App* const replay =
        Declare(app, "replay", "Make the recorded calls, answer as recorded, say what is otherwise",
                options);
    replay->get_option("file")->description("A recording of both sides [the newest out/*.rec]");
    replay->add_option("--record", options.record, "Keep the replay's own recording");
    replay->add_flag("--fast", options.isFast, "Without the recording's pauses");
    CLI::App* const shrink = Declare(
        app, "shrink", "The fewest calls of a recording that still show something", options);
    shrink->get_option("file")->required();
    shrink->add_option("--rule", options.rule, "A rule of the contract that is broken, as V12");
    shrink->add_option("--status", options.status,
                       "A status that a submission returns or a request completes with");
    shrink->add_flag("--crash", options.isCrash, "The process dies");
    shrink->add_option("-o,--output", options.output, "The recording to write [NAME.shrunk.rec]");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kGood : kWrongInput;
    }
    const int status = *replay ? Replay(options) : Shrink(options);
    if (fflush(stdout) != 0 || ferror(stdout) != 0) {
        throw std::runtime_error(std::string("standard output: ") + strerror(errno));
    }
    return status;
} catch (const std::exception& error) {
    (void)fprintf(stderr, "%s\n", error.what());
    return kWrongInput;
}
