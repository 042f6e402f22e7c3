/// Puts results into the page's template, which the build has made a text of.
#include "campaign/page.h"

#include "campaign/page_template.h"
#include "view/page.h"

#include <nlohmann/json.hpp>

namespace campaign {

std::string PageOf(const Results& results) {
    using nlohmann::ordered_json;
    auto cells = ordered_json::array();
    for (const std::string& name : results.cells) {
        const Result& result = results.ended.at(name);
        cells.push_back({{"scenario", result.scenario},
                         {"faults", result.faults},
                         {"class", NameOf(result.its)},
                         {"text", result.text},
                         {"command", result.command}});
    }
    const ordered_json all{{"library", results.library}, {"cells", cells}};
    return view::FillPage(
        kPageTemplate,
        {{"{{campaign}}", all.dump(-1, ' ', false, ordered_json::error_handler_t::replace)}});
}

} // namespace campaign
