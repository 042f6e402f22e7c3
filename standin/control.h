/// The back door of the stand-in device: what it shall do, what it was asked to do, and what is
/// alive.
///
/// One control object serves all stand-in libraries of a process. Tests and the host reach it
/// through `StandinControl()`. A fake that behaves needs no script; a test states only its
/// deviation. Every member may be called from any thread.
#pragma once

#include "contract/engine.h"
#include "contract/setmark.h"
#include "platform/chi/offline.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace contract {
class Tap;
}

namespace standin {

using contract::kSetMarkTag;
using contract::Rule;
using contract::SetMark;

// clang-format off
/// Everything that the adapter, or the program for it, can call on the device; LibraryOpen is the
/// dlopen of a path there. ENTRY(name, what a call returns that fails): 0 for an object or a count.
#define STANDIN_ENTRIES(ENTRY) \
    ENTRY(LibraryOpen, 0) \
    ENTRY(OpenContext, 0) \
    ENTRY(OpenSession, 0) \
    ENTRY(CloseSession, 1) \
    ENTRY(ConfigureStreams, 1) \
    ENTRY(ExecuteRequest, 1) \
    ENTRY(OpenMetadataOps, 0) \
    ENTRY(OpenBufferOps, 0) \
    ENTRY(TranslateToChiBuffer, 1) \
    ENTRY(TranslateFromChiBuffer, 1) \
    ENTRY(MetadataOpsClose, 1) \
    ENTRY(MetadataCreate, 0) \
    ENTRY(MetadataCreateWithUsage, 0) \
    ENTRY(MetadataDestroy, 1) \
    ENTRY(MetadataCreateFromAndroid, 0) \
    ENTRY(MetadataCreateAndroid, 0) \
    ENTRY(MetadataReleaseAndroid, 1) \
    ENTRY(MetadataGetTag, 1) \
    ENTRY(MetadataSetTag, 1) \
    ENTRY(MetadataDeleteTag, 1) \
    ENTRY(MetadataCopy, 1) \
    ENTRY(BufferOpsClose, 1) \
    ENTRY(BufferManagerCreate, 0) \
    ENTRY(BufferManagerDestroy, 1) \
    ENTRY(GetImageBuffer, 0) \
    ENTRY(ReleaseImageBuffer, 1) \
    ENTRY(GetCPUAddress, 0) \
    ENTRY(CreateSensorInitSettings, 1) \
    ENTRY(EnumerateSensorModes, 1) \
    ENTRY(ExtensionProcessResultMeta, 1) \
    ENTRY(OfflineLogEntry, 1) \
    ENTRY(SetOfflineLoggerOps, 1) \
    ENTRY(GetKeyCount, 0) \
    ENTRY(GetValuesCount, 0) \
    ENTRY(GetList, 1)
// clang-format on

#define STANDIN_ENTRY(name, failure) name,
enum class Entry : uint32_t { STANDIN_ENTRIES(STANDIN_ENTRY) Count };
#undef STANDIN_ENTRY

/// The entry's name, as in "ExecuteRequest".
const char* EntryName(Entry entry);
uint64_t FailureOf(Entry entry);

/// One call that the device received. Integers and pointers are kept as 64-bit words in argument
/// order; a text argument (a path, a name, a key) is kept in `text` alone, several joined by '/'.
/// Two records that are lent for the call show their words behind the arguments: the four of the
/// metadata-ops open record; width, height, format and stream of a buffer manager's create record.
/// The settings of CreateSensorInitSettings are kept by address.
struct Call {
    Entry entry;
    std::vector<uint64_t> args;
    std::string text;
};

/// One structured record that reached the maker's logging library.
struct LogRecord {
    std::string mark;
    std::string letter;
    std::string module;
    std::string file;
    std::string function;
    int line;
    std::string message;
};

/// Who delivers the results of a request.
enum class Delivery {
    OnSessionThread, ///< The session's own thread, after the call returned or before.
    OnCallerThread,  ///< The thread that executes the request, before the call returns.
    ByHand,          ///< Nobody, until `Deliver` is called.
};

/// In which results a request comes back.
enum class Shape {
    MetadataFirst, ///< A result with the metadata, then one with the buffer.
    BuffersFirst,  ///< A result with the buffer and one partial to come, then the metadata.
    Together,      ///< One result with both.
    Partials, ///< The metadata with two partials to come, the buffer with one, then an empty one.
    ErrorBuffer, ///< As Together, with an error status on the buffer.
    SecondBlock, ///< As Together, and the second block repeats the buffer.
    Count,
};

/// One result of a request: what it brings, and how many partials are still to come.
struct ShapeResult {
    bool metadata = false;
    bool buffer = false;
    uint32_t partials = 0;
    uint32_t bufferStatus = CAMERA3_BUFFER_STATUS_OK;
    bool secondBlock = false;
};

/// The results of a shape, in their order, for as long as the process lives.
std::span<const ShapeResult> ResultsOf(Shape shape);

/// In which order a session's thread delivers what waits for it.
enum class Order {
    InOrder,  ///< Request after request.
    Shuffled, ///< Any result of any request next; those of one request stay in their order.
};

/// Follows what the device does, for a timeline. Called on the thread that does it, without a lock.
struct Observer {
    virtual ~Observer();
    virtual void NameThread(const std::string& name) = 0; ///< First on a thread of the device.
    virtual void Begin(const char* what) = 0;
    virtual void End() = 0; ///< Of what was begun last on this thread.
};

/// Answers in the stand-in's place what is called through the offline library's entry point and its
/// operation tables, OpenContext to GetCPUAddress. Called on the thread that calls, without a lock.
struct Answerer {
    virtual ~Answerer();
    /// \param words the arguments, in their order.
    /// \returns what the call returns; no value where the stand-in shall do it itself.
    virtual std::optional<uint64_t> Answer(Entry entry, std::span<const uint64_t> words) = 0;
};

/// A set of buffers as it stood during the execute call, with the format records that it pointed
/// at.
struct BufferSetCopy {
    ChiOfflineBufferSet set;
    std::vector<ChiStreamBuffer> buffers;
    std::vector<ChiInputFormat> formats; ///< One for each buffer, zero where the buffer had none.
};

/// One executed request, copied during the call.
struct Execution {
    uint64_t session;
    ChiOfflineExecuteRequest request; ///< Its pointers are for comparing only.
    std::vector<BufferSetCopy> inputs;
    BufferSetCopy output;
    int32_t presetFrameNumber; ///< What the offline-frame field held on entry.
    int32_t offlineFrame;      ///< What the device wrote there.
};

/// Called within the execute call of each request that waits to be delivered by hand, on its thread
/// and without a lock: what is delivered from here comes before the submission returned.
/// \param executionIndex the request's, for `Deliver` and `DeliverNext`.
using WhenExecuted = std::function<void(size_t executionIndex, const Execution& execution)>;

/// One session, as long as it is open.
struct SessionCopy {
    uint64_t handle;
    std::string name; ///< Read now through the pointer that was handed over at opening.
    ChiOfflineSessionCreateInfo* pCreateInfo;
    ChiOfflineSessionCallbacks* pCallbacks;
    bool configured;
    ChiOfflineSessionConfigInfo config; ///< As it stood during the configure call.
    std::vector<ChiStream> streams;     ///< Likewise.
    std::vector<ChiStream*> streamPointers;
};

/// What the vendor holds for the adapter and its host.
struct Alive {
    size_t sessions;
    size_t metadata;        ///< Vendor metadata objects.
    size_t androidMetadata; ///< Android metadata handed out and not yet released.
    size_t bufferManagers;
    size_t imageBuffers;
    size_t metadataOps; ///< Opened and not closed.
    size_t bufferOps;

    bool operator==(const Alive&) const = default;
};

class Control {
  public:
    Control();
    ~Control();

    /// Back to a new device: no script, no records, no violations, faults gone, frame numbers
    /// from 1. Sessions that are still open are stopped and dropped. Objects that are still alive
    /// are forgotten and freed.
    void Reset();

    // --- Script ---------------------------------------------------------------------------------

    /// The folder that stands for "/" on the device, of which the stand-in is a part. The
    /// configuration store reads below it.
    std::string DeviceRoot() const;

    /// Calls `nth` (counted from 1, from now on) to `nth + times - 1` of `entry` do nothing and
    /// return `result`. An entry without a result just does nothing. For entries that return an
    /// object the failure result is 0. For LibraryOpen see RefuseLibrary. A further call for the
    /// same entry replaces its fault; `times` 0 takes it back.
    void Fail(Entry entry, uint64_t result, uint32_t nth = 1, uint32_t times = UINT32_MAX);

    /// The entry is null in its operation table from now on, or there again. Only for the entries
    /// of operation tables (OpenSession to GetCPUAddress); others throw std::logic_error.
    void SetMissing(Entry entry, bool missing = true);

    /// `dlopen` of this device path fails.
    void RefuseLibrary(const std::string& path);

    /// `dlopen` of this device path opens another file of the stand-in: a variant, by its name
    /// below "variants" of the device root.
    void UseVariant(const std::string& path, const std::string& variant);

    /// `dlopen` of this device path opens `file` from now on, which is no part of the device, and
    /// with ".real.so" in place of the path's ".so" what it opens otherwise. An empty file takes
    /// that back; Reset does not.
    void PutLayer(const std::string& path, const std::string& file);

    /// Both hold for the requests that are executed from now on.
    void SetDelivery(Delivery delivery);
    void SetShape(Shape shape);

    /// How long a session's thread takes over each request before it delivers, and in which order.
    /// `seed` decides what Shuffled does, as far as it is not up to the threads.
    void SetPace(std::chrono::microseconds latency, Order order, uint32_t seed);

    /// Who follows the device from now on; null for nobody. It must outlive all sessions.
    void SetObserver(Observer* observer);

    /// Who answers from now on; null for the stand-in itself. It must outlive the last call.
    void SetAnswerer(Answerer* answerer);

    /// Who is told of what waits for its delivery by hand, from now on; an empty function for
    /// nobody.
    void SetWhenExecuted(WhenExecuted act);

    /// The vendor's debug settings enable trace points, or not.
    void SetTracePoints(bool on);

    /// Each session asks the framework for one output buffer before it delivers a result.
    void SetAsksForFrameworkBuffers(bool asks);

    /// Off for measurements and long runs: calls are then counted, but neither they nor logs
    /// and executions are kept.
    void SetRecording(bool on);

    /// For measurements: the entries of the operation tables do nothing but report success, from
    /// now on or no longer. A request has its one result, metadata and buffer together, before the
    /// call returns, or from `DeliverInstant` where delivery is by hand. Such entries lock, check,
    /// count and keep nothing, and know no fault. Opening and closing a table stays what it is. Not
    /// while a session is open or another thread calls the device.
    void SetInstant(bool on);

    /// Rows that the configuration store shows instead of its file: a row holds the values of one
    /// key. A row with `fails` set makes its read fail. A null text stands for an absent value. The
    /// texts stay the caller's and must outlive the script.
    struct ConfigRow {
        std::vector<const char*> values;
        bool fails = false;
    };
    void SetConfigRows(std::vector<ConfigRow> rows);

    // --- Record ---------------------------------------------------------------------------------

    std::vector<Call> Calls() const;
    std::vector<Call> Calls(Entry entry) const;
    size_t CallCount(Entry entry) const;
    std::vector<LogRecord> Logs() const;
    std::vector<Execution> Executions() const;
    std::vector<SessionCopy> Sessions() const;

    /// The buffer manager that owns this image buffer, null for none. On a device the camera layer
    /// knows it, and has to name it with each input buffer of a request.
    ChiBufferManagerHandle ManagerOf(ChiImageBufferHandle imageBuffer) const;

    /// What was done against the contract, one line each: the rule's number and name, where it was
    /// seen, and the values.
    std::vector<std::string> Violations() const;
    /// The same in their parts.
    std::vector<contract::Violation> FoundViolations() const;
    Alive CountAlive() const;

    /// Forgets calls, logs, violations and executions. The executions stay as long as one
    /// of them waits for `Deliver`, so that its index stays right.
    void ClearRecords();

    // --- Act ------------------------------------------------------------------------------------

    /// Delivers the execution with this index now, on the calling thread, in the given shape.
    /// Throws std::logic_error if it does not wait: it was delivered, or its session was closed.
    void Deliver(size_t executionIndex, Shape shape);

    /// Delivers the next result of this execution, on the calling thread and in the shape that was
    /// set when it was executed. Until it is delivered, the execution does not wait: results of
    /// others may be delivered from within, and its session must not be closed. Throws as `Deliver`
    /// does.
    /// \returns whether it was the last one.
    bool DeliverNext(size_t executionIndex);

    /// Delivers the instant requests that wait, on the calling thread and in their order.
    void DeliverInstant();

    /// Waits until every request on the session threads has been delivered.
    void WaitIdle();

    /// Where a host adds the events of its side to those of the device, by which the contract is
    /// watched; null while nobody watches.
    contract::Tap* Feed();

    /// Off where the events are watched elsewhere, and for measurements.
    void SetFeed(bool on);

    /// Has the feed's events written into a file, where others hold them against the contract:
    /// nobody here does from now on. For a run without the layers, before its first event.
    /// Throws std::runtime_error where nothing can be written there.
    void RecordFeed(const std::string& file, uint64_t bytes);

    /// Adds a violation that events do not show.
    void Report(const contract::Violation& violation);

    /// For the end of a run: adds a violation for each kind of object that is still alive.
    void CheckAllReturned();

    struct State;
    /// For the stand-in libraries, and for who delivers a result that no session of theirs would.
    State& Internals() { return *mState; }

  private:
    std::unique_ptr<State> mState;
};

} // namespace standin

/// The one control object of this process. It lives in the stand-in's core library.
extern "C" __attribute__((visibility("default"))) standin::Control* StandinControl();
