/// One event: a call across the boundary, or its return, with the records behind its arguments.
///
/// An event lies in memory as it lies in a recording: a header, the argument words, then copies of
/// the records, each with the address at which it lay. All numbers are little-endian, and records
/// are laid out as on a 64-bit machine of either architecture, so that a phone's recording is read
/// on a desk as it is. A call has the words of its arguments; a return has them, too, and the
/// result behind them.
#pragma once

#include "contract/records.h"

#include <algorithm>
#include <bit>
#include <cstring>

static_assert(std::endian::native == std::endian::little && sizeof(void*) == 8);

namespace contract {

enum class Phase : uint8_t { Call, Return };

struct EventHeader {
    uint32_t size; ///< Of the event with all that follows; a multiple of 8.
    uint32_t checksum;
    uint64_t number; ///< From 1 on, without gaps.
    uint64_t time;   ///< In nanoseconds of CLOCK_MONOTONIC.
    uint64_t call;   ///< The number of the call that returns; of a call its own.
    uint32_t thread; ///< As the kernel numbers it.
    Entry entry;
    Phase phase;
    uint8_t words;  ///< That follow.
    uint32_t isCut; ///< Not 0: not all records had room, or they were too many.
    uint32_t reserved44;
};
ABI_SIZE(EventHeader, 48);
ABI_NO_PADDING(EventHeader);

/// Before each copy of records.
struct RecordHeader {
    uint64_t address;
    uint32_t bytes; ///< That follow, filled up to a multiple of 8.
    Record record;
    uint16_t reserved14;
};
ABI_SIZE(RecordHeader, 16);
ABI_NO_PADDING(RecordHeader);

inline constexpr uint32_t kMostWords = 10;

constexpr uint32_t Padded(uint32_t bytes) { return (bytes + 7) & ~7U; }

/// An event in memory that somebody else owns. Its parts are trusted: who reads a file checks them.
class Event {
  public:
    Event() = default;
    explicit Event(const EventHeader* header) : mHeader(header) {}

    const EventHeader& Header() const { return *mHeader; }
    uint64_t Number() const { return mHeader->number; }
    uint64_t Time() const { return mHeader->time; }
    uint32_t Thread() const { return mHeader->thread; }
    Entry Of() const { return mHeader->entry; }
    const EntryText& Text() const { return TextOf(mHeader->entry); }
    bool IsCall() const { return mHeader->phase == Phase::Call; }
    bool IsCall(Entry entry) const { return IsCall() && mHeader->entry == entry; }
    bool IsReturn(Entry entry) const { return !IsCall() && mHeader->entry == entry; }

    /// An argument; 0 where there is none with this index.
    uint64_t Word(size_t index) const { return index < mHeader->words ? Words()[index] : 0; }
    /// What a return returns; 0 where the entry returns nothing.
    uint64_t Result() const {
        return IsCall() || Text().result == nullptr ? 0 : Word(Text().arguments.size());
    }

    /// The copies of the records of a type that lie in a row from an address on; empty where they
    /// are not recorded.
    template <class T> std::span<const T> All(uint64_t address) const {
        const auto bytes = Find(kRecordOf<T>, address);
        return {reinterpret_cast<const T*>(bytes.data()), bytes.size() / sizeof(T)};
    }
    /// As many of them, at most.
    template <class T> std::span<const T> Some(const void* address, size_t most) const {
        const auto all = All<T>(address);
        return all.first(std::min(all.size(), most));
    }
    /// One of them; null where it is not recorded.
    template <class T> const T* At(uint64_t address) const {
        const auto all = All<T>(address);
        return all.empty() ? nullptr : all.data();
    }
    template <class T> std::span<const T> All(const void* address) const {
        return All<T>(reinterpret_cast<uint64_t>(address));
    }
    template <class T> const T* At(const void* address) const {
        return At<T>(reinterpret_cast<uint64_t>(address));
    }
    /// A text, as far as it is recorded.
    std::string_view TextAt(uint64_t address) const {
        const auto all = All<char>(address);
        return {all.data(), all.size()};
    }

    /// The bytes of the copies of a type at an address.
    std::span<const std::byte> Find(Record record, uint64_t address) const {
        for (const RecordHeader* each = First(); each != nullptr; each = Next(each)) {
            if (each->address == address && each->record == record) {
                return Bytes(each);
            }
        }
        return {};
    }

    // The records in a row, for who needs them all.
    const RecordHeader* First() const {
        return AtOffset(sizeof(EventHeader) + 8U * mHeader->words);
    }
    const RecordHeader* Next(const RecordHeader* record) const {
        const auto* const self = reinterpret_cast<const std::byte*>(mHeader);
        const auto* const place = reinterpret_cast<const std::byte*>(record);
        return AtOffset(static_cast<uint32_t>(place - self) + uint32_t{sizeof(RecordHeader)} +
                        Padded(record->bytes));
    }
    static std::span<const std::byte> Bytes(const RecordHeader* record) {
        return {reinterpret_cast<const std::byte*>(record + 1), record->bytes};
    }

  private:
    const uint64_t* Words() const { return reinterpret_cast<const uint64_t*>(mHeader + 1); }
    const RecordHeader* AtOffset(uint32_t offset) const {
        const auto* const self = reinterpret_cast<const std::byte*>(mHeader);
        return offset + sizeof(RecordHeader) > mHeader->size
                   ? nullptr
                   : reinterpret_cast<const RecordHeader*>(self + offset);
    }

    const EventHeader* mHeader = nullptr;
};

/// Of bytes whose number is a multiple of 8.
uint32_t Checksum(const void* bytes, size_t size);
/// Of an event, over all but the sum itself.
uint32_t ChecksumOf(const EventHeader* event);

} // namespace contract
