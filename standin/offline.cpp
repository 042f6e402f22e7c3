/// The offline interface: sessions, their configuration and their requests, and buffer translation.
#include "standin/pixels.h"
#include "standin/session.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace standin {
namespace {

constexpr uint32_t kVersion = 512;
constexpr uint32_t kFrameworkBuffer = 1; ///< `ChiStreamBuffer::bufferType` of a framework's buffer.
constexpr int32_t kUnsetFrame = -1;
constexpr int kPoison = 0xA5;

bool IsRaw(const ChiStream& stream) {
    return stream.format == ChiStreamFormatRaw16 || stream.format == ChiStreamFormatRaw10;
}

// --- Sessions

uint64_t OpenSession(ChiOfflineInterface* /*interface*/, ChiOfflineSessionCreateInfo* info) {
    if (!Check(Rule::SessionRecord,
               info != nullptr && info->pSessionName != nullptr && info->pCallbacks != nullptr,
               "the create record, its name or its callbacks are null") ||
        !Check(Rule::SessionRecord,
               info->pCallbacks->ProcessCaptureResultCb != nullptr &&
                   info->pCallbacks->ProcessNotifyCb != nullptr &&
                   info->pCallbacks->GetFrameworkBuffers != nullptr,
               "a callback is null")) {
        return 0;
    }
    Expect(Rule::SessionRecord, "the shared handle", info->sharedSessionHandle, uint64_t{0});
    Expect<void*>(Rule::SessionRecord, "the callbacks' fourth word", info->pCallbacks->reserved24,
                  nullptr);
    const auto session = std::make_shared<Session>();
    session->data = {
        .name = info->pSessionName, .pCreateInfo = info, .pCallbacks = info->pCallbacks};
    session->pName = info->pSessionName;
    const uint64_t handle = Word(Adopt(session));
    const auto device = Device().Lock();
    session->data.handle = handle;
    return handle;
}

int32_t CloseSession(uint64_t handle) {
    const auto session = Remove<Session>(handle);
    if (!session) {
        return kFailed;
    }
    session->Stop();
    return kOk;
}

// --- Configuration

/// The camera of a configuration, by the number that is its text.
uint32_t CameraOf(const ChiOfflineSessionConfigInfo& config) {
    const std::string text = config.pCameraText == nullptr ? "" : config.pCameraText;
    const auto number = static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
    Check(Rule::Configuration, text == std::to_string(number), "the camera's text is '", text,
          "' and must be a number");
    return number;
}

/// Whether this device was not told to do without such metadata.
bool Makes(Entry metadata) {
    const auto device = Device().Lock();
    const auto works = [&](Entry entry) {
        return !device->script.faults.contains(entry) &&
               !device->script.missing[static_cast<size_t>(entry)];
    };
    return works(Entry::OpenMetadataOps) && works(metadata);
}

/// A session that is configured once more has its settings from the first time.
void CheckSettings(const Session& session, ChiMetadataHandle settings) {
    if (settings != nullptr) {
        Require<Metadata>(settings);
    } else {
        Check(Rule::SessionSettings,
              session.data.configured || !Makes(Entry::MetadataCreateFromAndroid),
              "the session settings are null");
    }
}

/// Takes a stream of the list in, and writes the sensor's filter pattern into raw inputs.
ChiStream Configure(ChiStream& stream, uint32_t cameraId, bool isOutput) {
    Expect(Rule::StreamTypes, "a stream's type", stream.streamType,
           uint32_t{isOutput ? ChiStreamTypeOutput : ChiStreamTypeInput});
    Expect(Rule::StreamWords, "a stream's word at 148", stream.reserved148, 0U);
    Expect(Rule::StreamWords, "a stream's word at 152", stream.reserved152, -1);
    if (!isOutput && IsRaw(stream)) {
        stream.cfaPattern = CfaPatternOf(cameraId);
    }
    return stream;
}

/// The list may be null: a preparation that failed leaves the record without one.
int32_t ConfigureStreams(uint64_t handle, ChiOfflineSessionConfigInfo* config) {
    const auto session = Require<Session>(handle);
    if (!session ||
        !Check(Rule::Configuration, config != nullptr, "the configuration record is null")) {
        return kFailed;
    }
    const size_t count = config->ppChiStreams == nullptr ? 0 : config->numStreams;
    const std::vector<ChiStream*> pointers(config->ppChiStreams, config->ppChiStreams + count);
    const uint32_t cameraId = CameraOf(*config);
    CheckSettings(*session, config->pSessionSettings);
    std::vector<ChiStream> streams;
    for (ChiStream* stream : pointers) {
        if (!Check(Rule::Configuration, stream != nullptr, "stream ", streams.size(), " is null")) {
            return kFailed;
        }
        streams.push_back(Configure(*stream, cameraId, streams.size() + 1 == count));
    }
    const auto device = Device().Lock();
    session->data.configured = true;
    session->data.config = *config;
    session->data.streams = std::move(streams);
    session->data.streamPointers = pointers;
    return kOk;
}

// --- Requests

/// The record is copied as bytes, so that comparing it word by word is possible.
void CopySet(BufferSetCopy& copy, const ChiOfflineBufferSet* set, bool isInput) {
    if (set == nullptr) {
        return;
    }
    std::memcpy(&copy.set, set, sizeof *set);
    if (set->pBuffers != nullptr) {
        copy.buffers.assign(set->pBuffers, set->pBuffers + set->numBuffers);
    }
    for (const ChiStreamBuffer& buffer : copy.buffers) {
        auto& format = copy.formats.emplace_back();
        if (isInput && buffer.pInputFormat != nullptr) {
            format = *buffer.pInputFormat;
        }
    }
}

std::shared_ptr<Execution> CopyRequest(uint64_t session, const ChiOfflineExecuteRequest& request) {
    auto execution = std::make_shared<Execution>();
    execution->session = session;
    std::memcpy(&execution->request, &request, sizeof request);
    for (uint32_t i = 0; i < request.numInputs && request.pInputs != nullptr; ++i) {
        CopySet(execution->inputs.emplace_back(), &request.pInputs[i], true);
    }
    CopySet(execution->output, request.pOutput, false);
    return execution;
}

void CheckFormat(const ChiStream& stream, const ChiStreamBuffer& buffer,
                 const ChiInputFormat& format) {
    Expect(Rule::InputFormat, "the presence of a format record", buffer.pInputFormat != nullptr,
           IsRaw(stream));
    if (buffer.pInputFormat == nullptr || !IsRaw(stream)) {
        return;
    }
    const bool isRaw10 = stream.format == ChiStreamFormatRaw10;
    Expect(Rule::InputFormat, "an input's format", format.bufferFormat,
           uint32_t{isRaw10 ? ChiFormatRaw10 : ChiFormatRaw16});
    Expect(Rule::FilterPattern, "an input's filter pattern", format.cfaPattern, stream.cfaPattern);
    Expect(Rule::InputFormat, "a format record's word at 4", format.reserved4, 0U);
}

void CheckInput(const Session& session, const ChiStreamBuffer& buffer,
                const ChiInputFormat& format) {
    Expect(Rule::InputRecord, "an input's size", buffer.size, uint32_t{sizeof buffer});
    Expect(Rule::InputRecord, "an input's type", buffer.bufferType, kChiInputBufferType);
    Expect(Rule::InputRecord, "an input's status", buffer.bufferStatus, 0U);
    if (const auto image = Require<ImageBuffer>(buffer.bufferHandle)) {
        Expect(Rule::InputManager, "an input's manager", Handle{Word(buffer.pBufferManager)},
               Handle{image->manager});
    }
    const ChiStream* stream = session.FindStream(buffer.pStream);
    if (!Check(Rule::InputStream, stream != nullptr, "input stream ", buffer.pStream,
               " is not in the session's list")) {
        return;
    }
    Expect(Rule::InputStream, "an input stream's type",
           __atomic_load_n(&buffer.pStream->streamType, __ATOMIC_RELAXED),
           uint32_t{ChiStreamTypeInput});
    CheckFormat(*stream, buffer, format);
}

/// An output without size and stream is one that could not be translated; the adapter goes on.
void CheckOutput(const Session& session, const BufferSetCopy& output) {
    if (!Expect(Rule::Output, "the number of outputs", output.buffers.size(), size_t{1})) {
        return;
    }
    const ChiStreamBuffer& buffer = output.buffers[0];
    if (buffer.size == 0 && buffer.pStream == nullptr) {
        return;
    }
    Expect(Rule::Output, "the output's size", buffer.size, uint32_t{sizeof buffer});
    if (session.OutputStream() != nullptr) {
        Expect(Rule::Output, "the output's stream", buffer.pStream, session.OutputStream());
    }
}

void CheckSetMetadata(ChiMetadataHandle handle, uint32_t index) {
    const auto metadata = Require<Metadata>(handle);
    if (!metadata || !metadata->tags.contains(kSetMarkTag)) {
        return;
    }
    SetMark mark{};
    const auto& bytes = metadata->tags.at(kSetMarkTag);
    std::memcpy(&mark, bytes.data(), std::min(bytes.size(), sizeof mark));
    Expect(Rule::SetMetadata, "the set of a set's metadata", mark.index, index);
    Expect(Rule::SetMetadata, "the camera of a set's metadata", metadata->cameraId, mark.cameraId);
}

void CheckMetadata(const Execution& execution) {
    std::set<ChiMetadataHandle> seen;
    uint32_t index = 0;
    for (const BufferSetCopy& input : execution.inputs) {
        const ChiMetadataHandle handle = input.set.pMetadata;
        if (handle == nullptr) {
            Check(Rule::SetMetadata, !Makes(Entry::MetadataCreateWithUsage), "set ", index,
                  " has no metadata");
        } else if (Check(Rule::SetMetadata, seen.insert(handle).second, "set ", index,
                         " has the metadata of another set")) {
            CheckSetMetadata(handle, index);
        }
        ++index;
    }
    const ChiMetadataHandle output = execution.output.set.pMetadata;
    if (output != nullptr &&
        Check(Rule::SetMetadata, !seen.contains(output), "the output has the metadata of a set")) {
        Require<Metadata>(output);
    }
}

void CheckRequest(const Session& session, const Execution& execution) {
    Expect(Rule::RequestSession, "a session's being configured", session.data.configured, true);
    Expect(Rule::RequestRecord, "the number of input sets", execution.inputs.size(),
           size_t{execution.request.numInputs});
    Expect(Rule::RequestRecord, "the last word", execution.request.reserved48, uint64_t{0});
    for (const BufferSetCopy& set : execution.inputs) {
        Expect(Rule::RequestRecord, "the number of inputs", set.buffers.size(),
               size_t{set.set.numBuffers});
        std::set<const ChiStream*> fed;
        for (size_t i = 0; i < set.buffers.size(); ++i) {
            CheckInput(session, set.buffers[i], set.formats[i]);
            Check(Rule::InputStream, fed.insert(set.buffers[i].pStream).second, "input stream ",
                  set.buffers[i].pStream, " is fed twice by one set");
        }
    }
    CheckMetadata(execution);
    CheckOutput(session, execution.output);
}

/// Gives the request its frame number. The field belongs to the session: where two threads submit,
/// the number of the one may have overwritten the preset of the other.
void AssignFrame(Session& session, Execution& execution) {
    const auto self = std::this_thread::get_id();
    int32_t* const field = execution.request.pOfflineFrameNumber;
    auto device = Device().Lock();
    const int32_t preset = __atomic_load_n(field, __ATOMIC_RELAXED);
    const bool isOthers = preset == session.lastFrame && session.lastThread != self;
    execution.presetFrameNumber = preset;
    execution.offlineFrame = device->nextFrame++;
    __atomic_store_n(field, execution.offlineFrame, __ATOMIC_RELAXED);
    __atomic_store_n(execution.request.pLastFrameField,
                     static_cast<uint32_t>(execution.offlineFrame), __ATOMIC_RELAXED);
    session.lastFrame = execution.offlineFrame;
    session.lastThread = self;
    device.reset();
    if (!isOthers) {
        Expect(Rule::FramePreset, "the preset of the offline frame", preset, kUnsetFrame);
    }
}

/// Spoils what was lent for the call alone, so that whoever reads it afterwards is found out.
void Poison(ChiOfflineExecuteRequest& request, const Execution& execution) {
    const auto spoil = [](void* records, size_t size) {
        if (records != nullptr) {
            std::memset(records, kPoison, size);
        }
    };
    for (const BufferSetCopy& input : execution.inputs) {
        spoil(input.set.pBuffers, sizeof(ChiStreamBuffer) * input.buffers.size());
    }
    spoil(request.pInputs, sizeof(ChiOfflineBufferSet) * execution.inputs.size());
    spoil(request.pOutput, sizeof(ChiOfflineBufferSet));
    spoil(&request, sizeof request);
}

int32_t ExecuteRequest(uint64_t handle, ChiOfflineExecuteRequest* request) {
    const auto session = Require<Session>(handle);
    if (!session || !Check(Rule::RequestRecord,
                           request != nullptr && request->pOfflineFrameNumber != nullptr &&
                               request->pLastFrameField != nullptr,
                           "the request or one of its frame fields is null")) {
        return kFailed;
    }
    const auto execution = CopyRequest(handle, *request);
    CheckRequest(*session, *execution);
    AssignFrame(*session, *execution);
    Poison(*request, *execution);
    session->Accept(execution);
    return kOk;
}

// --- Instant sessions

Control::State* g_device; ///< At hand, because asking for it would be measured.

uint64_t OpenInstantly(ChiOfflineInterface* /*interface*/, ChiOfflineSessionCreateInfo* info) {
    return Word(info->pCallbacks);
}

/// The adapter's own field counts a session's frames.
int32_t ExecuteInstantly(uint64_t handle, ChiOfflineExecuteRequest* request) {
    const uint32_t frame = ++*request->pLastFrameField;
    *request->pOfflineFrameNumber = static_cast<int32_t>(frame);
    const InstantResult result{As<const ChiOfflineSessionCallbacks*>(handle), *request->pOutput,
                               request->pPrivateData, frame};
    if (g_device->script.delivery == Delivery::ByHand) {
        g_device->instantResults.push_back(result);
    } else {
        result.Deliver();
    }
    return kOk;
}

// --- Buffer translation

uint32_t TranslateToChi(const camera3_stream_buffer* source, ChiStreamBuffer* target) {
    if (!Check(Rule::Translation, source != nullptr && target != nullptr, "a buffer is null")) {
        return kFailed;
    }
    *target = {.size = sizeof(ChiStreamBuffer),
               .pStream = std::bit_cast<ChiStream*>(source->stream),
               .bufferType = kFrameworkBuffer,
               .bufferHandle = source->buffer,
               .bufferStatus = static_cast<uint32_t>(source->status)};
    return kOk;
}

uint32_t TranslateFromChi(const ChiStreamBuffer* source, camera3_stream_buffer* target) {
    if (!Check(Rule::Translation, source != nullptr && target != nullptr, "a buffer is null")) {
        return kFailed;
    }
    *target = {.stream = std::bit_cast<camera3_stream*>(source->pStream),
               .buffer = static_cast<buffer_handle_t*>(source->bufferHandle),
               .status = static_cast<int32_t>(source->bufferStatus),
               .acquire_fence = -1,
               .release_fence = -1};
    return kOk;
}

// --- The interface

void Fill(SlotList& slots, ChiOfflineInterface& table) {
    table.size = sizeof table;
    table.pName = "standin offline camera";
    g_device = &Device();
    Install<Entry::OpenSession, OpenSession, OpenInstantly>(slots, table.pOpenSession);
    Install<Entry::CloseSession, CloseSession>(slots, table.pCloseSession);
    Install<Entry::ConfigureStreams, ConfigureStreams>(slots, table.pConfigureStreams);
    Install<Entry::ExecuteRequest, ExecuteRequest, ExecuteInstantly>(slots, table.pExecuteRequest);
    Install<Entry::OpenMetadataOps, OpenMetadataOps, OpenMetadataOps>(slots,
                                                                      table.pOpenMetadataOps);
    Install<Entry::OpenBufferOps, OpenBufferOps, OpenBufferOps>(slots, table.pOpenBufferOps);
    Install<Entry::TranslateToChiBuffer, TranslateToChi>(slots, table.pTranslateToChiBuffer);
    Install<Entry::TranslateFromChiBuffer, TranslateFromChi>(slots, table.pTranslateFromChiBuffer);
}

/// The record is made at the first call and stays as it is.
void* OpenContext(void* unused, uint32_t version) {
    Expect<void*>(Rule::OpenArguments, "the first argument", unused, nullptr);
    Expect(Rule::OpenArguments, "the second argument", version, kVersion);
    static auto* const interface = new Table<ChiOfflineInterface>(Fill);
    return &interface->record;
}

} // namespace
} // namespace standin

extern "C" __attribute__((visibility("default"))) void* ChiOfflineOpenContext(void* unused,
                                                                              uint32_t version) {
    using namespace standin;
    return Recorded<Entry::OpenContext, OpenContext>::Call(unused, version);
}
