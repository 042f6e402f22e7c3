/// How many orders there are, by combinatorics: nothing here walks through any.
#pragma once

#include "schedules/orders.h"

namespace schedules {

struct Expected {
    uint64_t count = 0; ///< UINT64_MAX where it is at least so much.
    std::string how;    ///< As a formula, as in "6!/(2! 2! 2!)".
};

/// By a closed form where there is one, else by `CountByParts`. Any thread calls.
Expected ExpectedCount(const Freedom& freedom);

/// Counts what can lie between two moments, each of which is how far every request is: what comes
/// first divides the rest into what is within it, and what comes after it. Any thread calls.
uint64_t CountByParts(const Freedom& freedom);

} // namespace schedules
