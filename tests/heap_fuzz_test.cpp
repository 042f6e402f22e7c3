/// The fuzzers' watch over the heap.

#include "fuzz/heap.h"
#include "tests/support/heap_forms.h"

#include <gtest/gtest.h>

namespace {

using Sizes = std::map<size_t, size_t>;

TEST(HeapWatch, SeesABlockOfEachFormAndItsEnd) {
    for (const test::HeapForm& form : test::kHeapForms) {
        const auto left = fuzz::BlocksLeftBy([&] {
            form.give(form.take());
            (void)form.take();
        });
        EXPECT_EQ(left, (Sizes{{test::kSize, 1}})) << form.name;
    }
}

TEST(HeapWatch, FindsABlockThatIsGivenBackInAnotherFormThanItWasTaken) {
    constexpr size_t kForms = 3; // Of each kind, which differ in nothing that must agree.
    for (size_t taken = 0; taken < std::size(test::kHeapForms); taken += kForms) {
        for (size_t given = 0; given < std::size(test::kHeapForms); given += kForms) {
            const auto act = [&] {
                fuzz::BlocksLeftBy(
                    [&] { test::kHeapForms[given].give(test::kHeapForms[taken].take()); });
                std::_Exit(0);
            };
            EXPECT_EXIT(
                act(), [&](int status) { return (status == 0) == (taken == given); },
                taken == given ? "" : "given back in another form");
        }
    }
}

} // namespace
