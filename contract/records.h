/// The records that cross the boundary, member by member, as recordings hold them.
#pragma once

#include "adapterlayer/oemlayer_host.h"
#include "contract/entries.h"
#include "platform/chi/offline.h"

#include <string_view>

namespace contract {

/// What an image held, as far as its memory was known.
struct PixelHash {
    uint64_t bytes; ///< Of its first plane, where it is YUV.
    uint64_t hash;  ///< Of some of their words: `HashOfPixels`.
};

/// A stream of either side: the two records are one.
using Stream = ChiStream;

// clang-format off
/// RECORD(identifier, type). The first ones are plain values in a row. Numbers go into recordings.
#define CONTRACT_RECORDS(RECORD) \
    RECORD(Text, char) \
    RECORD(Bytes, uint8_t) \
    RECORD(Numbers, uint32_t) \
    RECORD(Signed, int32_t) \
    RECORD(Pointers, uint64_t) \
    RECORD(PixelHash, PixelHash) \
    RECORD(Stream, Stream) \
    RECORD(InputFormat, ChiInputFormat) \
    RECORD(StreamBuffer, ChiStreamBuffer) \
    RECORD(BufferSet, ChiOfflineBufferSet) \
    RECORD(ExecuteRequest, ChiOfflineExecuteRequest) \
    RECORD(ResultBlock, ChiOfflineResultBlock) \
    RECORD(CaptureResultInfo, ChiOfflineCaptureResultInfo) \
    RECORD(QueryBuffer, ChiOfflineQueryBuffer) \
    RECORD(QueryStreamBuffer, ChiOfflineQueryStreamBuffer) \
    RECORD(SessionCallbacks, ChiOfflineSessionCallbacks) \
    RECORD(SessionCreateInfo, ChiOfflineSessionCreateInfo) \
    RECORD(SessionConfigInfo, ChiOfflineSessionConfigInfo) \
    RECORD(MetadataOpsOpenInfo, ChiMetadataOpsOpenInfo) \
    RECORD(MetadataTagEntry, ChiMetadataTagEntry) \
    RECORD(BufferManagerCreateData, ChiBufferManagerCreateData) \
    RECORD(Interface, ChiOfflineInterface) \
    RECORD(MetadataOps, ChiOfflineMetadataOps) \
    RECORD(BufferManagerOps, ChiOfflineBufferManagerOps) \
    RECORD(FrameworkBuffer, camera3_stream_buffer) \
    RECORD(CaptureResult, camera3_capture_result) \
    RECORD(BufferRequest, camera3_buffer_request) \
    RECORD(StreamBufferRet, camera3_stream_buffer_ret) \
    RECORD(RequestPrivData, OemLayer::RequestPrivData) \
    RECORD(OfflineDataWraper, OemLayer::OfflineDataWraper) \
    RECORD(AppCallbacks, OemLayer::OffCamApplicationCallbacks)
// clang-format on

#define CONTRACT_RECORD(identifier, type) identifier,
enum class Record : uint16_t { None, CONTRACT_RECORDS(CONTRACT_RECORD) Count };
#undef CONTRACT_RECORD

/// The number of a record's type.
template <class T> inline constexpr Record kRecordOf = Record::None;
#define CONTRACT_RECORD(identifier, type)                                                          \
    template <> inline constexpr Record kRecordOf<type> = Record::identifier;
CONTRACT_RECORDS(CONTRACT_RECORD)
#undef CONTRACT_RECORD

struct RecordText {
    const char* name; ///< Of its type.
    uint32_t size;
    std::span<const Field> members; ///< Empty for plain values in a row.
};

/// All about a record. `record` is neither None nor Count.
const RecordText& TextOf(Record record);

} // namespace contract
