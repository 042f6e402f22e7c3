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

Progress::~Progress() {
    {
        const std::lock_guard lock(mMutex);
        mIsOver = true;
    }
    mWake.notify_all();
    mThread.join();
}

void Progress::Show() {
    const bool isTerminal = isatty(STDERR_FILENO) != 0;
    const char* const form = isTerminal ? "\r\033[K%s" : "%s\n";
    bool wasShown = false;
    std::unique_lock lock(mMutex);
    for (std::chrono::milliseconds pause = kFirstPause;
         !mWake.wait_for(lock, pause, [this] { return mIsOver; });
         pause = isTerminal ? kTerminalPause : kPause) {
        (void)fprintf(stderr, form, mDescribe().c_str());
        wasShown = true;
    }
    if (wasShown && isTerminal) {
        (void)fprintf(stderr, form, "");
    }
}

} // namespace host
