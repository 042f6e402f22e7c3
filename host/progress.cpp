/// The thread that shows how far something is.
#include "host/progress.h"

#include <chrono>
#include <cstdio>
#include <unistd.h>

namespace host {
namespace {

constexpr std::chrono::seconds kFirstPause{2}; // Before progress is worth a line.
constexpr std::chrono::seconds kPause{5};
constexpr std::chrono::milliseconds kTerminalPause{200};

} // namespace

Progress::Progress(std::function<std::string()> describe)
    : mDescribe(std::move(describe)), mThread([this] { Show(); }) {}

void Progress::Show() {
    const bool isTerminal = isatty(STDERR_FILENO) != 0;
    const char* const form = isTerminal ? "\r\033[K%s" : "%s\n";
    bool wasShown = false;
    const auto isOver = mIsOver.get_future();
    for (std::chrono::milliseconds pause = kFirstPause;
         isOver.wait_for(pause) == std::future_status::timeout;
         pause = isTerminal ? kTerminalPause : kPause) {
        (void)fprintf(stderr, form, mDescribe().c_str());
        wasShown = true;
    }
    if (wasShown && isTerminal) {
        (void)fprintf(stderr, form, "");
    }
}

} // namespace host
