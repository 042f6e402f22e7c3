/// The rules of the contract: each is seen failing, alone, and none fails where all is right.

#include "host/watch.h"
#include "platform/maker/zlog.h"
#include "standin/gralloc.h"
#include "standin/tags.h"
#include "tests/support/device.h"

#include <dlfcn.h>
#include <set>
#include <span>

namespace {

using namespace test;
using host::RequestWatch;
using standin::Rule;

constexpr uint32_t kWidth = 64;
constexpr uint32_t kHeight = 32;

/// A handle or an address as violations show them.
std::string Named(const void* handle) {
    const auto kind = static_cast<char>(Address(handle) >> 56);
    return Printed("%p", handle) + (kind == 0 ? "" : std::string(" of kind '") + kind + '\'');
}
std::string Named(uint64_t session) { return Named(MadeUp(session)); }

std::string Line(Rule rule, const std::string& values) {
    const standin::RuleText& text = standin::TextOf(rule);
    return std::string(text.number) + " " + text.name + ": " + values;
}

// --- The vendor's side

/// Uses the vendor as the library does, without the library: a session with one raw input, and all
/// that a request to it needs. A null handle, or a session of 0, is not given back.
struct Client {
    Device device;
    ChiOfflineInterface* pInterface = Open();
    ChiMetadataOpsOpenInfo metadataInfo = {0, 1, 0, 1};
    ChiOfflineMetadataOps* pMetadataOps = pInterface->pOpenMetadataOps(pInterface, &metadataInfo);
    ChiOfflineBufferManagerOps* pBufferOps = pInterface->pOpenBufferOps(pInterface);

    ChiStream raw = MakeChiStream(ChiStreamTypeInput, ChiStreamFormatRaw10);
    ChiStream yuv = MakeChiStream(ChiStreamTypeOutput, ChiStreamFormatYCbCr420_888);
    ChiStream* streams[2] = {&raw, &yuv};
    ChiBufferManagerCreateData managerData = {.width = kWidth,
                                              .height = kHeight,
                                              .format = ChiStreamFormatRaw10,
                                              .reserved16 = 0x40002,
                                              .reserved24 = 0x20022,
                                              .reserved40 = 32,
                                              .reserved48 = 1,
                                              .reserved52 = 5,
                                              .pStream = &raw};
    ChiMetadataHandle metadata = pMetadataOps->pCreate(pMetadataOps, nullptr, 0);
    void* android = pMetadataOps->pCreateAndroid(pMetadataOps, metadata, 1, 0, 0, nullptr);
    ChiBufferManagerHandle manager = pBufferOps->pCreate(pBufferOps, "raw", &managerData);
    ChiImageBufferHandle image = pBufferOps->pGetImageBuffer(manager);

    std::function<void()> onResult;
    ChiOfflineSessionCallbacks callbacks = {.ProcessCaptureResultCb = OnResult,
                                            .ProcessNotifyCb = OnNotify,
                                            .GetFrameworkBuffers = OnQuery,
                                            .pPrivateCallbackData = this};
    ChiOfflineSessionCreateInfo createInfo = {"Night", 0, &callbacks};
    ChiOfflineSessionConfigInfo config = {
        .pCameraText = "0", .numStreams = 2, .ppChiStreams = streams, .pSessionSettings = metadata};
    uint64_t session = pInterface->pOpenSession(pInterface, &createInfo);

    ChiInputFormat format = {.bufferFormat = ChiFormatRaw10};
    ChiStreamBuffer input = {.size = sizeof input,
                             .pStream = &raw,
                             .bufferType = kChiInputBufferType,
                             .bufferHandle = image,
                             .pBufferManager = manager,
                             .pInputFormat = &format};
    ChiStreamBuffer output = {.size = sizeof output, .pStream = &yuv};
    ChiOfflineBufferSet inputSet = {.numBuffers = 1, .pBuffers = &input, .pMetadata = metadata};
    ChiOfflineBufferSet outputSet = {.numBuffers = 1, .pBuffers = &output};
    int32_t frame = -1;
    uint32_t lastFrame = 0;
    ChiOfflineExecuteRequest request = {.numInputs = 1,
                                        .pInputs = &inputSet,
                                        .pOutput = &outputSet,
                                        .pOfflineFrameNumber = &frame,
                                        .pLastFrameField = &lastFrame};

    Client() {
        device.ExpectLeftovers();
        device->SetDelivery(Delivery::OnCallerThread);
        Configure();
        format.cfaPattern = raw.cfaPattern;
    }

    static ChiOfflineInterface* Open(uint32_t version = 512) {
        void* library = dlopen("/vendor/lib64/hw/com.qti.chi.offline.so", RTLD_NOW);
        using Function = void*(void*, uint32_t);
        auto* open = reinterpret_cast<Function*>(dlsym(library, "ChiOfflineOpenContext"));
        return static_cast<ChiOfflineInterface*>(open(nullptr, version));
    }
    static ChiStream MakeChiStream(uint32_t type, uint32_t format) {
        return {.streamType = type,
                .width = kWidth,
                .height = kHeight,
                .format = format,
                .reserved152 = -1};
    }

    void Configure() { pInterface->pConfigureStreams(session, &config); }
    void Execute() { pInterface->pExecuteRequest(session, &request); }
    /// As the host marks the metadata of a set.
    void Mark(const standin::SetMark& mark) const {
        pMetadataOps->pSetTag(metadata, standin::kSetMarkTag, &mark, sizeof mark, 0);
    }
    void CloseSession() { pInterface->pCloseSession(session); }

    /// Closes and destroys all, and says so to the vendor.
    void End() {
        if (session != 0) {
            CloseSession();
        }
        if (android != nullptr) {
            pMetadataOps->pReleaseAndroid(pMetadataOps, android);
        }
        if (metadata != nullptr) {
            pMetadataOps->pDestroy(metadata);
        }
        if (image != nullptr) {
            pBufferOps->pReleaseImageBuffer(image);
        }
        if (manager != nullptr) {
            pBufferOps->pDestroy(manager);
        }
        if (pMetadataOps != nullptr) {
            pMetadataOps->pClose(pMetadataOps);
        }
        pBufferOps->pClose(pBufferOps);
        device->CheckAllReturned();
    }

  private:
    static void OnResult(const ChiOfflineSessionCallbacks* callbacks, unsigned int /*count*/,
                         ChiOfflineCaptureResultInfo* /*result*/) {
        const auto& client = *static_cast<const Client*>(callbacks->pPrivateCallbackData);
        if (client.onResult) {
            client.onResult();
        }
    }
    static void OnNotify(const ChiOfflineSessionCallbacks*, unsigned int, ChiOfflineMessageInfo*) {}
    static uint32_t OnQuery(const ChiOfflineSessionCallbacks*, unsigned int,
                            const ChiOfflineQueryBuffer*, unsigned int*,
                            ChiOfflineQueryStreamBuffer*) {
        return 1;
    }
};

/// A rule, and what to change in a client whose next call then breaks it.
struct Change {
    Rule rule;
    void (*change)(Client& client);
    const char* values;
};

constexpr Change kConfigureChanges[]{
    {Rule::Configuration, [](Client& client) { client.streams[1] = nullptr; }, "stream 1 is null"},
    {Rule::Configuration, [](Client& client) { client.config.pCameraText = "front"; },
     "the camera's text is 'front' and must be a number"},
    {Rule::StreamTypes, [](Client& client) { client.yuv.streamType = ChiStreamTypeInput; },
     "a stream's type is 1 and must be 0"},
    {Rule::StreamWords, [](Client& client) { client.raw.reserved152 = 0; },
     "a stream's word at 152 is 0 and must be -1"},
};

constexpr Change kExecuteChanges[]{
    {Rule::RequestRecord, [](Client& client) { client.request.pLastFrameField = nullptr; },
     "the request or one of its frame fields is null"},
    {Rule::RequestRecord, [](Client& client) { client.request.pInputs = nullptr; },
     "the number of input sets is 0 and must be 1"},
    {Rule::RequestRecord, [](Client& client) { client.inputSet.pBuffers = nullptr; },
     "the number of inputs is 0 and must be 1"},
    {Rule::FramePreset, [](Client& client) { client.frame = 5; },
     "the preset of the offline frame is 5 and must be -1"},
    {Rule::InputRecord, [](Client& client) { client.input.size = 200; },
     "an input's size is 200 and must be 208"},
    {Rule::InputRecord, [](Client& client) { client.input.bufferType = 1; },
     "an input's type is 1 and must be 2"},
    {Rule::InputRecord, [](Client& client) { client.input.bufferStatus = 1; },
     "an input's status is 1 and must be 0"},
    {Rule::InputStream, [](Client& client) { client.raw.streamType = ChiStreamTypeOutput; },
     "an input stream's type is 0 and must be 1"},
    {Rule::SetMetadata, [](Client& client) { client.inputSet.pMetadata = nullptr; },
     "set 0 has no metadata"},
    {Rule::SetMetadata, [](Client& client) { client.Mark({.cameraId = 0, .index = 1}); },
     "the set of a set's metadata is 1 and must be 0"},
    {Rule::SetMetadata, [](Client& client) { client.Mark({.cameraId = 1, .index = 0}); },
     "the camera of a set's metadata is 0 and must be 1"},
    {Rule::SetMetadata, [](Client& client) { client.outputSet.pMetadata = client.metadata; },
     "the output has the metadata of a set"},
    {Rule::InputFormat, [](Client& client) { client.input.pInputFormat = nullptr; },
     "the presence of a format record is 0 and must be 1"},
    {Rule::InputFormat, [](Client& client) { client.format.bufferFormat = ChiFormatRaw16; },
     "an input's format is 10 and must be 9"},
    {Rule::Output, [](Client& client) { client.outputSet.numBuffers = 0; },
     "the number of outputs is 0 and must be 1"},
};

/// A rule, and a run that breaks it and returns what the violation then says.
template <class Subject> struct Row {
    Rule rule;
    std::string (*breakIt)(Subject& subject);
};

/// What is said of a handle without an object.
std::string NotLive(const std::string& handle, const char* kind, const char* why) {
    return handle + " is not a live " + kind + ": " + why;
}

std::string Left(const char* what, const std::string& handle) {
    return std::string("at the end: 1 ") + what + " left, such as " + handle;
}

constexpr Row<Client> kSessionRows[]{
    {Rule::OpenArguments,
     [](Client&) -> std::string {
         Client::Open(511);
         return "OpenContext: the second argument is 511 and must be 512";
     }},
    {Rule::LoggerOperations,
     [](Client&) -> std::string {
         ZOfflineLogOps operations = {};
         ZLog::SetOfflineLoggerOps(&operations);
         return "SetOfflineLoggerOps: the operations are not filled";
     }},
    {Rule::SessionRecord,
     [](Client& client) -> std::string {
         client.createInfo.pSessionName = nullptr;
         client.pInterface->pOpenSession(client.pInterface, &client.createInfo);
         return "OpenSession: the create record, its name or its callbacks are null";
     }},
    {Rule::SessionRecord,
     [](Client& client) -> std::string {
         client.callbacks.ProcessNotifyCb = nullptr;
         client.pInterface->pOpenSession(client.pInterface, &client.createInfo);
         return "OpenSession: a callback is null";
     }},
    {Rule::SessionRecord,
     [](Client& client) -> std::string {
         client.createInfo.sharedSessionHandle = 7;
         client.pInterface->pCloseSession(
             client.pInterface->pOpenSession(client.pInterface, &client.createInfo));
         return "OpenSession: the shared handle is 7 and must be 0";
     }},
    {Rule::SessionOpen,
     [](Client& client) -> std::string {
         client.CloseSession();
         client.Execute();
         return "ExecuteRequest: " +
                NotLive(Named(std::exchange(client.session, 0)), "session", "destroyed");
     }},
    {Rule::SessionOpen,
     [](Client& client) -> std::string {
         client.pInterface->pConfigureStreams(client.session + 1000, &client.config);
         return "ConfigureStreams: " +
                NotLive(Named(client.session + 1000), "session", "never existed");
     }},
    {Rule::SessionClosed,
     [](Client& client) -> std::string {
         client.CloseSession();
         return "CloseSession: " + NotLive(Named(client.session), "session", "destroyed twice");
     }},
    {Rule::SessionClosed,
     [](Client& client) -> std::string {
         return Left("session", Named(std::exchange(client.session, 0)) + " \"Night\"");
     }},
    {Rule::SessionCloser,
     [](Client& client) -> std::string {
         client.device->SetDelivery(Delivery::OnSessionThread);
         client.device->SetShape(Shape::Together);
         client.onResult = [&client] { client.CloseSession(); };
         client.Execute();
         client.device->WaitIdle();
         client.session = 0;
         return "CloseSession: a session's own thread closes it";
     }},
    {Rule::Configuration,
     [](Client& client) -> std::string {
         client.pInterface->pConfigureStreams(client.session, nullptr);
         return "ConfigureStreams: the configuration record is null";
     }},
    {Rule::SessionSettings,
     [](Client& client) -> std::string {
         client.CloseSession();
         client.session = client.pInterface->pOpenSession(client.pInterface, &client.createInfo);
         client.config.pSessionSettings = nullptr;
         client.Configure();
         return "ConfigureStreams: the session settings are null";
     }},
};

constexpr Row<Client> kRequestRows[]{
    {Rule::RequestSession,
     [](Client& client) -> std::string {
         client.CloseSession();
         client.session = client.pInterface->pOpenSession(client.pInterface, &client.createInfo);
         client.request.numInputs = 0;
         client.Execute();
         return "ExecuteRequest: a session's being configured is 0 and must be 1";
     }},
    {Rule::InputStream,
     [](Client& client) -> std::string {
         client.input.pStream = nullptr;
         client.Execute();
         return "ExecuteRequest: input stream " + Named(nullptr) + " is not in the session's list";
     }},
    {Rule::InputStream,
     [](Client& client) -> std::string {
         ChiStreamBuffer twice[] = {client.input, client.input};
         client.inputSet.numBuffers = 2;
         client.inputSet.pBuffers = twice;
         client.Execute();
         return "ExecuteRequest: input stream " + Named(&client.raw) + " is fed twice by one set";
     }},
    {Rule::SetMetadata,
     [](Client& client) -> std::string {
         ChiOfflineBufferSet two[] = {client.inputSet, client.inputSet};
         client.request.numInputs = 2;
         client.request.pInputs = two;
         client.Execute();
         return "ExecuteRequest: set 1 has the metadata of another set";
     }},
    {Rule::InputManager,
     [](Client& client) -> std::string {
         client.input.pBufferManager = nullptr;
         client.Execute();
         return "ExecuteRequest: an input's manager is " + Named(nullptr) + " and must be " +
                Named(client.manager);
     }},
    {Rule::FilterPattern,
     [](Client& client) -> std::string {
         const std::string pattern = std::to_string(std::exchange(client.format.cfaPattern, 77));
         client.Execute();
         return "ExecuteRequest: an input's filter pattern is 77 and must be " + pattern;
     }},
    {Rule::Output,
     [](Client& client) -> std::string {
         client.output.pStream = &client.raw;
         client.Execute();
         return "ExecuteRequest: the output's stream is " + Named(&client.raw) + " and must be " +
                Named(&client.yuv);
     }},
    {Rule::Memory,
     [](Client& client) -> std::string {
         uint8_t memory[16] = {};
         native_handle_t* handle = standin::gralloc::Wrap(memory, sizeof memory);
         const buffer_handle_t buffer = handle;
         client.output.bufferHandle = const_cast<buffer_handle_t*>(&buffer);
         client.Execute();
         native_handle_delete(handle);
         return "ExecuteRequest: the output buffer's memory is 16 bytes and must be 3072";
     }},
    {Rule::Memory,
     [](Client& client) -> std::string {
         client.raw.width = 32;
         client.Configure();
         client.Execute();
         return "ExecuteRequest: an image of 64x32 and format 37 is an input of a stream of 32x32 "
                "and format 37";
     }},
    {Rule::Translation,
     [](Client& client) -> std::string {
         client.pInterface->pTranslateToChiBuffer(nullptr, &client.output);
         return "TranslateToChiBuffer: a buffer is null";
     }},
    {Rule::Translation,
     [](Client& client) -> std::string {
         client.pInterface->pTranslateFromChiBuffer(&client.output, nullptr);
         return "TranslateFromChiBuffer: a buffer is null";
     }},
};

constexpr Row<Client> kObjectRows[]{
    {Rule::MetadataWords,
     [](Client& client) -> std::string {
         client.pMetadataOps->pDestroy(
             client.pMetadataOps->pCreate(client.pMetadataOps, nullptr, 3));
         return "MetadataCreate: the last word is 3 and must be 0";
     }},
    {Rule::MetadataWords,
     [](Client& client) -> std::string {
         client.pMetadataOps->pDestroy(
             client.pMetadataOps->pCreateFromAndroid(client.pMetadataOps, nullptr, 0, 0, 1));
         return "MetadataCreateFromAndroid: the words are 0, 0, 1 and must be 0, 0, 4294967295";
     }},
    {Rule::MetadataWords,
     [](Client& client) -> std::string {
         client.pMetadataOps->pReleaseAndroid(
             client.pMetadataOps, client.pMetadataOps->pCreateAndroid(
                                      client.pMetadataOps, client.metadata, 0, 0, 0, nullptr));
         return "MetadataCreateAndroid: the first word is 0 and must be 1";
     }},
    {Rule::MetadataWords,
     [](Client& client) -> std::string {
         client.metadataInfo.reserved8 = 1;
         auto* ops = client.pInterface->pOpenMetadataOps(client.pInterface, &client.metadataInfo);
         ops->pClose(ops);
         return "OpenMetadataOps: the words behind the camera id must be 1, 0, 1";
     }},
    {Rule::MetadataAlive,
     [](Client& client) -> std::string {
         client.pMetadataOps->pDestroy(client.metadata);
         client.Execute();
         return "ExecuteRequest: " + NotLive(Named(std::exchange(client.metadata, nullptr)),
                                             "metadata object", "destroyed");
     }},
    {Rule::MetadataDestroyed,
     [](Client& client) -> std::string {
         client.pMetadataOps->pDestroy(client.metadata);
         return "MetadataDestroy: " +
                NotLive(Named(client.metadata), "metadata object", "destroyed twice");
     }},
    {Rule::MetadataDestroyed,
     [](Client& client) -> std::string {
         client.pMetadataOps->pDestroy(client.image);
         return "MetadataDestroy: " +
                NotLive(Named(client.image), "metadata object", "never existed");
     }},
    {Rule::MetadataDestroyed,
     [](Client& client) -> std::string {
         return Left("metadata object", Named(std::exchange(client.metadata, nullptr)));
     }},
    {Rule::AndroidMetadataReleased,
     [](Client& client) -> std::string {
         client.pMetadataOps->pReleaseAndroid(client.pMetadataOps, client.android);
         return "MetadataReleaseAndroid: " +
                NotLive(Named(client.android), "Android metadata object", "destroyed twice");
     }},
    {Rule::AndroidMetadataReleased,
     [](Client& client) -> std::string {
         return Left("Android metadata object", Named(std::exchange(client.android, nullptr)));
     }},
    {Rule::ManagerRecord,
     [](Client& client) -> std::string {
         client.managerData.reserved52 = 4;
         client.pBufferOps->pDestroy(
             client.pBufferOps->pCreate(client.pBufferOps, "raw", &client.managerData));
         return "BufferManagerCreate: the word at 52 is 4 and must be 5";
     }},
    {Rule::ManagerRecord,
     [](Client& client) -> std::string {
         client.pBufferOps->pCreate(client.pBufferOps, nullptr, &client.managerData);
         return "BufferManagerCreate: the name or the create record is null";
     }},
    {Rule::ManagerAlive,
     [](Client& client) -> std::string {
         client.pBufferOps->pReleaseImageBuffer(std::exchange(client.image, nullptr));
         client.pBufferOps->pDestroy(client.manager);
         client.pBufferOps->pGetImageBuffer(client.manager);
         return "GetImageBuffer: " + NotLive(Named(std::exchange(client.manager, nullptr)),
                                             "buffer manager", "destroyed");
     }},
    {Rule::ManagerDestroyed,
     [](Client& client) -> std::string {
         client.pBufferOps->pReleaseImageBuffer(std::exchange(client.image, nullptr));
         client.pBufferOps->pDestroy(client.manager);
         return "BufferManagerDestroy: " +
                NotLive(Named(client.manager), "buffer manager", "destroyed twice");
     }},
    {Rule::ManagerDestroyed,
     [](Client& client) -> std::string {
         return Left("buffer manager", Named(std::exchange(client.manager, nullptr)));
     }},
    {Rule::ImageAlive,
     [](Client& client) -> std::string {
         client.pBufferOps->pReleaseImageBuffer(client.image);
         client.pBufferOps->pGetCPUAddress(client.image);
         return "GetCPUAddress: " +
                NotLive(Named(std::exchange(client.image, nullptr)), "image buffer", "destroyed");
     }},
    {Rule::ImageReleased,
     [](Client& client) -> std::string {
         client.pBufferOps->pReleaseImageBuffer(client.image);
         return "ReleaseImageBuffer: " +
                NotLive(Named(client.image), "image buffer", "destroyed twice");
     }},
    {Rule::ImageReleased,
     [](Client& client) -> std::string {
         client.image = nullptr;
         return "BufferManagerDestroy: the number of image buffers left is 1 and must be 0";
     }},
    {Rule::TableOpen,
     [](Client& client) -> std::string {
         auto* const ops = std::exchange(client.pMetadataOps, nullptr);
         auto* const close = ops->pClose;
         ops->pReleaseAndroid(ops, std::exchange(client.android, nullptr));
         ops->pDestroy(std::exchange(client.metadata, nullptr));
         close(ops);
         close(ops);
         return "MetadataOpsClose: " + NotLive(Named(ops), "operation table", "destroyed twice");
     }},
    {Rule::TableOpen,
     [](Client& client) -> std::string {
         auto* const ops = std::exchange(client.pMetadataOps, nullptr);
         ops->pReleaseAndroid(ops, std::exchange(client.android, nullptr));
         ops->pDestroy(std::exchange(client.metadata, nullptr));
         return Left("operation table", Named(ops));
     }},
};

// --- The host's side

/// A watch over one request, and the library's part in it.
struct Watched {
    Device device;
    camera3_stream stream = MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888);
    buffer_handle_t handle = nullptr;
    camera3_stream_buffer buffer = {.stream = &stream, .buffer = &handle};
    camera3_capture_result both = {.frame_number = 101,
                                   .result = static_cast<camera_metadata*>(MadeUp(0x4000)),
                                   .num_output_buffers = 1,
                                   .output_buffers = &buffer,
                                   .partial_result = 257};
    RequestWatch watch{"camera 0, request 3"};

    Watched() {
        device.ExpectLeftovers();
        watch.Expect(
            {.frameNumber = 101, .partialNumber = 257, .stream = &stream, .buffer = &handle});
    }
    void Complete(uint32_t status = 0) {
        watch.OnResult(both);
        watch.OnRelease();
        watch.OnCompletion(status);
    }
};

constexpr Row<Watched> kHostRows[]{
    {Rule::ResultFrame,
     [](Watched& watched) -> std::string {
         watched.both.frame_number = 5;
         watched.Complete();
         return "the frame number is 5 and must be 101";
     }},
    {Rule::ResultPartial,
     [](Watched& watched) -> std::string {
         watched.both.partial_result = 2;
         watched.Complete();
         return "the partial number is 2 and must be 257";
     }},
    {Rule::ResultPartial,
     [](Watched& watched) -> std::string {
         watched.both.result = nullptr;
         watched.watch.OnResult(watched.both);
         return "the partial number is 257 and must be 0";
     }},
    {Rule::ResultContent,
     [](Watched& watched) -> std::string {
         watched.watch.OnResult({.frame_number = 101});
         return "metadata " + Named(nullptr) + " and 0 buffers at " + Named(nullptr);
     }},
    {Rule::ResultContent,
     [](Watched& watched) -> std::string {
         const camera3_stream_buffer two[] = {watched.buffer, watched.buffer};
         watched.both.num_output_buffers = 2;
         watched.both.output_buffers = two;
         watched.watch.OnResult(watched.both);
         return "metadata " + Named(watched.both.result) + " and 2 buffers at " + Named(two);
     }},
    {Rule::ResultBuffer,
     [](Watched& watched) -> std::string {
         buffer_handle_t other = nullptr;
         watched.buffer.buffer = &other;
         watched.Complete();
         return "stream " + Named(&watched.stream) + " and buffer " + Named(&other) + " must be " +
                Named(&watched.stream) + " and " + Named(&watched.handle);
     }},
    {Rule::ResultBuffer,
     [](Watched& watched) -> std::string {
         watched.buffer.stream = nullptr;
         watched.Complete();
         return "stream " + Named(nullptr) + " and buffer " + Named(&watched.handle) + " must be " +
                Named(&watched.stream) + " and " + Named(&watched.handle);
     }},
    {Rule::Reports,
     [](Watched& watched) -> std::string {
         watched.both.result = nullptr;
         watched.both.partial_result = 0;
         watched.Complete();
         return "0 metadata and 1 buffers, and must be 1 of each";
     }},
    {Rule::Reports,
     [](Watched& watched) -> std::string {
         watched.watch.OnResult(watched.both);
         watched.Complete();
         return "2 metadata and 2 buffers, and must be 1 of each";
     }},
    {Rule::LateResult,
     [](Watched& watched) -> std::string {
         watched.Complete();
         watched.watch.OnResult(watched.both);
         return "a result after the completion";
     }},
    {Rule::Release,
     [](Watched& watched) -> std::string {
         watched.watch.OnRelease();
         watched.Complete();
         return "the number of releases is 2 and must be 1";
     }},
    {Rule::Release,
     [](Watched& watched) -> std::string {
         watched.Complete();
         watched.watch.OnRelease();
         return "a release after the completion";
     }},
    {Rule::Release,
     [](Watched& watched) -> std::string {
         watched.watch.OnResult(watched.both);
         watched.watch.OnCompletion(0);
         return "a completion without a release";
     }},
    {Rule::Completion,
     [](Watched& watched) -> std::string {
         watched.Complete();
         watched.watch.OnCompletion(0);
         return "a completion after the completion";
     }},
    {Rule::CompletionStatus,
     [](Watched& watched) -> std::string {
         watched.buffer.status = CAMERA3_BUFFER_STATUS_ERROR;
         watched.Complete(0);
         return "the status is 0 and must be 1";
     }},
    {Rule::CompletionStatus,
     [](Watched& watched) -> std::string {
         watched.Complete(2);
         return "the status is 2 and must be 0";
     }},
    {Rule::Refusal,
     [](Watched& watched) -> std::string {
         watched.Complete();
         watched.watch.OnSubmitted(4);
         return "status 4 after 3 callbacks";
     }},
    {Rule::Refusal,
     [](Watched& watched) -> std::string {
         watched.watch.OnSubmitted(4);
         watched.watch.OnResult(watched.both);
         return "a result after status 4";
     }},
    {Rule::AfterClose,
     [](Watched& watched) -> std::string {
         watched.Complete();
         watched.watch.OnClosed();
         watched.watch.OnRelease();
         return "a release";
     }},
};

// --- Each rule

/// Of the vendor's side: the rule's violation is the only one of a client's whole life.
void ExpectClientsViolations(std::span<const Row<Client>> rows) {
    for (const Row<Client>& row : rows) {
        Client client;
        const std::string line = Line(row.rule, row.breakIt(client));
        client.End();
        EXPECT_EQ(client.device->Violations(), Texts{line});
    }
}

template <class Changes>
void ExpectViolations(const Changes& changes, const std::string& call, void (Client::*act)()) {
    for (const Change& row : changes) {
        Client client;
        row.change(client);
        (client.*act)();
        client.End();
        EXPECT_EQ(client.device->Violations(), Texts{Line(row.rule, call + ": " + row.values)});
    }
}

TEST(Contract, RulesOfRecordsAreSeenFailing) {
    ExpectViolations(kConfigureChanges, "ConfigureStreams", &Client::Configure);
    ExpectViolations(kExecuteChanges, "ExecuteRequest", &Client::Execute);
}

TEST(Contract, RulesOfSessionsAreSeenFailing) { ExpectClientsViolations(kSessionRows); }

TEST(Contract, RulesOfRequestsAreSeenFailing) { ExpectClientsViolations(kRequestRows); }

TEST(Contract, RulesOfObjectsAreSeenFailing) { ExpectClientsViolations(kObjectRows); }

TEST(Contract, RulesOfTheHostAreSeenFailing) {
    for (const Row<Watched>& row : kHostRows) {
        Watched watched;
        const std::string values = row.breakIt(watched);
        EXPECT_EQ(watched.device->Violations(),
                  Texts{Line(row.rule, "camera 0, request 3: " + values)});
    }
}

TEST(Contract, EveryRuleHasARowHere) {
    std::set<Rule> seen;
    const auto add = [&seen](const auto& rows) {
        for (const auto& row : rows) {
            seen.insert(row.rule);
        }
    };
    add(kConfigureChanges);
    add(kExecuteChanges);
    add(kSessionRows);
    add(kRequestRows);
    add(kObjectRows);
    add(kHostRows);
    for (size_t i = 0; i < standin::kRules.size(); ++i) {
        EXPECT_TRUE(seen.contains(static_cast<Rule>(i))) << standin::kRules[i].number;
    }
}

// --- All is right

TEST(Contract, HoldsForAClientThatKeepsIt) {
    Client client;
    client.Execute();
    client.End();
    EXPECT_EQ(client.device->Violations(), Texts());
}

TEST(Contract, HoldsForALiveRequestOfEachShape) {
    for (const Shape shape : {Shape::MetadataFirst, Shape::BuffersFirst, Shape::Together,
                              Shape::Partials, Shape::ErrorBuffer, Shape::SecondBlock}) {
        Device device; // Looks for violations when it goes.
        device->SetShape(shape);
        Camera camera(device);
        Request request;
        request.UseVendorBuffers(camera);
        RequestWatch watch("camera 0, request 0");
        watch.Expect({.frameNumber = request.wrapper.rtFrameNumber,
                      .partialNumber = request.privData.partialResultBase + 255,
                      .reports = shape == Shape::SecondBlock ? 2U : 1U,
                      .stream = request.output.stream,
                      .buffer = request.output.buffer});
        watch.OnSubmitted(request.Submit(camera));
        EXPECT_TRUE(request.WaitComplete());
        for (Event& event : request.Events()) {
            event.result.output_buffers = event.buffers.data();
            if (event.kind == Event::Result) {
                watch.OnResult(event.result);
            } else if (event.kind == Event::Release) {
                watch.OnRelease();
            } else {
                watch.OnCompletion(event.status);
            }
        }
        request.GiveBack(camera);
        camera.Flush();
        camera.Destroy();
        watch.OnClosed();
    }
}

} // namespace
