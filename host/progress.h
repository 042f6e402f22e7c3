/// A line that tells a person how far something is.
#pragma once

#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <unistd.h>

namespace host {

/// A line on standard error that tells how far something is, once it takes more than two seconds.
/// On a terminal it changes in place, elsewhere there is a new one from time to time.
class Progress {
  public:
    /// \param describe is called on a thread of the progress' own.
    explicit Progress(std::function<std::string()> describe)
        : mDescribe(std::move(describe)), mThread([this] { Show(); }) {}
    ~Progress() {
        mIsOver.set_value();
        mThread.join();
    }

  private:
    void Show() {
        const bool isTerminal = isatty(STDERR_FILENO) != 0;
        const char* const form = isTerminal ? "\r\033[K%s" : "%s\n";
        const auto isOver = mIsOver.get_future();
        std::chrono::milliseconds pause{2000}; // Before progress is worth a line.
        bool wasShown = false;
        while (isOver.wait_for(pause) == std::future_status::timeout) {
            (void)fprintf(stderr, form, mDescribe().c_str());
            wasShown = true;
            pause = std::chrono::milliseconds(isTerminal ? 200 : 5000);
        }
        if (wasShown && isTerminal) {
            (void)fprintf(stderr, form, "");
        }
    }

    const std::function<std::string()> mDescribe;
    std::promise<void> mIsOver;
    std::thread mThread;
};

} // namespace host
