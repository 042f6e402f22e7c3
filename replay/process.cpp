/// Forks, plays, and hears what came of it.
#include "replay/process.h"

#include "kit/layers.h"
#include "replay/player.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>

namespace replay {
namespace {

using contract::Event;

constexpr int kCannotPlay = 3; // The process says why.

/// Twice as much as the recording has, since the library may do more.
uint32_t MebibytesFor(const std::vector<Event>& events) {
    uint64_t bytes = 0;
    for (const Event& event : events) {
        bytes += event.Header().size;
    }
    return static_cast<uint32_t>(std::min<uint64_t>(bytes / (1U << 19) + 2, 4096));
}

/// The work of the child. It says in lines of the file what came of it, each with a letter.
[[noreturn]] void PlayAndExit(const std::vector<Event>& events, const Options& options,
                              const std::string& layer, FILE* said) {
    const rlimit none{};
    (void)setrlimit(RLIMIT_CORE, &none);
    if (options.isQuiet) {
        const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
        (void)dup2(nothing, STDOUT_FILENO);
        (void)dup2(nothing, STDERR_FILENO);
    }
    int status = 0;
    try {
        // The layer says in the log alone what is wrong with it.
        (void)kit::Adapter(std::filesystem::absolute(options.library)).LoadFunctions();
        if (options.lacksExtension) {
            StandinControl()->RefuseLibrary("/odm/lib64/libextensionlayer.so");
        }
        Player player(events, options.isPaced);
        const std::string stuck = player.Play(kit::Adapter(layer), options.patience);
        for (const std::string& line : player.Omitted()) {
            (void)fprintf(said, "o%s\n", line.c_str());
        }
        (void)fprintf(said, "s%s\n", stuck.c_str());
        (void)fflush(said);
        _exit(status); // Threads may still be in the library.
    } catch (const std::exception& error) {
        (void)fprintf(said, "f%s\n", error.what());
        (void)fflush(said);
        status = kCannotPlay;
    }
    _exit(status);
}

/// \throws std::runtime_error where the process said that it cannot play.
void Hear(FILE* said, Ending& ending) {
    rewind(said);
    char* line = nullptr;
    size_t room = 0;
    std::string failure;
    for (ssize_t size = 0; (size = getline(&line, &room, said)) > 1;) {
        const std::string text(line + 1, static_cast<size_t>(size - 2));
        switch (line[0]) {
        case 'o':
            ending.omitted.push_back(text);
            break;
        case 's':
            ending.stuck = text;
            break;
        default:
            failure = text;
            break;
        }
    }
    free(line);
    if (!failure.empty()) {
        throw std::runtime_error(failure);
    }
}

} // namespace

bool DiesLoading(const contract::Recording& recording) {
    const Calls calls(recording.Events());
    return recording.HasItsEnd() &&
           std::all_of(calls.All().begin(), calls.All().end(), [](const Call& call) {
               return call.Of() == Entry::LoadLib ? !call.end.has_value()
                                                  : !call.IsOutside() && call.end.has_value();
           });
}

Ending PlayInProcess(const std::vector<Event>& events, const Options& options) {
    const std::string record = std::filesystem::absolute(options.record);
    const kit::Layers layers(std::filesystem::absolute(options.library),
                             {.record = record, .mebibytes = MebibytesFor(events)});
    const std::unique_ptr<FILE, decltype(&fclose)> said(tmpfile(), fclose);
    if (said == nullptr) {
        throw std::system_error(errno, std::generic_category(), "a temporary file");
    }
    Ending ending{kit::RunInChild(
        [&]() -> int { PlayAndExit(events, options, layers.AdapterFile(), said.get()); })};
    Hear(said.get(), ending);
    ending.isRecorded = contract::WriterOf(record) == static_cast<uint32_t>(ending.process);
    return ending;
}

} // namespace replay
