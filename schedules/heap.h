/// The blocks of this process's heap. Its operators new and delete count them, for the library as
/// for everything else.
#pragma once

#include <atomic>
#include <cstdint>

namespace schedules {

/// Taken and not yet given back. Puts no threads in order.
inline constinit std::atomic<int64_t> g_heapBlocks = 0;

} // namespace schedules
