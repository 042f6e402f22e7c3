/// The endurance run's account of the heap.

#include "soak/heap.h"
#include "tests/support/heap_forms.h"

#include <gtest/gtest.h>

namespace {

void Anything() {}

TEST(HeapAccount, HasEachFormOfTheWatchedModuleToTheByte) {
    soak::heap::Watch(reinterpret_cast<void*>(Anything)); // This program.
    for (const test::HeapForm& form : test::kHeapForms) {
        const auto before = soak::heap::Count().library;
        void* const memory = form.take();
        const auto between = soak::heap::Count().library;
        form.give(memory);
        EXPECT_EQ(between - before, int64_t{test::kSize}) << form.name;
        EXPECT_EQ(soak::heap::Count().library, before) << form.name;
    }
}

} // namespace
