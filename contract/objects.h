/// What the rules of the vendor follow: its objects from their birth to their end, and the calls
/// that have not returned.
#pragma once

#include "contract/checks.h"
#include "contract/hostrules.h"

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <vector>

namespace contract {

struct ListedStream {
    uint64_t address;
    std::optional<Stream> stream; ///< Where it is recorded.
};
using StreamList = std::vector<ListedStream>;

/// A call that has not returned yet, with what its return needs.
struct PendingCall {
    Entry entry;
    uint64_t call;       ///< Its number.
    uint64_t key = 0;    ///< The handle that is given back, the callbacks of a session, ...
    uint64_t serial = 0; ///< Of the object behind it.
    uint64_t session = 0;
    HostRules::Reference request{};   ///< Of a submission.
    std::string name{};               ///< Of a session.
    std::optional<uint32_t> camera{}; ///< Of metadata operations.
    StreamList list{};                ///< Of a configuration.
};
using Calls = std::vector<PendingCall>; ///< Of one thread, the innermost last.

/// What the vendor calls its objects of a kind, and the rules for their lives.
struct ObjectKind {
    const char* name;
    Rule alive;    ///< Broken by the use of an object that is none.
    Rule returned; ///< Broken where it is given back twice, or never.
    Rule fresh = Rule::NewObject;
};

struct LiveObject {
    uint64_t serial = 0; ///< Among those of its kind.
    /// How often its handle was given out: against the rules, but for a table.
    uint32_t given = 1;
    bool isGoing = false;     ///< It is being given back.
    bool wasReported = false; ///< As one that was not.
};

/// The objects of one kind that are alive, by their handles. `T` is a LiveObject that has its
/// ObjectKind as `kKind`.
template <class T> class Objects {
  public:
    explicit Objects(const Checks& checks) : mChecks(checks) {}

    /// One that may be used; null if it is being given back, or is none.
    T* Find(uint64_t handle) {
        T* const found = FindAny(handle);
        return found == nullptr || found->isGoing ? nullptr : found;
    }
    T* FindAny(uint64_t handle) {
        const auto found = mAlive.find(handle);
        return found == mAlive.end() ? nullptr : &found->second;
    }
    const std::unordered_map<uint64_t, T>& All() const { return mAlive; }

    /// As Find, for one that must be alive; null, too, where that cannot be known.
    T* Require(uint64_t handle) { return Require(handle, T::kKind.alive, "destroyed"); }

    /// What the vendor gave. \returns the new object, null where that is none.
    T* Adopt(uint64_t handle, T object) {
        if (handle == 0) {
            return nullptr;
        }
        const T* const other = Find(handle);
        mChecks.Check(T::kKind.fresh, other == nullptr, Handle(handle), " is a live ",
                      T::kKind.name, " already");
        object.given += other == nullptr ? 0 : other->given;
        return &Add(handle, std::move(object));
    }
    T& Add(uint64_t handle, T object) {
        object.serial = ++mLastSerial;
        return mAlive[handle] = std::move(object);
    }

    /// From the call on that gives it back the handle may be a new object's.
    T* BeginEnd(uint64_t handle, PendingCall& call) {
        T* const object = Require(handle, T::kKind.returned, "destroyed twice");
        call.key = handle;
        if (object != nullptr && object->given > 1) {
            --object->given; // What was given twice comes back twice.
        } else if (object != nullptr) {
            object->isGoing = true;
            call.serial = object->serial;
        }
        return object;
    }
    void FinishEnd(const PendingCall& call, bool worked) {
        T* const object = FindAny(call.key);
        const bool isIt = object != nullptr && object->serial == call.serial;
        if (isIt) {
            object->isGoing = false;
        }
        // One whose birth was not seen is known from now on, as gone.
        if (worked && (isIt || (object == nullptr && mChecks.isLate))) {
            Remove(call.key);
        }
    }
    void Remove(uint64_t handle) {
        mAlive.erase(handle);
        Remember(mGone, handle);
    }

    /// Each of them is reported once.
    void CheckLeft() {
        size_t count = 0;
        uint64_t oldest = 0;
        const T* first = nullptr;
        for (auto& [handle, object] : mAlive) {
            if (!std::exchange(object.wasReported, true)) {
                ++count;
                if (first == nullptr || object.serial < first->serial) {
                    oldest = handle;
                    first = &object;
                }
            }
        }
        std::string name;
        if constexpr (requires { T::name; }) {
            name = first == nullptr ? "" : " \"" + first->name + '"';
        }
        mChecks.Check(T::kKind.returned, count == 0, Got{count}, " ", T::kKind.name,
                      count == 1 ? "" : "s", " left, such as ", Handle(oldest), name, Unsaid{0});
    }

  private:
    /// `past` is what is said of one that once was.
    T* Require(uint64_t handle, Rule rule, const char* past) {
        T* const object = Find(handle);
        const bool wasAlive =
            mAlive.contains(handle) || std::find(mGone.begin(), mGone.end(), handle) != mGone.end();
        const bool isUnknown = mChecks.isLate && handle != 0 && !wasAlive;
        mChecks.Check(rule, object != nullptr || isUnknown, Got{Handle(handle)}, " is not a live ",
                      T::kKind.name, ": ", wasAlive ? past : "never existed");
        return object;
    }

    const Checks& mChecks;
    uint64_t mLastSerial = 0;
    std::unordered_map<uint64_t, T> mAlive;
    std::deque<uint64_t> mGone;
};

} // namespace contract
