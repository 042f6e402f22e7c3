/// What the adapter tells Android's log and trace libraries, which the program stands in front of.
#pragma once

#include <atomic>
#include <cstdint>

namespace kit {

/// Any thread calls. What is not overridden is Android's: its log, and no trace.
class AndroidSink {
  public:
    virtual ~AndroidSink() = default;
    virtual void Line(int priority, const char* tag, const char* text);
    /// A section of the trace, where one of the enabled tags is the library's.
    virtual void Begin(const char* /*name*/) {}
    virtual void End() {}

    std::atomic<uint64_t> enabledTraceTags = 0;
};

/// Gets all calls of the process from now on. Before the threads start, and until the end.
void SetAndroidSink(AndroidSink& sink) noexcept;

} // namespace kit
