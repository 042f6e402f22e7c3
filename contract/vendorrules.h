/// The rules V and R: what the vendor is handed and gets back, and what it does itself.
#pragma once

#include "contract/checks.h"
#include "contract/hostrules.h"
#include "contract/setmark.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <unordered_map>
#include <vector>

namespace contract {

/// What the vendor calls its objects of a kind, and the rules for their lives.
struct ObjectKind {
    const char* name;
    Rule alive;    ///< Broken by the use of an object that is none.
    Rule returned; ///< Broken where it is given back twice, or never.
};

/// The objects of one kind that are alive, by their handles.
template <class T> class Objects {
  public:
    /// One that may be used; null if it is being given back, or is none.
    T* Find(uint64_t handle) {
        T* const found = FindAny(handle);
        return found == nullptr || found->isGoing ? nullptr : found;
    }
    T* FindAny(uint64_t handle) {
        const auto found = mAlive.find(handle);
        return found == mAlive.end() ? nullptr : &found->second;
    }
    T& Add(uint64_t handle, T object) { return mAlive[handle] = std::move(object); }
    void Remove(uint64_t handle) {
        mAlive.erase(handle);
        Remember(mGone, handle);
    }
    bool WasAlive(uint64_t handle) const {
        return mAlive.contains(handle) ||
               std::find(mGone.begin(), mGone.end(), handle) != mGone.end();
    }
    std::unordered_map<uint64_t, T>& All() { return mAlive; }

  private:
    std::unordered_map<uint64_t, T> mAlive;
    std::deque<uint64_t> mGone;
};

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

/// Follows the vendor's objects from their birth to their end.
class VendorRules {
  public:
    VendorRules(Checks& checks, HostRules& host) : mChecks(checks), mHost(host) {}

    /// \param outer the calls that the thread is in.
    void OnCall(const Event& event, PendingCall& call, const Calls& outer);
    void OnReturn(const Event& event, const PendingCall& call);
    void CheckAllReturned();

  private:
    struct Object {
        uint64_t serial = 0;
        /// How often its handle was given out: against the rules, but for a table.
        uint32_t given = 1;
        bool isGoing = false;     ///< It is being given back.
        bool wasReported = false; ///< As one that was not.
    };
    struct Metadata : Object {
        static constexpr ObjectKind kKind{"metadata object", Rule::MetadataAlive,
                                          Rule::MetadataDestroyed};
        std::optional<uint32_t> camera; ///< Of the table that made it.
        std::optional<SetMark> mark;
    };
    struct Android : Object {
        static constexpr ObjectKind kKind{"Android metadata object", Rule::AndroidMetadataReleased,
                                          Rule::AndroidMetadataReleased};
    };
    struct Manager : Object {
        static constexpr ObjectKind kKind{"buffer manager", Rule::ManagerAlive,
                                          Rule::ManagerDestroyed};
    };
    struct Image : Object {
        static constexpr ObjectKind kKind{"image buffer", Rule::ImageAlive, Rule::ImageReleased};
        uint64_t manager = 0;
    };
    /// A vendor may open one table for several cameras.
    struct Table : Object {
        static constexpr ObjectKind kKind{"operation table", Rule::TableOpen, Rule::TableOpen};
        std::optional<uint32_t> camera; ///< Of metadata operations.
        bool makesSettings = false;
    };
    struct Session : Object {
        static constexpr ObjectKind kKind{"session", Rule::SessionOpen, Rule::SessionClosed};
        std::string name;
        uint64_t callbacks = 0;
        uint64_t opening = 0; ///< The number of the call.
        bool isConfigured = false;
        StreamList list;        ///< The inputs, then the output; as the vendor left them.
        uint32_t executing = 0; ///< Calls that have not returned.
        uint64_t executed = 0;  ///< Calls.
        /// The last frame numbers, and which threads' requests got them.
        std::array<std::pair<int32_t, uint32_t>, 4> frames{};
        size_t nextFrame = 0;

        const Stream* FindStream(uint64_t address) const;
        bool Lists(uint64_t address) const;
    };
    /// A request to a session, by the private data that comes back with its results.
    struct Execution {
        enum Phase : uint8_t { UnderWay, Refused, Complete };
        uint64_t serial = 0;
        uint64_t session = 0;
        HostRules::Reference request{};
        Phase phase = UnderWay;
        uint32_t status = 0;
        bool hasOutput = false; ///< What follows is recorded.
        Lent output;
        std::optional<Lent> got; ///< A lent buffer that came instead.
        uint32_t outputs = 0;
        uint32_t received = 0;
        uint32_t partials = UINT32_MAX; ///< Still to come.
        uint32_t results = 0;
        bool isAlone = false;  ///< No other request to the session was in its way.
        uint64_t executed = 0; ///< The session's count with it.
        std::optional<uint32_t> lastField, frame, resultFrame;
    };
    /// What became of the making of settings.
    struct Made {
        uint32_t thread;
        uint64_t event;
        bool worked;
    };

    // All kinds
    template <class T> T* Require(Objects<T>& all, uint64_t handle, Rule rule, const char* past);
    template <class T> T* Require(Objects<T>& all, uint64_t handle) {
        return Require(all, handle, T::kKind.alive, "destroyed");
    }
    template <class T> T* BeginEnd(Objects<T>& all, uint64_t handle, PendingCall& call);
    template <class T> void FinishEnd(Objects<T>& all, const PendingCall& call, bool worked);
    template <class T> T* Adopt(Objects<T>& all, uint64_t handle, Rule fresh, T object);
    template <class T> void CheckLeft(Objects<T>& all);

    // Entries, in the order of the tables
    void CallInterface(const Event& event, PendingCall& call);
    void CallMetadata(const Event& event, PendingCall& call);
    void CallBuffers(const Event& event, PendingCall& call);
    void CallBack(const Event& event, PendingCall& call);
    void ReturnOfInterface(const Event& event, const PendingCall& call);
    void ReturnOfMetadata(const Event& event, const PendingCall& call);
    void ReturnOfBuffers(const Event& event, const PendingCall& call);

    void CheckContext(const Event& event);
    void CheckOpening(const Event& event, PendingCall& call);
    void OpenSession(const Event& event, const PendingCall& call);
    void CloseSession(const Event& event, PendingCall& call, const Calls& outer);
    void Closed(const PendingCall& call, bool worked);

    void CheckConfiguration(const Event& event, PendingCall& call);
    uint32_t CheckCamera(const Event& event, const ChiOfflineSessionConfigInfo& config);
    void CheckSettings(const Event& event, const Session& session,
                       const ChiOfflineSessionConfigInfo& config, uint32_t camera);
    bool MakesSettings(uint32_t thread, const Session& session, uint32_t camera);
    void CheckListed(const Event& event, const ChiOfflineSessionConfigInfo& config);
    static StreamList ListOf(const Event& event, const ChiOfflineSessionConfigInfo& config);
    void Configured(const Event& event, const PendingCall& call);

    void CheckExecution(const Event& event, PendingCall& call, const Calls& outer);
    void CheckRequest(const Event& event, Session& session,
                      const ChiOfflineExecuteRequest& request);
    void CheckInput(const Event& event, const Session& session, const ChiStreamBuffer& buffer);
    void CheckFormat(const Event& event, const Stream& stream, const ChiStreamBuffer& buffer);
    void CheckOutput(const Event& event, const Session& session,
                     const ChiOfflineExecuteRequest& request);
    void CheckMetadata(const Event& event, const ChiOfflineExecuteRequest& request);
    void CheckSetMetadata(uint64_t handle, uint32_t index);
    void CheckFramePreset(const Event& event, const Session& session,
                          const ChiOfflineExecuteRequest& request);
    void BeginExecution(const Event& event, Session& session,
                        const ChiOfflineExecuteRequest& request, PendingCall& call,
                        const Calls& outer);
    void Executed(const Event& event, const PendingCall& call);
    void CheckFrameWritten(const Event& event, Session& session, Execution& execution);
    void Finish(uint64_t privateData, Execution& execution, Execution::Phase phase);

    uint64_t SessionOf(const Event& event);
    void CheckResult(const Event& event, uint64_t session);
    Execution* FindExecution(uint64_t privateData, uint64_t session);
    void CheckBlock(const Event& event, Execution& execution, const ChiOfflineResultBlock& block);
    void CheckResultNumber(const Execution& execution);
    void PassOn(const Event& event, const Execution& execution,
                const ChiOfflineCaptureResultInfo& info, const ChiOfflineResultBlock* block);
    void CheckQuery(const Event& event, uint64_t session);
    void OnLent(const Event& event);

    void CheckOpenInfo(const Event& event, PendingCall& call);
    void OpenedTable(const Event& event, const PendingCall& call, Objects<Table>& all);
    void CloseTable(Objects<Table>& all, const PendingCall& call);
    void MadeMetadata(const Event& event);
    void SetMarkOf(const Event& event);
    void CheckManager(const Event& event);
    void DestroyManager(uint64_t manager, PendingCall& call);

    Checks& mChecks;
    HostRules& mHost;
    uint64_t mLastSerial = 0;
    Objects<Session> mSessions;
    Objects<Metadata> mMetadata;
    Objects<Android> mAndroid;
    Objects<Manager> mManagers;
    Objects<Image> mImages;
    Objects<Table> mMetadataOps, mBufferOps;
    std::unordered_map<uint64_t, uint64_t> mCallbacks; ///< Sessions by their callbacks' record.
    std::deque<uint64_t> mClosedCallbacks;
    std::unordered_map<uint64_t, Execution> mExecutions; ///< By their private data.
    std::deque<std::pair<uint64_t, uint64_t>> mEnded;    ///< Private data and serials.
    std::map<Lent, uint32_t> mLent;
    std::array<Made, 16> mSettings{}; ///< The last that were made, or not.
    size_t mNextSettings = 0;
    bool mGaveSetMetadata = false; ///< To a host, and how often it did not.
    uint32_t mSetMetadataRefused = 0;
    std::vector<uint64_t> mOpening; ///< Callbacks of sessions that are being opened.
};

} // namespace contract
