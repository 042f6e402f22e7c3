/// What the library takes from the heap and does not give back.
#pragma once

#include <cstddef>
#include <map>

namespace fuzz {

/// Follows `new` and `delete` of this thread as long as it lives, whoever calls them. A block that
/// is deleted in another way than it was made ends the process.
class HeapWatch {
  public:
    HeapWatch();
    ~HeapWatch();
    HeapWatch(const HeapWatch&) = delete;
    HeapWatch& operator=(const HeapWatch&) = delete;

    /// Ends the watch. What is left is freed, so that a long run does not fill the memory.
    /// \returns how many blocks of each size there were.
    std::map<size_t, size_t> End();

    /// Ends the watch where nothing may be left.
    void EndEmpty();
};

} // namespace fuzz
