/// Runs a fuzzed program over the files of folders, where it is no fuzzer.

#include "fuzz/check.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

// NOLINTNEXTLINE(bugprone-exception-escape): whatever is thrown here ends the process
int main(int argc, char** argv) {
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& file : std::filesystem::directory_iterator(argv[i])) {
            // For whoever looks for the one that ended the process.
            (void)std::fprintf(stderr, "%s\n", file.path().c_str());
            std::ifstream stream(file.path(), std::ios::binary);
            const std::vector<uint8_t> bytes(std::istreambuf_iterator<char>(stream), {});
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++count;
        }
    }
    (void)std::printf("%zu inputs\n", count);
    return count == 0 ? 1 : 0;
}
