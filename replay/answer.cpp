/// Answers to the adapter, as they are in the recording.
#include "replay/world.h"
#include "standin/state.h"

#include <algorithm>

namespace replay {
namespace {

using contract::Record;
using contract::WordOf;
using standin::As;

/// The streams that a configuration lists: the recorded addresses and the adapter's own, in pairs.
std::vector<std::pair<uint64_t, ChiStream*>> StreamsOf(const Call& call, uint64_t word) {
    std::vector<std::pair<uint64_t, ChiStream*>> streams;
    const auto* const recorded = call.call.At<ChiOfflineSessionConfigInfo>(call.Word(1));
    const auto* const config = As<const ChiOfflineSessionConfigInfo*>(word);
    if (recorded != nullptr && config != nullptr && config->ppChiStreams != nullptr) {
        const auto list = call.call.All<uint64_t>(recorded->ppChiStreams);
        for (size_t i = 0; i < std::min<size_t>(list.size(), config->numStreams); ++i) {
            streams.emplace_back(list[i], config->ppChiStreams[i]);
        }
    }
    return streams;
}

/// Those of a request's inputs, each once.
std::vector<uint64_t> InputStreamsOf(const Call& execution) {
    std::vector<uint64_t> streams;
    const Event& event = execution.call;
    const auto* const request = event.At<ChiOfflineExecuteRequest>(event.Word(1));
    const auto sets =
        event.All<ChiOfflineBufferSet>(request == nullptr ? nullptr : request->pInputs);
    for (const ChiOfflineBufferSet& set : sets) {
        for (const ChiStreamBuffer& buffer : event.All<ChiStreamBuffer>(set.pBuffers)) {
            const uint64_t stream = WordOf(buffer.pStream);
            if (std::find(streams.begin(), streams.end(), stream) == streams.end()) {
                streams.push_back(stream);
            }
        }
    }
    return streams;
}

/// Writes what the vendor wrote: words of streams that differ after the call.
void WriteStreams(const Call& call, uint64_t config) {
    for (const auto& [recorded, own] : StreamsOf(call, config)) {
        const auto before = call.call.Find(Record::Stream, recorded);
        const auto after = call.end->Find(Record::Stream, recorded);
        auto* const target = reinterpret_cast<std::byte*>(own);
        for (size_t at = 0; at < std::min(before.size(), after.size()); at += sizeof(uint32_t)) {
            if (std::memcmp(&before[at], &after[at], sizeof(uint32_t)) != 0) {
                std::memcpy(target + at, &after[at], sizeof(uint32_t));
            }
        }
    }
}

/// The field belongs to the session: the other thread's numbers are written there, too.
void WriteFrames(const Call& call, const ChiOfflineExecuteRequest* request) {
    const auto* const recorded = call.end->At<ChiOfflineExecuteRequest>(call.Word(1));
    if (recorded == nullptr || request == nullptr) {
        return;
    }
    const auto* const frame = call.end->At<int32_t>(recorded->pOfflineFrameNumber);
    if (frame != nullptr && request->pOfflineFrameNumber != nullptr) {
        __atomic_store_n(request->pOfflineFrameNumber, *frame, __ATOMIC_RELAXED);
    }
    const auto* const last = call.end->At<uint32_t>(recorded->pLastFrameField);
    if (last != nullptr && request->pLastFrameField != nullptr) {
        __atomic_store_n(request->pLastFrameField, *last, __ATOMIC_RELAXED);
    }
}

void Translate(ChiStreamBuffer& buffer, World& world) {
    buffer.pStream = world.objects.StreamOf(buffer.pStream);
}
void Translate(camera3_stream_buffer& buffer, World& world) {
    buffer.stream = world.objects.StreamOf(buffer.stream);
}

template <class T> void WriteBuffer(const Call& call, T* target, World& world) {
    const auto* const recorded = call.end->At<T>(call.Word(1));
    if (recorded != nullptr && target != nullptr) {
        *target = *recorded;
        Translate(*target, world);
    }
}

/// The recording's copy of the data is at hand as long as it is needed.
void WriteTag(const Call& call, ChiMetadataTagEntry* entry) {
    const auto* const recorded = call.end->At<ChiMetadataTagEntry>(call.Word(3));
    if (recorded == nullptr || entry == nullptr) {
        return;
    }
    *entry = *recorded;
    const auto data = call.end->Find(Record::Bytes, WordOf(recorded->pData));
    if (recorded->pData != nullptr) {
        static uint8_t nothing[4096];
        entry->pData =
            data.empty() ? static_cast<void*>(nothing) : const_cast<std::byte*>(data.data());
    }
}

/// As the framework answered. The adapter has room for what it asked for.
void WriteFramework(const Call& call, std::span<const uint64_t> words, World& world) {
    const auto* const requests = As<const camera3_buffer_request*>(words[2]);
    auto* const own = As<camera3_stream_buffer_ret*>(words[4]);
    if (const auto* const returned = call.end->At<uint32_t>(call.Word(3))) {
        *As<uint32_t*>(words[3]) = *returned;
    }
    const auto answers = call.end->All<camera3_stream_buffer_ret>(call.Word(4));
    for (size_t i = 0; i < std::min<size_t>(answers.size(), As<uint32_t>(words[1])); ++i) {
        own[i].stream = world.objects.StreamOf(answers[i].stream);
        own[i].status = answers[i].status;
        own[i].num_output_buffers = answers[i].num_output_buffers;
        const auto buffers = call.end->All<camera3_stream_buffer>(answers[i].output_buffers);
        const size_t room = std::min<size_t>(buffers.size(), requests[i].num_buffers_requested);
        for (size_t k = 0; k < room; ++k) {
            own[i].output_buffers[k] = buffers[k];
            Translate(own[i].output_buffers[k], world);
        }
    }
}

} // namespace

void Learn(const Call& call, std::span<const uint64_t> words, World& world) {
    if (call.Of() == Entry::OpenSession && words[1] != 0) {
        const uint64_t session = call.end.has_value() ? call.end->Result() : 0;
        const auto& info = *As<const ChiOfflineSessionCreateInfo*>(words[1]);
        world.vendor.OnOpenSession(&call, session, info.pCallbacks);
    } else if (call.Of() == Entry::ExecuteRequest && words[1] != 0) {
        world.vendor.OnExecute(call, *As<const ChiOfflineExecuteRequest*>(words[1]));
    } else if (call.Of() == Entry::ConfigureStreams) {
        for (const auto& [recorded, own] : StreamsOf(call, words[1])) {
            world.objects.LearnStream(recorded, own);
        }
    }
}

void ConfigureFor(const Call& execution, uint64_t config, World& world) {
    const auto* const own = As<const ChiOfflineSessionConfigInfo*>(config);
    std::vector<uint64_t> inputs = InputStreamsOf(execution);
    // After a failed preparation there is a number of streams, and no list.
    const uint32_t count = own == nullptr || own->ppChiStreams == nullptr ? 0 : own->numStreams;
    for (uint32_t i = 0; i < count; ++i) {
        ChiStream& stream = *own->ppChiStreams[i];
        const auto recorded = std::find_if(inputs.begin(), inputs.end(), [&](uint64_t address) {
            const auto* const copy = execution.call.At<contract::Stream>(address);
            return copy != nullptr && copy->format == stream.format &&
                   copy->width == stream.width && copy->height == stream.height;
        });
        if (recorded != inputs.end()) {
            stream.cfaPattern = execution.call.At<contract::Stream>(*recorded)->cfaPattern;
            world.objects.LearnStream(*recorded, &stream);
            inputs.erase(recorded);
        }
    }
}

std::optional<uint64_t> Answer(const Call& call, std::span<const uint64_t> words, World& world) {
    const uint64_t result = call.end->Result();
    switch (call.Of()) {
    case Entry::OpenContext:
    case Entry::OpenMetadataOps:
    case Entry::OpenBufferOps:
        return result == 0 ? std::optional(result) : std::nullopt;
    case Entry::MetadataOpsClose:
    case Entry::BufferOpsClose:
        return std::nullopt;
    case Entry::ConfigureStreams:
        WriteStreams(call, words[1]);
        break;
    case Entry::ExecuteRequest:
        WriteFrames(call, As<const ChiOfflineExecuteRequest*>(words[1]));
        break;
    case Entry::TranslateToChiBuffer:
        WriteBuffer(call, As<ChiStreamBuffer*>(words[1]), world);
        break;
    case Entry::TranslateFromChiBuffer:
        WriteBuffer(call, As<camera3_stream_buffer*>(words[1]), world);
        break;
    case Entry::MetadataGetTag:
        WriteTag(call, As<ChiMetadataTagEntry*>(words[3]));
        break;
    case Entry::BufferManagerCreate:
        if (words[2] != 0) {
            world.vendor.OnManager(result, *As<const ChiBufferManagerCreateData*>(words[2]));
        }
        break;
    case Entry::GetImageBuffer:
        world.vendor.OnImage(result, words[0]);
        break;
    case Entry::GetCPUAddress:
        return result == 0 ? 0 : WordOf(world.vendor.MemoryOf(words[0]).data());
    case Entry::RequestStreamBuffers:
        WriteFramework(call, words, world);
        break;
    default:
        break;
    }
    return result;
}

} // namespace replay
