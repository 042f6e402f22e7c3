/// The calls of a recording: for each thread those that were made into the adapter, what the
/// adapter called meanwhile, and what was called into it again from there.
#pragma once

#include "contract/capture.h"
#include "contract/recording.h"

#include <deque>
#include <map>
#include <optional>

namespace replay {

using contract::Entry;
using contract::Event;

/// A call, from its event to that of its return.
struct Call {
    Event call;
    std::optional<Event> end; ///< None where the recording ends before it.
    std::vector<Call*> inner; ///< In their order.
    uint32_t lane = 0;
    /// Of a result and of a framework's buffer request: the opening of their session. Null where
    /// the recording began later.
    const Call* opening = nullptr;
    const Call* execution = nullptr; ///< Of a result: the execute call whose record it brings back.

    Entry Of() const { return call.Of(); }
    uint64_t Word(size_t index) const { return call.Word(index); }
    uint64_t Number() const { return call.Number(); }
    bool IsOutside() const { return call.Text().caller == contract::Caller::Outside; }
    /// Whether it is one of the host's to a camera, which is its first word. The table that a
    /// request's processing is called with may be no camera's.
    bool HasCamera() const;
    /// What a call into the adapter needs that was recorded on its way: the pixels of its inputs.
    std::vector<Event> pixels;
};

/// Whether the ring has overwritten the adapter's load, with which every recording begins.
bool LacksBeginning(const std::vector<Event>& events);

/// What one thread did.
struct Lane {
    uint32_t thread; ///< As the kernel numbered it.
    std::vector<Call*> calls;
};

/// Refers to the events that it is made of.
class Calls {
  public:
    /// \throws contract::RecordingError where calls stand deeper in each other than any that was
    /// recorded.
    explicit Calls(const std::vector<Event>& events);

    const std::vector<Lane>& Lanes() const { return mLanes; }
    /// All that stand below a lane's calls, in the order of their events.
    const std::deque<Call>& All() const { return mAll; }

  private:
    struct Open;
    void Begin(const Event& event, Open& open);
    static void End(const Event& event, std::vector<Call*>& stack);
    void Link(Call& call);

    std::vector<Lane> mLanes;
    std::deque<Call> mAll;
    // The last ones with an address.
    std::map<uint64_t, const Call*> mOpenings;   ///< By the callbacks record.
    std::map<uint64_t, const Call*> mExecutions; ///< By the adapter's record of the request.
};

/// What the adapter opens once and then uses in many calls: each entry has the handle as its first
/// argument, or gives it.
struct Kept {
    Entry open, use, close;
};
inline constexpr Kept kKept[] = {
    {Entry::OpenSession, Entry::ExecuteRequest, Entry::CloseSession},
    {Entry::BufferManagerCreate, Entry::GetImageBuffer, Entry::BufferManagerDestroy}};

/// The row of an entry by its part in it, such as `&Kept::open`; null where it has none.
inline const Kept* FindKept(Entry entry, Entry Kept::*part) {
    for (const Kept& kept : kKept) {
        if (kept.*part == entry) {
            return &kept;
        }
    }
    return nullptr;
}

/// What a call into the adapter has it do for itself; before that, it opens what it needs.
inline bool IsOwnPart(Entry entry) {
    return entry == Entry::MetadataCreate || FindKept(entry, &Kept::use) != nullptr;
}

/// The opening among the calls inside of `outside`, and those that get ready what it opened.
std::span<Call* const> Preparation(const Call& outside, const Call& opening);

/// Calls `act` with a call and with all that was called below it.
template <class Act> void ForEach(const Call& call, Act act) {
    act(call);
    for (const Call* inner : call.inner) {
        ForEach(*inner, act);
    }
}

} // namespace replay
