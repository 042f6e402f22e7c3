/// The fuzzed programs' input, checks and platform.
#include "fuzz/check.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace fuzz {
namespace {

Platform g_platform;

} // namespace

std::string Input::Text(size_t most) {
    std::string text;
    while (text.size() < most && !IsEmpty()) {
        const uint8_t byte = Byte();
        if (byte == 0) {
            break;
        }
        text += static_cast<char>(byte);
    }
    return text;
}

void Fail(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    (void)std::fputs("FOUND: ", stderr);
    (void)std::vfprintf(stderr, format, arguments);
    (void)std::fputc('\n', stderr);
    va_end(arguments);
    std::abort();
}

void Trace(const char* format, ...) {
    static const bool isOn = std::getenv("OEMLAYER_FUZZ_TRACE") != nullptr;
    if (!isOn) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    (void)std::vfprintf(stderr, format, arguments);
    (void)std::fputc('\n', stderr);
    va_end(arguments);
}

Platform& ThePlatform() { return g_platform; }

void Platform::Line(int withPriority, const char* withTag, const char* text) {
    priority = withPriority;
    (void)std::snprintf(tag, sizeof tag, "%s", withTag);
    (void)std::snprintf(line, sizeof line, "%s", text);
}

} // namespace fuzz
