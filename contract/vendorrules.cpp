/// What crosses the boundary to the vendor, held against what both may expect.
#include "contract/vendorrules.h"

#include <algorithm>
#include <cstdlib>

namespace contract {
namespace {

constexpr uint32_t kVersion = 512;
constexpr uint32_t kAnyCount = 0xFFFFFFFF;
constexpr int32_t kUnsetFrame = -1;
constexpr uint64_t kMostReported = 8; ///< Buffers of a result; the adapter reads no more.

bool IsRaw(const Stream& stream) {
    return stream.format == ChiStreamFormatRaw16 || stream.format == ChiStreamFormatRaw10;
}

uint64_t AddressOf(const void* pointer) { return Handle(pointer).word; }

/// The records that lie in a row from an address on, but no more than this number.
template <class T>
std::span<const T> Some(const Event& event, const void* address, uint32_t number) {
    const auto all = event.All<T>(address);
    return all.first(std::min<size_t>(all.size(), number));
}

bool Worked(const Event& event) { return static_cast<uint32_t>(event.Result()) == 0; }

} // namespace

const Stream* VendorRules::Session::FindStream(uint64_t address) const {
    for (const ListedStream& listed : list) {
        if (listed.address == address && listed.stream.has_value()) {
            return &*listed.stream;
        }
    }
    return nullptr;
}

bool VendorRules::Session::Lists(uint64_t address) const {
    return std::any_of(list.begin(), list.end(),
                       [address](const ListedStream& listed) { return listed.address == address; });
}

// --- Objects of all kinds -----------------------------------------------------------------------

/// One that must be alive; null where it is not, or where that cannot be known. `past` is what is
/// said of one that once was.
template <class T>
T* VendorRules::Require(Objects<T>& all, uint64_t handle, Rule rule, const char* past) {
    T* const object = all.Find(handle);
    const bool wasAlive = all.WasAlive(handle);
    const bool isUnknown = mChecks.isLate && handle != 0 && !wasAlive;
    mChecks.Check(rule, object != nullptr || isUnknown, Handle(handle), " is not a live ",
                  T::kKind.name, ": ", wasAlive ? past : "never existed");
    return object;
}

/// From the call on the handle may be a new object's.
template <class T> T* VendorRules::BeginEnd(Objects<T>& all, uint64_t handle, PendingCall& call) {
    T* const object = Require(all, handle, T::kKind.returned, "destroyed twice");
    call.key = handle;
    if (object != nullptr && object->given > 1) {
        --object->given; // What was given twice comes back twice.
    } else if (object != nullptr) {
        object->isGoing = true;
        call.serial = object->serial;
    }
    return object;
}

template <class T>
void VendorRules::FinishEnd(Objects<T>& all, const PendingCall& call, bool worked) {
    T* const object = all.FindAny(call.key);
    const bool isIt = object != nullptr && object->serial == call.serial;
    if (isIt) {
        object->isGoing = false;
    }
    // One whose birth was not seen is known from now on, as gone.
    if (worked && (isIt || (object == nullptr && mChecks.isLate))) {
        all.Remove(call.key);
    }
}

/// \returns the new object, null where the vendor gave none.
template <class T> T* VendorRules::Adopt(Objects<T>& all, uint64_t handle, Rule fresh, T object) {
    if (handle == 0) {
        return nullptr;
    }
    const T* const other = all.Find(handle);
    mChecks.Check(fresh, other == nullptr, Handle(handle), " is a live ", T::kKind.name,
                  " already");
    object.given += other == nullptr ? 0 : other->given;
    object.serial = ++mLastSerial;
    return &all.Add(handle, std::move(object));
}

template <class T> void VendorRules::CheckLeft(Objects<T>& all) {
    size_t count = 0;
    uint64_t oldest = 0;
    const T* first = nullptr;
    for (auto& [handle, object] : all.All()) {
        if (!std::exchange(object.wasReported, true)) {
            ++count;
            if (first == nullptr || object.serial < first->serial) {
                oldest = handle;
                first = &object;
            }
        }
    }
    std::string name;
    if constexpr (std::is_same_v<T, Session>) {
        name = first == nullptr ? "" : " \"" + first->name + '"';
    }
    mChecks.Check(T::kKind.returned, count == 0, count, " ", T::kKind.name, count == 1 ? "" : "s",
                  " left, such as ", Handle(oldest), name);
}

void VendorRules::CheckAllReturned() {
    mChecks.Begin(0, "at the end");
    CheckLeft(mSessions);
    CheckLeft(mMetadata);
    CheckLeft(mAndroid);
    CheckLeft(mManagers);
    CheckLeft(mImages);
    CheckLeft(mMetadataOps);
    CheckLeft(mBufferOps);
}

// --- Every call, and every return ---------------------------------------------------------------

void VendorRules::OnCall(const Event& event, PendingCall& call, const Calls& outer) {
    const Entry entry = event.Of();
    if (entry == Entry::CloseSession) {
        CloseSession(event, call, outer);
    } else if (entry == Entry::ExecuteRequest) {
        CheckExecution(event, call, outer);
    } else if (entry < Entry::MetadataOpsClose) {
        CallInterface(event, call);
    } else if (entry < Entry::BufferOpsClose) {
        CallMetadata(event, call);
    } else if (entry < Entry::ProcessCaptureResult) {
        CallBuffers(event, call);
    } else {
        CallBack(event, call);
    }
}

void VendorRules::OnReturn(const Event& event, const PendingCall& call) {
    const Entry entry = event.Of();
    if (entry < Entry::MetadataOpsClose) {
        ReturnOfInterface(event, call);
    } else if (entry < Entry::BufferOpsClose) {
        ReturnOfMetadata(event, call);
    } else if (entry < Entry::ProcessCaptureResult) {
        ReturnOfBuffers(event, call);
    } else if (entry == Entry::GetFrameworkBuffers) {
        OnLent(event);
    }
}

void VendorRules::CallInterface(const Event& event, PendingCall& call) {
    switch (event.Of()) {
    case Entry::OpenContext:
        CheckContext(event);
        break;
    case Entry::OpenSession:
        CheckOpening(event, call);
        break;
    case Entry::ConfigureStreams:
        CheckConfiguration(event, call);
        break;
    case Entry::OpenMetadataOps:
        CheckOpenInfo(event, call);
        break;
    case Entry::TranslateToChiBuffer:
    case Entry::TranslateFromChiBuffer:
        mChecks.Check(Rule::Translation, event.Word(0) != 0 && event.Word(1) != 0,
                      "a buffer is null");
        break;
    default:
        break;
    }
}

void VendorRules::ReturnOfInterface(const Event& event, const PendingCall& call) {
    switch (event.Of()) {
    case Entry::OpenSession:
        OpenSession(event, call);
        break;
    case Entry::CloseSession:
        Closed(call, Worked(event));
        break;
    case Entry::ConfigureStreams:
        Configured(event, call);
        break;
    case Entry::ExecuteRequest:
        Executed(event, call);
        break;
    case Entry::OpenMetadataOps:
        OpenedTable(event, call, mMetadataOps);
        break;
    case Entry::OpenBufferOps:
        OpenedTable(event, call, mBufferOps);
        break;
    default:
        break;
    }
}

// --- Sessions -----------------------------------------------------------------------------------

void VendorRules::CheckContext(const Event& event) {
    mChecks.Expect(Rule::OpenArguments, "the first argument", Handle(event.Word(0)), Handle());
    mChecks.Expect(Rule::OpenArguments, "the second argument", static_cast<uint32_t>(event.Word(1)),
                   kVersion);
}

void VendorRules::CheckOpening(const Event& event, PendingCall& call) {
    const auto* info = event.At<ChiOfflineSessionCreateInfo>(event.Word(1));
    mChecks.Check(Rule::SessionRecord,
                  info == nullptr ? event.Word(1) != 0
                                  : info->pSessionName != nullptr && info->pCallbacks != nullptr,
                  "the create record, its name or its callbacks are null");
    if (info == nullptr) {
        return;
    }
    call.key = AddressOf(info->pCallbacks);
    call.name = event.TextAt(AddressOf(info->pSessionName));
    mOpening.push_back(call.key);
    const auto* callbacks = event.At<ChiOfflineSessionCallbacks>(info->pCallbacks);
    if (callbacks == nullptr || info->pSessionName == nullptr ||
        !mChecks.Check(Rule::SessionRecord,
                       callbacks->ProcessCaptureResultCb != nullptr &&
                           callbacks->ProcessNotifyCb != nullptr &&
                           callbacks->GetFrameworkBuffers != nullptr,
                       "a callback is null")) {
        return;
    }
    mChecks.Expect(Rule::SessionRecord, "the shared handle", info->sharedSessionHandle,
                   uint64_t{0});
    mChecks.Expect(Rule::SessionRecord, "the callbacks' fourth word", Handle(callbacks->reserved24),
                   Handle());
}

void VendorRules::OpenSession(const Event& event, const PendingCall& call) {
    const auto opening = std::find(mOpening.begin(), mOpening.end(), call.key);
    if (opening != mOpening.end()) {
        mOpening.erase(opening);
    }
    Session session;
    session.name = call.name;
    session.callbacks = call.key;
    session.opening = call.call;
    if (Adopt(mSessions, event.Result(), Rule::NewSession, std::move(session)) != nullptr) {
        mCallbacks[call.key] = event.Result();
    }
}

void VendorRules::CloseSession(const Event& event, PendingCall& call, const Calls& outer) {
    const uint64_t handle = event.Word(0);
    if (BeginEnd(mSessions, handle, call) == nullptr) {
        return;
    }
    const bool isOwn = std::any_of(outer.begin(), outer.end(), [handle](const PendingCall& each) {
        return each.entry >= Entry::ProcessCaptureResult && each.session == handle;
    });
    mChecks.Check(Rule::SessionCloser, !isOwn, "a session's own thread closes it");
}

/// What the session works on never comes back.
void VendorRules::Closed(const PendingCall& call, bool worked) {
    const Session* const session = mSessions.FindAny(call.key);
    if (worked && session != nullptr && session->serial == call.serial) {
        mCallbacks.erase(session->callbacks);
        Remember(mClosedCallbacks, session->callbacks);
        std::erase_if(mExecutions,
                      [&](const auto& each) { return each.second.session == call.key; });
    }
    FinishEnd(mSessions, call, worked);
}

// --- Configuration ------------------------------------------------------------------------------

void VendorRules::CheckConfiguration(const Event& event, PendingCall& call) {
    Session* const session = Require(mSessions, event.Word(0));
    if (session == nullptr) {
        return;
    }
    call.key = event.Word(0);
    call.serial = session->serial;
    const auto* config = event.At<ChiOfflineSessionConfigInfo>(event.Word(1));
    if (!mChecks.Check(Rule::Configuration, event.Word(1) != 0,
                       "the configuration record is null") ||
        config == nullptr) {
        return;
    }
    const uint32_t camera = CheckCamera(event, *config);
    CheckSettings(event, *session, *config, camera);
    call.list = ListOf(event, *config);
    if (!session->isConfigured) {
        session->list = call.list; // It may ask for buffers at once.
    }
    CheckListed(event, *config);
}

/// The camera of a configuration, by the number that is its text.
uint32_t VendorRules::CheckCamera(const Event& event, const ChiOfflineSessionConfigInfo& config) {
    const std::string text(event.TextAt(AddressOf(config.pCameraText)));
    const auto number = static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
    // Without a list, the text is not recorded.
    const bool isSeen = config.pCameraText == nullptr || !text.empty();
    mChecks.Check(Rule::Configuration, !isSeen || text == std::to_string(number),
                  "the camera's text is '", text, "' and must be a number");
    return number;
}

/// A session that is configured once more has its settings from the first time.
void VendorRules::CheckSettings(const Event& event, const Session& session,
                                const ChiOfflineSessionConfigInfo& config, uint32_t camera) {
    if (config.pSessionSettings != nullptr) {
        Require(mMetadata, AddressOf(config.pSessionSettings));
    } else {
        mChecks.Check(Rule::SessionSettings,
                      session.isConfigured || !MakesSettings(event.Thread(), session, camera),
                      "the session settings are null");
    }
}

/// Whether the vendor makes settings for a session, as far as it was asked since that was opened;
/// else whether it can.
bool VendorRules::MakesSettings(uint32_t thread, const Session& session, uint32_t camera) {
    const Made* last = nullptr;
    for (const Made& made : mSettings) {
        if (made.thread == thread && made.event > session.opening &&
            (last == nullptr || made.event > last->event)) {
            last = &made;
        }
    }
    const auto& tables = mMetadataOps.All();
    return last != nullptr ? last->worked
                           : std::any_of(tables.begin(), tables.end(), [camera](const auto& each) {
                                 return each.second.makesSettings && each.second.camera == camera;
                             });
}

/// The list may be null: a preparation that failed leaves the record without one.
StreamList VendorRules::ListOf(const Event& event, const ChiOfflineSessionConfigInfo& config) {
    StreamList list;
    for (const uint64_t address : Some<uint64_t>(event, config.ppChiStreams, config.numStreams)) {
        ListedStream& listed = list.emplace_back(ListedStream{address, std::nullopt});
        if (const Stream* const stream = event.At<Stream>(address)) {
            listed.stream = *stream;
        }
    }
    return list;
}

void VendorRules::CheckListed(const Event& event, const ChiOfflineSessionConfigInfo& config) {
    uint32_t index = 0;
    for (const ListedStream& listed : ListOf(event, config)) {
        if (!mChecks.Check(Rule::Configuration, listed.address != 0, "stream ", index,
                           " is null")) {
            return;
        }
        const bool isOutput = ++index == config.numStreams;
        if (const auto& stream = listed.stream) {
            mChecks.Expect(Rule::StreamTypes, "a stream's type", stream->streamType,
                           uint32_t{isOutput ? ChiStreamTypeOutput : ChiStreamTypeInput});
            mChecks.Expect(Rule::StreamWords, "a stream's word at 148", stream->reserved148, 0U);
            mChecks.Expect(Rule::StreamWords, "a stream's word at 152", stream->reserved152, -1);
        }
    }
}

/// The streams stand now as the vendor left them.
void VendorRules::Configured(const Event& event, const PendingCall& call) {
    Session* const session = mSessions.FindAny(call.key);
    const auto* config = event.At<ChiOfflineSessionConfigInfo>(event.Word(1));
    if (session == nullptr || session->serial != call.serial || config == nullptr) {
        return;
    }
    const StreamList list = ListOf(event, *config);
    for (size_t i = 0; i < std::min(list.size(), call.list.size()); ++i) {
        const auto& before = call.list[i].stream;
        const auto& after = list[i].stream;
        const auto kept = [](const Stream& stream) {
            return std::array{stream.streamType, stream.width, stream.height, stream.format};
        };
        mChecks.Check(Rule::StreamsKept,
                      call.list[i].address != list[i].address || !before.has_value() ||
                          !after.has_value() || kept(*before) == kept(*after),
                      "stream ", i, " has another type, size or format than before");
    }
    if (Worked(event)) {
        session->isConfigured = true;
        session->list = list;
    }
}

// --- Requests -----------------------------------------------------------------------------------

void VendorRules::CheckExecution(const Event& event, PendingCall& call, const Calls& outer) {
    Session* const session = Require(mSessions, event.Word(0));
    if (session == nullptr) {
        return;
    }
    const auto* request = event.At<ChiOfflineExecuteRequest>(event.Word(1));
    const bool isWhole =
        event.Word(1) != 0 && (request == nullptr || (request->pOfflineFrameNumber != nullptr &&
                                                      request->pLastFrameField != nullptr));
    if (!mChecks.Check(Rule::RequestRecord, isWhole,
                       "the request or one of its frame fields is null") ||
        request == nullptr) {
        return;
    }
    CheckRequest(event, *session, *request);
    CheckFramePreset(event, *session, *request);
    BeginExecution(event, *session, *request, call, outer);
}

void VendorRules::CheckRequest(const Event& event, Session& session,
                               const ChiOfflineExecuteRequest& request) {
    mChecks.Expect(Rule::RequestSession, "a session's being configured", session.isConfigured,
                   true);
    mChecks.Expect(Rule::RequestRecord, "the number of input sets",
                   request.pInputs == nullptr ? 0 : request.numInputs, request.numInputs);
    mChecks.Expect(Rule::RequestRecord, "the last word", request.reserved48, uint64_t{0});
    for (const auto& set : Some<ChiOfflineBufferSet>(event, request.pInputs, request.numInputs)) {
        mChecks.Expect(Rule::RequestRecord, "the number of inputs",
                       set.pBuffers == nullptr ? 0 : set.numBuffers, set.numBuffers);
        const auto buffers = Some<ChiStreamBuffer>(event, set.pBuffers, set.numBuffers);
        for (size_t i = 0; i < buffers.size(); ++i) {
            CheckInput(event, session, buffers[i]);
            const auto isSame = [&](const ChiStreamBuffer& each) {
                return each.pStream == buffers[i].pStream;
            };
            mChecks.Check(
                Rule::InputStream,
                std::none_of(buffers.begin(), buffers.begin() + std::ptrdiff_t(i), isSame),
                "input stream ", Handle(buffers[i].pStream), " is fed twice by one set");
        }
    }
    CheckMetadata(event, request);
    CheckOutput(event, session, request);
}

void VendorRules::CheckInput(const Event& event, const Session& session,
                             const ChiStreamBuffer& buffer) {
    mChecks.Expect(Rule::InputRecord, "an input's size", buffer.size, uint32_t{sizeof buffer});
    mChecks.Expect(Rule::InputRecord, "an input's type", buffer.bufferType, kChiInputBufferType);
    mChecks.Expect(Rule::InputRecord, "an input's status", buffer.bufferStatus, 0U);
    if (const Image* const image = Require(mImages, AddressOf(buffer.bufferHandle))) {
        mChecks.Expect(Rule::InputManager, "an input's manager", Handle(buffer.pBufferManager),
                       Handle(image->manager));
    }
    const uint64_t address = AddressOf(buffer.pStream);
    if (!mChecks.Check(Rule::InputStream, session.Lists(address), "input stream ", Handle(address),
                       " is not in the session's list")) {
        return;
    }
    if (const Stream* const now = event.At<Stream>(address)) {
        mChecks.Expect(Rule::InputStream, "an input stream's type", now->streamType,
                       uint32_t{ChiStreamTypeInput});
    }
    if (const Stream* const stream = session.FindStream(address)) {
        CheckFormat(event, *stream, buffer);
    }
}

/// `stream` is as the vendor left it, with the pattern of its sensor.
void VendorRules::CheckFormat(const Event& event, const Stream& stream,
                              const ChiStreamBuffer& buffer) {
    mChecks.Expect(Rule::InputFormat, "the presence of a format record",
                   buffer.pInputFormat != nullptr, IsRaw(stream));
    const auto* format = event.At<ChiInputFormat>(buffer.pInputFormat);
    if (format == nullptr || !IsRaw(stream)) {
        return;
    }
    const bool isRaw10 = stream.format == ChiStreamFormatRaw10;
    mChecks.Expect(Rule::InputFormat, "an input's format", format->bufferFormat,
                   uint32_t{isRaw10 ? ChiFormatRaw10 : ChiFormatRaw16});
    mChecks.Expect(Rule::FilterPattern, "an input's filter pattern", format->cfaPattern,
                   stream.cfaPattern);
    mChecks.Expect(Rule::InputFormat, "a format record's word at 4", format->reserved4, 0U);
}

/// An output without size and stream is one that could not be translated; the adapter goes on.
void VendorRules::CheckOutput(const Event& event, const Session& session,
                              const ChiOfflineExecuteRequest& request) {
    const auto* output = event.At<ChiOfflineBufferSet>(request.pOutput);
    const bool isCut = output == nullptr && request.pOutput != nullptr;
    const uint32_t count =
        output == nullptr || output->pBuffers == nullptr ? 0 : output->numBuffers;
    if (isCut || !mChecks.Expect(Rule::Output, "the number of outputs", count, 1U)) {
        return;
    }
    const auto* buffer = event.At<ChiStreamBuffer>(output->pBuffers);
    if (buffer == nullptr || (buffer->size == 0 && buffer->pStream == nullptr)) {
        return;
    }
    mChecks.Expect(Rule::Output, "the output's size", buffer->size, uint32_t{sizeof *buffer});
    if (!session.list.empty()) {
        mChecks.Expect(Rule::Output, "the output's stream", Handle(buffer->pStream),
                       Handle(session.list.back().address));
    }
}

/// A host that was given no metadata can name none.
void VendorRules::CheckMetadata(const Event& event, const ChiOfflineExecuteRequest& request) {
    std::vector<uint64_t> seen;
    uint32_t index = 0;
    for (const auto& set : Some<ChiOfflineBufferSet>(event, request.pInputs, request.numInputs)) {
        const uint64_t handle = AddressOf(set.pMetadata);
        const bool isOthers = std::find(seen.begin(), seen.end(), handle) != seen.end();
        if (handle == 0) {
            const bool isExcused = !mGaveSetMetadata || mSetMetadataRefused != 0 || mChecks.isLate;
            mSetMetadataRefused -= mSetMetadataRefused != 0 ? 1 : 0;
            mChecks.Check(Rule::SetMetadata, isExcused, "set ", index, " has no metadata");
        } else if (mChecks.Check(Rule::SetMetadata, !isOthers, "set ", index,
                                 " has the metadata of another set")) {
            seen.push_back(handle);
            CheckSetMetadata(handle, index);
        }
        ++index;
    }
    const auto* output = event.At<ChiOfflineBufferSet>(request.pOutput);
    const uint64_t own = output == nullptr ? 0 : AddressOf(output->pMetadata);
    if (own != 0 &&
        mChecks.Check(Rule::SetMetadata, std::find(seen.begin(), seen.end(), own) == seen.end(),
                      "the output has the metadata of a set")) {
        Require(mMetadata, own);
    }
}

void VendorRules::CheckSetMetadata(uint64_t handle, uint32_t index) {
    const Metadata* const metadata = Require(mMetadata, handle);
    if (metadata == nullptr || !metadata->mark.has_value()) {
        return;
    }
    mChecks.Expect(Rule::SetMetadata, "the set of a set's metadata", metadata->mark->index, index);
    // What a table was opened for before the watch is not known.
    if (metadata->camera.has_value() && !mChecks.isLate) {
        mChecks.Expect(Rule::SetMetadata, "the camera of a set's metadata", *metadata->camera,
                       metadata->mark->cameraId);
    }
}

/// The field belongs to the session: where two threads submit, the number of the one may have
/// overwritten the preset of the other.
void VendorRules::CheckFramePreset(const Event& event, const Session& session,
                                   const ChiOfflineExecuteRequest& request) {
    const auto* preset = event.At<int32_t>(request.pOfflineFrameNumber);
    if (preset == nullptr) {
        return;
    }
    const bool isOthers =
        session.executing != 0 ||
        std::any_of(session.frames.begin(), session.frames.end(), [&](const auto& last) {
            return last.second != 0 && last.second != event.Thread() && last.first == *preset;
        });
    if (!isOthers) {
        mChecks.Expect(Rule::FramePreset, "the preset of the offline frame", *preset, kUnsetFrame);
    }
}

void VendorRules::BeginExecution(const Event& event, Session& session,
                                 const ChiOfflineExecuteRequest& request, PendingCall& call,
                                 const Calls& outer) {
    Execution execution{.serial = ++mLastSerial, .session = event.Word(0)};
    for (const PendingCall& each : outer) {
        if (each.entry == Entry::SubmitRequestFromRT) {
            execution.request = each.request; // The innermost is the last.
        }
    }
    const auto* output = event.At<ChiOfflineBufferSet>(request.pOutput);
    const auto* buffer = output == nullptr ? nullptr : event.At<ChiStreamBuffer>(output->pBuffers);
    if (buffer != nullptr) {
        execution.hasOutput = true;
        execution.outputs = output->numBuffers;
        execution.output = {AddressOf(buffer->pStream), AddressOf(buffer->bufferHandle)};
    }
    if (const auto* field = event.At<uint32_t>(request.pLastFrameField)) {
        execution.lastField = *field;
    }
    execution.isAlone = session.executing++ == 0;
    execution.executed = ++session.executed;
    call.key = AddressOf(request.pPrivateData);
    call.serial = execution.serial;
    call.session = event.Word(0);
    mExecutions[call.key] = execution;
}

void VendorRules::Executed(const Event& event, const PendingCall& call) {
    Session* const session = mSessions.FindAny(call.session);
    if (call.session == 0 || session == nullptr || session->executing == 0) {
        return;
    }
    --session->executing;
    const auto* request = event.At<ChiOfflineExecuteRequest>(event.Word(1));
    const auto* frame =
        request == nullptr ? nullptr : event.At<int32_t>(request->pOfflineFrameNumber);
    if (Worked(event) && frame != nullptr) {
        session->frames[session->nextFrame++ % session->frames.size()] = {*frame, event.Thread()};
    }
    const auto found = mExecutions.find(call.key);
    if (found == mExecutions.end() || found->second.serial != call.serial) {
        return; // It came to its end, and its address is used again.
    }
    Execution& execution = found->second;
    if (Worked(event)) {
        CheckFrameWritten(event, *session, execution);
    } else {
        execution.status = static_cast<uint32_t>(event.Result());
        mChecks.Check(Rule::RefusedRequest, execution.results == 0, "status ", execution.status,
                      " after ", execution.results, " results");
        Finish(call.key, execution, Execution::Refused);
    }
}

/// The offline frame's field may hold what another thread's submission made of it; the other field
/// is the vendor's alone.
void VendorRules::CheckFrameWritten(const Event& event, Session& session, Execution& execution) {
    const auto* request = event.At<ChiOfflineExecuteRequest>(event.Word(1));
    const auto* frame =
        request == nullptr ? nullptr : event.At<int32_t>(request->pOfflineFrameNumber);
    const auto* last = request == nullptr ? nullptr : event.At<uint32_t>(request->pLastFrameField);
    const bool isAlone = execution.isAlone && session.executed == execution.executed;
    if (frame == nullptr || last == nullptr || !isAlone) {
        return;
    }
    if (*frame != kUnsetFrame) {
        execution.frame = static_cast<uint32_t>(*frame);
        CheckResultNumber(execution);
    } else {
        mChecks.Check(Rule::FrameWritten, execution.lastField != *last,
                      "the offline frame is still ", *frame);
    }
}

/// What still comes for a request that is over is told from what never was, for a while.
void VendorRules::Finish(uint64_t privateData, Execution& execution, Execution::Phase phase) {
    execution.phase = phase;
    const auto lent = execution.got.has_value() ? mLent.find(*execution.got) : mLent.end();
    if (lent != mLent.end() && --lent->second == 0) {
        mLent.erase(lent);
    }
    const auto [oldest, serial] = Remember(mEnded, {privateData, execution.serial});
    const auto found = mExecutions.find(oldest);
    if (found != mExecutions.end() && found->second.serial == serial) {
        mExecutions.erase(found);
    }
}

// --- What a session calls back ------------------------------------------------------------------

void VendorRules::CallBack(const Event& event, PendingCall& call) {
    call.session = SessionOf(event);
    if (call.session == 0) {
        return;
    }
    if (event.Of() == Entry::ProcessCaptureResult) {
        CheckResult(event, call.session);
    } else if (event.Of() == Entry::GetFrameworkBuffers) {
        CheckQuery(event, call.session);
    }
}

/// The session whose callbacks these are, 0 where that is not to be known. It may call until it is
/// closed.
uint64_t VendorRules::SessionOf(const Event& event) {
    const uint64_t callbacks = event.Word(0);
    const auto found = mCallbacks.find(callbacks);
    if (found != mCallbacks.end()) {
        return found->second;
    }
    const bool isOpening = std::find(mOpening.begin(), mOpening.end(), callbacks) != mOpening.end();
    const bool isUnknown =
        mChecks.isLate && std::find(mClosedCallbacks.begin(), mClosedCallbacks.end(), callbacks) ==
                              mClosedCallbacks.end();
    mChecks.Check(Rule::CallbackSession, isOpening || isUnknown, Handle(callbacks),
                  " are the callbacks of no open session");
    return 0;
}

void VendorRules::CheckResult(const Event& event, uint64_t session) {
    const auto* info = event.At<ChiOfflineCaptureResultInfo>(event.Word(2));
    Execution* const execution =
        info == nullptr ? nullptr : FindExecution(AddressOf(info->pPrivateData), session);
    if (execution == nullptr) {
        return;
    }
    ++execution->results;
    execution->resultFrame = info->frameNumber;
    CheckResultNumber(*execution);
    const auto* block = event.At<ChiOfflineResultBlock>(info->pResult);
    PassOn(event, *execution, *info, block);
    if (block != nullptr) {
        CheckBlock(event, *execution, *block);
    }
    if (block != nullptr && block->numPartialMetadata == 0 &&
        execution->received == execution->outputs) {
        Finish(AddressOf(info->pPrivateData), *execution, Execution::Complete);
    }
}

/// The request that a result is for; null where none may come.
VendorRules::Execution* VendorRules::FindExecution(uint64_t privateData, uint64_t session) {
    const auto found = mExecutions.find(privateData);
    if (found == mExecutions.end() || found->second.session != session) {
        mChecks.Check(Rule::ResultRequest, mChecks.isLate, "the private data ", Handle(privateData),
                      " is that of no request of the session");
        return nullptr;
    }
    Execution& execution = found->second;
    const bool may =
        mChecks.Check(Rule::RefusedRequest, execution.phase != Execution::Refused,
                      "a result after status ", execution.status) &&
        mChecks.Check(Rule::ResultAfterLast, execution.phase != Execution::Complete,
                      "a result after the last one of the request ", Handle(privateData));
    return may ? &execution : nullptr;
}

void VendorRules::CheckResultNumber(const Execution& execution) {
    if (execution.frame.has_value() && execution.resultFrame.has_value()) {
        mChecks.Expect(Rule::ResultNumber, "a result's frame number", *execution.resultFrame,
                       *execution.frame);
    }
}

void VendorRules::CheckBlock(const Event& event, Execution& execution,
                             const ChiOfflineResultBlock& block) {
    mChecks.Check(Rule::PartialsFall, block.numPartialMetadata <= execution.partials,
                  block.numPartialMetadata, " partials to come after ", execution.partials);
    execution.partials = block.numPartialMetadata;
    execution.received += block.numBuffers;
    if (!execution.hasOutput) {
        return;
    }
    mChecks.Check(Rule::BufferCount, execution.received <= execution.outputs, execution.received,
                  " buffers for ", execution.outputs, " outputs");
    for (const auto& buffer : Some<ChiStreamBuffer>(event, block.pBuffers, block.numBuffers)) {
        const Lent seen{AddressOf(buffer.pStream), AddressOf(buffer.bufferHandle)};
        const bool isLent = seen != execution.output && mLent.contains(seen);
        if (isLent) {
            execution.got = seen;
        }
        mChecks.Check(Rule::ResultOutput, isLent || seen == execution.output || mChecks.isLate,
                      "stream ", Handle(seen.first), " and buffer ", Handle(seen.second),
                      " must be ", Handle(execution.output.first), " and ",
                      Handle(execution.output.second));
    }
}

/// What the host is to be told: the main block, and once more where there is a second one with
/// something in it. See docs/kept-behaviours.md.
void VendorRules::PassOn(const Event& event, const Execution& execution,
                         const ChiOfflineCaptureResultInfo& info,
                         const ChiOfflineResultBlock* block) {
    const auto* second = event.At<ChiOfflineResultBlock>(info.pSecondResult);
    const bool isRepeated =
        second != nullptr && (second->pMetadata != nullptr || second->pBuffers != nullptr);
    const uint32_t times = block == nullptr ? 0 : isRepeated ? 2 : 1;
    const auto* first = block == nullptr ? nullptr : event.At<ChiStreamBuffer>(block->pBuffers);
    const uint64_t buffers =
        block == nullptr ? 0 : std::min<uint64_t>(block->numBuffers, kMostReported);
    mHost.OnBrought(
        execution.request, times * (block != nullptr && block->pMetadata != nullptr ? 1 : 0),
        times * static_cast<uint32_t>(buffers), first != nullptr && first->bufferStatus != 0);
}

void VendorRules::CheckQuery(const Event& event, uint64_t session) {
    const Session* const asks = mSessions.FindAny(session);
    if (asks == nullptr || asks->list.empty()) {
        return;
    }
    const uint64_t output = asks->list.back().address;
    for (const auto& query : event.All<ChiOfflineQueryBuffer>(event.Word(2))) {
        mChecks.Check(Rule::BufferQuery, AddressOf(query.pStream) == output, "stream ",
                      Handle(query.pStream), " is not the session's output");
    }
}

void VendorRules::OnLent(const Event& event) {
    for (const auto& answer : event.All<ChiOfflineQueryStreamBuffer>(event.Word(4))) {
        for (const auto& buffer : event.All<ChiStreamBuffer>(answer.pBuffers)) {
            ++mLent[{AddressOf(buffer.pStream), AddressOf(buffer.bufferHandle)}];
        }
    }
}

// --- Operation tables ---------------------------------------------------------------------------

void VendorRules::CheckOpenInfo(const Event& event, PendingCall& call) {
    const auto* info = event.At<ChiMetadataOpsOpenInfo>(event.Word(1));
    mChecks.Check(Rule::MetadataWords,
                  info == nullptr
                      ? event.Word(1) != 0
                      : info->reserved4 == 1 && info->reserved8 == 0 && info->reserved12 == 1,
                  "the words behind the camera id must be 1, 0, 1");
    if (info != nullptr) {
        call.camera = info->cameraId;
    }
}

void VendorRules::OpenedTable(const Event& event, const PendingCall& call, Objects<Table>& all) {
    const uint64_t handle = event.Result();
    if (handle == 0) {
        return;
    }
    Table* table = all.Find(handle);
    const bool isNew = table == nullptr;
    if (isNew) {
        table = &all.Add(handle, Table{});
        table->serial = ++mLastSerial;
    } else {
        ++table->given;
    }
    if (const auto* ops = event.At<ChiOfflineMetadataOps>(handle)) {
        table->makesSettings = ops->pCreateFromAndroid != nullptr;
    }
    table->camera = isNew || table->camera == call.camera ? call.camera : std::nullopt;
}

/// What was opened several times is closed as often: only the last closing has a table's serial.
void VendorRules::CloseTable(Objects<Table>& all, const PendingCall& call) {
    Table* const table = all.FindAny(call.key);
    const bool isLast = table != nullptr && table->serial == call.serial;
    FinishEnd(all, call, isLast);
    if (isLast && !mChecks.isLate && mMetadataOps.All().empty() && mBufferOps.All().empty()) {
        CheckAllReturned();
    }
}

// --- Metadata -----------------------------------------------------------------------------------

void VendorRules::CallMetadata(const Event& event, PendingCall& call) {
    const uint64_t first = event.Word(0);
    switch (event.Of()) {
    case Entry::MetadataOpsClose:
        BeginEnd(mMetadataOps, first, call);
        break;
    case Entry::MetadataCreate:
        mChecks.Expect(Rule::MetadataWords, "the source", Handle(event.Word(1)), Handle());
        mChecks.Expect(Rule::MetadataWords, "the last word", event.Word(2), uint64_t{0});
        Require(mMetadataOps, first);
        break;
    case Entry::MetadataCreateWithUsage:
        Require(mMetadataOps, first);
        break;
    case Entry::MetadataCreateFromAndroid:
        mChecks.Check(Rule::MetadataWords,
                      event.Word(2) == 0 && event.Word(3) == 0 && event.Word(4) == kAnyCount,
                      "the words are ", event.Word(2), ", ", event.Word(3), ", ", event.Word(4),
                      " and must be 0, 0, ", kAnyCount);
        Require(mMetadataOps, first);
        break;
    case Entry::MetadataCreateAndroid:
        mChecks.Expect(Rule::MetadataWords, "the first word", event.Word(2), uint64_t{1});
        Require(mMetadata, event.Word(1));
        Require(mMetadataOps, first);
        break;
    case Entry::MetadataReleaseAndroid:
        Require(mMetadataOps, first);
        BeginEnd(mAndroid, event.Word(1), call);
        break;
    case Entry::MetadataDestroy:
        BeginEnd(mMetadata, first, call);
        break;
    case Entry::MetadataSetTag:
        SetMarkOf(event);
        break;
    case Entry::MetadataCopy:
        Require(mMetadata, first);
        Require(mMetadata, event.Word(1));
        break;
    default:
        Require(mMetadata, first);
        break;
    }
}

void VendorRules::ReturnOfMetadata(const Event& event, const PendingCall& call) {
    switch (event.Of()) {
    case Entry::MetadataOpsClose:
        CloseTable(mMetadataOps, call);
        break;
    case Entry::MetadataCreate:
    case Entry::MetadataCreateWithUsage:
    case Entry::MetadataCreateFromAndroid:
        MadeMetadata(event);
        break;
    case Entry::MetadataCreateAndroid:
        Adopt(mAndroid, event.Result(), Rule::NewObject, Android{});
        break;
    case Entry::MetadataReleaseAndroid:
        FinishEnd(mAndroid, call, Worked(event));
        break;
    case Entry::MetadataDestroy:
        FinishEnd(mMetadata, call, Worked(event));
        break;
    default:
        break;
    }
}

void VendorRules::MadeMetadata(const Event& event) {
    const bool isThere = event.Result() != 0;
    if (event.Of() == Entry::MetadataCreateFromAndroid) {
        mSettings[mNextSettings++ % mSettings.size()] = {event.Thread(), event.Number(), isThere};
    } else if (event.Of() == Entry::MetadataCreateWithUsage) {
        mGaveSetMetadata |= isThere;
        mSetMetadataRefused += isThere ? 0 : 1;
    }
    Metadata metadata;
    if (const Table* const table = mMetadataOps.FindAny(event.Word(0))) {
        metadata.camera = table->camera;
    }
    Adopt(mMetadata, event.Result(), Rule::NewObject, metadata);
}

/// A host at the desk marks the metadata of a request's sets.
void VendorRules::SetMarkOf(const Event& event) {
    Metadata* const metadata = Require(mMetadata, event.Word(0));
    const auto bytes = event.All<uint8_t>(event.Word(2));
    if (metadata != nullptr && event.Word(1) == kSetMarkTag && bytes.size() >= sizeof(SetMark)) {
        metadata->mark.emplace();
        std::memcpy(&*metadata->mark, bytes.data(), sizeof(SetMark));
    }
}

// --- Buffers ------------------------------------------------------------------------------------

/// The adapter passes on the null manager that a failed create left, so that null is taken in
/// silence.
void VendorRules::CallBuffers(const Event& event, PendingCall& call) {
    const uint64_t first = event.Word(0);
    switch (event.Of()) {
    case Entry::BufferOpsClose:
        BeginEnd(mBufferOps, first, call);
        break;
    case Entry::BufferManagerCreate:
        CheckManager(event);
        break;
    case Entry::BufferManagerDestroy:
        if (first != 0) {
            DestroyManager(first, call);
        }
        break;
    case Entry::GetImageBuffer:
        if (first != 0) {
            Require(mManagers, first);
        }
        break;
    case Entry::ReleaseImageBuffer:
        BeginEnd(mImages, first, call);
        break;
    case Entry::GetCPUAddress:
        Require(mImages, first);
        break;
    default:
        break;
    }
}

void VendorRules::ReturnOfBuffers(const Event& event, const PendingCall& call) {
    switch (event.Of()) {
    case Entry::BufferOpsClose:
        CloseTable(mBufferOps, call);
        break;
    case Entry::BufferManagerCreate:
        Adopt(mManagers, event.Result(), Rule::NewObject, Manager{});
        break;
    case Entry::BufferManagerDestroy:
        FinishEnd(mManagers, call, true);
        break;
    case Entry::GetImageBuffer: {
        Image image;
        image.manager = event.Word(0);
        Adopt(mImages, event.Result(), Rule::NewObject, image);
        break;
    }
    case Entry::ReleaseImageBuffer:
        FinishEnd(mImages, call, true);
        break;
    default:
        break;
    }
}

void VendorRules::CheckManager(const Event& event) {
    Require(mBufferOps, event.Word(0));
    const auto* data = event.At<ChiBufferManagerCreateData>(event.Word(2));
    if (!mChecks.Check(Rule::ManagerRecord, event.Word(1) != 0 && event.Word(2) != 0,
                       "the name or the create record is null") ||
        data == nullptr) {
        return;
    }
    mChecks.Expect(Rule::ManagerRecord, "the word at 16", data->reserved16, uint64_t{0x40002});
    mChecks.Expect(Rule::ManagerRecord, "the word at 24", data->reserved24, uint64_t{0x20022});
    mChecks.Expect(Rule::ManagerRecord, "the word at 40", data->reserved40, 32U);
    mChecks.Expect(Rule::ManagerRecord, "the word at 48", data->reserved48, 1U);
    mChecks.Expect(Rule::ManagerRecord, "the word at 52", data->reserved52, 5U);
    mChecks.Expect(Rule::ManagerRecord, "a word at 12, 32, 36 or 44",
                   data->reserved12 | data->reserved32 | data->reserved36 | data->reserved44, 0U);
}

/// Image buffers that outlive their manager go with it, against the contract.
void VendorRules::DestroyManager(uint64_t manager, PendingCall& call) {
    BeginEnd(mManagers, manager, call);
    std::vector<uint64_t> left;
    for (const auto& [handle, image] : mImages.All()) {
        if (image.manager == manager && !image.isGoing) {
            left.push_back(handle);
        }
    }
    for (const uint64_t handle : left) {
        mImages.Remove(handle);
    }
    mChecks.Expect(Rule::ImageReleased, "the number of image buffers left", left.size(), size_t{0});
}

} // namespace contract
