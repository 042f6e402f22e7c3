/// What a request, and a session's life, cost at least: the calls of the vendor and the host, the
/// records and the allocations that the library makes, as straight-line code. No session is looked
/// up, nothing is locked or logged, and what the vendor reads during the execute call is cleared
/// whole.
#pragma once

#include "bench/device.h"

#include <string>

namespace bench {

/// A session, with what its requests refer to.
struct alignas(kCacheLine) FloorSession {
    uint64_t handle = 0;
    class FloorCamera* pCamera = nullptr;
    std::string name;
    std::string cameraText;
    ChiOfflineSessionCreateInfo* pCreateInfo = nullptr;
    ChiOfflineSessionConfigInfo* pConfig = nullptr;
    ChiStream* pInputs = nullptr;
    uint32_t lastFrameField = 0;
    int32_t offlineFrameNumber = 0;
};

class alignas(kCacheLine) FloorCamera {
  public:
    /// Opens and configures the session of an identity.
    FloorSession* Open(const HostRequest& request);
    void Close(FloorSession* pSession) const;

    /// Submits a request. Its completion frees what this allocates.
    void Submit(FloorSession& session, HostRequest& request);

  private:
    struct Request;

    static void ReceiveResult(const ChiOfflineSessionCallbacks* pCallbacks, unsigned int count,
                              ChiOfflineCaptureResultInfo* pResult);

    ChiOfflineInterface* mpInterface = Interface();
    ChiOfflineMetadataOps* mpMetadataOps = MetadataOps();
    uint64_t mContext = 0;
    uint32_t mWord = 0;
    camera3_callback_ops* mpFrameworkOps = nullptr;
    const camera_metadata* mpSessionParameters = nullptr;
    OemLayer::OffCamApplicationCallbacks* mpHostCallbacks = nullptr;
    uint32_t mTotalCounter = 0;
};

} // namespace bench
