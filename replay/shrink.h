/// Finds the fewest calls of a recording that still show something.
#pragma once

#include "contract/rules.h"
#include "kit/output_file.h"
#include "replay/process.h"
#include "replay/units.h"

#include <functional>

namespace replay {

/// What a replay shall show.
struct Wanted {
    std::optional<contract::Rule> rule; ///< It is broken.
    std::optional<uint32_t> status; ///< A submission returns it, or a request completes with it.
    bool isCrash = false;           ///< The process dies, in the same way and the same call.
};

/// What is left of a recording.
struct Shrunk {
    size_t requests = 0; ///< What is left,
    size_t others = 0;   ///< calls that belong to none of them,
    size_t events = 0;
    size_t trials = 0;
    /// The last replay of what is left showed it once more.
    bool isConfirmed = false;
};

/// Leaves parts out, one after the other, and replays what is left, each time in a process of its
/// own. What is left in the end is written into `file`.
/// \param progress hears of each trial what is left so far.
/// \throws kit::OutputError where it cannot be written.
/// \returns no value where the recording's own replay does not show what is wanted.
std::optional<Shrunk> Shrink(const contract::Recording& recording, const Wanted& wanted,
                             const std::string& library, kit::OutputFile& file,
                             const std::function<void(const Shrunk&)>& progress);

} // namespace replay
