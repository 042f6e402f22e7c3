/// Where a run is recorded.
#pragma once

#include "standin/located_json.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

/// A file that is there, empty, before anything is recorded: a named one, or one that is gone with
/// the process, however that ends.
class RecordingFile {
  public:
    /// \throws standin::InputError that names the file, where it cannot be made.
    explicit RecordingFile(const std::string& name) : mName(name) {
        if (name.empty()) {
            mName = std::filesystem::temp_directory_path() / "oemlayer.recording.XXXXXX";
            mFile = mkostemp(mName.data(), O_CLOEXEC);
        } else {
            mFile = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
        }
        struct stat status {};
        if (mFile < 0 || fstat(mFile, &status) != 0) {
            throw standin::InputError(mName +
                                      ": no recording can be made here: " + strerror(errno));
        }
        if (!S_ISREG(status.st_mode) || ftruncate(mFile, 0) != 0) {
            throw standin::InputError(mName + ": no recording can be made here: this is no file");
        }
        if (name.empty()) {
            unlink(mName.c_str());
            mName = "/proc/self/fd/" + std::to_string(mFile);
        }
    }
    ~RecordingFile() { close(mFile); }
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;

    const std::string& Name() const { return mName; }

  private:
    std::string mName;
    int mFile = -1;
};

} // namespace host
