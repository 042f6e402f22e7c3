/// Counts what each thread takes from the heap and gives back.
#include "bench/heap.h"

#include "kit/heap.h"

void* kit::Take(size_t size, HeapForm form, const void* /*caller*/) {
    ++bench::t_heapCalls.allocations;
    return TakeFromC(size, form);
}

void kit::Give(void* memory, HeapForm /*form*/) noexcept {
    bench::t_heapCalls.frees += memory != nullptr ? 1 : 0;
    std::free(memory);
}
