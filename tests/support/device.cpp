#include "tests/support/device.h"

#include "standin/gralloc.h"

#include <android/log.h>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>

namespace test {
namespace {

std::mutex g_mutex;
std::vector<AndroidLine> g_lines;
Texts g_traceCalls;
uint64_t g_traceTags = 0;
std::function<void(const std::string&)> g_onTraceCall;
std::function<void(const std::string&)> g_onAndroidLine;

void AddTraceCall(const std::string& call) {
    g_traceCalls.push_back(call);
    if (g_onTraceCall) {
        g_onTraceCall(call);
    }
}

} // namespace
} // namespace test

// The program's definitions win over the platform's libraries.
extern "C" {
__attribute__((visibility("default"))) int __android_log_write(int priority, const char* tag,
                                                               const char* text) {
    if (test::g_onAndroidLine) {
        test::g_onAndroidLine(text);
    }
    const std::lock_guard lock(test::g_mutex);
    test::g_lines.push_back({priority, tag, text});
    return 1;
}

__attribute__((visibility("default"))) uint64_t atrace_get_enabled_tags();
__attribute__((visibility("default"))) void atrace_begin_body(const char* name);
__attribute__((visibility("default"))) void atrace_end_body();

uint64_t atrace_get_enabled_tags() { return test::g_traceTags; }
void atrace_begin_body(const char* name) { test::AddTraceCall(std::string("begin ") + name); }
void atrace_end_body() { test::AddTraceCall("end"); }
}

namespace test {

std::vector<AndroidLine> AndroidLines() {
    const std::lock_guard lock(g_mutex);
    return g_lines;
}

Texts TraceCalls() { return g_traceCalls; }

void SetEnabledTraceTags(uint64_t tags) { g_traceTags = tags; }

void OnTraceCall(std::function<void(const std::string&)> act) { g_onTraceCall = std::move(act); }

void OnAndroidLine(std::function<void(const std::string&)> act) {
    g_onAndroidLine = std::move(act);
}

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
    : mPath(library.empty() ? TEST_ADAPTER_LIBRARY : std::move(library)) {
    StandinControl()->Reset();
    StandinControl()->SetDeviceRoot(TEST_DEVICE_ROOT);
    const std::lock_guard lock(g_mutex);
    g_lines.clear();
    g_traceCalls.clear();
    g_traceTags = 0;
    g_onTraceCall = nullptr;
    g_onAndroidLine = nullptr;
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

void* Device::Lookup(const char* symbol) {
    if (mLibrary == nullptr) {
        mLibrary = dlopen(mPath.c_str(), RTLD_NOW);
    }
    EXPECT_NE(mLibrary, nullptr) << dlerror();
    void* address = dlsym(mLibrary, symbol);
    EXPECT_NE(address, nullptr) << symbol;
    return address;
}

PlatformLoadFunctions Device::LoadContext() {
    PlatformLoadFunctions functions = {};
    Exported<decltype(&PlatformLoadContext)>("PlatformLoadContext")(&functions);
    return functions;
}

void* Device::Load() {
    mLoaded = true;
    return LoadContext().loadLib();
}

PlatFormIntCallbacks Device::Table(uint32_t cameraId) {
    PlatFormIntCallbacks table = {};
    Exported<decltype(&PlatformIntContext)>("PlatformIntContext")(&table, cameraId);
    return table;
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

camera3_stream MakeStream(int32_t format, uint32_t width, uint32_t height, int32_t type) {
    camera3_stream stream = {};
    stream.stream_type = type;
    stream.width = width;
    stream.height = height;
    stream.format = format;
    stream.usage = 3;
    stream.max_buffers = 4;
    return stream;
}

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
    if (mOutputHandle != nullptr) {
        native_handle_delete(const_cast<native_handle_t*>(mOutputHandle));
    }
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
    mOutputMemory.resize(size_t{output.stream->width} * output.stream->height * 3 / 2);
    mOutputHandle = standin::gralloc::Wrap(mOutputMemory.data(), mOutputMemory.size());
    output.buffer = &mOutputHandle;
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
