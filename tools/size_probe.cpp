/// One measurement of what the library costs at run time, in a fresh process on the stand-in
/// device: the time from its load until it is ready, and the memory that it and each camera take.
///
/// Prints `NAME VALUE` lines; size.sh runs it many times and prints the medians.
#include "kit/library.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <malloc.h>
#include <stdexcept>
#include <unistd.h>

namespace {

constexpr int kCannotMeasure = 1;
constexpr int kWrongArguments = 2;
constexpr uint32_t kCameras = 4;

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

/// The file's text. It is kept in static memory, so that reading it does not change what it says.
const char* Read(const char* file) {
    static char text[1U << 20U];
    const int descriptor = open(file, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        throw std::runtime_error(std::string(file) + ": " + std::strerror(errno));
    }
    size_t length = 0;
    ssize_t count = 0;
    while ((count = read(descriptor, text + length, sizeof text - 1 - length)) > 0) {
        length += static_cast<size_t>(count);
    }
    close(descriptor);
    text[length] = '\0';
    return text;
}

/// The number behind the first `name` from `text` on, 0 where there is none.
long NumberAfter(const char* text, const char* name) {
    const char* const at = std::strstr(text, name);
    return at == nullptr ? 0 : std::strtol(at + std::strlen(name), nullptr, 10);
}

/// KiB of this process, and bytes of its heap that are in use.
struct Memory {
    long resident = NumberAfter(Read("/proc/self/smaps_rollup"), "\nRss:");
    size_t heap = mallinfo2().uordblks;
};

/// KiB of the library's own file and data that are in memory.
long ResidentLibrary(const char* name) {
    long sum = 0;
    for (const char* at = Read("/proc/self/smaps"); (at = std::strstr(at, name)) != nullptr; ++at) {
        sum += NumberAfter(at, "\nRss:");
    }
    return sum;
}

} // namespace

int main(int argc, char** argv) try {
    if (argc != 2) {
        std::fprintf(stderr, "size_probe LIBRARY\n");
        return kWrongArguments;
    }
    const Memory before;

    const auto start = Clock::now();
    const kit::Adapter library(argv[1]);
    const auto opened = Clock::now();
    library.Load();
    const auto ready = Clock::now();

    Memory last;
    std::printf("opened %.0f\nready %.0f\n", Microseconds(opened - start).count(),
                Microseconds(ready - start).count());
    std::printf("loaded %ld\nlibrary %ld\n", last.resident - before.resident,
                ResidentLibrary("/camera.oemlayer.adapter.so"));

    PlatFormIntCallbacks tables[kCameras] = {};
    last = Memory{};
    for (uint32_t id = 0; id < kCameras; ++id) {
        tables[id] = library.Table(id);
        tables[id].Create(&tables[id], id);
        const Memory now;
        std::printf("resident%u %ld\nheap%u %ld\n", id + 1, now.resident - last.resident, id + 1,
                    static_cast<long>(now.heap) - static_cast<long>(last.heap));
        last = now;
    }
    for (auto& table : tables) {
        table.TearDownResource(&table);
        table.Destroy(&table);
    }
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "size_probe: %s\n", error.what());
    return kCannotMeasure;
}
