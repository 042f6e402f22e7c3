/// The operators new and delete of the campaign's program: the adapter's blocks are followed.
#include "campaign/heap.h"

#include "kit/heap.h"

#include <dlfcn.h>
#include <link.h>
#include <string_view>

namespace campaign {
namespace {

/// Whether code is the adapter's. A copy that was made for a test is called like it.
bool IsLibrarys(const void* code) {
    dl_find_object found{};
    return _dl_find_object(const_cast<void*>(code), &found) == 0 &&
           std::string_view(found.dlfo_link_map->l_name).ends_with("/camera.oemlayer.adapter.so");
}

} // namespace

std::map<size_t, size_t> LibraryBlocks() {
    std::map<size_t, size_t> counts;
    kit::ForEachFollowed([&](void* /*memory*/, size_t size) { ++counts[size]; });
    return counts;
}

} // namespace campaign

void* kit::Take(size_t size, HeapForm form, const void* caller) {
    return campaign::IsLibrarys(caller) ? TakeFollowed(size, form) : TakeFromC(size, form);
}
void kit::Give(void* memory, HeapForm form) noexcept { GiveFollowed(memory, form); }
