/// What a replay is held against.
#pragma once

#include "contract/recording.h"

#include <memory>
#include <vector>

namespace replay {

/// Events as far as a recording and its replay can be alike. Refers to those that it is made of.
class Comparable {
  public:
    Comparable(const std::vector<contract::Event>& events, bool hasPixels);

    const std::vector<contract::Event>& Events() const { return mEvents; }
    /// Keeps of each thread no more events than it has in the other, whose end is not one of what
    /// happened.
    void CutTo(const Comparable& other);

  private:
    std::vector<contract::Event> mEvents;
    std::vector<std::unique_ptr<std::byte[]>> mCopies; ///< Of events that lack something.
};

} // namespace replay
