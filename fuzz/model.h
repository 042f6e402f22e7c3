/// What must happen: the library's documented behaviour over the stand-in device, in small.
///
/// The model is told of each call before the library is, and follows it through every call to the
/// vendor, so that the faults that the device was told of hit both alike. Then both must agree in
/// the statuses, in what the host was told, in how often each entry was called, in what is alive in
/// the vendor, and in what stays on the heap.
#pragma once

#include "adapterlayer/oemlayer_host.h"
#include "standin/state.h"

#include <array>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <tuple>

namespace fuzz {

using standin::Entry;
using standin::Rule;
using standin::Shape;

/// A buffer as host and vendor see it.
struct Buffer {
    uint32_t status = 0;
    bool hasStream = false;
    bool operator==(const Buffer&) const = default;
};

/// One call of the host's callbacks.
struct Event {
    enum Kind : uint8_t { Result, Release, Complete } kind;
    uint32_t table;       ///< Which of the host's tables was called.
    uint32_t number = 0;  ///< The frame of a result, the status of a completion.
    uint32_t partial = 0; ///< Of a result, as is the rest.
    bool hasMetadata = false;
    std::vector<Buffer> buffers = {};
    bool operator==(const Event&) const = default;
};

/// The host's tables of callbacks: all entries, another with all, each with one left out, none.
enum Table : uint32_t { All, Other, NoRelease, NoComplete, NoResult, NoTable, NumTables };
inline constexpr bool HasCallback(uint32_t table, Event::Kind kind) {
    constexpr Table kWithout[] = {NoResult, NoRelease, NoComplete}; // By kind.
    return table != NoTable && table != kWithout[kind];
}

/// What the framework answers when it is asked for buffers.
struct Framework {
    enum Kind : uint32_t { NoOps, NoEntry, Answers };
    int32_t result = 0;
    uint32_t returned = 1; ///< Answers; the next two are of each.
    uint32_t count = 1;
    int32_t status = 0;
};

/// One session of the vendor's.
struct Session {
    bool isListed = false;              ///< It was prepared, and so has its streams.
    std::vector<camera3_stream> inputs; ///< As they were then.
    camera3_stream* pOutput = nullptr;
};

struct Camera;

/// One request of the host's, in all its states.
struct Request {
    OemLayer::OfflineDataWraper wrapper{};
    struct PrivData : OemLayer::RequestPrivData {
        Request* owner;
    } privData{};
    camera3_stream_buffer output{};
    bool hasWrapper = true, hasPrivData = true, hasOutput = true;
    uint32_t table = All;
    Framework::Kind framework = Framework::NoOps;
    Camera* camera = nullptr;
    /// Submitted from within the first callback of this kind; the host has a pointer of its own.
    Request* nested = nullptr;
    Request* hostsNested = nullptr;
    Event::Kind nestedAt = Event::Release;
    const camera3_stream* pRawImage = nullptr; ///< The stream whose images are fed as raw buffers.
    bool hasImages = true, ownManagers = true;

    // The model's part.
    enum { Free, Reserved, InFlight } state = Free;
    uint32_t status = 0; ///< Of the submission.
    Session* session = nullptr;
    size_t execution = 0;    ///< Its index in the device.
    bool waits = false;      ///< For `Deliver`.
    bool asks = false;       ///< Its session asks the framework.
    bool wasTouched = false; ///< It got results made by hand.
    enum { NoMetadata, Alive, Destroyed, Forgotten } metadata = NoMetadata; ///< Of its output.
    uint32_t received = 0, capacity = 0, firstIsRaw = 0;
    Buffer buffer;
    std::vector<Event> expected, seen;
    std::optional<uint32_t> returned; ///< What the library returned.
};

/// A result that a session delivers.
struct Delivered {
    std::vector<Buffer> buffers = {};
    bool hasArray = true;
    uint32_t surplus = 0; ///< Status of the buffer that the array has behind the counted ones.
    enum Metadata : uint32_t { None, Output, Own } metadata = None; ///< The last is a set's.
    uint32_t partials = 0;
    bool hasMain = true;
    bool hasSecond = false; ///< A second block with something in it.
};

struct Image {
    void* handle;
    size_t stream; ///< Among the host's inputs.
};

struct Camera {
    uint32_t id = 0;
    PlatFormIntCallbacks slots{};
    std::vector<Image> images{};
    std::vector<void*> setMetadata{};

    // The model's part.
    bool exists = false;
    bool hasMetadata = false, hasBuffers = false; ///< Operations.
    uint32_t table = NoTable;                     ///< Of the last submission, as the next one.
    Framework::Kind framework = Framework::NoOps;
    using Identity = std::tuple<camera3_stream*, uint32_t, std::string>;
    using Chain = std::pair<Identity, Session*>; ///< Null for handle 0.
    std::map<camera3_stream*, std::vector<Chain>> chains;
    std::map<Identity, Session*> links;
    bool hasZeroRecord = false; ///< The record of a failed opening.
    struct Manager {
        bool isThere;
        size_t images;
    };
    std::map<const camera3_stream*, Manager> managers;
};

/// What stays on the heap: records of requests, of their formats, of their buffers, of sessions,
/// and chains.
struct Left {
    size_t requests, formats, buffers, sessions, chains;
};

/// What comes of a call of an entry: status 0 also where the library cannot make it.
struct Answered {
    bool works = false;
    uint32_t status = 0;
    operator bool() const { return works; }
};

inline constexpr size_t kConfigRows = 2;

class Model {
  public:
    explicit Model(bool hasInterface) : mHasInterface(hasInterface) {}

    /// The device's script as it was last told; both use up their faults alike.
    standin::Script script = StandinControl()->Internals().Lock()->script;
    Framework answer;

    // --- What must be seen at the end

    standin::Alive alive{};
    std::array<size_t, static_cast<size_t>(Entry::Count)> calls{};
    std::set<Rule> broken; ///< Rules that the input itself breaks, or has the vendor break.
    Left left{};

    // --- The library

    Answered Call(Entry entry);
    /// The same where the table of operations may be missing, or the entry in it.
    Answered Ask(bool hasTable, Entry entry) {
        return hasTable && Has(entry) ? Call(entry) : Answered{};
    }
    Answered Interface(Entry entry) { return Ask(mHasInterface, entry); }
    Answered Metadata(const Camera& camera, Entry entry) { return Ask(camera.hasMetadata, entry); }
    Answered Buffers(const Camera& camera, Entry entry) { return Ask(camera.hasBuffers, entry); }
    bool Has(Entry entry) const { return !script.missing[static_cast<size_t>(entry)]; }
    bool HasInterface(Entry entry) const { return mHasInterface && Has(entry); }

    void Create(Camera& camera);
    void Destroy(Camera& camera);
    void Flush(Camera& camera);
    void TearDown(Camera& camera);
    /// \returns whether a buffer must come; it may only if the stream is one of images.
    bool GetImage(Camera& camera, const camera3_stream& stream, bool isImage);
    void ReleaseImage(Camera& camera, const camera3_stream& stream);
    /// A record for a request to the camera, null if all are in use.
    Request* NewRequest(Camera& camera);
    /// \returns the status, after all that comes back during the call.
    uint32_t Submit(Request& request);
    void Deliver(Request& request, Shape withShape);
    void Receive(Request& request, const Delivered& result);

    std::array<Request, 6> requests{};

    // --- The checks

    /// After each step all requests have been told what they must, and no more.
    void CheckRequests();
    /// At the end the device has seen what it must, and has what it must.
    void CheckDevice() const;

  private:
    Session* FindSession(Camera& camera, const Request& request);
    void Generate(Camera& camera, const Request& request);
    Session* Open(Camera& camera, const Request& request);
    bool Configure(Camera& camera, Session* session, const Request& request);
    void Close(Camera& camera, Session* session);
    uint32_t Start(Request& request);
    bool Feed(const Session& session, Request& request);
    void Tolerate(const Session& session, const Request& request);
    void AskFramework(Request& request);
    void Report(Request& request, const Delivered& result);
    void Complete(Request& request, const Delivered& result);
    void Emit(Request& request, const Event& event);
    void Breaks(Rule rule, bool isBroken) {
        if (isBroken) {
            broken.insert(rule);
        }
    }
    void TakeImages();
    void Lose(const void* owner);

    bool mHasInterface;
    size_t mExecutions = 0;
    std::list<Session> mSessions;
};

/// The library's records that stay, by their sizes. Where a session or a chain stays, what else
/// belongs to them is not counted.
void CheckHeap(const std::map<size_t, size_t>& blocks, const Left& left);

} // namespace fuzz
