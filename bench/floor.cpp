#include "bench/floor.h"

#include <algorithm>

namespace bench {

using OemLayer::kMaxInputBuffers;
using OemLayer::kMaxInputSets;
using OemLayer::OfflineDataWraper;

/// Lives from the submission to the result. As large as the library's.
struct FloorCamera::Request {
    ChiStreamBuffer* pInputBuffers;
    ChiStreamBuffer* pOutputBuffer;
    ChiMetadataHandle pRtMetadata;
    ChiMetadataHandle pInputMetadata;
    ChiMetadataHandle pOutputMetadata;
    OemLayer::RequestPrivData* pRtPrivData;
    uint32_t numReceivedBuffers;
    FloorCamera* pCamera;
    ChiOfflineMetadataOps* pMetadataOps;
    uint32_t* pTotalCounter;
    uint32_t inputCapacity;
};

// --- A session's life

FloorSession* FloorCamera::Open(const HostRequest& request) {
    auto* pSession = new FloorSession;
    pSession->pCamera = this;
    pSession->cameraText = std::to_string(request.wrapper.identity.cameraId);
    pSession->name = "session_of_camera_" + pSession->cameraText;
    auto* pCallbacks = new ChiOfflineSessionCallbacks{
        .ProcessCaptureResultCb = ReceiveResult,
        .ProcessNotifyCb = [](auto...) {},
        .GetFrameworkBuffers = [](auto...) { return 1U; },
        .reserved24 = nullptr,
        .pPrivateCallbackData = pSession,
    };
    pSession->pCreateInfo = new ChiOfflineSessionCreateInfo{pSession->name.c_str(), 0, pCallbacks};
    pSession->handle = mpInterface->pOpenSession(mpInterface, pSession->pCreateInfo);

    const auto& halStreams = request.privData.inputStreams;
    const auto numInputs = static_cast<uint32_t>(halStreams.size());
    pSession->pInputs = new ChiStream[numInputs]();
    auto** ppList = new ChiStream*[numInputs + 1];
    for (uint32_t j = 0; j < numInputs; ++j) {
        ChiStream& stream = pSession->pInputs[j];
        stream.streamType = ChiStreamTypeInput;
        stream.width = halStreams[j]->width;
        stream.height = halStreams[j]->height;
        stream.format = static_cast<uint32_t>(halStreams[j]->format);
        stream.reserved152 = -1;
        stream.pPrivateInfo = new uint64_t[2]();
        ppList[j] = &stream;
    }
    ppList[numInputs] = reinterpret_cast<ChiStream*>(request.wrapper.identity.pOutStream);
    auto* pSettings =
        mpMetadataOps->pCreateFromAndroid(mpMetadataOps, mpSessionParameters, 0, 0, 0xFFFFFFFF);
    pSession->pConfig = new ChiOfflineSessionConfigInfo{
        pSession->cameraText.c_str(), numInputs + 1, ppList, 0, pSettings, 0};
    mpInterface->pConfigureStreams(pSession->handle, pSession->pConfig);
    mpMetadataOps->pDestroy(pSettings);
    return pSession;
}

void FloorCamera::Close(FloorSession* pSession) const {
    mpInterface->pCloseSession(pSession->handle);
    for (uint32_t j = 0; j + 1 < pSession->pConfig->numStreams; ++j) {
        delete[] static_cast<uint64_t*>(pSession->pInputs[j].pPrivateInfo);
    }
    delete[] pSession->pInputs;
    delete[] pSession->pConfig->ppChiStreams;
    delete pSession->pConfig;
    delete pSession->pCreateInfo->pCallbacks;
    delete pSession->pCreateInfo;
    delete pSession;
}

// --- A request's life

void FloorCamera::Submit(FloorSession& session, HostRequest& request) {
    OfflineDataWraper& wrapper = request.wrapper;
    PrivData& privData = request.privData;
    wrapper.pRealtimePrivateData = &privData;
    wrapper.pOfflineOutputBuffer = &request.output;
    wrapper.mpOffCamAppCbs = HostCallbacks();
    mContext = wrapper.wrapperContext;
    mWord = wrapper.wrapperWord;
    mpFrameworkOps = wrapper.pCamera3CbOps;
    mpSessionParameters = wrapper.m_pRealtimeSessionParameters;
    mpHostCallbacks = wrapper.mpOffCamAppCbs;

    auto* pOutputBuffer = new ChiStreamBuffer;
    mpInterface->pTranslateToChiBuffer(&request.output, pOutputBuffer);
    session.offlineFrameNumber = -1;
    ChiStreamBuffer buffers[kMaxInputBuffers] = {};
    ChiOfflineBufferSet sets[kMaxInputSets] = {};
    auto* pRequest = new Request{};
    pRequest->inputCapacity = 2 * wrapper.numBuffers;
    pRequest->pInputBuffers = new ChiStreamBuffer[pRequest->inputCapacity]();
    pRequest->pRtPrivData = &privData;
    pRequest->pCamera = this;
    pRequest->pMetadataOps = mpMetadataOps;
    pRequest->pOutputBuffer = pOutputBuffer;
    pRequest->pTotalCounter = &mTotalCounter;
    privData.rtFrameNumber = wrapper.rtFrameNumber;
    uint32_t numBuffers = 0;
    const uint32_t numInputs = session.pConfig->numStreams - 1;
    for (uint32_t i = 0; i < wrapper.numBuffers; ++i) {
        sets[i].pMetadata = wrapper.pChiMetadataHandles[i];
        pRequest->pRtMetadata = sets[i].pMetadata;
        pRequest->pInputMetadata = sets[i].pMetadata;
        for (uint32_t j = 0; j < numInputs; ++j) {
            ChiStream* pStream = session.pConfig->ppChiStreams[j];
            ChiStreamBuffer& record = pRequest->pInputBuffers[j];
            record.size = sizeof(ChiStreamBuffer);
            record.bufferType = kChiInputBufferType;
            record.bufferStatus = 0;
            record.pStream = pStream;
            if (pStream->format == ChiStreamFormatYCbCr420_888) {
                record.bufferHandle = wrapper.yuvBufferHandles[i];
                record.pBufferManager = privData.pYuvBufferManager;
            } else {
                auto* pFormat = new ChiInputFormat{};
                pFormat->cfaPattern = pStream->cfaPattern;
                pFormat->bufferFormat =
                    pStream->format == ChiStreamFormatRaw10 ? ChiFormatRaw10 : ChiFormatRaw16;
                record.bufferHandle = wrapper.pRDIBufferHandles[i];
                record.pBufferManager = privData.pBufferManager;
                record.pInputFormat = pFormat;
            }
            pStream->streamType = ChiStreamTypeInput;
            buffers[numBuffers++] = record;
        }
        sets[i].numBuffers = numInputs;
        sets[i].pBuffers = &buffers[size_t{numInputs} * i];
    }
    pRequest->pOutputMetadata = mpMetadataOps->pCreate(mpMetadataOps, nullptr, 0);
    ChiOfflineBufferSet output = {1, 0, pOutputBuffer, 0, pRequest->pOutputMetadata};
    ChiOfflineExecuteRequest execute = {
        .numInputs = wrapper.numBuffers,
        .reserved4 = 0,
        .pInputs = sets,
        .pOutput = &output,
        .pPrivateData = pRequest,
        .pOfflineFrameNumber = &session.offlineFrameNumber,
        .pLastFrameField = &session.lastFrameField,
        .reserved48 = 0,
    };
    if (mpInterface->pExecuteRequest(session.handle, &execute) == 0) {
        mTotalCounter += static_cast<uint32_t>(session.offlineFrameNumber);
    }
}

void FloorCamera::ReceiveResult(const ChiOfflineSessionCallbacks* /*pCallbacks*/,
                                unsigned int /*count*/, ChiOfflineCaptureResultInfo* pResult) {
    auto* pRequest = static_cast<Request*>(pResult->pPrivateData);
    const ChiOfflineResultBlock& block = *pResult->pResult;
    FloorCamera& camera = *pRequest->pCamera;
    pRequest->numReceivedBuffers += block.numBuffers;
    *pRequest->pTotalCounter -= pResult->frameNumber;

    camera3_capture_result result = {};
    camera3_stream_buffer buffers[8] = {};
    result.frame_number = pRequest->pRtPrivData->rtFrameNumber;
    result.num_output_buffers = block.numBuffers;
    result.output_buffers = buffers;
    for (uint32_t i = 0; i < block.numBuffers; ++i) {
        camera.mpInterface->pTranslateFromChiBuffer(&block.pBuffers[i], &buffers[i]);
    }
    result.result = static_cast<const camera_metadata*>(pRequest->pMetadataOps->pCreateAndroid(
        pRequest->pMetadataOps, block.pMetadata, 1, 0, 0, nullptr));
    result.partial_result = pRequest->pRtPrivData->partialResultBase + 255;
    camera.mpHostCallbacks->captureResult(pRequest->pRtPrivData, &result);
    pRequest->pMetadataOps->pDestroy(pRequest->pOutputMetadata);

    camera.mpHostCallbacks->releaseRtBuffers(pRequest->pRtPrivData);
    delete pRequest->pOutputBuffer;
    for (uint32_t k = 0; k < pRequest->numReceivedBuffers; ++k) {
        delete pRequest->pInputBuffers[k].pInputFormat;
    }
    delete[] pRequest->pInputBuffers;
    camera.mpHostCallbacks->requestComplete(pRequest->pRtPrivData, 0);
    delete pRequest;
}

} // namespace bench
