/// The rules of the contract: each is seen failing, alone, and none fails where all is right.

#include "host/watch.h"
#include "platform/maker/zlog.h"
#include "standin/gralloc.h"
#include "standin/tags.h"
#include "tests/support/device.h"

#include <set>
#include <span>

namespace {

using namespace test;
using host::RequestWatch;
using standin::Rule;

constexpr uint32_t kWidth = 64;
constexpr uint32_t kHeight = 32;

std::string Line(Rule rule, const std::string& values) {
    const standin::RuleText& text = standin::TextOf(rule);
    return std::string(text.number) + " " + text.name + ": " + values;
}

/// What stands in a text for a handle or an address, as violations show it.
class Names {
  public:
    void Add(const char* name, const void* handle) {
        const auto kind = static_cast<char>(Address(handle) >> 56);
        mNames[name] =
            Printed("%p", handle) + (kind == 0 ? "" : std::string(" of kind '") + kind + '\'');
    }
    std::string In(std::string text) const {
        for (const auto& [name, handle] : mNames) {
            for (size_t at = 0; (at = text.find(name)) != text.npos;) {
                text.replace(at, name.size(), handle);
            }
        }
        return text;
    }

  private:
    std::map<std::string, std::string> mNames;
};

// --- The vendor's side

/// Uses the vendor as the library does, without the library: a session with one raw input, and all
/// that a request to it needs. A null handle, or a session of 0, is not given back.
struct Client {
    Device device;
    ChiOfflineInterface* pInterface = kit::OpenOfflineInterface();
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
    ChiBufferManagerHandle manager = nullptr;
    ChiImageBufferHandle image = nullptr;

    std::function<void()> onResult = [] {};
    ChiOfflineSessionCallbacks callbacks = {
        .ProcessCaptureResultCb =
            [](const ChiOfflineSessionCallbacks* own, auto...) {
                static_cast<const Client*>(own->pPrivateCallbackData)->onResult();
            },
        .ProcessNotifyCb = [](auto...) {},
        .GetFrameworkBuffers = [](auto...) -> uint32_t { return 1; },
        .pPrivateCallbackData = this};
    ChiOfflineSessionCreateInfo createInfo = {"Night", 0, &callbacks};
    ChiOfflineSessionConfigInfo config = {
        .pCameraText = "0", .numStreams = 2, .ppChiStreams = streams, .pSessionSettings = metadata};
    uint64_t session = OpenSession();

    ChiInputFormat format = {.bufferFormat = ChiFormatRaw10};
    ChiStreamBuffer input = {.size = sizeof input,
                             .pStream = &raw,
                             .bufferType = kChiInputBufferType,
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

    Names names;

    Client() {
        device.ExpectLeftovers();
        device->SetDelivery(Delivery::OnCallerThread);
        MakeImage();
        Configure();
        format.cfaPattern = raw.cfaPattern;
        names.Add("<raw>", &raw);
        names.Add("<yuv>", &yuv);
        names.Add("<metadata ops>", pMetadataOps);
        names.Add("<metadata>", metadata);
        names.Add("<android>", android);
        names.Add("<manager>", manager);
        names.Add("<image>", image);
        names.Add("<session>", MadeUp(session));
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
    uint64_t OpenSession() { return pInterface->pOpenSession(pInterface, &createInfo); }
    void CloseSession() { pInterface->pCloseSession(session); }
    void ReleaseAndroid() { pMetadataOps->pReleaseAndroid(pMetadataOps, android); }
    void DestroyMetadata() { pMetadataOps->pDestroy(metadata); }
    void ReleaseImage() { pBufferOps->pReleaseImageBuffer(image); }
    void DestroyManager() { pBufferOps->pDestroy(manager); }
    /// An image of the input's stream, and its manager.
    void MakeImage() {
        manager = input.pBufferManager = pBufferOps->pCreate(pBufferOps, "raw", &managerData);
        image = input.bufferHandle = pBufferOps->pGetImageBuffer(manager);
    }
    /// What goes back through the metadata operations.
    void ReturnMetadata(ChiOfflineMetadataOps* ops) const {
        if (android != nullptr) {
            ops->pReleaseAndroid(ops, android);
        }
        if (metadata != nullptr) {
            ops->pDestroy(metadata);
        }
    }

    /// Closes and destroys all, and says so to the vendor.
    void End() {
        if (session != 0) {
            CloseSession();
        }
        if (pMetadataOps != nullptr) {
            ReturnMetadata(pMetadataOps);
            pMetadataOps->pClose(pMetadataOps);
        }
        if (image != nullptr) {
            ReleaseImage();
        }
        if (manager != nullptr) {
            DestroyManager();
        }
        pBufferOps->pClose(pBufferOps);
        device->CheckAllReturned();
    }
};

/// A rule, what a client does that breaks it, and what the violation then says, with names for
/// handles.
struct Row {
    Rule rule;
    void (*breakIt)(Client& client);
    const char* values;
};

/// What a client changes before it configures its session.
constexpr Row kConfigureRows[]{
    {Rule::Configuration, [](Client& client) { client.streams[1] = nullptr; }, "stream 1 is null"},
    {Rule::Configuration, [](Client& client) { client.config.pCameraText = "front"; },
     "the camera's text is 'front' and must be a number"},
    {Rule::StreamTypes, [](Client& client) { client.yuv.streamType = ChiStreamTypeInput; },
     "a stream's type is 1 and must be 0"},
    {Rule::StreamWords, [](Client& client) { client.raw.reserved152 = 0; },
     "a stream's word at 152 is 0 and must be -1"},
};

/// And before it executes its request.
constexpr Row kExecuteRows[]{
    {Rule::RequestSession,
     [](Client& client) {
         client.CloseSession();
         client.session = client.OpenSession();
         client.request.numInputs = 0;
     },
     "a session's being configured is 0 and must be 1"},
    {Rule::RequestRecord, [](Client& client) { client.request.pLastFrameField = nullptr; },
     "the request or one of its frame fields is null"},
    {Rule::RequestRecord, [](Client& client) { client.request.pInputs = nullptr; },
     "the number of input sets is 0 and must be 1"},
    {Rule::RequestRecord, [](Client& client) { client.inputSet.pBuffers = nullptr; },
     "the number of inputs is 0 and must be 1"},
    {Rule::FramePreset, [](Client& client) { client.frame = 5; },
     "the preset of the offline frame is 5 and must be -1"},
    {Rule::FramePreset, [](Client& client) { client.frame = 0; },
     "the preset of the offline frame is 0 and must be -1"},
    {Rule::InputRecord, [](Client& client) { client.input.size = 200; },
     "an input's size is 200 and must be 208"},
    {Rule::InputRecord, [](Client& client) { client.input.bufferType = 1; },
     "an input's type is 1 and must be 2"},
    {Rule::InputRecord, [](Client& client) { client.input.bufferStatus = 1; },
     "an input's status is 1 and must be 0"},
    {Rule::InputStream, [](Client& client) { client.raw.streamType = ChiStreamTypeOutput; },
     "an input stream's type is 0 and must be 1"},
    {Rule::InputStream, [](Client& client) { client.input.pStream = nullptr; },
     "input stream (nil) is not in the session's list"},
    {Rule::InputStream,
     [](Client& client) {
         static ChiStreamBuffer twice[2];
         twice[0] = twice[1] = client.input;
         client.inputSet.numBuffers = 2;
         client.inputSet.pBuffers = twice;
     },
     "input stream <raw> is fed twice by one set"},
    {Rule::InputManager, [](Client& client) { client.input.pBufferManager = nullptr; },
     "an input's manager is (nil) and must be <manager>"},
    {Rule::InputFormat, [](Client& client) { client.input.pInputFormat = nullptr; },
     "the presence of a format record is 0 and must be 1"},
    {Rule::InputFormat,
     [](Client& client) {
         client.ReleaseImage();
         client.DestroyManager();
         client.raw.format = client.managerData.format = ChiStreamFormatYCbCr420_888;
         client.MakeImage();
         client.Configure();
     },
     "the presence of a format record is 1 and must be 0"},
    {Rule::InputFormat, [](Client& client) { client.format.bufferFormat = ChiFormatRaw16; },
     "an input's format is 10 and must be 9"},
    {Rule::FilterPattern, [](Client& client) { client.format.cfaPattern = 77; },
     "an input's filter pattern is 77 and must be 2"},
    {Rule::Output, [](Client& client) { client.outputSet.numBuffers = 0; },
     "the number of outputs is 0 and must be 1"},
    {Rule::Output, [](Client& client) { client.output.pStream = &client.raw; },
     "the output's stream is <raw> and must be <yuv>"},
    {Rule::Memory,
     [](Client& client) {
         static uint8_t memory[16];
         static buffer_handle_t handle = standin::gralloc::Wrap(memory, sizeof memory);
         client.output.bufferHandle = &handle;
     },
     "the output buffer's memory is 16 bytes and must be 3072"},
    {Rule::Memory,
     [](Client& client) {
         client.raw.width = 32;
         client.Configure();
     },
     "an image of 64x32 and format 37 is an input of a stream of 32x32 and format 37"},
    {Rule::SetMetadata, [](Client& client) { client.inputSet.pMetadata = nullptr; },
     "set 0 has no metadata"},
    {Rule::SetMetadata, [](Client& client) { client.Mark({.cameraId = 0, .index = 1}); },
     "the set of a set's metadata is 1 and must be 0"},
    {Rule::SetMetadata, [](Client& client) { client.Mark({.cameraId = 1, .index = 0}); },
     "the camera of a set's metadata is 0 and must be 1"},
    {Rule::SetMetadata, [](Client& client) { client.outputSet.pMetadata = client.metadata; },
     "the output has the metadata of a set"},
    {Rule::SetMetadata,
     [](Client& client) {
         static ChiOfflineBufferSet two[2];
         two[0] = two[1] = client.inputSet;
         client.request.numInputs = 2;
         client.request.pInputs = two;
     },
     "set 1 has the metadata of another set"},
};

constexpr Row kSessionRows[]{
    {Rule::OpenArguments, [](Client&) { kit::OpenOfflineInterface(511); },
     "OpenContext: the second argument is 511 and must be 512"},
    {Rule::LoggerOperations,
     [](Client&) {
         ZOfflineLogOps operations = {};
         ZLog::SetOfflineLoggerOps(&operations);
     },
     "SetOfflineLoggerOps: the operations are not filled"},
    {Rule::SessionRecord,
     [](Client& client) {
         client.createInfo.pSessionName = nullptr;
         client.OpenSession();
     },
     "OpenSession: the create record, its name or its callbacks are null"},
    {Rule::SessionRecord,
     [](Client& client) {
         client.callbacks.ProcessNotifyCb = nullptr;
         client.OpenSession();
     },
     "OpenSession: a callback is null"},
    {Rule::SessionRecord,
     [](Client& client) {
         client.createInfo.sharedSessionHandle = 7;
         client.pInterface->pCloseSession(client.OpenSession());
     },
     "OpenSession: the shared handle is 7 and must be 0"},
    {Rule::SessionOpen,
     [](Client& client) {
         client.CloseSession();
         client.Execute();
         client.session = 0;
     },
     "ExecuteRequest: <session> is not a live session: destroyed"},
    {Rule::SessionOpen,
     [](Client& client) { client.pInterface->pConfigureStreams(1000, &client.config); },
     "ConfigureStreams: 0x3e8 is not a live session: never existed"},
    {Rule::SessionClosed, [](Client& client) { client.CloseSession(); },
     "CloseSession: <session> is not a live session: destroyed twice"},
    {Rule::SessionClosed, [](Client& client) { client.session = 0; },
     "at the end: 1 session left, such as <session> \"Night\""},
    {Rule::SessionCloser,
     [](Client& client) {
         client.device->SetDelivery(Delivery::OnSessionThread);
         client.device->SetShape(Shape::Together);
         client.onResult = [&client] { client.CloseSession(); };
         client.Execute();
         client.device->WaitIdle();
         client.session = 0;
     },
     "CloseSession: a session's own thread closes it"},
    {Rule::Configuration,
     [](Client& client) { client.pInterface->pConfigureStreams(client.session, nullptr); },
     "ConfigureStreams: the configuration record is null"},
    {Rule::SessionSettings,
     [](Client& client) {
         client.CloseSession();
         client.session = client.OpenSession();
         client.config.pSessionSettings = nullptr;
         client.Configure();
     },
     "ConfigureStreams: the session settings are null"},
    {Rule::Translation,
     [](Client& client) { client.pInterface->pTranslateToChiBuffer(nullptr, &client.output); },
     "TranslateToChiBuffer: a buffer is null"},
    {Rule::Translation,
     [](Client& client) { client.pInterface->pTranslateFromChiBuffer(&client.output, nullptr); },
     "TranslateFromChiBuffer: a buffer is null"},
};

constexpr Row kObjectRows[]{
    {Rule::MetadataWords,
     [](Client& client) {
         client.pMetadataOps->pDestroy(
             client.pMetadataOps->pCreate(client.pMetadataOps, nullptr, 3));
     },
     "MetadataCreate: the last word is 3 and must be 0"},
    {Rule::MetadataWords,
     [](Client& client) {
         client.pMetadataOps->pDestroy(
             client.pMetadataOps->pCreateFromAndroid(client.pMetadataOps, nullptr, 0, 0, 1));
     },
     "MetadataCreateFromAndroid: the words are 0, 0, 1 and must be 0, 0, 4294967295"},
    {Rule::MetadataWords,
     [](Client& client) {
         client.pMetadataOps->pReleaseAndroid(
             client.pMetadataOps, client.pMetadataOps->pCreateAndroid(
                                      client.pMetadataOps, client.metadata, 0, 0, 0, nullptr));
     },
     "MetadataCreateAndroid: the first word is 0 and must be 1"},
    {Rule::MetadataWords,
     [](Client& client) {
         client.metadataInfo.reserved8 = 1;
         auto* ops = client.pInterface->pOpenMetadataOps(client.pInterface, &client.metadataInfo);
         ops->pClose(ops);
     },
     "OpenMetadataOps: the words behind the camera id must be 1, 0, 1"},
    {Rule::MetadataAlive,
     [](Client& client) {
         client.DestroyMetadata();
         client.Execute();
         client.metadata = nullptr;
     },
     "ExecuteRequest: <metadata> is not a live metadata object: destroyed"},
    {Rule::MetadataDestroyed, [](Client& client) { client.DestroyMetadata(); },
     "MetadataDestroy: <metadata> is not a live metadata object: destroyed twice"},
    {Rule::MetadataDestroyed, [](Client& client) { client.pMetadataOps->pDestroy(client.image); },
     "MetadataDestroy: <image> is not a live metadata object: never existed"},
    {Rule::MetadataDestroyed, [](Client& client) { client.metadata = nullptr; },
     "at the end: 1 metadata object left, such as <metadata>"},
    {Rule::AndroidMetadataReleased, [](Client& client) { client.ReleaseAndroid(); },
     "MetadataReleaseAndroid: <android> is not a live Android metadata object: destroyed twice"},
    {Rule::AndroidMetadataReleased, [](Client& client) { client.android = nullptr; },
     "at the end: 1 Android metadata object left, such as <android>"},
    {Rule::ManagerRecord,
     [](Client& client) {
         client.managerData.reserved52 = 4;
         client.pBufferOps->pDestroy(
             client.pBufferOps->pCreate(client.pBufferOps, "raw", &client.managerData));
     },
     "BufferManagerCreate: the word at 52 is 4 and must be 5"},
    {Rule::ManagerRecord,
     [](Client& client) {
         client.pBufferOps->pCreate(client.pBufferOps, nullptr, &client.managerData);
     },
     "BufferManagerCreate: the name or the create record is null"},
    {Rule::ManagerAlive,
     [](Client& client) {
         client.ReleaseImage();
         client.DestroyManager();
         client.image = client.pBufferOps->pGetImageBuffer(client.manager);
         client.manager = nullptr;
     },
     "GetImageBuffer: <manager> is not a live buffer manager: destroyed"},
    {Rule::ManagerDestroyed,
     [](Client& client) {
         client.ReleaseImage();
         client.image = nullptr;
         client.DestroyManager();
     },
     "BufferManagerDestroy: <manager> is not a live buffer manager: destroyed twice"},
    {Rule::ManagerDestroyed, [](Client& client) { client.manager = nullptr; },
     "at the end: 1 buffer manager left, such as <manager>"},
    {Rule::ImageAlive,
     [](Client& client) {
         client.ReleaseImage();
         client.pBufferOps->pGetCPUAddress(client.image);
         client.image = nullptr;
     },
     "GetCPUAddress: <image> is not a live image buffer: destroyed"},
    {Rule::ImageReleased, [](Client& client) { client.ReleaseImage(); },
     "ReleaseImageBuffer: <image> is not a live image buffer: destroyed twice"},
    {Rule::ImageReleased, [](Client& client) { client.image = nullptr; },
     "BufferManagerDestroy: the number of image buffers left is 1 and must be 0"},
    {Rule::TableOpen,
     [](Client& client) {
         auto* const ops = std::exchange(client.pMetadataOps, nullptr);
         auto* const close = ops->pClose;
         client.ReturnMetadata(ops);
         close(ops);
         close(ops);
     },
     "MetadataOpsClose: <metadata ops> is not a live operation table: destroyed twice"},
    {Rule::TableOpen,
     [](Client& client) { client.ReturnMetadata(std::exchange(client.pMetadataOps, nullptr)); },
     "at the end: 1 operation table left, such as <metadata ops>"},
};

// --- The host's side

/// A watch over one request, and the library's part in it.
struct Watched {
    Device device;
    camera3_stream stream = MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888);
    buffer_handle_t handle = nullptr;
    buffer_handle_t otherHandle = nullptr;
    camera3_stream_buffer buffers[2] = {{.stream = &stream, .buffer = &handle},
                                        {.stream = &stream, .buffer = &handle}};
    camera3_capture_result both = {.frame_number = 101,
                                   .result = static_cast<camera_metadata*>(MadeUp(0x4000)),
                                   .num_output_buffers = 1,
                                   .output_buffers = buffers,
                                   .partial_result = 257};
    RequestWatch watch{"camera 0, request 3"};
    Names names;

    Watched() {
        device.ExpectLeftovers();
        watch.Expect(
            {.frameNumber = 101, .partialNumber = 257, .stream = &stream, .buffer = &handle});
        names.Add("<stream>", &stream);
        names.Add("<buffer>", &handle);
        names.Add("<other>", &otherHandle);
        names.Add("<buffers>", buffers);
    }
    /// Calls the watch: M is the result, R the release, C the completion with a status, S the
    /// submission's return with its own, X the end of the camera.
    void Play(std::string_view calls) {
        for (size_t i = 0; i < calls.size(); ++i) {
            switch (calls[i]) {
            case 'M':
                watch.OnResult(both);
                break;
            case 'R':
                watch.OnRelease();
                break;
            case 'C':
                watch.OnCompletion(static_cast<uint32_t>(calls[++i] - '0'));
                break;
            case 'S':
                watch.OnSubmitted(static_cast<uint32_t>(calls[++i] - '0'));
                break;
            default:
                watch.OnClosed();
            }
        }
    }
};

/// A rule, the calls that break it, and what the violation then says.
struct HostRow {
    Rule rule;
    const char* calls;
    const char* values;
    void (*change)(Watched& watched) = [](Watched&) {}; ///< Of the result.
};

constexpr HostRow kHostRows[]{
    {Rule::ResultFrame, "MRC0", "the frame number is 5 and must be 101",
     [](Watched& watched) { watched.both.frame_number = 5; }},
    {Rule::ResultPartial, "MRC0", "the partial number is 2 and must be 257",
     [](Watched& watched) { watched.both.partial_result = 2; }},
    {Rule::ResultPartial, "M", "the partial number is 257 and must be 0",
     [](Watched& watched) { watched.both.result = nullptr; }},
    {Rule::ResultContent, "M", "metadata (nil) and 0 buffers at (nil)",
     [](Watched& watched) { watched.both = {.frame_number = 101}; }},
    {Rule::ResultContent, "M", "metadata 0x4000 and 2 buffers at <buffers>",
     [](Watched& watched) { watched.both.num_output_buffers = 2; }},
    {Rule::ResultBuffer, "MRC0", "stream <stream> and buffer <other> must be <stream> and <buffer>",
     [](Watched& watched) { watched.buffers[0].buffer = &watched.otherHandle; }},
    {Rule::ResultBuffer, "MRC0", "stream (nil) and buffer <buffer> must be <stream> and <buffer>",
     [](Watched& watched) { watched.buffers[0].stream = nullptr; }},
    {Rule::Reports, "MRC0", "0 metadata and 1 buffers, and must be 1 of each",
     [](Watched& watched) {
         watched.both.result = nullptr;
         watched.both.partial_result = 0;
     }},
    {Rule::Reports, "MMRC0", "2 metadata and 2 buffers, and must be 1 of each"},
    {Rule::LateResult, "MRC0M", "a result after the completion"},
    {Rule::Release, "RMRC0", "the number of releases is 2 and must be 1"},
    {Rule::Release, "MRC0R", "a release after the completion"},
    {Rule::Release, "MC0", "a completion without a release"},
    {Rule::Completion, "MRC0C0", "a completion after the completion"},
    {Rule::CompletionStatus, "MRC0", "the status is 0 and must be 1",
     [](Watched& watched) { watched.buffers[0].status = CAMERA3_BUFFER_STATUS_ERROR; }},
    {Rule::CompletionStatus, "MRC2", "the status is 2 and must be 0"},
    {Rule::Refusal, "MRC0S4", "status 4 after 3 callbacks"},
    {Rule::Refusal, "S4M", "a result after status 4"},
    {Rule::AfterClose, "MRC0XR", "a release"},
};

// --- Each rule

/// Of the vendor's side: the rule's violation is the only one of a client's whole life. `call` is
/// what the client does after each row, with its name in the violation.
void ExpectViolations(std::span<const Row> rows, const std::string& call = "",
                      void (Client::*act)() = nullptr) {
    for (const Row& row : rows) {
        Client client;
        row.breakIt(client);
        if (act != nullptr) {
            (client.*act)();
        }
        client.End();
        EXPECT_EQ(client.device->Violations(),
                  Texts{Line(row.rule, client.names.In(call + row.values))});
    }
}

TEST(Contract, RulesOfRecordsAreSeenFailing) {
    ExpectViolations(kConfigureRows, "ConfigureStreams: ", &Client::Configure);
    ExpectViolations(kExecuteRows, "ExecuteRequest: ", &Client::Execute);
}

TEST(Contract, RulesOfSessionsAreSeenFailing) { ExpectViolations(kSessionRows); }

TEST(Contract, RulesOfObjectsAreSeenFailing) { ExpectViolations(kObjectRows); }

TEST(Contract, RulesOfTheHostAreSeenFailing) {
    for (const HostRow& row : kHostRows) {
        Watched watched;
        row.change(watched);
        watched.Play(row.calls);
        const std::string values = watched.names.In(row.values);
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
    add(kConfigureRows);
    add(kExecuteRows);
    add(kSessionRows);
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

/// Whoever reads what was lent for the call alone after it is found out.
TEST(Contract, ARequestsRecordsAreSpoiledOnceItIsExecuted) {
    Client client;
    client.Execute();
    const auto isSpoiled = [](const auto& record) {
        const std::string_view bytes(reinterpret_cast<const char*>(&record), sizeof record);
        return bytes.find_first_not_of('\xA5') == bytes.npos;
    };
    EXPECT_TRUE(isSpoiled(client.request));
    EXPECT_TRUE(isSpoiled(client.inputSet) && isSpoiled(client.outputSet));
    EXPECT_TRUE(isSpoiled(client.input));
    client.End();
}

/// An instant device answers at once and sees nothing; what is run after it is watched again.
TEST(Contract, IsNotWatchedByAnInstantDeviceUntilTheReset) {
    Device device;
    device->SetInstant(true);
    for (const size_t seen : {0U, 1U}) {
        Camera camera(device);
        Request request;
        request.UseVendorBuffers(camera);
        request.Submit(camera);
        EXPECT_TRUE(request.WaitComplete());
        EXPECT_EQ(device->CallCount(Entry::ExecuteRequest), seen);
        request.GiveBack(camera);
        camera.Flush();
        camera.Destroy();
        device->Reset();
    }
}

} // namespace
