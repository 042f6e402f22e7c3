/// Framework buffers of the stand-in device: native handles whose integers hold the address and the
/// size of plain memory. The host makes them; the vendor's sessions write into them.
#pragma once

#include <cutils/native_handle.h>

#include <cstdint>
#include <cstring>
#include <span>

namespace standin::gralloc {

inline constexpr int kInts = sizeof(std::span<uint8_t>) / sizeof(int);

/// A handle for memory that stays the caller's. `native_handle_delete` frees the handle alone; both
/// need libcutils.
inline native_handle_t* Wrap(void* memory, uint64_t size) {
    native_handle_t* handle = native_handle_create(0, kInts);
    const std::span<uint8_t> location(static_cast<uint8_t*>(memory), size);
    if (handle != nullptr) {
        std::memcpy(handle->data, &location, sizeof(int) * kInts);
    }
    return handle;
}

/// The memory behind a buffer; empty if the buffer is none of this device's.
inline std::span<uint8_t> Memory(const buffer_handle_t* buffer) {
    const native_handle_t* handle = buffer == nullptr ? nullptr : *buffer;
    std::span<uint8_t> location;
    if (handle != nullptr && handle->numFds == 0 && handle->numInts == kInts) {
        std::memcpy(&location, handle->data, sizeof(int) * kInts);
    }
    return location;
}

} // namespace standin::gralloc
