/// A recording's file: a page about it, then blocks of events that are written in a ring.
///
/// A block holds whole events, one behind the other, and is begun anew when the ring comes round to
/// it. Its header says which events are in it; those behind the last one whose number follows are
/// left from the round before. Page, block header and event have a checksum each.
#pragma once

#include "contract/event.h"

#include <cstdint>

namespace contract {

inline constexpr char kMagic[8] = {'O', 'E', 'M', 'L', 'E', 'V', 'T', 'S'};
inline constexpr uint32_t kVersion = 1;
inline constexpr uint32_t kPageBytes = 4096;
inline constexpr uint32_t kBlockBytes = 1U << 20;
inline constexpr uint32_t kBlockMagic = 0x4B4C424F;
inline constexpr uint32_t kLeastBlocks = 2;
inline constexpr uint32_t kMostBlocks = 4096;

struct FileHeader {
    char magic[8];
    uint32_t version;
    uint32_t checksum; ///< Of the header, with 0 in this place.
    uint32_t blockBytes;
    uint32_t blocks;
    uint32_t process;
    uint32_t wholePixels; ///< 1: images are recorded, not only their hash.
    uint64_t time;        ///< Of CLOCK_MONOTONIC, as events have it,
    uint64_t realTime;    ///< and of CLOCK_REALTIME at the same moment. In nanoseconds.
    char machine[16];     ///< As in "aarch64".
    char program[120];    ///< As the kernel has it.
};
ABI_SIZE(FileHeader, 184);
ABI_NO_PADDING(FileHeader);

struct BlockHeader {
    uint32_t magic;
    uint32_t checksum;   ///< Of the header, with 0 in this place.
    uint64_t number;     ///< From 0 on; modulo the file's blocks it is the block's place.
    uint64_t firstEvent; ///< Its number.
    uint64_t reserved24;
};
ABI_SIZE(BlockHeader, 32);
ABI_NO_PADDING(BlockHeader);

/// The part of the page that the process' writers share, at kLiveOffset. A reader takes nothing
/// from it but how many events there should be, and which block was the last one.
struct LivePart {
    uint64_t lock[8]; ///< A pthread_mutex_t of the machine.
    uint64_t block;   ///< The number of the current one.
    uint64_t used;    ///< Bytes of it.
    uint64_t nextEvent;
};
inline constexpr uint32_t kLiveOffset = 512;

template <class Header> uint32_t ChecksumWithout(Header header) {
    header.checksum = 0;
    return Checksum(&header, sizeof header);
}

} // namespace contract
