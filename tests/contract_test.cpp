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
using standin::Rule;
using Names = std::vector<std::pair<const char*, const void*>>; ///< Of handles and addresses.

constexpr uint32_t kWidth = 64;
constexpr uint32_t kHeight = 32;

/// The rule's violation is the only one. It shows handles and addresses by their names.
void ExpectViolation(Rule rule, const std::string& values, const Names& names) {
    Texts violations = StandinControl()->Violations();
    for (const auto& [name, address] : names) {
        for (std::string& violation : violations) {
            violation = WithName(violation, address, name);
        }
    }
    const standin::RuleText& text = standin::TextOf(rule);
    EXPECT_EQ(violations, Texts{Printed("%s %s: %s", text.number, text.name, values.c_str())});
}

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
    ChiBufferManagerCreateData managerData = {.width = kWidth,
                                              .height = kHeight,
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
    /// in its place, s closes it, a releases the Android metadata, m destroys the metadata, t closes
    /// their table, i releases the image, b destroys its manager, g gets another image of that, p
    /// asks for the image's address, and x destroys it as if it was metadata.
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

/// A rule, what a client does that breaks it, what the violation then says, and how the client ends.
struct Row {
    Rule rule;
    void (*breakIt)(Client& client);
    const char* values;
    const char* rest = kRest;
};
constexpr void (*kAsUsual)(Client&) = [](Client&) {};

/// What a client changes before it opens its session,
constexpr Row kOpenRows[]{
    {Rule::SessionRecord, [](Client& client) { client.createInfo.pSessionName = nullptr; },
     "the create record, its name or its callbacks are null", "amtib"},
    {Rule::SessionRecord, [](Client& client) { client.callbacks.ProcessNotifyCb = nullptr; },
     "a callback is null", "amtib"},
    {Rule::SessionRecord, [](Client& client) { client.createInfo.sharedSessionHandle = 7; },
     "the shared handle is 7 and must be 0"},
};

/// before it configures it,
constexpr Row kConfigureRows[]{
    {Rule::Configuration, [](Client& client) { client.streams[1] = nullptr; }, "stream 1 is null"},
    {Rule::Configuration, [](Client& client) { client.config.pCameraText = "front"; },
     "the camera's text is 'front' and must be a number"},
    {Rule::StreamTypes, [](Client& client) { client.yuv.streamType = ChiStreamTypeInput; },
     "a stream's type is 1 and must be 0"},
    {Rule::StreamWords, [](Client& client) { client.raw.reserved152 = 0; },
     "a stream's word at 152 is 0 and must be -1"},
    {Rule::SessionSettings,
     [](Client& client) {
         client.OpenAnother();
         client.config.pSessionSettings = nullptr;
     },
     "the session settings are null"},
};

/// and before it executes its request.
constexpr Row kExecuteRows[]{
    {Rule::RequestSession,
     [](Client& client) {
         client.OpenAnother();
         client.request.numInputs = 0;
     },
     "a session's being configured is 0 and must be 1"},
    {Rule::RequestRecord, [](Client& client) { client.request.pLastFrameField = nullptr; },
     "the request or one of its frame fields is null"},
    {Rule::RequestRecord, [](Client& client) { client.request.pInputs = nullptr; },
     "the number of input sets is 0 and must be 1"},
    {Rule::RequestRecord, [](Client& client) { client.inputSets[0].pBuffers = nullptr; },
     "the number of inputs is 0 and must be 1"},
    {Rule::FramePreset, [](Client& client) { client.frame = 5; },
     "the preset of the offline frame is 5 and must be -1"},
    {Rule::FramePreset, [](Client& client) { client.frame = 0; },
     "the preset of the offline frame is 0 and must be -1"},
    {Rule::InputRecord, [](Client& client) { client.inputs[0].size = 200; },
     "an input's size is 200 and must be 208"},
    {Rule::InputRecord, [](Client& client) { client.inputs[0].bufferType = 1; },
     "an input's type is 1 and must be 2"},
    {Rule::InputRecord, [](Client& client) { client.inputs[0].bufferStatus = 1; },
     "an input's status is 1 and must be 0"},
    {Rule::InputStream, [](Client& client) { client.raw.streamType = ChiStreamTypeOutput; },
     "an input stream's type is 0 and must be 1"},
    {Rule::InputStream, [](Client& client) { client.inputs[0].pStream = nullptr; },
     "input stream (nil) is not in the session's list"},
    {Rule::InputStream, [](Client& client) { client.inputSets[0].numBuffers = 2; },
     "input stream <raw> is fed twice by one set"},
    {Rule::InputManager, [](Client& client) { client.inputs[0].pBufferManager = nullptr; },
     "an input's manager is (nil) and must be <manager> of kind 'B'"},
    {Rule::InputFormat, [](Client& client) { client.inputs[0].pInputFormat = nullptr; },
     "the presence of a format record is 0 and must be 1"},
    {Rule::InputFormat,
     [](Client& client) {
         client.Play("ib");
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
    {Rule::SetMetadata, [](Client& client) { client.inputSets[0].pMetadata = nullptr; },
     "set 0 has no metadata"},
    {Rule::SetMetadata, [](Client& client) { client.Mark({.cameraId = 0, .index = 1}); },
     "the set of a set's metadata is 1 and must be 0"},
    {Rule::SetMetadata, [](Client& client) { client.Mark({.cameraId = 1, .index = 0}); },
     "the camera of a set's metadata is 0 and must be 1"},
    {Rule::SetMetadata, [](Client& client) { client.outputSet.pMetadata = client.metadata; },
     "the output has the metadata of a set"},
    {Rule::SetMetadata, [](Client& client) { client.request.numInputs = 2; },
     "set 1 has the metadata of another set"},
};

constexpr Row kObjectRows[]{
    {Rule::OpenArguments, [](Client&) { kit::OpenOfflineInterface(511); },
     "OpenContext: the second argument is 511 and must be 512"},
    {Rule::LoggerOperations,
     [](Client&) {
         ZOfflineLogOps operations = {};
         ZLog::SetOfflineLoggerOps(&operations);
     },
     "SetOfflineLoggerOps: the operations are not filled"},
    {Rule::SessionOpen, kAsUsual,
     "ExecuteRequest: <session> of kind 'S' is not a live session: destroyed", "sEamtib"},
    {Rule::SessionOpen,
     [](Client& client) { client.pInterface->pConfigureStreams(1000, &client.config); },
     "ConfigureStreams: 0x3e8 is not a live session: never existed"},
    {Rule::SessionClosed, kAsUsual,
     "CloseSession: <session> of kind 'S' is not a live session: destroyed twice", "ssamtib"},
    {Rule::SessionClosed, kAsUsual,
     "at the end: 1 session left, such as <session> of kind 'S' \"Night\"", "amtib"},
    {Rule::SessionCloser,
     [](Client& client) {
         client.device->SetDelivery(Delivery::OnSessionThread);
         client.onResult = [&client] { client.CloseSession(); };
         client.Execute();
         client.device->WaitIdle();
     },
     "CloseSession: a session's own thread closes it", "amtib"},
    {Rule::Configuration,
     [](Client& client) { client.pInterface->pConfigureStreams(client.session, nullptr); },
     "ConfigureStreams: the configuration record is null"},
    {Rule::Translation,
     [](Client& client) { client.pInterface->pTranslateToChiBuffer(nullptr, &client.output); },
     "TranslateToChiBuffer: a buffer is null"},
    {Rule::Translation,
     [](Client& client) { client.pInterface->pTranslateFromChiBuffer(&client.output, nullptr); },
     "TranslateFromChiBuffer: a buffer is null"},
    {Rule::MetadataWords, [](Client& client) { client.Destroy(client.CreateMetadata(3)); },
     "MetadataCreate: the last word is 3 and must be 0"},
    {Rule::MetadataWords,
     [](Client& client) {
         auto* const ops = client.pMetadataOps;
         client.Destroy(ops->pCreateFromAndroid(ops, nullptr, 0, 0, 1));
     },
     "MetadataCreateFromAndroid: the words are 0, 0, 1 and must be 0, 0, 4294967295"},
    {Rule::MetadataWords, [](Client& client) { client.Release(client.CreateAndroid(0)); },
     "MetadataCreateAndroid: the first word is 0 and must be 1"},
    {Rule::MetadataWords,
     [](Client& client) {
         client.metadataInfo.reserved8 = 1;
         auto* ops = client.pInterface->pOpenMetadataOps(client.pInterface, &client.metadataInfo);
         ops->pClose(ops);
     },
     "OpenMetadataOps: the words behind the camera id must be 1, 0, 1"},
    {Rule::MetadataAlive, kAsUsual,
     "ExecuteRequest: <metadata> of kind 'M' is not a live metadata object: destroyed", "mEsatib"},
    {Rule::MetadataDestroyed, kAsUsual,
     "MetadataDestroy: <metadata> of kind 'M' is not a live metadata object: destroyed twice",
     "msamtib"},
    {Rule::MetadataDestroyed, kAsUsual,
     "MetadataDestroy: <image> of kind 'I' is not a live metadata object: never existed",
     "xsamtib"},
    {Rule::MetadataDestroyed, kAsUsual,
     "at the end: 1 metadata object left, such as <metadata> of kind 'M'", "satib"},
    {Rule::AndroidMetadataReleased, kAsUsual,
     "MetadataReleaseAndroid: <android> of kind 'A' is not a live Android metadata object: "
     "destroyed twice",
     "asamtib"},
    {Rule::AndroidMetadataReleased, kAsUsual,
     "at the end: 1 Android metadata object left, such as <android> of kind 'A'", "smtib"},
    {Rule::ManagerRecord,
     [](Client& client) {
         client.managerData.reserved52 = 4;
         client.pBufferOps->pDestroy(client.CreateManager("raw"));
     },
     "BufferManagerCreate: the word at 52 is 4 and must be 5"},
    {Rule::ManagerRecord, [](Client& client) { client.CreateManager(nullptr); },
     "BufferManagerCreate: the name or the create record is null"},
    {Rule::ManagerAlive, kAsUsual,
     "GetImageBuffer: <manager> of kind 'B' is not a live buffer manager: destroyed", "ibgsamt"},
    {Rule::ManagerDestroyed, kAsUsual,
     "BufferManagerDestroy: <manager> of kind 'B' is not a live buffer manager: destroyed twice",
     "samtibb"},
    {Rule::ManagerDestroyed, kAsUsual,
     "at the end: 1 buffer manager left, such as <manager> of kind 'B'", "samti"},
    {Rule::ImageAlive, kAsUsual,
     "GetCPUAddress: <image> of kind 'I' is not a live image buffer: destroyed", "ipsamtb"},
    {Rule::ImageReleased, kAsUsual,
     "ReleaseImageBuffer: <image> of kind 'I' is not a live image buffer: destroyed twice",
     "isamtib"},
    {Rule::ImageReleased, kAsUsual,
     "BufferManagerDestroy: the number of image buffers left is 1 and must be 0", "samtb"},
    {Rule::TableOpen, kAsUsual,
     "MetadataOpsClose: <metadata ops> is not a live operation table: destroyed twice", "samttib"},
    {Rule::TableOpen, kAsUsual, "at the end: 1 operation table left, such as <metadata ops>",
     "samib"},
};

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
    host::RequestWatch watch{"camera 0, request 3"};

    Watched() {
        device.ExpectLeftovers();
        watch.Expect(
            {.frameNumber = 101, .partialNumber = 257, .stream = &stream, .buffer = &handle});
    }
    /// Calls the watch: M is the result, R the release, C the completion with a status, S the
    /// submission's return with its own, X the end of the camera.
    void Play(std::string_view calls) {
        for (size_t i = 0; i < calls.size(); ++i) {
            calls[i] == 'M'   ? watch.OnResult(both)
            : calls[i] == 'R' ? watch.OnRelease()
            : calls[i] == 'C' ? watch.OnCompletion(calls[++i] - '0')
            : calls[i] == 'S' ? watch.OnSubmitted(calls[++i] - '0')
                              : watch.OnClosed();
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

/// Of the vendor's side, in a client's whole life. `call` is what the client plays after each row,
/// with its name in the violation.
void ExpectViolations(std::span<const Row> rows, const std::string& name = "",
                      std::string_view call = "") {
    for (const Row& row : rows) {
        Client client;
        const Names names = {{"<raw>", &client.raw},
                             {"<yuv>", &client.yuv},
                             {"<metadata ops>", client.pMetadataOps},
                             {"<metadata>", client.metadata},
                             {"<android>", client.android},
                             {"<manager>", client.manager},
                             {"<image>", client.image},
                             {"<session>", MadeUp(client.session)}};
        row.breakIt(client);
        client.Play(call);
        client.Play(row.rest);
        client.End();
        ExpectViolation(row.rule, name + row.values, names);
    }
}

TEST(Contract, RulesOfRecordsAreSeenFailing) {
    ExpectViolations(kOpenRows, "OpenSession: ", "o");
    ExpectViolations(kConfigureRows, "ConfigureStreams: ", "C");
    ExpectViolations(kExecuteRows, "ExecuteRequest: ", "E");
}

TEST(Contract, RulesOfSessionsAndObjectsAreSeenFailing) { ExpectViolations(kObjectRows); }

TEST(Contract, RulesOfTheHostAreSeenFailing) {
    for (const HostRow& row : kHostRows) {
        Watched watched;
        row.change(watched);
        watched.Play(row.calls);
        ExpectViolation(row.rule, std::string("camera 0, request 3: ") + row.values,
                        {{"<stream>", &watched.stream},
                         {"<buffer>", &watched.handle},
                         {"<other>", &watched.otherHandle},
                         {"<buffers>", watched.buffers}});
    }
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
    for (size_t i = 0; i < standin::kRules.size(); ++i) {
        EXPECT_TRUE(seen.contains(static_cast<Rule>(i))) << standin::kRules[i].number;
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
