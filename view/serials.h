/// Names for the objects and threads of a recording that do not change from run to run.
#pragma once

#include "view/walk.h"

#include <string>
#include <vector>

namespace view {

/// Gives each handle and each address of an object a serial within its kind: a new one where the
/// object is born, at its first appearance otherwise, and after the end of the object that had this
/// value before. A buffer, or something opaque, that is an image of the vendor's has its name.
/// Threads have serials in the order of their first events. All serials count from 1.
class Serials {
  public:
    /// \param events must outlive this, and so must the recording that they lie in.
    explicit Serials(const std::vector<contract::Event>& events);

    const std::vector<contract::Event>& Events() const { return *mEvents; }

    /// Of an event by its index: the names of its objects in the order of a walk.
    std::span<const Name> Of(size_t event) const {
        return {mNames.data() + mStarts[event], mStarts[event + 1] - mStarts[event]};
    }
    /// Of an event by its index.
    uint32_t ThreadOf(size_t event) const { return mThreads[event]; }
    uint32_t CountThreads() const { return mThreadCount; }

    /// Walks an event by its index, with its names.
    void Walk(size_t event, Visitor& visitor) const {
        view::Walk((*mEvents)[event], Of(event), visitor);
    }

  private:
    const std::vector<contract::Event>* mEvents;
    std::vector<Name> mNames;
    std::vector<size_t> mStarts; ///< Of each event's names, and the end.
    std::vector<uint32_t> mThreads;
    uint32_t mThreadCount = 0;
};

/// As in "session 1", or "null".
std::string TextOf(const Name& name);

} // namespace view
