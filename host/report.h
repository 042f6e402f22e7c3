/// What the host prints on standard output.
#pragma once

#include "host/run.h"

namespace host {

/// What is about to run.
void PrintScenario(const Scenario& scenario, const std::string& library);

/// The table of the run's requests, and the rates that its cameras reached.
void PrintRequests(const Run& run);

/// As in "3 of 3 requests completed, 0 violations of the contract".
std::string TextOf(const Outcome& outcome);

/// What came true and what did not.
void PrintOutcome(const Scenario& scenario, const Outcome& outcome);

} // namespace host
