/// The program's own log and trace functions.
#include "kit/android.h"

#include <android/log.h>
#include <dlfcn.h>

namespace kit {
namespace {

AndroidSink g_android; ///< All is Android's.
std::atomic<AndroidSink*> g_sink = &g_android;

} // namespace

void AndroidSink::Line(int priority, const char* tag, const char* text) {
    static const auto next =
        reinterpret_cast<decltype(&__android_log_write)>(dlsym(RTLD_NEXT, "__android_log_write"));
    next(priority, tag, text);
}

void SetAndroidSink(AndroidSink& sink) noexcept { g_sink = &sink; }

} // namespace kit

// The program's definitions win over the platform's libraries.
extern "C" {
uint64_t atrace_get_enabled_tags();
void atrace_begin_body(const char* name);
void atrace_end_body();

uint64_t atrace_get_enabled_tags() { return kit::g_sink.load()->enabledTraceTags; }
void atrace_begin_body(const char* name) { kit::g_sink.load()->Begin(name); }
void atrace_end_body() { kit::g_sink.load()->End(); }

int __android_log_write(int priority, const char* tag, const char* text) {
    kit::g_sink.load()->Line(priority, tag, text);
    return 1;
}
}
