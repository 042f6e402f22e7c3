/// Who did what when, for a trace viewer.
#pragma once

#include "view/story.h"

#include <string>

namespace view {

/// A lane for each thread with a slice for each call, an arrow for each request from its
/// submission through its results to its completion, and a counter of the requests in flight, in
/// the trace event format that Perfetto's viewer opens. A call that is open at the end ends with
/// the last event.
/// \returns a file's content.
std::string TimelineOf(const Story& story, Moment start);

} // namespace view
