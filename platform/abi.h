/// Compile-time guards for record layouts.
///
/// A record that crosses a library boundary is followed by its guards. A guard that fails shows
/// both numbers in the compiler's message, as in `Equals<32, 24>`: the actual one first.
#pragma once

#include <cstddef>
#include <type_traits>

namespace layout {

template <std::size_t Actual, std::size_t Expected> struct Equals {
    static_assert(Actual == Expected, "layout differs from the contract: Equals<actual, expected>");
    static constexpr bool value = Actual == Expected;
};

} // namespace layout

#define ABI_SIZE(Type, expected)                                                                   \
    static_assert(std::is_standard_layout_v<Type>, #Type " must be a standard-layout record");     \
    static_assert(layout::Equals<sizeof(Type), (expected)>::value)

#define ABI_OFFSET(Type, member, expected)                                                         \
    static_assert(layout::Equals<offsetof(Type, member), (expected)>::value)

/// For records that are handed to the vendor: whoever clears the members clears every byte.
#define ABI_NO_PADDING(Type)                                                                       \
    static_assert(std::has_unique_object_representations_v<Type>, #Type " must have no padding")
