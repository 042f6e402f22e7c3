/// Runs scenarios, and compares what comes of them with what is known.
#include "host/all.h"

#include "host/junit.h"
#include "kit/nearest.h"
#include "kit/output_file.h"
#include "standin/located_json.h"
#include "view/report.h"
#include "view/text.h"

#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <unistd.h>

namespace host {
namespace {

namespace fs = std::filesystem;
using standin::InputError;
using view::Colour;

constexpr int kInterrupted = 130;

/// By their names.
std::map<std::string, std::string> ScenariosOf(const fs::path& folder) {
    std::map<std::string, std::string> files;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        if (entry.path().extension() == ".json") {
            files[entry.path().stem()] = entry.path();
        }
    }
    if (files.empty()) {
        throw InputError(folder.string() + ": " +
                         (error ? error.message() : "there is no scenario in this folder"));
    }
    return files;
}

[[noreturn]] void FailAt(const std::string& file, size_t line, const std::string& name,
                         const std::string& meant) {
    throw InputError(file + ":" + std::to_string(line) + ": there is no scenario '" + name + "'" +
                     meant);
}

/// Names, one a line; what follows a '#' is a remark.
std::set<std::string> ReadKnown(const std::string& file,
                                const std::map<std::string, std::string>& scenarios) {
    std::set<std::string> known;
    if (file.empty()) {
        return known;
    }
    std::ifstream in(file);
    size_t number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        std::istringstream words(line.substr(0, line.find('#')));
        for (std::string name; words >> name;) {
            if (!scenarios.contains(name)) {
                FailAt(file, number, name, kit::DidYouMean(name, scenarios, kit::kName));
            }
            known.insert(name);
        }
    }
    if (!in.eof()) {
        throw InputError(file + ": the list cannot be read");
    }
    return known;
}

/// Has all that is printed as long as it lives, by processes that are forked, too.
class Catch {
  public:
    Catch() : mOut(Redirect(STDOUT_FILENO)), mError(Redirect(STDERR_FILENO)) {}
    ~Catch() {
        (void)fflush(stdout);
        Restore(mOut, STDOUT_FILENO);
        Restore(mError, STDERR_FILENO);
    }
    Catch(const Catch&) = delete;
    Catch& operator=(const Catch&) = delete;

    std::string Text() const {
        std::ifstream in(mFile.Path(), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

  private:
    int Redirect(int descriptor) const {
        (void)fflush(stdout);
        const int before = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
        const int file = open(mFile.Path().c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        (void)dup2(file, descriptor);
        close(file);
        return before;
    }
    static void Restore(int before, int descriptor) {
        (void)dup2(before, descriptor);
        close(before);
    }

    const kit::UnnamedFile mFile;
    const int mOut;
    const int mError;
};

/// What came of a scenario, before it is compared with what is known.
Case RunOne(const std::string& name, const std::string& file, const AllSettings& settings,
            const RunFile& run) {
    Case result{.name = name};
    const auto start = Clock::now();
    try {
        const Catch printed;
        const nlohmann::ordered_json report = run(file, settings.limit).report.at("result");
        result.status = report.at("status");
        result.text = report.at("text");
        result.output = printed.Text();
    } catch (const InputError& error) {
        result.status = "failed"; // Its file has a mistake.
        result.text = error.what();
    }
    result.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return result;
}

/// \returns whether it is as known.
bool Compare(Case& result, bool isKnown) {
    const bool isPassed = result.status == "passed";
    if (isKnown && isPassed) {
        result.kind = Case::Kind::Failure;
        result.status = "unexpectedly passed";
        result.text = "it is in the list of known failures";
    } else if (isKnown) {
        result.kind = Case::Kind::Skipped;
        result.text = "known: " + result.status + ": " + result.text;
    } else if (!isPassed) {
        result.kind = result.status == "failed" ? Case::Kind::Failure : Case::Kind::Error;
    }
    return isPassed != isKnown;
}

void Print(const Case& result, bool isAsKnown) {
    char facts[80];
    (void)snprintf(facts, sizeof facts, "%-20s %5.1f s  ", result.status.c_str(), result.seconds);
    const bool isSilent = result.kind == Case::Kind::Passed;
    printf("%s%s%s\n",
           view::Painted(isAsKnown ? isSilent ? Colour::Good : Colour::Plain : Colour::Bad, facts)
               .c_str(),
           result.name.c_str(), isSilent ? "" : (": " + result.text).c_str());
}

/// As in "13 scenarios: 1 failed, 1 failed as known, 11 passed".
void PrintCounts(const std::vector<Case>& cases) {
    std::map<std::string, size_t> counts;
    for (const Case& each : cases) {
        ++counts[each.status + (each.kind == Case::Kind::Skipped ? " as known" : "")];
    }
    std::string text;
    for (const auto& [status, number] : counts) {
        text += (text.empty() ? ": " : ", ") + std::to_string(number) + " " + status;
    }
    printf("%s%s\n", view::Count(cases.size(), "scenario").c_str(), text.c_str());
}

} // namespace

int RunAll(const AllSettings& settings, const RunFile& run) {
    const auto scenarios = ScenariosOf(settings.folder);
    const std::set<std::string> known = ReadKnown(settings.known, scenarios);
    std::optional<kit::OutputFile> file;
    if (!settings.junit.empty()) {
        file.emplace(settings.junit);
    }
    std::vector<Case> cases;
    bool areAsKnown = true;
    bool wasInterrupted = false;
    for (const auto& [name, path] : scenarios) {
        Case result = RunOne(name, path, settings, run);
        wasInterrupted = result.status == "interrupted";
        const bool isAsKnown = Compare(result, known.contains(name)) && !wasInterrupted;
        areAsKnown = areAsKnown && isAsKnown;
        Print(result, isAsKnown);
        cases.push_back(std::move(result));
        if (wasInterrupted) {
            break;
        }
    }
    PrintCounts(cases);
    if (file.has_value()) {
        file->Write(JUnitOf("scenarios", cases));
    }
    return wasInterrupted ? kInterrupted : areAsKnown ? 0 : 1;
}

} // namespace host
