/// The rules V and R: what the vendor is handed and gets back, and what it does itself.
#pragma once

#include "contract/objects.h"
#include "contract/setmark.h"

#include <array>

namespace contract {

/// Whether a call that returns a status, 0 or not, came to what it was for.
inline bool Worked(const Event& event) { return static_cast<uint32_t>(event.Result()) == 0; }

/// Holds the vendor's calls against the state of its objects. Its members are, in the order of a
/// request's life, in vendorrules.cpp (sessions), vendorrules_requests.cpp, and, for what is made
/// with operation tables, in vendorrules_objects.cpp.
class VendorRules {
  public:
    VendorRules(Checks& checks, HostRules& host) : mChecks(checks), mHost(host) {}

    /// \param outer the calls that the thread is in.
    void OnCall(const Event& event, PendingCall& call, const Calls& outer);
    void OnReturn(const Event& event, const PendingCall& call);
    void CheckAllReturned();

  private:
    struct Metadata : LiveObject {
        static constexpr ObjectKind kKind{"metadata object", Rule::MetadataAlive,
                                          Rule::MetadataDestroyed};
        std::optional<uint32_t> camera; ///< Of the table that made it.
        std::optional<SetMark> mark;
    };
    struct Android : LiveObject {
        static constexpr ObjectKind kKind{"Android metadata object", Rule::AndroidMetadataReleased,
                                          Rule::AndroidMetadataReleased};
    };
    struct Manager : LiveObject {
        static constexpr ObjectKind kKind{"buffer manager", Rule::ManagerAlive,
                                          Rule::ManagerDestroyed};
    };
    struct Image : LiveObject {
        static constexpr ObjectKind kKind{"image buffer", Rule::ImageAlive, Rule::ImageReleased};
        uint64_t manager = 0;
    };
    /// A vendor may open one table for several cameras.
    struct Table : LiveObject {
        static constexpr ObjectKind kKind{"operation table", Rule::TableOpen, Rule::TableOpen};
        std::optional<uint32_t> camera; ///< Of metadata operations.
        bool makesSettings = false;
    };
    struct Session : LiveObject {
        static constexpr ObjectKind kKind{"session", Rule::SessionOpen, Rule::SessionClosed,
                                          Rule::NewSession};
        std::string name;
        uint64_t callbacks = 0;
        uint64_t opening = 0; ///< The number of the call.
        bool isConfigured = false;
        std::optional<uint32_t> camera; ///< By its configuration.
        StreamList list;                ///< The inputs, then the output; as the vendor left them.
        uint32_t executing = 0;         ///< Calls that have not returned.
        uint64_t executed = 0;          ///< Calls.
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

    /// What a host was given for its sets.
    struct SetMetadata {
        bool isGiven = false; ///< At least once,
        uint32_t refused = 0; ///< and how often it was not.
    };

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
    std::optional<uint32_t> CheckCamera(const Event& event,
                                        const ChiOfflineSessionConfigInfo& config);
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
    void CheckMetadata(const Event& event, const Session& session,
                       const ChiOfflineExecuteRequest& request);
    bool MayLackMetadata(std::optional<uint32_t> camera);
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
    uint64_t mLastExecution = 0; ///< Its serial.
    Objects<Session> mSessions{mChecks};
    Objects<Metadata> mMetadata{mChecks};
    Objects<Android> mAndroid{mChecks};
    Objects<Manager> mManagers{mChecks};
    Objects<Image> mImages{mChecks};
    Objects<Table> mMetadataOps{mChecks}, mBufferOps{mChecks};
    std::unordered_map<uint64_t, uint64_t> mCallbacks; ///< Sessions by their callbacks' record.
    std::deque<uint64_t> mClosedCallbacks;
    std::unordered_map<uint64_t, Execution> mExecutions; ///< By their private data.
    std::deque<std::pair<uint64_t, uint64_t>> mEnded;    ///< Private data and serials.
    LentBuffers mLent;
    std::array<Made, 16> mSettings{}; ///< The last that were made, or not.
    size_t mNextSettings = 0;
    /// By camera, and without one where tables are not known to be of one alone.
    std::map<std::optional<uint32_t>, SetMetadata> mSetMetadata;
    std::vector<uint64_t> mOpening; ///< Callbacks of sessions that are being opened.
};

} // namespace contract
