/// The scene: device, camera, and requests of a host.
#include "tests/support/device.h"

#include "kit/android.h"

#include <chrono>
#include <cstdarg>
#include <cstdio>

namespace test {
namespace {

using Act = std::function<void(const std::string&)>;

/// Keeps what the library tells the log and the trace.
class Android final : public kit::AndroidSink {
  public:
    Android() noexcept { kit::SetAndroidSink(*this); }
    void Line(int priority, const char* tag, const char* text) override {
        if (onLine) {
            onLine(text);
        }
        const std::lock_guard lock(mutex);
        lines.push_back({priority, tag, text});
    }
    void Begin(const char* name) override { AddTraceCall(std::string("begin ") + name); }
    void End() override { AddTraceCall("end"); }

    void Clear() {
        const std::lock_guard lock(mutex);
        lines.clear();
        traceCalls.clear();
        enabledTraceTags = 0;
        onTraceCall = nullptr;
        onLine = nullptr;
    }

    std::mutex mutex; ///< Guards the lines.
    std::vector<AndroidLine> lines;
    Texts traceCalls;
    Act onTraceCall, onLine;

  private:
    void AddTraceCall(const std::string& call) {
        traceCalls.push_back(call);
        if (onTraceCall) {
            onTraceCall(call);
        }
    }
};

Android g_android;

} // namespace

std::vector<AndroidLine> AndroidLines() {
    const std::lock_guard lock(g_android.mutex);
    return g_android.lines;
}

Texts TraceCalls() { return g_android.traceCalls; }

void SetEnabledTraceTags(uint64_t tags) { g_android.enabledTraceTags = tags; }

void OnTraceCall(Act act) { g_android.onTraceCall = std::move(act); }

void OnAndroidLine(Act act) { g_android.onLine = std::move(act); }

size_t CountLogged(const std::string& letter, const std::string& start) {
    size_t count = 0;
    for (const standin::LogRecord& record : StandinControl()->Logs()) {
        count += record.letter == letter && record.message.starts_with(start) ? 1 : 0;
    }
    return count;
}

Texts LogLines(const std::string& function) {
    Texts lines;
    for (const standin::LogRecord& record : StandinControl()->Logs()) {
        const std::string name = function.empty() ? record.function + ": " : "";
        if (function.empty() || record.function == function) {
            lines.push_back(record.letter + " " + name + record.message);
        }
    }
    return lines;
}

std::string Log(const std::string& function) {
    std::string log;
    for (const std::string& line : LogLines(function)) {
        log += (log.empty() ? "" : "\n") + line;
    }
    return log;
}

std::string LastLog(const std::string& function) {
    const std::string log = Log(function);
    return log.substr(log.rfind('\n') + 1);
}

std::string Printed(const char* format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

// --- The device

Device::Device(std::string library)
    : mPath(library.empty() ? kit::AdapterFile(true) : std::move(library)) {
    StandinControl()->Reset();
    g_android.Clear();
}

Device::~Device() {
    if (mExpectViolations) {
        StandinControl()->ClearRecords();
    }
    if (!mExpectLeftovers) {
        StandinControl()->CheckAllReturned();
        EXPECT_EQ(StandinControl()->Violations(), Texts());
    }
    StandinControl()->Reset();
}

const kit::Adapter& Device::Library() {
    if (!mLibrary.has_value()) {
        mLibrary.emplace(mPath);
    }
    return *mLibrary;
}

void* Device::Load() {
    mLoaded = true;
    return Library().Load();
}

Camera::Camera(Device& device, uint32_t cameraId) : mTable(device.Table(cameraId)) {
    device.EnsureLoaded();
    mTable.Create(&mTable, cameraId);
}

void Camera::Destroy() {
    if (mAlive) {
        mAlive = false;
        EXPECT_EQ(mTable.Destroy(&mTable), 0);
    }
}

// --- A request of the host

Request::Request()
    : raw(MakeStream(HAL_PIXEL_FORMAT_RAW10)),
      outputStream(MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888)) {
    wrapper.rtFrameNumber = 7;
    wrapper.numBuffers = 1;
    wrapper.identity.pOutStream = &outputStream;
    wrapper.identity.featureName = "Night";
    wrapper.pCamera3CbOps = &frameworkOps;
    output.stream = &outputStream;
    privData.owner = this;
    privData.inputStreams = {&raw};
    privData.numInputBuffers = 1;
    privData.partialResultBase = 100;
    callbacks.releaseRtBuffers = [](OemLayer::RequestPrivData* data) {
        Add(data, {.kind = Event::Release});
        if (data != nullptr && static_cast<PrivData*>(data)->owner->onRelease) {
            static_cast<PrivData*>(data)->owner->onRelease();
        }
    };
    callbacks.requestComplete = [](OemLayer::RequestPrivData* data, uint32_t status) {
        Add(data, {.kind = Event::Complete, .status = status});
    };
    callbacks.captureResult = [](OemLayer::RequestPrivData* data, camera3_capture_result* result) {
        Event event{.kind = Event::Result, .result = *result};
        event.buffers.assign(result->output_buffers,
                             result->output_buffers + result->num_output_buffers);
        Add(data, std::move(event));
    };
}

Request::~Request() {
    // The thread that delivered the last callback may still be on its way out of it.
    StandinControl()->WaitIdle();
}

void Request::Add(OemLayer::RequestPrivData* data, Event event) {
    if (data == nullptr) {
        return;
    }
    Request* request = static_cast<PrivData*>(data)->owner;
    const std::lock_guard lock(request->mMutex);
    request->mEvents.push_back(std::move(event));
    request->mChanged.notify_all();
}

void Request::ShareStreams(const Request& other) {
    mRaw = other.mRaw;
    privData.inputStreams = {mRaw};
    wrapper.identity.pOutStream = other.wrapper.identity.pOutStream;
    output.stream = other.wrapper.identity.pOutStream;
}

uint32_t Request::Submit(Camera& camera) {
    return camera->SubmitRequestFromRT(camera.Table(), &wrapper, privDataArgument, outputArgument,
                                       callbacksArgument);
}

bool Request::WaitComplete() {
    std::unique_lock lock(mMutex);
    return mChanged.wait_for(lock, std::chrono::seconds(10), [this] {
        return !mEvents.empty() && mEvents.back().kind == Event::Complete;
    });
}

std::vector<Event> Request::Events() const {
    const std::lock_guard lock(mMutex);
    return mEvents;
}

void* Request::TakeBuffer(Camera& camera, camera3_stream& stream) {
    return mImageBuffers.emplace_back(camera->GetImageBuffer(camera.Table(), &stream));
}

void* Request::TakeMetadata(Camera& camera) {
    return mMetadata.emplace_back(camera->CreateWithUsage(camera.Table(), nullptr, 0, 0));
}

void Request::UseVendorBuffers(Camera& camera, uint32_t sets) {
    wrapper.numBuffers = sets;
    for (uint32_t i = 0; i < sets; ++i) {
        wrapper.pRDIBufferHandles[i] = TakeBuffer(camera, *mRaw);
        wrapper.pChiMetadataHandles[i] = TakeMetadata(camera);
    }
    if (!mImageBuffers.empty()) {
        privData.pBufferManager = StandinControl()->ManagerOf(mImageBuffers.front());
    }
    mOutput.emplace(output.stream->width, output.stream->height);
    output.buffer = mOutput->Reference();
}

void Request::GiveBack(Camera& camera) {
    for (void* buffer : mImageBuffers) {
        camera->ReleaseImageBuffer(camera.Table(), buffer);
    }
    for (void* metadata : mMetadata) {
        camera->MetadataDestroy(camera.Table(), metadata);
    }
    for (const Event& event : Events()) {
        if (event.result.result != nullptr) {
            auto* metadata = const_cast<camera_metadata*>(event.result.result);
            camera->ReleaseAndroidMetadata(camera.Table(), metadata);
        }
    }
    mImageBuffers.clear();
    mMetadata.clear();
}

} // namespace test
