/// A line that tells a person how far something is.
#pragma once

#include <functional>
#include <future>
#include <string>
#include <thread>

namespace host {

/// A line on standard error that tells how far something is, once it takes more than two seconds.
/// On a terminal it changes in place, elsewhere there is a new one from time to time.
class Progress {
  public:
    /// \param describe is called on a thread of the progress' own.
    explicit Progress(std::function<std::string()> describe);
    ~Progress() {
        mIsOver.set_value();
        mThread.join();
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

  private:
    void Show();

    const std::function<std::string()> mDescribe;
    std::promise<void> mIsOver;
    std::thread mThread;
};

} // namespace host
