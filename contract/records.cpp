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
#define MEMBERS(type, ...)                                                                         \
    template <> struct Members<type> {                                                             \
        using T = type;                                                                            \
        static constexpr std::array kAll{__VA_ARGS__};                                             \
    }

MEMBERS(PixelHash, NUMBER(bytes), NUMBER(hash));

MEMBERS(Stream, NUMBER(streamType), NUMBER(width), NUMBER(height), NUMBER(format), NUMBER(usage),
        NUMBER(maxBuffers), OBJECT(pPrivateInfo, Other), NUMBER(dataSpace), NUMBER(rotation),
        OBJECT(physicalCameraId, Other), RESERVED(reserved48), RESERVED(reserved52),
        RESERVED(reserved56), RESERVED(reserved64), RESERVED(reserved68), RESERVED(reserved72),
        RESERVED(reserved104), RESERVED(reserved112), RESERVED(reserved114), RESERVED(reserved116),
        RESERVED(reserved120), NUMBER(cfaPattern), RESERVED(reserved132),
        OBJECT(reservedText136, Other), RESERVED(reserved144), RESERVED(reserved148),
        RESERVED(reserved152), RESERVED(reserved156));

MEMBERS(ChiInputFormat, NUMBER(cfaPattern), RESERVED(reserved4), RESERVED(reserved8),
        NUMBER(bufferFormat), RESERVED(reserved16));

MEMBERS(ChiStreamBuffer, NUMBER(size), RESERVED(reserved4), OBJECT_WITH(pStream, Stream, Stream),
        NUMBER(bufferType), RESERVED(reserved20), OBJECT_WITH(bufferHandle, Buffer, PixelHash),
        RESERVED(reserved32), OBJECT(pBufferManager, Manager), LENT(pInputFormat, InputFormat),
        RESERVED(reserved56), NUMBER(bufferStatus), RESERVED(reserved108), RESERVED(reserved112));

MEMBERS(ChiOfflineBufferSet, NUMBER(numBuffers), RESERVED(reserved4), LENT(pBuffers, StreamBuffer),
        RESERVED(reserved16), OBJECT(pMetadata, Metadata));

MEMBERS(ChiOfflineExecuteRequest, NUMBER(numInputs), RESERVED(reserved4), LENT(pInputs, BufferSet),
        LENT(pOutput, BufferSet), NEW_OBJECT(pPrivateData, Execution),
        LENT(pOfflineFrameNumber, Signed), LENT(pLastFrameField, Numbers), RESERVED(reserved48));

MEMBERS(ChiOfflineResultBlock, NUMBER(numBuffers), LENT(pBuffers, StreamBuffer),
        NUMBER(numPartialMetadata), OBJECT(pMetadata, Metadata));

MEMBERS(ChiOfflineCaptureResultInfo, NUMBER(frameNumber), LENT(pResult, ResultBlock),
        LENT(pSecondResult, ResultBlock), OBJECT(pPrivateData, Execution));

MEMBERS(ChiOfflineQueryBuffer, OBJECT_WITH(pStream, Stream, Stream), NUMBER(numBuffers));

MEMBERS(ChiOfflineQueryStreamBuffer, OBJECT_WITH(pStream, Stream, Stream), NUMBER(status),
        NUMBER(numBuffers), LENT(pBuffers, StreamBuffer));

MEMBERS(ChiOfflineSessionCallbacks, OBJECT(ProcessCaptureResultCb, Function),
        OBJECT(ProcessNotifyCb, Function), OBJECT(GetFrameworkBuffers, Function),
        RESERVED(reserved24), OBJECT(pPrivateCallbackData, Callbacks));

MEMBERS(ChiOfflineSessionCreateInfo, TEXT(pSessionName), NUMBER(sharedSessionHandle),
        Field{.name = "pCallbacks",
              .kind = Kind::Object,
              .object = Object::Callbacks,
              .record = Record::SessionCallbacks,
              PLACE(pCallbacks),
              .isBorn = true});

MEMBERS(ChiOfflineSessionConfigInfo, TEXT(pCameraText), NUMBER(numStreams), RESERVED(reserved12),
        LENT(ppChiStreams, Pointers), NUMBER(opMode), RESERVED(reserved28),
        OBJECT(pSessionSettings, Metadata), RESERVED(reserved40));

MEMBERS(ChiMetadataOpsOpenInfo, NUMBER(cameraId), RESERVED(reserved4), RESERVED(reserved8),
        RESERVED(reserved12));

MEMBERS(ChiMetadataTagEntry, RESERVED(reserved0), LENT(pData, Bytes), NUMBER(size),
        RESERVED(reserved20), RESERVED(reserved24));

MEMBERS(ChiBufferManagerCreateData, NUMBER(width), NUMBER(height), NUMBER(format),
        RESERVED(reserved12), RESERVED(reserved16), RESERVED(reserved24), RESERVED(reserved32),
        RESERVED(reserved36), RESERVED(reserved40), RESERVED(reserved44), RESERVED(reserved48),
        RESERVED(reserved52), OBJECT_WITH(pStream, Stream, Stream));

/// Functions of operation tables differ from run to run; which are missing counts.
MEMBERS(ChiOfflineInterface, NUMBER(size), RESERVED(reserved4), TEXT(pName),
        OBJECT(pOpenSession, Function), OBJECT(pCloseSession, Function),
        OBJECT(pConfigureStreams, Function), OBJECT(pExecuteRequest, Function),
        OBJECT(pOpenMetadataOps, Function), OBJECT(pOpenBufferOps, Function),
        OBJECT(pTranslateToChiBuffer, Function), OBJECT(pTranslateFromChiBuffer, Function));

MEMBERS(ChiOfflineMetadataOps, OBJECT(pClose, Function), OBJECT(pCreate, Function),
        OBJECT(pCreateWithUsage, Function), OBJECT(pDestroy, Function),
        OBJECT(pCreateFromAndroid, Function), OBJECT(pCreateAndroid, Function),
        OBJECT(pReleaseAndroid, Function), OBJECT(pGetTag, Function), OBJECT(pSetTag, Function),
        OBJECT(pDeleteTag, Function), OBJECT(pCopy, Function));

MEMBERS(ChiOfflineBufferManagerOps, OBJECT(pClose, Function), OBJECT(pCreate, Function),
        OBJECT(pDestroy, Function), OBJECT(pGetImageBuffer, Function),
        OBJECT(pReleaseImageBuffer, Function), OBJECT(pGetCPUAddress, Function));

MEMBERS(camera3_stream_buffer, OBJECT_WITH(stream, Stream, Stream), OBJECT(buffer, Buffer),
        SIGNED(status), SIGNED(acquire_fence), SIGNED(release_fence), RESERVED(reserved28),
        RESERVED(reserved32));

MEMBERS(camera3_capture_result, NUMBER(frame_number), OBJECT(result, AndroidMetadata),
        NUMBER(num_output_buffers), LENT(output_buffers, FrameworkBuffer),
        LENT(input_buffer, FrameworkBuffer), NUMBER(partial_result), NUMBER(num_physcam_metadata),
        OBJECT(physcam_ids, Other), OBJECT(physcam_metadata, Other));

MEMBERS(camera3_buffer_request, OBJECT_WITH(stream, Stream, Stream), NUMBER(num_buffers_requested));

MEMBERS(camera3_stream_buffer_ret, OBJECT_WITH(stream, Stream, Stream), SIGNED(status),
        NUMBER(num_output_buffers), LENT(output_buffers, FrameworkBuffer));

MEMBERS(OemLayer::RequestPrivData, OBJECT(pBufferManager, Manager),
        OBJECT(pSecondRawBufferManager, Manager), RESERVED(reserved16),
        OBJECT(pYuvBufferManager, Manager), RESERVED(reserved48),
        Field{.name = "inputStreams",
              .kind = Kind::Pointers,
              .object = Object::Stream,
              .record = Record::Stream,
              PLACE(inputStreams)},
        NUMBER(numInputBuffers), NUMBER(rtFrameNumber), NUMBER(partialResultBase),
        RESERVED(reserved108));

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

MEMBERS(OemLayer::OffCamApplicationCallbacks, OBJECT(releaseRtBuffers, Function),
        OBJECT(requestComplete, Function), OBJECT(captureResult, Function));

#define CONTRACT_RECORD(identifier, type)                                                          \
    RecordText{#type, sizeof(type), std::span<const Field>(Members<type>::kAll)},
constexpr std::array kTexts{CONTRACT_RECORDS(CONTRACT_RECORD)};
#undef CONTRACT_RECORD

} // namespace

const RecordText& TextOf(Record record) { return kTexts[static_cast<size_t>(record) - 1]; }

} // namespace contract
