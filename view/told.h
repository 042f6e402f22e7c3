/// A recording with all that it tells.
#pragma once

#include "contract/recording.h"
#include "view/story.h"

#include <filesystem>

namespace view {

/// What a command takes that got no file: the newest recording in the folder for output.
/// \throws contract::RecordingError where there is none.
inline std::string NewestRecording() {
    namespace fs = std::filesystem;
    std::error_code ignored;
    fs::path newest;
    fs::file_time_type time;
    for (const auto& entry : fs::directory_iterator("out", ignored)) {
        const auto its = entry.last_write_time(ignored);
        if (entry.path().extension() == ".rec" && (newest.empty() || its > time)) {
            newest = entry.path();
            time = its;
        }
    }
    if (newest.empty()) {
        throw contract::RecordingError("out: there is no recording here: './dev demo --record' "
                                       "makes one, or name a file");
    }
    return newest;
}

/// Stays where it is made, as its parts look at each other.
class Told {
  public:
    /// \throws contract::RecordingError where no event can be read of what should have some.
    explicit Told(const std::string& name)
        : file(name), recording(contract::Recording::Read(name)), serials(recording.Events()),
          story(serials) {
        if (recording.Events().empty() && !recording.Damage().empty()) {
            throw contract::RecordingError(name + ": " + recording.Damage());
        }
    }
    Told(const Told&) = delete;
    Told& operator=(const Told&) = delete;

    /// What times count from.
    Moment Start() const { return recording.About().time; }
    const std::vector<contract::Event>& Events() const { return recording.Events(); }

    const std::string file;
    const contract::Recording recording;
    const Serials serials;
    const Story story;
};

} // namespace view
