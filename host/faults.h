/// What a run does, and the faults that it can be run with.
#pragma once

#include "standin/control.h"

#include <map>
#include <string>
#include <vector>

namespace host {

/// One request of a run.
struct Step {
    std::string feature;
    uint32_t frames;
};

/// A run of the host. What a fault does at the device is not in it.
struct Plan {
    uint32_t width = 4000;
    uint32_t height = 3000;
    uint32_t frames = 4;              ///< Of a burst.
    std::string feature = "Portrait"; ///< Of the last request; before it are two bursts of Night.
    standin::Shape shape = standin::Shape::MetadataFirst;
    bool sendsOutput = true;
    bool lends = false;         ///< Outputs go without a buffer; sessions ask for it.
    uint32_t announcedSets = 0; ///< Where a request announces another number than it has.
    bool endsInAbort = false;

    std::vector<Step> Steps() const { return {{"Night", frames}, {"Night", frames}, {feature, 1}}; }
};

/// Something that is not as usual at the device or the host.
struct Fault {
    const char* name;
    const char* what;
    void (*apply)(standin::Control& device, Plan& plan);
};
const std::vector<Fault>& Faults();
const Fault* FindFault(const std::string& name); ///< Null for an unknown name.

/// The shapes of results by their names on the command line.
const std::map<std::string, standin::Shape>& Shapes();

} // namespace host
