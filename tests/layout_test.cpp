/// The layout of the records that cross a boundary, typed once more from the contract, and the
/// library as a device has it.

#include "adapterlayer/qcomadaptee.h"
#include "platform/maker/zlog.h"
#include "tests/support/device.h"

namespace {

using namespace test;

struct Field {
    const char* name;
    size_t actual, expected, actualSize, expectedSize;
};

void ExpectRecord(const char* record, size_t actual, size_t expected,
                  const std::vector<Field>& fields) {
    EXPECT_EQ(actual, expected) << "size of " << record;
    for (const Field& field : fields) {
        EXPECT_EQ(field.actual, field.expected) << record << "::" << field.name;
        EXPECT_EQ(field.actualSize, field.expectedSize)
            << "size of " << record << "::" << field.name;
    }
}

/// RECORD(type, size, fields...), each field as AT(name, offset, size), with R naming the type; AT4
/// and AT8 are for fields of that size.
#define RECORD(type, expected, ...)                                                                \
    do {                                                                                           \
        using R = type;                                                                            \
        ExpectRecord(#type, sizeof(R), expected, {__VA_ARGS__});                                   \
    } while (false)
#define AT(field, offset, size)                                                                    \
    Field { #field, offsetof(R, field), offset, sizeof(R::field), size }
#define AT4(field, offset) AT(field, offset, 4)
#define AT8(field, offset) AT(field, offset, 8)

// The sizes of pointers and strings are meant.
// NOLINTBEGIN(bugprone-sizeof-expression, bugprone-sizeof-container)

TEST(Layout, HostRecords) {
    using namespace OemLayer;
    RECORD(PlatformLoadFunctions, 16, AT8(loadLib, 0), AT8(logMap, 8));
    RECORD(PlatFormIntCallbacks, 216, AT4(cameraId, 0), AT8(ProcRequest, 8), AT8(Create, 16),
           AT8(Destroy, 24), AT8(Flush, 32), AT8(TearDownResource, 40),
           AT8(CreateAndroidMetadata, 48), AT8(CreateByAndroidMetadata, 56),
           AT8(ReleaseAndroidMetadata, 64), AT8(CreateWithUsage, 72), AT8(Copy, 80),
           AT8(MetadataDestroy, 88), AT8(GetTag, 96), AT8(SetTag, 104), AT8(DeleteTag, 112),
           AT8(GetImageBuffer, 120), AT8(ReleaseImageBuffer, 128), AT8(GetCPUAddress, 136),
           AT8(SubmitRequestFromRT, 144), AT8(TranslateToBuffer, 152),
           AT8(TranslateFromBuffer, 160), AT8(GetNCSCallback, 168), AT8(GetHWCallback, 176),
           AT8(GetPerfCallback, 184), AT8(CreateSensorInitSettings, 192),
           AT8(EnumerateSensorModes, 200), AT8(ExtensionProcessResultMeta, 208));
    RECORD(OfflineSessionIdentitys, 40, AT8(pOutStream, 0), AT4(cameraId, 8),
           AT(featureName, 16, 24));
    RECORD(OfflineDataWraper, 2744, AT4(rtFrameNumber, 0), AT4(registryWord, 4),
           AT4(numBuffers, 12), AT(identity, 32, 40), AT8(wrapperContext, 72), AT8(pCameraInfo, 72),
           AT4(wrapperWord, 80), AT8(pCamera3CbOps, 88), AT8(m_pRealtimeSessionParameters, 96),
           AT4(yuvInput, 104), AT4(dualRdi, 116), AT(pChiMetadataHandles, 120, 96),
           AT(pRDIBufferHandles, 216, 104), AT(pRDIBufferStream, 320, 2304),
           AT8(pOfflineOutputBuffer, 2624), AT(yuvBufferHandles, 2632, 96),
           AT8(pRealtimePrivateData, 2728), AT8(mpOffCamAppCbs, 2736));
    RECORD(RequestPrivData, 112, AT8(pBufferManager, 0), AT8(pSecondRawBufferManager, 8),
           AT8(pYuvBufferManager, 40), AT(inputStreams, 72, 24), AT4(numInputBuffers, 96),
           AT4(rtFrameNumber, 100), AT4(partialResultBase, 104));
    RECORD(OffCamApplicationCallbacks, 24, AT8(releaseRtBuffers, 0), AT8(requestComplete, 8),
           AT8(captureResult, 16));
}

TEST(Layout, AndroidRecords) {
    RECORD(camera3_stream, 160, AT4(stream_type, 0), AT4(width, 4), AT4(height, 8), AT4(format, 12),
           AT4(usage, 16), AT4(max_buffers, 20), AT8(priv, 24), AT4(data_space, 32),
           AT4(rotation, 36), AT8(physical_camera_id, 40), AT4(reserved48, 48), AT4(reserved52, 52),
           AT8(reserved56, 56), AT4(reserved64, 64));
    RECORD(camera3_stream_buffer, 40, AT8(stream, 0), AT8(buffer, 8), AT4(status, 16),
           AT4(acquire_fence, 20), AT4(release_fence, 24));
    RECORD(camera3_capture_result, 64, AT4(frame_number, 0), AT8(result, 8),
           AT4(num_output_buffers, 16), AT8(output_buffers, 24), AT8(input_buffer, 32),
           AT4(partial_result, 40), AT4(num_physcam_metadata, 44), AT8(physcam_ids, 48),
           AT8(physcam_metadata, 56));
    RECORD(camera3_buffer_request, 16, AT8(stream, 0), AT4(num_buffers_requested, 8));
    RECORD(camera3_stream_buffer_ret, 24, AT8(stream, 0), AT4(status, 8),
           AT4(num_output_buffers, 12), AT8(output_buffers, 16));
    RECORD(camera3_callback_ops, 32, AT8(process_capture_result, 0), AT8(notify, 8),
           AT8(request_stream_buffers, 16), AT8(return_stream_buffers, 24));
}

TEST(Layout, VendorStreamsAndBuffers) {
    RECORD(ChiStream, 160, AT4(streamType, 0), AT4(width, 4), AT4(height, 8), AT4(format, 12),
           AT4(usage, 16), AT4(maxBuffers, 20), AT8(pPrivateInfo, 24), AT4(dataSpace, 32),
           AT4(rotation, 36), AT8(physicalCameraId, 40), AT4(reserved48, 48), AT4(reserved52, 52),
           AT8(reserved56, 56), AT4(reserved64, 64), AT8(reserved104, 104), AT(reserved112, 112, 2),
           AT(reserved114, 114, 2), AT4(cfaPattern, 128), AT8(reservedText136, 136),
           AT4(reserved144, 144), AT4(reserved148, 148), AT4(reserved152, 152));
    RECORD(ChiInputFormat, 96, AT4(cfaPattern, 0), AT4(reserved4, 4), AT4(bufferFormat, 12));
    RECORD(ChiStreamBuffer, 208, AT4(size, 0), AT8(pStream, 8), AT4(bufferType, 16),
           AT8(bufferHandle, 24), AT8(pBufferManager, 40), AT8(pInputFormat, 48),
           AT4(bufferStatus, 104));
    RECORD(ChiBufferManagerCreateData, 64, AT4(width, 0), AT4(height, 4), AT4(format, 8),
           AT8(reserved16, 16), AT8(reserved24, 24), AT4(reserved32, 32), AT4(reserved36, 36),
           AT4(reserved40, 40), AT4(reserved44, 44), AT4(reserved48, 48), AT4(reserved52, 52),
           AT8(pStream, 56));
    RECORD(ChiMetadataTagEntry, 32, AT8(pData, 8), AT4(size, 16));
}

TEST(Layout, VendorSessionRecords) {
    RECORD(ChiOfflineSessionCreateInfo, 24, AT8(pSessionName, 0), AT8(sharedSessionHandle, 8),
           AT8(pCallbacks, 16));
    RECORD(ChiOfflineSessionCallbacks, 40, AT8(ProcessCaptureResultCb, 0), AT8(ProcessNotifyCb, 8),
           AT8(GetFrameworkBuffers, 16), AT8(pPrivateCallbackData, 32));
    RECORD(ChiOfflineSessionConfigInfo, 48, AT8(pCameraText, 0), AT4(numStreams, 8),
           AT8(ppChiStreams, 16), AT4(opMode, 24), AT8(pSessionSettings, 32));
    RECORD(ChiOfflineBufferSet, 32, AT4(numBuffers, 0), AT8(pBuffers, 8), AT8(pMetadata, 24));
    RECORD(ChiOfflineExecuteRequest, 56, AT4(numInputs, 0), AT8(pInputs, 8), AT8(pOutput, 16),
           AT8(pPrivateData, 24), AT8(pOfflineFrameNumber, 32), AT8(pLastFrameField, 40),
           AT8(reserved48, 48));
    RECORD(ChiOfflineResultBlock, 32, AT4(numBuffers, 0), AT8(pBuffers, 8),
           AT4(numPartialMetadata, 16), AT8(pMetadata, 24));
    RECORD(ChiOfflineCaptureResultInfo, 32, AT4(frameNumber, 0), AT8(pResult, 8),
           AT8(pSecondResult, 16), AT8(pPrivateData, 24));
    RECORD(ChiOfflineQueryBuffer, 16, AT8(pStream, 0), AT4(numBuffers, 8));
    RECORD(ChiOfflineQueryStreamBuffer, 24, AT8(pStream, 0), AT4(status, 8), AT4(numBuffers, 12),
           AT8(pBuffers, 16));
    RECORD(OemLayer::QcomAdaptee::StreamPrivateInfo, 16, AT8(reserved0, 0), AT8(pHalStream, 8));
}

TEST(Layout, VendorOperationTables) {
    RECORD(ChiOfflineInterface, 120, AT4(size, 0), AT8(pName, 8), AT8(pOpenSession, 40),
           AT8(pCloseSession, 48), AT8(pConfigureStreams, 56), AT8(pExecuteRequest, 64),
           AT8(pOpenMetadataOps, 88), AT8(pOpenBufferOps, 96), AT8(pTranslateToChiBuffer, 104),
           AT8(pTranslateFromChiBuffer, 112));
    RECORD(ChiOfflineMetadataOps, 176, AT8(pClose, 0), AT8(pCreate, 16), AT8(pCreateWithUsage, 24),
           AT8(pDestroy, 32), AT8(pCreateFromAndroid, 48), AT8(pCreateAndroid, 56),
           AT8(pReleaseAndroid, 64), AT8(pGetTag, 80), AT8(pSetTag, 88), AT8(pDeleteTag, 128),
           AT8(pCopy, 168));
    RECORD(ChiOfflineBufferManagerOps, 48, AT8(pClose, 0), AT8(pCreate, 8), AT8(pDestroy, 16),
           AT8(pGetImageBuffer, 24), AT8(pReleaseImageBuffer, 32), AT8(pGetCPUAddress, 40));
    RECORD(ChiMetadataOpsOpenInfo, 16, AT4(cameraId, 0), AT4(reserved4, 4), AT4(reserved8, 8),
           AT4(reserved12, 12));
    RECORD(ZOfflineLogOps, 256, AT(reserved0, 0, 256));
}

TEST(Layout, FormatNumbers) {
    EXPECT_EQ((Words{ChiStreamFormatRaw16, ChiStreamFormatBlob, ChiStreamFormatYCbCr420_888,
                     ChiStreamFormatRaw10, ChiStreamFormatRaw12, ChiStreamFormatUBWCNV124R,
                     ChiStreamFormatPD10, ChiStreamFormatUBWCTP10}),
              (Words{32, 33, 35, 37, 38, 40, 0x7FA30C08, 0x7FA30C09}));
    EXPECT_EQ(
        (Words{ChiFormatYUV420NV12, ChiFormatBlob, ChiFormatRaw10, ChiFormatRaw16, ChiFormatRaw12}),
        (Words{3, 6, 9, 10, 26}));
}

// NOLINTEND(bugprone-sizeof-expression, bugprone-sizeof-container)

TEST(ProductionLibrary, LogsOnlyWhatItWasBuiltFor) {
    Device device{kit::AdapterFile(false)};
    char text[] = "4";
    device.library.LoadFunctions().logMap(4, text, text);
    Camera camera{device};
    Request request;
    request.UseVendorBuffers(camera);
    ASSERT_EQ(request.Submit(camera), 0U);
    device->WaitIdle();
    ASSERT_EQ(request.Events().back().kind, "complete");
    request.GiveBack(camera);
    camera->CreateByAndroidMetadata(camera.Table(), nullptr); // logs an error where errors are on
    camera.Flush();
    camera.Destroy();
    EXPECT_EQ(device->Logs().empty(), TEST_PLAIN_LIBRARY_IS_SILENT);
    EXPECT_EQ(g_android.lines.empty(), TEST_PLAIN_LIBRARY_IS_SILENT);
}

} // namespace
