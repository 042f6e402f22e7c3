/// Shows recordings, holds the contract against them, and compares them.
#include "view/check.h"
#include "view/command.h"
#include "view/diff.h"
#include "view/json.h"
#include "view/page.h"
#include "view/report.h"
#include "view/report_json.h"
#include "view/text.h"
#include "view/timeline.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

using namespace view;

struct Options {
    std::string file;
    std::string other;
    std::string trace;
    std::string report;
    std::string page;
    bool isJson = false;
    bool hasTimes = false;
};

int Show(const Options& options) {
    const Told told(options.file);
    if (!options.report.empty()) {
        ReportFile(options.report).Write(MakeReport(&told, FactsOf(told)));
    }
    if (!options.page.empty()) {
        ReportFile file(options.page, "page");
        file.Write(MakePage(MakeReport(&told, FactsOf(told)), &told, {}));
    }
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
        if (!options.page.empty()) {
            PrintFact("page", options.page + ", for a browser");
        }
    }
    return told.recording.Damage().empty() ? kGood : kFound;
}

int Check(const Options& options) {
    const Told told(options.file);
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
    PrintDifference(difference, one.story, other.story,
                    options.hasTimes ? std::optional(std::pair(one.Start(), other.Start()))
                                     : std::nullopt);
    const bool areWhole = one.recording.Damage().empty() && other.recording.Damage().empty();
    return areWhole && !difference.has_value() ? kGood : kFound;
}

} // namespace

int main(int argc, char** argv) try {
    Options options;
    Commands commands("Views of recordings.");
    CLI::App& show = commands.Add("show",
                                  "What a recording tells: what was open at its end, the "
                                  "requests, the sessions",
                                  options.file, [&] { return Show(options); });
    show.add_option("--trace", options.trace, "Write a timeline for Perfetto's viewer");
    show.add_option("--report", options.report,
                    "Write a report for machines (JSON); '-': to standard output, and all else to "
                    "standard error");
    show.add_option("--page", options.page, "Write all of it as one HTML file for a browser");
    show.add_flag("--json", options.isJson, "Print the events instead, one a line, for jq");
    commands.Add("check", "Hold the contract against a recording", options.file,
                 [&] { return Check(options); });
    CLI::App& diff = commands.Add("diff", "The first difference in what happened in two recordings",
                                  options.file, [&] { return Diff(options); });
    diff.get_option("file")->required()->description("A recording");
    diff.add_option("other", options.other, "Another recording")->required();
    diff.add_flag("--times", options.hasTimes, "Print when it happened, too");
    return commands.Run(argc, argv);
} catch (const std::exception& error) {
    return Report(error);
}
