/// What the documents say that a fault of the device may cost. All else is a finding.
#pragma once

#include "host/scenario.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace campaign {

/// What runs with some faults may show. Numbers are the most that there may be.
struct Allowed {
    std::set<std::string> rules;          ///< That are broken, by their numbers.
    std::map<std::string, uint64_t> left; ///< Objects at the vendor, by kind.
    std::map<uint32_t, uint64_t> refused; ///< Submissions, by status.
    uint64_t notSent = 0;                 ///< Requests for which there are no buffers.
    uint64_t wrongPictures = 0;           ///< Pixels are not there, or not written.
    bool abort = false;                   ///< The library ends the process while it loads,
    bool abortIsDue = false;              ///< and has to.
    uint64_t sessions = 0;                ///< On the library's heap, with what they own;
    uint64_t chains = 0;                  ///< and chains.
};

/// What all of these faults may cost together.
Allowed AllowedBy(const std::vector<host::Fault>& faults);

} // namespace campaign
