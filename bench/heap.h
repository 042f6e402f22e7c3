/// The heap calls of a thread. This program's operators new and delete count them, for the library
/// as for everything else.
#pragma once

#include <cstdint>

namespace bench {

struct HeapCalls {
    uint64_t allocations;
    uint64_t frees; ///< Not of null.

    HeapCalls operator-(const HeapCalls& other) const {
        return {allocations - other.allocations, frees - other.frees};
    }
    bool operator==(const HeapCalls&) const = default;
};

/// Of this thread, since it began.
inline constinit thread_local HeapCalls t_heapCalls{};

} // namespace bench
