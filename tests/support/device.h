/// The scene of a test: a device, a camera on it, requests of a host, and files.
///
/// The built library is driven through its table. CTest runs each test in a process of its own, so
/// that what the library binds once per process is bound anew in each.
#pragma once

#include "kit/android.h"
#include "kit/library.h"
#include "kit/stream.h"
#include "standin/control.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace test {

using kit::MakeStream;
using standin::Delivery;
using standin::Entry;
using standin::Shape;
using Texts = std::vector<std::string>;
using Words = std::vector<uint64_t>;

template <typename Pointer> uint64_t Address(Pointer* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}
/// A handle that nothing stands behind.
inline void* MadeUp(uint64_t word) { return reinterpret_cast<void*>(word); }

/// What a test does in the middle of a call, where it is told how far that is.
using Hook = std::function<void(const std::string& what)>;
inline constexpr auto kNothing = [](const std::string&) {};
/// Acts once, where the hook is next told something with this text in it.
inline void Once(Hook& hook, const std::string& text, const std::function<void()>& act) {
    hook = [=, &hook](const std::string& what) {
        if (what.find(text) != what.npos) {
            const auto once = act; // What follows ends this function's own.
            hook = kNothing;
            once();
        }
    };
}

/// Keeps what reaches the platform's log and trace libraries, which this program stands in front
/// of. A new `Device` empties it. For when nobody logs, but the hooks.
class Android final : public kit::AndroidSink {
  public:
    Android() noexcept { kit::SetAndroidSink(*this); }
    void Line(int priority, const char* tag, const char* text) override {
        onLine(text);
        const std::lock_guard lock(mMutex);
        lines.push_back({priority, tag, text});
    }
    void Begin(const char* name) override { onTraceCall(std::string("begin ") + name); }
    void End() override { onTraceCall("end"); }
    void Clear() {
        lines.clear();
        enabledTraceTags = 0;
        onTraceCall = onLine = kNothing;
    }

    struct LogLine {
        int priority;
        std::string tag, text;
    };
    std::vector<LogLine> lines;
    Hook onTraceCall = kNothing, onLine = kNothing; ///< Told "begin NAME" or "end", and the line.

  private:
    std::mutex mMutex; ///< Guards the lines against each other.
};
inline Android g_android;

/// All records of one function as "E message", or of all functions as "E function: message". The
/// letter is one of E, W, I and V.
Texts LogLines(const std::string& function = "");
/// The same, joined by new lines, and the last one alone, "" where there is none.
std::string Log(const std::string& function = "");
inline std::string LastLog(const std::string& function) {
    const std::string log = Log(function);
    return log.substr(log.rfind('\n') + 1);
}
/// How many records have this letter and a message that starts so.
size_t CountLogged(const std::string& letter, const std::string& start = "");
/// The arguments of a call of this entry, from the one with the index `from` on.
inline Words Args(Entry entry, size_t call = 0, size_t from = 0) {
    const Words args = StandinControl()->Calls(entry).at(call).args;
    return {args.begin() + static_cast<std::ptrdiff_t>(from), args.end()};
}
/// A message as the C library formats it.
__attribute__((format(printf, 1, 2))) std::string Printed(const char* format, ...);

/// The text with a name wherever this address stands in it, in either of the usual forms.
std::string WithName(std::string text, const void* address, const std::string& name);

/// What the exception says that `act` throws, "" where it throws none.
template <class Function> std::string Thrown(Function act) {
    try {
        act();
    } catch (const std::exception& error) {
        return error.what();
    }
    return {};
}

/// A folder for the files of a test, which are gone after it.
class Folder {
  public:
    Folder() { std::filesystem::create_directories(mPath); }
    ~Folder() { std::filesystem::remove_all(mPath); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string operator/(const std::string& name) const { return mPath + "/" + name; }
    /// \returns the path of a file with this text.
    std::string Write(const std::string& name, const std::string& text) const {
        std::ofstream(*this / name) << text;
        return *this / name;
    }

  private:
    const std::string mPath = testing::TempDir() + "oemlayer_test." + std::to_string(getpid());
};

/// The stand-in device, reset, and the library, which is loaded by the first `Load`, after the
/// test's script.
class Device : standin::Observer {
  public:
    /// \param file the built library, by default the one with every log level on.
    explicit Device(std::string file = kit::AdapterFile(true)) : library(std::move(file)) {
        StandinControl()->Reset();
        StandinControl()->SetObserver(this);
        g_android.Clear();
    }
    ~Device() override {
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

    standin::Control* operator->() const { return StandinControl(); }

    /// Runs the library's load function. \returns what that returned.
    void* Load() {
        isLoaded = true;
        return library.Load();
    }
    bool isLoaded = false;
    const kit::Adapter library;
    Hook onEntry =
        kNothing; ///< Told the name of each entry that is called, before that does anything.

    /// Ends `Device` without the checks that nothing is alive and nothing was violated, where a
    /// test is about what stays behind.
    void ExpectLeftovers() { mExpectLeftovers = true; }
    /// Leaves out the check for violations, where buffer handles are made-up words.
    void ExpectViolations() { mExpectViolations = true; }

  private:
    void NameThread(const std::string&) override {}
    void Begin(const char* what) override { onEntry(what); }
    void End() override {}

    bool mExpectLeftovers = false;
    bool mExpectViolations = false;
};

/// A camera that is created with the scene and destroyed with it.
class Camera {
  public:
    explicit Camera(Device& device, uint32_t cameraId = 0)
        : mTable(device.library.Table(cameraId)) {
        if (!device.isLoaded) {
            device.Load();
        }
        mTable.Create(&mTable, cameraId);
    }
    ~Camera() { Destroy(); }
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    PlatFormIntCallbacks* Table() { return &mTable; }
    const PlatFormIntCallbacks* operator->() const { return &mTable; }
    void Flush() { mTable.Flush(&mTable); }
    void Destroy() {
        if (std::exchange(mAlive, false)) {
            EXPECT_EQ(mTable.Destroy(&mTable), 0);
        }
    }

  private:
    PlatFormIntCallbacks mTable;
    bool mAlive = true;
};

/// One call of the host's callbacks, in the order of arrival.
struct Event {
    std::string kind; ///< "result", "release" or "complete".
    uint32_t status = 0;
    camera3_capture_result result = {};
    std::vector<camera3_stream_buffer> buffers = {};
};

/// One request of a host, with all its records. By default one input set of one raw buffer, for the
/// feature Night, to an output stream of its own. Buffer handles, managers and metadata are made-up
/// words until `UseVendorBuffers`, which makes them real; a test that cares sets them.
class Request {
  public:
    Request() {
        privData.owner = this;
        privData.inputStreams = {&raw};
        privData.numInputBuffers = 1;
        privData.partialResultBase = 100;
    }
    /// The thread that delivered the last callback may still be on its way out of it.
    ~Request() { StandinControl()->WaitIdle(); }

    uint32_t Submit(Camera& camera) {
        return camera->SubmitRequestFromRT(camera.Table(), &wrapper, privDataArgument,
                                           outputArgument, callbacksArgument);
    }
    std::vector<Event> Events() const {
        const std::lock_guard lock(mMutex);
        return mEvents;
    }

    /// The streams: `raw` is the only input, `output` the identity's. Replace their fields before
    /// the first submission.
    camera3_stream raw = MakeStream(HAL_PIXEL_FORMAT_RAW10);
    camera3_stream outputStream = MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888);
    OemLayer::OfflineDataWraper wrapper = {.rtFrameNumber = 7,
                                           .numBuffers = 1,
                                           .identity = {&outputStream, 0, "Night"},
                                           .pCamera3CbOps = &frameworkOps};
    camera3_stream_buffer output = {.stream = &outputStream};
    struct PrivData : OemLayer::RequestPrivData {
        Request* owner;
    } privData = {};
    OemLayer::OffCamApplicationCallbacks callbacks = {
        [](auto* data) { Add(data, {"release"}); },
        [](auto* data, auto status) {
            Add(data, {"complete", status});
        },
        [](auto* data, auto* result) {
            const camera3_stream_buffer* buffers = result->output_buffers;
            Add(data, {"result", 0, *result, {buffers, buffers + result->num_output_buffers}});
        }};
    camera3_callback_ops frameworkOps = {};
    /// Arguments of the submission; null to leave one out.
    OemLayer::RequestPrivData* privDataArgument = &privData;
    camera3_stream_buffer* outputArgument = &output;
    OemLayer::OffCamApplicationCallbacks* callbacksArgument = &callbacks;

    /// Takes an input buffer of `raw` and its metadata from the vendor through the table, and an
    /// output buffer in host memory, so that the vendor's checks hold. `GiveBack` gives them back,
    /// and releases the results' metadata.
    void UseVendorBuffers(Camera& camera) {
        void* image = camera->GetImageBuffer(camera.Table(), privData.inputStreams.front());
        mTaken.emplace(image, camera->CreateWithUsage(camera.Table(), nullptr, 0, 0));
        wrapper.pRDIBufferHandles[0] = image;
        wrapper.pChiMetadataHandles[0] = mTaken->second;
        privData.pBufferManager = StandinControl()->ManagerOf(image);
        mOutput.emplace(output.stream->width, output.stream->height);
        output.buffer = mOutput->Reference();
    }
    void GiveBack(Camera& camera);

    Hook onCallback = kNothing; ///< Told "result", "release" or "complete", on the vendor's thread.

  private:
    static void Add(OemLayer::RequestPrivData* data, const Event& event) {
        Request& request = *static_cast<PrivData*>(data)->owner;
        {
            const std::lock_guard lock(request.mMutex);
            request.mEvents.push_back(event);
        }
        request.onCallback(event.kind);
    }

    mutable std::mutex mMutex;
    std::vector<Event> mEvents;
    std::optional<std::pair<void*, void*>> mTaken; ///< Image and metadata.
    std::optional<kit::OutputBuffer> mOutput;
};

} // namespace test
