/// The live bytes of this process's heap, exactly as they were asked for, told apart by who asked.
#pragma once

#include <cstdint>

namespace soak::heap {

/// What is allocated at one moment.
struct Live {
    int64_t library; ///< By `operator new`, for the library.
    /// By the C allocator, for the library; as large as the blocks really are. 0 where
    /// SOAK_COUNTS_C says so: a sanitizer has the C allocator for itself.
    int64_t libraryC;
    int64_t process; ///< By `operator new`, for all.
};

/// Counts for the library that this address is in from now on. While no other thread runs.
void Watch(void* inLibrary);

Live Count();

} // namespace soak::heap
