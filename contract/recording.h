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
    /// What is missing, and where that begins, in a line; empty where nothing is.
    const std::string& Damage() const { return mDamage; }
    /// Whether all that its writer wrote last is there.
    bool HasItsEnd() const { return mHasItsEnd; }
    /// Events that the ring has overwritten, before the first one.
    uint64_t CountLost() const {
        return mEvents.empty() || mLacksBeginning ? 0 : mEvents.front().Number() - 1;
    }

  private:
    void ReadBlock(const BlockHeader& block, std::vector<std::byte> bytes);

    FileHeader mAbout{};
    std::vector<std::vector<std::byte>> mBlocks;
    std::vector<Event> mEvents;
    std::string mDamage;
    bool mHasItsEnd = false;
    bool mLacksBeginning = false; ///< What should be there of it, is not.
};

/// The process that has written a recording; 0 where the file is none.
uint32_t WriterOf(const std::string& file);

/// Whether an event is whole: all that its parts say of their sizes fits.
/// \param room of the memory that it lies in.
bool IsSound(const EventHeader* event, size_t room);

/// Why no layer can be told to record into this file, in a line that names it; empty where it can.
/// Makes the file where it is missing, and changes nothing where it is there: it may be one that
/// another process records into. Settings are lines that end at a '#', without blanks around them.
std::string ProblemOfFile(const std::string& file);

/// A recording's file of these events, numbered anew: for tests, and for what is left of one.
std::string Serialize(const FileHeader& about, const std::vector<Event>& events);

} // namespace contract
