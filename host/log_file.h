/// The library's log, kept so that it survives the process.
#pragma once

#include "kit/unnamed_file.h"
#include "view/report_json.h"

#include <string>
#include <vector>

namespace host {

/// A file of log lines that a process shares with those that it forks. Nobody else finds it.
class LogFile {
  public:
    /// \throws std::system_error where it cannot be made.
    LogFile();
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    /// Adds a line, with the time. Any thread calls. What finds no room is lost.
    void Write(int priority, const std::string& tag, const std::string& text) const;

    /// What all processes have written.
    std::vector<view::LogLine> Read() const;

  private:
    const kit::UnnamedFile mFile;
    const int mEnd; ///< What is written there goes behind all that is there.
};

} // namespace host
