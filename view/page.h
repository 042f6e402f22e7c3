/// A run or a recording as one file for people, who need nothing but a browser to look at it.
#pragma once

#include "view/told.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace view {

struct Picture {
    std::string title; ///< As in "noisy frame".
    std::string note;  ///< What else is to be known of it, or empty.
    std::string png;   ///< The bytes of a PNG file.
};

/// A page's template with JSON in the place of each mark, as in "{{report}}". Nothing in it becomes
/// markup.
/// \param marks in the order in which the template has them; it has all of them.
std::string FillPage(std::string_view page,
                     const std::vector<std::pair<std::string, std::string>>& marks);

/// The page: HTML that has all in it and asks no network for anything.
/// \param reportJson a report, as `--report` writes it
/// \param traceJson what `TimelineOf` gives for the same events
/// \param pictures to be shown side by side, if any
/// Any thread may call it. It fails only where there is no memory.
std::string MakePage(const std::string& reportJson, const std::string& traceJson,
                     const std::vector<Picture>& pictures);

/// The same of a report and what was recorded, which may be null. A page stays below 3 MB: of many
/// requests it has those that are not as they should be, and the slowest, with their calls; and it
/// says how many it leaves out.
std::string MakePage(const nlohmann::ordered_json& report, const Told* told,
                     const std::vector<Picture>& pictures);

} // namespace view
