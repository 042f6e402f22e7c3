/// A plan in all of its orders, in processes of their own: one that a crash ends is followed by the
/// next one, from the next order on.
#pragma once

#include "schedules/plan.h"

#include <functional>
#include <optional>

namespace schedules {

struct Finding {
    uint64_t number; ///< Of the order.
    std::string what;
};

struct Outcome {
    uint64_t enumerated = 0;               ///< Orders that came to their end, whatever that was.
    std::optional<uint64_t> interruptedAt; ///< The order during which somebody did.
};

struct RunSettings {
    bool hasVendorThread = false;
    std::optional<uint64_t> only; ///< The number of one order, which is told step by step.
};

/// The caller has one thread.
/// \param orders those of the plan.
/// \param report gets each finding when there is one; an order has one at most.
/// \throws std::system_error where there can be no process.
Outcome RunAll(const Plan& plan, Orders& orders, const RunSettings& settings,
               const std::function<void(const Finding&)>& report);

} // namespace schedules
