/// Follows the blocks of the watched thread.
#include "fuzz/heap.h"

#include "fuzz/check.h"
#include "kit/heap.h"

namespace {

thread_local bool t_isWatched = false;

} // namespace

void* kit::Take(size_t size, HeapForm form, const void* /*caller*/) {
    return t_isWatched ? TakeFollowed(size, form) : TakeFromC(size, form);
}

void kit::Give(void* memory, HeapForm form) noexcept {
    t_isWatched ? GiveFollowed(memory, form) : std::free(memory);
}

std::map<size_t, size_t> fuzz::BlocksLeftBy(const std::function<void()>& act) {
    t_isWatched = true;
    act();
    t_isWatched = false;
    std::map<size_t, size_t> left;
    kit::ForEachFollowed([&](void* memory, size_t size) {
        ++left[size];
        std::free(memory);
    });
    kit::ForgetFollowed();
    return left;
}

void fuzz::ExpectNothingLeftBy(const std::function<void()>& act) {
    if (const auto left = BlocksLeftBy(act); !left.empty()) {
        Fail("%zu blocks of %zu bytes stay", left.begin()->second, left.begin()->first);
    }
}
