/// The copies that events hold.
#include "contract/capture.h"

namespace contract {
namespace {

constexpr size_t kMostText = 256;
constexpr uint32_t kMostStreams = 4096; ///< Of a session or a request.
/// Sets, buffers, requests and answers of one call.
constexpr uint32_t kMostRecords =
    std::tuple_size_v<decltype(Before<Entry::RequestStreamBuffers>::buffers)>;
constexpr uint32_t kMostResults = 8; ///< Buffers of a result; the adapter reads no more.

template <class T> T Load(const T* source) { return __atomic_load_n(source, __ATOMIC_RELAXED); }

/// A value that other threads write at the same time.
template <class T> void PutValue(Writer& writer, const T* source) {
    if (source != nullptr) {
        const T value = Load(source);
        writer.Put(kRecordOf<T>, source, &value, sizeof value);
    }
}

} // namespace

// --- Writer -------------------------------------------------------------------------------------

void Writer::Add(uint64_t word) {
    std::memcpy(mPlace + mSize, &word, sizeof word);
    mSize += sizeof word;
    mRecords = mSize;
    ++mWords;
}

void Writer::Put(Record record, const void* address, const void* source, size_t bytes) {
    if (std::byte* const place = Take(address, record, source == nullptr ? 0 : bytes)) {
        std::memcpy(place, source, bytes);
    }
}

void Writer::PutText(const char* text) {
    if (text != nullptr) {
        Put(Record::Text, text, Limit(strnlen(text, kMostText + 1), kMostText));
    }
}

void Writer::PutStream(const void* stream) {
    if (std::byte* place = Take(stream, Record::Stream, sizeof(Stream))) {
        const auto* words = static_cast<const uint32_t*>(stream);
        for (size_t i = 0; i < sizeof(Stream) / sizeof *words; ++i, place += sizeof *words) {
            const uint32_t word = Load(&words[i]);
            std::memcpy(place, &word, sizeof word);
        }
    }
}

void Writer::End(EventHeader& header) {
    header.size = mSize;
    header.words = mWords;
    header.isCut = mIsCut || mIsFull ? 1 : 0;
}

/// Room for the copy of a record, null where there is nothing to copy.
std::byte* Writer::Take(const void* address, Record record, size_t bytes) {
    if (address == nullptr || bytes == 0 || Has(record, address)) {
        return nullptr;
    }
    const size_t end = mSize + sizeof(RecordHeader) + ((bytes + 7) & ~size_t{7});
    if (end > mRoom) {
        mIsFull = true;
        return nullptr;
    }
    const RecordHeader header{.address = WordOf(address),
                              .bytes = static_cast<uint32_t>(bytes),
                              .record = record,
                              .reserved14 = 0};
    std::memcpy(mPlace + mSize, &header, sizeof header);
    std::byte* const place = mPlace + mSize + sizeof header;
    std::memset(mPlace + end - 8, 0, 8);
    mSize = static_cast<uint32_t>(end);
    return place;
}

/// Streams and format records are what several buffers share. Texts and the like never come twice.
bool Writer::Has(Record record, const void* address) const {
    if (record != Record::Stream) {
        return false;
    }
    for (uint32_t place = mRecords; place < mSize;) {
        RecordHeader header;
        std::memcpy(&header, mPlace + place, sizeof header);
        if (header.record == record && header.address == WordOf(address)) {
            return true;
        }
        place += uint32_t{sizeof header} + Padded(header.bytes);
    }
    return false;
}

// --- The host's side ----------------------------------------------------------------------------

using OemLayer::OffCamApplicationCallbacks;
using OemLayer::OfflineDataWraper;
using OemLayer::RequestPrivData;

void Capture<Entry::GetTag>::Return(Writer& writer, PlatFormIntCallbacks* /*table*/,
                                    void* /*metadata*/, uint32_t /*tag*/, uint32_t* size,
                                    uint8_t /*type*/, void* result) {
    if (size != nullptr) {
        writer.Put(size);
        writer.PutMost(static_cast<const uint8_t*>(result), *size, kMostValues);
    }
}

void Capture<Entry::TakeImageBuffer>::Call(Writer& writer, PlatFormIntCallbacks* /*table*/,
                                           void* stream) {
    writer.PutStream(stream);
}

/// The output buffer's stream is not read: the adapter does not, either.
void Capture<Entry::SubmitRequestFromRT>::Call(Writer& writer, PlatFormIntCallbacks* /*table*/,
                                               void* request, void* privData, void* outputBuffer,
                                               void* appCallbacks) {
    if (const auto* wrapper = static_cast<const OfflineDataWraper*>(request)) {
        writer.Put(wrapper);
        const std::string& feature = wrapper->identity.featureName;
        writer.Put(Record::Text, &feature, feature.data(), writer.Limit(feature.size(), kMostText));
        writer.PutStream(wrapper->identity.pOutStream);
    }
    if (const auto* record = static_cast<const RequestPrivData*>(privData)) {
        writer.Put(record);
        const auto& streams = record->inputStreams;
        const size_t count = writer.Limit(streams.size(), kMostStreams);
        writer.Put(Record::Pointers, &streams, streams.data(), sizeof(void*) * count);
        for (size_t i = 0; i < count; ++i) {
            writer.PutStream(streams[i]);
        }
    }
    writer.Put(static_cast<const camera3_stream_buffer*>(outputBuffer));
    writer.Put(static_cast<const OffCamApplicationCallbacks*>(appCallbacks));
}

void Capture<Entry::CaptureResult>::Call(Writer& writer, uint32_t /*camera*/,
                                         RequestPrivData* /*privData*/,
                                         camera3_capture_result* result) {
    writer.Put(result);
    if (result != nullptr) {
        writer.Put(result->output_buffers, std::min(result->num_output_buffers, kMostResults));
    }
}

Before<Entry::RequestStreamBuffers>::Before(const Images& /*images*/, uint32_t /*camera*/,
                                            uint32_t wanted, const camera3_buffer_request* requests,
                                            uint32_t* /*returned*/,
                                            camera3_stream_buffer_ret* answers) {
    if (requests == nullptr || answers == nullptr) {
        return;
    }
    count = std::min(wanted, kMostRecords);
    for (uint32_t i = 0; i < count; ++i) {
        buffers[i] = answers[i].output_buffers;
    }
}

void Capture<Entry::RequestStreamBuffers>::Call(
    Writer& writer, uint32_t /*camera*/, uint32_t count, const camera3_buffer_request* requests,
    uint32_t* /*returned*/, camera3_stream_buffer_ret* /*answers*/,
    const Before<Entry::RequestStreamBuffers>& /*before*/) {
    writer.PutMost(requests, count, kMostRecords);
}

void Capture<Entry::RequestStreamBuffers>::Return(
    Writer& writer, uint32_t /*camera*/, uint32_t count, const camera3_buffer_request* requests,
    uint32_t* returned, camera3_stream_buffer_ret* answers, int32_t status,
    const Before<Entry::RequestStreamBuffers>& before) {
    writer.Put(returned);
    const uint32_t filled = status == 0 && returned != nullptr ? std::min(*returned, count) : 0;
    const size_t answered = writer.PutMost(answers, filled, before.count);
    for (size_t i = 0; i < answered; ++i) {
        // No more than was wanted has room.
        writer.PutMost(before.buffers[i],
                       std::min(answers[i].num_output_buffers, requests[i].num_buffers_requested),
                       kMostRecords);
    }
}

// --- The vendor's side --------------------------------------------------------------------------

namespace {

void PutConfig(Writer& writer, const ChiOfflineSessionConfigInfo* config) {
    writer.Put(config);
    if (config == nullptr || config->ppChiStreams == nullptr) {
        return;
    }
    writer.PutText(config->pCameraText);
    const size_t count = writer.Limit(config->numStreams, kMostStreams);
    writer.Put(Record::Pointers, config->ppChiStreams, sizeof(void*) * count);
    for (size_t i = 0; i < count; ++i) {
        writer.PutStream(config->ppChiStreams[i]);
    }
}

void PutInputs(Writer& writer, const ChiOfflineExecuteRequest& request) {
    const size_t sets = writer.PutMost(request.pInputs, request.numInputs, kMostRecords);
    for (size_t i = 0; i < sets; ++i) {
        const ChiOfflineBufferSet& set = request.pInputs[i];
        const size_t buffers = writer.PutMost(set.pBuffers, set.numBuffers, kMostRecords);
        for (size_t k = 0; k < buffers; ++k) {
            writer.PutStream(set.pBuffers[k].pStream);
            writer.Put(set.pBuffers[k].pInputFormat);
        }
    }
}

} // namespace

void Capture<Entry::OpenContext>::Return(Writer& writer, void* /*unused*/, uint32_t /*version*/,
                                         void* result) {
    if (const auto* interface = static_cast<const ChiOfflineInterface*>(result)) {
        writer.Put(interface);
        writer.PutText(interface->pName);
    }
}

void Capture<Entry::OpenSession>::Call(Writer& writer, ChiOfflineInterface* /*interface*/,
                                       ChiOfflineSessionCreateInfo* info) {
    writer.Put(info);
    if (info != nullptr) {
        writer.PutText(info->pSessionName);
        writer.Put(info->pCallbacks);
    }
}

void Capture<Entry::ConfigureStreams>::Call(Writer& writer, uint64_t /*session*/,
                                            ChiOfflineSessionConfigInfo* config) {
    PutConfig(writer, config);
}

/// Once more: the vendor has written into the streams.
void Capture<Entry::ConfigureStreams>::Return(Writer& writer, uint64_t /*session*/,
                                              ChiOfflineSessionConfigInfo* config,
                                              int32_t /*status*/) {
    PutConfig(writer, config);
}

Before<Entry::ExecuteRequest>::Before(const Images& images, uint64_t /*session*/,
                                      const ChiOfflineExecuteRequest* request) {
    if (request == nullptr) {
        return;
    }
    copy = *request;
    const uint32_t sets = request->pInputs == nullptr ? 0 : std::min(copy.numInputs, kMostRecords);
    for (const ChiOfflineBufferSet& set : std::span(request->pInputs, sets)) {
        const uint32_t buffers =
            set.pBuffers == nullptr ? 0 : std::min(set.numBuffers, kMostRecords);
        for (const ChiStreamBuffer& buffer : std::span(set.pBuffers, buffers)) {
            const Images::Memory memory = images.Find(buffer.bufferHandle);
            if (memory.address != nullptr && count < inputs.size()) {
                inputs[count++] = {buffer.bufferHandle,
                                   memory,
                                   {memory.hashed, HashOfPixels(memory.address, memory.hashed)}};
            }
        }
    }
}

/// The output's stream is not read: what the vendor's translation made of it need not be one.
void Capture<Entry::ExecuteRequest>::Call(Writer& writer, uint64_t /*session*/,
                                          ChiOfflineExecuteRequest* request,
                                          const Before<Entry::ExecuteRequest>& before) {
    writer.Put(request);
    if (request == nullptr) {
        return;
    }
    PutInputs(writer, *request);
    writer.Put(request->pOutput);
    if (request->pOutput != nullptr) {
        writer.PutMost(request->pOutput->pBuffers, request->pOutput->numBuffers, kMostRecords);
    }
    PutValue(writer, request->pOfflineFrameNumber);
    PutValue(writer, request->pLastFrameField);
    for (const auto& input : before.Inputs()) {
        writer.Put(Record::PixelHash, input.image, &input.hash, sizeof input.hash);
    }
}

void Capture<Entry::ExecuteRequest>::Return(Writer& writer, uint64_t /*session*/,
                                            ChiOfflineExecuteRequest* request, int32_t /*status*/,
                                            const Before<Entry::ExecuteRequest>& before) {
    if (request != nullptr) {
        writer.Put(Record::ExecuteRequest, request, &before.copy, sizeof before.copy);
        PutValue(writer, before.copy.pOfflineFrameNumber);
        PutValue(writer, before.copy.pLastFrameField);
    }
}

void Capture<Entry::MetadataGetTag>::Return(Writer& writer, ChiMetadataHandle /*metadata*/,
                                            uint32_t /*tag*/, uint8_t /*type*/,
                                            ChiMetadataTagEntry* entry, uint32_t status) {
    writer.Put(entry);
    if (entry != nullptr && status == 0) {
        writer.PutMost(static_cast<const uint8_t*>(entry->pData), entry->size, kMostValues);
    }
}

void Capture<Entry::BufferManagerCreate>::Call(Writer& writer, ChiOfflineBufferManagerOps* /*ops*/,
                                               const char* name,
                                               const ChiBufferManagerCreateData* data) {
    writer.PutText(name);
    writer.Put(data);
    writer.PutStream(data == nullptr ? nullptr : data->pStream);
}

/// One record, whatever the count says: the adapter reads no other. Nor does it read the streams, a
/// result of nobody's, or the second block's buffers.
void Capture<Entry::ProcessCaptureResult>::Call(Writer& writer,
                                                const ChiOfflineSessionCallbacks* callbacks,
                                                unsigned int /*count*/,
                                                ChiOfflineCaptureResultInfo* result) {
    writer.Put(result);
    if (callbacks == nullptr || result == nullptr || result->pPrivateData == nullptr) {
        return;
    }
    if (const ChiOfflineResultBlock* const block = result->pResult) {
        writer.Put(block);
        writer.Put(block->pBuffers, std::min(block->numBuffers, kMostResults));
    }
    writer.Put(result->pSecondResult);
}

void Capture<Entry::GetFrameworkBuffers>::Call(Writer& writer,
                                               const ChiOfflineSessionCallbacks* /*callbacks*/,
                                               unsigned int count,
                                               const ChiOfflineQueryBuffer* requests,
                                               unsigned int* /*returned*/,
                                               ChiOfflineQueryStreamBuffer* /*answers*/) {
    writer.PutMost(requests, count, kMostRecords);
}

void Capture<Entry::GetFrameworkBuffers>::Return(
    Writer& writer, const ChiOfflineSessionCallbacks* /*callbacks*/, unsigned int count,
    const ChiOfflineQueryBuffer* requests, unsigned int* returned,
    ChiOfflineQueryStreamBuffer* answers, uint32_t status) {
    writer.Put(returned);
    const uint32_t filled = status == 0 && returned != nullptr ? std::min(*returned, count) : 0;
    const size_t answered = writer.PutMost(answers, filled, kMostRecords);
    for (size_t i = 0; i < answered; ++i) {
        writer.PutMost(answers[i].pBuffers, std::min(answers[i].numBuffers, requests[i].numBuffers),
                       kMostRecords);
    }
}

void Capture<Entry::Pixels>::Call(Writer& writer, ChiImageBufferHandle /*image*/,
                                  uint64_t /*offset*/, uint64_t bytes, const void* memory) {
    writer.Put(Record::Bytes, memory, bytes);
}

} // namespace contract
