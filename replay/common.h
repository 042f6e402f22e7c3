/// What a recording whose beginning was overwritten has in common with its replay.
///
/// Calls that were under way at the beginning, and results of requests that were executed before
/// it, cannot be made again. The other way round, a replay loads the adapter, makes cameras, and
/// has sessions and buffer managers opened that were open already.
#pragma once

#include "replay/calls.h"

namespace replay {

struct Common {
    std::vector<Event> recording, replay;
    bool isLate = false; ///< The recording lacks its beginning; otherwise both are whole, but for
                         ///< the order in which what several threads opened is closed together.
};

/// \param mainThread of the replay's process, which makes what the recording lacks.
/// \throws contract::RecordingError as `Calls` does.
Common FindCommon(const std::vector<Event>& recording, const std::vector<Event>& replay,
                  uint32_t mainThread);

} // namespace replay
