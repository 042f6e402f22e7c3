/// Orders of results: their numbers, and that each has one.

#include "schedules/count.h"
#include "schedules/plan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <set>

namespace {

using namespace schedules;

/// `requests` alike: the callbacks of each result.
Freedom Alike(size_t requests, const std::vector<uint32_t>& callbacks, bool during = false,
              bool submits = false) {
    return {.callbacks = std::vector(requests, callbacks),
            .duringSubmissions = during,
            .submitsWithin = submits};
}

std::vector<Freedom> Small() {
    std::vector<Freedom> all;
    for (const Plan& plan : NamedPlans()) {
        all.push_back(FreedomOf(plan));
    }
    for (const uint32_t bits : {0U, 1U, 2U, 3U}) {
        const bool during = (bits & 1) != 0;
        const bool submits = bits == 3;
        all.push_back(Alike(1, {3, 0, 1}, during, submits));
        all.push_back(Alike(2, {1, 2}, during, submits));
        all.push_back({{{0}, {1, 0}, {0, 2}}, during, submits});
    }
    return all;
}

TEST(Schedules, AreAsManyAsCombinatoricsGives) {
    const struct {
        Freedom freedom;
        uint64_t count;
        const char* how;
    } rows[] = {
        {Alike(3, {0, 0}), 90, "6!/(2! 2! 2!)"},
        {Alike(4, {0, 0, 0}), 369600, "12!/(3! 3! 3! 3!)"},
        {Alike(1, {0, 0}, true), 3, "4!/(4 2)"},
        {Alike(3, {0, 0}, true), 3465, "12!/(12 9 8 5 4 2 2 2)"},
        {Alike(4, {1}), 24 * 14, "4! binomial(8, 4)/5"}, // The Catalan number 14.
        {Alike(3, {3}), 6 * 22, "3! binomial(12, 3)/10"},
        {Alike(4, std::vector(20, 0U)), UINT64_MAX, "80!/(20! 20! 20! 20!)"}, // Or more.
    };
    for (const auto& [freedom, count, how] : rows) {
        const Expected expected = ExpectedCount(freedom);
        EXPECT_EQ(expected.count, count);
        EXPECT_EQ(expected.how, how);
    }
}

TEST(Schedules, AreCountedInThreeWaysWithOneResult) {
    for (const Freedom& freedom : Small()) {
        const uint64_t expected = ExpectedCount(freedom).count;
        EXPECT_EQ(CountByParts(freedom), expected);
        EXPECT_EQ(Orders(freedom).Count(), expected);
    }
}

TEST(Schedules, ComeOnceEachAndInTheOrderOfTheirNumbers) {
    for (const Freedom& freedom : Small()) {
        Orders orders(freedom);
        std::set<Order> seen;
        Order order = orders.First();
        do {
            ASSERT_TRUE(seen.insert(order).second) << "twice: " << seen.size();
            ASSERT_EQ(orders.NumberOf(order), seen.size());
            ASSERT_EQ(orders.At(seen.size()), order);
        } while (orders.Advance(order));
        EXPECT_EQ(seen.size(), ExpectedCount(freedom).count);
    }
}

TEST(Schedules, HaveExactNumbersUpToTheMostAndNoneThatWrapsAround) {
    constexpr uint64_t kExact = 7219428434016265740; // binomial(66, 33)
    for (const auto& [results, count] : {std::pair{33UL, kExact}, {34UL, UINT64_MAX}}) {
        const Freedom freedom = Alike(2, std::vector(results, 0U));
        EXPECT_EQ(ExpectedCount(freedom).count, count);
        EXPECT_EQ(CountByParts(freedom), count);
        Orders orders(freedom);
        EXPECT_EQ(orders.Count(), count);
        EXPECT_EQ(orders.At(1), orders.First());
        Order last;
        for (const uint64_t number : {uint64_t{1}, count / 2, count / 2 + 1, count - 1, count}) {
            last = orders.At(number);
            EXPECT_EQ(last.size(), 2 * results);
            EXPECT_EQ(orders.NumberOf(last), number);
        }
        EXPECT_EQ(orders.Advance(last), count != kExact) << "of those beyond there is no number";
    }
}

/// What must not be in an order: places of events, of which each has one.
struct Rules {
    std::vector<std::pair<size_t, size_t>> before;   ///< The first one comes first.
    std::vector<std::pair<size_t, size_t>> openings; ///< From, to: within each other, or apart.

    bool Allow(const std::vector<size_t>& place) const {
        const auto isOrdered = [&](const auto& pair) {
            return place[pair.first] < place[pair.second];
        };
        return std::all_of(before.begin(), before.end(), isOrdered) &&
               std::none_of(openings.begin(), openings.end(), [&](const auto& one) {
                   return std::any_of(openings.begin(), openings.end(), [&](const auto& other) {
                       return place[one.first] < place[other.first] &&
                              place[other.first] < place[one.second] &&
                              place[one.second] < place[other.second];
                   });
               });
    }
    /// \returns how many of all permutations of so many events they allow.
    uint64_t Count(size_t events) const {
        std::vector<size_t> place(events);
        std::iota(place.begin(), place.end(), 0);
        uint64_t count = 0;
        do {
            count += Allow(place) ? 1 : 0;
        } while (std::next_permutation(place.begin(), place.end()));
        return count;
    }
};

TEST(Schedules, InCallsAreThePermutationsThatKeepWhatComesFirst) {
    for (const std::vector<size_t>& results :
         {std::vector<size_t>{2}, {3}, {1, 1}, {2, 1}, {1, 2}, {2, 2}}) {
        Rules rules;
        size_t events = 0;
        Freedom freedom{.callbacks = {}, .duringSubmissions = true};
        for (const size_t count : results) {
            freedom.callbacks.emplace_back(count, 0);
            const size_t enter = events; // Then the results, and last the return.
            events += count + 2;
            for (size_t i = enter; i + 2 < events; ++i) {
                rules.before.emplace_back(i, i + 1);
            }
            rules.before.emplace_back(enter, events - 1);
            if (enter > 0) {
                rules.before.emplace_back(enter - 1, enter);
            }
        }
        EXPECT_EQ(ExpectedCount(freedom).count, rules.Count(events));
    }
}

TEST(Schedules, InCallbacksAreThePermutationsThatNest) {
    for (const size_t requests : {1U, 2U, 3U, 4U}) {
        Rules rules;
        for (size_t i = 0; i < requests; ++i) {
            rules.before.emplace_back(2 * i, 2 * i + 1);
            rules.openings.emplace_back(2 * i, 2 * i + 1);
        }
        EXPECT_EQ(ExpectedCount(Alike(requests, {1})).count, rules.Count(2 * requests));
    }
}

} // namespace
