/// The chip vendor's offline-processing interface: its records and operation tables.
///
/// Metadata objects, buffer managers, image buffers and buffer handles are opaque to the adapter.
/// Every table entry may be null. The adapter then takes the call as one that failed, or leaves it
/// out where it translates, closes or destroys something.
#pragma once

#include "platform/abi.h"
#include "platform/android/camera3.h"

#include <cstdint>

using ChiMetadataHandle = void*;
using ChiBufferManagerHandle = void*;
using ChiImageBufferHandle = void*;

enum ChiStreamType : uint32_t {
    ChiStreamTypeOutput = 0,
    ChiStreamTypeInput = 1,
};

/// Stream formats are the Android HAL pixel formats, and some of the vendor's own.
enum ChiStreamFormat : uint32_t {
    ChiStreamFormatRaw16 = HAL_PIXEL_FORMAT_RAW16,
    ChiStreamFormatBlob = HAL_PIXEL_FORMAT_BLOB,
    ChiStreamFormatYCbCr420_888 = HAL_PIXEL_FORMAT_YCBCR_420_888,
    ChiStreamFormatRaw10 = HAL_PIXEL_FORMAT_RAW10,
    ChiStreamFormatRaw12 = HAL_PIXEL_FORMAT_RAW12,
    ChiStreamFormatUBWCNV124R = 40,
    ChiStreamFormatPD10 = 0x7FA30C08,
    ChiStreamFormatUBWCTP10 = 0x7FA30C09,
};

enum ChiBufferFormat : uint32_t {
    ChiFormatYUV420NV12 = 3,
    ChiFormatBlob = 6,
    ChiFormatRaw10 = 9,
    ChiFormatRaw16 = 10,
    ChiFormatRaw12 = 26,
};

/// The vendor's stream record. The host's output streams are such records too (see camera3_stream).
struct ChiStream {
    uint32_t streamType; ///< One of ChiStreamType.
    uint32_t width;
    uint32_t height;
    uint32_t format; ///< A ChiStreamFormat.
    uint32_t usage;
    uint32_t maxBuffers;
    void* pPrivateInfo;
    uint32_t dataSpace;
    uint32_t rotation;
    const char* physicalCameraId;
    uint32_t reserved48;
    uint32_t reserved52;
    uint64_t reserved56;
    uint32_t reserved64;
    uint32_t reserved68;
    uint64_t reserved72[4];
    uint64_t reserved104;
    uint16_t reserved112;
    uint16_t reserved114;
    uint32_t reserved116;
    uint64_t reserved120;
    uint32_t cfaPattern; ///< Colour filter pattern of a raw stream; written by the vendor.
    uint32_t reserved132;
    const char* reservedText136;
    uint32_t reserved144;
    uint32_t reserved148; ///< 0 once the stream is in a session's list.
    int32_t reserved152;  ///< -1 once the stream is in a session's list.
    uint32_t reserved156;
};
ABI_SIZE(ChiStream, 160);
ABI_NO_PADDING(ChiStream);
ABI_SIZE(ChiStream, sizeof(camera3_stream));
ABI_OFFSET(ChiStream, streamType, 0);
ABI_OFFSET(ChiStream, width, 4);
ABI_OFFSET(ChiStream, height, 8);
ABI_OFFSET(ChiStream, format, 12);
ABI_OFFSET(ChiStream, usage, 16);
ABI_OFFSET(ChiStream, maxBuffers, 20);
ABI_OFFSET(ChiStream, pPrivateInfo, 24);
ABI_OFFSET(ChiStream, dataSpace, 32);
ABI_OFFSET(ChiStream, rotation, 36);
ABI_OFFSET(ChiStream, physicalCameraId, 40);
ABI_OFFSET(ChiStream, reserved48, 48);
ABI_OFFSET(ChiStream, reserved52, 52);
ABI_OFFSET(ChiStream, reserved56, 56);
ABI_OFFSET(ChiStream, reserved64, 64);
ABI_OFFSET(ChiStream, reserved104, 104);
ABI_OFFSET(ChiStream, reserved112, 112);
ABI_OFFSET(ChiStream, reserved114, 114);
ABI_OFFSET(ChiStream, cfaPattern, 128);
ABI_OFFSET(ChiStream, reservedText136, 136);
ABI_OFFSET(ChiStream, reserved144, 144);
ABI_OFFSET(ChiStream, reserved148, 148);
ABI_OFFSET(ChiStream, reserved152, 152);

/// How the pixels of a raw input lie in memory.
struct ChiInputFormat {
    uint32_t cfaPattern;
    uint32_t reserved4;
    uint32_t reserved8;
    uint32_t bufferFormat; ///< A ChiBufferFormat.
    uint64_t reserved16[10];
};
ABI_SIZE(ChiInputFormat, 96);
ABI_NO_PADDING(ChiInputFormat);
ABI_OFFSET(ChiInputFormat, reserved4, 4);
ABI_OFFSET(ChiInputFormat, bufferFormat, 12);

/// One buffer on its way into or out of an offline session.
struct ChiStreamBuffer {
    uint32_t size; ///< Always sizeof(ChiStreamBuffer).
    uint32_t reserved4;
    ChiStream* pStream;
    uint32_t bufferType;
    uint32_t reserved20;
    void* bufferHandle;
    uint64_t reserved32;
    ChiBufferManagerHandle pBufferManager; ///< The manager that owns `bufferHandle`.
    ChiInputFormat* pInputFormat;          ///< Raw inputs only, else null.
    uint64_t reserved56[6];
    uint32_t bufferStatus; ///< 0 is good.
    uint32_t reserved108;
    uint64_t reserved112[12];
};
ABI_SIZE(ChiStreamBuffer, 208);
ABI_NO_PADDING(ChiStreamBuffer);
ABI_OFFSET(ChiStreamBuffer, pStream, 8);
ABI_OFFSET(ChiStreamBuffer, bufferType, 16);
ABI_OFFSET(ChiStreamBuffer, bufferHandle, 24);
ABI_OFFSET(ChiStreamBuffer, pBufferManager, 40);
ABI_OFFSET(ChiStreamBuffer, pInputFormat, 48);
ABI_OFFSET(ChiStreamBuffer, bufferStatus, 104);

/// `ChiStreamBuffer::bufferType` of every input.
inline constexpr uint32_t kChiInputBufferType = 2;

/// The buffers and metadata of one input set, or of a request's output.
struct ChiOfflineBufferSet {
    uint32_t numBuffers;
    uint32_t reserved4;
    ChiStreamBuffer* pBuffers;
    uint64_t reserved16;
    ChiMetadataHandle pMetadata;
};
ABI_SIZE(ChiOfflineBufferSet, 32);
ABI_NO_PADDING(ChiOfflineBufferSet);
ABI_OFFSET(ChiOfflineBufferSet, pBuffers, 8);
ABI_OFFSET(ChiOfflineBufferSet, pMetadata, 24);

/// One request to a session. The vendor copies what it needs while it is being called; only what
/// `pOutput->pBuffers`, the input format records, the metadata handles and the two frame fields
/// point at outlives the call.
struct ChiOfflineExecuteRequest {
    uint32_t numInputs;
    uint32_t reserved4;
    ChiOfflineBufferSet* pInputs;
    ChiOfflineBufferSet* pOutput;
    void* pPrivateData;           ///< Comes back in every result.
    int32_t* pOfflineFrameNumber; ///< Preset to -1; the vendor writes its frame number.
    uint32_t* pLastFrameField;
    uint64_t reserved48;
};
ABI_SIZE(ChiOfflineExecuteRequest, 56);
ABI_NO_PADDING(ChiOfflineExecuteRequest);
ABI_OFFSET(ChiOfflineExecuteRequest, pInputs, 8);
ABI_OFFSET(ChiOfflineExecuteRequest, pOutput, 16);
ABI_OFFSET(ChiOfflineExecuteRequest, pPrivateData, 24);
ABI_OFFSET(ChiOfflineExecuteRequest, pOfflineFrameNumber, 32);
ABI_OFFSET(ChiOfflineExecuteRequest, pLastFrameField, 40);
ABI_OFFSET(ChiOfflineExecuteRequest, reserved48, 48);

/// What one result brings.
struct ChiOfflineResultBlock {
    uint32_t numBuffers;
    ChiStreamBuffer* pBuffers;
    uint32_t numPartialMetadata; ///< Partial metadata still to come.
    ChiMetadataHandle pMetadata; ///< Null when the result carries no metadata.
};
ABI_SIZE(ChiOfflineResultBlock, 32);
ABI_OFFSET(ChiOfflineResultBlock, pBuffers, 8);
ABI_OFFSET(ChiOfflineResultBlock, numPartialMetadata, 16);
ABI_OFFSET(ChiOfflineResultBlock, pMetadata, 24);

/// One result of a session.
struct ChiOfflineCaptureResultInfo {
    uint32_t frameNumber; ///< The offline frame number.
    ChiOfflineResultBlock* pResult;
    ChiOfflineResultBlock* pSecondResult;
    void* pPrivateData; ///< ChiOfflineExecuteRequest::pPrivateData.
};
ABI_SIZE(ChiOfflineCaptureResultInfo, 32);
ABI_OFFSET(ChiOfflineCaptureResultInfo, pResult, 8);
ABI_OFFSET(ChiOfflineCaptureResultInfo, pSecondResult, 16);
ABI_OFFSET(ChiOfflineCaptureResultInfo, pPrivateData, 24);

/// Framework buffers that a session wants for one stream.
struct ChiOfflineQueryBuffer {
    camera3_stream* pStream;
    uint32_t numBuffers;
};
ABI_SIZE(ChiOfflineQueryBuffer, 16);
ABI_OFFSET(ChiOfflineQueryBuffer, numBuffers, 8);

/// Framework buffers that a session gets for one stream. The vendor provides `pBuffers`.
struct ChiOfflineQueryStreamBuffer {
    camera3_stream* pStream;
    uint32_t status;
    uint32_t numBuffers;
    ChiStreamBuffer* pBuffers;
};
ABI_SIZE(ChiOfflineQueryStreamBuffer, 24);
ABI_OFFSET(ChiOfflineQueryStreamBuffer, status, 8);
ABI_OFFSET(ChiOfflineQueryStreamBuffer, numBuffers, 12);
ABI_OFFSET(ChiOfflineQueryStreamBuffer, pBuffers, 16);

/// A message of a session; opaque here.
struct ChiOfflineMessageInfo;

/// What a session calls back. The record is handed over at opening and comes back with every call.
struct ChiOfflineSessionCallbacks {
    void (*ProcessCaptureResultCb)(const ChiOfflineSessionCallbacks*, unsigned int count,
                                   ChiOfflineCaptureResultInfo* pResult);
    void (*ProcessNotifyCb)(const ChiOfflineSessionCallbacks*, unsigned int,
                            ChiOfflineMessageInfo*);
    uint32_t (*GetFrameworkBuffers)(const ChiOfflineSessionCallbacks*, unsigned int numRequests,
                                    const ChiOfflineQueryBuffer* pRequests,
                                    unsigned int* pNumReturned,
                                    ChiOfflineQueryStreamBuffer* pReturned);
    void* reserved24;
    void* pPrivateCallbackData;
};
ABI_SIZE(ChiOfflineSessionCallbacks, 40);
ABI_NO_PADDING(ChiOfflineSessionCallbacks);
ABI_OFFSET(ChiOfflineSessionCallbacks, ProcessNotifyCb, 8);
ABI_OFFSET(ChiOfflineSessionCallbacks, GetFrameworkBuffers, 16);
ABI_OFFSET(ChiOfflineSessionCallbacks, reserved24, 24);
ABI_OFFSET(ChiOfflineSessionCallbacks, pPrivateCallbackData, 32);

/// Everything the vendor needs to open a session. Both pointers stay valid as long as the session.
struct ChiOfflineSessionCreateInfo {
    const char* pSessionName;
    uint64_t sharedSessionHandle; ///< Always 0.
    ChiOfflineSessionCallbacks* pCallbacks;
};
ABI_SIZE(ChiOfflineSessionCreateInfo, 24);
ABI_NO_PADDING(ChiOfflineSessionCreateInfo);
ABI_OFFSET(ChiOfflineSessionCreateInfo, sharedSessionHandle, 8);
ABI_OFFSET(ChiOfflineSessionCreateInfo, pCallbacks, 16);

/// A session's stream configuration. It stays valid as long as the session.
struct ChiOfflineSessionConfigInfo {
    const char* pCameraText;
    uint32_t numStreams;
    uint32_t reserved12;
    ChiStream** ppChiStreams; ///< The inputs, then the output.
    uint32_t opMode;
    uint32_t reserved28;
    ChiMetadataHandle pSessionSettings;
    uint64_t reserved40;
};
ABI_SIZE(ChiOfflineSessionConfigInfo, 48);
ABI_NO_PADDING(ChiOfflineSessionConfigInfo);
ABI_OFFSET(ChiOfflineSessionConfigInfo, numStreams, 8);
ABI_OFFSET(ChiOfflineSessionConfigInfo, ppChiStreams, 16);
ABI_OFFSET(ChiOfflineSessionConfigInfo, opMode, 24);
ABI_OFFSET(ChiOfflineSessionConfigInfo, pSessionSettings, 32);

/// Handed to `pOpenMetadataOps`. The meaning of the last three words is the vendor's.
struct ChiMetadataOpsOpenInfo {
    uint32_t cameraId;
    uint32_t reserved4;  ///< Always 1.
    uint32_t reserved8;  ///< Always 0.
    uint32_t reserved12; ///< Always 1.
};
ABI_SIZE(ChiMetadataOpsOpenInfo, 16);
ABI_NO_PADDING(ChiMetadataOpsOpenInfo);

/// What the tag read entry fills in.
struct ChiMetadataTagEntry {
    uint64_t reserved0;
    void* pData;
    uint32_t size;
    uint32_t reserved20;
    uint64_t reserved24;
};
ABI_SIZE(ChiMetadataTagEntry, 32);
ABI_OFFSET(ChiMetadataTagEntry, pData, 8);
ABI_OFFSET(ChiMetadataTagEntry, size, 16);

/// Operations on metadata objects.
struct ChiOfflineMetadataOps {
    void (*pClose)(ChiOfflineMetadataOps*);
    void* unused8;
    /// Creates an empty object; the source is always null.
    ChiMetadataHandle (*pCreate)(ChiOfflineMetadataOps*, void* source, uint32_t);
    ChiMetadataHandle (*pCreateWithUsage)(ChiOfflineMetadataOps*, const uint32_t* tags,
                                          uint32_t tagCount, int32_t usage);
    uint32_t (*pDestroy)(ChiMetadataHandle);
    void* unused40;
    /// Creates an object from Android metadata.
    ChiMetadataHandle (*pCreateFromAndroid)(ChiOfflineMetadataOps*, const void* androidMetadata,
                                            uint32_t, uint32_t, uint32_t);
    /// Translates an object to Android metadata, which then belongs to the caller.
    void* (*pCreateAndroid)(ChiOfflineMetadataOps*, ChiMetadataHandle, uint32_t, uint32_t,
                            uint32_t count, uint32_t* out);
    uint32_t (*pReleaseAndroid)(ChiOfflineMetadataOps*, void* androidMetadata);
    void* unused72;
    uint32_t (*pGetTag)(ChiMetadataHandle, uint32_t tagId, uint8_t typeId, ChiMetadataTagEntry*);
    uint32_t (*pSetTag)(ChiMetadataHandle, uint32_t tagId, const void* data, uint32_t count,
                        uint32_t extra);
    void* unused96[4];
    uint32_t (*pDeleteTag)(ChiMetadataHandle, uint32_t tagId);
    void* unused136[4];
    uint32_t (*pCopy)(ChiMetadataHandle first, ChiMetadataHandle second, uint8_t flag);
};
ABI_SIZE(ChiOfflineMetadataOps, 176);
ABI_OFFSET(ChiOfflineMetadataOps, pCreate, 16);
ABI_OFFSET(ChiOfflineMetadataOps, pCreateWithUsage, 24);
ABI_OFFSET(ChiOfflineMetadataOps, pDestroy, 32);
ABI_OFFSET(ChiOfflineMetadataOps, pCreateFromAndroid, 48);
ABI_OFFSET(ChiOfflineMetadataOps, pCreateAndroid, 56);
ABI_OFFSET(ChiOfflineMetadataOps, pReleaseAndroid, 64);
ABI_OFFSET(ChiOfflineMetadataOps, pGetTag, 80);
ABI_OFFSET(ChiOfflineMetadataOps, pSetTag, 88);
ABI_OFFSET(ChiOfflineMetadataOps, pDeleteTag, 128);
ABI_OFFSET(ChiOfflineMetadataOps, pCopy, 168);

/// Handed to the buffer-manager create entry. The values of all but the first three words and the
/// stream are fixed by the vendor's interface.
struct ChiBufferManagerCreateData {
    uint32_t width;
    uint32_t height;
    uint32_t format;
    uint32_t reserved12;
    uint64_t reserved16;
    uint64_t reserved24;
    uint32_t reserved32;
    uint32_t reserved36;
    uint32_t reserved40;
    uint32_t reserved44;
    uint32_t reserved48;
    uint32_t reserved52;
    ChiStream* pStream;
};
ABI_SIZE(ChiBufferManagerCreateData, 64);
ABI_OFFSET(ChiBufferManagerCreateData, height, 4);
ABI_OFFSET(ChiBufferManagerCreateData, format, 8);
ABI_OFFSET(ChiBufferManagerCreateData, reserved16, 16);
ABI_OFFSET(ChiBufferManagerCreateData, reserved24, 24);
ABI_OFFSET(ChiBufferManagerCreateData, reserved40, 40);
ABI_OFFSET(ChiBufferManagerCreateData, reserved48, 48);
ABI_OFFSET(ChiBufferManagerCreateData, reserved52, 52);
ABI_OFFSET(ChiBufferManagerCreateData, pStream, 56);

/// Operations on buffer managers and image buffers.
struct ChiOfflineBufferManagerOps {
    void (*pClose)(ChiOfflineBufferManagerOps*);
    ChiBufferManagerHandle (*pCreate)(ChiOfflineBufferManagerOps*, const char* name,
                                      const ChiBufferManagerCreateData*);
    void (*pDestroy)(ChiBufferManagerHandle);
    ChiImageBufferHandle (*pGetImageBuffer)(ChiBufferManagerHandle);
    void (*pReleaseImageBuffer)(ChiImageBufferHandle);
    void* (*pGetCPUAddress)(ChiImageBufferHandle);
};
ABI_SIZE(ChiOfflineBufferManagerOps, 48);
ABI_OFFSET(ChiOfflineBufferManagerOps, pCreate, 8);
ABI_OFFSET(ChiOfflineBufferManagerOps, pDestroy, 16);
ABI_OFFSET(ChiOfflineBufferManagerOps, pGetImageBuffer, 24);
ABI_OFFSET(ChiOfflineBufferManagerOps, pReleaseImageBuffer, 32);
ABI_OFFSET(ChiOfflineBufferManagerOps, pGetCPUAddress, 40);

/// The offline interface: what "ChiOfflineOpenContext" returns. It lives as long as the process.
struct ChiOfflineInterface {
    uint32_t size;
    uint32_t reserved4;
    const char* pName;
    void* unused16[3];
    /// Returns the session's handle, 0 on failure.
    uint64_t (*pOpenSession)(ChiOfflineInterface*, ChiOfflineSessionCreateInfo*);
    int32_t (*pCloseSession)(uint64_t sessionHandle);
    int32_t (*pConfigureStreams)(uint64_t sessionHandle, ChiOfflineSessionConfigInfo*);
    int32_t (*pExecuteRequest)(uint64_t sessionHandle, ChiOfflineExecuteRequest*);
    void* unused72[2];
    ChiOfflineMetadataOps* (*pOpenMetadataOps)(ChiOfflineInterface*, ChiMetadataOpsOpenInfo*);
    ChiOfflineBufferManagerOps* (*pOpenBufferOps)(ChiOfflineInterface*);
    uint32_t (*pTranslateToChiBuffer)(const camera3_stream_buffer* source, ChiStreamBuffer* target);
    uint32_t (*pTranslateFromChiBuffer)(const ChiStreamBuffer* source,
                                        camera3_stream_buffer* target);
};
ABI_SIZE(ChiOfflineInterface, 120);
ABI_OFFSET(ChiOfflineInterface, pName, 8);
ABI_OFFSET(ChiOfflineInterface, pOpenSession, 40);
ABI_OFFSET(ChiOfflineInterface, pCloseSession, 48);
ABI_OFFSET(ChiOfflineInterface, pConfigureStreams, 56);
ABI_OFFSET(ChiOfflineInterface, pExecuteRequest, 64);
ABI_OFFSET(ChiOfflineInterface, pOpenMetadataOps, 88);
ABI_OFFSET(ChiOfflineInterface, pOpenBufferOps, 96);
ABI_OFFSET(ChiOfflineInterface, pTranslateToChiBuffer, 104);
ABI_OFFSET(ChiOfflineInterface, pTranslateFromChiBuffer, 112);
