/// Parses arguments, and turns errors into lines.
#include "view/command.h"

#include "view/report.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace view {
namespace {

/// \throws contract::RecordingError where there is none.
std::string NewestRecording() {
    namespace fs = std::filesystem;
    std::error_code ignored;
    fs::path newest;
    fs::file_time_type time;
    for (const auto& entry : fs::directory_iterator("out", ignored)) {
        const auto its = entry.last_write_time(ignored);
        if (entry.path().extension() == ".rec" && (newest.empty() || its > time)) {
            newest = entry.path();
            time = its;
        }
    }
    if (newest.empty()) {
        throw contract::RecordingError("out: there is no recording here: './dev demo --record' "
                                       "makes one, or name a file");
    }
    return newest;
}

/// What may have been meant by the arguments that nothing has taken.
std::string MeantArguments(const CLI::App& app) {
    std::vector<std::string> known;
    for (const CLI::App* command : app.get_subcommands({})) {
        known.push_back(command->get_name());
    }
    std::vector<const CLI::App*> apps{&app};
    for (const CLI::App* command : app.get_subcommands()) {
        apps.push_back(command);
    }
    for (const CLI::App* its : apps) {
        for (const CLI::Option* option : its->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                known.push_back("--" + name);
            }
        }
    }
    std::string meant;
    for (const std::string& argument : app.remaining(true)) {
        meant += kit::DidYouMean(argument.substr(0, argument.find('=')), known);
    }
    return meant;
}

} // namespace

ExitStatus ExitOf(CLI::App& app, const CLI::ParseError& error) {
    app.failure_message([](const CLI::App* of, const CLI::Error& failure) {
        const std::string text = failure.what() + MeantArguments(*of);
        return CLI::FailureMessage::simple(of, CLI::Error("", text, failure.get_exit_code()));
    });
    return app.exit(error) == 0 ? kGood : kWrongInput;
}

Commands::Commands(const char* what) : mApp(what, "./dev") { mApp.require_subcommand(1); }

CLI::App& Commands::Add(const char* name, const char* what, std::string& file,
                        std::function<int()> act) {
    CLI::App* const command = mApp.add_subcommand(name, what);
    command->add_option("file", file, "A recording [the newest out/*.rec]");
    mCommands.push_back({command, &file, std::move(act)});
    return *command;
}

int Commands::Run(int argc, char** argv) {
    try {
        mApp.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return ExitOf(mApp, error);
    }
    int status = kGood;
    for (const Command& command : mCommands) {
        if (command.app->parsed()) {
            *command.file = command.file->empty() ? NewestRecording() : *command.file;
            status = command.act();
        }
    }
    CheckPrinted();
    return status;
}

CLI::Validator NamesFile() {
    return {[](const std::string& name) {
                return std::string(name.empty() ? "the name of a file is missing" : "");
            },
            ""};
}

void CheckPrinted() {
    const std::string reason = fflush(stdout) != 0 ? std::string(": ") + strerror(errno) : "";
    if (!reason.empty() || ferror(stdout) != 0) { // Of an earlier failure the reason is gone.
        throw kit::OutputError("standard output: it could not be written" + reason);
    }
}

void OutliveReader() { (void)std::signal(SIGPIPE, SIG_IGN); }

std::string WriteFile(const char* what, kit::OutputFile& file, std::string_view content,
                      const char* use) {
    try {
        file.Write(content);
    } catch (const kit::OutputError& error) {
        (void)fprintf(stderr, "%s\n", error.what());
        return error.what();
    }
    if (what != nullptr) {
        PrintFact(what, file.Name() + use);
    }
    return "";
}

ExitStatus Report(const std::exception& error) {
    (void)fprintf(stderr, "%s\n", error.what());
    return dynamic_cast<const kit::OutputError*>(&error) != nullptr ? kNotWritten : kWrongInput;
}

void WarnOfDamage(const Told& told) {
    if (!told.recording.Damage().empty()) {
        (void)fprintf(stderr, "%s: damaged: %s\n", told.file.c_str(),
                      told.recording.Damage().c_str());
    }
}

} // namespace view
