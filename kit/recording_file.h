/// Where a run is recorded.
#pragma once

#include "contract/recording.h"
#include "kit/output_file.h"
#include "kit/unnamed_file.h"

#include <filesystem>
#include <optional>

namespace kit {

/// A file that is there before anything is recorded: a named one, or one that is gone with the
/// process.
class RecordingFile {
  public:
    /// What the file holds stays.
    /// \param name empty for one that nobody sees.
    /// \throws contract::RecordingError that names the file, where it cannot be made, and what
    /// MakeOwnFolder does.
    explicit RecordingFile(const std::string& name) {
        if (name.empty()) {
            mPath = mUnnamed.emplace().Path();
            return;
        }
        MakeOwnFolder(name);
        const std::string problem = contract::ProblemOfFile(name);
        if (!problem.empty()) {
            throw contract::RecordingError(problem);
        }
        mPath = std::filesystem::absolute(name);
    }

    /// Empties the file, once all is ready to be recorded: nobody takes an older recording for the
    /// new one.
    void Begin() const { std::filesystem::resize_file(mPath, 0); }

    const std::string& Path() const { return mPath; }

  private:
    std::optional<UnnamedFile> mUnnamed;
    std::string mPath;
};

} // namespace kit
