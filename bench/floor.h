/// What a request, and a session's life, cost at least: the calls of the vendor and the host, the
/// records and the allocations that the library makes, as straight-line code.
///
/// It does what the contract demands of everybody. In every call it clears, whole, the local
/// records that the vendor or the host may read. It takes two locks that nobody else wants: the
/// registry's, around finding the session, and the adaptee's, around reading the session's
/// configuration. But it logs nothing, checks nothing, and finds the session where the request says
/// that it is.
#pragma once

#include "bench/device.h"

#include <mutex>
#include <string>
#include <vector>

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

/// Has the operations of a `Camera` that measurements use.
class alignas(kCacheLine) FloorCamera {
  public:
    explicit FloorCamera(uint32_t /*cameraId*/) {}
    ~FloorCamera() { CloseAll(); }

    /// Opens and configures the session of an identity, and submits its first request.
    void Open(HostRequest& request);
    /// Submits a request. Its completion frees what this allocates.
    void Submit(HostRequest& host);
    void CloseAll();

  private:
    static void ReceiveResult(const ChiOfflineSessionCallbacks* pCallbacks, unsigned int count,
                              ChiOfflineCaptureResultInfo* pResult);

    std::mutex mRegistryMutex;
    std::mutex mConfigurationMutex;
    ChiOfflineInterface* mpInterface = TheVendor().interface;
    ChiOfflineMetadataOps* mpMetadataOps = TheVendor().metadata;
    uint64_t mContext = 0;
    uint32_t mWord = 0;
    camera3_callback_ops* mpFrameworkOps = nullptr;
    const camera_metadata* mpSessionParameters = nullptr;
    OemLayer::OffCamApplicationCallbacks* mpHostCallbacks = nullptr;
    uint32_t mTotalCounter = 0;
    std::vector<FloorSession*> mOpen;
};

} // namespace bench
