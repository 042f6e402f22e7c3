/// The per-camera adaptee over the vendor's offline interface, and the registry of its sessions.
///
/// Ownership: PlatformAdapter owns its QcomAdaptee, which owns its SessionManagers, its feature map
/// and the records of its sessions; a session's record owns all that belongs to the session; the
/// registry owns its chains. `CloseOfflineSessions` frees a session's record; the result that
/// completes a request frees the request's. Records of the host and Android streams are never
/// owned.
///
/// Locks: the registry's mutex is held for the whole of `GetSessHandle`, so that sessions are
/// opened, prepared and configured one at a time, and so that none is filed in the adaptee's maps
/// while another one is looked up. `mLock` is held while a submission reads a session's
/// configuration, which nothing changes by then. None is held while a host callback or the vendor's
/// execute entry runs; only what a vendor calls while it opens or configures a session is called
/// under the registry's mutex. The host keeps load, `Create`, `Destroy`,
/// `TearDownResource` and `Flush` apart from everything else of the same camera.
///
/// Some members are written as the contract has them, and nothing here reads them: the adaptee's
/// `mWrapperContext` and `mWrapperWord`; a session's `sessionName`, `featureFlags`, `featureValue`
/// and `pCameraInfo`; a request's `pRtMetadata` and `pMetadataOps`.
#pragma once

#include "adapterlayer/foundsessions.h"
#include "adapterlayer/oemlayer_host.h"
#include "adapterlayer/sync.h"
#include "platform/chi/offline.h"

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// A step that every request takes: a function of its own for the reader, and inlined into its one
/// caller, since a request is short enough for its calls to show.
#define OEM_STEP __attribute__((always_inline))

namespace OemLayer {

class SessionManagers;

/// What an operation returns where its contract names a status.
inline constexpr uint32_t kStatusOk = 0;
inline constexpr uint32_t kStatusFailure = 1;
inline constexpr uint32_t kStatusInvalid = 4;
inline constexpr uint32_t kStatusNoMemory = 5;

/// One row of the offline feature map.
struct OfflineMapInfo {
    uint32_t opMode = 0;
    std::string featureName;
    uint32_t featureFlags = 0;
    int32_t featureValue = 0;
};

/// One camera's side of the vendor's offline interface.
class alignas(kCacheLine) QcomAdaptee {
  public:
    /// Hung on each input stream of a session.
    struct StreamPrivateInfo {
        uint64_t reserved0;
        camera3_stream* pHalStream; ///< What the ChiStream was made from.
    };
    ABI_SIZE(StreamPrivateInfo, 16);

    /// One opened session, with all that belongs to it. Freed when the session is closed, unless a
    /// later one took its place under its handle: then it stays.
    struct PrivateSessionInfo {
        std::string sessionName; ///< Named after the camera at opening, after the feature later.
        std::string cameraName;
        ChiOfflineSessionCreateInfo createInfo = {};
        std::string featureName;
        uint32_t opMode = 0;
        uint32_t featureFlags = 0;
        int32_t featureValue = 0;
        camera_info* pCameraInfo = nullptr;
        std::unique_ptr<ChiStream[]> pInputStreams;
        std::unique_ptr<StreamPrivateInfo[]> pStreamInfos; ///< One for each input stream.
        std::unique_ptr<ChiStream*[]> pStreamList;         ///< The inputs, then the output.
        // What each request needs is close together. The fields that requests write to are further
        // than a cache line from both ends of the record, so that no other session's share theirs.
        ChiOfflineSessionCallbacks callbacks = {};
        uint64_t sessHdl = 0;        ///< What the session is filed under.
        uint32_t totalResult = 0;    ///< Output buffers of one request; 1 once prepared.
        uint32_t lastFrameField = 0; ///< Written by the vendor during an execute call.
        /// Preset to -1 and written by the vendor during an execute call. Atomic, since two threads
        /// may submit to one session.
        int32_t offlineFrameNumber = 0;
        ChiOfflineSessionConfigInfo configInfo = {};
        QcomAdaptee* pAdaptee = nullptr;
        /// The text that the vendor got as the session's name. `sessionName` is rewritten after the
        /// opening, while the vendor may read the name as long as the session lives.
        std::string vendorSessionName;
    };

    /// One submitted request. It travels through the vendor as private data and is freed by the
    /// result that completes it. Only the results of the one request touch it after it was
    /// submitted.
    struct OfflineRequest {
        /// The input records of the set that was written last at each position: the index restarts
        /// with every set, and the completion frees the format records that it still finds here.
        /// They lie right behind the request.
        ChiStreamBuffer* pInputBuffers;
        ChiStreamBuffer* pOutputBuffer;
        ChiMetadataHandle pRtMetadata; ///< Of the last input set; the host's.
        ChiMetadataHandle pInputMetadata;
        ChiMetadataHandle pOutputMetadata;
        RequestPrivData* pRtPrivData;
        uint32_t numReceivedBuffers;
        QcomAdaptee* pAdaptee;
        ChiOfflineMetadataOps* pMetadataOps;
        uint32_t* pTotalCounter;
        uint32_t inputCapacity; ///< Records in `pInputBuffers`.
    };

    /// Reads the feature map and makes the session registry. `pOfflineIntf` may be null.
    explicit QcomAdaptee(void* pOfflineIntf);
    QcomAdaptee(const QcomAdaptee&) = delete;
    QcomAdaptee& operator=(const QcomAdaptee&) = delete;

    /// Makes the adaptee of a camera and opens the vendor's metadata and buffer operations. What
    /// cannot be opened is logged and stays null. \returns the adaptee, never null. Camera-serial.
    static QcomAdaptee* Create(void* pOfflineIntf, unsigned int cameraId);

    /// Closes the sessions of all chains, then the metadata operations, then the buffer operations,
    /// and frees the adaptee itself. Camera-serial.
    void Destroy();

    ChiOfflineMetadataOps* GetChiOfflineMetadataOps() const { return mpOfflineMetadataOps; }
    ChiOfflineBufferManagerOps* GetChiOfflineBufferManagerOps() const { return mpOfflineBufferOps; }
    ChiOfflineInterface* GetChiOfflineIntfOps() const { return mpChiOfflineIntfOps; }
    /// Null until the first request, as are the next two.
    camera3_callback_ops* GetCamera3CbOpsAPI() const { return LoadAcquire(mpCamera3CbOps); }
    camera_info* GetCameraInfo() const { return LoadAcquire(mpCameraInfo); }
    const camera_metadata* GetConfigurationSessionParameters() const {
        return LoadAcquire(mpConfigurationSessionParameters);
    }

    /// The rows of the device's feature table, in key order. A row that cannot be read ends the
    /// table.
    std::vector<OfflineMapInfo> GetOfflineMapInfoByConfig();
    /// A copy of the first row with this name, or a row of zeros. Any thread.
    OfflineMapInfo FindOfflineInfo(const std::string& featureName) const;

    /// Opens the session of `identity` and files it. \returns its handle; 0 when it was not opened,
    /// and when the identity has a session already (the new one then stays open and filed).
    long OpenOfflineSession(const std::string& cameraText, const OfflineSessionIdentitys& identity,
                            camera_info* pCameraInfo) OEM_REQUIRES(kSessions);
    /// \returns the vendor's handle, which may be 0 and is filed all the same; 0 without an open
    /// entry.
    long DoOpenOfflineSession(const std::string& cameraText, const std::string& featureName,
                              camera_info* pCameraInfo, unsigned long sharedSessionHdl)
        OEM_REQUIRES(kSessions);
    /// Completes the record of a session from the feature map. `streamText` and `pCameraInfo` are
    /// accepted and not used.
    void InitSessInfo(unsigned long sessHdl, unsigned int opMode, const std::string& streamText,
                      const std::string& featureName, camera_info* pCameraInfo)
        OEM_REQUIRES(kSessions);

    /// Turns the framework's streams into the session's vendor streams and fills its configuration.
    /// \returns kStatusOk, also for handle 0; kStatusFailure when streams do not add up or the
    /// session is not known; kStatusNoMemory.
    uint32_t PrepareOfflineConfig(unsigned int numInStreams, camera3_stream* const* ppInStreams,
                                  camera3_stream* pOutStream, unsigned long sessHdl,
                                  const camera_metadata* pSessionParams) OEM_REQUIRES(kSessions);
    uint32_t DoPrepareOfflineConfig(unsigned int numInStreams, ChiStream** ppInStreams,
                                    camera3_stream* pOutStream,
                                    ChiOfflineSessionConfigInfo* pConfig, unsigned long sessHdl,
                                    const camera_metadata* pSessionParams) OEM_REQUIRES(kSessions);
    /// Hands the configuration to the vendor. \returns the vendor's result; kStatusFailure without
    /// an entry or for an unknown session; kStatusOk for handle 0.
    uint32_t ConfigStreams(unsigned long sessHdl) OEM_REQUIRES(kSessions);
    /// ChiFormatYUV420NV12, with an error line, for a format that has no counterpart.
    static ChiBufferFormat MapChiStreamFormatToChiBufferFormat(ChiStreamFormat format);

    /// See PlatFormIntCallbacks::SubmitRequestFromRT. Concurrent.
    uint32_t SubmitRequestFromRT(OfflineDataWraper* pDataWraper,
                                 RequestPrivData* pRealtimePrivateData,
                                 camera3_stream_buffer* pOfflineOutputBuffer,
                                 OffCamApplicationCallbacks* pCallbacks);
    /// Takes over what the wrapper brings for the whole camera; the last submission wins.
    void InitParam(const OfflineDataWraper* pDataWraper);

    /// The three callbacks of every session; on the vendor's threads. `pCallbacks` is the record
    /// handed over at opening.
    static void ProcessCaptureResultCb(const ChiOfflineSessionCallbacks* pCallbacks,
                                       unsigned int count, ChiOfflineCaptureResultInfo* pResult);
    static void ProcessNotifyCb(const ChiOfflineSessionCallbacks* pCallbacks, unsigned int count,
                                ChiOfflineMessageInfo* pMessage);
    /// \returns kStatusOk, or kStatusFailure with no buffer handed to the vendor.
    static uint32_t GetFrameworkBuffers(const ChiOfflineSessionCallbacks* pCallbacks,
                                        unsigned int numRequests,
                                        const ChiOfflineQueryBuffer* pRequests,
                                        unsigned int* pNumReturned,
                                        ChiOfflineQueryStreamBuffer* pReturned);

    /// Hands the main block of a result to the host. Allocates nothing and frees nothing.
    /// \returns kStatusOk, also when there was nothing to hand over; kStatusFailure where the
    /// result, its main block or the private data is missing.
    uint32_t ProcessOfflineCaptureResultCb(void* pRtPvtData,
                                           const ChiOfflineCaptureResultInfo* pResult);

    /// The record of a session, null where the handle is not known.
    PrivateSessionInfo* FindSessionInfo(uint64_t sessHdl) const OEM_REQUIRES(kSessions);

    /// Closes the sessions of all chains. Camera-serial.
    void Flush();
    /// Closes one session and frees all that is kept under its handle. Handle 0 is not closed in
    /// the vendor; for a handle that is not known there is nothing to free. Not while results of
    /// the session are delivered. \returns kStatusOk; kStatusFailure without a close entry, or the
    /// vendor's result, and then nothing was torn down.
    uint32_t CloseOfflineSessions(unsigned long handle) OEM_REQUIRES(kSessions);

  private:
    struct SessionStreams;
    struct Submission;

    /// Only `Destroy` ends an adaptee.
    ~QcomAdaptee();

    void OpenMetadataOps(unsigned int cameraId);
    void OpenBufferOps();

    OEM_STEP ChiStreamBuffer* NewOutputBuffer(const camera3_stream_buffer* pOfflineOutputBuffer);

    bool CanOpenSessions() const;
    PrivateSessionInfo* NewSessionInfo(const std::string& cameraText,
                                       const std::string& featureName, camera_info* pCameraInfo);
    void FileSessionInfo(uint64_t sessHdl, PrivateSessionInfo* pInfo) OEM_REQUIRES(kSessions);

    static void FillInputStream(camera3_stream* pHalStream, StreamPrivateInfo* pPrivate,
                                ChiStream* pStream);
    ChiMetadataHandle CreateSessionSettings(const camera_metadata* pSessionParams);
    static unsigned int ListInputStreams(unsigned int numInStreams, ChiStream** ppInStreams,
                                         const PrivateSessionInfo& info, ChiStream** ppList);
    static unsigned int ListOutputStream(camera3_stream* pOutStream, uint32_t totalResult,
                                         unsigned int numInputs, ChiStream** ppList);
    void DestroyMetadata(ChiMetadataHandle metadata);

    OEM_STEP uint32_t SubmitToSession(uint64_t sessHdl, PrivateSessionInfo& session,
                                      const OfflineDataWraper& wrapper, uint32_t numSets,
                                      RequestPrivData& privData, ChiStreamBuffer* pOutputBuffer);
    OEM_STEP SessionStreams ReadSessionStreams(const PrivateSessionInfo& session,
                                               const OfflineDataWraper& wrapper, uint32_t numSets);
    OEM_STEP OfflineRequest* NewOfflineRequest(uint32_t numSets, const SessionStreams& streams,
                                               RequestPrivData& privData,
                                               ChiStreamBuffer* pOutputBuffer);
    OEM_STEP void CreateOutputMetadata(Submission& submission);
    OEM_STEP uint32_t ExecuteRequest(uint64_t sessHdl, PrivateSessionInfo& session,
                                     Submission& submission);

    OEM_STEP static void CountReceivedBuffers(const ChiOfflineCaptureResultInfo& result,
                                              const ChiOfflineResultBlock& block,
                                              const PrivateSessionInfo& session,
                                              OfflineRequest* pRequest);
    OEM_STEP static void ReportMainBlock(const ChiOfflineCaptureResultInfo& result,
                                         const ChiOfflineResultBlock& block,
                                         OfflineRequest* pRequest);
    OEM_STEP static void CompleteRequest(const ChiOfflineResultBlock& block,
                                         OfflineRequest* pRequest);
    OEM_STEP static void FreeRequestBuffers(OfflineRequest* pRequest);
    const OffCamApplicationCallbacks* HostCallbacks() const { return LoadAcquire(mpOffCamAppCbs); }

    /// ProcessOfflineCaptureResultCb, for the result that every request has.
    OEM_STEP uint32_t ReportResult(void* pRtPvtData, const ChiOfflineCaptureResultInfo* pResult);
    OEM_STEP void TranslateOutputBuffers(const ChiOfflineResultBlock& block, uint32_t numBuffers,
                                         camera3_stream_buffer* pBuffers,
                                         camera3_capture_result& result);
    OEM_STEP bool TranslateOutputMetadata(ChiMetadataHandle metadata,
                                          const RequestPrivData& privData,
                                          camera3_capture_result& result);

    uint32_t CloseInVendor(unsigned long handle) OEM_REQUIRES(kSessions);
    void FreeSession(unsigned long handle) OEM_REQUIRES(kSessions);

    std::mutex mLock; ///< Taken where a session's configuration is read; guards nothing alone.
    /// Owned, and freed by a close alone: a session that the vendor did not close still delivers.
    std::map<uint64_t, PrivateSessionInfo*> mSessInfoMap OEM_GUARDED_BY(kSessions);
    std::map<OfflineSessionIdentitys, uint64_t> mRtLinkSessHdlMap OEM_GUARDED_BY(kSessions);
    std::vector<OfflineMapInfo> mOfflineMapInfos; ///< Constant after construction.
    ChiOfflineBufferManagerOps* mpOfflineBufferOps = nullptr;
    ChiOfflineMetadataOps* mpOfflineMetadataOps = nullptr;
    ChiOfflineInterface* mpChiOfflineIntfOps; ///< Not owned.
    uint32_t mCameraId = 0;
    SessionManagers* mpSessionManagers; ///< Owned.
    // All below are atomic: the last submission writes them, and callbacks read them. What they
    // point at is the host's.
    uint32_t mTotalCounter = 0; ///< Raised by offline frame numbers, lowered by those of results.
    uint32_t mWrapperWord = 0;
    uint64_t mWrapperContext = 0;
    camera_info* mpCameraInfo = nullptr;
    camera3_callback_ops* mpCamera3CbOps = nullptr;
    const camera_metadata* mpConfigurationSessionParameters = nullptr;
    const OffCamApplicationCallbacks* mpOffCamAppCbs = nullptr;
};

/// One session chain: one opened session for one identity. It never closes its session; whoever
/// deletes it does that before. All calls come from SessionManagers, under its lock but for
/// `Flush`.
class SessionObjects {
  public:
    explicit SessionObjects(OfflineSessionIdentitys identity);

    /// By reference: finding a session copies no name.
    const OfflineSessionIdentitys& GetIdentity() const { return m_identity; }
    uint64_t GetSessionHandle() const { return m_Sesshdle; }

    /// Opens the session for `cameraId` and `pStream`, which replace those of the identity.
    /// \returns kStatusOk, or kStatusFailure when the handle is 0. `pAdaptee` is never null.
    uint32_t GenerateOfflineSession(unsigned int cameraId, QcomAdaptee* pAdaptee,
                                    camera3_stream* pStream) OEM_REQUIRES(kSessions);

    /// Prepares and configures the session's streams, also for handle 0 and with missing arguments,
    /// which are only logged. \returns the status of the configuration; kStatusOk without an
    /// adaptee.
    uint32_t Initialize(QcomAdaptee* pAdaptee, const std::vector<camera3_stream*>& pInStreams,
                        const camera_metadata* pConfiguration) OEM_REQUIRES(kSessions);

  private:
    uint64_t m_Sesshdle = 0; ///< 0: no session.
    OfflineSessionIdentitys m_identity;
};

/// The sessions of one adaptee, by output stream. A session is made by the first request of its
/// identity and found by the later ones; a stream's chains stay in creation order.
class alignas(kCacheLine) SessionManagers {
  public:
    explicit SessionManagers(QcomAdaptee* pAdaptee);

    /// Finds or makes the session of `identity`. One that was found before costs no allocation. A
    /// generation that fails for a stream seen for the first time is retried once in the same
    /// call. \param pInStreams the session's inputs, read where one is made. \param pInfo becomes
    /// the session's record; null with handle 0, and where the record is not known. \returns the
    /// session's handle; 0 where none could be made, and for a chain that holds none. Concurrent;
    /// one caller at a time gets through.
    OEM_STEP uint64_t GetSessHandle(unsigned int cameraId, const OfflineSessionIdentitys& identity,
                                    const std::vector<camera3_stream*>& pInStreams,
                                    unsigned int registryWord,
                                    QcomAdaptee::PrivateSessionInfo*& pInfo)
        OEM_EXCLUDES(kSessions);

    /// Closes the session of every chain and deletes the chains. Takes no lock: the host keeps it
    /// apart from submissions. \returns the status of the last close, kStatusOk where there was
    /// none.
    uint32_t Flush() OEM_EXCLUDES(kSessions);

    /// Has sessions searched for anew, where the record of one was replaced. For the adaptee, while
    /// it opens a session.
    void ForgetFound() OEM_REQUIRES(kSessions) { m_found.Clear(); }

  private:
    using SessionList = std::list<SessionObjects*>;

    const SessionObjects* FindOrMakeChain(unsigned int cameraId,
                                          const OfflineSessionIdentitys& identity,
                                          const std::vector<camera3_stream*>& pInStreams,
                                          unsigned int registryWord) OEM_REQUIRES(kSessions);
    uint32_t GenerateOfflineSessions(unsigned int cameraId, const OfflineSessionIdentitys& identity,
                                     const std::vector<camera3_stream*>& pInStreams,
                                     unsigned int registryWord) OEM_REQUIRES(kSessions);
    uint32_t GenerateOfflineSession(unsigned int cameraId, camera3_stream* pOutStream,
                                    const std::vector<camera3_stream*>& pInStreams,
                                    SessionObjects* pSession) OEM_REQUIRES(kSessions);
    uint32_t DropChain(SessionObjects* pSession) OEM_REQUIRES(kSessions);
    void AppendChain(const OfflineSessionIdentitys& identity,
                     const std::vector<camera3_stream*>& pInStreams, SessionObjects* pSession,
                     SessionList& sessions) OEM_REQUIRES(kSessions);
    static const SessionObjects* FindChain(const SessionList& sessions,
                                           const OfflineSessionIdentitys& identity);
    void LogSessions() const OEM_REQUIRES(kSessions);

    QcomAdaptee* m_pAdaptee; ///< Owns this registry.
    std::map<camera3_stream*, SessionList> m_pStream2SuppSessMap OEM_GUARDED_BY(kSessions);
    std::mutex m_mutex;
    FoundSessions<QcomAdaptee::PrivateSessionInfo> m_found OEM_GUARDED_BY(kSessions);
};

} // namespace OemLayer
