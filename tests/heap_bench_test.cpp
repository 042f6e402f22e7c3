/// The benchmark's count of heap calls.

#include "bench/heap.h"
#include "tests/support/heap_forms.h"

#include <gtest/gtest.h>

namespace {

TEST(HeapCount, CountsABlockOfEachFormOnceAndItsEndOnce) {
    for (const test::HeapForm& form : test::kHeapForms) {
        const bench::HeapCalls before = bench::t_heapCalls;
        form.give(form.take());
        EXPECT_EQ(bench::t_heapCalls - before, (bench::HeapCalls{1, 1})) << form.name;
    }
}

} // namespace
