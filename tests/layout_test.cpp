/// The layout of the records that cross a boundary, typed once more from the contract where no
/// other test reads the whole record by its offsets, and the library as a device has it.

#include "tests/support/device.h"

namespace {

using namespace test;

struct Field {
    const char* name;
    size_t actual, expected;
};

void ExpectRecord(const char* record, size_t actual, size_t expected,
                  const std::vector<Field>& fields) {
    EXPECT_EQ(actual, expected) << "size of " << record;
    for (const Field& field : fields) {
        EXPECT_EQ(field.actual, field.expected) << record << "::" << field.name;
    }
}

/// RECORD(type, size, fields...), each field as AT(name, offset), with R naming the type.
#define RECORD(type, expected, ...)                                                                \
    do {                                                                                           \
        using R = type;                                                                            \
        ExpectRecord(#type, sizeof(R), expected, {__VA_ARGS__});                                   \
    } while (false)
#define AT(field, expected)                                                                        \
    Field { #field, offsetof(R, field), expected }

TEST(Layout, HostRecords) {
    using namespace OemLayer;
    RECORD(PlatformLoadFunctions, 16, AT(logMap, 8));
    RECORD(PlatFormIntCallbacks, 216, AT(ProcRequest, 8), AT(Create, 16), AT(Destroy, 24),
           AT(Flush, 32), AT(TearDownResource, 40), AT(CreateAndroidMetadata, 48),
           AT(CreateByAndroidMetadata, 56), AT(ReleaseAndroidMetadata, 64), AT(CreateWithUsage, 72),
           AT(Copy, 80), AT(MetadataDestroy, 88), AT(GetTag, 96), AT(SetTag, 104),
           AT(DeleteTag, 112), AT(GetImageBuffer, 120), AT(ReleaseImageBuffer, 128),
           AT(GetCPUAddress, 136), AT(SubmitRequestFromRT, 144), AT(TranslateToBuffer, 152),
           AT(TranslateFromBuffer, 160), AT(GetNCSCallback, 168), AT(GetHWCallback, 176),
           AT(GetPerfCallback, 184), AT(CreateSensorInitSettings, 192),
           AT(EnumerateSensorModes, 200), AT(ExtensionProcessResultMeta, 208));
    RECORD(OfflineSessionIdentitys, 40, AT(cameraId, 8), AT(featureName, 16));
    RECORD(OfflineDataWraper, 2744, AT(registryWord, 4), AT(numBuffers, 12), AT(identity, 32),
           AT(wrapperContext, 72), AT(pCameraInfo, 72), AT(wrapperWord, 80), AT(pCamera3CbOps, 88),
           AT(m_pRealtimeSessionParameters, 96), AT(yuvInput, 104), AT(dualRdi, 116),
           AT(pChiMetadataHandles, 120), AT(pRDIBufferHandles, 216), AT(pRDIBufferStream, 320),
           AT(pOfflineOutputBuffer, 2624), AT(yuvBufferHandles, 2632),
           AT(pRealtimePrivateData, 2728), AT(mpOffCamAppCbs, 2736));
    RECORD(RequestPrivData, 112, AT(pSecondRawBufferManager, 8), AT(pYuvBufferManager, 40),
           AT(inputStreams, 72), AT(numInputBuffers, 96), AT(rtFrameNumber, 100),
           AT(partialResultBase, 104));
    RECORD(OffCamApplicationCallbacks, 24, AT(requestComplete, 8), AT(captureResult, 16));
}

TEST(Layout, AndroidRecords) {
    RECORD(camera3_stream, 160, AT(width, 4), AT(height, 8), AT(format, 12), AT(usage, 16),
           AT(max_buffers, 20), AT(priv, 24), AT(data_space, 32), AT(rotation, 36),
           AT(physical_camera_id, 40));
    RECORD(camera3_stream_buffer, 40, AT(buffer, 8), AT(status, 16), AT(acquire_fence, 20),
           AT(release_fence, 24));
    RECORD(camera3_capture_result, 64, AT(result, 8), AT(num_output_buffers, 16),
           AT(output_buffers, 24), AT(input_buffer, 32), AT(partial_result, 40),
           AT(num_physcam_metadata, 44), AT(physcam_ids, 48), AT(physcam_metadata, 56));
    RECORD(camera3_buffer_request, 16, AT(num_buffers_requested, 8));
    RECORD(camera3_stream_buffer_ret, 24, AT(status, 8), AT(num_output_buffers, 12),
           AT(output_buffers, 16));
    RECORD(camera3_callback_ops, 32, AT(notify, 8), AT(request_stream_buffers, 16),
           AT(return_stream_buffers, 24));
}

TEST(Layout, VendorStreamsAndBuffers) {
    RECORD(ChiStreamBuffer, 208, AT(pStream, 8), AT(bufferType, 16), AT(bufferHandle, 24),
           AT(pBufferManager, 40), AT(pInputFormat, 48), AT(bufferStatus, 104));
    RECORD(ChiBufferManagerCreateData, 64, AT(height, 4), AT(format, 8), AT(reserved16, 16),
           AT(reserved24, 24), AT(reserved40, 40), AT(reserved48, 48), AT(reserved52, 52),
           AT(pStream, 56));
    RECORD(ChiMetadataTagEntry, 32, AT(pData, 8), AT(size, 16));
}

TEST(Layout, VendorSessionRecords) {
    RECORD(ChiOfflineSessionCreateInfo, 24, AT(sharedSessionHandle, 8), AT(pCallbacks, 16));
    RECORD(ChiOfflineSessionCallbacks, 40, AT(ProcessNotifyCb, 8), AT(GetFrameworkBuffers, 16),
           AT(pPrivateCallbackData, 32));
    RECORD(ChiOfflineSessionConfigInfo, 48, AT(numStreams, 8), AT(ppChiStreams, 16), AT(opMode, 24),
           AT(pSessionSettings, 32));
    RECORD(ChiOfflineResultBlock, 32, AT(pBuffers, 8), AT(numPartialMetadata, 16),
           AT(pMetadata, 24));
    RECORD(ChiOfflineCaptureResultInfo, 32, AT(pResult, 8), AT(pSecondResult, 16),
           AT(pPrivateData, 24));
    RECORD(ChiOfflineQueryBuffer, 16, AT(numBuffers, 8));
    RECORD(ChiOfflineQueryStreamBuffer, 24, AT(status, 8), AT(numBuffers, 12), AT(pBuffers, 16));
}

TEST(Layout, VendorOperationTables) {
    RECORD(ChiOfflineInterface, 120, AT(pName, 8), AT(pOpenSession, 40), AT(pCloseSession, 48),
           AT(pConfigureStreams, 56), AT(pExecuteRequest, 64), AT(pOpenMetadataOps, 88),
           AT(pOpenBufferOps, 96), AT(pTranslateToChiBuffer, 104),
           AT(pTranslateFromChiBuffer, 112));
    RECORD(ChiOfflineMetadataOps, 176, AT(pCreate, 16), AT(pCreateWithUsage, 24), AT(pDestroy, 32),
           AT(pCreateFromAndroid, 48), AT(pCreateAndroid, 56), AT(pReleaseAndroid, 64),
           AT(pGetTag, 80), AT(pSetTag, 88), AT(pDeleteTag, 128), AT(pCopy, 168));
    RECORD(ChiOfflineBufferManagerOps, 48, AT(pCreate, 8), AT(pDestroy, 16),
           AT(pGetImageBuffer, 24), AT(pReleaseImageBuffer, 32), AT(pGetCPUAddress, 40));
    RECORD(ChiMetadataOpsOpenInfo, 16, AT(cameraId, 0), AT(reserved4, 4), AT(reserved8, 8),
           AT(reserved12, 12));
}

TEST(Layout, FormatNumbers) {
    const std::vector<uint32_t> streams = {ChiStreamFormatRaw16,        ChiStreamFormatBlob,
                                           ChiStreamFormatYCbCr420_888, ChiStreamFormatRaw10,
                                           ChiStreamFormatRaw12,        ChiStreamFormatUBWCNV124R,
                                           ChiStreamFormatPD10,         ChiStreamFormatUBWCTP10};
    EXPECT_EQ(streams, (std::vector<uint32_t>{32, 33, 35, 37, 38, 40, 0x7FA30C08, 0x7FA30C09}));
    const std::vector<uint32_t> buffers = {ChiFormatYUV420NV12, ChiFormatBlob, ChiFormatRaw10,
                                           ChiFormatRaw16, ChiFormatRaw12};
    EXPECT_EQ(buffers, (std::vector<uint32_t>{3, 6, 9, 10, 26}));
}

// --- The library as a device has it

TEST(ProductionLibrary, LogsOnlyWhatItWasBuiltFor) {
    Device device{TEST_PLAIN_ADAPTER_LIBRARY};
    char text[] = "4";
    device.LoadContext().logMap(4, text, text);
    Camera camera{device};
    Request request;
    request.UseVendorBuffers(camera);
    ASSERT_EQ(request.Submit(camera), 0U);
    ASSERT_TRUE(request.WaitComplete());
    request.GiveBack(camera);
    camera->CreateByAndroidMetadata(camera.Table(), nullptr); // logs an error where errors are on
    camera.Flush();
    camera.Destroy();
    EXPECT_EQ(device->Logs().empty(), TEST_PLAIN_LIBRARY_IS_SILENT);
    EXPECT_EQ(AndroidLines().empty(), TEST_PLAIN_LIBRARY_IS_SILENT);
}

} // namespace
