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
#include <tuple>

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

inline constexpr uint32_t kMostValues = 4096; ///< Of a tag.

/// What is copied of arguments, which count from 0; when the call returns, its result is behind
/// them.
struct Nothing {
    template <class... Args> static void Put(Writer&, const Args&...) {}
};
/// The record that an argument points at.
template <size_t Index, class T> struct One {
    template <class... Args> static void Put(Writer& writer, const Args&... args) {
        writer.Put(static_cast<const T*>(std::get<Index>(std::tie(args...))));
    }
};
/// The values that it points at, as many as the argument behind it says.
template <size_t Index, class T> struct Values {
    template <class... Args> static void Put(Writer& writer, const Args&... args) {
        const auto all = std::tie(args...);
        writer.PutMost(static_cast<const T*>(std::get<Index>(all)), std::get<Index + 1>(all),
                       kMostValues);
    }
};
/// The two moments together, as a capture has them.
template <class OnCall, class OnReturn = Nothing> struct Copies {
    template <class... Args> static void Call(Writer& writer, const Args&... args) {
        OnCall::Put(writer, args...);
    }
    template <class... Args> static void Return(Writer& writer, const Args&... args) {
        OnReturn::Put(writer, args...);
    }
};

/// What a call copies, beside its words, and its return. By default nothing.
template <Entry E> struct Capture : Copies<Nothing> {};

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
    template <> struct Capture<Entry::entry> : Copies<Nothing> {                                   \
        static void Call(Writer& writer, __VA_ARGS__);                                             \
    }
#define CONTRACT_BOTH(entry, Result, ...)                                                          \
    template <> struct Capture<Entry::entry> {                                                     \
        static void Call(Writer& writer, __VA_ARGS__);                                             \
        static void Return(Writer& writer, __VA_ARGS__, Result result);                            \
    }
#define CONTRACT_RETURN(entry, Result, ...)                                                        \
    template <> struct Capture<Entry::entry> : Copies<Nothing> {                                   \
        static void Return(Writer& writer, __VA_ARGS__, Result result);                            \
    }

template <> struct Capture<Entry::CreateWithUsage> : Copies<Values<1, uint32_t>> {};
CONTRACT_RETURN(GetTag, void*, PlatFormIntCallbacks*, void*, uint32_t, uint32_t* size, uint8_t);
template <> struct Capture<Entry::SetTag> : Copies<Values<3, uint8_t>> {};
CONTRACT_CALL(TakeImageBuffer, PlatFormIntCallbacks*, void* stream);
CONTRACT_CALL(SubmitRequestFromRT, PlatFormIntCallbacks*, void* request, void* privData,
              void* outputBuffer, void* appCallbacks);
template <> struct Capture<Entry::TranslateToBuffer>
    : Copies<One<1, camera3_stream_buffer>, One<2, ChiStreamBuffer>> {};
template <> struct Capture<Entry::TranslateFromBuffer>
    : Copies<One<1, ChiStreamBuffer>, One<2, camera3_stream_buffer>> {};
template <> struct Capture<Entry::CreateSensorInitSettings> : Copies<Nothing, One<0, int>> {};
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
template <> struct Capture<Entry::OpenMetadataOps>
    : Copies<One<1, ChiMetadataOpsOpenInfo>, One<2, ChiOfflineMetadataOps>> {};
template <> struct Capture<Entry::OpenBufferOps>
    : Copies<Nothing, One<1, ChiOfflineBufferManagerOps>> {};
template <> struct Capture<Entry::TranslateToChiBuffer>
    : Copies<One<0, camera3_stream_buffer>, One<1, ChiStreamBuffer>> {};
template <> struct Capture<Entry::TranslateFromChiBuffer>
    : Copies<One<0, ChiStreamBuffer>, One<1, camera3_stream_buffer>> {};
template <> struct Capture<Entry::MetadataCreateWithUsage> : Copies<Values<1, uint32_t>> {};
CONTRACT_RETURN(MetadataGetTag, uint32_t, ChiMetadataHandle, uint32_t, uint8_t,
                ChiMetadataTagEntry* entry);
template <> struct Capture<Entry::MetadataSetTag> : Copies<Values<2, uint8_t>> {};
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
