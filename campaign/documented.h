/// What the documents say that a fault of the device may cost. All else is a finding.
#pragma once

#include "host/scenario.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace campaign {

/// What runs with some faults may show.
struct Allowed {
    std::set<std::string> rules;          ///< That are broken, by their numbers.
    std::map<std::string, uint64_t> left; ///< Objects at the vendor, by kind.
    std::set<uint32_t> statuses;          ///< Of refused submissions.
    bool notSent = false;                 ///< Requests for which there are no buffers.
    bool wrongPictures = false;           ///< Pixels are not there, or not written.
    bool abort = false;                   ///< The library ends the process while it loads,
    bool abortIsDue = false;              ///< and has to.
    bool sessionRecords = false;          ///< Records of sessions stay on the library's heap.
};

/// What all of these faults may cost together.
Allowed AllowedBy(const std::vector<host::Fault>& faults);

} // namespace campaign
