#include "bench/device.h"

#include "kit/library.h"
#include "standin/control.h"

#include <bit>
#include <optional>

namespace bench {
namespace {

/// Whatever a call of the vendor returns that nobody looks into.
void* Something() {
    static uint64_t something;
    return &something;
}

// --- The vendor's entries

std::deque<VendorSession> g_sessions;

uint64_t OpenSession(ChiOfflineInterface* /*interface*/, ChiOfflineSessionCreateInfo* info) {
    g_sessions.push_back({info->pCallbacks, 0, false});
    return std::bit_cast<uint64_t>(&g_sessions.back());
}

int32_t CloseSession(uint64_t /*handle*/) { return 0; }

int32_t ConfigureStreams(uint64_t /*handle*/, ChiOfflineSessionConfigInfo* /*config*/) { return 0; }

int32_t ExecuteRequest(uint64_t handle, ChiOfflineExecuteRequest* request) {
    auto* session = std::bit_cast<VendorSession*>(handle);
    *request->pOfflineFrameNumber = ++session->frame;
    if (session->holds) {
        HeldRequests().push_back({session, request->pOutput->pBuffers, request->pPrivateData});
    } else {
        Deliver(*session, request->pOutput->pBuffers, request->pPrivateData);
    }
    return 0;
}

uint32_t TranslateToChi(const camera3_stream_buffer* /*source*/, ChiStreamBuffer* /*target*/) {
    return 0;
}

uint32_t TranslateFromChi(const ChiStreamBuffer* /*source*/, camera3_stream_buffer* /*target*/) {
    return 0;
}

ChiOfflineMetadataOps* OpenMetadataOps(ChiOfflineInterface* /*interface*/,
                                       ChiMetadataOpsOpenInfo* /*info*/) {
    return MetadataOps();
}

ChiOfflineBufferManagerOps* OpenBufferOps(ChiOfflineInterface* /*interface*/) {
    return BufferOps();
}

// --- The host's callbacks

void Complete(OemLayer::RequestPrivData* privData, uint32_t /*status*/) {
    ++static_cast<PrivData*>(privData)->completed;
}

std::optional<kit::Adapter> g_library;

} // namespace

void Deliver(const VendorSession& session, ChiStreamBuffer* pOutput, void* pPrivateData) {
    ChiOfflineResultBlock block = {1, pOutput, 0, Something()};
    ChiOfflineCaptureResultInfo result = {static_cast<uint32_t>(session.frame), &block, nullptr,
                                          pPrivateData};
    session.pCallbacks->ProcessCaptureResultCb(session.pCallbacks, 1, &result);
}

VendorSession* LastSession() { return &g_sessions.back(); }

std::vector<Held>& HeldRequests() {
    static std::vector<Held> held;
    return held;
}

ChiOfflineInterface* Interface() {
    static auto* const interface = [] {
        auto* const record = kit::OpenOfflineInterface();
        record->pOpenSession = OpenSession;
        record->pCloseSession = CloseSession;
        record->pConfigureStreams = ConfigureStreams;
        record->pExecuteRequest = ExecuteRequest;
        record->pOpenMetadataOps = OpenMetadataOps;
        record->pOpenBufferOps = OpenBufferOps;
        record->pTranslateToChiBuffer = TranslateToChi;
        record->pTranslateFromChiBuffer = TranslateFromChi;
        return record;
    }();
    return interface;
}

ChiOfflineMetadataOps* MetadataOps() {
    static ChiOfflineMetadataOps ops = {
        .pClose = [](auto...) {},
        .pCreate = [](auto...) { return Something(); },
        .pCreateWithUsage = [](auto...) { return Something(); },
        .pDestroy = [](auto...) { return 0U; },
        .pCreateFromAndroid = [](auto...) { return Something(); },
        .pCreateAndroid = [](auto...) { return Something(); },
        .pReleaseAndroid = [](auto...) { return 0U; },
        .pGetTag = [](auto...) { return 0U; },
        .pSetTag = [](auto...) { return 0U; },
        .pDeleteTag = [](auto...) { return 0U; },
        .pCopy = [](auto...) { return 0U; },
    };
    return &ops;
}

ChiOfflineBufferManagerOps* BufferOps() {
    static ChiOfflineBufferManagerOps ops = {
        .pClose = [](auto...) {},
        .pCreate = [](auto...) { return Something(); },
        .pDestroy = [](auto...) {},
        .pGetImageBuffer = [](auto...) { return Something(); },
        .pReleaseImageBuffer = [](auto...) {},
        .pGetCPUAddress = [](auto...) { return Something(); },
    };
    return &ops;
}

HostRequest::HostRequest(const Inputs& inputs, uint32_t cameraId, const std::string& featureName,
                         camera3_stream* pOutStream) {
    for (const int32_t format : inputs.formats) {
        if (format != 0) {
            mStreams.push_back(MakeStream(format));
            privData.inputStreams.push_back(&mStreams.back());
        }
    }
    privData.pBufferManager = Something();
    privData.pYuvBufferManager = Something();
    output.stream = pOutStream;
    wrapper.numBuffers = inputs.sets;
    wrapper.identity.pOutStream = pOutStream;
    wrapper.identity.cameraId = cameraId;
    wrapper.identity.featureName = featureName;
    wrapper.yuvInput = 1;
    for (uint32_t i = 0; i < inputs.sets; ++i) {
        wrapper.pChiMetadataHandles[i] = Something();
        wrapper.pRDIBufferHandles[i] = Something();
        wrapper.yuvBufferHandles[i] = Something();
    }
}

OemLayer::OffCamApplicationCallbacks* HostCallbacks() {
    static OemLayer::OffCamApplicationCallbacks callbacks = {
        .releaseRtBuffers = [](auto...) {},
        .requestComplete = Complete,
        .captureResult = [](auto...) {},
    };
    return &callbacks;
}

void LoadLibrary(const std::string& path) {
    StandinControl()->SetRecording(false);
    g_library.emplace(path);
    g_library->Load();
    Interface();
}

Camera::Camera(uint32_t cameraId) : table(g_library->Table(cameraId)) {
    table.Create(&table, cameraId);
}

Camera::~Camera() {
    table.TearDownResource(&table);
    table.Destroy(&table);
}

} // namespace bench
