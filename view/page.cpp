/// Puts data into the page's template, which the build has made a text of.
#include "view/page.h"

#include "view/page_template.h"
#include "view/report_json.h"
#include "view/timeline.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <set>
#include <string_view>
#include <utility>

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

std::string FillPage(std::string_view page,
                     const std::vector<std::pair<std::string, std::string>>& marks) {
    std::string filled;
    for (const auto& [mark, json] : marks) {
        const size_t place = page.find(mark);
        filled.append(page.substr(0, place)).append(Escaped(json));
        page.remove_prefix(place + mark.size());
    }
    return filled.append(page);
}

std::string MakePage(const std::string& reportJson, const std::string& traceJson,
                     const std::vector<Picture>& pictures) {
    auto images = nlohmann::ordered_json::array();
    for (const Picture& picture : pictures) {
        images.push_back({{"title", picture.title},
                          {"note", picture.note},
                          {"data", "data:image/png;base64," + Base64(picture.png)}});
    }
    return FillPage(
        kPageTemplate,
        {{"{{report}}", reportJson}, {"{{trace}}", traceJson}, {"{{pictures}}", images.dump()}});
}

// --- What there is room for ---------------------------------------------------------------------

namespace {

using nlohmann::ordered_json;

constexpr size_t kMostBytes = 3'000'000; ///< Of a page: a browser takes long over more.
constexpr size_t kMostRequests = 1024;   ///< To begin with.
constexpr const char* kStages[] = {"returned", "metadata", "buffer", "release", "complete"};

/// What a report and its timeline have room for, and what they had.
class Bounded {
  public:
    explicit Bounded(const ordered_json& report)
        : mAll(CountsOf(report)), mLatencies(LatenciesOf(report)), mReport(report) {}

    /// At most so many requests, and what belongs to them; and so many of the rest as fits. What is
    /// left out once stays out.
    void Cut(size_t limit) {
        std::set<ordered_json> broken;
        for (const ordered_json& violation : mReport["violations"]) {
            broken.insert(ordered_json::array({violation["camera"], violation["request"]}));
        }
        Keep("requests", limit, [&](const ordered_json& request, size_t) {
            const ordered_json& took = request["latency"]["complete"];
            const bool isBad =
                !request["good"].get<bool>() ||
                broken.contains(ordered_json::array({request["camera"], request["frame"]}));
            return isBad ? 2e300 : took.is_null() ? 1e300 : took.get<double>();
        });
        mSent.clear();
        std::set<ordered_json> sessions;
        for (const ordered_json& request : mReport["requests"]) {
            mSent.insert(request["sent"]);
            sessions.insert(request["session"]);
        }
        const auto first = [](size_t index) { return -static_cast<double>(index); };
        Keep("sessions", limit, [&](const ordered_json& session, size_t index) {
            return first(index) + (sessions.contains(session["session"]) ? 1e300 : 0);
        });
        Keep("violations", limit, [&](const ordered_json&, size_t index) { return first(index); });
        Keep("log", 4 * limit, [](const ordered_json& line, size_t index) {
            const bool isBad = line["level"] == "E" || line["level"] == "W";
            return static_cast<double>(index) + (isBad ? 1e300 : 0);
        });
        mOthers = limit < kMostRequests ? 8 * limit : SIZE_MAX;
    }

    std::string Timeline(const Told* told) {
        if (told == nullptr) {
            return R"({"traceEvents": []})";
        }
        const bool hasAll = mReport["requests"].size() == mAll["requests"];
        const auto shows = [&](const Request& request) {
            const ordered_json sent =
                request.submitted.has_value()
                    ? ordered_json(MicrosecondsFrom(told->Start(), *request.submitted))
                    : ordered_json();
            return hasAll || mSent.contains(sent);
        };
        TimelinePart part{.shows = shows, .others = mOthers};
        std::string timeline = TimelineOf(told->story, told->Start(), &part);
        mCallsLeftOut = part.leftOut;
        return timeline;
    }

    /// With a part that says what is not there, if anything.
    std::string Report() const {
        ordered_json report = mReport;
        ordered_json left = CountsOf(mReport);
        for (auto& [what, number] : left.items()) {
            number = mAll[what].get<size_t>() - number.get<size_t>();
        }
        left["calls"] = mCallsLeftOut;
        if (std::any_of(left.begin(), left.end(), [](const auto& number) { return number != 0; })) {
            report["leftOut"] = {{"counts", left}, {"of", mAll}, {"latencies", mLatencies}};
        }
        // A recorded text may be anything, and a page is UTF-8.
        return report.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    }

  private:
    static ordered_json CountsOf(const ordered_json& report) {
        return {{"requests", report["requests"].size()},
                {"sessions", report["sessions"].size()},
                {"violations", report["violations"].size()},
                {"log", report["log"].size()}};
    }

    /// Of all requests, for each stage that any got to: the sorted ones' count, least, median, that
    /// of 95 %, and worst.
    static ordered_json LatenciesOf(const ordered_json& report) {
        ordered_json stages = ordered_json::object();
        for (const char* const stage : kStages) {
            std::vector<double> values;
            for (const ordered_json& request : report["requests"]) {
                const ordered_json& value = request["latency"][stage];
                if (!value.is_null()) {
                    values.push_back(value.get<double>());
                }
            }
            std::sort(values.begin(), values.end());
            for (const double share : {0.0, 0.5, 0.95, 1.0}) {
                const auto rank = std::ceil(static_cast<double>(values.size()) * share);
                if (!values.empty()) {
                    stages[stage]["ranks"].push_back(
                        values[static_cast<size_t>(std::max(rank, 1.0)) - 1]);
                }
            }
            if (!values.empty()) {
                stages[stage]["count"] = values.size();
            }
        }
        return stages;
    }

    /// Keeps those of the highest ranks, in the order that they had.
    /// \param rankOf of an item and its place
    template <class RankOf> void Keep(const char* what, size_t limit, RankOf rankOf) {
        ordered_json& items = mReport[what];
        std::vector<std::pair<double, size_t>> ranks;
        for (size_t i = 0; i < items.size(); ++i) {
            ranks.emplace_back(-rankOf(items[i], i), i);
        }
        if (ranks.size() <= limit) {
            return;
        }
        std::sort(ranks.begin(), ranks.end());
        ranks.resize(limit);
        std::sort(ranks.begin(), ranks.end(),
                  [](const auto& one, const auto& other) { return one.second < other.second; });
        ordered_json kept = ordered_json::array();
        for (const auto& [rank, place] : ranks) {
            kept.push_back(std::move(items[place]));
        }
        items = std::move(kept);
    }

    const ordered_json mAll; ///< How many there were of each.
    const ordered_json mLatencies;
    ordered_json mReport;
    std::set<ordered_json> mSent; ///< When the requests were that are kept, as the report has it.
    size_t mOthers = 0;
    size_t mCallsLeftOut = 0;
};

} // namespace

std::string MakePage(const ordered_json& report, const Told* told,
                     const std::vector<Picture>& pictures) {
    Bounded bounded(report);
    std::string page;
    for (size_t limit = kMostRequests; page.empty() || page.size() > kMostBytes; limit /= 2) {
        bounded.Cut(limit);
        const std::string timeline = bounded.Timeline(told);
        page = MakePage(bounded.Report(), timeline, limit == 0 ? std::vector<Picture>{} : pictures);
        if (limit == 0) {
            break;
        }
    }
    return page;
}

} // namespace view
