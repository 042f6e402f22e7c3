/// What a submission makes ready: the records that it keeps on the stack for the vendor, and the
/// host's memory.
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

/// Has the processor fetch what the host wrote and the submission reads after its locks, past which
/// it does not look ahead. Nothing is read from there: what is no address does no harm.
inline void FetchAhead(const OfflineDataWraper& wrapper, RequestPrivData* pPrivData) {
    __builtin_prefetch(wrapper.identity.pOutStream);
    __builtin_prefetch(wrapper.pRDIBufferHandles);
    if (pPrivData != nullptr) {
        __builtin_prefetch(&pPrivData->pBufferManager);
        constexpr int kToWrite = 1;
        __builtin_prefetch(&pPrivData->rtFrameNumber, kToWrite);
    }
}

} // namespace OemLayer
