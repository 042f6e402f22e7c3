/// A recording in parts that can be left out: a request with all that belongs to it, or a call that
/// belongs to none.
#pragma once

#include "replay/calls.h"

#include <memory>
#include <set>

namespace replay {

/// Refers to the calls that it is made of.
class Units {
  public:
    explicit Units(const Calls& calls);

    struct Unit {
        std::vector<const Call*> calls; ///< Into the adapter, in their order.
        size_t requests = 0;            ///< Submissions among them.
        std::optional<uint32_t> camera;
    };
    /// In the order of their first calls. The adapter's load, and the making and the end of
    /// cameras, are in none of them.
    const std::vector<Unit>& All() const { return mUnits; }
    /// Of the units, and of those whose making and end is in none.
    std::set<uint32_t> Cameras() const;

    /// A part of the recording: with these units and cameras. What a call that is left out had
    /// the adapter open, and a later one uses, is opened by that one.
    struct Part {
        std::vector<Event> events;
        std::vector<std::unique_ptr<std::byte[]>> copies; ///< Of events that were changed.
    };
    Part Choose(const std::set<size_t>& units, const std::set<uint32_t>& cameras) const;

  private:
    class Finder;
    class Chooser;

    const Calls& mCalls;
    std::vector<Unit> mUnits;
    std::map<const Call*, size_t> mUnitOf;
    std::map<const Call*, uint32_t> mCameraOf; ///< Of calls of the host, and of what follows them.
    /// What uses a session or a buffer manager, and what ends it: the call that made it.
    std::map<const Call*, const Call*> mMakerOf;
    std::map<const Call*, const Call*> mOutsideOf; ///< The call into the adapter around one of its.
};

} // namespace replay
