/// One cell: run in a process of its own, and judged.
#pragma once

#include "campaign/cells.h"
#include "campaign/documented.h"

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace campaign {

/// What came of a cell, from the best to the worst.
enum class Class { AsDocumented, Leak, Violation, Hang, Crash, Count };

/// As in "as documented".
const char* NameOf(Class its);

struct Verdict {
    Class its = Class::AsDocumented;
    std::string text; ///< What was found, or which rules were broken as they may be; or empty.
};

struct CellSettings {
    std::string library; ///< The adapter.
    std::chrono::seconds limit{};
};

/// Judges a run that came to its end.
/// \param scenario with all of its faults.
/// \param isUsual whether it has no faults but its own, and so what it expects has to come true.
/// \param facts what its process told: counts, violations, what is left.
Verdict Judge(const host::Scenario& scenario, bool isUsual, const nlohmann::json& facts);

/// Runs a scenario with further faults, in a process of its own. The caller has one thread, and the
/// adapter is not loaded in its process.
/// \param calls where the calls of the device are counted, or null.
/// \returns no value where SIGINT or SIGTERM came.
/// \throws std::system_error where there can be no process.
std::optional<Verdict> RunCell(const Target& target, const std::vector<std::string>& faults,
                               const CellSettings& settings, Counts* calls = nullptr);

} // namespace campaign
