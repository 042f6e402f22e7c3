/// Counts what each thread takes from the heap and gives back.
#include "bench/heap.h"

#include "kit/heap.h"

namespace {

thread_local bench::HeapCalls t_calls;

} // namespace

void* kit::Take(size_t size, HeapForm form, const void* /*caller*/) {
    ++t_calls.allocations;
    return TakeFromC(size, form);
}

void kit::Give(void* memory, HeapForm /*form*/) noexcept {
    t_calls.frees += memory != nullptr ? 1 : 0;
    std::free(memory);
}

bench::HeapCalls bench::CountedHeapCalls() { return t_calls; }
