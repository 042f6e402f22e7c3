/// What belongs together, by the handles that calls share.
#include "replay/units.h"

#include <algorithm>
#include <numeric>

namespace replay {
namespace {

using contract::Object;
using contract::Side;
using contract::WordOf;

/// Those that every recording needs: they are left out with their camera, or never.
bool IsFrame(const Call& call) {
    return call.Of() == Entry::LoadLib || call.Of() == Entry::Create || call.Of() == Entry::Destroy;
}

/// Objects of the host's whose calls belong together.
bool IsShared(Object object) {
    return object == Object::Metadata || object == Object::AndroidMetadata ||
           object == Object::Image;
}

/// What the call uses or ends.
const Kept* KeptBy(const Call& call) {
    const Kept* const used = FindKept(call.Of(), &Kept::use);
    return used != nullptr ? used : FindKept(call.Of(), &Kept::close);
}

} // namespace

// --- What belongs together ----------------------------------------------------------------------

class Units::Finder {
  public:
    explicit Finder(Units& units) : mUnits(units) {}

    void Find() {
        for (const Lane& lane : mUnits.mCalls.Lanes()) {
            for (const Call* call : lane.calls) {
                Descend(*call, nullptr);
            }
        }
        for (const Call& call : mUnits.mCalls.All()) {
            Take(call);
        }
        JoinUsers();
        Number();
    }

  private:
    /// Calls within calls belong to them, but for further submissions.
    void Descend(const Call& call, const Call* outside) {
        if (!call.IsOutside()) {
            mUnits.mOutsideOf[&call] = outside;
        } else {
            mLeaders[&call] = &call;
            if (outside != nullptr && call.Of() != Entry::SubmitRequestFromRT) {
                Join(call, *outside);
            }
        }
        for (const Call* inner : call.inner) {
            Descend(*inner, call.IsOutside() ? &call : outside);
        }
    }

    const Call* Leader(const Call& call) {
        const Call*& leader = mLeaders.at(&call);
        return leader == &call ? leader : leader = Leader(*leader);
    }
    /// The earlier one leads.
    void Join(const Call& one, const Call& other) {
        const Call* const a = Leader(one);
        const Call* const b = Leader(other);
        (a->Number() < b->Number() ? mLeaders[b] : mLeaders[a]) = a->Number() < b->Number() ? a : b;
    }
    void JoinMaker(const Call& call, uint64_t handle) {
        const auto maker = mMakers.find(handle);
        if (handle != 0 && maker != mMakers.end()) {
            Join(call, *maker->second);
        }
    }

    void Take(const Call& call) {
        if (!call.IsOutside()) {
            TakeAdapters(call);
            return;
        }
        if (call.HasCamera()) {
            mUnits.mCameraOf[&call] = static_cast<uint32_t>(call.Word(0));
        }
        if (call.execution != nullptr || call.opening != nullptr) {
            const Call* const inner = call.execution ? call.execution : call.opening;
            const Call* const outside = mUnits.mOutsideOf.at(inner);
            mUnits.mCameraOf[&call] = mUnits.mCameraOf[outside];
            if (call.execution != nullptr) {
                Join(call, *outside);
            }
        }
        const contract::EntryText& text = call.call.Text();
        if (text.side == Side::Host) {
            for (size_t i = 0; i < text.arguments.size(); ++i) {
                if (IsShared(text.arguments[i].object)) {
                    JoinMaker(call, call.Word(i));
                }
            }
        }
        if (call.Of() == Entry::SubmitRequestFromRT) {
            TakeSubmission(call);
        } else if (text.result != nullptr && IsShared(text.result->object) && call.end) {
            mMakers[call.end->Result()] = &call;
        }
    }

    void TakeSubmission(const Call& call) {
        const auto* const wrapper = call.call.At<OemLayer::OfflineDataWraper>(call.Word(1));
        if (wrapper == nullptr) {
            return;
        }
        for (const auto& handles : {std::span<void* const>(wrapper->pChiMetadataHandles),
                                    std::span<void* const>(wrapper->pRDIBufferHandles),
                                    std::span<void* const>(wrapper->yuvBufferHandles)}) {
            for (void* const handle : handles) {
                const auto maker = mMakers.find(WordOf(handle));
                if (handle != nullptr && maker != mMakers.end()) {
                    mUsers[maker->second].insert(&call);
                }
            }
        }
    }

    /// What several requests use belongs to none of them.
    void JoinUsers() {
        for (const auto& [maker, users] : mUsers) {
            if (users.size() == 1) {
                Join(*maker, **users.begin());
            }
        }
    }

    void TakeAdapters(const Call& call) {
        const Call* const outside = mUnits.mOutsideOf.at(&call);
        if (call.Of() == Entry::CaptureResult) {
            if (const auto* result = call.call.At<camera3_capture_result>(call.Word(2))) {
                mMakers[WordOf(result->result)] = outside;
            }
        } else if (FindKept(call.Of(), &Kept::open) != nullptr) {
            if (call.end.has_value()) {
                mOpened[{call.Of(), call.end->Result()}] = &call;
            }
        } else if (const Kept* const kept = KeptBy(call)) {
            const auto maker = mOpened.find({kept->open, call.Word(0)});
            if (maker != mOpened.end()) {
                mUnits.mMakerOf[&call] = maker->second;
            }
        }
    }

    void Number() {
        std::map<const Call*, size_t> numbers;
        for (const Call& call : mUnits.mCalls.All()) {
            if (!call.IsOutside() || IsFrame(call)) {
                continue;
            }
            const auto [found, isNew] = numbers.try_emplace(Leader(call), mUnits.mUnits.size());
            if (isNew) {
                mUnits.mUnits.emplace_back();
            }
            Unit& unit = mUnits.mUnits[found->second];
            mUnits.mUnitOf[&call] = found->second;
            unit.calls.push_back(&call);
            unit.requests += call.Of() == Entry::SubmitRequestFromRT ? 1 : 0;
            const auto camera = mUnits.mCameraOf.find(&call);
            if (camera != mUnits.mCameraOf.end()) {
                unit.camera = camera->second;
            }
        }
    }

    Units& mUnits;
    std::map<const Call*, const Call*> mLeaders; ///< Towards the first call of a unit.
    std::map<uint64_t, const Call*> mMakers;     ///< Of the host's objects, by their handles.
    std::map<const Call*, std::set<const Call*>> mUsers; ///< Submissions that got such an object.
    std::map<std::pair<Entry, uint64_t>, const Call*> mOpened;
};

Units::Units(const Calls& calls) : mCalls(calls) { Finder(*this).Find(); }

std::set<uint32_t> Units::Cameras() const {
    std::set<uint32_t> cameras;
    for (const auto& [call, camera] : mCameraOf) {
        cameras.insert(camera);
    }
    return cameras;
}

// --- A part of it -------------------------------------------------------------------------------

class Units::Chooser {
  public:
    Chooser(const Units& units, const std::set<size_t>& chosen, const std::set<uint32_t>& cameras)
        : mUnits(units), mChosen(chosen), mCameras(cameras) {}

    Part Choose() {
        FindHeirs();
        for (const Lane& lane : mUnits.mCalls.Lanes()) {
            for (const Call* call : lane.calls) {
                Put(*call);
            }
        }
        for (auto& [key, event] : mEvents) {
            mPart.events.push_back(event);
        }
        return std::move(mPart);
    }

  private:
    bool IsIn(const Call& call) const {
        const auto camera = mUnits.mCameraOf.find(&call);
        if (camera != mUnits.mCameraOf.end() && !mCameras.contains(camera->second)) {
            return false;
        }
        const auto unit = mUnits.mUnitOf.find(&call);
        return unit == mUnits.mUnitOf.end() || mChosen.contains(unit->second);
    }

    /// Who opens what calls that are left out had the adapter open.
    void FindHeirs() {
        for (const Call& user : mUnits.mCalls.All()) {
            const auto found = mUnits.mMakerOf.find(&user);
            if (found == mUnits.mMakerOf.end() || !IsOwnPart(user.Of())) {
                continue;
            }
            const Call* const maker = found->second;
            const Call* const outside = mUnits.mOutsideOf.at(&user);
            if (IsIn(*outside) && !IsIn(*mUnits.mOutsideOf.at(maker)) &&
                mHeirs.try_emplace(maker, outside).second) {
                mInherits[outside].push_back(maker);
            }
        }
    }

    /// A call, and what is in of those below it, also where it is not in itself.
    void Put(const Call& call) {
        const bool isIn = call.IsOutside() ? IsIn(call) : IsMade(call);
        if (!isIn) {
            PutInnerOnly(call);
            return;
        }
        Add(call.call);
        for (const Event& piece : call.pixels) {
            Add(piece);
        }
        const auto inherits = mInherits.find(&call);
        bool isOpen = inherits != mInherits.end();
        for (const Call* inner : call.inner) {
            if (isOpen && IsOwnPart(inner->Of())) {
                for (const Call* maker : inherits->second) {
                    HandDown(*maker, *inner);
                }
                isOpen = false;
            }
            Put(*inner);
        }
        if (call.end.has_value()) {
            Add(*call.end);
        }
    }

    void PutInnerOnly(const Call& call) {
        for (const Call* inner : call.inner) {
            if (inner->IsOutside()) {
                Put(*inner);
            } else {
                PutInnerOnly(*inner);
            }
        }
    }

    /// Whether the adapter still makes the call: it ends nothing that was never opened.
    bool IsMade(const Call& call) const {
        const auto maker = mUnits.mMakerOf.find(&call);
        return FindKept(call.Of(), &Kept::close) == nullptr || maker == mUnits.mMakerOf.end() ||
               IsIn(*mUnits.mOutsideOf.at(maker->second)) || mHeirs.contains(maker->second);
    }

    void Add(const Event& event) { mEvents.emplace(Key(event.Number(), SIZE_MAX), event); }

    /// Puts the opening of something before a call of another thread, with what belongs to it.
    void HandDown(const Call& maker, const Call& before) {
        for (const Call* call : Preparation(*mUnits.mOutsideOf.at(&maker), maker)) {
            ForEachEvent(*call, [&](const Event& event) { AddCopy(event, before.call); });
        }
    }

    template <class Act> static void ForEachEvent(const Call& call, const Act& act) {
        act(call.call);
        for (const Call* inner : call.inner) {
            ForEachEvent(*inner, act);
        }
        if (call.end.has_value()) {
            act(*call.end);
        }
    }

    void AddCopy(const Event& event, const Event& before) {
        const uint32_t size = event.Header().size;
        auto& copy = mPart.copies.emplace_back(new std::byte[size]);
        std::memcpy(copy.get(), &event.Header(), size);
        auto* const header = reinterpret_cast<contract::EventHeader*>(copy.get());
        header->thread = before.Thread();
        header->time = before.Time();
        mEvents.emplace(Key(before.Number(), mCopied++), Event(header));
    }

    using Key = std::pair<uint64_t, size_t>;

    const Units& mUnits;
    const std::set<size_t>& mChosen;
    const std::set<uint32_t>& mCameras;
    std::map<const Call*, const Call*> mHeirs;                 ///< By what they open.
    std::map<const Call*, std::vector<const Call*>> mInherits; ///< The other way round.
    std::map<Key, Event> mEvents;
    size_t mCopied = 0;
    Part mPart;
};

Units::Part Units::Choose(const std::set<size_t>& units, const std::set<uint32_t>& cameras) const {
    return Chooser(*this, units, cameras).Choose();
}

} // namespace replay
