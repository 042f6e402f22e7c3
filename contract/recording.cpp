/// Reads what may be damaged: no number is used before it was checked.
#include "contract/recording.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace contract {
namespace {

[[noreturn]] void Fail(const std::string& file, const std::string& what) {
    throw RecordingError(file + ": " + what);
}

FileHeader ReadHeader(const std::string& file, std::istream& in) {
    FileHeader header{};
    in.read(reinterpret_cast<char*>(&header), sizeof header);
    if (in.gcount() == 0) {
        Fail(file, "the file is empty, and no recording");
    }
    if (in.gcount() < std::streamsize{sizeof header} ||
        std::memcmp(header.magic, kMagic, sizeof kMagic) != 0) {
        Fail(file, "this is no recording");
    }
    if (header.version != kVersion) {
        Fail(file, "a recording of version " + std::to_string(header.version) +
                       ", and this program reads version " + std::to_string(kVersion));
    }
    if (header.checksum != ChecksumWithout(header)) {
        Fail(file, "the recording's header is damaged");
    }
    if (header.blockBytes != kBlockBytes || header.blocks == 0 || header.blocks > kMostBlocks) {
        Fail(file, "the recording's header is wrong: " + std::to_string(header.blocks) +
                       " blocks of " + std::to_string(header.blockBytes) + " bytes");
    }
    header.machine[sizeof header.machine - 1] = '\0';
    header.program[sizeof header.program - 1] = '\0';
    return header;
}

std::streamoff PlaceOf(const FileHeader& about, uint64_t block) {
    return kPageBytes + static_cast<std::streamoff>(block % about.blocks) * kBlockBytes;
}

/// What the writer counted last; 0 where the file ends before it.
LivePart ReadLivePart(std::istream& in) {
    LivePart live{};
    in.seekg(kLiveOffset);
    in.read(reinterpret_cast<char*>(&live), sizeof live);
    return in.gcount() == std::streamsize{sizeof live} ? live : LivePart{};
}

/// The headers of the blocks that are there, by their numbers.
std::map<uint64_t, BlockHeader> ReadBlockHeaders(const FileHeader& about, std::istream& in) {
    std::map<uint64_t, BlockHeader> blocks;
    for (uint32_t i = 0; i < about.blocks; ++i) {
        BlockHeader block{};
        in.clear();
        in.seekg(PlaceOf(about, i));
        in.read(reinterpret_cast<char*>(&block), sizeof block);
        if (in.gcount() == std::streamsize{sizeof block} && block.magic == kBlockMagic &&
            block.checksum == ChecksumWithout(block) && block.number % about.blocks == i) {
            blocks[block.number] = block;
        }
    }
    return blocks;
}

/// The number of the oldest block that the ring has kept. The newest may be cut off, or its writer
/// died while it began that in the oldest one's place.
uint64_t OldestOf(const FileHeader& about, uint64_t newest, const LivePart& live) {
    const bool isCut = live.block > newest && live.block - newest < about.blocks;
    const uint64_t current = isCut ? live.block : newest;
    return current < about.blocks ? 0 : current - about.blocks + 1;
}

std::string After(const std::vector<Event>& events) {
    return events.empty() ? "before the first event"
                          : "after event " + std::to_string(events.back().Number());
}

/// How many of a record lie in a row at most, where an event is one that was captured. Walks go
/// from row to row: longer ones would make millions of one event.
size_t MostInRow(Record record) {
    switch (record) {
    case Record::Text:
        return 256;
    case Record::Bytes:
        return SIZE_MAX; // An image's piece fills its event.
    case Record::Numbers:
    case Record::Signed:
    case Record::Pointers:
        return 4096;
    case Record::StreamBuffer:
    case Record::BufferSet:
    case Record::QueryBuffer:
    case Record::QueryStreamBuffer:
    case Record::FrameworkBuffer:
    case Record::BufferRequest:
    case Record::StreamBufferRet:
        return 64;
    default:
        return 1;
    }
}

} // namespace

bool IsSound(const EventHeader* event, size_t room) {
    if (room < sizeof *event || event->size < sizeof *event || event->size > room ||
        event->size % 8 != 0 || event->checksum != ChecksumOf(event) ||
        event->entry >= Entry::Count || event->phase > Phase::Return || event->words > kMostWords) {
        return false;
    }
    size_t place = sizeof *event + size_t{8} * event->words;
    const auto* const bytes = reinterpret_cast<const std::byte*>(event);
    while (place < event->size) {
        RecordHeader record{};
        if (event->size - place < sizeof record) {
            return false;
        }
        std::memcpy(&record, bytes + place, sizeof record);
        place += sizeof record;
        if (record.record == Record::None || record.record >= Record::Count ||
            record.bytes > event->size - place || Padded(record.bytes) > event->size - place ||
            record.bytes % TextOf(record.record).size != 0 ||
            record.bytes / TextOf(record.record).size > MostInRow(record.record)) {
            return false;
        }
        place += Padded(record.bytes);
    }
    return place == event->size;
}

Recording Recording::Read(const std::string& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        Fail(file, strerror(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        Fail(file, S_ISDIR(status.st_mode) ? "this is a directory, and no recording"
                                           : "this is no file, and no recording");
    }
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        Fail(file, strerror(errno));
    }
    return Read(file, in);
}

Recording Recording::Read(const std::string& name, std::istream& in) {
    Recording recording;
    recording.mAbout = ReadHeader(name, in);
    const LivePart live = ReadLivePart(in);
    const auto blocks = ReadBlockHeaders(recording.mAbout, in);
    recording.mLacksBeginning =
        !blocks.empty() &&
        blocks.begin()->first > OldestOf(recording.mAbout, blocks.rbegin()->first, live);
    for (auto block = blocks.begin(); recording.mDamage.empty() && block != blocks.end(); ++block) {
        if (block->first != blocks.begin()->first + recording.mBlocks.size()) {
            recording.mDamage = "it ends " + After(recording.mEvents) + ": a block is missing";
            break;
        }
        const std::streamoff place = PlaceOf(recording.mAbout, block->first);
        in.clear();
        const std::streamoff rest = in.seekg(0, std::ios::end).tellg() - place;
        std::vector<std::byte> bytes(std::min<size_t>(kBlockBytes, static_cast<size_t>(rest)));
        in.seekg(place);
        in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        recording.ReadBlock(block->second, std::move(bytes));
    }
    const uint64_t last = recording.mEvents.empty() ? 0 : recording.mEvents.back().Number();
    if (recording.mDamage.empty() && last + 1 != live.nextEvent) {
        recording.mDamage = "it ends " + After(recording.mEvents) + ": the rest is cut off";
    }
    recording.mHasItsEnd = recording.mDamage.empty();
    if (recording.mLacksBeginning) {
        recording.mDamage = "its beginning is damaged" +
                            (recording.mDamage.empty() ? "" : ", and " + recording.mDamage);
    }
    return recording;
}

uint32_t WriterOf(const std::string& file) try {
    std::ifstream in(file, std::ios::binary);
    return ReadHeader(file, in).process;
} catch (const RecordingError&) {
    return 0;
}

/// The last block ends where no further event is; every other one where the next block goes on.
void Recording::ReadBlock(const BlockHeader& block, std::vector<std::byte> bytes) {
    uint64_t number = block.firstEvent;
    if (mEvents.empty() ? !mBlocks.empty() : number != mEvents.back().Number() + 1) {
        mDamage = "it ends " + After(mEvents) + ": what follows is damaged";
        return;
    }
    size_t place = sizeof(BlockHeader);
    while (place + sizeof(EventHeader) <= bytes.size()) {
        const auto* const event = reinterpret_cast<const EventHeader*>(&bytes[place]);
        // Nothing, or what is left from the round before. What has the number that follows and is
        // not whole was damaged, or its writer died.
        if (event->number != number || event->size == 0) {
            break;
        }
        if (!IsSound(event, bytes.size() - place)) {
            mDamage =
                "it ends " + After(mEvents) + ": event " + std::to_string(number) + " is damaged";
            break;
        }
        mEvents.emplace_back(event);
        place += event->size;
        ++number;
    }
    mBlocks.push_back(std::move(bytes));
}

namespace {

std::string LineOf(const std::string& file, const std::string& problem) {
    constexpr size_t kMostShown = 200;
    const std::string line = file.substr(0, file.find('\n'));
    const std::string shown = line.size() > kMostShown ? line.substr(0, kMostShown) + "..." : line;
    return shown + ": no recording can be made here: " + problem;
}

std::string ProblemOfName(const std::string& path) {
    if (path.find_first_of("#\n") != path.npos) {
        return "the path has a '#' or a line's end in it";
    }
    if (path.find_last_not_of(" \t\r") + 1 != path.size()) {
        return "the path ends in a blank";
    }
    return "";
}

std::string ProblemOfOpening(const std::string& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        return "this is no file"; // A pipe would wait for its reader.
    }
    const int opened = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
    if (opened < 0) {
        return strerror(errno);
    }
    const bool isFree = flock(opened, LOCK_EX | LOCK_NB) == 0;
    close(opened);
    return isFree ? "" : "it is being written already";
}

} // namespace

std::string ProblemOfFile(const std::string& file) {
    std::string problem = ProblemOfName(std::filesystem::absolute(file));
    problem = problem.empty() ? ProblemOfOpening(file) : problem;
    return problem.empty() ? "" : LineOf(file, problem);
}

std::string Serialize(const FileHeader& about, const std::vector<Event>& events) {
    std::string all(kPageBytes, '\0');
    size_t next = kPageBytes; // Where the next block begins.
    uint32_t blocks = 0;
    std::map<uint64_t, uint64_t> numbers; // By the old ones.
    for (const Event& event : events) {
        const uint64_t number = numbers.size() + 1;
        if (blocks == 0 || all.size() + event.Header().size > next) {
            BlockHeader block{.magic = kBlockMagic,
                              .checksum = 0,
                              .number = blocks++,
                              .firstEvent = number,
                              .reserved24 = 0};
            block.checksum = ChecksumWithout(block);
            all.resize(next);
            all.append(reinterpret_cast<const char*>(&block), sizeof block);
            next += kBlockBytes;
        }
        const size_t place = all.size();
        all.append(reinterpret_cast<const char*>(&event.Header()), event.Header().size);
        auto* const copy = reinterpret_cast<EventHeader*>(&all[place]);
        numbers[copy->number] = number;
        copy->number = number;
        const auto call = numbers.find(copy->call);
        copy->call = call == numbers.end() ? 0 : call->second;
        copy->checksum = ChecksumOf(copy);
    }
    FileHeader header = about;
    header.blocks = std::max(blocks, 1U);
    header.checksum = ChecksumWithout(header);
    const LivePart live{.nextEvent = numbers.size() + 1};
    std::memcpy(all.data(), &header, sizeof header);
    std::memcpy(&all[kLiveOffset], &live, sizeof live);
    return all;
}

} // namespace contract
