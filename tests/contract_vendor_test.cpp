/// The rules for the vendor's side: each is seen failing, alone, and holding where all but seems
/// wrong.

#include "platform/maker/zlog.h"
#include "tests/support/conduct.h"

#include <array>
#include <span>

namespace {

using namespace test;

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
    ChiStream second = MakeChiStream(ChiStreamTypeInput, ChiStreamFormatYCbCr420_888);
    ChiStream* streams[3] = {&raw, &yuv}; ///< Two of them are listed.
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

    /// Lists the second input, too, and first.
    void ListBoth() {
        config.numStreams = 3;
        std::copy_n(std::array{&second, &raw, &yuv}.begin(), 3, streams);
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
constexpr const char kConfiguredAndExecuted[] = "CEsamtib";

/// What a client changes before it opens its session,
constexpr Row<Client> kOpenRows[]{
    {Rule::SessionRecord, "oamtib", "the create record, its name or its callbacks are null",
     [](Client& client) { client.createInfo.pSessionName = nullptr; }},
    {Rule::SessionRecord, "oamtib", "a callback is null",
     [](Client& client) { client.callbacks.ProcessNotifyCb = nullptr; }},
    {Rule::SessionRecord, "oamtib", "a callback is null",
     [](Client& client) { client.callbacks.ProcessCaptureResultCb = nullptr; }},
    {Rule::SessionRecord, "oamtib", "a callback is null",
     [](Client& client) { client.callbacks.GetFrameworkBuffers = nullptr; }},
    {Rule::SessionRecord, "osamtib", "the callbacks' fourth word is <raw> and must be (nil)",
     [](Client& client) { client.callbacks.reserved24 = &client.raw; }},
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
    {Rule::StreamWords, kConfigured, "a stream's word at 148 is 1 and must be 0",
     [](Client& client) { client.raw.reserved148 = 1; }},
    {Rule::SessionSettings, "oCsamtib", "the session settings are null",
     [](Client& client) { client.config.pSessionSettings = nullptr; }},
    {Rule::SessionSettings, kConfigured, kHolds, // It has them from the first time.
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
    {Rule::RequestRecord, kExecuted, "the last word is 7 and must be 0",
     [](Client& client) { client.request.reserved48 = 7; }},
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
    {Rule::InputStream, kConfiguredAndExecuted, kHolds, // Two of them, once each.
     [](Client& client) {
         client.second = client.raw;
         client.ListBoth();
         client.inputs[1].pStream = &client.second;
         client.inputSets[0].numBuffers = 2;
     }},
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
    {Rule::InputFormat, kExecuted, "a format record's word at 4 is 3 and must be 0",
     [](Client& client) { client.format.reserved4 = 3; }},
    {Rule::InputFormat, "ibBCEsamtib", kHolds,
     [](Client& client) {
         client.raw.format = client.managerData.format = ChiStreamFormatRaw16;
         client.format.bufferFormat = ChiFormatRaw16;
     }},
    {Rule::InputFormat, kConfiguredAndExecuted, kHolds, // The other one's would be YUV.
     [](Client& client) { client.ListBoth(); }},
    {Rule::FilterPattern, kExecuted, "an input's filter pattern is 77 and must be 2",
     [](Client& client) { client.format.cfaPattern = 77; }},
    {Rule::Output, kExecuted, "the number of outputs is 0 and must be 1",
     [](Client& client) { client.outputSet.numBuffers = 0; }},
    {Rule::Output, kExecuted, "the output's stream is <raw> and must be <yuv>",
     [](Client& client) { client.output.pStream = &client.raw; }},
    {Rule::Memory, kExecuted, "the output buffer's memory is 12 bytes and must be 3072",
     [](Client& client) { client.output.bufferHandle = client.tooSmall.Reference(); }},
    {Rule::Memory, kConfiguredAndExecuted,
     "an image of 64x32 and format 37 is an input of a stream of 32x32 and format 37",
     [](Client& client) { client.raw.width = 32; }},
    {Rule::SetMetadata, kExecuted, "set 0 has no metadata",
     [](Client& client) {
         auto* const ops = client.pMetadataOps; // Which gave the host some.
         client.Destroy(ops->pCreateWithUsage(ops, nullptr, 0, 0));
         client.inputSets[0].pMetadata = nullptr;
     }},
    {Rule::SetMetadata, kExecuted, kHolds, // The host was given none.
     [](Client& client) { client.inputSets[0].pMetadata = nullptr; }},
    {Rule::SetMetadata, kExecuted, kHolds, // A tag of the device's, and no whole mark.
     [](Client& client) {
         const standin::SetMark other = {.cameraId = 1, .index = 1};
         client.pMetadataOps->pSetTag(client.metadata, 5, &other, sizeof other, 0);
         client.pMetadataOps->pSetTag(client.metadata, standin::kSetMarkTag, &other, 4, 0);
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
    {Rule::Translation, kRest, kHolds,
     [](Client& client) {
         const camera3_stream_buffer source = {.stream = Conduct::AsStream(&client.yuv)};
         client.pInterface->pTranslateToChiBuffer(&source, &client.output);
     }},
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
    {Rule::MetadataAlive, "satib",
     "MetadataSetTag: <metadata> is not a live metadata object: destroyed",
     [](Client& client) {
         client.Destroy(client.metadata);
         client.Mark({});
     }},
    {Rule::MetadataDestroyed, "msamtib",
     "MetadataDestroy: <metadata> is not a live metadata object: destroyed twice"},
    {Rule::MetadataDestroyed, "xsamtib",
     "MetadataDestroy: <image> is not a live metadata object: never existed"},
    {Rule::MetadataDestroyed, "satib", "at the end: 1 metadata object left, such as <metadata>"},
    {Rule::MetadataDestroyed, "satib", "at the end: 2 metadata objects left, such as <metadata>",
     [](Client& client) { client.CreateMetadata(0); }},
    {Rule::AndroidMetadataReleased, "asamtib",
     "MetadataReleaseAndroid: <android> is not a live Android metadata object: "
     "destroyed twice"},
    {Rule::AndroidMetadataReleased, "smtib",
     "at the end: 1 Android metadata object left, such as <android>"},
    {Rule::ManagerRecord, "ibBsamtib", "BufferManagerCreate: the word at 52 is 4 and must be 5",
     [](Client& client) { client.managerData.reserved52 = 4; }},
    {Rule::ManagerRecord, "ibBsamtib",
     "BufferManagerCreate: the word at 16 is 1 and must be 262146",
     [](Client& client) { client.managerData.reserved16 = 1; }},
    {Rule::ManagerRecord, "ibBsamtib",
     "BufferManagerCreate: the word at 24 is 1 and must be 131106",
     [](Client& client) { client.managerData.reserved24 = 1; }},
    {Rule::ManagerRecord, "ibBsamtib", "BufferManagerCreate: the word at 40 is 1 and must be 32",
     [](Client& client) { client.managerData.reserved40 = 1; }},
    {Rule::ManagerRecord, "ibBsamtib", "BufferManagerCreate: the word at 48 is 2 and must be 1",
     [](Client& client) { client.managerData.reserved48 = 2; }},
    {Rule::ManagerRecord, "ibBsamtib",
     "BufferManagerCreate: a word at 12, 32, 36 or 44 is 8 and must be 0",
     [](Client& client) { client.managerData.reserved36 = 8; }},
    {Rule::ManagerRecord, kRest, "BufferManagerCreate: the name or the create record is null",
     [](Client& client) { client.pBufferOps->pCreate(client.pBufferOps, "raw", nullptr); }},
    {Rule::ManagerRecord, kRest, "BufferManagerCreate: the name or the create record is null",
     [](Client& client) { client.CreateManager(nullptr); }},
    {Rule::ManagerAlive, "ibgsamt",
     "GetImageBuffer: <manager> is not a live buffer manager: destroyed"},
    {Rule::ManagerAlive, kRest, kHolds, // None, from a create that failed.
     [](Client& client) { client.pBufferOps->pGetImageBuffer(nullptr); }},
    {Rule::ManagerDestroyed, kRest, kHolds,
     [](Client& client) { client.pBufferOps->pDestroy(nullptr); }},
    {Rule::ManagerDestroyed, "samtibb",
     "BufferManagerDestroy: <manager> is not a live buffer manager: destroyed twice"},
    {Rule::ManagerDestroyed, "samti", "at the end: 1 buffer manager left, such as <manager>"},
    {Rule::ImageAlive, "ipsamtb", "GetCPUAddress: <image> is not a live image buffer: destroyed"},
    {Rule::ImageReleased, "isamtib",
     "ReleaseImageBuffer: <image> is not a live image buffer: destroyed twice"},
    {Rule::ImageReleased, "samtb",
     "BufferManagerDestroy: the number of image buffers left is 1 and must be 0"},
    {Rule::ImageReleased, kRest, kHolds, // Its own manager is not destroyed.
     [](Client& client) { client.pBufferOps->pDestroy(client.CreateManager("other")); }},
    {Rule::TableOpen, "samttib",
     "MetadataOpsClose: <metadata ops> is not a live operation table: destroyed twice"},
    {Rule::TableOpen, "samib", "at the end: 1 operation table left, such as <metadata ops>"},
};

/// What violations of several rows say.
constexpr const char kNoRecord[] =
    "OpenSession: the create record, its name or its callbacks are null";
constexpr const char kNoSettings[] = "ConfigureStreams: the session settings are null";
constexpr const char kNoFields[] = "ExecuteRequest: the request or one of its frame fields is null";
constexpr const char kNotConfigured[] =
    "ExecuteRequest: a session's being configured is 0 and must be 1";
constexpr const char kPreset5[] =
    "ExecuteRequest: the preset of the offline frame is 5 and must be -1";
constexpr const char kNoMetadata[] = "ExecuteRequest: set 0 has no metadata";
constexpr const char kOpenWords[] =
    "OpenMetadataOps: the words behind the camera id must be 1, 0, 1";
constexpr const char kNoRequest[] =
    "ProcessCaptureResultCb: the private data <request> is that of no request of the session";

constexpr Row<Conduct> kVendorRows[]{
    {Rule::OpenArguments, "", "OpenContext: the first argument is <lent> and must be (nil)",
     [](Conduct& vendor) {
         vendor.tap.Around<contract::Entry::OpenContext>([] { return static_cast<void*>(nullptr); },
                                                         static_cast<void*>(&vendor.lent), 512U);
     }},
    {Rule::SessionRecord, "o", kNoRecord, [](Conduct& vendor) { vendor.pCreateInfo = nullptr; }},
    {Rule::SessionRecord, "o", kNoRecord,
     [](Conduct& vendor) { vendor.createInfo.pCallbacks = nullptr; }},
    {Rule::SessionOpen, "ox(c)", "ConfigureStreams: 0x4d is not a live session: destroyed"},
    {Rule::SessionOpen, "ocXe", kHolds},
    {Rule::SessionOpen, "ocx(oc)er", kHolds}, // Another one has its handle.
    {Rule::SessionClosed, "oxx", "CloseSession: 0x4d is not a live session: destroyed twice"},
    {Rule::Configuration, "oc", "ConfigureStreams: the camera's text is '' and must be a number",
     [](Conduct& vendor) { vendor.config.pCameraText = nullptr; }},
    {Rule::Configuration, "oc", kHolds,
     [](Conduct& vendor) { vendor.config.ppChiStreams = nullptr; }},
    {Rule::SessionSettings, "toc", kNoSettings, Conduct::ProvideSettings},
    {Rule::SessionSettings, "toc", kHolds}, // There is no entry that makes them,
    {Rule::SessionSettings, "toc", kHolds,  // nor one for this camera,
     [](Conduct& vendor) {
         Conduct::ProvideSettings(vendor);
         vendor.openInfo.cameraId = 1;
     }},
    {Rule::SessionSettings, "toac", kNoSettings},
    {Rule::SessionSettings, "toAac", kNoSettings},
    {Rule::SessionSettings, "taoc", kHolds},  // or they were another session's,
    {Rule::SessionSettings, "toaAc", kHolds}, // or the last could not be made:
    {Rule::SessionSettings, "toaaaaaaaaaaaaaaaaAc", kHolds},
    {Rule::SessionSettings, "to&Ac", kNoSettings, Conduct::ProvideSettings}, // but for another.
    {Rule::RequestRecord, "oce", kNoFields, [](Conduct& vendor) { vendor.pRequest = nullptr; }},
    {Rule::RequestRecord, "oce", kNoFields,
     [](Conduct& vendor) { vendor.request.pOfflineFrameNumber = nullptr; }},
    {Rule::RequestSession, "oCe", kNotConfigured},
    {Rule::RequestSession, "oc(xo)e", kNotConfigured}, // Another one with its handle was.
    {Rule::FramePreset, "oce!e", kPreset5, Conduct::PresetsFive},
    {Rule::FramePreset, "oc&e!e", kHolds, Conduct::PresetsFive},   // Another thread's may be there,
    {Rule::FramePreset, "oc&E!e", kPreset5, Conduct::PresetsFive}, // unless it got none,
    {Rule::FramePreset, "oce(!e)", kHolds, Conduct::PresetsFive},  // or while it works.
    {Rule::Output, "ocer", "ExecuteRequest: the number of outputs is 0 and must be 1",
     [](Conduct& vendor) { vendor.request.pOutput = nullptr; }},
    {Rule::Output, "oce", kHolds, [](Conduct& vendor) { vendor.buffer = {}; }},
    {Rule::Output, "oce", "ExecuteRequest: the output's size is 0 and must be 208",
     [](Conduct& vendor) { vendor.buffer.size = 0; }},
    {Rule::Output, "oce", "ExecuteRequest: the output's stream is (nil) and must be <output>",
     [](Conduct& vendor) { vendor.buffer.pStream = nullptr; }},
    {Rule::SetMetadata, "tuoce", kNoMetadata, Conduct::LeaveSetWithoutMetadata},
    {Rule::SetMetadata, "tmoce", kHolds, Conduct::LeaveSetWithoutMetadata},
    {Rule::SetMetadata, "tuUoce", kHolds, Conduct::LeaveSetWithoutMetadata},
    {Rule::SetMetadata, "tuUocee", kNoMetadata, Conduct::LeaveSetWithoutMetadata},
    {Rule::SetMetadata, "tuoce", kHolds, // That was another camera's host,
     [](Conduct& vendor) {
         Conduct::LeaveSetWithoutMetadata(vendor);
         vendor.openInfo.cameraId = 1;
     }},
    {Rule::SetMetadata, "tu!tUocee", kNoMetadata, // and this may have been, of one table for two.
     [](Conduct& vendor) {
         Conduct::LeaveSetWithoutMetadata(vendor);
         vendor.act = [&vendor] { vendor.openInfo.cameraId = 1; };
     }},
    {Rule::SetMetadata, "tmoce", kHolds,
     [](Conduct& vendor) { vendor.outputSet.pMetadata = MadeUp(0x4D); }},
    {Rule::MetadataAlive, "toce",
     "ExecuteRequest: 0x4d is not a live metadata object: never existed",
     [](Conduct& vendor) { vendor.outputSet.pMetadata = MadeUp(0x4D); }},
    {Rule::MetadataWords, "t", kOpenWords, [](Conduct& vendor) { vendor.pOpenInfo = nullptr; }},
    {Rule::MetadataWords, "t", kOpenWords, [](Conduct& vendor) { vendor.openInfo.reserved4 = 2; }},
    {Rule::MetadataWords, "t", kOpenWords, [](Conduct& vendor) { vendor.openInfo.reserved12 = 2; }},
    {Rule::MetadataWords, "tm", "MetadataCreate: the source is <lent> and must be (nil)",
     [](Conduct& vendor) { vendor.source = &vendor.lent; }},
    {Rule::MetadataWords, "ta",
     "MetadataCreateFromAndroid: the words are 1, 0, 4294967295 and must be 0, 0, 4294967295",
     [](Conduct& vendor) { vendor.words[0] = 1; }},
    {Rule::MetadataWords, "ta",
     "MetadataCreateFromAndroid: the words are 0, 1, 4294967295 and must be 0, 0, 4294967295",
     [](Conduct& vendor) { vendor.words[1] = 1; }},
    {Rule::StreamsKept, "oc(!)", kHolds, Conduct::ListsOther}, // That is another one.
    {Rule::FrameWritten, "oce(!)", kHolds,                     // The other field is.
     [](Conduct& vendor) {
         vendor.written = -1;
         vendor.act = [&vendor] { ++vendor.lastFrame; };
     }},
    {Rule::FrameWritten, "oce(!e)", kHolds, // By which of two cannot be told.
     [](Conduct& vendor) {
         vendor.written = -1;
         vendor.act = [&vendor] { vendor.request.pPrivateData = &vendor.others; };
     }},
    {Rule::CallbackSession, "Or",
     "ProcessCaptureResultCb: <callbacks> are the callbacks of no open session"},
    {Rule::CallbackSession, "o(q)", kHolds},
    {Rule::CallbackSession, "oceXr", kHolds},
    {Rule::CallbackSession, "oce2ox1r", kHolds},
    {Rule::ResultRequest, "ocexocr", kNoRequest},
    {Rule::ResultRequest, "oce2ocr", kNoRequest},
    {Rule::RefusedRequest, "ocE(r)", "ExecuteRequest: status 1 after 1 results"},
    {Rule::RefusedRequest, "ocE(er)", kHolds}, // Of another one with its private data.
    {Rule::BufferQuery, "oq", kHolds},
    {Rule::BufferQuery, "oc(q)", "GetFrameworkBuffers: stream <other> is not the session's output",
     [](Conduct& vendor) { vendor.query.pStream = Conduct::AsStream(&vendor.other); }},
    {Rule::BufferQuery, "oc!Cq", kHolds, Conduct::ListsOther}, // The first is in force.
    {Rule::NewSession, "oo", "OpenSession: 0x4d is a live session already"},
    {Rule::NewObject, "tmm", "MetadataCreate: 0x4d is a live metadata object already"},
    {Rule::StreamsKept, "oc(!)",
     "ConfigureStreams: stream 0 has another type, size or format than before",
     [](Conduct& vendor) { vendor.act = [&vendor] { vendor.output.width = 32; }; }},
    {Rule::FrameWritten, "oce", "ExecuteRequest: the offline frame is still -1",
     [](Conduct& vendor) { vendor.written = -1; }},
    {Rule::CallbackSession, "ocexr",
     "ProcessCaptureResultCb: <callbacks> are the callbacks of no open session"},
    {Rule::CallbackSession, "ocer",
     "ProcessCaptureResultCb: <others> are the callbacks of no open session",
     [](Conduct& vendor) { vendor.pCaller = &vendor.others; }},
    {Rule::ResultRequest, "ocr",
     "ProcessCaptureResultCb: the private data <request> is that of no request of the session"},
    {Rule::RefusedRequest, "ocEr", "ProcessCaptureResultCb: a result after status 1"},
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
     [](Conduct& vendor) { vendor.query.pStream = Conduct::AsStream(&vendor.other); }},
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
        ExpectViolation(row, entry, names);
    }
}

TEST(Contract, RulesOfRecordsAreSeenFailing) {
    ExpectViolations(kOpenRows, "OpenSession: ");
    ExpectViolations(kConfigureRows, "ConfigureStreams: ");
    ExpectViolations(kExecuteRows, "ExecuteRequest: ");
}

TEST(Contract, RulesOfSessionsAndObjectsAreSeenFailing) { ExpectViolations(kObjectRows); }

TEST(Contract, RulesOfTheVendorAreSeenFailing) {
    for (const Row<Conduct>& row : kVendorRows) {
        Conduct vendor;
        row.change(vendor);
        vendor.Play(row.calls);
        ExpectViolation(row, "",
                        {{"<callbacks>", &vendor.callbacks},
                         {"<others>", &vendor.others},
                         {"<lent>", &vendor.lent},
                         {"<output>", &vendor.output},
                         {"<other>", &vendor.other},
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

TEST(Contract, EveryRuleOfTheVendorsSideHasARowHere) {
    ExpectARowForEach("VR", kOpenRows, kConfigureRows, kExecuteRows, kObjectRows, kVendorRows);
}

} // namespace
