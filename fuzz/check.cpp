#include "fuzz/check.h"

#include <android/log.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace fuzz {

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

Platform& ThePlatform() {
    static Platform platform;
    return platform;
}

} // namespace fuzz

// The program's definitions win over the platform's libraries.
extern "C" {
__attribute__((visibility("default"))) int __android_log_write(int priority, const char* tag,
                                                               const char* text) {
    fuzz::Platform& platform = fuzz::ThePlatform();
    platform.priority = priority;
    (void)std::snprintf(platform.tag, sizeof platform.tag, "%s", tag);
    (void)std::snprintf(platform.line, sizeof platform.line, "%s", text);
    return 1;
}

__attribute__((visibility("default"))) uint64_t atrace_get_enabled_tags();
__attribute__((visibility("default"))) void atrace_begin_body(const char* name);
__attribute__((visibility("default"))) void atrace_end_body();

uint64_t atrace_get_enabled_tags() { return UINT64_MAX; }
void atrace_begin_body(const char* /*name*/) { ++fuzz::ThePlatform().openSections; }
void atrace_end_body() { --fuzz::ThePlatform().openSections; }
}
