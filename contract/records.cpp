/// The members of the records.
#include "contract/records.h"

#include <array>

namespace contract {
namespace {

template <class T> struct Extent {
    static constexpr uint16_t kSize = sizeof(T); // NOLINT(bugprone-sizeof-expression): of a pointer
    static constexpr uint16_t kCount = 1;
};
template <class T, size_t N> struct Extent<T[N]> {
    static constexpr uint16_t kSize = sizeof(T);
    static constexpr uint16_t kCount = N;
};

#define PLACE(member)                                                                              \
    .offset = offsetof(T, member), .size = Extent<decltype(T::member)>::kSize,                     \
    .count = Extent<decltype(T::member)>::kCount
#define NUMBER(member)                                                                             \
    Field { .name = #member, .kind = Kind::Number, PLACE(member) }
#define SIGNED(member)                                                                             \
    Field { .name = #member, .kind = Kind::Signed, PLACE(member) }
#define RESERVED(member)                                                                           \
    Field { .name = #member, .kind = Kind::Word, PLACE(member), .isReserved = true }
#define TEXT(member)                                                                               \
    Field { .name = #member, .kind = Kind::Text, PLACE(member) }
#define LENT(member, type)                                                                         \
    Field { .name = #member, .kind = Kind::Record, .record = Record::type, PLACE(member) }
#define OBJECT(member, what)                                                                       \
    Field { .name = #member, .kind = Kind::Object, .object = Object::what, PLACE(member) }
#define OBJECT_WITH(member, what, type)                                                            \
    Field {                                                                                        \
        .name = #member, .kind = Kind::Object, .object = Object::what, .record = Record::type,     \
        PLACE(member)                                                                              \
    }
#define NEW_OBJECT(member, what)                                                                   \
    Field {                                                                                        \
        .name = #member, .kind = Kind::Object, .object = Object::what, PLACE(member),              \
        .isBorn = true                                                                             \
    }

template <class T> struct Members { static constexpr std::array<Field, 0> kAll{}; };

template <> struct Members<PixelHash> {
    using T = PixelHash;
    static constexpr std::array kAll{NUMBER(bytes), NUMBER(hash)};
};

template <> struct Members<Stream> {
    using T = Stream;
    static constexpr std::array kAll{NUMBER(streamType),
                                     NUMBER(width),
                                     NUMBER(height),
                                     NUMBER(format),
                                     NUMBER(usage),
                                     NUMBER(maxBuffers),
                                     OBJECT(pPrivateInfo, Other),
                                     NUMBER(dataSpace),
                                     NUMBER(rotation),
                                     OBJECT(physicalCameraId, Other),
                                     RESERVED(reserved48),
                                     RESERVED(reserved52),
                                     RESERVED(reserved56),
                                     RESERVED(reserved64),
                                     RESERVED(reserved68),
                                     RESERVED(reserved72),
                                     RESERVED(reserved104),
                                     RESERVED(reserved112),
                                     RESERVED(reserved114),
                                     RESERVED(reserved116),
                                     RESERVED(reserved120),
                                     NUMBER(cfaPattern),
                                     RESERVED(reserved132),
                                     OBJECT(reservedText136, Other),
                                     RESERVED(reserved144),
                                     RESERVED(reserved148),
                                     RESERVED(reserved152),
                                     RESERVED(reserved156)};
};

template <> struct Members<ChiInputFormat> {
    using T = ChiInputFormat;
    static constexpr std::array kAll{NUMBER(cfaPattern), RESERVED(reserved4), RESERVED(reserved8),
                                     NUMBER(bufferFormat), RESERVED(reserved16)};
};

template <> struct Members<ChiStreamBuffer> {
    using T = ChiStreamBuffer;
    static constexpr std::array kAll{NUMBER(size),
                                     RESERVED(reserved4),
                                     OBJECT_WITH(pStream, Stream, Stream),
                                     NUMBER(bufferType),
                                     RESERVED(reserved20),
                                     OBJECT_WITH(bufferHandle, Buffer, PixelHash),
                                     RESERVED(reserved32),
                                     OBJECT(pBufferManager, Manager),
                                     LENT(pInputFormat, InputFormat),
                                     RESERVED(reserved56),
                                     NUMBER(bufferStatus),
                                     RESERVED(reserved108),
                                     RESERVED(reserved112)};
};

template <> struct Members<ChiOfflineBufferSet> {
    using T = ChiOfflineBufferSet;
    static constexpr std::array kAll{NUMBER(numBuffers), RESERVED(reserved4),
                                     LENT(pBuffers, StreamBuffer), RESERVED(reserved16),
                                     OBJECT(pMetadata, Metadata)};
};

template <> struct Members<ChiOfflineExecuteRequest> {
    using T = ChiOfflineExecuteRequest;
    static constexpr std::array kAll{NUMBER(numInputs),
                                     RESERVED(reserved4),
                                     LENT(pInputs, BufferSet),
                                     LENT(pOutput, BufferSet),
                                     NEW_OBJECT(pPrivateData, Execution),
                                     LENT(pOfflineFrameNumber, Signed),
                                     LENT(pLastFrameField, Numbers),
                                     RESERVED(reserved48)};
};

template <> struct Members<ChiOfflineResultBlock> {
    using T = ChiOfflineResultBlock;
    static constexpr std::array kAll{NUMBER(numBuffers), LENT(pBuffers, StreamBuffer),
                                     NUMBER(numPartialMetadata), OBJECT(pMetadata, Metadata)};
};

template <> struct Members<ChiOfflineCaptureResultInfo> {
    using T = ChiOfflineCaptureResultInfo;
    static constexpr std::array kAll{NUMBER(frameNumber), LENT(pResult, ResultBlock),
                                     LENT(pSecondResult, ResultBlock),
                                     OBJECT(pPrivateData, Execution)};
};

template <> struct Members<ChiOfflineQueryBuffer> {
    using T = ChiOfflineQueryBuffer;
    static constexpr std::array kAll{OBJECT_WITH(pStream, Stream, Stream), NUMBER(numBuffers)};
};

template <> struct Members<ChiOfflineQueryStreamBuffer> {
    using T = ChiOfflineQueryStreamBuffer;
    static constexpr std::array kAll{OBJECT_WITH(pStream, Stream, Stream), NUMBER(status),
                                     NUMBER(numBuffers), LENT(pBuffers, StreamBuffer)};
};

template <> struct Members<ChiOfflineSessionCallbacks> {
    using T = ChiOfflineSessionCallbacks;
    static constexpr std::array kAll{OBJECT(ProcessCaptureResultCb, Function),
                                     OBJECT(ProcessNotifyCb, Function),
                                     OBJECT(GetFrameworkBuffers, Function), RESERVED(reserved24),
                                     OBJECT(pPrivateCallbackData, Callbacks)};
};

template <> struct Members<ChiOfflineSessionCreateInfo> {
    using T = ChiOfflineSessionCreateInfo;
    static constexpr std::array kAll{TEXT(pSessionName), NUMBER(sharedSessionHandle),
                                     Field{.name = "pCallbacks",
                                           .kind = Kind::Object,
                                           .object = Object::Callbacks,
                                           .record = Record::SessionCallbacks,
                                           PLACE(pCallbacks),
                                           .isBorn = true}};
};

template <> struct Members<ChiOfflineSessionConfigInfo> {
    using T = ChiOfflineSessionConfigInfo;
    static constexpr std::array kAll{TEXT(pCameraText),
                                     NUMBER(numStreams),
                                     RESERVED(reserved12),
                                     LENT(ppChiStreams, Pointers),
                                     NUMBER(opMode),
                                     RESERVED(reserved28),
                                     OBJECT(pSessionSettings, Metadata),
                                     RESERVED(reserved40)};
};

template <> struct Members<ChiMetadataOpsOpenInfo> {
    using T = ChiMetadataOpsOpenInfo;
    static constexpr std::array kAll{NUMBER(cameraId), RESERVED(reserved4), RESERVED(reserved8),
                                     RESERVED(reserved12)};
};

template <> struct Members<ChiMetadataTagEntry> {
    using T = ChiMetadataTagEntry;
    static constexpr std::array kAll{RESERVED(reserved0), LENT(pData, Bytes), NUMBER(size),
                                     RESERVED(reserved20), RESERVED(reserved24)};
};

template <> struct Members<ChiBufferManagerCreateData> {
    using T = ChiBufferManagerCreateData;
    static constexpr std::array kAll{NUMBER(width),
                                     NUMBER(height),
                                     NUMBER(format),
                                     RESERVED(reserved12),
                                     RESERVED(reserved16),
                                     RESERVED(reserved24),
                                     RESERVED(reserved32),
                                     RESERVED(reserved36),
                                     RESERVED(reserved40),
                                     RESERVED(reserved44),
                                     RESERVED(reserved48),
                                     RESERVED(reserved52),
                                     OBJECT_WITH(pStream, Stream, Stream)};
};

/// Functions of operation tables differ from run to run; which are missing counts.
template <> struct Members<ChiOfflineInterface> {
    using T = ChiOfflineInterface;
    static constexpr std::array kAll{NUMBER(size),
                                     RESERVED(reserved4),
                                     TEXT(pName),
                                     OBJECT(pOpenSession, Function),
                                     OBJECT(pCloseSession, Function),
                                     OBJECT(pConfigureStreams, Function),
                                     OBJECT(pExecuteRequest, Function),
                                     OBJECT(pOpenMetadataOps, Function),
                                     OBJECT(pOpenBufferOps, Function),
                                     OBJECT(pTranslateToChiBuffer, Function),
                                     OBJECT(pTranslateFromChiBuffer, Function)};
};

template <> struct Members<ChiOfflineMetadataOps> {
    using T = ChiOfflineMetadataOps;
    static constexpr std::array kAll{OBJECT(pClose, Function),
                                     OBJECT(pCreate, Function),
                                     OBJECT(pCreateWithUsage, Function),
                                     OBJECT(pDestroy, Function),
                                     OBJECT(pCreateFromAndroid, Function),
                                     OBJECT(pCreateAndroid, Function),
                                     OBJECT(pReleaseAndroid, Function),
                                     OBJECT(pGetTag, Function),
                                     OBJECT(pSetTag, Function),
                                     OBJECT(pDeleteTag, Function),
                                     OBJECT(pCopy, Function)};
};

template <> struct Members<ChiOfflineBufferManagerOps> {
    using T = ChiOfflineBufferManagerOps;
    static constexpr std::array kAll{OBJECT(pClose, Function),
                                     OBJECT(pCreate, Function),
                                     OBJECT(pDestroy, Function),
                                     OBJECT(pGetImageBuffer, Function),
                                     OBJECT(pReleaseImageBuffer, Function),
                                     OBJECT(pGetCPUAddress, Function)};
};

template <> struct Members<camera3_stream_buffer> {
    using T = camera3_stream_buffer;
    static constexpr std::array kAll{OBJECT_WITH(stream, Stream, Stream),
                                     OBJECT(buffer, Buffer),
                                     SIGNED(status),
                                     SIGNED(acquire_fence),
                                     SIGNED(release_fence),
                                     RESERVED(reserved28),
                                     RESERVED(reserved32)};
};

template <> struct Members<camera3_capture_result> {
    using T = camera3_capture_result;
    static constexpr std::array kAll{NUMBER(frame_number),
                                     OBJECT(result, AndroidMetadata),
                                     NUMBER(num_output_buffers),
                                     LENT(output_buffers, FrameworkBuffer),
                                     LENT(input_buffer, FrameworkBuffer),
                                     NUMBER(partial_result),
                                     NUMBER(num_physcam_metadata),
                                     OBJECT(physcam_ids, Other),
                                     OBJECT(physcam_metadata, Other)};
};

template <> struct Members<camera3_buffer_request> {
    using T = camera3_buffer_request;
    static constexpr std::array kAll{OBJECT_WITH(stream, Stream, Stream),
                                     NUMBER(num_buffers_requested)};
};

template <> struct Members<camera3_stream_buffer_ret> {
    using T = camera3_stream_buffer_ret;
    static constexpr std::array kAll{OBJECT_WITH(stream, Stream, Stream), SIGNED(status),
                                     NUMBER(num_output_buffers),
                                     LENT(output_buffers, FrameworkBuffer)};
};

template <> struct Members<OemLayer::RequestPrivData> {
    using T = OemLayer::RequestPrivData;
    static constexpr std::array kAll{OBJECT(pBufferManager, Manager),
                                     OBJECT(pSecondRawBufferManager, Manager),
                                     RESERVED(reserved16),
                                     OBJECT(pYuvBufferManager, Manager),
                                     RESERVED(reserved48),
                                     Field{.name = "inputStreams",
                                           .kind = Kind::Pointers,
                                           .object = Object::Stream,
                                           .record = Record::Stream,
                                           PLACE(inputStreams)},
                                     NUMBER(numInputBuffers),
                                     NUMBER(rtFrameNumber),
                                     NUMBER(partialResultBase),
                                     RESERVED(reserved108)};
};

/// The identity's members lie in place.
template <> struct Members<OemLayer::OfflineDataWraper> {
    using T = OemLayer::OfflineDataWraper;
    static constexpr uint16_t kIdentity = offsetof(T, identity);
    using I = OemLayer::OfflineSessionIdentitys;
    static constexpr std::array kAll{NUMBER(rtFrameNumber),
                                     RESERVED(registryWord),
                                     RESERVED(reserved8),
                                     NUMBER(numBuffers),
                                     RESERVED(reserved16),
                                     Field{.name = "pOutStream",
                                           .kind = Kind::Object,
                                           .object = Object::Stream,
                                           .record = Record::Stream,
                                           .offset = kIdentity},
                                     Field{.name = "cameraId",
                                           .kind = Kind::Number,
                                           .offset = kIdentity + offsetof(I, cameraId),
                                           .size = sizeof(I::cameraId)},
                                     Field{.name = "featureName",
                                           .kind = Kind::TextObject,
                                           .offset = kIdentity + offsetof(I, featureName)},
                                     OBJECT(wrapperContext, Other),
                                     RESERVED(wrapperWord),
                                     RESERVED(reserved84),
                                     OBJECT(pCamera3CbOps, Callbacks),
                                     OBJECT(m_pRealtimeSessionParameters, Other),
                                     NUMBER(yuvInput),
                                     RESERVED(reserved108),
                                     NUMBER(dualRdi),
                                     OBJECT(pChiMetadataHandles, Metadata),
                                     OBJECT(pRDIBufferHandles, Image),
                                     OBJECT(pRDIBufferStream, Other), // Images, in dual RDI.
                                     OBJECT(pOfflineOutputBuffer, Other),
                                     OBJECT(yuvBufferHandles, Image),
                                     OBJECT(pRealtimePrivateData, Other),
                                     OBJECT(mpOffCamAppCbs, Other)};
};

template <> struct Members<OemLayer::OffCamApplicationCallbacks> {
    using T = OemLayer::OffCamApplicationCallbacks;
    static constexpr std::array kAll{OBJECT(releaseRtBuffers, Function),
                                     OBJECT(requestComplete, Function),
                                     OBJECT(captureResult, Function)};
};

#define CONTRACT_RECORD(identifier, type)                                                          \
    RecordText{#type, sizeof(type), std::span<const Field>(Members<type>::kAll)},
constexpr std::array kTexts{CONTRACT_RECORDS(CONTRACT_RECORD)};
#undef CONTRACT_RECORD

} // namespace

const RecordText& TextOf(Record record) { return kTexts[static_cast<size_t>(record) - 1]; }

} // namespace contract
