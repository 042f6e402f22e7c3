/// Metadata tags of this device's own.
#pragma once

#include <cstdint>

namespace standin {

/// Says what a host made metadata for: a SetMark. Metadata of a request's input sets that has one
/// is held against it.
inline constexpr uint32_t kSetMarkTag = 0x80000001;

struct SetMark {
    uint32_t cameraId;
    uint32_t index; ///< Of the input set in its request.
};

} // namespace standin
