/// What the measurements run on: the built library on the stand-in device, whose offline interface
/// is filled with entries that do nothing but call back, and a host that does nothing at all.
///
/// The straight-line code that the library is compared with calls the very same entries.
#pragma once

#include "kit/stream.h"
#include "platform/chi/offline.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace bench {

using kit::MakeStream;

/// Records that requests write to have cache lines of their own, so that cameras on several threads
/// meet in the library alone, if anywhere.
inline constexpr size_t kCacheLine = 64;

/// A session as the vendor knows it. Its handle is its address.
struct alignas(kCacheLine) VendorSession {
    ChiOfflineSessionCallbacks* pCallbacks;
    int32_t frame; ///< Of the last request.
    bool holds;    ///< Results wait for `Deliver`.
};

/// Hands a request's one result, buffer and metadata together, to its session.
void Deliver(const VendorSession& session, ChiStreamBuffer* pOutput, void* pPrivateData);

/// The vendor's interface with the entries of this file. One for the process.
ChiOfflineInterface* Interface();
ChiOfflineMetadataOps* MetadataOps();
ChiOfflineBufferManagerOps* BufferOps();

/// The last session that was opened.
VendorSession* LastSession();

/// A request that waits for its result.
struct Held {
    const VendorSession* pSession;
    ChiStreamBuffer* pOutput;
    void* pPrivateData;
};
/// What sessions that hold keep, in the order of submission.
std::vector<Held>& HeldRequests();

/// The host's record of a request, and how often it was completed.
struct PrivData : OemLayer::RequestPrivData {
    uint32_t completed;
};

/// What an identity's requests look like.
struct Inputs {
    int32_t formats[2]; ///< Of the session's input streams; 0 for none.
    uint32_t sets;
};

/// All records that a host has for the requests of one identity. They are submitted again and again.
class alignas(kCacheLine) HostRequest {
  public:
    HostRequest(const Inputs& inputs, uint32_t cameraId, const std::string& featureName,
                camera3_stream* pOutStream);
    HostRequest(const HostRequest&) = delete;
    HostRequest& operator=(const HostRequest&) = delete;

    OemLayer::OfflineDataWraper wrapper = {};
    camera3_stream_buffer output = {};
    PrivData privData = {};

  private:
    std::deque<camera3_stream> mStreams;
};

/// The host's callbacks: they count completions.
OemLayer::OffCamApplicationCallbacks* HostCallbacks();

/// Opens the library, loads it and puts the entries of this file in the interface's place. Throws
/// std::runtime_error where it cannot. Once.
void LoadLibrary(const std::string& path);

/// A camera of the loaded library, as long as this lives.
class Camera {
  public:
    explicit Camera(uint32_t cameraId);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    uint32_t Submit(HostRequest& request) {
        return table.SubmitRequestFromRT(&table, &request.wrapper, &request.privData,
                                         &request.output, HostCallbacks());
    }

    PlatFormIntCallbacks table;
};

} // namespace bench
