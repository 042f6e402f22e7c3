/// Sizes, hashes, and the table of images.
#include "contract/images.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace contract {

uint64_t BytesOfImage(uint32_t format, uint32_t width, uint32_t height) {
    const uint64_t pixels = uint64_t{width} * height;
    switch (format) {
    case ChiStreamFormatRaw16:
        return pixels * 2;
    case ChiStreamFormatRaw12:
    case ChiStreamFormatYCbCr420_888:
        return pixels * 3 / 2;
    case ChiStreamFormatRaw10:
        return pixels * 5 / 4;
    default:
        return 0;
    }
}

/// A row is within one or two lines of the cache, and a place costs a look into the page table:
/// that is what counts where nobody has touched the image yet.
uint64_t HashOfPixels(const void* memory, uint64_t bytes) {
    constexpr uint64_t kFactor = 0x9E3779B97F4A7C15;
    constexpr uint64_t kSteps = 7; // From the first place to the last.
    const uint64_t row = std::min<uint64_t>(bytes, 64) / 8 * 8;
    const uint64_t last = bytes - row;
    uint64_t hash = bytes;
    for (uint64_t step = 0; step <= kSteps; ++step) {
        const uint64_t offset = last / kSteps * step + last % kSteps * step / kSteps;
        const auto* const place = static_cast<const std::byte*>(memory) + offset;
        for (uint64_t i = 0; i < row; i += 8) {
            uint64_t word = 0;
            std::memcpy(&word, place + i, sizeof word);
            hash = std::rotl(hash ^ word, 29) * kFactor;
        }
    }
    return hash ^ hash >> 32;
}

namespace {

class Locked {
  public:
    explicit Locked(pthread_mutex_t& lock) : mLock(lock) { pthread_mutex_lock(&mLock); }
    ~Locked() { pthread_mutex_unlock(&mLock); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

  private:
    pthread_mutex_t& mLock;
};

} // namespace

template <class Value, size_t Most>
size_t Images::Table<Value, Most>::PlaceOf(const void* handle) const {
    return static_cast<size_t>(std::find(handles, handles + used, handle) - handles);
}

/// A handle that is there already is one that is given out again.
template <class Value, size_t Most>
void Images::Table<Value, Most>::Add(void* handle, const Value& value) {
    size_t place = PlaceOf(handle);
    if (place == used && (place = PlaceOf(nullptr)) == used) {
        place = used < Most ? used++ : next++ % Most;
    }
    handles[place] = handle;
    values[place] = value;
}

template <class Value, size_t Most> void Images::Table<Value, Most>::Remove(const void* handle) {
    if (const size_t place = PlaceOf(handle); place < used) {
        handles[place] = nullptr;
    }
}

/// What is behind the first plane of a YUV image need not be where an image without padding has it.
void Images::AddManager(const void* table, ChiBufferManagerHandle manager,
                        const ChiBufferManagerCreateData* data) {
    if (manager != nullptr && data != nullptr) {
        const uint64_t bytes = BytesOfImage(data->format, data->width, data->height);
        const bool isYuv = data->format == ChiStreamFormatYCbCr420_888;
        const Locked locked(mLock);
        mManagers.Add(manager, {table, bytes, isYuv ? bytes * 2 / 3 : bytes});
    }
}

void Images::RemoveTable(const void* table) {
    const Locked locked(mLock);
    for (size_t i = 0; i < mManagers.used; ++i) {
        if (mManagers.handles[i] != nullptr && mManagers.values[i].table == table) {
            Forget(mManagers.handles[i]);
        }
    }
}

void Images::RemoveManager(ChiBufferManagerHandle manager) {
    const Locked locked(mLock);
    Forget(manager);
}

void Images::Forget(const void* manager) {
    mManagers.Remove(manager);
    for (size_t i = 0; i < mImages.used; ++i) {
        if (mImages.values[i].manager == manager) {
            mImages.handles[i] = nullptr;
        }
    }
}

void Images::AddImage(ChiImageBufferHandle image, ChiBufferManagerHandle manager) {
    const Locked locked(mLock);
    const size_t owner = mManagers.PlaceOf(manager);
    mImages.Remove(image);
    if (image != nullptr && manager != nullptr && owner < mManagers.used) {
        const Manager& known = mManagers.values[owner];
        mImages.Add(image, {manager, {nullptr, known.bytes, known.hashed}});
    }
}

void Images::SetAddress(ChiImageBufferHandle image, const void* address) {
    const Locked locked(mLock);
    if (const size_t place = mImages.PlaceOf(image); image != nullptr && place < mImages.used) {
        mImages.values[place].memory.address = address;
    }
}

void Images::RemoveImage(ChiImageBufferHandle image) {
    const Locked locked(mLock);
    mImages.Remove(image);
}

Images::Memory Images::Find(ChiImageBufferHandle image) const {
    const Locked locked(mLock);
    const size_t place = mImages.PlaceOf(image);
    if (image == nullptr || place == mImages.used || mImages.values[place].memory.bytes == 0 ||
        mImages.values[place].memory.address == nullptr) {
        return {};
    }
    return mImages.values[place].memory;
}

} // namespace contract
