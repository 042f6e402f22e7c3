#include "host/host_camera.h"

#include "standin/pixels.h"

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <new>

namespace host {
namespace {

using OemLayer::OfflineDataWraper;
using OemLayer::RequestPrivData;

constexpr uint32_t kFirstFrame = 101; // Far from the vendor's own frame numbers.
constexpr uint32_t kPartialBase = 2;  // The real-time results' own partial numbers end here.
constexpr uint64_t kSeed = 1;
constexpr int kOverwritten = 0xEE;
constexpr uint64_t kSessionParameters = 0; // Opaque to all but the framework.

camera3_stream MakeStream(int32_t format, const Plan& plan) {
    camera3_stream stream{};
    stream.stream_type = CAMERA3_STREAM_OUTPUT;
    stream.width = plan.width;
    stream.height = plan.height;
    stream.format = format;
    stream.max_buffers = OemLayer::kMaxInputSets;
    return stream;
}

Request& RequestOf(RequestPrivData* record) { return *static_cast<Request*>(record); }

} // namespace

// --- Library ------------------------------------------------------------------------------------

std::string Library::Open(const std::string& file) {
    void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        return dlerror();
    }
    mLoadContext = reinterpret_cast<decltype(mLoadContext)>(dlsym(library, "PlatformLoadContext"));
    mIntContext = reinterpret_cast<decltype(mIntContext)>(dlsym(library, "PlatformIntContext"));
    if (mLoadContext == nullptr || mIntContext == nullptr) {
        return file + " lacks PlatformLoadContext or PlatformIntContext";
    }
    return {};
}

void Library::Load() const {
    PlatformLoadFunctions functions{};
    mLoadContext(&functions);
    functions.loadLib();
}

PlatFormIntCallbacks Library::Table(uint32_t cameraId) const {
    PlatFormIntCallbacks table{};
    mIntContext(&table, cameraId);
    return table;
}

// --- Camera: from buffers to submission ---------------------------------------------------------

// cppcheck-suppress uninitDerivedMemberVar ; the braces make all of it zero
Camera::Camera(const Library& library, uint32_t id, const Plan& plan)
    : camera3_callback_ops{}, mTable(library.Table(id)), mPlan(plan),
      mScene(plan.width, plan.height), mRawStream(MakeStream(HAL_PIXEL_FORMAT_RAW10, plan)),
      mOutputStream(MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888, plan)) {
    request_stream_buffers = Lend;
    mCallbacks.releaseRtBuffers = [](RequestPrivData* record) {
        RequestOf(record).camera.OnRelease(RequestOf(record));
    };
    mCallbacks.requestComplete = [](RequestPrivData* record, uint32_t status) {
        RequestOf(record).camera.OnCompletion(RequestOf(record), status);
    };
    mCallbacks.captureResult = [](RequestPrivData* record, camera3_capture_result* result) {
        RequestOf(record).camera.OnResult(RequestOf(record), *result);
    };
    mTable.Create(&mTable, id);
}

Request& Camera::Submit(const Step& step) {
    const auto number = static_cast<uint32_t>(mRequests.size());
    Request& request = *mRequests.emplace_back(std::make_unique<Request>(*this, step, mScene));
    request.expectedFrame = kFirstFrame + number;
    request.expectedReports = mPlan.shape == standin::Shape::SecondBlock ? 2 : 1;
    request.inputStreams = {&mRawStream};
    request.numInputBuffers = step.frames;
    request.partialResultBase = kPartialBase;
    TakeRawBuffers(request);
    if (request.problem.empty()) {
        MakeMetadata(request);
        Send(request);
    }
    if (!request.IsAccepted()) {
        ReleaseRawBuffers(request);
        DestroyMetadata(request);
    }
    return request;
}

/// Takes a raw buffer for each frame of the burst and writes the frame, as the sensor would.
void Camera::TakeRawBuffers(Request& request) {
    for (uint32_t i = 0; i < request.step.frames; ++i) {
        request.frames.push_back({{request.expectedFrame, i, request.step.frames, kSeed},
                                  ChiStreamFormatRaw10,
                                  standin::CfaPatternOf(mTable.cameraId)});
        void* const buffer = mTable.GetImageBuffer(&mTable, &mRawStream);
        if (buffer == nullptr) {
            request.problem = "not submitted: the vendor gives no raw buffers";
            return;
        }
        request.rawBuffers.push_back(buffer);
        request.pBufferManager = StandinControl()->ManagerOf(buffer);
        if (auto* const memory = static_cast<uint8_t*>(mTable.GetCPUAddress(&mTable, buffer))) {
            Expose(mScene, request.frames[i], true,
                   {memory, standin::ImageSize(ChiStreamFormatRaw10, mPlan.width, mPlan.height)});
        }
    }
}

void Camera::MakeMetadata(Request& request) {
    constexpr uint32_t kTags[] = {1, 2};
    for (uint32_t i = 0; i < request.step.frames; ++i) {
        request.metadata.push_back(mTable.CreateWithUsage(&mTable, kTags, std::size(kTags), 0));
    }
}

void Camera::FillWrapper(OfflineDataWraper& wrapper, const Request& request) {
    wrapper.rtFrameNumber = request.expectedFrame;
    wrapper.numBuffers = mPlan.announcedSets == 0 ? request.step.frames : mPlan.announcedSets;
    wrapper.identity = {&mOutputStream, mTable.cameraId, request.step.feature};
    wrapper.pCamera3CbOps = this;
    wrapper.m_pRealtimeSessionParameters =
        reinterpret_cast<const camera_metadata*>(&kSessionParameters);
    std::copy(request.metadata.begin(), request.metadata.end(), wrapper.pChiMetadataHandles);
    std::copy(request.rawBuffers.begin(), request.rawBuffers.end(), wrapper.pRDIBufferHandles);
}

/// Both records are overwritten as soon as the library has returned: they are the host's again.
void Camera::Send(Request& request) {
    // cppcheck-suppress legacyUninitvar ; it takes the braces for those of a body
    auto* const wrapper = new (mWrapper) OfflineDataWraper{};
    FillWrapper(*wrapper, request);
    mOutput = StreamBuffer(mPlan.lends ? nullptr : request.output.Reference());
    request.submitted = std::chrono::steady_clock::now();
    request.status = mTable.SubmitRequestFromRT(
        &mTable, wrapper, &request, mPlan.sendsOutput ? &mOutput : nullptr, &mCallbacks);
    request.returned = request.Elapsed();
    wrapper->~OfflineDataWraper();
    std::memset(mWrapper, kOverwritten, sizeof mWrapper);
    std::memset(&mOutput, kOverwritten, sizeof mOutput);
    if (const auto executions = StandinControl()->Executions(); request.status == 0) {
        request.session = executions.back().session;
        request.offlineFrame = executions.back().offlineFrame;
    }
}

camera3_stream_buffer Camera::StreamBuffer(buffer_handle_t* handle) {
    return {.stream = &mOutputStream, .buffer = handle, .acquire_fence = -1, .release_fence = -1};
}

void Camera::Close() {
    mTable.Flush(&mTable);
    for (const auto& request : mRequests) { // Has something only if it was not completed.
        ReleaseRawBuffers(*request);
        DestroyMetadata(*request);
    }
    mTable.TearDownResource(&mTable);
    mTable.Destroy(&mTable);
}

// --- Camera: what comes back, on the vendor's threads -------------------------------------------

void Camera::OnResult(Request& request, const camera3_capture_result& result) {
    const double now = request.Elapsed();
    if (result.result != nullptr) {
        request.Record({Event::Metadata, now, result.frame_number, result.partial_result});
        mTable.ReleaseAndroidMetadata(&mTable, const_cast<camera_metadata*>(result.result));
    }
    for (uint32_t i = 0; i < result.num_output_buffers; ++i) {
        const camera3_stream_buffer& buffer = result.output_buffers[i];
        const bool isOurs =
            buffer.stream == &mOutputStream && buffer.buffer == request.output.Reference();
        request.Record({Event::Buffer, now, result.frame_number,
                        static_cast<uint32_t>(buffer.status), isOurs});
    }
}

/// Lends the output buffer of the request that is under way, one for each stream that asks.
int32_t Camera::Lend(const camera3_callback_ops* ops, uint32_t count,
                     const camera3_buffer_request* /*requests*/, uint32_t* returned,
                     camera3_stream_buffer_ret* answers) {
    auto& camera = *const_cast<Camera*>(static_cast<const Camera*>(ops));
    for (uint32_t i = 0; i < count; ++i) {
        answers[i].status = 0;
        answers[i].num_output_buffers = 1;
        *answers[i].output_buffers =
            camera.StreamBuffer(camera.mRequests.back()->output.Reference());
        ++camera.mLent;
    }
    *returned = count;
    return 0;
}

void Camera::OnRelease(Request& request) {
    request.Record({Event::Release, request.Elapsed()});
    ReleaseRawBuffers(request);
}

void Camera::OnCompletion(Request& request, uint32_t status) {
    DestroyMetadata(request);
    request.Record({Event::Completion, request.Elapsed(), 0, status});
}

void Camera::ReleaseRawBuffers(Request& request) {
    for (void* buffer : request.rawBuffers) {
        mTable.ReleaseImageBuffer(&mTable, buffer);
    }
    request.rawBuffers.clear();
}

void Camera::DestroyMetadata(Request& request) {
    for (void* metadata : request.metadata) {
        if (metadata != nullptr) {
            mTable.MetadataDestroy(&mTable, metadata);
        }
    }
    request.metadata.clear();
}

} // namespace host
