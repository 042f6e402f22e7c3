/// The results of a campaign as one file for people: a matrix of faults and scenarios.
#pragma once

#include "campaign/results.h"

#include <string>

namespace campaign {

/// HTML that has all in it and asks no network for anything.
/// \param results of which every cell has ended.
std::string PageOf(const Results& results);

} // namespace campaign
