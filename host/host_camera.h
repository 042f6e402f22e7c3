/// The camera layer around the adapter library: its loading, and a camera that is driven through
/// the callback table alone.
#pragma once

#include "host/request.h"

#include <atomic>
#include <cstddef>
#include <memory>

namespace host {

/// The adapter library.
class Library {
  public:
    /// Opens the file. \returns what went wrong, empty if nothing did.
    std::string Open(const std::string& file);

    /// Has the library bind the vendor's and the device's libraries.
    void Load() const;

    PlatFormIntCallbacks Table(uint32_t cameraId) const;

  private:
    decltype(&PlatformLoadContext) mLoadContext = nullptr;
    decltype(&PlatformIntContext) mIntContext = nullptr;
};

/// A camera of the host, and the framework's side of it. Its own callbacks run on the vendor's
/// threads. One request is under way at a time.
class Camera : private camera3_callback_ops {
  public:
    Camera(const Library& library, uint32_t id, const Plan& plan);

    const PlatFormIntCallbacks& Table() const { return mTable; }

    /// Prepares the next request and hands it to the library.
    Request& Submit(const Step& step);

    /// Ends the camera. Requests that were not completed never will be.
    void Close();

    /// Output buffers that sessions asked for while they worked.
    uint32_t CountLent() const { return mLent; }
    const std::vector<std::unique_ptr<Request>>& Requests() const { return mRequests; }

  private:
    void TakeRawBuffers(Request& request);
    void MakeMetadata(Request& request);
    void ReleaseRawBuffers(Request& request);
    void DestroyMetadata(Request& request);
    void Send(Request& request);
    void FillWrapper(OemLayer::OfflineDataWraper& wrapper, const Request& request);
    camera3_stream_buffer StreamBuffer(buffer_handle_t* handle);

    void OnRelease(Request& request);
    void OnCompletion(Request& request, uint32_t status);
    void OnResult(Request& request, const camera3_capture_result& result);
    static int32_t Lend(const camera3_callback_ops* ops, uint32_t count,
                        const camera3_buffer_request* requests, uint32_t* returned,
                        camera3_stream_buffer_ret* answers);

    PlatFormIntCallbacks mTable;
    const Plan& mPlan;
    const Scene mScene;
    camera3_stream mRawStream{}; ///< An output of the real-time session.
    camera3_stream mOutputStream{};
    OemLayer::OffCamApplicationCallbacks mCallbacks{};
    alignas(OemLayer::OfflineDataWraper) std::byte mWrapper[sizeof(OemLayer::OfflineDataWraper)];
    camera3_stream_buffer mOutput{};
    std::vector<std::unique_ptr<Request>> mRequests;
    std::atomic<uint32_t> mLent = 0;
};

} // namespace host
