/// What a replay is held against.
#pragma once

#include "replay/common.h"
#include "view/diff.h"
#include "view/told.h"

#include <memory>
#include <vector>

namespace replay {

/// Events as far as a recording and its replay can be alike. Refers to those that it is made of.
class Comparable {
  public:
    /// \param hasPixels the recording has whole images.
    /// \param isLate it lacks its beginning.
    Comparable(const std::vector<contract::Event>& events, bool hasPixels, bool isLate);

    const std::vector<contract::Event>& Events() const { return mEvents; }
    /// Keeps of each thread no more events than it has in the other, whose end is not one of what
    /// happened.
    void CutTo(const Comparable& other);

  private:
    std::vector<contract::Event> mEvents;
    std::vector<std::unique_ptr<std::byte[]>> mCopies; ///< Of events that lack something.
};

/// A recording beside the recording of its replay.
class Comparison {
  public:
    /// Both must outlive this.
    Comparison(const view::Told& recording, const view::Told& replay);

    /// Whether the recording ends while calls are open, or is damaged: what the replay did later is
    /// not compared.
    bool EndsEarly() const { return mEndsEarly; }
    /// The first one; none where there is none.
    const std::optional<view::Difference>& Difference() const { return mDifference; }
    /// The recording's events as far as they are compared: a difference refers to these.
    const std::vector<contract::Event>& Events() const { return mOne.Events(); }
    /// Prints what came of it.
    void Print() const;

  private:
    const bool mEndsEarly;
    const Common mCommon;
    Comparable mOne;
    Comparable mOther;
    std::optional<view::Serials> mSerialsOfOne;
    std::optional<view::Serials> mSerialsOfOther;
    std::optional<view::Story> mStoryOfOne;
    std::optional<view::Story> mStoryOfOther;
    std::optional<view::Difference> mDifference;
};

} // namespace replay
