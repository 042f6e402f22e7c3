#include "fuzz/heap.h"

#include "fuzz/check.h"

#include <cstdlib>
#include <new>
#include <unordered_map>
#include <utility>

namespace {

/// For the list of blocks itself.
template <class T> struct PlainAllocator {
    using value_type = T;
    PlainAllocator() = default;
    template <class Other> explicit PlainAllocator(const PlainAllocator<Other>&) {}
    // NOLINTNEXTLINE(bugprone-sizeof-expression): some of its elements are pointers
    T* allocate(size_t count) { return static_cast<T*>(std::malloc(count * sizeof(T))); }
    void deallocate(T* memory, size_t) { std::free(memory); }
    bool operator==(const PlainAllocator&) const { return true; }
};

struct Block {
    size_t size;
    bool isArray;
};
using Blocks = std::unordered_map<void*, Block, std::hash<void*>, std::equal_to<>,
                                  PlainAllocator<std::pair<void* const, Block>>>;

thread_local Blocks* t_blocks = nullptr; ///< Null while nobody watches.

void* Take(size_t size, bool isArray) {
    void* memory = std::malloc(size);
    if (t_blocks != nullptr) {
        t_blocks->emplace(memory, Block{size, isArray});
    }
    return memory;
}

void Give(void* memory, bool isArray) {
    if (t_blocks != nullptr) {
        const auto found = t_blocks->find(memory);
        if (found != t_blocks->end()) {
            fuzz::Check(found->second.isArray == isArray,
                        "a block is deleted in another way than made");
            t_blocks->erase(found);
        }
    }
    std::free(memory);
}

} // namespace

void* operator new(size_t size) { return Take(size, false); }
void* operator new[](size_t size) { return Take(size, true); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Take(size, false); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return Take(size, true); }
void operator delete(void* memory) noexcept { Give(memory, false); }
void operator delete[](void* memory) noexcept { Give(memory, true); }
void operator delete(void* memory, size_t) noexcept { Give(memory, false); }
void operator delete[](void* memory, size_t) noexcept { Give(memory, true); }

namespace fuzz {

HeapWatch::HeapWatch() {
    static Blocks blocks;
    t_blocks = &blocks;
}

HeapWatch::~HeapWatch() { End(); }

std::map<size_t, size_t> HeapWatch::End() {
    Blocks* const blocks = std::exchange(t_blocks, nullptr);
    std::map<size_t, size_t> left;
    if (blocks != nullptr) {
        for (const auto& [memory, block] : *blocks) {
            ++left[block.size];
            std::free(memory);
        }
        blocks->clear();
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
