/// Leaves out of events what a replay cannot have.
#include "replay/compare.h"

#include "view/report.h"

#include <map>
#include <set>

namespace replay {

using contract::Event;
using contract::EventHeader;
using contract::Record;
using contract::RecordHeader;

namespace {

using Drops = std::set<Record>;

std::unique_ptr<std::byte[]> Without(const Drops& drops, const Event& event) {
    std::unique_ptr<std::byte[]> copy(new std::byte[event.Header().size]);
    uint32_t size = uint32_t{sizeof(EventHeader)} + 8U * event.Header().words;
    std::memcpy(copy.get(), &event.Header(), size);
    for (const RecordHeader* each = event.First(); each != nullptr; each = event.Next(each)) {
        if (!drops.contains(each->record)) {
            const uint32_t bytes = uint32_t{sizeof *each} + contract::Padded(each->bytes);
            std::memcpy(copy.get() + size, each, bytes);
            size += bytes;
        }
    }
    reinterpret_cast<EventHeader*>(copy.get())->size = size;
    return copy;
}

/// Those that several threads have requests executed by.
std::set<uint64_t> SharedSessions(const std::vector<Event>& events) {
    std::map<uint64_t, uint32_t> threads;
    std::set<uint64_t> shared;
    for (const Event& event : events) {
        if (event.IsCall(contract::Entry::ExecuteRequest) &&
            threads.try_emplace(event.Word(0), event.Thread()).first->second != event.Thread()) {
            shared.insert(event.Word(0));
        }
    }
    return shared;
}

/// What no layer sees: pixels are read when they are wanted, and these calls end in libraries of
/// the device which nobody stands around.
bool IsDevices(contract::Entry entry) {
    using contract::Entry;
    return entry == Entry::Pixels || entry == Entry::EnumerateSensorModes ||
           entry == Entry::ExtensionProcessResultMeta || entry == Entry::GetNCSCallback ||
           entry == Entry::GetHWCallback || entry == Entry::GetPerfCallback;
}

} // namespace

/// Images are not known of a recording that has only their hash, or lacks their making. The frame
/// fields belong to a session: what one thread finds there is up to how far another one is, and to
/// what was before the beginning.
Comparable::Comparable(const std::vector<Event>& events, bool hasPixels, bool isLate) {
    const auto shared = SharedSessions(events);
    for (const Event& event : events) {
        Drops drops;
        if (event.Of() == contract::Entry::ExecuteRequest) {
            drops = hasPixels && !isLate ? Drops{} : Drops{Record::PixelHash};
            if (isLate || shared.contains(event.Word(0))) {
                drops.merge(Drops{Record::Signed, Record::Numbers});
            }
        }
        if (!drops.empty()) {
            mCopies.push_back(Without(drops, event));
            mEvents.emplace_back(reinterpret_cast<const EventHeader*>(mCopies.back().get()));
        } else if (!IsDevices(event.Of())) {
            mEvents.push_back(event);
        }
    }
}

/// Threads are paired in the order in which they appear.
void Comparable::CutTo(const Comparable& other) {
    std::map<uint32_t, size_t> serials;
    std::vector<size_t> counts;
    for (const Event& event : other.mEvents) {
        const auto [found, isNew] = serials.try_emplace(event.Thread(), counts.size());
        counts.resize(serials.size());
        ++counts[found->second];
    }
    serials.clear();
    std::erase_if(mEvents, [&](const Event& event) {
        const size_t serial = serials.try_emplace(event.Thread(), serials.size()).first->second;
        return serial >= counts.size() || counts[serial] == 0 || counts[serial]-- == 0;
    });
}

// --- Both ---------------------------------------------------------------------------------------

Comparison::Comparison(const view::Told& recording, const view::Told& replay)
    : mEndsEarly(recording.story.IsOpen() || !recording.recording.HasItsEnd()),
      mCommon(FindCommon(recording.Events(), replay.Events(), replay.recording.About().process)),
      mOne(mCommon.recording, recording.recording.About().wholePixels != 0, mCommon.isLate),
      mOther(mCommon.replay, recording.recording.About().wholePixels != 0, mCommon.isLate) {
    if (mEndsEarly) {
        mOther.CutTo(mOne);
    }
    mSerialsOfOne.emplace(mOne.Events());
    mSerialsOfOther.emplace(mOther.Events());
    mStoryOfOne.emplace(*mSerialsOfOne);
    mStoryOfOther.emplace(*mSerialsOfOther);
    mDifference = FindDifference(*mStoryOfOne, *mStoryOfOther);
}

void Comparison::Print() const {
    if (mCommon.isLate) {
        view::PrintFact("beginning", "it is lost; what needs it, or makes up for it, is not "
                                     "compared");
    }
    if (mEndsEarly) {
        view::PrintFact("end", "the recording ends within calls; nothing later is compared");
    }
    PrintDifference(mDifference, *mStoryOfOne, *mStoryOfOther, std::nullopt);
}

} // namespace replay
