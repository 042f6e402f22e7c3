/// The rules of the contract: each is seen failing, alone, and none fails where all is right.

#include "contract/engine.h"
#include "contract/tap.h"
#include "platform/maker/zlog.h"
#include "tests/support/device.h"

#include <set>
#include <span>

namespace {

using namespace test;
using standin::Rule;
using Names = std::vector<std::pair<const char*, const void*>>; ///< Of handles and addresses.

/// The rule's violation is the only one. It shows handles and addresses by their names.
void ExpectViolation(Rule rule, const std::string& values, const Names& names) {
    Texts violations = StandinControl()->Violations();
    for (const auto& [name, address] : names) {
        for (std::string& violation : violations) {
            violation = WithName(violation, address, name);
        }
    }
    const contract::RuleText& text = contract::TextOf(rule);
    EXPECT_EQ(violations, Texts{Printed("%s %s: %s", text.number, text.name, values.c_str())});
}

/// A rule, calls that show it broken, what the violation then says, and what is changed before.
template <class Side> struct Row {
    Rule rule;
    const char* calls;
    const char* values;
    void (*change)(Side& side) = [](Side&) {};
};

/// Uses the vendor as the library does, without the library: a session with one raw input, and all
/// that a request to it needs.
struct Client {
    Device device;
    ChiOfflineInterface* pInterface = kit::OpenOfflineInterface();
    ChiMetadataOpsOpenInfo metadataInfo = {0, 1, 0, 1};
    ChiOfflineMetadataOps* pMetadataOps = pInterface->pOpenMetadataOps(pInterface, &metadataInfo);
    const decltype(pMetadataOps->pClose) pCloseMetadataOps = pMetadataOps->pClose;
    ChiOfflineBufferManagerOps* pBufferOps = pInterface->pOpenBufferOps(pInterface);

    ChiStream raw = MakeChiStream(ChiStreamTypeInput, ChiStreamFormatRaw10);
    ChiStream yuv = MakeChiStream(ChiStreamTypeOutput, ChiStreamFormatYCbCr420_888);
    ChiStream* streams[2] = {&raw, &yuv};
    ChiBufferManagerCreateData managerData = {.width = raw.width,
                                              .height = raw.height,
                                              .format = ChiStreamFormatRaw10,
                                              .reserved16 = 0x40002,
                                              .reserved24 = 0x20022,
                                              .reserved40 = 32,
                                              .reserved48 = 1,
                                              .reserved52 = 5,
                                              .pStream = &raw};
    ChiMetadataHandle metadata = CreateMetadata(0);
    void* android = CreateAndroid(1);
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
    ChiStreamBuffer inputs[2] = {{.size = sizeof(ChiStreamBuffer),
                                  .pStream = &raw,
                                  .bufferType = kChiInputBufferType,
                                  .pInputFormat = &format}}; ///< The second is as the first.
    ChiStreamBuffer output = {.size = sizeof output, .pStream = &yuv};
    kit::OutputBuffer tooSmall{4, 2};
    ChiOfflineBufferSet inputSets[2] = {
        {.numBuffers = 1, .pBuffers = inputs, .pMetadata = metadata}}; ///< Likewise.
    ChiOfflineBufferSet outputSet = {.numBuffers = 1, .pBuffers = &output};
    int32_t frame = -1;
    uint32_t lastFrame = 0;
    ChiOfflineExecuteRequest request = {.numInputs = 1,
                                        .pInputs = inputSets,
                                        .pOutput = &outputSet,
                                        .pOfflineFrameNumber = &frame,
                                        .pLastFrameField = &lastFrame};

    Client() {
        device.ExpectLeftovers();
        device->SetDelivery(Delivery::OnCallerThread);
        device->SetShape(Shape::Together);
        MakeImage();
        Configure();
        format.cfaPattern = raw.cfaPattern;
        inputs[1] = inputs[0];
        inputSets[1] = inputSets[0];
    }

    static ChiStream MakeChiStream(uint32_t type, uint32_t format) {
        return {.streamType = type, .width = 64, .height = 32, .format = format, .reserved152 = -1};
    }

    void Configure() { pInterface->pConfigureStreams(session, &config); }
    void Execute() { pInterface->pExecuteRequest(session, &request); }
    /// As the host marks the metadata of a set.
    void Mark(const standin::SetMark& mark) const {
        pMetadataOps->pSetTag(metadata, standin::kSetMarkTag, &mark, sizeof mark, 0);
    }
    uint64_t OpenSession() { return pInterface->pOpenSession(pInterface, &createInfo); }
    void CloseSession() { pInterface->pCloseSession(session); }
    void OpenAnother() {
        CloseSession();
        session = OpenSession();
    }
    ChiMetadataHandle CreateMetadata(uint32_t lastWord) {
        return pMetadataOps->pCreate(pMetadataOps, nullptr, lastWord);
    }
    void* CreateAndroid(uint32_t firstWord) {
        return pMetadataOps->pCreateAndroid(pMetadataOps, metadata, firstWord, 0, 0, nullptr);
    }
    void Release(void* anAndroid) { pMetadataOps->pReleaseAndroid(pMetadataOps, anAndroid); }
    void Destroy(ChiMetadataHandle aMetadata) { pMetadataOps->pDestroy(aMetadata); }
    ChiBufferManagerHandle CreateManager(const char* name) {
        return pBufferOps->pCreate(pBufferOps, name, &managerData);
    }
    /// An image of the input's stream, and its manager.
    void MakeImage() {
        manager = inputs[0].pBufferManager = CreateManager("raw");
        image = inputs[0].bufferHandle = pBufferOps->pGetImageBuffer(manager);
    }
    /// Calls the vendor: C configures the session, E executes the request, o opens another session
    /// in its place, s closes it, a releases the Android metadata, m destroys the metadata, t
    /// closes the table of both, i releases the image, b destroys its manager, B makes the two
    /// again, g gets another image, p asks for its address, x destroys it as if it was metadata.
    void Play(std::string_view calls) {
        for (const char call : calls) {
            call == 'C'   ? Configure()
            : call == 'E' ? Execute()
            : call == 'o' ? OpenAnother()
            : call == 's' ? CloseSession()
            : call == 'a' ? Release(android)
            : call == 'm' ? Destroy(metadata)
            : call == 't' ? pCloseMetadataOps(pMetadataOps)
            : call == 'i' ? pBufferOps->pReleaseImageBuffer(image)
            : call == 'b' ? pBufferOps->pDestroy(manager)
            : call == 'B' ? MakeImage()
            : call == 'g' ? void(pBufferOps->pGetImageBuffer(manager))
            : call == 'p' ? void(pBufferOps->pGetCPUAddress(image))
                          : Destroy(image);
        }
    }
    /// Says to the vendor that all is over.
    void End() const {
        pBufferOps->pClose(pBufferOps);
        device->CheckAllReturned();
    }
};

constexpr const char kRest[] = "samtib"; ///< Gives everything back, in this order.
constexpr const char kConfigured[] = "Csamtib";
constexpr const char kExecuted[] = "Esamtib";

/// What a client changes before it opens its session,
constexpr Row<Client> kOpenRows[]{
    {Rule::SessionRecord, "oamtib", "the create record, its name or its callbacks are null",
     [](Client& client) { client.createInfo.pSessionName = nullptr; }},
    {Rule::SessionRecord, "oamtib", "a callback is null",
     [](Client& client) { client.callbacks.ProcessNotifyCb = nullptr; }},
    {Rule::SessionRecord, "osamtib", "the shared handle is 7 and must be 0",
     [](Client& client) { client.createInfo.sharedSessionHandle = 7; }},
};

/// then before it configures it,
constexpr Row<Client> kConfigureRows[]{
    {Rule::Configuration, kConfigured, "stream 1 is null",
     [](Client& client) { client.streams[1] = nullptr; }},
    {Rule::Configuration, kConfigured, "the camera's text is 'front' and must be a number",
     [](Client& client) { client.config.pCameraText = "front"; }},
    {Rule::StreamTypes, kConfigured, "a stream's type is 1 and must be 0",
     [](Client& client) { client.yuv.streamType = ChiStreamTypeInput; }},
    {Rule::StreamWords, kConfigured, "a stream's word at 152 is 0 and must be -1",
     [](Client& client) { client.raw.reserved152 = 0; }},
    {Rule::SessionSettings, "oCsamtib", "the session settings are null",
     [](Client& client) { client.config.pSessionSettings = nullptr; }},
};

/// and then before it executes its request.
constexpr Row<Client> kExecuteRows[]{
    {Rule::RequestSession, "oEsamtib", "a session's being configured is 0 and must be 1",
     [](Client& client) { client.request.numInputs = 0; }},
    {Rule::RequestRecord, kExecuted, "the request or one of its frame fields is null",
     [](Client& client) { client.request.pLastFrameField = nullptr; }},
    {Rule::RequestRecord, kExecuted, "the number of input sets is 0 and must be 1",
     [](Client& client) { client.request.pInputs = nullptr; }},
    {Rule::RequestRecord, kExecuted, "the number of inputs is 0 and must be 1",
     [](Client& client) { client.inputSets[0].pBuffers = nullptr; }},
    {Rule::FramePreset, kExecuted, "the preset of the offline frame is 5 and must be -1",
     [](Client& client) { client.frame = 5; }},
    {Rule::FramePreset, kExecuted, "the preset of the offline frame is 0 and must be -1",
     [](Client& client) { client.frame = 0; }},
    {Rule::InputRecord, kExecuted, "an input's size is 200 and must be 208",
     [](Client& client) { client.inputs[0].size = 200; }},
    {Rule::InputRecord, kExecuted, "an input's type is 1 and must be 2",
     [](Client& client) { client.inputs[0].bufferType = 1; }},
    {Rule::InputRecord, kExecuted, "an input's status is 1 and must be 0",
     [](Client& client) { client.inputs[0].bufferStatus = 1; }},
    {Rule::InputStream, kExecuted, "an input stream's type is 0 and must be 1",
     [](Client& client) { client.raw.streamType = ChiStreamTypeOutput; }},
    {Rule::InputStream, kExecuted, "input stream (nil) is not in the session's list",
     [](Client& client) { client.inputs[0].pStream = nullptr; }},
    {Rule::InputStream, kExecuted, "input stream <raw> is fed twice by one set",
     [](Client& client) { client.inputSets[0].numBuffers = 2; }},
    {Rule::InputManager, kExecuted, "an input's manager is (nil) and must be <manager>",
     [](Client& client) { client.inputs[0].pBufferManager = nullptr; }},
    {Rule::InputFormat, kExecuted, "the presence of a format record is 0 and must be 1",
     [](Client& client) { client.inputs[0].pInputFormat = nullptr; }},
    {Rule::InputFormat, "ibBCEsamtib", "the presence of a format record is 1 and must be 0",
     [](Client& client) {
         client.raw.format = client.managerData.format = ChiStreamFormatYCbCr420_888;
     }},
    {Rule::InputFormat, kExecuted, "an input's format is 10 and must be 9",
     [](Client& client) { client.format.bufferFormat = ChiFormatRaw16; }},
    {Rule::FilterPattern, kExecuted, "an input's filter pattern is 77 and must be 2",
     [](Client& client) { client.format.cfaPattern = 77; }},
    {Rule::Output, kExecuted, "the number of outputs is 0 and must be 1",
     [](Client& client) { client.outputSet.numBuffers = 0; }},
    {Rule::Output, kExecuted, "the output's stream is <raw> and must be <yuv>",
     [](Client& client) { client.output.pStream = &client.raw; }},
    {Rule::Memory, kExecuted, "the output buffer's memory is 12 bytes and must be 3072",
     [](Client& client) { client.output.bufferHandle = client.tooSmall.Reference(); }},
    {Rule::Memory, "CEsamtib",
     "an image of 64x32 and format 37 is an input of a stream of 32x32 and format 37",
     [](Client& client) { client.raw.width = 32; }},
    {Rule::SetMetadata, kExecuted, "set 0 has no metadata",
     [](Client& client) {
         auto* const ops = client.pMetadataOps; // Which gave the host some.
         client.Destroy(ops->pCreateWithUsage(ops, nullptr, 0, 0));
         client.inputSets[0].pMetadata = nullptr;
     }},
    {Rule::SetMetadata, kExecuted, "the set of a set's metadata is 1 and must be 0",
     [](Client& client) { client.Mark({.cameraId = 0, .index = 1}); }},
    {Rule::SetMetadata, kExecuted, "the camera of a set's metadata is 0 and must be 1",
     [](Client& client) { client.Mark({.cameraId = 1, .index = 0}); }},
    {Rule::SetMetadata, kExecuted, "the output has the metadata of a set",
     [](Client& client) { client.outputSet.pMetadata = client.metadata; }},
    {Rule::SetMetadata, kExecuted, "set 1 has the metadata of another set",
     [](Client& client) { client.request.numInputs = 2; }},
};

constexpr Row<Client> kObjectRows[]{
    {Rule::OpenArguments, kRest, "OpenContext: the second argument is 511 and must be 512",
     [](Client&) { kit::OpenOfflineInterface(511); }},
    {Rule::LoggerOperations, kRest, "SetOfflineLoggerOps: the operations are not filled",
     [](Client&) { ZLog::SetOfflineLoggerOps(std::make_unique<ZOfflineLogOps>().get()); }},
    {Rule::SessionOpen, "sEamtib", "ExecuteRequest: <session> is not a live session: destroyed"},
    {Rule::SessionOpen, kRest, "ConfigureStreams: 0x3e8 is not a live session: never existed",
     [](Client& client) { client.pInterface->pConfigureStreams(1000, &client.config); }},
    {Rule::SessionClosed, "ssamtib",
     "CloseSession: <session> is not a live session: destroyed twice"},
    {Rule::SessionClosed, "amtib", "at the end: 1 session left, such as <session> \"Night\""},
    {Rule::SessionCloser, "amtib", "CloseSession: a session's own thread closes it",
     [](Client& client) {
         client.device->SetDelivery(Delivery::OnSessionThread);
         client.onResult = [&client] { client.CloseSession(); };
         client.Execute();
         client.device->WaitIdle();
     }},
    {Rule::Configuration, kRest, "ConfigureStreams: the configuration record is null",
     [](Client& client) { client.pInterface->pConfigureStreams(client.session, nullptr); }},
    {Rule::Translation, kRest, "TranslateToChiBuffer: a buffer is null",
     [](Client& client) { client.pInterface->pTranslateToChiBuffer(nullptr, &client.output); }},
    {Rule::Translation, kRest, "TranslateFromChiBuffer: a buffer is null",
     [](Client& client) { client.pInterface->pTranslateFromChiBuffer(&client.output, nullptr); }},
    {Rule::MetadataWords, kRest, "MetadataCreate: the last word is 3 and must be 0",
     [](Client& client) { client.Destroy(client.CreateMetadata(3)); }},
    {Rule::MetadataWords, kRest,
     "MetadataCreateFromAndroid: the words are 0, 0, 1 and must be 0, 0, 4294967295",
     [](Client& client) {
         auto* const ops = client.pMetadataOps;
         client.Destroy(ops->pCreateFromAndroid(ops, nullptr, 0, 0, 1));
     }},
    {Rule::MetadataWords, kRest, "MetadataCreateAndroid: the first word is 0 and must be 1",
     [](Client& client) { client.Release(client.CreateAndroid(0)); }},
    {Rule::MetadataWords, kRest, "OpenMetadataOps: the words behind the camera id must be 1, 0, 1",
     [](Client& client) {
         client.metadataInfo.reserved8 = 1;
         auto* ops = client.pInterface->pOpenMetadataOps(client.pInterface, &client.metadataInfo);
         ops->pClose(ops);
     }},
    {Rule::MetadataAlive, "mEsatib",
     "ExecuteRequest: <metadata> is not a live metadata object: destroyed"},
    {Rule::MetadataDestroyed, "msamtib",
     "MetadataDestroy: <metadata> is not a live metadata object: destroyed twice"},
    {Rule::MetadataDestroyed, "xsamtib",
     "MetadataDestroy: <image> is not a live metadata object: never existed"},
    {Rule::MetadataDestroyed, "satib", "at the end: 1 metadata object left, such as <metadata>"},
    {Rule::AndroidMetadataReleased, "asamtib",
     "MetadataReleaseAndroid: <android> is not a live Android metadata object: "
     "destroyed twice"},
    {Rule::AndroidMetadataReleased, "smtib",
     "at the end: 1 Android metadata object left, such as <android>"},
    {Rule::ManagerRecord, "ibBsamtib", "BufferManagerCreate: the word at 52 is 4 and must be 5",
     [](Client& client) { client.managerData.reserved52 = 4; }},
    {Rule::ManagerRecord, kRest, "BufferManagerCreate: the name or the create record is null",
     [](Client& client) { client.CreateManager(nullptr); }},
    {Rule::ManagerAlive, "ibgsamt",
     "GetImageBuffer: <manager> is not a live buffer manager: destroyed"},
    {Rule::ManagerDestroyed, "samtibb",
     "BufferManagerDestroy: <manager> is not a live buffer manager: destroyed twice"},
    {Rule::ManagerDestroyed, "samti", "at the end: 1 buffer manager left, such as <manager>"},
    {Rule::ImageAlive, "ipsamtb", "GetCPUAddress: <image> is not a live image buffer: destroyed"},
    {Rule::ImageReleased, "isamtib",
     "ReleaseImageBuffer: <image> is not a live image buffer: destroyed twice"},
    {Rule::ImageReleased, "samtb",
     "BufferManagerDestroy: the number of image buffers left is 1 and must be 0"},
    {Rule::TableOpen, "samttib",
     "MetadataOpsClose: <metadata ops> is not a live operation table: destroyed twice"},
    {Rule::TableOpen, "samib", "at the end: 1 operation table left, such as <metadata ops>"},
};

/// One request of a host, and the library's part in it, as events alone.
struct Watched {
    Device device;
    contract::Tap& tap = *device->Feed();
    PlatFormIntCallbacks table = {.cameraId = 0};
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
    OemLayer::RequestPrivData privData = {.partialResultBase = 2};
    OemLayer::OfflineDataWraper wrapper = {.rtFrameNumber = 101, .identity = {&stream, 0, ""}};
    camera3_stream_buffer output = buffers[0];
    OemLayer::OffCamApplicationCallbacks callbacks = {[](auto...) {}, [](auto...) {},
                                                      [](auto...) {}};

    Watched() { device.ExpectLeftovers(); }

    /// Submits, with what comes before the S during the call, and then the rest. M is a result, R
    /// the release, C the completion with a status, S the submission's return with its own, X the
    /// end of the camera.
    void Play(const std::string& calls) {
        using contract::Entry;
        const size_t end = calls.find('S');
        const uint32_t status = end == calls.npos ? 0 : calls[end + 1] - '0';
        const auto submit = [&] {
            Receive(end == calls.npos ? "" : calls.substr(0, end));
            return status;
        };
        tap.Around<Entry::SubmitRequestFromRT>(
            submit, &table, static_cast<void*>(&wrapper), static_cast<void*>(&privData),
            static_cast<void*>(&output), static_cast<void*>(&callbacks));
        Receive(end == calls.npos ? calls : calls.substr(end + 2));
    }
    void Receive(std::string_view calls) {
        using contract::Entry;
        const auto nothing = [] {};
        for (size_t i = 0; i < calls.size(); ++i) {
            if (calls[i] == 'M') {
                tap.Around<Entry::CaptureResult>(nothing, 0U, &privData, &both);
            } else if (calls[i] == 'R') {
                tap.Around<Entry::ReleaseRtBuffers>(nothing, 0U, &privData);
            } else if (calls[i] == 'C') {
                const uint32_t status = calls[++i] - '0';
                tap.Around<Entry::RequestComplete>(nothing, 0U, &privData, status);
            } else {
                tap.Around<Entry::Destroy>([] { return int64_t{0}; }, &table);
            }
        }
    }
};

constexpr Row<Watched> kHostRows[]{
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
    {Rule::Reports, "MRC0", "no buffer before the completion",
     [](Watched& watched) { watched.both.num_output_buffers = 0; }},
    {Rule::LateResult, "MRC0M", "a result after the completion"},
    {Rule::Release, "RMRC0", "the number of releases is 2 and must be 1"},
    {Rule::Release, "MRC0R", "a release after the completion"},
    {Rule::Release, "MC0", "a completion without a release"},
    {Rule::Completion, "MRC0C0", "a completion after the completion"},
    {Rule::CompletionStatus, "MRC2", "the status is 2 and must be 1",
     [](Watched& watched) { watched.buffers[0].status = CAMERA3_BUFFER_STATUS_ERROR; }},
    {Rule::CompletionStatus, "MRC1", "the status is 1 and must be 0"},
    {Rule::Refusal, "MRC0S4", "status 4 after 3 callbacks"},
    {Rule::Refusal, "S4M", "a result after status 4"},
    {Rule::AfterClose, "MRC0XR", "a release"},
};

/// A vendor, and what it does, as events alone.
struct Conduct {
    Device device;
    contract::Tap& tap = *device->Feed();
    ChiStream output = {.width = 64, .height = 32, .format = 35, .reserved152 = -1};
    ChiStream* list[1] = {&output};
    ChiOfflineSessionCallbacks callbacks = {.ProcessCaptureResultCb = [](auto...) {},
                                            .ProcessNotifyCb = [](auto...) {},
                                            .GetFrameworkBuffers = [](auto...) { return 0U; }};
    ChiOfflineSessionCallbacks others = callbacks;
    const ChiOfflineSessionCallbacks* pCaller = &callbacks;
    ChiOfflineSessionCreateInfo createInfo = {"Night", 0, &callbacks};
    ChiOfflineSessionConfigInfo config = {
        .pCameraText = "0", .numStreams = 1, .ppChiStreams = list};
    ChiMetadataOpsOpenInfo openInfo = {0, 1, 0, 1};
    ChiOfflineMetadataOps ops{};
    ChiStreamBuffer buffer = {.size = sizeof buffer, .pStream = &output, .bufferHandle = this};
    ChiStreamBuffer brought = buffer;
    ChiOfflineBufferSet outputSet = {.numBuffers = 1, .pBuffers = &buffer};
    int32_t frame = -1;
    uint32_t lastFrame = 0;
    int32_t written = 5;
    ChiOfflineExecuteRequest request = {.pOutput = &outputSet,
                                        .pPrivateData = this,
                                        .pOfflineFrameNumber = &frame,
                                        .pLastFrameField = &lastFrame};
    ChiOfflineResultBlock block = {.numBuffers = 1, .pBuffers = &brought};
    ChiOfflineCaptureResultInfo info = {.frameNumber = 5, .pResult = &block, .pPrivateData = this};
    ChiOfflineQueryBuffer query = {AsStream(&output), 1};
    ChiStreamBuffer lent = {.pStream = &output, .bufferHandle = &lent};
    std::function<void()> configures = [] {};

    Conduct() { device.ExpectLeftovers(); }
    static camera3_stream* AsStream(ChiStream* stream) {
        return reinterpret_cast<camera3_stream*>(stream);
    }
    /// o opens the session, c configures it, e and f execute a request that the vendor accepts or
    /// refuses, r delivers the result, p the same with a partial to come, q asks the framework for
    /// a buffer and gets `lent`, x closes the session, t opens metadata operations, m makes
    /// metadata with them.
    void Play(std::string_view calls) {
        using contract::Entry;
        constexpr uint64_t kSession = 77;
        constexpr ChiOfflineInterface* kNone = nullptr;
        for (const char call : calls) {
            if (call == 'o') {
                tap.Around<Entry::OpenSession>([] { return kSession; }, kNone, &createInfo);
            } else if (call == 'c') {
                const auto configure = [this] { return configures(), int32_t{0}; };
                tap.Around<Entry::ConfigureStreams>(configure, kSession, &config);
            } else if (call == 'e' || call == 'f') {
                frame = -1;
                const auto execute = [&] {
                    frame = written;
                    lastFrame += written > 0 ? 1 : 0;
                    return int32_t{call == 'f'};
                };
                tap.Around<Entry::ExecuteRequest>(execute, kSession, &request);
            } else if (call == 'r' || call == 'p') {
                block.numPartialMetadata = call == 'p' ? 1 : 0;
                tap.Around<Entry::ProcessCaptureResult>([] {}, pCaller, 1U, &info);
            } else if (call == 'q') {
                AskFramework();
            } else if (call == 'x') {
                tap.Around<Entry::CloseSession>([] { return int32_t{0}; }, kSession);
            } else if (call == 't') {
                tap.Around<Entry::OpenMetadataOps>([this] { return &ops; }, kNone, &openInfo);
            } else {
                tap.Around<Entry::MetadataCreate>([] { return MadeUp(0x4D); }, &ops,
                                                  static_cast<void*>(nullptr), 0U);
            }
        }
    }
    void AskFramework() {
        unsigned int returned = 1;
        ChiOfflineQueryStreamBuffer answer = {query.pStream, 0, 1, &lent};
        tap.Around<contract::Entry::GetFrameworkBuffers>(
            [] { return 0U; }, pCaller, 1U, static_cast<const ChiOfflineQueryBuffer*>(&query),
            &returned, &answer);
    }
};

constexpr Row<Conduct> kVendorRows[]{
    {Rule::NewSession, "oo", "OpenSession: 0x4d is a live session already"},
    {Rule::NewObject, "tmm", "MetadataCreate: 0x4d is a live metadata object already"},
    {Rule::StreamsKept, "oc",
     "ConfigureStreams: stream 0 has another type, size or format than before",
     [](Conduct& vendor) { vendor.configures = [&vendor] { vendor.output.width = 32; }; }},
    {Rule::FrameWritten, "oce", "ExecuteRequest: the offline frame is still -1",
     [](Conduct& vendor) { vendor.written = -1; }},
    {Rule::CallbackSession, "ocexr",
     "ProcessCaptureResultCb: <callbacks> are the callbacks of no open session"},
    {Rule::CallbackSession, "ocer",
     "ProcessCaptureResultCb: <others> are the callbacks of no open session",
     [](Conduct& vendor) { vendor.pCaller = &vendor.others; }},
    {Rule::ResultRequest, "ocr",
     "ProcessCaptureResultCb: the private data <request> is that of no request of the session"},
    {Rule::RefusedRequest, "ocfr", "ProcessCaptureResultCb: a result after status 1"},
    {Rule::ResultAfterLast, "ocerr",
     "ProcessCaptureResultCb: a result after the last one of the request <request>"},
    {Rule::ResultNumber, "ocer",
     "ProcessCaptureResultCb: a result's frame number is 6 and must be 5",
     [](Conduct& vendor) { vendor.info.frameNumber = 6; }},
    {Rule::PartialsFall, "ocerp", "ProcessCaptureResultCb: 1 partials to come after 0",
     [](Conduct& vendor) { vendor.block = {}; }},
    {Rule::ResultOutput, "ocer",
     "ProcessCaptureResultCb: stream <output> and buffer <lent> must be <output> and <request>",
     [](Conduct& vendor) { vendor.brought.bufferHandle = &vendor.lent; }},
    {Rule::BufferCount, "ocepr", "ProcessCaptureResultCb: 2 buffers for 1 outputs"},
    {Rule::BufferQuery, "ocq", "GetFrameworkBuffers: stream <other> is not the session's output",
     [](Conduct& vendor) { vendor.query.pStream = Conduct::AsStream(vendor.list[0] + 1); }},
};

/// Of the vendor's side, in a client's whole life. `entry` is where the violations are found.
void ExpectViolations(std::span<const Row<Client>> rows, const std::string& entry = "") {
    for (const Row<Client>& row : rows) {
        Client client;
        const Names names = {{"<raw>", &client.raw},
                             {"<yuv>", &client.yuv},
                             {"<metadata ops>", client.pMetadataOps},
                             {"<metadata>", client.metadata},
                             {"<android>", client.android},
                             {"<manager>", client.manager},
                             {"<image>", client.image},
                             {"<session>", MadeUp(client.session)}};
        row.change(client);
        client.Play(row.calls);
        client.End();
        ExpectViolation(row.rule, entry + row.values, names);
    }
}

TEST(Contract, RulesOfRecordsAreSeenFailing) {
    ExpectViolations(kOpenRows, "OpenSession: ");
    ExpectViolations(kConfigureRows, "ConfigureStreams: ");
    ExpectViolations(kExecuteRows, "ExecuteRequest: ");
}

TEST(Contract, RulesOfSessionsAndObjectsAreSeenFailing) { ExpectViolations(kObjectRows); }

TEST(Contract, RulesOfTheHostAreSeenFailing) {
    for (const Row<Watched>& row : kHostRows) {
        Watched watched;
        row.change(watched);
        watched.Play(row.calls);
        ExpectViolation(row.rule, std::string("camera 0, frame 101: ") + row.values,
                        {{"<stream>", &watched.stream},
                         {"<buffer>", &watched.handle},
                         {"<other>", &watched.otherHandle},
                         {"<buffers>", watched.buffers}});
    }
}

TEST(Contract, RulesOfTheVendorAreSeenFailing) {
    for (const Row<Conduct>& row : kVendorRows) {
        Conduct vendor;
        row.change(vendor);
        vendor.Play(row.calls);
        ExpectViolation(row.rule, row.values,
                        {{"<callbacks>", &vendor.callbacks},
                         {"<others>", &vendor.others},
                         {"<lent>", &vendor.lent},
                         {"<output>", &vendor.output},
                         {"<other>", vendor.list[0] + 1},
                         {"<request>", &vendor}});
    }
}

/// Handles, addresses and private data of what is over are used again; a lent buffer is one of the
/// request's.
TEST(Contract, HoldsForAVendorThatUsesHandlesAgain) {
    Conduct vendor;
    vendor.Play("ocerxocerq");
    vendor.brought = vendor.lent;
    vendor.Play("er");
    EXPECT_EQ(vendor.device->Violations(), Texts());
    vendor.Play("er");
    EXPECT_EQ(vendor.device->Violations().size(), 1U) << "it was lent once";
}

/// One camera's closing of a table that another one uses, too, does not end it.
TEST(Contract, HoldsForATableThatIsOpenForOthersWhileOneClosesIt) {
    Conduct vendor;
    vendor.Play("tt");
    vendor.tap.Call<contract::Entry::MetadataOpsClose>(&vendor.ops);
    vendor.Play("m");
    EXPECT_EQ(vendor.device->Violations(), Texts());
}

/// Whose watch began late does not know what was there before.
TEST(Contract, IsNotHeldAgainstWhatWasThereBeforeTheWatch) {
    Client client;
    std::vector<std::string> found;
    contract::Engine late([&](const auto& violation) { found.push_back(LineOf(violation)); });
    struct Follower : contract::Follower {
        explicit Follower(contract::Engine& its) : engine(its) {}
        void Take(const contract::Event& event, bool /*isOwn*/) override {
            if (event.Number() > 1) {
                engine.Take(event);
            }
        }
        contract::Engine& engine;
    } follower(late);
    std::string problem;
    const auto tap = contract::Tap::Open({.follower = &follower}, problem);
    const auto destroy = [&] {
        tap->Around<contract::Entry::MetadataDestroy>([] { return 0U; }, client.metadata);
    };
    tap->Call<contract::Entry::Pixels>(ChiImageBufferHandle(), uint64_t{0}, uint64_t{0},
                                       static_cast<const void*>(nullptr)); // Is not seen.
    destroy();
    late.CheckAllReturned();
    tap->Around<contract::Entry::MetadataCreate>([] { return MadeUp(0x77); },
                                                 static_cast<ChiOfflineMetadataOps*>(MadeUp(0x70)),
                                                 static_cast<void*>(nullptr), 0U);
    PlatFormIntCallbacks table{};
    tap->Around<contract::Entry::Destroy>([] { return int64_t{0}; }, &table);
    EXPECT_EQ(found, Texts()) << "other cameras may be there";
    late.CheckAllReturned();
    EXPECT_EQ(std::exchange(found, {}).size(), 1U) << "who asks is told";
    destroy();
    EXPECT_EQ(found.size(), 1U) << "destroyed twice, and both times were seen";
}

TEST(Contract, EveryRuleHasARowHere) {
    std::set<Rule> seen;
    const auto add = [&seen](const auto& rows) {
        for (const auto& row : rows) {
            seen.insert(row.rule);
        }
    };
    add(kOpenRows);
    add(kConfigureRows);
    add(kExecuteRows);
    add(kObjectRows);
    add(kHostRows);
    add(kVendorRows);
    for (size_t i = 0; i < contract::kRules.size(); ++i) {
        EXPECT_TRUE(seen.contains(static_cast<Rule>(i))) << contract::kRules[i].number;
    }
}

/// Whoever reads what was lent for the call alone after it is found out.
TEST(Contract, HoldsForAClientThatKeepsItAndSpoilsTheRecordsThatAreLent) {
    Client client;
    client.Execute();
    const auto isSpoiled = [](const auto& record) {
        const std::string_view bytes(reinterpret_cast<const char*>(&record), sizeof record);
        return bytes.find_first_not_of('\xA5') == bytes.npos;
    };
    EXPECT_TRUE(isSpoiled(client.request));
    EXPECT_TRUE(isSpoiled(client.inputSets[0]) && isSpoiled(client.outputSet));
    EXPECT_TRUE(isSpoiled(client.inputs[0]));
    client.Play(kRest);
    client.End();
    EXPECT_EQ(client.device->Violations(), Texts());
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
        device->WaitIdle();
        EXPECT_EQ(request.Events().back().kind, "complete");
        EXPECT_EQ(device->CallCount(Entry::ExecuteRequest), seen);
        request.GiveBack(camera);
        camera.Destroy();
        device->Reset();
    }
}

} // namespace
