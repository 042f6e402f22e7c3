/// A recording with all that it tells.
#pragma once

#include "contract/recording.h"
#include "view/story.h"

namespace view {

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
