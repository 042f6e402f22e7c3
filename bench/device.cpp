/// The host of the measurements: its records, its callbacks and its cameras.
#include "bench/device.h"

#include "contract/recording.h"
#include "kit/layers.h"
#include "standin/control.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <optional>
#include <unistd.h>

namespace bench {
namespace {

uint64_t g_something; ///< What a host's handles point at. Nobody looks into it.

std::optional<kit::Adapter> g_library;
std::string g_libraryFile;

/// What a `Recorder` has.
std::optional<kit::Layers> g_layers;
std::optional<kit::Adapter> g_recordedLibrary;
const std::string g_recording = // NOLINT(cert-err58-cpp): without memory the program may end
    std::filesystem::temp_directory_path() / ("oemlayer_bench." + std::to_string(getpid()));

} // namespace

const Vendor& TheVendor() {
    static ChiOfflineInterface* const interface = kit::OpenOfflineInterface();
    static ChiMetadataOpsOpenInfo info = {0, 1, 0, 1};
    static const Vendor vendor = {interface, interface->pOpenMetadataOps(interface, &info),
                                  interface->pOpenBufferOps(interface)};
    return vendor;
}

HostRequest::HostRequest(const Inputs& inputs, uint32_t cameraId, const std::string& featureName,
                         camera3_stream* pOutStream) {
    for (size_t i = 0; i < std::size(mStreams) && inputs.formats[i] != 0; ++i) {
        mStreams[i] = MakeStream(inputs.formats[i]);
        privData.inputStreams.push_back(&mStreams[i]);
    }
    privData.pBufferManager = &g_something;
    privData.pYuvBufferManager = &g_something;
    output.stream = pOutStream;
    wrapper.numBuffers = inputs.sets;
    wrapper.identity = {pOutStream, cameraId, featureName};
    wrapper.yuvInput = 1;
    std::fill_n(wrapper.pChiMetadataHandles, inputs.sets, &g_something);
    std::fill_n(wrapper.pRDIBufferHandles, inputs.sets, &g_something);
    std::fill_n(wrapper.yuvBufferHandles, inputs.sets, &g_something);
}

OemLayer::OffCamApplicationCallbacks* HostCallbacks() {
    static OemLayer::OffCamApplicationCallbacks callbacks = {
        .releaseRtBuffers = [](auto...) {},
        .requestComplete = [](auto* record, auto) { ++static_cast<PrivData*>(record)->completed; },
        .captureResult = [](auto...) {},
    };
    return &callbacks;
}

void LoadLibrary(const std::string& path) {
    StandinControl()->SetRecording(false);
    StandinControl()->SetFeed(false);
    StandinControl()->SetInstant(true);
    g_libraryFile = path;
    g_library.emplace(path);
    g_library->Load();
}

Camera::Camera(uint32_t cameraId) : Camera(cameraId, *g_library) {}

Camera::Camera(uint32_t cameraId, const kit::Adapter& library) : table(library.Table(cameraId)) {
    table.Create(&table, cameraId);
}

Camera::~Camera() {
    table.TearDownResource(&table);
    table.Destroy(&table);
}

Recorder::Recorder() {
    g_layers.emplace(g_libraryFile, kit::LayerSettings{.record = g_recording});
    g_recordedLibrary.emplace(g_layers->AdapterFile());
    g_recordedLibrary->Load();
}

/// Whoever comes next has the vendor's own library again.
Recorder::~Recorder() {
    g_layers.reset();
    g_library->Load();
    std::error_code ignored;
    std::filesystem::remove(g_recording, ignored);
}

uint64_t Recorder::CountCalls() const {
    return contract::Recording::Read(g_recording).Events().back().Number() / 2;
}

RecordedCamera::RecordedCamera(uint32_t cameraId) : Camera(cameraId, *g_recordedLibrary) {}

} // namespace bench
