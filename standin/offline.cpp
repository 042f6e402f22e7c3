/// The offline interface: sessions, their configuration and their requests, and buffer translation.
#include "standin/pixels.h"
#include "standin/session.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace standin {
namespace {

constexpr uint32_t kFrameworkBuffer = 1; ///< `ChiStreamBuffer::bufferType` of a framework's buffer.
constexpr int kPoison = 0xA5;

bool IsRaw(const ChiStream& stream) {
    return stream.format == ChiStreamFormatRaw16 || stream.format == ChiStreamFormatRaw10;
}

// --- Sessions

uint64_t OpenSession(ChiOfflineInterface* /*interface*/, ChiOfflineSessionCreateInfo* info) {
    if (info == nullptr || info->pSessionName == nullptr || info->pCallbacks == nullptr ||
        info->pCallbacks->ProcessCaptureResultCb == nullptr ||
        info->pCallbacks->ProcessNotifyCb == nullptr ||
        info->pCallbacks->GetFrameworkBuffers == nullptr) {
        return 0;
    }
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
    const char* const text = config.pCameraText == nullptr ? "" : config.pCameraText;
    return static_cast<uint32_t>(std::strtoul(text, nullptr, 10));
}

/// Takes a stream of the list in, and writes the sensor's filter pattern into raw inputs.
ChiStream Configure(ChiStream& stream, uint32_t cameraId, bool isOutput) {
    if (!isOutput && IsRaw(stream)) {
        stream.cfaPattern = CfaPatternOf(cameraId);
    }
    return stream;
}

/// The list may be null: a preparation that failed leaves the record without one.
int32_t ConfigureStreams(uint64_t handle, ChiOfflineSessionConfigInfo* config) {
    const auto session = Find<Session>(handle);
    if (!session || config == nullptr) {
        return kFailed;
    }
    const size_t count = config->ppChiStreams == nullptr ? 0 : config->numStreams;
    const std::vector<ChiStream*> pointers(config->ppChiStreams, config->ppChiStreams + count);
    const uint32_t cameraId = CameraOf(*config);
    std::vector<ChiStream> streams;
    for (ChiStream* stream : pointers) {
        if (stream == nullptr) {
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

/// Gives the request its frame number.
void AssignFrame(Execution& execution) {
    int32_t* const field = execution.request.pOfflineFrameNumber;
    const auto device = Device().Lock();
    execution.presetFrameNumber = __atomic_load_n(field, __ATOMIC_RELAXED);
    execution.offlineFrame = device->nextFrame++;
    __atomic_store_n(field, execution.offlineFrame, __ATOMIC_RELAXED);
    __atomic_store_n(execution.request.pLastFrameField,
                     static_cast<uint32_t>(execution.offlineFrame), __ATOMIC_RELAXED);
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
    const auto session = Find<Session>(handle);
    if (!session || request == nullptr || request->pOfflineFrameNumber == nullptr ||
        request->pLastFrameField == nullptr) {
        return kFailed;
    }
    const auto execution = CopyRequest(handle, *request);
    AssignFrame(*execution);
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
    if (source == nullptr || target == nullptr) {
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
    if (source == nullptr || target == nullptr) {
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
void* OpenContext(void* /*unused*/, uint32_t /*version*/) {
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
