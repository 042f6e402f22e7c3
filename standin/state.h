/// What the stand-in libraries share behind the control object: script, records, live objects, and
/// the shell around every entry.
#pragma once

#include "contract/checks.h"
#include "contract/tap.h"
#include "standin/control.h"

#include <array>
#include <atomic>
#include <bit>
#include <bitset>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <tuple>
#include <type_traits>

namespace standin {

struct Session;

inline constexpr int32_t kOk = 0;
inline constexpr int32_t kFailed = 1;

/// The value of an integer or a pointer as a word, and back.
template <class T> uint64_t Word(T value) { return static_cast<uint64_t>(value); }
template <class T> uint64_t Word(T* value) { return reinterpret_cast<uint64_t>(value); }
template <class T> T As(uint64_t word) { return static_cast<T>(word); }
template <class T>
requires std::is_pointer_v<T> T As(uint64_t word) { return std::bit_cast<T>(word); }

/// The arguments of one call, as the record keeps them.
struct Arguments {
    std::array<uint64_t, 8> words{};
    size_t count = 0;
    std::string text;

    template <class... Args> explicit Arguments(const Args&... args) { (Add(args), ...); }
    template <class T> void Add(T value) { words[count++] = Word(value); }
    void Add(const char* argument);
    void Add(ChiMetadataOpsOpenInfo* info);
    void Add(const ChiBufferManagerCreateData* data);
};

// --- Live objects

// A handle has the mark of its kind in the top byte and a number that is never given out twice, so
// that a stale one is always caught. It points nowhere.

using Tags = std::map<uint32_t, std::vector<uint8_t>>;

struct Metadata {
    static constexpr char kMark = 'M';
    Tags tags;
};

struct AndroidMetadata {
    static constexpr char kMark = 'A';
    Tags tags;
};

struct BufferManager {
    static constexpr char kMark = 'B';
    ChiBufferManagerCreateData data;
};

struct ImageBuffer {
    static constexpr char kMark = 'I';
    uint64_t manager;
    uint32_t format;
    uint32_t width;
    uint32_t height;
    std::vector<uint8_t> memory;
};

struct Script;

/// Where an operation table holds the pointer of an entry, and what the script chooses from.
struct Slot {
    Entry entry;
    void* place;
    void* function;
    void* instant;

    void Set(const Script& script) const;
};
using SlotList = std::vector<Slot>;

/// An operation table. Its handle is the record's address. `fill` lists its slots, which
/// `SetMissing` reaches as long as the table lives.
template <class Record> struct Table {
    Record record{};

    explicit Table(void (*fill)(SlotList&, Record&));
    ~Table();
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
};
using MetadataOps = Table<ChiOfflineMetadataOps>;
using BufferOps = Table<ChiOfflineBufferManagerOps>;

template <class T> using Objects = std::map<uint64_t, std::shared_ptr<T>>;

// --- Script and records

struct Fault {
    uint64_t result;
    uint32_t wait;  ///< Calls that still succeed.
    uint32_t times; ///< Calls that fail then.
};

struct Script {
    std::map<Entry, Fault> faults;
    std::bitset<static_cast<size_t>(Entry::Count)> missing;
    std::set<std::string> refused;
    std::map<std::string, std::string> variants;
    Delivery delivery = Delivery::OnSessionThread;
    Shape shape = Shape::MetadataFirst;
    Order order = Order::InOrder;
    uint32_t random = 0; ///< The last number of the sequence that shuffles.
    std::chrono::microseconds latency{};
    bool asksForFrameworkBuffers = false;
    bool recording = true;
    bool instant = false;
    std::optional<std::vector<Control::ConfigRow>> configRows;
    WhenExecuted whenExecuted;
};

struct Records {
    std::map<Entry, size_t> counts;
    std::vector<Call> calls;
    std::vector<LogRecord> logs;
    std::vector<contract::Violation> violations;
    std::vector<std::shared_ptr<const Execution>> executions;
    size_t executionCount = 0; ///< Also those that are not kept.
};

/// An accepted request on its way to its results.
struct Job {
    std::shared_ptr<Session> session;
    std::shared_ptr<const Execution> execution;
    Shape shape;
    bool asksForFrameworkBuffers;
    size_t delivered = 0;     ///< Results of the shape.
    ChiStreamBuffer output{}; ///< Ready once the first result was delivered.
};

/// The result of an instant request. An instant session's handle is the address of its callbacks.
struct InstantResult {
    const ChiOfflineSessionCallbacks* callbacks;
    ChiOfflineBufferSet output;
    void* privateData;
    uint32_t frame;

    void Deliver() const {
        ChiOfflineResultBlock block{1, output.pBuffers, 0, output.pMetadata};
        ChiOfflineCaptureResultInfo info{frame, &block, nullptr, privateData};
        callbacks->ProcessCaptureResultCb(callbacks, 1, &info);
    }
};

/// The contract's rules, over what crosses the boundary in this process.
class Watch : contract::Follower {
  public:
    Watch();

    /// Null where there is no memory for it.
    contract::Tap* Feed() const { return mTap.get(); }
    void Record(const std::string& file, uint64_t bytes);
    void CheckAllReturned();
    void Reset(); ///< For a device on which nothing is alive.

  private:
    void Take(const contract::Event& event, bool isOwn) override;

    std::mutex mMutex; ///< Guards the engine. The state's own mutex may be taken while it is held.
    contract::Engine mEngine;
    std::unique_ptr<contract::Tap> mTap;
};

/// One mutex guards all of it. It is never held while the adapter is called back.
struct Control::State {
    /// Access to the state for as long as this lives.
    struct Unlock {
        std::unique_lock<std::mutex> lock;
        void operator()(State* /*state*/) { lock.unlock(); }
    };
    using Locked = std::unique_ptr<State, Unlock>;
    Locked Lock() { return {this, {std::unique_lock(mutex)}}; }

    std::mutex mutex;
    std::condition_variable idle; ///< Signalled when `inFlight` falls.
    std::string deviceRoot;
    Script script;
    std::map<std::string, std::string> layers; ///< By path.
    Records records;
    std::tuple<Objects<Session>, Objects<Metadata>, Objects<AndroidMetadata>,
               Objects<BufferManager>, Objects<ImageBuffer>, Objects<MetadataOps>,
               Objects<BufferOps>>
        objects; ///< In the order of `Alive`.
    uint64_t lastSerial = 0;
    int32_t nextFrame = 1;
    size_t inFlight = 0;           ///< Requests queued or being delivered on session threads.
    std::map<size_t, Job> waiting; ///< For `Deliver`, by the index of the execution.
    std::vector<InstantResult> instantResults; ///< For `DeliverInstant`. Not guarded.
    std::map<const void*, SlotList> slots;     ///< By the record.
    unsigned char* pTraceByte = nullptr; ///< The byte with the trace bit, in the context library.
    std::atomic<Observer*> observer = nullptr;
    std::atomic<Answerer*> answerer = nullptr;
    Watch watch; ///< Has a lock of its own.
    std::atomic<bool> isWatched = true;

    /// Takes a request out of those that wait. Throws std::logic_error if it does not.
    Job TakeWaiting(size_t executionIndex);

    /// What somebody else answers in the device's place.
    std::optional<uint64_t> Ask(Entry entry, std::initializer_list<uint64_t> words) const {
        Answerer* const asked = answerer;
        return asked == nullptr ? std::nullopt
                                : asked->Answer(entry, {words.begin(), words.size()});
    }

    /// Records a call. Has a value if the call is to fail: its result.
    std::optional<uint64_t> Enter(Entry entry, const Arguments& arguments);

    /// The file that opens for a path on the device; one that does not exist where it is refused.
    std::string FileOf(const std::string& devicePath);

    /// The file of the layer that stands at a path, empty for none; and the path that a layer opens
    /// what it stands for by, as the device has it.
    std::string LayerAt(const std::string& devicePath);
    std::string BehindLayer(const std::string& devicePath);

    /// These two are for whoever holds the lock.
    void FillSlots(); ///< By the script.
    void SetTraceBit(bool on);
    template <class T> Objects<T>& Of() { return std::get<Objects<T>>(objects); }
};

inline Control::State& Device() { return StandinControl()->Internals(); }

/// Something that the observer shall see as long as this lives.
struct EndActivity {
    void operator()(Observer* observer) const { observer->End(); }
};
using Activity = std::unique_ptr<Observer, EndActivity>;
inline Activity Begin(const char* what) {
    Activity activity(Device().observer);
    if (activity != nullptr) {
        activity->Begin(what);
    }
    return activity;
}

// --- Rules of the contract that events do not show

/// The entry that the calling thread is in, which violations name. A session's own thread works on
/// executed requests.
Entry& CurrentEntry();

/// Of this entry, and nothing is said yet.
contract::Violation NewViolation(Rule rule);

/// If the rule does not hold, the parts become the violation's text. Returns whether it holds.
template <class... Parts> bool Check(Rule rule, bool holds, const Parts&... parts) {
    if (!holds) {
        contract::Violation violation = NewViolation(rule);
        (contract::AddPart(violation, parts), ...);
        StandinControl()->Report(violation);
    }
    return holds;
}
/// Takes an object in and returns its new handle.
template <class T> void* Adopt(std::shared_ptr<T> object) {
    const auto device = Device().Lock();
    const uint64_t handle = uint64_t{T::kMark} << 56 | ++device->lastSerial;
    device->Of<T>().emplace(handle, std::move(object));
    return As<void*>(handle);
}

/// The object behind a handle, null if it is not alive.
template <class T> std::shared_ptr<T> Find(auto handle) {
    const auto device = Device().Lock();
    const auto found = device->Of<T>().find(Word(handle));
    return found == device->Of<T>().end() ? nullptr : found->second;
}

/// The same, and takes it out.
template <class T> std::shared_ptr<T> Remove(auto handle) {
    auto node = Device().Lock()->template Of<T>().extract(Word(handle));
    return node.empty() ? nullptr : node.mapped();
}

template <class Record> Table<Record>::Table(void (*fill)(SlotList&, Record&)) {
    const auto device = Device().Lock();
    SlotList& slots = device->slots[&record];
    fill(slots, record);
    for (const Slot& slot : slots) {
        slot.Set(device->script);
    }
}

template <class Record> Table<Record>::~Table() { Device().Lock()->slots.erase(&record); }

// --- The shell around an entry's function: records the call, then applies the fault or calls it.
// The contract is watched from outside of both.

/// Acts, before the eyes of the rules where there are any. The arguments are those of the entry.
template <contract::Entry E, class Act, class... Args> auto Watched(Act act, Args... args) {
    return contract::Around<E>(StandinControl()->Feed(), act, args...);
}

/// Those of the vendor's interface stand in the same order in both lists.
constexpr bool IsInterface(Entry entry) {
    return entry >= Entry::OpenContext && entry <= Entry::GetCPUAddress;
}
constexpr contract::Entry AsEvent(Entry entry) {
    return static_cast<contract::Entry>(static_cast<uint32_t>(entry) +
                                        static_cast<uint32_t>(contract::Entry::OpenContext) -
                                        static_cast<uint32_t>(Entry::OpenContext));
}
static_assert(AsEvent(Entry::GetCPUAddress) == contract::Entry::GetCPUAddress);

template <Entry Name, auto Function> struct Recorded;
template <Entry Name, class R, class... Args, R (*Function)(Args...)>
struct Recorded<Name, Function> {
    static R Call(Args... args) {
        const Activity activity = Begin(EntryName(Name));
        if constexpr (IsInterface(Name)) {
            return Watched<AsEvent(Name)>([&] { return Act(args...); }, args...);
        } else {
            return Act(args...);
        }
    }

  private:
    static R Act(Args... args) {
        if (const auto fault = Device().Enter(Name, Arguments(args...))) {
            return As<R>(*fault);
        }
        if constexpr (IsInterface(Name)) {
            if (const auto answer = Device().Ask(Name, {Word(args)...})) {
                return As<R>(*answer);
            }
        }
        const struct Scope {
            Entry outer = std::exchange(CurrentEntry(), Name);
            ~Scope() { CurrentEntry() = outer; }
        } scope;
        return Function(args...);
    }
};

/// What an instant device has in an entry's place: a success, with an object that is none.
template <class Function> struct Nothing;
template <class R, class... Args> struct Nothing<R (*)(Args...)> {
    static R Call(Args...) {
        if constexpr (std::is_same_v<R, void*>) {
            static uint64_t something;
            return &something;
        } else {
            return R();
        }
    }
};

/// Lists an entry for its table's place.
template <Entry Name, auto Function, auto Instant = Nothing<decltype(Function)>::Call>
void Install(SlotList& list, decltype(Function)& place) {
    list.push_back({Name, &place, std::bit_cast<void*>(&Recorded<Name, Function>::Call),
                    std::bit_cast<void*>(Instant)});
}

// --- The tables that the offline interface opens

ChiOfflineMetadataOps* OpenMetadataOps(ChiOfflineInterface*, ChiMetadataOpsOpenInfo* info);
ChiOfflineBufferManagerOps* OpenBufferOps(ChiOfflineInterface*);

template <class Record> Record* OpenTable(void (*fill)(SlotList&, Record&)) {
    const auto table = std::make_shared<Table<Record>>(fill);
    Device().Lock()->template Of<Table<Record>>().emplace(Word(&table->record), table);
    return &table->record;
}

} // namespace standin
