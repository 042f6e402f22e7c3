/// What the library takes from the heap and does not give back.
#pragma once

#include <cstddef>
#include <functional>
#include <map>

namespace fuzz {

/// Follows `new` and `delete` of this thread during the call, whoever calls them. A block that is
/// deleted in another way than it was made ends the process. What is left is freed, so that a long
/// run does not fill the memory.
/// \returns how many blocks of each size there were.
std::map<size_t, size_t> BlocksLeftBy(const std::function<void()>& act);

/// Ends the process where the call leaves any.
void ExpectNothingLeftBy(const std::function<void()>& act);

} // namespace fuzz
