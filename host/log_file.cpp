/// Writes each log line at once, and reads them back.
#include "host/log_file.h"

#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <system_error>
#include <unistd.h>

namespace host {

LogFile::LogFile() : mEnd(open(mFile.Path().c_str(), O_WRONLY | O_APPEND | O_CLOEXEC)) {
    if (mEnd < 0) {
        throw std::system_error(errno, std::generic_category(), "a file for the log");
    }
}

LogFile::~LogFile() { close(mEnd); }

/// A line is "TIME PRIORITY TAG", the text behind a line's end, and a zero.
void LogFile::Write(int priority, const std::string& tag, const std::string& text) const {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    const uint64_t now =
        static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
    std::string line = std::to_string(now) + ' ' + std::to_string(priority) + ' ' + tag + '\n';
    line += text;
    line += '\0';
    (void)!write(mEnd, line.data(), line.size());
}

std::vector<view::LogLine> LogFile::Read() const {
    std::vector<view::LogLine> lines;
    std::ifstream in(mFile.Path(), std::ios::binary);
    for (std::string all; std::getline(in, all, '\0');) {
        std::istringstream parts(all);
        view::LogLine line{};
        parts >> line.time >> line.priority;
        parts.get();
        std::getline(parts, line.tag);
        std::getline(parts, line.text, '\0');
        lines.push_back(std::move(line));
    }
    return lines;
}

} // namespace host
