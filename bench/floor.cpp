/// The straight-line code that the library is measured against.
#include "bench/floor.h"

namespace bench {

using OemLayer::kMaxInputBuffers;
using OemLayer::kMaxInputSets;
using OemLayer::OfflineDataWraper;

namespace {

/// Lives from the submission to the result. As large as the library's.
struct Request {
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

} // namespace

// --- A session's life

void FloorCamera::Open(HostRequest& request) {
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
    pSession->pConfig = new ChiOfflineSessionConfigInfo{.pCameraText = pSession->cameraText.c_str(),
                                                        .numStreams = numInputs + 1,
                                                        .ppChiStreams = ppList,
                                                        .pSessionSettings = pSettings};
    mpInterface->pConfigureStreams(pSession->handle, pSession->pConfig);
    mpMetadataOps->pDestroy(pSettings);
    mOpen.push_back(pSession);
    request.pFloorSession = pSession;
    Submit(request);
}

void FloorCamera::CloseAll() {
    for (FloorSession* pSession : mOpen) {
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
    mOpen.clear();
}

// --- A request's life

namespace {

/// Feeds the session's inputs with each set.
void FillSets(ChiOfflineBufferSet* pSets, ChiStreamBuffer* pBuffers, Request& request,
              const HostRequest& host, ChiStream** ppStreams, uint32_t numInputs) {
    const OfflineDataWraper& wrapper = host.wrapper;
    for (uint32_t i = 0; i < wrapper.numBuffers; ++i) {
        pSets[i] = {numInputs, 0, pBuffers, 0, wrapper.pChiMetadataHandles[i]};
        request.pRtMetadata = pSets[i].pMetadata;
        request.pInputMetadata = pSets[i].pMetadata;
        for (uint32_t j = 0; j < numInputs; ++j) {
            ChiStream* pStream = ppStreams[j];
            ChiStreamBuffer& record = request.pInputBuffers[j];
            record.size = sizeof(ChiStreamBuffer);
            record.bufferType = kChiInputBufferType;
            record.bufferStatus = 0;
            record.pStream = pStream;
            if (pStream->format == ChiStreamFormatYCbCr420_888) {
                record.bufferHandle = wrapper.yuvBufferHandles[i];
                record.pBufferManager = host.privData.pYuvBufferManager;
            } else {
                auto* pFormat = new ChiInputFormat{};
                pFormat->cfaPattern = pStream->cfaPattern;
                pFormat->bufferFormat =
                    pStream->format == ChiStreamFormatRaw10 ? ChiFormatRaw10 : ChiFormatRaw16;
                record.bufferHandle = wrapper.pRDIBufferHandles[i];
                record.pBufferManager = host.privData.pBufferManager;
                record.pInputFormat = pFormat;
            }
            pStream->streamType = ChiStreamTypeInput;
            *pBuffers++ = record;
        }
    }
}

} // namespace

void FloorCamera::Submit(HostRequest& host) {
    OfflineDataWraper& wrapper = host.wrapper;
    wrapper.pRealtimePrivateData = &host.privData;
    wrapper.pOfflineOutputBuffer = &host.output;
    wrapper.mpOffCamAppCbs = HostCallbacks();
    mContext = wrapper.wrapperContext;
    mWord = wrapper.wrapperWord;
    mpFrameworkOps = wrapper.pCamera3CbOps;
    mpSessionParameters = wrapper.m_pRealtimeSessionParameters;
    mpHostCallbacks = wrapper.mpOffCamAppCbs;

    auto* pOutputBuffer = new ChiStreamBuffer;
    mpInterface->pTranslateToChiBuffer(&host.output, pOutputBuffer);
    mRegistryMutex.lock();
    FloorSession& session = *host.pFloorSession;
    mRegistryMutex.unlock();
    session.offlineFrameNumber = -1;
    mConfigurationMutex.lock();
    ChiStream** const ppStreams = session.pConfig->ppChiStreams;
    const uint32_t numInputs = session.pConfig->numStreams - 1;
    mConfigurationMutex.unlock();

    ChiStreamBuffer buffers[kMaxInputBuffers] = {};
    ChiOfflineBufferSet sets[kMaxInputSets] = {};
    auto* pRequest = new Request{};
    pRequest->inputCapacity = 2 * wrapper.numBuffers;
    pRequest->pInputBuffers = new ChiStreamBuffer[pRequest->inputCapacity]();
    pRequest->pRtPrivData = &host.privData;
    pRequest->pCamera = this;
    pRequest->pMetadataOps = mpMetadataOps;
    pRequest->pOutputBuffer = pOutputBuffer;
    pRequest->pTotalCounter = &mTotalCounter;
    host.privData.rtFrameNumber = wrapper.rtFrameNumber;
    FillSets(sets, buffers, *pRequest, host, ppStreams, numInputs);
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
    const FloorCamera& camera = *pRequest->pCamera;
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
