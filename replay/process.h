/// A replay in a process of its own: whatever the adapter does there, the caller lives on.
#pragma once

#include "contract/recording.h"
#include "kit/child.h"

#include <chrono>
#include <string>
#include <vector>

namespace replay {

struct Options {
    std::string library;  ///< The adapter.
    std::string record;   ///< The file of the replay's own recording.
    bool isPaced = true;  ///< With the recording's pauses.
    bool isQuiet = false; ///< What the process prints is dropped.
    /// The device lacks its extension library, which ends the process in the adapter's load.
    bool lacksExtension = false;
    /// How long nothing at all may happen before the process is given up.
    std::chrono::milliseconds patience{5000};
};

/// What became of the process.
struct Ending : kit::ChildEnd {
    std::string stuck{};                ///< Who does not come back, and where; empty for nobody.
    std::vector<std::string> omitted{}; ///< Calls that could not be made, in a line each.
    bool isRecorded = false;            ///< Whether there is a recording of it.
};

/// Whether the process ended in the adapter's load, and in no call of that. It does so where the
/// platform lacks something; a recording does not tell what.
bool DiesLoading(const contract::Recording& recording);

/// Plays a recording with both layers in place. The caller has one thread, and has not loaded the
/// adapter.
/// \throws std::runtime_error where the library cannot be used.
Ending PlayInProcess(const std::vector<contract::Event>& events, const Options& options);

} // namespace replay
