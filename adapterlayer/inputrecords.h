/// The records that a submission keeps on the stack for the vendor.
#pragma once

#include "adapterlayer/oemlayer_host.h"
#include "adapterlayer/sync.h"
#include "platform/chi/offline.h"

#include <cstring>

namespace OemLayer {

/// The records of a submission's inputs, which the vendor reads during the execute call.
struct alignas(kCacheLine) InputRecords {
    ChiStreamBuffer buffers[kMaxInputBuffers];
    ChiOfflineBufferSet sets[kMaxInputSets];
};

/// In pieces, since C libraries clear more than two kilobytes in a way that takes long to start;
/// and in a function that the compiler does not make one piece of again.
__attribute__((noinline, no_builtin("memset"))) inline void Clear(InputRecords& records) {
    constexpr size_t kPiece = sizeof(InputRecords) / 3;
    static_assert(sizeof(InputRecords) % 3 == 0 && kPiece < 2048);
    for (size_t at = 0; at < sizeof(InputRecords); at += kPiece) {
        std::memset(reinterpret_cast<char*>(&records) + at, 0, kPiece);
    }
}

} // namespace OemLayer
