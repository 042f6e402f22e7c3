/// Counts what is taken from the heap, less what is given back.
#include "schedules/heap.h"

#include "kit/heap.h"

void* kit::Take(size_t size, HeapForm form, const void* /*caller*/) {
    schedules::g_heapBlocks.fetch_add(1, std::memory_order_relaxed);
    return TakeFromC(size, form);
}

void kit::Give(void* memory, HeapForm /*form*/) noexcept {
    schedules::g_heapBlocks.fetch_sub(memory != nullptr ? 1 : 0, std::memory_order_relaxed);
    std::free(memory);
}
