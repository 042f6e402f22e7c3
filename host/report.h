/// What the host prints on standard output.
#pragma once

#include "host/run.h"

namespace host {

/// What is about to run.
void PrintScenario(const Scenario& scenario, const std::string& library);

/// A row for each request, or for the ten slowest of many, with medians and worst at the bottom.
void PrintRequests(const Run& run);

/// A line under a short heading, as for a file that was written.
void PrintFact(const std::string& heading, const std::string& fact);

/// What came true and what did not.
void PrintOutcome(const Scenario& scenario, const Outcome& outcome);

} // namespace host
