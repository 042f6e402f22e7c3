/// What programs over recordings share: their commands, errors, and a status that a script can use.
#pragma once

#include "kit/nearest.h"
#include "kit/output_file.h"
#include "view/told.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <map>

namespace view {

enum ExitStatus { kGood = 0, kFound = 1, kNotWritten = 1, kWrongInput = 2 };

/// The commands of a program, one of which is named first. For its main thread.
class Commands {
  public:
    explicit Commands(const char* what);

    /// \param file where the name of the recording goes: that of the newest one in the folder for
    /// output, if nobody names one. Must outlive this.
    /// \param act does it, and returns an ExitStatus.
    /// \returns the command, which this owns, for further options.
    CLI::App& Add(const char* name, const char* what, std::string& file, std::function<int()> act);

    /// Does what the arguments say, or says what is wrong with them.
    /// \returns the status of the process.
    /// \throws kit::OutputError where standard output cannot be written, and what the act throws.
    int Run(int argc, char** argv);

  private:
    struct Command {
        const CLI::App* app;
        std::string* file;
        std::function<int()> act;
    };

    CLI::App mApp;
    std::vector<Command> mCommands;
};

/// Prints what is wrong with the arguments, and which ones may have been meant, or the help where
/// that is all that was wanted. \returns the status of the process.
ExitStatus ExitOf(CLI::App& app, const CLI::ParseError& error);

/// The argument has to be one of the names.
/// \param choices must outlive this.
template <class T> CLI::Validator OneOf(const std::map<std::string, T>& choices) {
    const CLI::Validator isMember = CLI::IsMember(&choices);
    CLI::Validator validator = isMember;
    validator.operation([isMember, &choices](std::string& text) {
        const std::string problem = isMember(text);
        return problem + (problem.empty() ? "" : kit::DidYouMean(text, choices, kit::kName));
    });
    return validator;
}

/// The argument has to name a file: an empty one would be taken for none.
CLI::Validator NamesFile();

/// \throws kit::OutputError where something that was printed did not get to standard output.
void CheckPrinted();

/// Has the process go on, and write its files, where nobody reads any more what it prints.
void OutliveReader();

/// Writes a file, and says so under the heading.
/// \param what the heading; null to say nothing.
/// \param use what follows the name.
/// \returns what is wrong where it cannot be written, which is a line on standard error, too.
std::string WriteFile(const char* what, kit::OutputFile& file, std::string_view content,
                      const char* use = "");

/// What ended the program, in a line on standard error. \returns the status of the process.
ExitStatus Report(const std::exception& error);

/// A line on standard error where the recording is damaged, for who prints nothing else of it.
void WarnOfDamage(const Told& told);

} // namespace view
