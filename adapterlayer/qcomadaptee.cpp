/// From a camera's creation to its last result, in the order in which a request flows.
///
///      host thread                     this library                         vendor's threads
///      -----------                     ------------                         ----------------
///      Create ------------------------> read feature map, open operations
///      SubmitRequestFromRT -----------> find the identity's session
///                                        | none yet: open, prepare, configure  (registry's mutex)
///                                        | read its streams                    (mLock)
///                                        | fill one record per input buffer    (on the stack)
///                                        ` execute ------------------------> copies what it needs
///      <------------------- status ----'                                          |
///                                        count buffers <----------------- result -'
///      captureResult <-----------------  translate buffers and metadata
///                                        destroy output metadata
///      releaseRtBuffers <--------------  all buffers here, no partial to come:
///      requestComplete <---------------  free the request's records
///      Flush / Destroy ---------------> close each session, free its records
///
/// A result can arrive before the execute call returns. From the call of the execute entry on, the
/// submitting thread therefore touches neither the request nor anything that it owns.

#include "adapterlayer/qcomadaptee.h"

#include "adapterlayer/chistreams.h"
#include "adapterlayer/featurerow.h"
#include "adapterlayer/frameworkrequest.h"
#include "adapterlayer/inputrecords.h"
#include "adapterlayer/oemlog.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

namespace OemLayer {

// --- Life of the adaptee -------------------------------------------------------------------------

QcomAdaptee::QcomAdaptee(void* pOfflineIntf)
    : mOfflineMapInfos(GetOfflineMapInfoByConfig()),
      mpChiOfflineIntfOps(static_cast<ChiOfflineInterface*>(pOfflineIntf)),
      mpSessionManagers(new SessionManagers(this)) {}

QcomAdaptee* QcomAdaptee::Create(void* pOfflineIntf, unsigned int cameraId) {
    auto* pAdaptee = new QcomAdaptee(pOfflineIntf);
    const ChiOfflineInterface* pIntf = pAdaptee->mpChiOfflineIntfOps;
    if (pIntf != nullptr) {
        OEM_LOG_INFO("OfflineCameraContext %p, size:%d, name:%s, pOpenSession:%p, "
                     "pOpenMetadata:%p, pOpenBufferOps:%p",
                     pIntf, pIntf->size, PrintableText(pIntf->pName), pIntf->pOpenSession,
                     pIntf->pOpenMetadataOps, pIntf->pOpenBufferOps);
        pAdaptee->OpenMetadataOps(cameraId);
        pAdaptee->OpenBufferOps();
    }
    pAdaptee->mCameraId = cameraId;
    return pAdaptee;
}

void QcomAdaptee::OpenMetadataOps(unsigned int cameraId) {
    if (mpChiOfflineIntfOps->pOpenMetadataOps == nullptr) {
        OEM_LOG_ERROR_IN("Create", "mpChiOfflineIntfOps->pOpenMetadataOps is not implemented");
        return;
    }
    ChiMetadataOpsOpenInfo openInfo = {cameraId, 1, 0, 1};
    mpOfflineMetadataOps = mpChiOfflineIntfOps->pOpenMetadataOps(mpChiOfflineIntfOps, &openInfo);
    if (mpOfflineMetadataOps == nullptr) {
        OEM_LOG_ERROR_IN("Create", "Metadata Ops initialization failed");
    }
}

void QcomAdaptee::OpenBufferOps() {
    if (mpChiOfflineIntfOps->pOpenBufferOps == nullptr) {
        OEM_LOG_ERROR_IN("Create", "mpChiOfflineIntfOps->pOpenBufferOps is not implemented");
        return;
    }
    mpOfflineBufferOps = mpChiOfflineIntfOps->pOpenBufferOps(mpChiOfflineIntfOps);
    OEM_LOG_INFO_IN("Create", "mpOfflineBufferOps:%p", mpOfflineBufferOps);
}

void QcomAdaptee::Destroy() {
    if (mpSessionManagers != nullptr) {
        mpSessionManagers->Flush();
        delete mpSessionManagers;
        mpSessionManagers = nullptr;
    }
    if (mpOfflineMetadataOps != nullptr && mpOfflineMetadataOps->pClose != nullptr) {
        mpOfflineMetadataOps->pClose(mpOfflineMetadataOps);
        mpOfflineMetadataOps = nullptr;
    }
    if (mpOfflineBufferOps != nullptr && mpOfflineBufferOps->pClose != nullptr) {
        mpOfflineBufferOps->pClose(mpOfflineBufferOps);
        mpOfflineBufferOps = nullptr;
    }
    delete this;
    OEM_LOG_INFO("Destroy X");
}

/// Frees none of the records that the maps still point to: those belong to sessions that the vendor
/// did not close, or that no chain stands for.
QcomAdaptee::~QcomAdaptee() {
    // At error level so that the end of a camera shows where only errors are logged.
    OEM_LOG_ERROR("~QcomAdaptee");
}

// --- The offline feature map ---------------------------------------------------------------------

std::vector<OfflineMapInfo> QcomAdaptee::GetOfflineMapInfoByConfig() {
    std::vector<OfflineMapInfo> rows;
    const uint32_t keyCount = GetKeyCount(kFeatureTable);
    FeatureRow values;
    // One for all keys: a number that does not parse keeps the value of the row before.
    OfflineMapInfo row;
    for (uint32_t i = 0; i < keyCount; ++i) {
        char key[256];
        std::snprintf(key, sizeof(key), "%u", i);
        if (!values.Read(key)) {
            OEM_LOG_ERROR("GetOfflineMapInfoByConfig fail");
            break;
        }
        values.ParseHex(1, row.opMode);
        values.ParseHex(2, row.featureFlags);
        values.ParseDecimal(3, row.featureValue);
        row.featureName = values.Text(0);
        rows.push_back(row);
    }
    return rows;
}

OfflineMapInfo QcomAdaptee::FindOfflineInfo(const std::string& featureName) const {
    for (const OfflineMapInfo& row : mOfflineMapInfos) {
        if (row.featureName == featureName) {
            // At error level so that the chosen feature shows where only errors are logged.
            OEM_LOG_ERROR("find offline info %s success", featureName.c_str());
            return row;
        }
    }
    OEM_LOG_ERROR("not find offline info");
    return {};
}

// --- Submission: a host thread hands over real-time outputs --------------------------------------

namespace {

/// The steps of a submission log under its name.
constexpr const char kSubmit[] = "SubmitRequestFromRT";

} // namespace

uint32_t QcomAdaptee::SubmitRequestFromRT(OfflineDataWraper* pDataWraper,
                                          RequestPrivData* pRealtimePrivateData,
                                          camera3_stream_buffer* pOfflineOutputBuffer,
                                          OffCamApplicationCallbacks* pCallbacks) {
    if (pDataWraper == nullptr) {
        OEM_LOG_ERROR("Invalid input parameters, pDataWraper is NULL");
        return kStatusInvalid;
    }
    FetchAhead(*pDataWraper, pRealtimePrivateData);
    pDataWraper->pRealtimePrivateData = pRealtimePrivateData;
    pDataWraper->pOfflineOutputBuffer = pOfflineOutputBuffer;
    pDataWraper->mpOffCamAppCbs = pCallbacks;
    InitParam(pDataWraper);
    OEM_LOG_INFO("pChiMetadataHandles: %p, pRDIBufferHandles: %p pRDIBufferStream: %p "
                 "pRealtimePrivateData: %p,pOfflineOutputBuffer: %p "
                 "m_pRealtimeSessionParameters: %p mpOffCamAppCbs %p",
                 pDataWraper->pChiMetadataHandles, pDataWraper->pRDIBufferHandles,
                 pDataWraper->pRDIBufferStream, pRealtimePrivateData, pOfflineOutputBuffer,
                 pDataWraper->m_pRealtimeSessionParameters, HostCallbacks());
    // Once: what the host makes of it while the vendor works changes nothing.
    const uint32_t numSets = LoadRelaxed(pDataWraper->numBuffers);
    if (numSets > kMaxInputSets) {
        OEM_LOG_ERROR("Invalid input parameters, %u input sets, at most %u", numSets,
                      kMaxInputSets);
        return kStatusInvalid;
    }
    ChiStreamBuffer* pOutputBuffer = NewOutputBuffer(pOfflineOutputBuffer);
    const std::vector<camera3_stream*> noStreams;
    PrivateSessionInfo* pSession = nullptr;
    const uint64_t sessHdl = mpSessionManagers->GetSessHandle(
        mCameraId, pDataWraper->identity,
        pRealtimePrivateData != nullptr ? pRealtimePrivateData->inputStreams : noStreams,
        pDataWraper->registryWord, pSession);
    if (pRealtimePrivateData == nullptr) {
        // Only here: the session is looked up for such a request too. Its output buffer stays
        // allocated, as docs/kept-behaviours.md lists.
        // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
        OEM_LOG_ERROR("Invalid input parameters, pRealtimePrivateData is NULL");
        return kStatusInvalid;
    }
    if (pSession == nullptr) {
        OEM_LOG_ERROR("Invalid session handle or NULL session info in mSessInfoMap");
        delete pOutputBuffer;
        return kStatusInvalid;
    }
    return SubmitToSession(sessHdl, *pSession, *pDataWraper, numSets, *pRealtimePrivateData,
                           pOutputBuffer);
}

void QcomAdaptee::InitParam(const OfflineDataWraper* pDataWraper) {
    // One word of the wrapper is both the context and the camera's static information.
    StoreRelaxed(mWrapperContext, pDataWraper->wrapperContext);
    StoreRelease(mpCameraInfo, reinterpret_cast<camera_info*>(pDataWraper->wrapperContext));
    StoreRelaxed(mWrapperWord, pDataWraper->wrapperWord);
    StoreRelease(mpCamera3CbOps, pDataWraper->pCamera3CbOps);
    StoreRelease(mpConfigurationSessionParameters, pDataWraper->m_pRealtimeSessionParameters);
    StoreRelease(mpOffCamAppCbs, pDataWraper->mpOffCamAppCbs);
}

/// The request's output buffer, translated from the framework's. Without one, or without the
/// vendor's translation, it is submitted empty. A translation that fails is not looked at.
ChiStreamBuffer* QcomAdaptee::NewOutputBuffer(const camera3_stream_buffer* pOfflineOutputBuffer) {
    auto* pOutputBuffer = new ChiStreamBuffer{};
    if (pOfflineOutputBuffer == nullptr) {
        OEM_LOG_ERROR_IN(kSubmit, "pOfflineOutputBuffer is NULL");
    } else if (mpChiOfflineIntfOps != nullptr &&
               mpChiOfflineIntfOps->pTranslateToChiBuffer != nullptr) {
        mpChiOfflineIntfOps->pTranslateToChiBuffer(pOfflineOutputBuffer, pOutputBuffer);
    }
    return pOutputBuffer;
}

// --- Session registry: the session of an identity is found or made -------------------------------

SessionManagers::SessionManagers(QcomAdaptee* pAdaptee) : m_pAdaptee(pAdaptee) {}

uint64_t SessionManagers::GetSessHandle(unsigned int cameraId,
                                        const OfflineSessionIdentitys& identity,
                                        const std::vector<camera3_stream*>& pInStreams,
                                        unsigned int registryWord,
                                        QcomAdaptee::PrivateSessionInfo*& pInfo) {
    const IdentityKey key(identity);
    const RegistryLock lock(m_mutex);
    OEM_LOG_INFO("pOutStream %p cameraId %d featureName %s", identity.pOutStream, identity.cameraId,
                 identity.featureName.c_str());
    pInfo = nullptr;
    if (identity.pOutStream == nullptr) {
        OEM_LOG_ERROR("pOutStream is null!!!");
        return 0;
    }
    pInfo = m_found.Find(key);
    if (pInfo != nullptr) {
        OEM_LOG_INFO("Session handle %ld matched.", pInfo->sessHdl);
        return pInfo->sessHdl;
    }
    const SessionObjects* pSession = FindOrMakeChain(cameraId, identity, pInStreams, registryWord);
    if (pSession == nullptr) {
        return 0;
    }
    // A chain whose opening failed while its configuration reported success matches with handle 0.
    // That is never executed, even while the record of the failed opening is filed under it.
    const uint64_t sessHdl = pSession->GetSessionHandle();
    OEM_LOG_INFO("Session handle %ld matched.", sessHdl);
    if (sessHdl != 0) {
        pInfo = m_pAdaptee->FindSessionInfo(sessHdl);
    }
    if (pInfo != nullptr) {
        m_found.Add(pSession->GetIdentity(), pInfo);
    }
    return sessHdl;
}

const SessionObjects*
SessionManagers::FindOrMakeChain(unsigned int cameraId, const OfflineSessionIdentitys& identity,
                                 const std::vector<camera3_stream*>& pInStreams,
                                 unsigned int registryWord) {
    constexpr const char kOperation[] = "GetSessHandle";
    auto sessions = m_pStream2SuppSessMap.find(identity.pOutStream);
    if (sessions == m_pStream2SuppSessMap.end()) {
        GenerateOfflineSessions(cameraId, identity, pInStreams, registryWord);
        sessions = m_pStream2SuppSessMap.find(identity.pOutStream);
    }
    if (sessions == m_pStream2SuppSessMap.end()) {
        OEM_LOG_ERROR_IN(kOperation, "Failed to find pOutStream in m_pStream2SuppSessMap");
        return nullptr;
    }
    const SessionObjects* pSession = FindChain(sessions->second, identity);
    if (pSession == nullptr) {
        // Also right after a generation that failed: a new stream gets a second try in the same
        // call.
        GenerateOfflineSessions(cameraId, identity, pInStreams, registryWord);
        sessions = m_pStream2SuppSessMap.find(identity.pOutStream);
        if (sessions == m_pStream2SuppSessMap.end()) {
            OEM_LOG_ERROR_IN(kOperation, "Failed to generate offline sessions and update the map");
            return nullptr;
        }
        pSession = FindChain(sessions->second, identity);
    }
    if (pSession == nullptr) {
        OEM_LOG_ERROR_IN(kOperation, "Cannot match any session!!!");
    }
    return pSession;
}

/// The list is walked where it stands: the caller's lock keeps it as it is.
const SessionObjects* SessionManagers::FindChain(const SessionList& sessions,
                                                 const OfflineSessionIdentitys& identity) {
    for (const SessionObjects* pSession : sessions) {
        if (pSession != nullptr && pSession->GetIdentity() == identity) {
            return pSession;
        }
    }
    return nullptr;
}

/// Makes a chain for `identity` behind the chains that its stream has already. The camera is the
/// identity's, which need not be the adaptee's: `cameraId` and `registryWord` are not used.
uint32_t SessionManagers::GenerateOfflineSessions(unsigned int /*cameraId*/,
                                                  const OfflineSessionIdentitys& identity,
                                                  const std::vector<camera3_stream*>& pInStreams,
                                                  unsigned int /*registryWord*/) {
    camera3_stream* pOutStream = identity.pOutStream;
    if (pOutStream->stream_type == CAMERA3_STREAM_INPUT || pOutStream->width == 0 ||
        pOutStream->height == 0) {
        return kStatusOk;
    }
    OEM_LOG_INFO("Generate offline session for pStream(%p) size (%d x %d) Started...", pOutStream,
                 pOutStream->width, pOutStream->height);
    SessionList sessions;
    const auto existing = m_pStream2SuppSessMap.find(pOutStream);
    if (existing != m_pStream2SuppSessMap.end()) {
        sessions.swap(existing->second);
        m_pStream2SuppSessMap.erase(existing);
    }
    uint32_t status = kStatusOk;
    auto* pSession = new SessionObjects(identity);
    if (pInStreams.empty()) {
        status = DropChain(pSession);
    } else {
        AppendChain(identity, pInStreams, pSession, sessions);
    }
    // The list is stored also when it is empty: the stream is then known to have failed.
    m_pStream2SuppSessMap.emplace(pOutStream, std::move(sessions));
    OEM_LOG_INFO("Generate offline session for pStream(%p) size (%d x %d) End...", pOutStream,
                 pOutStream->width, pOutStream->height);
    LogSessions();
    return status;
}

/// Gives a chain up that has no inputs to be made for. A new one has handle 0, and so nothing to
/// close.
uint32_t SessionManagers::DropChain(SessionObjects* pSession) {
    uint32_t status = kStatusOk;
    if (pSession->GetSessionHandle() != 0) {
        status = m_pAdaptee->CloseOfflineSessions(pSession->GetSessionHandle());
    }
    delete pSession;
    return status;
}

/// Opens and configures a chain and appends it to `sessions`. A chain that fails is neither closed
/// nor deleted, and its session, if it has one, stays registered with the adaptee: "a configuration
/// that failed" in docs/kept-behaviours.md.
void SessionManagers::AppendChain(const OfflineSessionIdentitys& identity,
                                  const std::vector<camera3_stream*>& pInStreams,
                                  SessionObjects* pSession, SessionList& sessions) {
    constexpr const char kOperation[] = "GenerateOfflineSessions";
    const camera3_stream* pOutStream = identity.pOutStream;
    const camera3_stream* pFirstInput = pInStreams.front();
    OEM_LOG_INFO_IN(kOperation,
                    "Generate offline session for feature %s outputStream:%p phyCameraId:%d "
                    "size (%d x %d) pInputStreams[1/%lu] %p size (%d x %d) start",
                    pSession->GetIdentity().featureName.c_str(), pOutStream, identity.cameraId,
                    pOutStream->width, pOutStream->height, pInStreams.size(), pFirstInput,
                    pFirstInput->width, pFirstInput->height);
    if (GenerateOfflineSession(identity.cameraId, identity.pOutStream, pInStreams, pSession) !=
        kStatusOk) {
        return;
    }
    OEM_LOG_INFO_IN(kOperation,
                    "Generate offline session for feature %s outputStream:%p phyCameraId:%d "
                    "size (%d x %d) end",
                    pSession->GetIdentity().featureName.c_str(), pOutStream, identity.cameraId,
                    pOutStream->width, pOutStream->height);
    sessions.push_back(pSession);
}

/// The configuration's status counts alone: an opening that failed is a failure only where
/// configuring handle 0 fails too, that is, where the vendor has no configure entry.
uint32_t SessionManagers::GenerateOfflineSession(unsigned int cameraId, camera3_stream* pOutStream,
                                                 const std::vector<camera3_stream*>& pInStreams,
                                                 SessionObjects* pSession) {
    pSession->GenerateOfflineSession(cameraId, m_pAdaptee, pOutStream);
    return pSession->Initialize(m_pAdaptee, pInStreams,
                                m_pAdaptee->GetConfigurationSessionParameters());
}

void SessionManagers::LogSessions() const {
    if (g_logInfoEnabled == 0) {
        return;
    }
    for (const auto& [pStream, sessions] : m_pStream2SuppSessMap) {
        int index = 0;
        for (const SessionObjects* pSession : sessions) {
            ++index;
            OEM_LOG_INFO_IN("GenerateOfflineSessions",
                            "Supported session[%d/%lu]: handle %ld cameraId %d feature %s for "
                            "outputStream %p",
                            index, sessions.size(), pSession->GetSessionHandle(),
                            pSession->GetIdentity().cameraId,
                            pSession->GetIdentity().featureName.c_str(), pStream);
        }
    }
}

// --- Session chain: one session is opened and configured -----------------------------------------

SessionObjects::SessionObjects(OfflineSessionIdentitys identity)
    : m_identity(std::move(identity)) {}

uint32_t SessionObjects::GenerateOfflineSession(unsigned int cameraId, QcomAdaptee* pAdaptee,
                                                camera3_stream* pStream) {
    m_identity.cameraId = cameraId;
    m_identity.pOutStream = pStream;
    m_Sesshdle = static_cast<uint64_t>(pAdaptee->OpenOfflineSession(
        std::to_string(cameraId), m_identity, pAdaptee->GetCameraInfo()));
    return m_Sesshdle != 0 ? kStatusOk : kStatusFailure;
}

uint32_t SessionObjects::Initialize(QcomAdaptee* pAdaptee,
                                    const std::vector<camera3_stream*>& pInStreams,
                                    const camera_metadata* pConfiguration) {
    if (pAdaptee == nullptr) {
        OEM_LOG_ERROR("Offline camera device is null!!!");
    }
    if (pInStreams.empty()) {
        OEM_LOG_ERROR("Input stream size is 0!!!");
    }
    if (pConfiguration == nullptr) {
        OEM_LOG_ERROR("Configuration is null!!!");
    }
    OEM_LOG_INFO("Prepare config offline m_Sesshdle %ld pOutStream %p pInStreams size %zu "
                 "pConfiguration %p",
                 m_Sesshdle, m_identity.pOutStream, pInStreams.size(), pConfiguration);
    if (pAdaptee == nullptr) {
        OEM_LOG_INFO("Offline camera device is null, not configured offline m_Sesshdle ");
        return kStatusOk;
    }
    // A preparation that failed is not looked at: the vendor then gets a session without streams.
    pAdaptee->PrepareOfflineConfig(static_cast<unsigned int>(pInStreams.size()), pInStreams.data(),
                                   m_identity.pOutStream, m_Sesshdle, pConfiguration);
    return pAdaptee->ConfigStreams(m_Sesshdle);
}

// --- Opening a session ---------------------------------------------------------------------------

long QcomAdaptee::OpenOfflineSession(const std::string& cameraText,
                                     const OfflineSessionIdentitys& identity,
                                     camera_info* pCameraInfo) {
    const std::string& featureName = identity.featureName;
    const uint32_t opMode = FindOfflineInfo(featureName).opMode;
    const bool canOpen = CanOpenSessions();
    const long sessHdl = DoOpenOfflineSession(cameraText, featureName, pCameraInfo, 0);
    if (canOpen) {
        // Before the handle is tested: the record of a failed opening is completed under key 0.
        InitSessInfo(static_cast<unsigned long>(sessHdl), opMode,
                     std::to_string(reinterpret_cast<uintptr_t>(identity.pOutStream)), featureName,
                     pCameraInfo);
    }
    if (sessHdl == 0) {
        OEM_LOG_ERROR("[oemlayer_stream] Unable to open session for %s for stream:%p",
                      featureName.c_str(), identity.pOutStream);
        return 0;
    }
    if (!mRtLinkSessHdlMap.emplace(identity, static_cast<uint64_t>(sessHdl)).second) {
        // The new session stays open and filed; only the identity keeps its earlier one.
        OEM_LOG_WARN("identity{%d, %p} already exist in  mRtLinkSessHdlMap,", identity.cameraId,
                     identity.pOutStream);
        return 0;
    }
    OEM_LOG_INFO("[oemlayer_stream] offline session %s for cameraId:%d stream:%p sessHdl:%li",
                 featureName.c_str(), identity.cameraId, identity.pOutStream, sessHdl);
    return sessHdl;
}

bool QcomAdaptee::CanOpenSessions() const {
    return mpChiOfflineIntfOps != nullptr && mpChiOfflineIntfOps->pOpenSession != nullptr;
}

long QcomAdaptee::DoOpenOfflineSession(const std::string& cameraText,
                                       const std::string& featureName, camera_info* pCameraInfo,
                                       unsigned long sharedSessionHdl) {
    PrivateSessionInfo* pInfo = NewSessionInfo(cameraText, featureName, pCameraInfo);
    OEM_LOG_INFO("Shared session handle: %li", sharedSessionHdl);
    pInfo->createInfo.sharedSessionHandle = sharedSessionHdl;
    if (!CanOpenSessions()) {
        delete pInfo; // Nobody has seen it.
        return 0;
    }
    const uint64_t sessHdl =
        mpChiOfflineIntfOps->pOpenSession(mpChiOfflineIntfOps, &pInfo->createInfo);
    OEM_LOG_INFO("Opened new session, sessionHdl: %li", sessHdl);
    pInfo->cameraName = cameraText;
    FileSessionInfo(sessHdl, pInfo);
    return static_cast<long>(sessHdl);
}

QcomAdaptee::PrivateSessionInfo* QcomAdaptee::NewSessionInfo(const std::string& cameraText,
                                                             const std::string& featureName,
                                                             camera_info* pCameraInfo) {
    auto* pInfo = new PrivateSessionInfo;
    pInfo->sessionName = "session_of_camera_" + cameraText;
    pInfo->vendorSessionName = pInfo->sessionName;
    pInfo->featureName = featureName;
    pInfo->pCameraInfo = pCameraInfo;
    pInfo->pAdaptee = this;
    pInfo->callbacks = {
        .ProcessCaptureResultCb = ProcessCaptureResultCb,
        .ProcessNotifyCb = ProcessNotifyCb,
        .GetFrameworkBuffers = GetFrameworkBuffers,
        .reserved24 = nullptr,
        .pPrivateCallbackData = pInfo,
    };
    pInfo->createInfo = {
        .pSessionName = pInfo->vendorSessionName.c_str(),
        .sharedSessionHandle = 0,
        .pCallbacks = &pInfo->callbacks,
    };
    return pInfo;
}

/// Files a session's record under its handle, whatever the handle is: openings that failed share
/// key 0. A record that is replaced stays allocated, since the vendor was handed it and may call
/// back with it.
void QcomAdaptee::FileSessionInfo(uint64_t sessHdl, PrivateSessionInfo* pInfo) {
    pInfo->sessHdl = sessHdl;
    if (std::exchange(mSessInfoMap[sessHdl], pInfo) != nullptr) {
        mpSessionManagers->ForgetFound();
    }
}

QcomAdaptee::PrivateSessionInfo* QcomAdaptee::FindSessionInfo(uint64_t sessHdl) const {
    const auto entry = mSessInfoMap.find(sessHdl);
    return entry != mSessInfoMap.end() ? entry->second : nullptr;
}

void QcomAdaptee::InitSessInfo(unsigned long sessHdl, unsigned int opMode,
                               const std::string& /*streamText*/, const std::string& featureName,
                               camera_info* /*pCameraInfo*/) {
    PrivateSessionInfo* pInfo = FindSessionInfo(sessHdl);
    if (pInfo == nullptr) {
        return;
    }
    // Two look-ups, and each logs: one opening has three such lines.
    pInfo->featureFlags = FindOfflineInfo(featureName).featureFlags;
    pInfo->featureValue = FindOfflineInfo(featureName).featureValue;
    pInfo->opMode = opMode;
    pInfo->sessionName = featureName;
    pInfo->featureName = featureName;
}

// --- Configuring a session's streams -------------------------------------------------------------

uint32_t QcomAdaptee::PrepareOfflineConfig(unsigned int numInStreams,
                                           camera3_stream* const* ppInStreams,
                                           camera3_stream* pOutStream, unsigned long sessHdl,
                                           const camera_metadata* pSessionParams) {
    if (sessHdl == 0) {
        return kStatusOk;
    }
    PrivateSessionInfo* pInfo = FindSessionInfo(sessHdl);
    if (pInfo == nullptr) {
        return kStatusFailure;
    }
    OEM_LOG_INFO("[oemlayer_stream] Preparing streams for %s numInStreams %d",
                 pInfo->featureName.c_str(), numInStreams);
    pInfo->totalResult = 1;
    const std::unique_ptr<ChiStream*[]> pPointers(new (std::nothrow) ChiStream*[numInStreams]);
    if (pPointers == nullptr) {
        OEM_LOG_ERROR("Unable to initialize ppChiStreams");
        return kStatusNoMemory;
    }
    pInfo->pInputStreams = std::make_unique<ChiStream[]>(numInStreams);
    pInfo->pStreamInfos = std::make_unique<StreamPrivateInfo[]>(numInStreams);
    for (unsigned int i = 0; i < numInStreams; ++i) {
        pPointers[i] = &pInfo->pInputStreams[i];
        FillInputStream(ppInStreams[i], &pInfo->pStreamInfos[i], pPointers[i]);
    }
    const uint32_t status = DoPrepareOfflineConfig(numInStreams, pPointers.get(), pOutStream,
                                                   &pInfo->configInfo, sessHdl, pSessionParams);
    if (status != kStatusOk) {
        OEM_LOG_ERROR("[oemlayer_stream] Unable to prepare configure session for %s for camera %s",
                      pInfo->featureName.c_str(), pInfo->cameraName.c_str());
    }
    return status;
}

/// Makes a session's input stream from the framework's, with its private data.
void QcomAdaptee::FillInputStream(camera3_stream* pHalStream, StreamPrivateInfo* pPrivate,
                                  ChiStream* pStream) {
    pPrivate->pHalStream = pHalStream;
    *pStream = MakeInputStream(*pHalStream);
    pStream->pPrivateInfo = pPrivate;
    OEM_LOG_INFO_IN("PrepareOfflineConfig",
                    "[oemlayer_stream] Convert offline input streamIndex: pHalStream:%p to "
                    "pChiStream:%p, type:%d, format:%d size(%d, %d)",
                    pHalStream, pStream, pStream->streamType, pStream->format, pStream->width,
                    pStream->height);
}

uint32_t QcomAdaptee::DoPrepareOfflineConfig(unsigned int numInStreams, ChiStream** ppInStreams,
                                             camera3_stream* pOutStream,
                                             ChiOfflineSessionConfigInfo* pConfig,
                                             unsigned long sessHdl,
                                             const camera_metadata* pSessionParams) {
    PrivateSessionInfo* pInfo = FindSessionInfo(sessHdl);
    if (pInfo == nullptr) {
        return kStatusFailure;
    }
    const uint32_t totalResult = pInfo->totalResult;
    const uint32_t numListed = numInStreams + totalResult;
    pConfig->numStreams = numListed;
    pConfig->pCameraText = pInfo->cameraName.c_str();
    pConfig->pSessionSettings = CreateSessionSettings(pSessionParams);
    pConfig->opMode = pInfo->opMode;
    std::unique_ptr<ChiStream*[]> pList(new (std::nothrow) ChiStream*[numListed]);
    if (pList == nullptr) {
        OEM_LOG_ERROR("[oemlayer_stream] Unable to initialize ppChiStreams");
        return kStatusNoMemory;
    }
    const unsigned int numInputs = ListInputStreams(numInStreams, ppInStreams, *pInfo, pList.get());
    if (numInputs != numInStreams) {
        OEM_LOG_ERROR(
            "[oemlayer_stream] Incorrect number of input streams. Expected: %d Actual: %d",
            numInStreams, numInputs);
        return kStatusFailure;
    }
    const unsigned int numStreams =
        ListOutputStream(pOutStream, totalResult, numInputs, pList.get());
    if (numStreams != numListed) {
        OEM_LOG_ERROR(
            "[oemlayer_stream] Incorrect number of total streams. Expected: %d Actual: %d",
            numListed, numStreams);
        return kStatusFailure;
    }
    pInfo->pStreamList = std::move(pList);
    pConfig->ppChiStreams = pInfo->pStreamList.get();
    return kStatusOk;
}

/// The session parameters as a vendor object, null where the vendor makes none.
ChiMetadataHandle QcomAdaptee::CreateSessionSettings(const camera_metadata* pSessionParams) {
    ChiMetadataHandle settings = nullptr;
    if (mpOfflineMetadataOps != nullptr && mpOfflineMetadataOps->pCreateFromAndroid != nullptr) {
        settings = mpOfflineMetadataOps->pCreateFromAndroid(mpOfflineMetadataOps, pSessionParams, 0,
                                                            0, 0xFFFFFFFF);
    }
    OEM_LOG_INFO_IN("DoPrepareOfflineConfig", "create chimeta: %p ", settings);
    return settings;
}

/// Lists the inputs that are outputs of the real-time session, and turns them into inputs of this
/// one. \returns how many were listed.
unsigned int QcomAdaptee::ListInputStreams(unsigned int numInStreams, ChiStream** ppInStreams,
                                           const PrivateSessionInfo& info, ChiStream** ppList) {
    constexpr const char kOperation[] = "DoPrepareOfflineConfig";
    unsigned int listed = 0;
    for (unsigned int i = 0; i < numInStreams; ++i) {
        ChiStream* pStream = ppInStreams[i];
        if (pStream->streamType != ChiStreamTypeOutput) {
            OEM_LOG_INFO_IN(kOperation, "[oemlayer_stream] Skipping stream since it is not output "
                                        "stream of parent session");
            continue;
        }
        OEM_LOG_INFO_IN(kOperation,
                        "[oemlayer_stream] Configuring offline input stream:%p format: %d, "
                        "size(%d, %d) at Index:%d/%d",
                        pStream, pStream->format, pStream->width, pStream->height, listed,
                        numInStreams);
        ppList[listed] = pStream;
        pStream->streamType = ChiStreamTypeInput;
        MarkListed(pStream);
        // Asked for its error line on a format without counterpart; the vendor's record has no
        // place for the buffer format itself.
        MapChiStreamFormatToChiBufferFormat(static_cast<ChiStreamFormat>(pStream->format));
        OEM_LOG_INFO_IN(kOperation,
                        "[oemlayer_stream] Buffer format for input stream Id %d for session %s",
                        listed, info.featureName.c_str());
        ++listed;
    }
    return listed;
}

/// Lists the output behind `numInputs` inputs, once for each result of a request.
/// \returns the length of the list.
unsigned int QcomAdaptee::ListOutputStream(camera3_stream* pOutStream, uint32_t totalResult,
                                           unsigned int numInputs, ChiStream** ppList) {
    ChiStream* pStream = AsChiStream(pOutStream);
    for (uint32_t j = 0; j < totalResult; ++j) {
        ppList[numInputs + j] = pStream;
        OEM_LOG_INFO_IN("DoPrepareOfflineConfig",
                        "[oemlayer_stream] Configuring offline output stream:%p format:%d, "
                        "size(%d, %d) at Index:%d/%d",
                        pStream, pStream->format, pStream->width, pStream->height, j, totalResult);
        MarkListed(pStream);
    }
    return numInputs + totalResult;
}

ChiBufferFormat QcomAdaptee::MapChiStreamFormatToChiBufferFormat(ChiStreamFormat format) {
    switch (format) {
    case ChiStreamFormatRaw16:
        return ChiFormatRaw16;
    case ChiStreamFormatBlob:
        return ChiFormatBlob;
    case ChiStreamFormatYCbCr420_888:
        return ChiFormatYUV420NV12;
    case ChiStreamFormatRaw10:
        return ChiFormatRaw10;
    case ChiStreamFormatRaw12:
        return ChiFormatRaw12;
    default:
        OEM_LOG_ERROR("Unsurport streamFormat:%d return ChiFormatYUV420NV12 by default", format);
        return ChiFormatYUV420NV12;
    }
}

uint32_t QcomAdaptee::ConfigStreams(unsigned long sessHdl) {
    if (mpChiOfflineIntfOps == nullptr || mpChiOfflineIntfOps->pConfigureStreams == nullptr) {
        return kStatusFailure;
    }
    if (sessHdl == 0) {
        return kStatusOk;
    }
    PrivateSessionInfo* pInfo = FindSessionInfo(sessHdl);
    if (pInfo == nullptr) {
        return kStatusFailure;
    }
    ChiOfflineSessionConfigInfo* pConfig = &pInfo->configInfo;
    OEM_LOG_INFO("[oemlayer_stream] configure camera %s with ppChiStreams: %p",
                 PrintableText(pConfig->pCameraText), pConfig->ppChiStreams);
    const int32_t result = mpChiOfflineIntfOps->pConfigureStreams(sessHdl, pConfig);
    if (result == 0 && pConfig->pSessionSettings != nullptr) {
        OEM_LOG_INFO("destroy chimeta: %p", pConfig->pSessionSettings);
        DestroyMetadata(pConfig->pSessionSettings);
        pConfig->pSessionSettings = nullptr;
    }
    if (result != 0) {
        // The settings are kept until the session is closed.
        OEM_LOG_ERROR("[oemlayer_stream] Configure Streams failed for usecase: %s for camera: %s "
                      "with opmode: %d",
                      pInfo->featureName.c_str(), pInfo->cameraName.c_str(), pInfo->opMode);
    }
    return static_cast<uint32_t>(result);
}

void QcomAdaptee::DestroyMetadata(ChiMetadataHandle metadata) {
    if (mpOfflineMetadataOps != nullptr && mpOfflineMetadataOps->pDestroy != nullptr) {
        mpOfflineMetadataOps->pDestroy(metadata);
    }
}

// --- Submission, continued: the request is built and executed ------------------------------------

/// The streams of a session as one submission sees them.
struct QcomAdaptee::SessionStreams {
    ChiStream** ppStreams = nullptr; ///< The inputs, then the output.
    uint32_t numStreams = 0;         ///< 0 where the session could not be prepared.
    uint32_t inputsPerSet = 0;       ///< How many of them each set of the submission feeds at most.
    bool feedsYuv = false;
};

/// One submission under way. It lives on the stack and holds the input records, which the vendor
/// reads only during the execute call, cleared whole before they are filled. The heap is left to
/// what outlives the call: the request with its input array, its output buffer, and a format record
/// for each raw input.
struct QcomAdaptee::Submission {
    InputRecords inputs;
    const OfflineDataWraper& wrapper;
    RequestPrivData& privData;
    const SessionStreams& streams;
    OfflineRequest* pRequest = nullptr;
    const uint32_t numSets;
    uint32_t numBuffers = 0; ///< Used records of `inputs.buffers`.

    Submission(const OfflineDataWraper& dataWraper, uint32_t setCount, RequestPrivData& hostData,
               const SessionStreams& sessionStreams)
        : wrapper(dataWraper), privData(hostData), streams(sessionStreams), numSets(setCount) {
        Clear(inputs);
    }

    OEM_STEP void FillInputSet(uint32_t setIndex);
    OEM_STEP void AddRawInput(ChiOfflineBufferSet& set, uint32_t setIndex, uint32_t streamIndex,
                              ChiStream& stream, uint32_t format);
    OEM_STEP void AddYuvInput(ChiOfflineBufferSet& set, uint32_t setIndex, ChiStream& stream);
    OEM_STEP static ChiInputFormat* NewInputFormat(const ChiStream& stream, uint32_t format);
    OEM_STEP void AddInput(ChiOfflineBufferSet& set, ChiStream& stream, void* bufferHandle,
                           ChiBufferManagerHandle pBufferManager, ChiInputFormat* pFormat);
};

uint32_t QcomAdaptee::SubmitToSession(uint64_t sessHdl, PrivateSessionInfo& session,
                                      const OfflineDataWraper& wrapper, uint32_t numSets,
                                      RequestPrivData& privData, ChiStreamBuffer* pOutputBuffer) {
    StoreRelaxed(session.offlineFrameNumber, -1);
    const SessionStreams streams = ReadSessionStreams(session, wrapper, numSets);
    if (uint64_t{streams.inputsPerSet} * numSets > kMaxInputBuffers) {
        OEM_LOG_ERROR_IN(kSubmit,
                         "Invalid input parameters, %u input sets of %u buffers, at most %u",
                         numSets, streams.inputsPerSet, kMaxInputBuffers);
        delete pOutputBuffer;
        return kStatusInvalid;
    }
    Submission submission(wrapper, numSets, privData, streams);
    submission.pRequest = NewOfflineRequest(numSets, streams, privData, pOutputBuffer);
    privData.rtFrameNumber = wrapper.rtFrameNumber;
    for (uint32_t i = 0; i < numSets; ++i) {
        submission.FillInputSet(i);
    }
    CreateOutputMetadata(submission);
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): the request is the vendor's now
    return ExecuteRequest(sessHdl, session, submission);
}

/// The session's configured streams. One that could not be prepared has none, whatever its count
/// says. Where not all of them would have room, those that are fed are counted, and no set feeds
/// more.
QcomAdaptee::SessionStreams QcomAdaptee::ReadSessionStreams(const PrivateSessionInfo& session,
                                                            const OfflineDataWraper& wrapper,
                                                            uint32_t numSets) {
    SessionStreams streams;
    {
        const std::lock_guard<std::mutex> lock(mLock);
        streams.ppStreams = session.configInfo.ppChiStreams;
        streams.numStreams = streams.ppStreams != nullptr ? session.configInfo.numStreams : 0;
    }
    streams.feedsYuv = wrapper.yuvInput == 1;
    if (streams.numStreams <= 2 * numSets && streams.numStreams * numSets <= kMaxInputBuffers) {
        streams.inputsPerSet = streams.numStreams;
        return streams;
    }
    for (uint32_t j = 0; j < streams.numStreams; ++j) {
        const ChiStream& stream = *streams.ppStreams[j];
        const uint32_t format = LoadRelaxed(stream.format);
        const bool fed = IsRawFormat(format) || (IsYuvFormat(format) && streams.feedsYuv);
        const bool isInput = LoadRelaxed(stream.streamType) == ChiStreamTypeInput;
        streams.inputsPerSet += isInput && fed ? 1 : 0;
    }
    return streams;
}

/// The request and its input array are one block of memory, all clear: the array is nobody else's,
/// and no larger than its bound.
QcomAdaptee::OfflineRequest* QcomAdaptee::NewOfflineRequest(uint32_t numSets,
                                                            const SessionStreams& streams,
                                                            RequestPrivData& privData,
                                                            ChiStreamBuffer* pOutputBuffer) {
    const uint32_t inputCapacity = std::max(2 * numSets, streams.inputsPerSet);
    static_assert(sizeof(OfflineRequest) % alignof(ChiStreamBuffer) == 0);
    const size_t size = sizeof(OfflineRequest) + inputCapacity * sizeof(ChiStreamBuffer);
    auto* pBlock = static_cast<char*>(std::memset(::operator new(size), 0, size));
    auto* pRequest = reinterpret_cast<OfflineRequest*>(pBlock);
    pRequest->inputCapacity = inputCapacity;
    pRequest->pInputBuffers = reinterpret_cast<ChiStreamBuffer*>(pBlock + sizeof(OfflineRequest));
    pRequest->pRtPrivData = &privData;
    pRequest->pAdaptee = this;
    pRequest->pMetadataOps = mpOfflineMetadataOps;
    pRequest->pOutputBuffer = pOutputBuffer;
    pRequest->pTotalCounter = &mTotalCounter;
    return pRequest;
}

/// Feeds one set of real-time outputs to the session's input streams. What somebody else makes of a
/// stream meanwhile cannot feed more inputs than there is room for: its type and its format are
/// read once.
void QcomAdaptee::Submission::FillInputSet(uint32_t setIndex) {
    ChiOfflineBufferSet set = {0, 0, nullptr, 0, wrapper.pChiMetadataHandles[setIndex]};
    pRequest->pRtMetadata = set.pMetadata;
    pRequest->pInputMetadata = set.pMetadata;
    OEM_LOG_INFO_IN(kSubmit,
                    "rtFrameNumber:%d, bufferIndex:%d/%d, offline inputmeta:%p outputmeta:%p "
                    "pBufferManager %p",
                    wrapper.rtFrameNumber, setIndex, numSets, pRequest->pInputMetadata,
                    pRequest->pOutputMetadata, privData.pBufferManager);
    for (uint32_t j = 0; j < streams.numStreams; ++j) {
        ChiStream& stream = *streams.ppStreams[j];
        const uint32_t type = LoadRelaxed(stream.streamType);
        const uint32_t format = LoadRelaxed(stream.format);
        OEM_LOG_INFO_IN(kSubmit, "streamId:%u/%u, stream %p, streamType:%d format:%d size:(%d, %d)",
                        j, streams.numStreams, &stream, type, format, stream.width, stream.height);
        if (type != ChiStreamTypeInput || set.numBuffers == streams.inputsPerSet) {
            continue;
        }
        if (IsRawFormat(format)) {
            AddRawInput(set, setIndex, j, stream, format);
        }
        if (IsYuvFormat(format) && streams.feedsYuv) {
            AddYuvInput(set, setIndex, stream);
        }
    }
    // The set's own count times its index, not the running number of buffers: "A set points at
    // record count x index" in docs/kept-behaviours.md.
    set.pBuffers = &inputs.buffers[size_t{set.numBuffers} * setIndex];
    inputs.sets[setIndex] = set;
}

void QcomAdaptee::Submission::AddRawInput(ChiOfflineBufferSet& set, uint32_t setIndex,
                                          uint32_t streamIndex, ChiStream& stream,
                                          uint32_t format) {
    ChiBufferManagerHandle pBufferManager = privData.pBufferManager;
    uint32_t handleIndex = setIndex;
    if (wrapper.dualRdi == 1 && streamIndex % 2 == 1) {
        // Even streams keep index i, so that streams of different sets share handles: "In dual-RDI
        // mode" in docs/kept-behaviours.md.
        pBufferManager = privData.pSecondRawBufferManager;
        handleIndex = 2 * setIndex + 1;
    }
    AddInput(set, stream, wrapper.RdiBufferHandle(handleIndex), pBufferManager,
             NewInputFormat(stream, format));
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): the request's array refers to it
}

void QcomAdaptee::Submission::AddYuvInput(ChiOfflineBufferSet& set, uint32_t setIndex,
                                          ChiStream& stream) {
    // A record's format is not written here: where an earlier set had a raw input at this place, it
    // is still that one's.
    AddInput(set, stream, wrapper.yuvBufferHandles[setIndex], privData.pYuvBufferManager,
             pRequest->pInputBuffers[set.numBuffers].pInputFormat);
}

/// Freed by the completion as far as the request's input array still refers to it.
ChiInputFormat* QcomAdaptee::Submission::NewInputFormat(const ChiStream& stream, uint32_t format) {
    auto* pFormat = new ChiInputFormat{};
    pFormat->cfaPattern = stream.cfaPattern;
    pFormat->bufferFormat = format == ChiStreamFormatRaw10 ? ChiFormatRaw10 : ChiFormatRaw16;
    OEM_LOG_INFO_IN(kSubmit, "Input Stream Buffer Format Info, cfaPattern: %d buffer format: %d",
                    pFormat->cfaPattern, pFormat->bufferFormat);
    return pFormat;
}

/// Writes the next input of the set into the request's array and, the same, for the vendor. The
/// array's index restarts with every set, so that a set overwrites the records of the one before,
/// and of a burst's format records only the last set's can be freed by the completion: "The
/// request's input array" in docs/kept-behaviours.md.
void QcomAdaptee::Submission::AddInput(ChiOfflineBufferSet& set, ChiStream& stream,
                                       void* bufferHandle, ChiBufferManagerHandle pBufferManager,
                                       ChiInputFormat* pFormat) {
    // Both have the rest clear. Written twice, since what was just written in words is slow to
    // copy.
    for (ChiStreamBuffer* pRecord :
         {&pRequest->pInputBuffers[set.numBuffers], &inputs.buffers[numBuffers]}) {
        pRecord->size = sizeof(ChiStreamBuffer);
        pRecord->pStream = &stream;
        pRecord->bufferType = kChiInputBufferType;
        pRecord->bufferHandle = bufferHandle;
        pRecord->pBufferManager = pBufferManager;
        pRecord->pInputFormat = pFormat;
        pRecord->bufferStatus = 0;
    }
    StoreRelaxed(stream.streamType, ChiStreamTypeInput);
    ++numBuffers;
    ++set.numBuffers;
}

void QcomAdaptee::CreateOutputMetadata(Submission& submission) {
    ChiMetadataHandle metadata = nullptr;
    if (mpOfflineMetadataOps != nullptr && mpOfflineMetadataOps->pCreate != nullptr) {
        metadata = mpOfflineMetadataOps->pCreate(mpOfflineMetadataOps, nullptr, 0);
    }
    submission.pRequest->pOutputMetadata = metadata;
    OEM_LOG_INFO_IN(kSubmit, "[offline_meta]rtFrameNumber:%d create offline output metadata:%p",
                    submission.wrapper.rtFrameNumber, metadata);
}

uint32_t QcomAdaptee::ExecuteRequest(uint64_t sessHdl, PrivateSessionInfo& session,
                                     Submission& submission) {
    const uint32_t rtFrameNumber = submission.wrapper.rtFrameNumber;
    OfflineRequest* pRequest = submission.pRequest;
    ChiOfflineBufferSet output = {1, 0, pRequest->pOutputBuffer, 0, pRequest->pOutputMetadata};
    ChiOfflineExecuteRequest execute = {
        .numInputs = submission.numSets,
        .reserved4 = 0,
        .pInputs = submission.inputs.sets,
        .pOutput = &output,
        .pPrivateData = pRequest,
        .pOfflineFrameNumber = &session.offlineFrameNumber,
        .pLastFrameField = &session.lastFrameField,
        .reserved48 = 0,
    };
    OEM_LOG_INFO_IN(kSubmit,
                    "rtFrameNumber:%u, submiting request to offline session:%li with %d input "
                    "buffers",
                    rtFrameNumber, sessHdl, submission.privData.numInputBuffers);
    if (mpChiOfflineIntfOps == nullptr || mpChiOfflineIntfOps->pExecuteRequest == nullptr) {
        OEM_LOG_ERROR_IN(kSubmit, "mpChiOfflineIntfOps->pExecuteRequest is NULL");
        return kStatusFailure;
    }
    const int32_t result = mpChiOfflineIntfOps->pExecuteRequest(sessHdl, &execute);
    // From here on the request may be gone. One that the vendor refused stays allocated with all
    // that it owns: "an execute that failed" in docs/kept-behaviours.md.
    const int32_t offlineFrame = LoadRelaxed(session.offlineFrameNumber);
    if (result != 0) {
        OEM_LOG_ERROR_IN(kSubmit, "ExecuteRequest failed for offline frame:%d result:%d ",
                         offlineFrame, result);
        return kStatusFailure;
    }
    const uint32_t total = LoadRelaxed(mTotalCounter) + static_cast<uint32_t>(offlineFrame);
    StoreRelaxed(mTotalCounter, total);
    OEM_LOG_INFO_IN(kSubmit, "Execute rtFrameNumber:%u<->offlineFrame:%d success mTotalCounter %d",
                    rtFrameNumber, offlineFrame, total);
    return kStatusOk;
}

// --- Session callbacks: the vendor's threads deliver ---------------------------------------------

namespace {

constexpr const char kCaptureResult[] = "ProcessCaptureResultCb";

} // namespace

void QcomAdaptee::ProcessCaptureResultCb(const ChiOfflineSessionCallbacks* pCallbacks,
                                         unsigned int /*count*/,
                                         ChiOfflineCaptureResultInfo* pResult) {
    if (pCallbacks == nullptr || pCallbacks->pPrivateCallbackData == nullptr ||
        pResult == nullptr || pResult->pPrivateData == nullptr) {
        OEM_LOG_ERROR("Invalid result, pCallbacks:%p pResult:%p pPrivateData:%p", pCallbacks,
                      pResult, pResult != nullptr ? pResult->pPrivateData : nullptr);
        return;
    }
    const auto& session = *static_cast<const PrivateSessionInfo*>(pCallbacks->pPrivateCallbackData);
    auto* pRequest = static_cast<OfflineRequest*>(pResult->pPrivateData);
    const ChiOfflineResultBlock* pSecond = pResult->pSecondResult;
    if (pSecond != nullptr && (pSecond->pMetadata != nullptr || pSecond->pBuffers != nullptr)) {
        // The second block only triggers: what is reported is the main block, and again below.
        pRequest->pAdaptee->ProcessOfflineCaptureResultCb(pRequest->pRtPrivData, pResult);
    }
    if (const ChiOfflineResultBlock* pMain = pResult->pResult) {
        const ChiOfflineResultBlock& block = *pMain;
        CountReceivedBuffers(*pResult, block, session, pRequest);
        ReportMainBlock(*pResult, block, pRequest);
        if (pRequest->numReceivedBuffers == session.totalResult && block.numPartialMetadata == 0) {
            CompleteRequest(block, pRequest);
        } else if (block.numPartialMetadata != 0) {
            OEM_LOG_INFO("Free up real time metadata  - pending");
        }
    }
    OEM_LOG_INFO("Returning from capture result");
}

namespace {

/// Lowers the counter by a result's frame number, where it is not below it. It was raised by
/// offline frame numbers and is lowered by result frame numbers, whether or not the two match. Two
/// threads that change it at once can lose a change, which nothing but a log line shows.
void LowerCounter(uint32_t& counter, uint32_t frameNumber) {
    const uint32_t value = LoadRelaxed(counter);
    if (value >= frameNumber) {
        StoreRelaxed(counter, value - frameNumber);
    }
}

} // namespace

void QcomAdaptee::CountReceivedBuffers(const ChiOfflineCaptureResultInfo& result,
                                       const ChiOfflineResultBlock& block,
                                       const PrivateSessionInfo& session,
                                       OfflineRequest* pRequest) {
    uint32_t* pCounter = pRequest->pTotalCounter;
    pRequest->numReceivedBuffers += block.numBuffers;
    if (block.numBuffers != 0 && pCounter != nullptr) {
        LowerCounter(*pCounter, result.frameNumber);
    }
    OEM_LOG_INFO_IN(kCaptureResult,
                    "frameNumber numBuf:%d numStreamBuffers %d numPartialMetadata %d "
                    "totalResult:%d pMetadata:%p pLastCount %d",
                    result.frameNumber, block.numBuffers, block.numPartialMetadata,
                    session.totalResult, block.pMetadata,
                    pCounter != nullptr ? LoadRelaxed(*pCounter) : 0);
}

/// Hands the main block to the host, and destroys the request's output metadata once it was
/// reported. The input metadata is the host's.
void QcomAdaptee::ReportMainBlock(const ChiOfflineCaptureResultInfo& result,
                                  const ChiOfflineResultBlock& block, OfflineRequest* pRequest) {
    if (block.numBuffers == 0 && block.pMetadata == nullptr) {
        return;
    }
    pRequest->pAdaptee->ReportResult(pRequest->pRtPrivData, &result);
    if (block.pMetadata == nullptr) {
        return;
    }
    OEM_LOG_INFO_IN(kCaptureResult,
                    "[offline_meta] frameNumber:%d release offline input metadata:%p and output "
                    "metadata:%p",
                    result.frameNumber, pRequest->pInputMetadata, pRequest->pOutputMetadata);
    if (pRequest->pOutputMetadata != nullptr) {
        pRequest->pAdaptee->DestroyMetadata(pRequest->pOutputMetadata);
        pRequest->pOutputMetadata = nullptr;
    }
}

/// Releases the real-time inputs, tells the host, and frees the request.
void QcomAdaptee::CompleteRequest(const ChiOfflineResultBlock& block, OfflineRequest* pRequest) {
    const QcomAdaptee& adaptee = *pRequest->pAdaptee;
    RequestPrivData* pPrivData = pRequest->pRtPrivData;
    // Read before anything is freed: the vendor may report the request's own output buffer. Only
    // the first buffer counts, and it does whatever the block's count says.
    const uint32_t bufferStatus = block.pBuffers != nullptr ? block.pBuffers[0].bufferStatus : 0;
    if (pPrivData == nullptr) {
        // A request fed by another offline session; its output buffer and its format records are
        // not freed.
        OEM_LOG_INFO_IN(kCaptureResult, "Free up OC->OC metadata and buffers - pending");
    } else {
        OEM_LOG_INFO_IN(kCaptureResult,
                        "Freeing up real time output buffers (input to first offline session)");
        const OffCamApplicationCallbacks* pHost = adaptee.HostCallbacks();
        if (pHost != nullptr && pHost->releaseRtBuffers != nullptr) {
            pHost->releaseRtBuffers(pPrivData);
        }
        FreeRequestBuffers(pRequest);
    }
    if (bufferStatus != 0) {
        OEM_LOG_ERROR_IN(kCaptureResult, "ERROR BUFFER status %d", bufferStatus);
    }
    OEM_LOG_INFO_IN(kCaptureResult, "Notify close process");
    // Asked again: the host may have submitted with another table from within the release.
    const OffCamApplicationCallbacks* pHost = adaptee.HostCallbacks();
    if (pHost != nullptr && pHost->requestComplete != nullptr) {
        pHost->requestComplete(pPrivData, bufferStatus != 0 ? kStatusFailure : kStatusOk);
    }
    ::operator delete(pRequest);
}

/// Frees the output buffer and as many format records as buffers were received: the bound is the
/// results', not the inputs'. Format records behind it stay allocated: "format records" in
/// docs/kept-behaviours.md. The input array ends here, too; its memory goes with the request's.
void QcomAdaptee::FreeRequestBuffers(OfflineRequest* pRequest) {
    delete pRequest->pOutputBuffer;
    pRequest->pOutputBuffer = nullptr;
    const uint32_t bound = std::min(pRequest->numReceivedBuffers, pRequest->inputCapacity);
    for (uint32_t k = 0; k < bound; ++k) {
        delete pRequest->pInputBuffers[k].pInputFormat;
        pRequest->pInputBuffers[k].pInputFormat = nullptr;
    }
    pRequest->pInputBuffers = nullptr;
}

void QcomAdaptee::ProcessNotifyCb(const ChiOfflineSessionCallbacks* /*pCallbacks*/,
                                  unsigned int /*count*/, ChiOfflineMessageInfo* /*pMessage*/) {
    OEM_LOG_INFO("Notify Callback Received - Implementation pending");
}

namespace {

constexpr const char kFrameworkBuffers[] = "GetFrameworkBuffers";

/// The framework's table, as the last submission brought it.
const camera3_callback_ops* FrameworkOps(const QcomAdaptee* pAdaptee) {
    return pAdaptee != nullptr ? pAdaptee->GetCamera3CbOpsAPI() : nullptr;
}

/// How much of what the framework says it returned was asked for.
unsigned int LimitToWanted(const char* what, unsigned int returned, unsigned int wanted) {
    if (returned > wanted) {
        OEM_LOG_ERROR_IN(kFrameworkBuffers, "%u %s returned, %u wanted, surplus ignored", returned,
                         what, wanted);
    }
    return std::min(returned, wanted);
}

/// Hands one answer of the framework to the vendor, in the vendor's own storage.
void TranslateAnswer(const ChiOfflineInterface* pIntf, const camera3_stream_buffer_ret& answer,
                     const FrameworkRequest::Handed& handed, const ChiOfflineQueryBuffer& query,
                     ChiOfflineQueryStreamBuffer& returned) {
    const uint32_t count =
        LimitToWanted("buffers", LoadRelaxed(answer.num_output_buffers), handed.wanted);
    ChiStreamBuffer* pBuffers = returned.pBuffers;
    returned.pStream = query.pStream;
    returned.status = static_cast<uint32_t>(answer.status);
    returned.numBuffers = count;
    const auto translate = pIntf != nullptr ? pIntf->pTranslateToChiBuffer : nullptr;
    for (uint32_t j = 0; translate != nullptr && pBuffers != nullptr && j < count; ++j) {
        translate(&handed.pBuffers[j], &pBuffers[j]);
    }
}

} // namespace

uint32_t QcomAdaptee::GetFrameworkBuffers(const ChiOfflineSessionCallbacks* pCallbacks,
                                          unsigned int numRequests,
                                          const ChiOfflineQueryBuffer* pRequests,
                                          unsigned int* pNumReturned,
                                          ChiOfflineQueryStreamBuffer* pReturned) {
    if (pCallbacks == nullptr || pRequests == nullptr || pReturned == nullptr) {
        return kStatusFailure;
    }
    FrameworkRequest request(numRequests);
    const auto* pSession = static_cast<PrivateSessionInfo*>(pCallbacks->pPrivateCallbackData);
    const QcomAdaptee* pAdaptee = pSession != nullptr ? pSession->pAdaptee : nullptr;
    const camera3_callback_ops* pOps = FrameworkOps(pAdaptee);
    if (pOps == nullptr || !request.IsComplete()) {
        return kStatusFailure;
    }
    for (unsigned int i = 0; i < numRequests; ++i) {
        const uint32_t wanted = LoadRelaxed(pRequests[i].numBuffers);
        OEM_LOG_INFO("numOfReqBuffers %d i %d pStream %p", wanted, i, pRequests[i].pStream);
        if (!request.Want(i, pRequests[i].pStream, wanted)) {
            return kStatusFailure;
        }
    }
    uint32_t frameworksCount = numRequests;
    const int32_t result = pOps->request_stream_buffers != nullptr
                               ? pOps->request_stream_buffers(pOps, numRequests, request.pRequests,
                                                              &frameworksCount, request.pAnswers)
                               : 1;
    if (result != 0) {
        OEM_LOG_ERROR("request hal stream buffer failed, non-fatal retval = %d", result);
        return kStatusFailure;
    }
    OEM_LOG_INFO("request hal stream buffer success");
    const uint32_t numReturned =
        LimitToWanted("answers", LoadRelaxed(frameworksCount), numRequests);
    for (uint32_t k = 0; k < numReturned; ++k) {
        TranslateAnswer(pAdaptee->GetChiOfflineIntfOps(), request.pAnswers[k], request.pHanded[k],
                        pRequests[k], pReturned[k]);
    }
    if (pNumReturned != nullptr) {
        *pNumReturned = numReturned;
    }
    return kStatusOk;
}

// --- Results: the host gets what the session made ------------------------------------------------

namespace {

constexpr const char kOfflineResult[] = "ProcessOfflineCaptureResultCb";

/// Most output buffers that one result hands to the host.
constexpr uint32_t kMaxResultBuffers = 8;

/// Added to the host's base, so that offline metadata has a partial-result number of its own.
constexpr uint32_t kOfflinePartialResult = 255;

} // namespace

uint32_t QcomAdaptee::ProcessOfflineCaptureResultCb(void* pRtPvtData,
                                                    const ChiOfflineCaptureResultInfo* pResult) {
    return ReportResult(pRtPvtData, pResult);
}

uint32_t QcomAdaptee::ReportResult(void* pRtPvtData, const ChiOfflineCaptureResultInfo* pResult) {
    if (pResult == nullptr || pResult->pResult == nullptr || pRtPvtData == nullptr) {
        OEM_LOG_INFO_IN(kOfflineResult, "pResult:%p pRtPvtData:%p", pResult, pRtPvtData);
        return kStatusFailure;
    }
    auto* pPrivData = static_cast<RequestPrivData*>(pRtPvtData);
    const ChiOfflineResultBlock& block = *pResult->pResult;
    camera3_capture_result result = {};
    camera3_stream_buffer buffers[kMaxResultBuffers] = {};
    result.frame_number = pPrivData->rtFrameNumber;
    bool send = false;
    if (const uint32_t numBuffers = LoadRelaxed(block.numBuffers); numBuffers != 0) {
        TranslateOutputBuffers(block, numBuffers, buffers, result);
        send = true;
    }
    if (block.pMetadata != nullptr) {
        send = TranslateOutputMetadata(block.pMetadata, *pPrivData, result) || send;
    }
    // The host's table is the one of the camera that the request was submitted to.
    const auto* pRequest = static_cast<const OfflineRequest*>(pResult->pPrivateData);
    const OffCamApplicationCallbacks* pHost =
        pRequest != nullptr ? pRequest->pAdaptee->HostCallbacks() : nullptr;
    if (send && pHost != nullptr && pHost->captureResult != nullptr) {
        pHost->captureResult(pPrivData, &result);
    }
    return kStatusOk;
}

/// Fills the result's buffers, and the array behind them, which was cleared.
void QcomAdaptee::TranslateOutputBuffers(const ChiOfflineResultBlock& block, uint32_t numBuffers,
                                         camera3_stream_buffer* pBuffers,
                                         camera3_capture_result& result) {
    if (numBuffers > kMaxResultBuffers) {
        OEM_LOG_ERROR_IN(kOfflineResult, "%u output buffers, only the first %u are reported",
                         numBuffers, kMaxResultBuffers);
    }
    const uint32_t count = std::min(numBuffers, kMaxResultBuffers);
    // Once: what the vendor makes of its table and its block while it translates changes nothing.
    const ChiStreamBuffer* pTranslated = block.pBuffers;
    const auto translate =
        mpChiOfflineIntfOps != nullptr ? mpChiOfflineIntfOps->pTranslateFromChiBuffer : nullptr;
    for (uint32_t i = 0; translate != nullptr && pTranslated != nullptr && i < count; ++i) {
        translate(&pTranslated[i], &pBuffers[i]);
    }
    result.num_output_buffers = count;
    result.output_buffers = pBuffers;
    for (uint32_t i = 0; i < count; ++i) {
        const camera3_stream* pStream = pBuffers[i].stream;
        OEM_LOG_INFO_IN(
            kOfflineResult,
            "offline buffer received, frameNumber:%d, buferIndex:%u/%u, stream:%p "
            "format:%d size(%d, %d)",
            result.frame_number, i, numBuffers, pStream, pStream != nullptr ? pStream->format : 0,
            pStream != nullptr ? pStream->width : 0, pStream != nullptr ? pStream->height : 0);
    }
}

/// Fills the result's metadata, which then is the host's. \returns whether there is any.
bool QcomAdaptee::TranslateOutputMetadata(ChiMetadataHandle metadata,
                                          const RequestPrivData& privData,
                                          camera3_capture_result& result) {
    void* pMeta = nullptr;
    if (mpOfflineMetadataOps != nullptr && mpOfflineMetadataOps->pCreateAndroid != nullptr) {
        pMeta =
            mpOfflineMetadataOps->pCreateAndroid(mpOfflineMetadataOps, metadata, 1, 0, 0, nullptr);
    }
    if (pMeta == nullptr) {
        OEM_LOG_ERROR_IN(kOfflineResult, "frameNumber:%d pMeta:%p", result.frame_number, pMeta);
        return false;
    }
    OEM_LOG_INFO_IN(kOfflineResult, "Get offline camera metadata for frame:%d pMeta:%p",
                    result.frame_number, pMeta);
    result.result = static_cast<const camera_metadata*>(pMeta);
    result.partial_result = privData.partialResultBase + kOfflinePartialResult;
    return true;
}

// --- Flush: every session is closed --------------------------------------------------------------

void QcomAdaptee::Flush() {
    if (mpSessionManagers != nullptr) {
        mpSessionManagers->Flush();
    }
    // At error level so that the end of a flush shows where only errors are logged.
    OEM_LOG_ERROR("Flush X");
}

uint32_t SessionManagers::Flush() {
    const CameraSerial serial;
    OEM_LOG_INFO("Start destroy session managers.");
    uint32_t status = kStatusOk;
    for (const auto& [pStream, sessions] : m_pStream2SuppSessMap) {
        for (const SessionObjects* pSession : sessions) {
            status = m_pAdaptee->CloseOfflineSessions(pSession->GetSessionHandle());
            delete pSession;
            // After each: their keys refer to chains, also where the vendor refused the close.
            m_found.Clear();
        }
    }
    m_pStream2SuppSessMap.clear();
    return status;
}

uint32_t QcomAdaptee::CloseOfflineSessions(unsigned long handle) {
    if (mpChiOfflineIntfOps == nullptr || mpChiOfflineIntfOps->pCloseSession == nullptr) {
        return kStatusFailure;
    }
    if (handle != 0) {
        const uint32_t status = CloseInVendor(handle);
        if (status != kStatusOk) {
            return status;
        }
    }
    FreeSession(handle);
    std::erase_if(mRtLinkSessHdlMap, [handle](const auto& link) { return link.second == handle; });
    // For the whole camera, although other sessions may have requests in flight: "Closing any
    // session" in docs/kept-behaviours.md.
    StoreRelaxed(mTotalCounter, 0);
    return kStatusOk;
}

/// Closes a session in the vendor. On a failure nothing of ours is touched.
uint32_t QcomAdaptee::CloseInVendor(unsigned long handle) {
    const int32_t result = mpChiOfflineIntfOps->pCloseSession(handle);
    if (result == 0) {
        OEM_LOG_INFO_IN("CloseOfflineSessions", "close sessionHdl: %li", handle);
        return kStatusOk;
    }
    const PrivateSessionInfo* pInfo = FindSessionInfo(handle);
    OEM_LOG_ERROR_IN("CloseOfflineSessions",
                     "Failed to close session %d for usecase %s for camera %s", result,
                     pInfo != nullptr ? pInfo->featureName.c_str() : "non",
                     pInfo != nullptr ? pInfo->cameraName.c_str() : "non");
    return static_cast<uint32_t>(result);
}

/// Frees a session's record with all that it owns, and forgets its handle. The settings of one that
/// was not configured are destroyed first, while handle and identities still stand for it.
void QcomAdaptee::FreeSession(unsigned long handle) {
    PrivateSessionInfo* pInfo = FindSessionInfo(handle);
    if (pInfo != nullptr && pInfo->configInfo.pSessionSettings != nullptr) {
        OEM_LOG_INFO_IN("CloseOfflineSessions", "destroy chimeta: %p",
                        pInfo->configInfo.pSessionSettings);
        DestroyMetadata(pInfo->configInfo.pSessionSettings);
    }
    delete pInfo;
    mSessInfoMap.erase(handle);
    mpSessionManagers->ForgetFound();
}

} // namespace OemLayer
