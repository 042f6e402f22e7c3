/// Who did what when, for a trace viewer.
#pragma once

#include "view/story.h"

#include <functional>
#include <string>

namespace view {

/// What a timeline has, where not all of it is wanted.
struct TimelinePart {
    std::function<bool(const Request&)> shows; ///< Whose calls are wanted.
    size_t others; ///< How many calls are wanted of those that belong to no request.

    size_t leftOut = 0; ///< How many calls are not there; `TimelineOf` counts them.
};

/// A lane for each thread with a slice for each call, an arrow for each request from its
/// submission through its results to its completion, and a counter of the requests in flight, in
/// the trace event format that Perfetto's viewer opens. A call that is open at the end ends with
/// the last event.
/// \param part null for all
/// \returns a file's content.
std::string TimelineOf(const Story& story, Moment start, TimelinePart* part = nullptr);

} // namespace view
