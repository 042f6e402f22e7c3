/// What a run, a recording and a replay print on standard output.
#pragma once

#include "contract/recording.h"
#include "view/story.h"

#include <functional>

namespace view {

enum class Colour { Plain = 0, Strong = 1, Bad = 31, Good = 32 };

/// Coloured on a terminal, unless NO_COLOR is set.
std::string Painted(Colour colour, const std::string& text);

/// A line under a short heading, as for a file that was written.
void PrintFact(const std::string& heading, const std::string& fact);

/// What came of a request, as in "refused, status 4".
std::string OutcomeOf(const Request& request);

/// A request's row.
struct Row {
    Request request;
    std::string outcome;
    bool isGood = true;
    std::string picture{}; ///< How it is, as in "right picture"; empty where it is not known.
};

/// The rows of a story's requests, camera by camera.
std::vector<Row> RowsOf(const Story& story);

/// A row for each request, or for the ten slowest of many, with medians and worst at the bottom.
/// \param start what the times of the submissions count from.
void PrintRequests(const std::vector<Row>& rows, Moment start);

/// The rate at which requests of a camera were submitted; empty where there are too few.
std::optional<double> RateOf(const Story& story, uint32_t camera);

/// Each session with what it was opened for and how it ended.
void PrintSessions(const Story& story, Moment start);

/// The calls that are open at the end, the last ones of every thread, and what else has not ended.
/// Nothing where all has.
void PrintOpenCalls(const Story& story, Moment start);

/// What the recording is of, and what of it is lost or damaged.
void PrintAbout(const std::string& file, const contract::Recording& recording, const Story& story);

/// All of a recording: what it is, open calls, requests and sessions.
void PrintAll(const std::string& file, const contract::Recording& recording, const Story& story);

/// Milliseconds since the start, as in "12.3".
std::string Milliseconds(Moment start, Moment moment);

} // namespace view
