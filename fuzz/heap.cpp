/// Follows the blocks of the watched thread.
#include "fuzz/heap.h"

#include "fuzz/check.h"
#include "kit/heap.h"

#include <utility>

namespace {

thread_local bool t_isWatched = false;

} // namespace

void* kit::Take(size_t size, HeapForm form, const void* /*caller*/) {
    return t_isWatched ? TakeFollowed(size, form) : TakeFromC(size, form);
}

void kit::Give(void* memory, HeapForm form) noexcept {
    t_isWatched ? GiveFollowed(memory, form) : std::free(memory);
}

namespace fuzz {

HeapWatch::HeapWatch() { t_isWatched = true; }

HeapWatch::~HeapWatch() { End(); }

std::map<size_t, size_t> HeapWatch::End() {
    std::map<size_t, size_t> left;
    if (std::exchange(t_isWatched, false)) {
        kit::ForEachFollowed([&](void* memory, size_t size) {
            ++left[size];
            std::free(memory);
        });
        kit::ForgetFollowed();
    }
    return left;
}

void HeapWatch::EndEmpty() {
    const std::map<size_t, size_t> left = End();
    if (!left.empty()) {
        Fail("%zu blocks of %zu bytes stay", left.begin()->second, left.begin()->first);
    }
}

} // namespace fuzz
