/// A recording, read from a file that may be damaged in any way.
#pragma once

#include "contract/event.h"
#include "contract/format.h"

#include <iosfwd>
#include <stdexcept>
#include <string>
#include <vector>

namespace contract {

/// The file is no recording of this version: the message names it and says why.
using RecordingError = std::invalid_argument;

/// The events of a file, from the oldest that is left to the last that is whole.
class Recording {
  public:
    /// \throws RecordingError where nothing can be read.
    static Recording Read(const std::string& file);
    /// The same from a stream. \param name of it, for messages.
    static Recording Read(const std::string& name, std::istream& in);

    const FileHeader& About() const { return mAbout; }
    const std::vector<Event>& Events() const { return mEvents; }
    /// What is missing at the end, and where it begins, in a line; empty where nothing is.
    const std::string& Damage() const { return mDamage; }
    /// Events that the ring has overwritten, before the first one.
    uint64_t CountLost() const { return mEvents.empty() ? 0 : mEvents.front().Number() - 1; }

  private:
    void ReadBlock(const BlockHeader& block, std::vector<std::byte> bytes);

    FileHeader mAbout{};
    std::vector<std::vector<std::byte>> mBlocks;
    std::vector<Event> mEvents;
    std::string mDamage;
};

/// Whether an event is whole: all that its parts say of their sizes fits.
/// \param room of the memory that it lies in.
bool IsSound(const EventHeader* event, size_t room);

/// Why no layer can be told to record into a file with this name, in a line; empty where it can.
/// Settings are lines that end at a '#'.
std::string ProblemOfName(const std::string& file);

/// A recording of these events, numbered anew: for tests, and for what is left of a recording.
std::string Serialize(const FileHeader& about, const std::vector<Event>& events);

/// The same, into a file. \throws std::runtime_error that names it where it cannot be written.
void WriteRecording(const std::string& file, const FileHeader& about,
                    const std::vector<Event>& events);

} // namespace contract
