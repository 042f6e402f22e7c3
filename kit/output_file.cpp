/// Opens files early, writes them late, and removes none but its own.
#include "kit/output_file.h"

#include "contract/recording.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace kit {
namespace {

bool g_isStandardOutputTaken = false; ///< By a file that is alive.

struct stat StatusOf(int file) {
    struct stat status {};
    (void)fstat(file, &status);
    return status;
}

} // namespace

const char* OutputError::what() const noexcept { return std::runtime_error::what(); }

void MakeOwnFolder(const std::string& file) {
    const auto folder = std::filesystem::path(file).parent_path();
    if (folder == "out") {
        std::error_code error;
        std::filesystem::create_directory(folder, error);
        if (error) {
            throw std::invalid_argument("out: this folder cannot be made: " + error.message());
        }
    }
}

OutputFile::OutputFile(const std::string& name, Replaces replaces)
    : mName(name == "-" ? "standard output" : name) {
    MakeOwnFolder(mName);
    const bool isTaken = name == "-" && g_isStandardOutputTaken;
    std::string problem;
    if (!isTaken && !(name == "-" ? TakeStandardOutput() : Open())) {
        problem = std::string("it cannot be written: ") + strerror(errno);
    } else if (isTaken ||
               (mIsRegular && flock(mFile, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)) {
        problem = "it is being written already";
    } else if (mIsRegular && replaces == Replaces::AllButRecordings &&
               contract::WriterOf(mName) != 0) {
        problem = "this is a recording, and would be lost";
    }
    if (!problem.empty()) {
        close(mFile);
        throw std::invalid_argument(mName + ": " + problem);
    }
}

OutputFile::~OutputFile() {
    struct stat there {};
    const struct stat own = StatusOf(mFile);
    if (mIsNew && lstat(mName.c_str(), &there) == 0 && there.st_size == 0 &&
        there.st_ino == own.st_ino && there.st_dev == own.st_dev) {
        unlink(mName.c_str());
    }
    if (mFile >= 0) {
        close(mFile);
    }
    if (mIsStandardOutput) {
        g_isStandardOutputTaken = false;
    }
}

/// Has all others print where errors go. \returns false, with the reason in `errno`, where that
/// fails.
bool OutputFile::TakeStandardOutput() {
    (void)fflush(stdout);
    mFile = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    mIsStandardOutput = mFile >= 0 && dup2(STDERR_FILENO, STDOUT_FILENO) >= 0;
    g_isStandardOutputTaken = mIsStandardOutput;
    return mIsStandardOutput;
}

/// \returns false, with the reason in `errno`, where that fails.
bool OutputFile::Open() {
    constexpr int kHow = O_WRONLY | O_CLOEXEC | O_NOCTTY;
    constexpr mode_t kMode = 0666;
    mFile = open(mName.c_str(), kHow);
    if (mFile < 0 && errno == ENOENT) {
        mFile = open(mName.c_str(), kHow | O_CREAT | O_EXCL, kMode);
        mIsNew = mFile >= 0;
    }
    if (mFile < 0 && errno == EEXIST) { // A link to a file that is not there yet.
        mFile = open(mName.c_str(), kHow | O_CREAT, kMode);
    }
    mIsRegular = mFile >= 0 && S_ISREG(StatusOf(mFile).st_mode);
    return mFile >= 0;
}

void OutputFile::Write(std::string_view content) {
    const auto before = std::signal(SIGPIPE, SIG_IGN); // Who reads a pipe may be gone.
    const int problem = WriteAll(content);
    (void)std::signal(SIGPIPE, before);
    if (problem != 0) {
        if (mIsNew) {
            (void)ftruncate(mFile, 0);
        }
        throw OutputError(mName + ": it could not be written: " + strerror(problem));
    }
    mIsNew = false;
    if (close(std::exchange(mFile, -1)) != 0) {
        throw OutputError(mName + ": it could not be written: " + strerror(errno));
    }
}

/// \returns 0, or what went wrong as in `errno`.
int OutputFile::WriteAll(std::string_view content) {
    const auto size = static_cast<off_t>(content.size());
    const off_t before = StatusOf(mFile).st_size;
    if (mIsRegular && size > before && fallocate(mFile, 0, 0, size) != 0 && errno != EOPNOTSUPP &&
        errno != ENOSYS) {
        const int problem = errno;
        (void)ftruncate(mFile, before);
        return problem;
    }
    while (!content.empty()) {
        const ssize_t written = write(mFile, content.data(), content.size());
        if (written < 0 && errno != EINTR) {
            return errno;
        }
        content.remove_prefix(static_cast<size_t>(std::max<ssize_t>(written, 0)));
    }
    return mIsRegular && ftruncate(mFile, size) != 0 ? errno : 0;
}

} // namespace kit
