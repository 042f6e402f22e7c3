/// The ring, the lock in it, and the file behind it.
#include "contract/tap.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <utility>

namespace contract {
namespace {

constexpr size_t kAhead =
    sizeof(EventHeader) + size_t{8} * kMostWords; ///< What a cut event needs, too.

uint64_t Now(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

/// What /proc/self/FILE begins with.
std::string ReadOwn(const char* file) {
    char text[512];
    const std::string path = std::string("/proc/self/") + file;
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t bytes = descriptor < 0 ? 0 : read(descriptor, text, sizeof text);
    if (descriptor >= 0) {
        close(descriptor);
    }
    return {text, static_cast<size_t>(std::max<ssize_t>(bytes, 0))};
}

FileHeader Describe(uint32_t blocks, bool wholePixels) {
    FileHeader header{};
    std::memcpy(header.magic, kMagic, sizeof kMagic);
    header.version = kVersion;
    header.blockBytes = kBlockBytes;
    header.blocks = blocks;
    header.process = static_cast<uint32_t>(getpid());
    header.wholePixels = wholePixels ? 1 : 0;
    header.time = Now(CLOCK_MONOTONIC);
    header.realTime = Now(CLOCK_REALTIME);
    utsname machine{};
    (void)uname(&machine);
    (void)snprintf(header.machine, sizeof header.machine, "%.15s", machine.machine);
    (void)snprintf(header.program, sizeof header.program, "%.119s", ReadOwn("comm").c_str());
    header.program[strcspn(header.program, "\n")] = '\0';
    header.checksum = ChecksumWithout(header);
    return header;
}

} // namespace

// --- Checksums ----------------------------------------------------------------------------------

/// Four sums at once, so that none waits for the other.
uint32_t Checksum(const void* bytes, size_t size) {
    constexpr uint64_t kFactor = 0x9E3779B97F4A7C15;
    uint64_t sums[4] = {size, 1, 2, 3};
    const auto* place = static_cast<const std::byte*>(bytes);
    const auto mix = [&](uint64_t& sum) {
        uint64_t word = 0;
        std::memcpy(&word, place, sizeof word);
        place += sizeof word;
        sum = std::rotl(sum ^ word, 29) * kFactor;
    };
    for (; size >= 32; size -= 32) {
        (mix(sums[0]), mix(sums[1]), mix(sums[2]), mix(sums[3]));
    }
    for (; size >= 8; size -= 8) {
        mix(sums[0]);
    }
    uint64_t sum = sums[0];
    for (const uint64_t other : {sums[1], sums[2], sums[3]}) {
        sum = (sum ^ other) * kFactor;
        sum ^= sum >> 32;
    }
    return static_cast<uint32_t>(sum * kFactor >> 32);
}

uint32_t ChecksumOf(const EventHeader* event) {
    constexpr size_t kBehind = offsetof(EventHeader, number);
    return Checksum(&event->number, event->size - kBehind) ^ event->size;
}

// --- Opening ------------------------------------------------------------------------------------

namespace {

static_assert(sizeof(pthread_mutex_t) <= sizeof(LivePart::lock));

pthread_mutex_t* LockOf(LivePart* live) { return reinterpret_cast<pthread_mutex_t*>(live->lock); }

} // namespace

std::unique_ptr<Tap> Tap::Open(const Settings& settings, std::string& problem) {
    std::unique_ptr<Tap> tap(new Tap);
    pthread_key_t key{};
    if (pthread_key_create(&key, nullptr) != 0) {
        problem = "there is no room for a key of threads";
        return nullptr;
    }
    tap->mThreadKey = key;
    tap->mFollower = settings.follower;
    return tap->Map(settings, problem) ? std::move(tap) : nullptr;
}

/// Opens the settings' file with room for all blocks, and locks it: alone, where it is begun anew,
/// else with those of this process that write into it. `header` becomes theirs then. Memory of the
/// file keeps the lock, so that no other process takes the file away from under it. \returns -1
/// where that fails.
int Tap::OpenFile(const Settings& settings, FileHeader& header, bool& joins) {
    // Readable for its group: who takes it off the device need not be who records.
    const int file = open(settings.file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
    if (file < 0) {
        return -1;
    }
    const auto bytes = [&] { return kPageBytes + off_t{header.blocks} * kBlockBytes; };
    if (flock(file, LOCK_EX | LOCK_NB) == 0) {
        // What an older recording left is gone. All of it has room: memory of a file that cannot
        // grow would end the process.
        if (ftruncate(file, 0) == 0 && (errno = posix_fallocate(file, 0, bytes())) == 0) {
            return file;
        }
        const int reason = errno;
        (void)ftruncate(file, 0); // What there was room for would fill the disk.
        errno = reason;
    } else if (errno == EWOULDBLOCK && flock(file, LOCK_SH) == 0) { // Once it has been begun.
        FileHeader found{};
        struct stat status {};
        joins = pread(file, &found, sizeof found, 0) == ssize_t{sizeof found} &&
                found.checksum == ChecksumWithout(found) && found.version == kVersion &&
                found.process == header.process; // Whose it is holds the lock, and so is alive.
        header = joins ? found : header;
        if (joins && fstat(file, &status) == 0 && status.st_size == bytes()) {
            return file;
        }
        errno = EBUSY;
    }
    const int reason = errno;
    close(file);
    errno = reason;
    return -1;
}

bool Tap::Map(const Settings& settings, std::string& problem) {
    const auto blocks = static_cast<uint32_t>(std::clamp<uint64_t>(
        settings.bytes / kBlockBytes, settings.file.empty() ? 1 : kLeastBlocks, kMostBlocks));
    FileHeader header = Describe(blocks, settings.wholePixels);
    bool joins = false;
    mHasFile = !settings.file.empty();
    const int file = mHasFile ? OpenFile(settings, header, joins) : -1;
    mBytes = kPageBytes + size_t{header.blocks} * kBlockBytes;
    void* memory = MAP_FAILED;
    if (file >= 0 || !mHasFile) {
        memory = mmap(nullptr, mBytes, PROT_READ | PROT_WRITE,
                      mHasFile ? MAP_SHARED : MAP_PRIVATE | MAP_ANONYMOUS, file, 0);
    }
    if (memory == MAP_FAILED) {
        problem = settings.file + ": " +
                  (errno == EBUSY ? "another process records into it" : strerror(errno));
    } else {
        mMemory = static_cast<std::byte*>(memory);
        mShared = reinterpret_cast<LivePart*>(mMemory + kLiveOffset);
        mWholePixels = header.wholePixels != 0;
        if (!joins) {
            Start(header);
        }
    }
    if (file >= 0) {
        (void)flock(file, LOCK_SH);
        close(file);
    }
    return mMemory != nullptr;
}

/// The header comes last: with it, the recording is one.
void Tap::Start(const FileHeader& header) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutex_init(LockOf(mShared), &attributes);
    pthread_mutexattr_destroy(&attributes);
    mShared->block = UINT64_MAX; // Before the first one.
    mShared->nextEvent = 1;
    BeginBlock();
    std::memcpy(mMemory, &header, sizeof header);
}

Tap::~Tap() {
    pthread_key_delete(mThreadKey);
    if (mMemory != nullptr) {
        munmap(mMemory, mBytes);
    }
}

// --- Writing ------------------------------------------------------------------------------------

/// Asking the kernel is slow; a thread keeps the answer. No thread has the number 0.
uint32_t Tap::OwnThread() const {
    auto number = reinterpret_cast<uintptr_t>(pthread_getspecific(mThreadKey));
    if (number == 0) {
        number = static_cast<uintptr_t>(gettid());
        pthread_setspecific(mThreadKey, reinterpret_cast<void*>(number));
    }
    return static_cast<uint32_t>(number);
}

void Tap::Lock() {
    pthread_mutex_lock(LockOf(mShared));
    FindPlace();
    if (mRoom < kAhead) {
        BeginBlock();
    }
}

void Tap::Unlock() { pthread_mutex_unlock(LockOf(mShared)); }

std::byte* Tap::BlockAt(uint64_t number) const {
    const uint64_t blocks = (mBytes - kPageBytes) / kBlockBytes;
    return mMemory + kPageBytes + number % blocks * kBlockBytes;
}

void Tap::FindPlace() {
    mPlace = BlockAt(mShared->block) + mShared->used;
    mRoom = kBlockBytes - mShared->used;
}

bool Tap::IsAtStart() const { return mShared->used == sizeof(BlockHeader); }

void Tap::BeginBlock() {
    ++mShared->block;
    mShared->used = 0;
    FindPlace();
    BlockHeader header{.magic = kBlockMagic,
                       .checksum = 0,
                       .number = mShared->block,
                       .firstEvent = mShared->nextEvent,
                       .reserved24 = 0};
    header.checksum = ChecksumWithout(header);
    std::memcpy(mPlace, &header, sizeof header);
    mShared->used = sizeof header;
    FindPlace();
}

/// The header comes last: without it, the event is not there.
uint64_t Tap::Commit(Writer& writer, Entry entry, Phase phase, uint64_t call, uint32_t thread) {
    auto* const place = reinterpret_cast<EventHeader*>(mPlace);
    EventHeader header{};
    writer.End(header);
    header.number = mShared->nextEvent++;
    header.time = Now(CLOCK_MONOTONIC);
    header.call = phase == Phase::Call ? header.number : call;
    header.thread = thread;
    header.entry = entry;
    header.phase = phase;
    const uint32_t size = std::exchange(header.size, 0);
    std::memcpy(place, &header, sizeof header);
    place->size = size;
    place->checksum = ChecksumOf(place);
    mShared->used += size;
    if (mFollower != nullptr) {
        ShowFollower(header.number);
    }
    return header.number;
}

/// Up to the event that was just written.
void Tap::ShowFollower(uint64_t own) {
    const auto firstIn = [this](uint64_t block) {
        return reinterpret_cast<const BlockHeader*>(BlockAt(block))->firstEvent;
    };
    const uint64_t blocks = (mBytes - kPageBytes) / kBlockBytes;
    if (mShared->block - mBlockToShow >= blocks) { // The ring has come round to it.
        mBlockToShow = mShared->block - (blocks - 1);
        mOffsetToShow = sizeof(BlockHeader);
        mNextToShow = firstIn(mBlockToShow);
    }
    while (mNextToShow <= own) {
        if (mBlockToShow < mShared->block && firstIn(mBlockToShow + 1) == mNextToShow) {
            ++mBlockToShow;
            mOffsetToShow = sizeof(BlockHeader);
            continue;
        }
        const auto* const event =
            reinterpret_cast<const EventHeader*>(BlockAt(mBlockToShow) + mOffsetToShow);
        mFollower->Take(Event(event), mNextToShow == own);
        mOffsetToShow += event->size;
        ++mNextToShow;
    }
}

/// A block has room for two of the pieces, so that not much of it stays empty.
void Tap::WritePixels(const Before<Entry::ExecuteRequest>& before) {
    constexpr uint64_t kPiece = kBlockBytes / 2 - kPageBytes;
    if (!mWholePixels) {
        return;
    }
    for (const auto& input : before.Inputs()) {
        const auto* const memory = static_cast<const std::byte*>(input.memory.address);
        for (uint64_t offset = 0; offset < input.memory.bytes; offset += kPiece) {
            Call<Entry::Pixels>(input.image, offset, std::min(kPiece, input.memory.bytes - offset),
                                static_cast<const void*>(memory + offset));
        }
    }
}

} // namespace contract
