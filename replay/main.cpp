/// Plays recordings again on the stand-in device, and shrinks them.
#include "kit/library.h"
#include "kit/recording_file.h"
#include "replay/compare.h"
#include "replay/shrink.h"
#include "view/command.h"
#include "view/report.h"
#include "view/text.h"

#include <android/log.h>
#include <filesystem>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using InputError = contract::RecordingError;
using view::kFound;
using view::kGood;
using view::PrintFact;

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
        WarnOfDamage(*this);
        if (recording.CountLost() > 0) {
            (void)fprintf(stderr,
                          "%s: the first %s are overwritten: what they made or opened is made up "
                          "for\n",
                          name.c_str(), view::Count(recording.CountLost(), "event").c_str());
        }
    }
};

/// \throws InputError where a file to be written is the recording itself.
void CheckIsAnother(const std::string& file, const std::string& input) {
    std::error_code ignored;
    if (fs::equivalent(file, input, ignored)) {
        throw InputError(file + ": this is the recording itself");
    }
}

// --- Replay -------------------------------------------------------------------------------------

int Replay(const Options& options) {
    const Input input(options.file);
    CheckIsAnother(options.record, input.file);
    const kit::RecordingFile record(options.record);
    record.Begin();
    const bool lacksExtension = replay::DiesLoading(input.recording);
    const replay::Ending ending =
        replay::PlayInProcess(input.Events(), {.library = options.library,
                                               .record = record.Path(),
                                               .isPaced = !options.isFast,
                                               .lacksExtension = lacksExtension});
    if (!ending.isRecorded) {
        throw InputError((options.record.empty() ? "the replay" : options.record) +
                         ": it could not be recorded, and so is not compared");
    }
    const view::Told played(record.Path());
    PrintRequests(RowsOf(played.story), played.Start());
    if (lacksExtension) {
        PrintFact("device", "it lacks the extension, as the recorded load ended the process");
    }
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
    const bool didDie = input.story.IsOpen() && input.recording.HasItsEnd();
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
    const std::string meant =
        kit::DidYouMean(number, contract::kRules, &contract::RuleText::number);
    throw InputError("there is no rule '" + number + "'" + (meant.empty() ? ":" : meant) +
                     " docs/contract.md lists them");
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
    const std::string name = options.output.empty()
                                 ? fs::path(options.file).replace_extension(".shrunk.rec").string()
                                 : options.output;
    CheckIsAnother(name, options.file);
    kit::OutputFile file(name, kit::OutputFile::Replaces::Anything);
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
    PrintFact("recording", name);
    if (!shrunk->isConfirmed) {
        PrintFact("unsteady", "the last replay of what is left did not show it");
    }
    return shrunk->isConfirmed ? kGood : kFound;
}

} // namespace

int main(int argc, char** argv) try {
    __android_log_set_minimum_priority(ANDROID_LOG_WARN);
    Options options;
    view::Commands commands("Plays recordings again on the stand-in device.");
    CLI::App& replay =
        commands.Add("replay", "Make the recorded calls, answer as recorded, say what is otherwise",
                     options.file, [&] { return Replay(options); });
    replay.get_option("file")->description("A recording of both sides [the newest out/*.rec]");
    replay.add_option("--record", options.record, "Keep the replay's own recording")
        ->check(view::NamesFile());
    replay.add_flag("--fast", options.isFast, "Without the recording's pauses");
    CLI::App& shrink =
        commands.Add("shrink", "The fewest calls of a recording that still show something",
                     options.file, [&] { return Shrink(options); });
    shrink.get_option("file")->required()->description("A recording of both sides");
    shrink.add_option("--rule", options.rule, "A rule of the contract that is broken, as V12");
    shrink.add_option("--status", options.status,
                      "A status that a submission returns or a request completes with");
    shrink.add_flag("--crash", options.isCrash, "The process dies");
    shrink.add_option("-o,--output", options.output, "The recording to write [NAME.shrunk.rec]")
        ->check(view::NamesFile());
    for (CLI::App* const command : {&replay, &shrink}) {
        command->add_option("--library", options.library, "The adapter library to load")
            ->check(CLI::ExistingFile);
    }
    return commands.Run(argc, argv);
} catch (const std::exception& error) {
    return view::Report(error);
}
