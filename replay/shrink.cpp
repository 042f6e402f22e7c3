/// Delta debugging over the units of a recording.
#include "replay/shrink.h"

#include "kit/unnamed_file.h"
#include "view/check.h"

#include <algorithm>
#include <map>
#include <sstream>

namespace replay {
namespace {

using contract::Event;
using contract::Recording;

bool Breaks(const std::vector<Event>& events, contract::Rule rule) {
    const auto violations = view::FindViolations(events);
    return std::any_of(violations.begin(), violations.end(),
                       [&](const auto& violation) { return violation.rule == rule; });
}

bool HasStatus(const std::vector<Event>& events, uint32_t status) {
    return std::any_of(events.begin(), events.end(), [&](const Event& event) {
        return (event.IsReturn(Entry::SubmitRequestFromRT) &&
                static_cast<uint32_t>(event.Result()) == status) ||
               (event.IsCall(Entry::RequestComplete) &&
                static_cast<uint32_t>(event.Word(2)) == status);
    });
}

/// How a process died, and in which call.
using Death = std::pair<std::string, Entry>;

/// The call that was made last of those that never returned; no entry's where all returned.
Entry LastOpen(const std::vector<Event>& events) {
    std::map<uint64_t, Entry> open;
    for (const Event& event : events) {
        if (event.IsCall()) {
            open.emplace(event.Number(), event.Of());
        } else {
            open.erase(event.Header().call);
        }
    }
    return open.empty() ? Entry::Count : open.rbegin()->second;
}

class Shrinker {
  public:
    Shrinker(const Recording& recording, const Wanted& wanted, std::string library,
             const std::function<void(const Shrunk&)>& progress)
        : mRecording(recording), mWanted(wanted), mLibrary(std::move(library)), mProgress(progress),
          mCalls(recording.Events()), mUnits(mCalls), mCameras(mUnits.Cameras()) {
        for (size_t i = 0; i < mUnits.All().size(); ++i) {
            mLeft.insert(i);
        }
    }

    bool Shrink(kit::OutputFile& file) {
        if (!Shows(mLeft, mCameras)) {
            return false;
        }
        LeaveOutCameras();
        LeaveOutUnits();
        const Units::Part part = mUnits.Choose(mLeft, mCameras);
        mShrunk.isConfirmed = IsShown(mRecording.About(), part.events);
        WriteLeft(file, part.events);
        return true;
    }

    const Shrunk& Left() const { return mShrunk; }

  private:
    /// The replay of what is left, where that shows it, too: nothing in it refers to what was left
    /// out.
    void WriteLeft(kit::OutputFile& file, const std::vector<Event>& part) {
        if (mShrunk.isConfirmed) {
            const Recording replay = Recording::Read(mOwn.Path());
            if (IsShown(replay.About(), replay.Events())) {
                file.Write(contract::Serialize(replay.About(), replay.Events()));
                mShrunk.events = replay.Events().size();
                return;
            }
        }
        file.Write(contract::Serialize(mRecording.About(), part));
        mShrunk.events = part.size();
    }

    /// Whether a part shows what is wanted; if it does, it is what is left.
    bool Shows(const std::set<size_t>& units, const std::set<uint32_t>& cameras) {
        const Units::Part part = mUnits.Choose(units, cameras);
        ++mShrunk.trials;
        if (part.events.empty() || !IsShown(mRecording.About(), part.events)) {
            mProgress(mShrunk);
            return false;
        }
        mLeft = units;
        mCameras = cameras;
        mShrunk.events = part.events.size();
        mShrunk.requests = mShrunk.others = 0;
        for (const size_t unit : units) {
            const size_t requests = mUnits.All()[unit].requests;
            mShrunk.requests += requests;
            mShrunk.others += requests == 0 ? mUnits.All()[unit].calls.size() : 0;
        }
        mProgress(mShrunk);
        return true;
    }

    bool IsShown(const contract::FileHeader& about, const std::vector<Event>& part) {
        std::istringstream numbered(contract::Serialize(about, part));
        const Ending ending = PlayInProcess(
            Recording::Read("a part", numbered).Events(),
            {.library = mLibrary, .record = mOwn.Path(), .isPaced = false, .isQuiet = true});
        if (!ending.isRecorded) {
            return false;
        }
        const Recording replay = Recording::Read(mOwn.Path());
        if (mWanted.isCrash) {
            return ending.IsDead() && IsSame({ending.Describe(), LastOpen(replay.Events())});
        }
        return mWanted.rule.has_value() ? Breaks(replay.Events(), *mWanted.rule)
                                        : HasStatus(replay.Events(), *mWanted.status);
    }

    /// Whether it is the death of the first trial, which is that of the whole recording.
    bool IsSame(const Death& death) {
        mDeath = mDeath.has_value() ? mDeath : death;
        return *mDeath == death;
    }

    /// Whole cameras first: with their own making and end.
    void LeaveOutCameras() {
        for (const uint32_t camera : std::set<uint32_t>(mCameras)) {
            std::set<uint32_t> cameras = mCameras;
            cameras.erase(camera);
            std::set<size_t> units = mLeft;
            std::erase_if(units, [&](size_t unit) { return mUnits.All()[unit].camera == camera; });
            if (!cameras.empty()) {
                Shows(units, cameras);
            }
        }
    }

    /// Half of the units, then quarters, and so on, until no single one can be left out.
    void LeaveOutUnits() {
        for (size_t size = (mLeft.size() + 1) / 2;;) {
            const bool isSmaller = LeaveOutPieces(size);
            if (size <= 1 && !isSmaller) {
                break;
            }
            size = std::max<size_t>(size / 2, 1);
        }
    }

    /// From the end: what comes later depends on what came before.
    bool LeaveOutPieces(size_t size) {
        bool isSmaller = false;
        const std::vector<size_t> all(mLeft.begin(), mLeft.end());
        for (size_t end = all.size(); end > 0; end -= std::min(size, end)) {
            std::set<size_t> units = mLeft;
            for (size_t i = end - std::min(size, end); i < end; ++i) {
                units.erase(all[i]);
            }
            isSmaller |= Shows(units, mCameras);
        }
        return isSmaller;
    }

    const Recording& mRecording;
    const Wanted& mWanted;
    const std::string mLibrary;
    const std::function<void(const Shrunk&)>& mProgress;
    const kit::UnnamedFile mOwn; ///< The last replay's own recording.
    const Calls mCalls;
    const Units mUnits;
    std::set<uint32_t> mCameras; ///< That are left, and the units.
    std::set<size_t> mLeft;
    std::optional<Death> mDeath; ///< Where one is wanted.
    Shrunk mShrunk;
};

} // namespace

std::optional<Shrunk> Shrink(const Recording& recording, const Wanted& wanted,
                             const std::string& library, kit::OutputFile& file,
                             const std::function<void(const Shrunk&)>& progress) {
    Shrinker shrinker(recording, wanted, library, progress);
    return shrinker.Shrink(file) ? std::optional(shrinker.Left()) : std::nullopt;
}

} // namespace replay
