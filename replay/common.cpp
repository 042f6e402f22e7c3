/// Leaves calls out of both, each with all that was called below it.
#include "replay/common.h"

#include <algorithm>
#include <set>

namespace replay {
namespace {

using Handle = std::pair<Entry, uint64_t>; ///< By the entry that opens it.

/// The calls of one side that are not left out.
class Chosen {
  public:
    explicit Chosen(const Calls& calls) : mCalls(calls) {}

    bool IsIn(const Call* call) const { return !mOut.contains(call); }
    void LeaveOut(const Call& call) {
        ForEach(call, [this](const Call& each) { mOut.insert(&each); });
    }

    /// In their order, but for what is closed together: a replay may have opened it in another
    /// one.
    std::vector<Event> Events() const {
        std::map<uint64_t, Event> events;
        for (const Lane& lane : mCalls.Lanes()) {
            Put(lane.calls, events);
        }
        std::vector<Event> all;
        all.reserve(events.size());
        for (const auto& [number, event] : events) {
            all.push_back(event);
        }
        return all;
    }

  private:
    static bool IsPlainClosing(const Call* call) {
        return FindKept(call->Of(), &Kept::close) != nullptr && call->end && call->inner.empty();
    }

    void Put(const std::vector<Call*>& calls, std::map<uint64_t, Event>& events) const {
        std::vector<Call*> left;
        std::copy_if(calls.begin(), calls.end(), std::back_inserter(left),
                     [this](const Call* call) { return IsIn(call); });
        std::vector<Call*> sorted = left;
        for (auto at = sorted.begin(); at != sorted.end();) {
            const auto end = std::find_if_not(at, sorted.end(), IsPlainClosing);
            std::sort(at, end, [](const Call* one, const Call* other) {
                return std::pair(one->Of(), one->Word(0)) < std::pair(other->Of(), other->Word(0));
            });
            at = end == sorted.end() ? end : end + 1;
        }
        for (size_t i = 0; i < left.size(); ++i) {
            events[left[i]->Number()] = sorted[i]->call;
            Put(sorted[i]->inner, events);
            if (left[i]->end.has_value()) {
                events[left[i]->end->Number()] = *sorted[i]->end;
            }
        }
    }

    const Calls& mCalls;
    std::set<const Call*> mOut;
};

/// Whether the vendor's call brings what was asked for by nobody that is in.
bool IsOfNobody(const Call& call, const Chosen& chosen) {
    const auto isIn = [&](const Call* asker) { return asker != nullptr && chosen.IsIn(asker); };
    return call.IsOutside() && call.call.Text().side == contract::Side::Vendor &&
           !isIn(call.opening) && !isIn(call.execution);
}

/// \returns what was open before the beginning and is used.
std::set<Handle> ChooseOfRecording(const Calls& calls, Chosen& chosen) {
    std::set<Handle> known;
    std::set<Handle> early;
    for (const Call& call : calls.All()) {
        if (chosen.IsIn(&call) && IsOfNobody(call, chosen)) {
            chosen.LeaveOut(call);
        }
        if (!chosen.IsIn(&call)) {
            continue;
        }
        if (FindKept(call.Of(), &Kept::open) != nullptr && call.end.has_value()) {
            known.emplace(call.Of(), call.end->Result());
        } else if (const Kept* const used = FindKept(call.Of(), &Kept::use)) {
            if (known.emplace(used->open, call.Word(0)).second) {
                early.emplace(used->open, call.Word(0));
            }
        } else if (const Kept* const closed = FindKept(call.Of(), &Kept::close)) {
            if (!known.contains({closed->open, call.Word(0)})) {
                chosen.LeaveOut(call); // The replay never has it opened.
            }
        }
    }
    return early;
}

void ChooseOfReplay(const Calls& calls, uint32_t mainThread, std::set<Handle> early,
                    Chosen& chosen) {
    for (const Lane& lane : calls.Lanes()) {
        for (const Call* call : lane.calls) {
            if (lane.thread == mainThread) {
                chosen.LeaveOut(*call);
            }
        }
    }
    for (const Call& outside : calls.All()) {
        for (const Call* call : outside.inner) {
            if (call->end && early.erase({call->Of(), call->end->Result()}) > 0) {
                for (const Call* each : Preparation(outside, *call)) {
                    chosen.LeaveOut(*each);
                }
            }
        }
    }
}

/// Whether several threads opened sessions: which one the adapter listed first, no event tells.
bool OpenTogether(const std::vector<Event>& events) {
    std::set<uint32_t> threads;
    for (const Event& event : events) {
        if (event.IsCall(Entry::OpenSession)) {
            threads.insert(event.Thread());
        }
    }
    return threads.size() > 1;
}

} // namespace

Common FindCommon(const std::vector<Event>& recording, const std::vector<Event>& replay,
                  uint32_t mainThread) {
    const bool isLate = LacksBeginning(recording);
    if (!isLate && !OpenTogether(recording)) {
        return {recording, replay};
    }
    const Calls ofRecording(recording);
    const Calls ofReplay(replay);
    Chosen one(ofRecording);
    Chosen other(ofReplay);
    if (!isLate) {
        return {one.Events(), other.Events()};
    }
    ChooseOfReplay(ofReplay, mainThread, ChooseOfRecording(ofRecording, one), other);
    return {one.Events(), other.Events(), true};
}

} // namespace replay
