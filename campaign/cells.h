/// The cells of a campaign: scenarios, and the faults that each is run with.
#pragma once

#include "host/scenario.h"
#include "standin/control.h"

#include <array>
#include <string>
#include <vector>

namespace campaign {

/// How often each entry of the device was called.
using Counts = std::array<uint64_t, static_cast<size_t>(standin::Entry::Count)>;

/// A scenario as the campaign runs it: small, so that a run takes some tens of milliseconds.
struct Target {
    std::string name;        ///< As the host's program takes it.
    host::Scenario scenario; ///< In its small form.
    std::string options;     ///< Of the host's program, which make the scenario small.
    Counts calls{};          ///< Without a fault of the campaign's.
};

/// Reads a scenario by its name or file, and makes it small.
/// \throws standin::InputError where it is wrong, or cannot be small.
Target ReadTarget(const std::string& name);

struct Cell {
    size_t target = 0;               ///< An index.
    std::vector<std::string> faults; ///< Texts of host::Fault: none, one or two.
};

/// As in "night-burst: fail OpenSession + missing CloseSession".
std::string NameOf(const std::string& scenario, const std::vector<std::string>& faults);
/// The command that repeats a cell, as a person types it.
/// \param seconds until the run is given up.
/// \param library the adapter, if somebody named it.
std::string CommandOf(const Target& target, const std::vector<std::string>& faults,
                      uint32_t seconds, const std::string& library = "");

enum class Pairs { None, First, All };

struct Choice {
    std::vector<std::string> places; ///< Entries or paths; empty for all.
    Pairs pairs = Pairs::None;
    uint32_t mostCalls = 0; ///< Of an entry, that fail one at a time; 0 for all.
};

struct Plan {
    std::vector<Cell> cells;
    size_t beyond = 0; ///< Single calls that are left out, since there are `mostCalls` before.
    size_t taken = 0;  ///< Faults that are left out, since the scenario has its own at their place.
    size_t pairs = 0;  ///< Pairs that are left out, since a fault of theirs is of one later call.
};

/// All cells, in an order that depends on nothing but the arguments.
/// \throws standin::InputError for a place that there is not.
Plan MakePlan(const std::vector<Target>& targets, const Choice& choice);

} // namespace campaign
