/// Shows recordings, holds the contract against them, and compares them.
#include "kit/output_file.h"
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
#include <optional>

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
    std::optional<kit::OutputFile> trace;
    std::optional<kit::OutputFile> report;
    std::optional<kit::OutputFile> page;
    const auto open = [](std::optional<kit::OutputFile>& file, const std::string& name) {
        if (!name.empty()) {
            file.emplace(name);
        }
    };
    open(trace, options.trace);
    open(report, options.report);
    open(page, options.page);
    if (trace.has_value() || report.has_value() || page.has_value()) {
        OutliveReader();
    }
    const Told told(options.file);
    if (options.isJson) {
        WarnOfDamage(told);
        if (!WriteJson(stdout, told.story, told.Start())) {
            throw kit::OutputError(std::string("standard output: ") + strerror(errno));
        }
    } else {
        PrintAll(told.file, told.recording, told.story);
    }
    bool areWritten = true; // One that cannot be written leaves the others.
    const auto write = [&](const char* what, auto& file, const char* use, auto make) {
        areWritten = (!file.has_value() ||
                      WriteFile(options.isJson ? nullptr : what, *file, make(), use).empty()) &&
                     areWritten;
    };
    write("trace", trace, ", for ui.perfetto.dev or chrome://tracing",
          [&] { return TimelineOf(told.story, told.Start()); });
    write("report", report, "", [&] { return TextOf(MakeReport(&told, FactsOf(told))); });
    write("page", page, ", for a browser",
          [&] { return MakePage(MakeReport(&told, FactsOf(told)), &told, {}); });
    return !areWritten ? kNotWritten : told.recording.Damage().empty() ? kGood : kFound;
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
    show.add_option("--trace", options.trace, "Write a timeline for Perfetto's viewer")
        ->check(NamesFile());
    show.add_option("--report", options.report,
                    "Write a report for machines (JSON); '-': to standard output, and all else to "
                    "standard error")
        ->check(NamesFile());
    show.add_option("--page", options.page, "Write all of it as one HTML file for a browser")
        ->check(NamesFile());
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
