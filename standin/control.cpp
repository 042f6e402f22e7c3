/// The script, the records and the live objects behind the control object.
#include "standin/session.h"

#include <dlfcn.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace standin {
namespace {

#define STANDIN_ENTRY(name, failure) #name,
constexpr std::array kNames{STANDIN_ENTRIES(STANDIN_ENTRY)};
#undef STANDIN_ENTRY
#define STANDIN_ENTRY(name, failure) uint64_t{failure},
constexpr std::array kFailures{STANDIN_ENTRIES(STANDIN_ENTRY)};
#undef STANDIN_ENTRY

constexpr size_t kMostViolations = 1000; ///< More of them say nothing new.
constexpr unsigned char kTraceBit = 1U << 6;

/// The device root of which this library is a part: it lies in system/lib64.
std::string OwnDeviceRoot() {
    Dl_info info{};
    if (dladdr(std::bit_cast<void*>(&StandinControl), &info) == 0) {
        return {};
    }
    const auto folder = std::filesystem::absolute(info.dli_fname).lexically_normal().parent_path();
    return folder.parent_path().parent_path().string();
}

} // namespace

const char* EntryName(Entry entry) { return kNames.at(static_cast<size_t>(entry)); }

uint64_t FailureOf(Entry entry) { return kFailures.at(static_cast<size_t>(entry)); }

void Arguments::Add(const char* argument) {
    text += text.empty() ? "" : "/";
    text += argument == nullptr ? "(null)" : argument;
}

void Arguments::Add(ChiMetadataOpsOpenInfo* info) {
    Add<const void*>(info);
    if (info != nullptr) {
        (Add(info->cameraId), Add(info->reserved4), Add(info->reserved8), Add(info->reserved12));
    }
}

void Arguments::Add(const ChiBufferManagerCreateData* data) {
    Add<const void*>(data);
    if (data != nullptr) {
        (Add(data->width), Add(data->height), Add(data->format), Add(data->pStream));
    }
}

Entry& CurrentEntry() {
    thread_local Entry entry = Entry::ExecuteRequest;
    return entry;
}

contract::Violation NewViolation(Rule rule) {
    const char* const entry = EntryName(CurrentEntry());
    return {.rule = rule, .event = 0, .text = std::string(entry) + ": ", .entry = entry};
}

std::optional<uint64_t> Control::State::Enter(Entry entry, const Arguments& arguments) {
    const auto state = Lock();
    ++records.counts[entry];
    if (script.recording) {
        const auto* words = arguments.words.data();
        records.calls.push_back({entry, {words, words + arguments.count}, arguments.text});
    }
    const auto found = script.faults.find(entry);
    if (found == script.faults.end() || found->second.times == 0) {
        return std::nullopt;
    }
    Fault& fault = found->second;
    const bool fails = fault.wait == 0;
    --(fails ? fault.times : fault.wait);
    return fails ? std::optional(fault.result) : std::nullopt;
}

std::string Control::State::FileOf(const std::string& devicePath) {
    const auto state = Lock();
    if (script.refused.contains(devicePath)) {
        return deviceRoot + "/refused" + devicePath;
    }
    const auto variant = script.variants.find(devicePath);
    return deviceRoot +
           (variant == script.variants.end() ? devicePath : "/variants/" + variant->second);
}

std::string Control::State::LayerAt(const std::string& devicePath) {
    const auto state = Lock();
    const auto found = layers.find(devicePath);
    return found == layers.end() ? "" : found->second;
}

std::string Control::State::BehindLayer(const std::string& devicePath) {
    const auto state = Lock();
    for (const auto& [path, file] : layers) {
        if (devicePath == std::filesystem::path(path).replace_extension(".real.so")) {
            return path;
        }
    }
    return devicePath;
}

void Slot::Set(const Script& script) const {
    void* const chosen = script.missing[static_cast<size_t>(entry)] ? nullptr
                         : script.instant                           ? instant
                                                                    : function;
    // What stays is not written: threads may be calling through it.
    if (std::memcmp(place, &chosen, sizeof chosen) != 0) {
        std::memcpy(place, &chosen, sizeof chosen);
    }
}

void Control::State::FillSlots() {
    for (const auto& [record, list] : slots) {
        for (const Slot& slot : list) {
            slot.Set(script);
        }
    }
}

void Control::State::SetTraceBit(bool on) {
    if (pTraceByte != nullptr) {
        *pTraceByte = on ? *pTraceByte | kTraceBit : *pTraceByte & ~kTraceBit;
    }
}

/// The request is the caller's alone then.
Job Control::State::TakeWaiting(size_t executionIndex) {
    auto taken = Lock()->waiting.extract(executionIndex);
    if (taken.empty()) {
        throw std::logic_error("Deliver: no execution " + std::to_string(executionIndex) +
                               " waits");
    }
    Job job = std::move(taken.mapped());
    return job;
}

Control::Control() : mState(std::make_unique<State>()) { mState->deviceRoot = OwnDeviceRoot(); }

Control::~Control() = default;

void Control::Reset() {
    auto dropped = std::exchange(mState->Lock()->objects, {});
    for (const auto& [handle, session] : std::get<Objects<Session>>(dropped)) {
        session->Stop();
    }
    dropped = {};
    mState->watch.Reset();
    mState->isWatched = true;
    const auto state = mState->Lock();
    state->script = {};
    state->FillSlots();
    state->instantResults.clear();
    state->records = {};
    state->nextFrame = 1;
    state->SetTraceBit(false);
}

std::string Control::DeviceRoot() const { return mState->Lock()->deviceRoot; }

void Control::Fail(Entry entry, uint64_t result, uint32_t nth, uint32_t times) {
    mState->Lock()->script.faults[entry] = {result, nth == 0 ? 0 : nth - 1, times};
}

void Control::SetMissing(Entry entry, bool missing) {
    if (entry < Entry::OpenSession || entry > Entry::GetCPUAddress) {
        throw std::logic_error(std::string("SetMissing: no table has ") + EntryName(entry));
    }
    const auto state = mState->Lock();
    state->script.missing.set(static_cast<size_t>(entry), missing);
    state->FillSlots();
}

void Control::RefuseLibrary(const std::string& path) {
    mState->Lock()->script.refused.insert(path);
}

void Control::UseVariant(const std::string& path, const std::string& variant) {
    mState->Lock()->script.variants[path] = variant;
}

void Control::PutLayer(const std::string& path, const std::string& file) {
    const auto state = mState->Lock();
    state->layers.erase(path);
    if (!file.empty()) {
        state->layers.emplace(path, file);
    }
}

void Control::SetDelivery(Delivery delivery) { mState->Lock()->script.delivery = delivery; }

void Control::SetShape(Shape shape) { mState->Lock()->script.shape = shape; }

void Control::SetPace(std::chrono::microseconds latency, Order order, uint32_t seed) {
    const auto state = mState->Lock();
    state->script.latency = latency;
    state->script.order = order;
    state->script.random = seed;
}

void Control::SetObserver(Observer* observer) { mState->observer = observer; }

void Control::SetAnswerer(Answerer* answerer) { mState->answerer = answerer; }

void Control::SetWhenExecuted(WhenExecuted act) {
    mState->Lock()->script.whenExecuted = std::move(act);
}

void Control::SetTracePoints(bool on) { mState->Lock()->SetTraceBit(on); }

void Control::SetAsksForFrameworkBuffers(bool asks) {
    mState->Lock()->script.asksForFrameworkBuffers = asks;
}

void Control::SetRecording(bool on) { mState->Lock()->script.recording = on; }

void Control::SetInstant(bool on) {
    const auto state = mState->Lock();
    state->script.instant = on;
    state->FillSlots();
}

void Control::SetConfigRows(std::vector<ConfigRow> rows) {
    mState->Lock()->script.configRows = std::move(rows);
}

std::vector<Call> Control::Calls() const { return mState->Lock()->records.calls; }

std::vector<Call> Control::Calls(Entry entry) const {
    auto calls = Calls();
    std::erase_if(calls, [entry](const Call& call) { return call.entry != entry; });
    return calls;
}

size_t Control::CallCount(Entry entry) const { return mState->Lock()->records.counts[entry]; }

std::vector<LogRecord> Control::Logs() const { return mState->Lock()->records.logs; }

std::vector<Execution> Control::Executions() const {
    std::vector<Execution> executions;
    const auto state = mState->Lock();
    for (const auto& execution : state->records.executions) {
        executions.push_back(*execution);
    }
    return executions;
}

std::vector<SessionCopy> Control::Sessions() const {
    std::vector<SessionCopy> copies;
    const auto state = mState->Lock();
    for (const auto& [handle, session] : state->Of<Session>()) {
        copies.push_back(session->data);
        copies.back().name = session->pName == nullptr ? "" : session->pName;
    }
    return copies;
}

ChiBufferManagerHandle Control::ManagerOf(ChiImageBufferHandle imageBuffer) const {
    const auto image = Find<ImageBuffer>(imageBuffer);
    return image == nullptr ? nullptr : As<ChiBufferManagerHandle>(image->manager);
}

std::vector<std::string> Control::Violations() const {
    std::vector<std::string> lines;
    for (const contract::Violation& violation : FoundViolations()) {
        lines.push_back(contract::LineOf(violation));
    }
    return lines;
}

std::vector<contract::Violation> Control::FoundViolations() const {
    return mState->Lock()->records.violations;
}

Alive Control::CountAlive() const {
    const auto count = [](const auto&... kinds) { return Alive{kinds.size()...}; };
    return std::apply(count, mState->Lock()->objects);
}

void Control::ClearRecords() {
    Records fresh;
    const auto state = mState->Lock();
    if (!state->waiting.empty()) {
        fresh.executions = state->records.executions;
        fresh.executionCount = state->records.executionCount;
    }
    state->records = std::move(fresh);
}

void Control::Deliver(size_t executionIndex, Shape shape) {
    Job job = mState->TakeWaiting(executionIndex);
    job.shape = shape;
    job.session->Deliver(job);
}

bool Control::DeliverNext(size_t executionIndex) {
    Job job = mState->TakeWaiting(executionIndex);
    const bool isLast = job.session->DeliverNext(job);
    if (!isLast) {
        mState->Lock()->waiting.emplace(executionIndex, std::move(job));
    }
    return isLast;
}

void Control::DeliverInstant() {
    for (const InstantResult& result : mState->instantResults) {
        result.Deliver();
    }
    mState->instantResults.clear();
}

Observer::~Observer() = default;
Answerer::~Answerer() = default;

void Control::WaitIdle() {
    std::unique_lock lock(mState->mutex);
    mState->idle.wait(lock, [this] { return mState->inFlight == 0; });
}

contract::Tap* Control::Feed() { return mState->isWatched ? mState->watch.Feed() : nullptr; }

void Control::SetFeed(bool on) { mState->isWatched = on; }

void Control::RecordFeed(const std::string& file, uint64_t bytes) {
    mState->watch.Record(file, bytes);
}

void Control::Report(const contract::Violation& violation) {
    const auto state = mState->Lock();
    if (state->records.violations.size() < kMostViolations) {
        state->records.violations.push_back(violation);
    }
}

void Control::CheckAllReturned() { mState->watch.CheckAllReturned(); }

// --- Watch --------------------------------------------------------------------------------------

Watch::Watch()
    : mEngine([](const contract::Violation& violation) { StandinControl()->Report(violation); }) {
    std::string problem; // Without memory, nothing is watched.
    mTap = contract::Tap::Open({.follower = this}, problem);
}

void Watch::Record(const std::string& file, uint64_t bytes) {
    std::string problem;
    mTap = contract::Tap::Open({.file = file, .bytes = bytes}, problem);
    if (mTap == nullptr) {
        throw std::runtime_error(problem);
    }
}

void Watch::Take(const contract::Event& event, bool /*isOwn*/) {
    const std::lock_guard lock(mMutex);
    mEngine.Take(event);
}

void Watch::CheckAllReturned() {
    const std::lock_guard lock(mMutex);
    mEngine.CheckAllReturned();
}

void Watch::Reset() {
    const std::lock_guard lock(mMutex);
    mEngine.Reset();
}

} // namespace standin

standin::Control* StandinControl() {
    // Never destroyed: sessions that a program leaves open use it while the process ends.
    static auto* const control = new standin::Control;
    return control;
}
