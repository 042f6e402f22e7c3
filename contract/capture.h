/// Writes events: what is copied of a call's arguments and of the records behind them.
///
/// A record is copied only where the callee reads it, too, and only as far as it does: whatever
/// lies behind a wild pointer stays untouched. The exception is what a host names in a submission,
/// or to take an image: its streams are copied although the adapter reads them only while it makes
/// a session or a manager, so that they must be alive whenever they are named. Streams are copied
/// by atomic reads, since hosts and adapter write single words of them while other threads submit.
#pragma once

#include "contract/event.h"
#include "contract/images.h"

#include <algorithm>
#include <array>
#include <span>

namespace contract {

/// The value of an argument as a word. A table of callbacks stands for its camera.
template <class T> uint64_t WordOf(T value) {
    if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<uint64_t>(value);
    } else {
        return static_cast<uint64_t>(value);
    }
}
inline uint64_t WordOf(const PlatFormIntCallbacks* table) {
    return table == nullptr ? UINT32_MAX : table->cameraId;
}
inline uint64_t WordOf(PlatFormIntCallbacks* table) {
    return WordOf(static_cast<const PlatFormIntCallbacks*>(table));
}

/// Fills the memory of one event. What has no room is left out, and the event marked as cut.
class Writer {
  public:
    Writer(std::byte* place, size_t room) : mPlace(place), mRoom(room) {}

    void Add(uint64_t word);
    /// Copies what lies in a row. Does nothing for null, and for what the event has already.
    void Put(Record record, const void* source, size_t bytes) {
        Put(record, source, source, bytes);
    }
    template <class T> void Put(const T* source, size_t count = 1) {
        Put(kRecordOf<T>, source, sizeof(T) * count);
    }
    /// The same, of no more than so many. \returns how many, 0 for null.
    template <class T> size_t PutMost(const T* source, size_t count, size_t most) {
        const size_t kept = source == nullptr ? 0 : Limit(count, most);
        Put(source, kept);
        return kept;
    }
    /// \returns the lower one. What is beyond `most` is left out as if it had no room.
    size_t Limit(size_t count, size_t most) {
        mIsCut |= count > most;
        return std::min(count, most);
    }
    void PutText(const char* text);
    void PutStream(const void* stream); ///< Of either side.
    /// A copy that lay elsewhere, or a value that was read atomically.
    void Put(Record record, const void* address, const void* source, size_t bytes);

    /// Ends the event; the header's own numbers are the caller's.
    void End(EventHeader& header);
    uint32_t Size() const { return mSize; }
    /// Whether a larger room would have had more.
    bool IsFull() const { return mIsFull; }

  private:
    std::byte* Take(const void* address, Record record, size_t bytes);
    bool Has(Record record, const void* address) const;

    std::byte* const mPlace;
    const size_t mRoom;
    uint32_t mSize = sizeof(EventHeader);
    uint32_t mRecords = 0; ///< Where the first record begins.
    uint8_t mWords = 0;
    bool mIsFull = false;
    bool mIsCut = false; ///< Something was left out for its number.
};

/// What a call copies, beside its words, and its return. By default nothing.
template <Entry E> struct Capture {
    template <class... Args> static void Call(Writer&, const Args&...) {}
    template <class... Args> static void Return(Writer&, const Args&...) {}
};

/// What is taken before the call's event is written. By default nothing, and it is empty; where it
/// is not, `Capture` gets it as the last argument.
template <Entry E> struct Before {
    template <class... Args> explicit Before(const Images& /*images*/, const Args&...) {}
};

/// A request's record may be gone when the call returns; its frame fields are the session's. What
/// its inputs' images hold is read while nothing is locked.
template <> struct Before<Entry::ExecuteRequest> {
    struct Input {
        ChiImageBufferHandle image;
        Images::Memory memory;
        PixelHash hash;
    };
    Before(const Images& images, uint64_t session, const ChiOfflineExecuteRequest* request);
    std::span<const Input> Inputs() const { return {inputs.data(), count}; }

    ChiOfflineExecuteRequest copy{};
    size_t count = 0; ///< Of inputs whose memory is known.
    std::array<Input, OemLayer::kMaxInputBuffers> inputs;
};

/// The adapter's arrays for the buffers, which the framework's answers may no longer name.
template <> struct Before<Entry::RequestStreamBuffers> {
    Before(const Images& images, uint32_t camera, uint32_t count,
           const camera3_buffer_request* requests, uint32_t* returned,
           camera3_stream_buffer_ret* answers);

    uint32_t count = 0; ///< Of the answers, as far as they are recorded.
    std::array<const camera3_stream_buffer*, 64> buffers;
};

// Arguments as they stand in `Tap::Around`; a return has the result behind them.
#define CONTRACT_CALL(entry, ...)                                                                  \
    template <> struct Capture<Entry::entry> {                                                     \
        static void Call(Writer& writer, __VA_ARGS__);                                             \
        template <class... Args> static void Return(Writer&, const Args&...) {}                    \
    }
#define CONTRACT_BOTH(entry, Result, ...)                                                          \
    template <> struct Capture<Entry::entry> {                                                     \
        static void Call(Writer& writer, __VA_ARGS__);                                             \
        static void Return(Writer& writer, __VA_ARGS__, Result result);                            \
    }
#define CONTRACT_RETURN(entry, Result, ...)                                                        \
    template <> struct Capture<Entry::entry> {                                                     \
        template <class... Args> static void Call(Writer&, const Args&...) {}                      \
        static void Return(Writer& writer, __VA_ARGS__, Result result);                            \
    }

CONTRACT_CALL(CreateWithUsage, PlatFormIntCallbacks*, const uint32_t* tags, uint32_t count, int);
CONTRACT_RETURN(GetTag, void*, PlatFormIntCallbacks*, void*, uint32_t, uint32_t* size, uint8_t);
CONTRACT_CALL(SetTag, PlatFormIntCallbacks*, void*, uint32_t, const void* data, uint32_t count,
              uint32_t);
CONTRACT_CALL(TakeImageBuffer, PlatFormIntCallbacks*, void* stream);
CONTRACT_CALL(SubmitRequestFromRT, PlatFormIntCallbacks*, void* request, void* privData,
              void* outputBuffer, void* appCallbacks);
CONTRACT_BOTH(TranslateToBuffer, uint32_t, PlatFormIntCallbacks*, const void* source, void* target);
CONTRACT_BOTH(TranslateFromBuffer, uint32_t, PlatFormIntCallbacks*, const void* source,
              void* target);
CONTRACT_RETURN(CreateSensorInitSettings, int, int* settings, int);
CONTRACT_CALL(CaptureResult, uint32_t camera, OemLayer::RequestPrivData*,
              camera3_capture_result* result);
template <> struct Capture<Entry::RequestStreamBuffers> {
    static void Call(Writer& writer, uint32_t, uint32_t count,
                     const camera3_buffer_request* requests, uint32_t*, camera3_stream_buffer_ret*,
                     const Before<Entry::RequestStreamBuffers>&);
    static void Return(Writer& writer, uint32_t, uint32_t, const camera3_buffer_request* requests,
                       uint32_t* returned, camera3_stream_buffer_ret* answers, int32_t status,
                       const Before<Entry::RequestStreamBuffers>& before);
};

CONTRACT_RETURN(OpenContext, void*, void*, uint32_t);
CONTRACT_CALL(OpenSession, ChiOfflineInterface*, ChiOfflineSessionCreateInfo* info);
CONTRACT_BOTH(ConfigureStreams, int32_t, uint64_t, ChiOfflineSessionConfigInfo* config);
template <> struct Capture<Entry::ExecuteRequest> {
    static void Call(Writer& writer, uint64_t, ChiOfflineExecuteRequest* request,
                     const Before<Entry::ExecuteRequest>& before);
    static void Return(Writer& writer, uint64_t, ChiOfflineExecuteRequest* request, int32_t,
                       const Before<Entry::ExecuteRequest>& before);
};
CONTRACT_BOTH(OpenMetadataOps, ChiOfflineMetadataOps*, ChiOfflineInterface*,
              ChiMetadataOpsOpenInfo* info);
CONTRACT_RETURN(OpenBufferOps, ChiOfflineBufferManagerOps*, ChiOfflineInterface*);
CONTRACT_BOTH(TranslateToChiBuffer, uint32_t, const camera3_stream_buffer* source,
              ChiStreamBuffer* target);
CONTRACT_BOTH(TranslateFromChiBuffer, uint32_t, const ChiStreamBuffer* source,
              camera3_stream_buffer* target);
CONTRACT_CALL(MetadataCreateWithUsage, ChiOfflineMetadataOps*, const uint32_t* tags, uint32_t count,
              int32_t);
CONTRACT_RETURN(MetadataGetTag, uint32_t, ChiMetadataHandle, uint32_t, uint8_t,
                ChiMetadataTagEntry* entry);
CONTRACT_CALL(MetadataSetTag, ChiMetadataHandle, uint32_t, const void* data, uint32_t count,
              uint32_t);
CONTRACT_CALL(BufferManagerCreate, ChiOfflineBufferManagerOps*, const char* name,
              const ChiBufferManagerCreateData* data);
CONTRACT_CALL(ProcessCaptureResult, const ChiOfflineSessionCallbacks*, unsigned int count,
              ChiOfflineCaptureResultInfo* result);
CONTRACT_BOTH(GetFrameworkBuffers, uint32_t, const ChiOfflineSessionCallbacks*, unsigned int count,
              const ChiOfflineQueryBuffer* requests, unsigned int* returned,
              ChiOfflineQueryStreamBuffer* answers);
CONTRACT_CALL(Pixels, ChiImageBufferHandle, uint64_t offset, uint64_t bytes, const void* memory);

#undef CONTRACT_CALL
#undef CONTRACT_BOTH
#undef CONTRACT_RETURN

} // namespace contract
