/// A recording of who did what when, for a trace viewer.
#pragma once

#include "standin/control.h"

#include <cstdint>
#include <string>

namespace host::timeline {

/// Records from now on, what the device and the library's own trace sections do included. Before
/// the threads start; without it, everything below does nothing.
void Start();

/// The calling thread's lane; threads that have none are numbered.
void NameLane(const std::string& name);

/// A slice on the calling thread's lane, as long as this lives.
class Slice {
  public:
    explicit Slice(const char* what, int64_t frame = -1);
    ~Slice(); // NOLINT(bugprone-exception-escape): as there
    Slice(const Slice&) = delete;
    Slice& operator=(const Slice&) = delete;
};

/// An arrow through the slices that are open where these are called, in the order of the calls.
enum class Arrow : char { Start = 's', Step = 't', End = 'f' };
void Draw(Arrow arrow, uint64_t request);

/// The number of requests in flight, from now on.
void CountInFlight(int64_t change);

/// Ends the recording and writes it, in the trace event format that Perfetto's viewer opens. The
/// threads that record are done, but for those of sessions that were never closed. Throws
/// std::runtime_error, which names the file, if it cannot be written.
void Write(const std::string& file);

} // namespace host::timeline
