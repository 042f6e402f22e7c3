/// Which memory images have, learnt from the calls that make them known.
#pragma once

#include "platform/chi/offline.h"

#include <cstddef>
#include <cstdint>
#include <pthread.h>

namespace contract {

/// How many bytes the pixels of an image take without padding; 0 where that is not known.
uint64_t BytesOfImage(uint32_t format, uint32_t width, uint32_t height);

/// Of eight words in a row at each of eight places, which are spread evenly over the bytes.
uint64_t HashOfPixels(const void* memory, uint64_t bytes);

/// The images of a process, as far as they have room: a new one takes the place of the oldest.
/// Allocates nothing. Any thread may call its members.
class Images {
  public:
    struct Memory {
        const void* address = nullptr; ///< Null where it is not known, or its size is not.
        uint64_t bytes = 0;
        uint64_t hashed = 0; ///< How many of them have a hash: of a YUV image, the first plane's.
    };

    /// \param table the buffer operations that made it.
    void AddManager(const void* table, ChiBufferManagerHandle manager,
                    const ChiBufferManagerCreateData* data);
    /// Forgets its managers with their images.
    void RemoveTable(const void* table);
    /// Forgets its images, too.
    void RemoveManager(ChiBufferManagerHandle manager);
    /// A handle that is given out again is a new image, whose memory is not known yet.
    void AddImage(ChiImageBufferHandle image, ChiBufferManagerHandle manager);
    void SetAddress(ChiImageBufferHandle image, const void* address);
    void RemoveImage(ChiImageBufferHandle image);

    /// The memory stays readable as long as the image's holder does not give it back.
    Memory Find(ChiImageBufferHandle image) const;

  private:
    /// Handles in a row, so that looking for one is fast. Null is no handle.
    template <class Value, size_t Most> struct Table {
        void* handles[Most] = {};
        Value values[Most] = {};
        size_t used = 0; ///< Places that had a handle so far.
        size_t next = 0; ///< The place of the next new one.

        size_t PlaceOf(const void* handle) const;
        void Add(void* handle, const Value& value);
        void Remove(const void* handle);
    };
    struct Manager {
        const void* table;
        uint64_t bytes; ///< Of each of its images.
        uint64_t hashed;
    };
    struct Image {
        const void* manager;
        Memory memory; ///< The size is known from the beginning.
    };

    void Forget(const void* manager);

    mutable pthread_mutex_t mLock = PTHREAD_MUTEX_INITIALIZER;
    Table<Manager, 128> mManagers;
    Table<Image, 512> mImages;
};

} // namespace contract
