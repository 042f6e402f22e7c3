/// The fuzzed programs' input, checks and platform.
#include "fuzz/check.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace fuzz {
std::string Input::Text(size_t most) {
    const uint8_t* const limit = mNext + std::min(most, static_cast<size_t>(mEnd - mNext));
    const uint8_t* const zero = std::find(mNext, limit, 0);
    std::string text(mNext, zero);
    mNext = zero + (zero != limit ? 1 : 0);
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

void Platform::Line(int withPriority, const char* withTag, const char* text) {
    priority = withPriority;
    (void)std::snprintf(tag, sizeof tag, "%s", withTag);
    (void)std::snprintf(line, sizeof line, "%s", text);
}

} // namespace fuzz
