/// What a run or a recording tells, as one JSON object for machines. docs/report.schema.json
/// describes it.
#pragma once

#include "contract/engine.h"
#include "view/report.h"
#include "view/told.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace view {

/// Something that shall have come true.
struct Expectation {
    std::string what, expected, found;
    bool isMet;
};

/// What a run's camera was to do.
struct ReportCamera {
    uint32_t camera;
    std::vector<std::string> features, inputs;
    uint32_t requests, frames, width, height;
    uint32_t rate; ///< Requests a second; 0 for as fast as possible.
    uint32_t threads;
};

struct LogLine {
    Moment time;  ///< When it was written.
    int priority; ///< As Android's log has them.
    std::string tag, text;
};

/// What a report has beside that which the recording tells.
struct ReportFacts {
    bool isRun = false;
    std::string command; ///< That gives the same once more.
    /// Of a run.
    std::optional<std::string> scenario, shows;
    std::optional<uint32_t> seed;
    std::string adapter, buildId; ///< Its file; empty where it is not known.
    std::vector<ReportCamera> cameras;

    std::string status; ///< As in "passed".
    std::string text;   ///< The same in words.
    int signal = 0;     ///< That ended the process.
    std::vector<Expectation> expectations;

    std::vector<Row> rows;
    std::vector<contract::Violation> violations;
    std::vector<LogLine> log;
};

/// \param told null where nothing was recorded, for the reason `damage`.
nlohmann::ordered_json MakeReport(const Told* told, const ReportFacts& facts,
                                  const std::string& damage = "");

/// The facts of a recording that is all there is.
ReportFacts FactsOf(const Told& told);

/// As a report has moments: from the start.
double MicrosecondsFrom(Moment start, Moment moment);

/// As it is written into a file.
std::string TextOf(const nlohmann::ordered_json& report);

} // namespace view
