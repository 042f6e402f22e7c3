#include "bench/heap.h"

#include <cstdlib>
#include <new>

namespace {

thread_local bench::HeapCalls t_calls;

void* Allocate(size_t size) noexcept {
    ++t_calls.allocations;
    return std::malloc(size);
}

void* AllocateOrEnd(size_t size) {
    void* memory = Allocate(size);
    if (memory == nullptr) {
        std::abort();
    }
    return memory;
}

void Free(void* memory) noexcept {
    t_calls.frees += memory != nullptr ? 1 : 0;
    std::free(memory);
}

} // namespace

bench::HeapCalls bench::CountedHeapCalls() { return t_calls; }

void* operator new(size_t size) { return AllocateOrEnd(size); }
void* operator new[](size_t size) { return AllocateOrEnd(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete[](void* memory) noexcept { Free(memory); }
void operator delete(void* memory, size_t) noexcept { Free(memory); }
void operator delete[](void* memory, size_t) noexcept { Free(memory); }
