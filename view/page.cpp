/// Puts data into the page's template, which the build has made a text of.
#include "view/page.h"

#include "view/page_template.h"
#include "view/timeline.h"

#include <nlohmann/json.hpp>

#include <sstream>
#include <string_view>

namespace view {
namespace {

std::string Base64(std::string_view bytes) {
    constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto at = [&](size_t i) {
        return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U;
    };
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const uint32_t word = at(i) << 16U | at(i + 1) << 8U | at(i + 2);
        text += {kDigits[word >> 18U], kDigits[word >> 12U & 63U],
                 i + 1 < bytes.size() ? kDigits[word >> 6U & 63U] : '=',
                 i + 2 < bytes.size() ? kDigits[word & 63U] : '='};
    }
    return text;
}

/// JSON that no browser takes for markup: it has "<" only within its texts, which may spell it so.
std::string Escaped(std::string_view json) {
    std::string text;
    for (const char c : json) {
        c == '<' ? text += "\\u003c" : text += c;
    }
    return text;
}

} // namespace

std::string MakePage(const std::string& reportJson, const std::string& traceJson,
                     const std::vector<Picture>& pictures) {
    auto images = nlohmann::ordered_json::array();
    for (const Picture& picture : pictures) {
        images.push_back({{"title", picture.title},
                          {"note", picture.note},
                          {"data", "data:image/png;base64," + Base64(picture.png)}});
    }
    std::string page;
    std::string_view rest = kPageTemplate;
    for (const auto& [mark, json] :
         {std::pair("{{report}}", reportJson), std::pair("{{trace}}", traceJson),
          std::pair("{{pictures}}", images.dump())}) {
        const size_t place = rest.find(mark);
        page.append(rest.substr(0, place)).append(Escaped(json));
        rest.remove_prefix(place + std::string_view(mark).size());
    }
    return page.append(rest);
}

std::string MakePage(const nlohmann::ordered_json& report, const Told* told,
                     const std::vector<Picture>& pictures) {
    const std::string trace =
        told == nullptr ? R"({"traceEvents": []})" : TimelineOf(told->story, told->Start());
    // A recorded text may be anything, and a page is UTF-8.
    using nlohmann::ordered_json;
    return MakePage(report.dump(-1, ' ', false, ordered_json::error_handler_t::replace), trace,
                    pictures);
}

} // namespace view
