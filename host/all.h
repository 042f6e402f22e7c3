/// All scenarios of a folder, one after the other, each in a process of its own.
#pragma once

#include "host/isolated.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <set>
#include <string>

namespace host {

struct AllSettings {
    std::filesystem::path folder; ///< Of the scenarios.
    std::string junit;            ///< A file for the results; empty for none.
    std::string known;            ///< A file that lists scenarios that are known to fail, or empty.
    std::chrono::seconds limit{}; ///< For each.
};

/// Runs a scenario's file in a process of its own.
using RunFile = std::function<Isolated::Ended(const std::string& file, std::chrono::seconds limit)>;

/// Prints a line for each. Output of the runs is in the results' file.
/// \returns 0 if each came to what is known of it, 1 if not, 130 where it was interrupted.
/// \throws standin::InputError for what is wrong with the settings, std::runtime_error where the
/// results cannot be written.
int RunAll(const AllSettings& settings, const RunFile& run);

} // namespace host
