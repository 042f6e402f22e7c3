/// How a host at the desk says for which input set of a request it made metadata.
#pragma once

#include <cstdint>

namespace contract {

/// The value of the tag kSetMarkTag, which no device knows. Metadata of a request's input sets that
/// has one is held against it.
struct SetMark {
    uint32_t cameraId;
    uint32_t index; ///< Of the input set in its request.
};
inline constexpr uint32_t kSetMarkTag = 0x80000001;

} // namespace contract
