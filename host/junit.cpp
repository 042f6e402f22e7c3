/// Writes XML.
#include "host/junit.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace host {
namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD"; // U+FFFD.

std::string Attribute(const char* name, const std::string& value) {
    return std::string(" ") + name + "=\"" + XmlText(value) + "\"";
}

std::string Seconds(double seconds) {
    char text[32];
    (void)snprintf(text, sizeof text, "%.3f", seconds);
    return text;
}

/// With its output where it did not pass, which is where somebody reads it.
std::string TextOf(const Case& each) {
    std::string text = "    <testcase" + Attribute("classname", "scenario") +
                       Attribute("name", each.name) + Attribute("time", Seconds(each.seconds));
    if (each.kind == Case::Kind::Passed) {
        return text + "/>\n";
    }
    const bool isSkipped = each.kind == Case::Kind::Skipped;
    const char* const element = isSkipped                        ? "skipped"
                                : each.kind == Case::Kind::Error ? "error"
                                                                 : "failure";
    text += std::string(">\n      <") + element + Attribute("message", each.text);
    text += (isSkipped ? "" : Attribute("type", each.status)) + "/>\n";
    return text + "      <system-out>" + XmlText(each.output) + "</system-out>\n    </testcase>\n";
}

} // namespace

std::string XmlText(const std::string& text) {
    // JSON's escapes are not needed: it is asked for UTF-8 alone.
    using nlohmann::json;
    const std::string valid =
        json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::replace));
    std::string escaped;
    for (const char c : valid) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '<' || c == '>' || c == '&' || c == '"') {
            escaped += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : "&quot;";
        } else if (byte < 0x20 && c != '\n' && c != '\t') {
            escaped += kReplacement;
        } else {
            escaped += c;
        }
    }
    for (const char* const nothing : {"\xEF\xBF\xBE", "\xEF\xBF\xBF"}) { // U+FFFE and U+FFFF.
        for (size_t at = 0; (at = escaped.find(nothing, at)) != escaped.npos;) {
            escaped.replace(at, 3, kReplacement);
        }
    }
    return escaped;
}

std::string JUnitOf(const std::string& suite, const std::vector<Case>& cases) {
    const auto count = [&](Case::Kind kind) {
        return std::to_string(std::count_if(
            cases.begin(), cases.end(), [kind](const Case& each) { return each.kind == kind; }));
    };
    double seconds = 0;
    std::string text;
    for (const Case& each : cases) {
        seconds += each.seconds;
        text += TextOf(each);
    }
    const std::string counts = Attribute("tests", std::to_string(cases.size())) +
                               Attribute("failures", count(Case::Kind::Failure)) +
                               Attribute("errors", count(Case::Kind::Error)) +
                               Attribute("skipped", count(Case::Kind::Skipped)) +
                               Attribute("time", Seconds(seconds));
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n  <testsuite" +
           Attribute("name", suite) + counts + ">\n" + text + "  </testsuite>\n</testsuites>\n";
}

} // namespace host
