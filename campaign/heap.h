/// Blocks that the adapter has taken by `operator new` from its own code, as far as they are left.
#pragma once

#include <cstddef>
#include <map>

namespace campaign {

/// How many blocks of each size are left. While no other thread takes or gives.
std::map<size_t, size_t> LibraryBlocks();

} // namespace campaign
