/// The contract, held against a recording.
#pragma once

#include "contract/engine.h"
#include "view/story.h"

namespace view {

/// What is broken in the events, in their order.
std::vector<contract::Violation> FindViolations(const std::vector<contract::Event>& events);

/// A line for each, with the event that broke the rule; then where each of the rules is stated.
void PrintViolations(const std::vector<contract::Violation>& violations, const Story& story,
                     Moment start);

} // namespace view
