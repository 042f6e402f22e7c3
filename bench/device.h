/// What the measurements run on: the built library on the instant stand-in device, whose entries do
/// nothing but call back, and a host that does nothing at all.
///
/// The straight-line code that the library is compared with calls the very same entries.
#pragma once

#include "kit/library.h"
#include "kit/stream.h"
#include "platform/chi/offline.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace bench {

using kit::MakeStream;

struct FloorSession;

/// Records that requests write to have cache lines of their own, so that cameras on several threads
/// meet in the library alone, if anywhere.
inline constexpr size_t kCacheLine = 64;

/// The vendor's tables. One of each for the process.
struct Vendor {
    ChiOfflineInterface* interface;
    ChiOfflineMetadataOps* metadata;
    ChiOfflineBufferManagerOps* buffers;
};
const Vendor& TheVendor();

/// The host's record of a request, and how often it was completed.
struct PrivData : OemLayer::RequestPrivData {
    uint32_t completed;
};

/// What an identity's requests look like.
struct Inputs {
    int32_t formats[2]; ///< Of the session's input streams; 0 for none.
    uint32_t sets;
};

inline constexpr Inputs kOneRaw = {{HAL_PIXEL_FORMAT_RAW10}, 1};
inline constexpr Inputs kMost = {{HAL_PIXEL_FORMAT_RAW10, HAL_PIXEL_FORMAT_RAW16}, 12};

/// How often the floor's time the library may take at most.
inline constexpr double kBar = 1.05;
inline constexpr double kNoBar = 0;

/// Requests that are timed and whose instructions are counted: one after another to all sessions.
struct RequestCase {
    const char* name;
    Inputs inputs;
    size_t streams;
    size_t featuresPerStream;
    double bar;
};

inline constexpr RequestCase kRequestCases[] = {
    {"1 set of 1 raw buffer", kOneRaw, 1, 1, kBar},
    {"8 sets of 1 raw buffer", {{HAL_PIXEL_FORMAT_RAW10}, 8}, 1, 1, kBar},
    {"12 sets of 2 raw buffers", kMost, 1, 1, kBar},
    {"1 set of 1 YUV buffer", {{HAL_PIXEL_FORMAT_YCBCR_420_888}, 1}, 1, 1, kBar},
    {"64 streams", kOneRaw, 64, 1, kBar},
    {"8 features on one stream", kOneRaw, 1, 8, kBar},
    {"64 features on one stream", kOneRaw, 1, 64, kNoBar},
    {"1,024 streams", kOneRaw, 1024, 1, 1.15},
};

/// All records that a host has for the requests of one identity, which are submitted again and
/// again.
class alignas(kCacheLine) HostRequest {
  public:
    HostRequest(const Inputs& inputs, uint32_t cameraId, const std::string& featureName,
                camera3_stream* pOutStream);
    HostRequest(const HostRequest&) = delete;
    HostRequest& operator=(const HostRequest&) = delete;

    OemLayer::OfflineDataWraper wrapper = {};
    camera3_stream_buffer output = {};
    PrivData privData = {};
    FloorSession* pFloorSession = nullptr;

  private:
    camera3_stream mStreams[2];
};

/// The host's callbacks: they count completions.
OemLayer::OffCamApplicationCallbacks* HostCallbacks();

/// Opens and loads the library, on an instant device. Throws std::runtime_error where it cannot.
/// Once.
void LoadLibrary(const std::string& path);

/// A camera of the loaded library, as long as this lives.
class Camera {
  public:
    explicit Camera(uint32_t cameraId);
    Camera(uint32_t cameraId, const kit::Adapter& library);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    /// The first request of an identity opens its session.
    void Open(HostRequest& request) { Submit(request); }
    uint32_t Submit(HostRequest& request) {
        return table.SubmitRequestFromRT(&table, &request.wrapper, &request.privData,
                                         &request.output, HostCallbacks());
    }
    void CloseAll() { table.Flush(&table); }

    PlatFormIntCallbacks table;
};

/// Both layers around the loaded library, as long as this lives. They record into a file, which is
/// gone then. Once.
class Recorder {
  public:
    Recorder();
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// How many calls crossed the boundary so far.
    uint64_t CountCalls() const;
};

/// A camera whose calls a `Recorder` records.
struct RecordedCamera : Camera {
    explicit RecordedCamera(uint32_t cameraId);
};

} // namespace bench
