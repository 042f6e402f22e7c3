/// Who did what when, as a file for a trace viewer.
#pragma once

#include "view/story.h"

#include <iosfwd>

namespace view {

/// Writes a lane for each thread with a slice for each call, an arrow for each request from its
/// submission through its results to its completion, and a counter of the requests in flight, in
/// the trace event format that Perfetto's viewer opens. A call that is open at the end ends with
/// the last event. Makes the folder.
/// \throws std::runtime_error that names the file, where it cannot be written.
void WriteTimeline(const std::string& file, const Story& story, Moment start);

/// The same into a stream, whose state tells how it went.
void WriteTimeline(std::ostream& out, const Story& story, Moment start);

} // namespace view
