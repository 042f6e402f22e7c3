/// The scene: device, camera, and requests of a host.
#include "tests/support/device.h"

#include <cstdarg>
#include <cstdio>

namespace test {

size_t CountLogged(const std::string& letter, const std::string& start) {
    auto logs = StandinControl()->Logs();
    return std::erase_if(logs, [&](const standin::LogRecord& record) {
        return record.letter == letter && record.message.starts_with(start);
    });
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

std::string Printed(const char* format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string WithName(std::string text, const void* address, const std::string& name) {
    for (const std::string& form : {Printed("%p", address), std::to_string(Address(address))}) {
        for (size_t at = 0; address != nullptr && (at = text.find(form)) != text.npos;) {
            text.replace(at, form.size(), name);
        }
    }
    return text;
}

Device::Device(std::string file) : library(std::move(file)) {
    StandinControl()->Reset();
    StandinControl()->SetObserver(this);
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
    StandinControl()->SetObserver(nullptr);
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
    callbacks.releaseRtBuffers = [](OemLayer::RequestPrivData* data) { Add(data, {"release"}); };
    callbacks.requestComplete = [](OemLayer::RequestPrivData* data, uint32_t status) {
        Add(data, {"complete", status});
    };
    callbacks.captureResult = [](OemLayer::RequestPrivData* data, camera3_capture_result* result) {
        const camera3_stream_buffer* buffers = result->output_buffers;
        Add(data, {"result", 0, *result, {buffers, buffers + result->num_output_buffers}});
    };
}

void Request::Add(OemLayer::RequestPrivData* data, const Event& event) {
    Request& request = *static_cast<PrivData*>(data)->owner;
    {
        const std::lock_guard lock(request.mMutex);
        request.mEvents.push_back(event);
    }
    request.onCallback(event.kind);
}

void Request::UseVendorBuffers(Camera& camera) {
    void* image = camera->GetImageBuffer(camera.Table(), privData.inputStreams.front());
    mTaken.emplace(image, camera->CreateWithUsage(camera.Table(), nullptr, 0, 0));
    wrapper.pRDIBufferHandles[0] = image;
    wrapper.pChiMetadataHandles[0] = mTaken->second;
    privData.pBufferManager = StandinControl()->ManagerOf(image);
    mOutput.emplace(output.stream->width, output.stream->height);
    output.buffer = mOutput->Reference();
}

void Request::GiveBack(Camera& camera) {
    if (const auto taken = std::exchange(mTaken, std::nullopt)) {
        camera->ReleaseImageBuffer(camera.Table(), taken->first);
        camera->MetadataDestroy(camera.Table(), taken->second);
    }
    for (const Event& event : Events()) {
        if (event.result.result != nullptr) {
            auto* metadata = const_cast<camera_metadata*>(event.result.result);
            camera->ReleaseAndroidMetadata(camera.Table(), metadata);
        }
    }
}

} // namespace test
