/// Files that leave nothing behind, however the process ends.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <system_error>
#include <unistd.h>

namespace kit {

/// An empty file that only this process finds, as long as this lives.
class UnnamedFile {
  public:
    /// \throws std::system_error where none can be made.
    UnnamedFile() {
        std::string name = std::filesystem::temp_directory_path() / "oemlayer.XXXXXX";
        mFile = mkostemp(name.data(), O_CLOEXEC);
        if (mFile < 0) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        unlink(name.c_str());
    }
    ~UnnamedFile() { close(mFile); }
    UnnamedFile(const UnnamedFile&) = delete;
    UnnamedFile& operator=(const UnnamedFile&) = delete;

    /// A path by which this process opens it, as often as it likes.
    std::string Path() const { return "/proc/self/fd/" + std::to_string(mFile); }

  private:
    int mFile;
};

} // namespace kit
