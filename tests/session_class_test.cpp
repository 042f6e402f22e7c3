/// What names a session, the chain that holds one, and the adaptee's session operations one by one,
/// with the statuses that the table does not show.

#include "adapterlayer/oemlog.h"
#include "kit/heap.h"
#include "tests/support/scene.h"

// One thread: there is nobody to keep apart.
#pragma clang diagnostic ignored "-Wthread-safety-analysis"

namespace {

int g_untilFailure = -1; ///< Allocations that may fail; negative for no failure.

} // namespace

void* kit::Take(size_t size, HeapForm form, const void* /*caller*/) {
    const bool fails = form.mayFail && g_untilFailure >= 0 && g_untilFailure-- == 0;
    return fails ? nullptr : TakeFollowed(size, form);
}
void kit::Give(void* memory, HeapForm form) noexcept { GiveFollowed(memory, form); }

namespace {

using namespace test;
using namespace OemLayer;

/// An adaptee on the stand-in's interface, for what the table does not reach. It closes what the
/// test leaves open.
struct AdapteeScene {
    Device device;
    QcomAdaptee* adaptee = QcomAdaptee::Create(kit::OpenOfflineInterface(), 3);
    camera3_stream input = MakeStream(HAL_PIXEL_FORMAT_RAW10);
    camera3_stream output = MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888);
    OfflineSessionIdentitys identity = {&output, 3, "Night"};
    const camera_metadata* parameters = static_cast<const camera_metadata*>(MadeUp(0x77));

    AdapteeScene() { device->ClearRecords(); }
    ~AdapteeScene() {
        for (const standin::SessionCopy& session : device->Sessions()) {
            adaptee->CloseOfflineSessions(session.handle);
        }
        adaptee->CloseOfflineSessions(0);
        adaptee->Destroy();
    }
    AdapteeScene(const AdapteeScene&) = delete;
    AdapteeScene& operator=(const AdapteeScene&) = delete;

    unsigned long Open() {
        return static_cast<unsigned long>(adaptee->OpenOfflineSession("3", identity, nullptr));
    }
    uint32_t Prepare(unsigned long handle) {
        camera3_stream* inputs[] = {&input};
        return adaptee->PrepareOfflineConfig(1, inputs, &output, handle, parameters);
    }
    unsigned long OpenAndPrepare() {
        const unsigned long handle = Open();
        Prepare(handle);
        return handle;
    }
};

TEST(LogFlags, LetTheirOwnLevelThroughAlone) {
    uint32_t* const flags[] = {&g_logErrorEnabled, &g_logWarnEnabled, &g_logInfoEnabled,
                               &g_logVerboseEnabled};
    PlatformLoadFunctions functions = {};
    PlatformLoadContext(&functions);
    PlatFormIntCallbacks table = {};
    PlatformIntContext(&table, 0);
    for (size_t on = 0; on < std::size(flags); ++on) {
        Device device;
        device.ExpectViolations(); // The host asks for a tag of nothing.
        for (size_t i = 0; i < std::size(flags); ++i) {
            *flags[i] = i == on ? 1 : 0;
        }
        functions.loadLib();
        table.Create(&table, 0); // Errors and information,
        ChiStream stream = {.width = 8, .height = 8, .format = 40};
        table.ReleaseImageBuffer(&table, table.GetImageBuffer(&table, &stream)); // a warning,
        device->Fail(Entry::MetadataGetTag, 1);
        table.GetTag(&table, nullptr, 1, nullptr, 0); // and a verbose line.
        table.Destroy(&table);
        EXPECT_EQ(CountLogged({"EWIV"[on]}), device->Logs().size());
        EXPECT_FALSE(device->Logs().empty());
    }
    for (uint32_t* flag : flags) {
        *flag = 1;
    }
}

TEST(Identity, IsOrderedByStreamThenUnsignedCameraThenFeature) {
    camera3_stream streams[2] = {MakeStream(-1), MakeStream(HAL_PIXEL_FORMAT_RAW16)};
    const OfflineSessionIdentitys ascending[] = {
        {&streams[0], 0, ""},      {&streams[0], 0, "Night"},      {&streams[0], 0, "NightHdr"},
        {&streams[0], 0, "night"}, {&streams[0], 0, "n\x7f"},      {&streams[0], 0, "n\x80"},
        {&streams[0], 1, "A"},     {&streams[0], 0x7FFFFFFF, "A"}, {&streams[0], 0x80000000, "A"},
        {&streams[1], 0, ""},
    };
    for (const OfflineSessionIdentitys& a : ascending) {
        const OfflineSessionIdentitys copy = a;
        EXPECT_TRUE(copy == a);
        for (const OfflineSessionIdentitys& b : ascending) {
            EXPECT_EQ(copy < b, &a < &b) << a.featureName << ", " << b.featureName;
            EXPECT_EQ(copy == b, &a == &b) << a.featureName << ", " << b.featureName;
        }
    }
}

/// An identity whose name is two words, and what its hash is before it is turned around.
struct TwoWords {
    camera3_stream* stream;
    uint32_t cameraId;
    uint64_t head, tail;

    OfflineSessionIdentitys Identity() const {
        const uint64_t words[] = {head, tail};
        return {stream, cameraId, {reinterpret_cast<const char*>(words), sizeof words}};
    }
    uint64_t Sum() const { return __builtin_bswap64(IdentityKey(Identity()).Hash()); }
};

TEST(Identity, WithTheHashOfAnotherHasASessionOfItsOwn) {
    AdapteeScene scene;
    const TwoWords first{&scene.output, 3, 0x1234, 0x5678};
    camera3_stream otherStream = scene.output;
    SessionManagers registry(scene.adaptee);
    const auto find = [&](const TwoWords& words) {
        SessionInfo* info = nullptr;
        return registry.GetSessHandle(3, words.Identity(), {&scene.input}, 0, info);
    };
    const uint64_t handle = find(first);
    // The sum is linear: what the tail is multiplied with is odd, and can be divided by.
    const uint64_t factor = TwoWords{nullptr, 0, 0, 1}.Sum();
    uint64_t inverse = factor;
    for (int i = 0; i < 6; ++i) {
        inverse *= 2 - factor * inverse;
    }
    for (TwoWords other :
         {TwoWords{&otherStream, 3, 0x1234, 0}, TwoWords{&scene.output, 4, 0x1234, 0},
          TwoWords{&scene.output, 3, 0x1235, 0}}) {
        other.tail = (first.Sum() - other.Sum()) * inverse;
        ASSERT_EQ(IdentityKey(other.Identity()).Hash(), IdentityKey(first.Identity()).Hash());
        const uint64_t own = find(other);
        EXPECT_NE(own, handle);
        EXPECT_EQ(find(other), own);
        EXPECT_EQ(find(first), handle);
    }
    EXPECT_EQ(scene.device->CallCount(Entry::OpenSession), 4U);
    registry.Flush();
}

TEST(Registry, SaysThatThereIsNoSessionAndNoRecord) {
    AdapteeScene scene;
    SessionManagers registry(scene.adaptee);
    camera3_stream empty = MakeStream(HAL_PIXEL_FORMAT_RAW10);
    empty.width = 0;
    for (camera3_stream* const output : {static_cast<camera3_stream*>(nullptr), &empty}) {
        SessionInfo other;
        SessionInfo* info = &other;
        EXPECT_EQ(registry.GetSessHandle(3, {output, 3, "Night"}, {&scene.input}, 0, info), 0U);
        EXPECT_EQ(info, nullptr);
    }
}

TEST(Registry, FlushesAllAndReturnsTheStatusOfTheLastClose) {
    for (const uint32_t nth : {1U, 2U}) {
        AdapteeScene scene;
        SessionManagers registry(scene.adaptee);
        EXPECT_EQ(registry.Flush(), 0U);
        for (const char* feature : {"Night", "Hdr"}) {
            SessionInfo* info = nullptr;
            registry.GetSessHandle(3, {&scene.output, 3, feature}, {&scene.input}, 0, info);
        }
        scene.device->Fail(Entry::CloseSession, 8, nth, 1);
        EXPECT_EQ(registry.Flush(), nth == 2 ? 8U : 0U);
        EXPECT_EQ(scene.device->CallCount(Entry::CloseSession), 2U);
    }
}

TEST(SessionChain, OpensForTheCameraAndStreamThatItIsGiven) {
    for (const uint32_t cameraId : {0U, 4294967295U}) {
        AdapteeScene scene;
        SessionObjects chain({&scene.input, 5, "Night"});
        EXPECT_EQ(chain.GenerateOfflineSession(cameraId, scene.adaptee, &scene.output), 0U);
        const standin::SessionCopy session = scene.device->Sessions().at(0);
        EXPECT_EQ(session.name, Printed("session_of_camera_%u", cameraId));
        EXPECT_EQ(chain.GetSessionHandle(), session.handle);
        EXPECT_TRUE(chain.GetIdentity() ==
                    (OfflineSessionIdentitys{&scene.output, cameraId, "Night"}));
        scene.device->Fail(Entry::OpenSession, 0);
        EXPECT_EQ(chain.GenerateOfflineSession(6, scene.adaptee, &scene.input), 1U);
        EXPECT_EQ(chain.GetSessionHandle(), 0U);
        EXPECT_TRUE(chain.GetIdentity() == (OfflineSessionIdentitys{&scene.input, 6, "Night"}));
    }
}

TEST(SessionChain, ReportsAllThatIsMissingAndSucceedsWithoutAnAdaptee) {
    Device device;
    SessionObjects chain({nullptr, 5, "Night"});
    EXPECT_EQ(chain.Initialize(nullptr, {}, nullptr), 0U);
    EXPECT_EQ(Log("Initialize"),
              R"(E Offline camera device is null!!!
E Input stream size is 0!!!
E Configuration is null!!!
I Prepare config offline m_Sesshdle 0 pOutStream (nil) pInStreams size 0 pConfiguration (nil)
I Offline camera device is null, not configured offline m_Sesshdle )");
}

TEST(SessionChain, WithoutInputsIsConfiguredForItsOutputAlone) {
    AdapteeScene scene;
    SessionObjects chain(scene.identity);
    chain.GenerateOfflineSession(3, scene.adaptee, &scene.output);
    EXPECT_EQ(chain.Initialize(scene.adaptee, {}, scene.parameters), 0U);
    EXPECT_EQ(scene.device->Sessions().at(0).streamPointers,
              std::vector{reinterpret_cast<ChiStream*>(&scene.output)});
}

TEST(BufferFormat, FollowsTheStreamFormatAndIsYuvForTheUnknown) {
    for (const auto& [stream, buffer] :
         {std::pair{32U, 10U}, {33, 6}, {35, 3}, {37, 9}, {38, 26}, {34, 3}, {40, 3}}) {
        Device device;
        const auto format = static_cast<ChiStreamFormat>(stream);
        EXPECT_EQ(QcomAdaptee::MapChiStreamFormatToChiBufferFormat(format), buffer);
        const std::string line =
            Printed("E Unsurport streamFormat:%u return ChiFormatYUV420NV12 by default", stream);
        EXPECT_EQ(Log("MapChiStreamFormatToChiBufferFormat"),
                  stream == 34 || stream == 40 ? line : "");
    }
}

TEST(Preparation, FailsWithFiveWhereAListFindsNoMemory) {
    for (const int nth : {0, 1}) {
        AdapteeScene scene;
        const unsigned long handle = scene.Open();
        g_untilFailure = nth;
        EXPECT_EQ(scene.Prepare(handle), 5U);
        EXPECT_EQ(std::exchange(g_untilFailure, -1), -1);
    }
}

TEST(Preparation, FailsWithOneWhereAnInputIsNone) {
    AdapteeScene scene;
    scene.input.stream_type = CAMERA3_STREAM_INPUT;
    EXPECT_EQ(scene.Prepare(scene.Open()), 1U);
}

TEST(Preparation, ListsTheOutputOnceForEachResult) {
    AdapteeScene scene;
    const unsigned long handle = scene.Open();
    SessionInfo& info = *scene.adaptee->FindSessionInfo(handle);
    info.totalResult = 3;
    ChiStream input = {.format = ChiStreamFormatRaw10};
    ChiStream* inputs[] = {&input};
    EXPECT_EQ(scene.adaptee->DoPrepareOfflineConfig(1, inputs, &scene.output, &info.configInfo,
                                                    handle, scene.parameters),
              0U);
    ASSERT_EQ(info.configInfo.numStreams, 4U);
    const std::vector listed(info.pStreamList.get(), info.pStreamList.get() + 4);
    auto* const output = reinterpret_cast<ChiStream*>(&scene.output);
    EXPECT_EQ(listed, (std::vector{&input, output, output, output}));
}

TEST(HandleZero, NeedsTheVendorsEntriesButNotTheVendor) {
    AdapteeScene scene;
    scene.device->Fail(Entry::OpenSession, 0);
    scene.Open();
    scene.device->ClearRecords();
    EXPECT_EQ(scene.Prepare(0), 0U);
    EXPECT_EQ(scene.adaptee->ConfigStreams(0), 0U);
    EXPECT_EQ(scene.adaptee->CloseOfflineSessions(0), 0U);
    scene.adaptee->InitSessInfo(0, 1, "", "Night", nullptr); // There is no record any more.
    EXPECT_EQ(Log(), "");
    EXPECT_TRUE(scene.device->Calls().empty());
    scene.device->SetMissing(Entry::ConfigureStreams);
    scene.device->SetMissing(Entry::CloseSession);
    EXPECT_EQ(scene.adaptee->ConfigStreams(0), 1U);
    EXPECT_EQ(scene.adaptee->CloseOfflineSessions(0), 1U);
    QcomAdaptee* bare = QcomAdaptee::Create(nullptr, 3);
    EXPECT_EQ(bare->ConfigStreams(0), 1U);
    bare->Destroy();
}

TEST(Flush, FindsNoSessionsWhileTheAdapteeEnds) {
    Device device;
    static QcomAdaptee* ending;
    ending = QcomAdaptee::Create(kit::OpenOfflineInterface(), 3);
    ChiOfflineMetadataOps* const ops = ending->GetChiOfflineMetadataOps();
    static decltype(ops->pClose) close;
    close = std::exchange(ops->pClose, [](ChiOfflineMetadataOps* record) {
        ending->Flush();
        EXPECT_EQ(LastLog("Flush"), "E Flush X");
        close(record);
    });
    ending->Destroy();
    EXPECT_EQ(device->Calls(Entry::CloseSession).size(), 0U);
    EXPECT_EQ(device->Calls(Entry::MetadataOpsClose).size(), 1U);
}

TEST(UnknownHandle, FailsInEveryStepAndReachesNoVendor) {
    AdapteeScene scene;
    ChiOfflineSessionConfigInfo config = {};
    EXPECT_EQ(scene.Prepare(77), 1U);
    EXPECT_EQ(scene.adaptee->DoPrepareOfflineConfig(0, nullptr, &scene.output, &config, 77,
                                                    scene.parameters),
              1U);
    EXPECT_EQ(scene.adaptee->ConfigStreams(77), 1U);
    ExpectWords(config, {});
    EXPECT_TRUE(scene.device->Calls().empty());
}

TEST(Configuration, KeepsItsSettingsUntilItSucceedsAndDestroysThemOnce) {
    AdapteeScene scene;
    const unsigned long handle = scene.OpenAndPrepare();
    scene.device->Fail(Entry::ConfigureStreams, 7, 1, 1);
    EXPECT_EQ(scene.adaptee->ConfigStreams(handle), 7U);
    EXPECT_EQ(LastLog("ConfigStreams"), "E [oemlayer_stream] Configure Streams failed for usecase: "
                                        "Night for camera: 3 with opmode: 8");
    EXPECT_EQ(scene.device->CountAlive().metadata, 1U);
    EXPECT_EQ(scene.adaptee->ConfigStreams(handle), 0U);
    EXPECT_EQ(scene.adaptee->ConfigStreams(handle), 0U);
    EXPECT_EQ(scene.device->CallCount(Entry::MetadataDestroy), 1U);
}

TEST(Opening, NamesTheSessionThatTheNewOneShares) {
    AdapteeScene scene;
    scene.device.ExpectViolations(); // Through the table, none shares another.
    EXPECT_NE(scene.adaptee->DoOpenOfflineSession("3", "Night", nullptr, 77), 0);
    EXPECT_EQ(scene.device->Sessions().at(0).pCreateInfo->sharedSessionHandle, 77U);
}

TEST(Opening, OfAnIdentityThatIsThereLeavesBothSessionsAndTheFirstMapping) {
    AdapteeScene scene;
    const unsigned long first = scene.Open();
    EXPECT_EQ(scene.Open(), 0U);
    EXPECT_EQ(LastLog("OpenOfflineSession"),
              Printed("W identity{3, %p} already exist in  mRtLinkSessHdlMap,",
                      MadeUp(Address(&scene.output))));
    const uint64_t second = scene.device->Sessions().at(1).handle;
    EXPECT_EQ(scene.adaptee->CloseOfflineSessions(second), 0U);
    EXPECT_EQ(scene.Open(), 0U) << "the identity still has the first one";
    scene.adaptee->CloseOfflineSessions(first);
    EXPECT_NE(scene.Open(), 0U);
}

TEST(Closing, DestroysSettingsThatAreLeftWhileHandleAndIdentityStandForTheSession) {
    AdapteeScene scene;
    const unsigned long handle = scene.OpenAndPrepare();
    const void* settings = InfoOf(scene.device->Sessions().at(0)).configInfo.pSessionSettings;
    Once(scene.device.onEntry, "MetadataDestroy", [&] {
        EXPECT_NE(scene.adaptee->FindSessionInfo(handle), nullptr);
        EXPECT_EQ(scene.Open(), 0U) << "the identity is there";
    });
    EXPECT_EQ(scene.adaptee->CloseOfflineSessions(handle), 0U);
    EXPECT_EQ(CountLogged("W", "identity{3, "), 1U);
    EXPECT_EQ(Log("CloseOfflineSessions"),
              Printed("I close sessionHdl: %lu\nI destroy chimeta: %p", handle, settings));
    EXPECT_EQ(scene.device->CallCount(Entry::MetadataDestroy), 1U);
}

TEST(Closing, OfAnUnknownHandleThatTheVendorRefusesReturnsItsStatus) {
    AdapteeScene scene;
    scene.device.ExpectViolations(); // There is no such session.
    scene.device->Fail(Entry::CloseSession, 6);
    EXPECT_EQ(scene.adaptee->CloseOfflineSessions(77), 6U);
    EXPECT_EQ(Log("CloseOfflineSessions"),
              "E Failed to close session 6 for usecase non for camera non");
}

TEST(Closing, OfASessionThatWasFoundLeavesNothingToFind) {
    AdapteeScene scene;
    // Its chain stays and is closed once more at the end; without callbacks, metadata stays, too.
    scene.device.ExpectLeftovers();
    scene.device->SetDelivery(Delivery::OnCallerThread); // Nothing is in flight at the close.
    std::vector<camera3_stream*> inputs{&scene.input};
    RequestPrivData privData = {.inputStreams = inputs};
    OfflineDataWraper wrapper = {.identity = scene.identity};
    const auto submit = [&] {
        return scene.adaptee->SubmitRequestFromRT(&wrapper, &privData, nullptr, nullptr);
    };
    EXPECT_EQ(submit(), 0U);
    EXPECT_EQ(submit(), 0U);
    EXPECT_EQ(scene.adaptee->CloseOfflineSessions(scene.device->Sessions().at(0).handle), 0U);
    EXPECT_EQ(submit(), 4U);
    EXPECT_EQ(LastLog("SubmitRequestFromRT"),
              "E Invalid session handle or NULL session info in mSessInfoMap");
}

TEST(Completion, OfARequestWithoutPrivateDataFreesTheRequestAlone) {
    AdapteeScene scene;
    static std::string calls;
    OffCamApplicationCallbacks callbacks = {
        [](auto*) { calls += "release "; },
        [](auto* data, auto status) { calls += Printed("complete %p %u", data, status); },
        [](auto*, auto*) { calls += "result "; }};
    OfflineDataWraper wrapper = {};
    wrapper.mpOffCamAppCbs = &callbacks;
    scene.adaptee->InitParam(&wrapper);
    SessionInfo session;
    session.totalResult = 1;
    ChiStreamBuffer buffers[2] = {}; // Not on the heap: freeing one would end the test.
    buffers[1].bufferStatus = 1;
    auto* request = new OfflineRequest{.pInputBuffers = &buffers[0],
                                       .pOutputBuffer = &buffers[1],
                                       .pAdaptee = scene.adaptee,
                                       .inputCapacity = 1};
    ChiOfflineSessionCallbacks sessionCallbacks = {.pPrivateCallbackData = &session};
    ChiOfflineResultBlock block = {1, &buffers[1], 0, nullptr};
    ChiOfflineCaptureResultInfo info = {1, &block, nullptr, request};
    QcomAdaptee::ProcessCaptureResultCb(&sessionCallbacks, 1, &info);
    EXPECT_EQ(calls, "complete (nil) 1");
    const Texts lines = LogLines("ProcessCaptureResultCb");
    EXPECT_TRUE(lines.at(0).ends_with(" pLastCount 0")) << "it has no counter: " << lines.at(0);
    EXPECT_EQ(lines.at(1), "I Free up OC->OC metadata and buffers - pending");
}

/// What vendor code could only bring where its interface went away under a session.
TEST(WithoutTheVendor, ResultsAndBuffersComeUntranslatedAndNothingIsClosed) {
    Device device;
    QcomAdaptee* bare = QcomAdaptee::Create(nullptr, 3);
    static std::string calls;
    OffCamApplicationCallbacks callbacks = {
        [](auto*) { calls += "release "; },
        [](auto*, auto status) { calls += "complete " + std::to_string(status); },
        [](auto*, auto* result) {
            calls += Printed("result %p, %u buffers of %p ", result->result,
                             result->num_output_buffers, result->output_buffers->stream);
        }};
    camera3_callback_ops framework = {};
    framework.request_stream_buffers = [](const auto*, uint32_t count, const auto*,
                                          uint32_t* returned, auto* answers) {
        *returned = count;
        answers[0].num_output_buffers = 1;
        return 0;
    };
    OfflineDataWraper wrapper = {.pCamera3CbOps = &framework, .mpOffCamAppCbs = &callbacks};
    bare->InitParam(&wrapper);
    SessionInfo session;
    session.pAdaptee = bare;
    session.totalResult = 1;
    ChiOfflineSessionCallbacks sessionCallbacks = {.pPrivateCallbackData = &session};

    ChiStreamBuffer buffer = {};
    const ChiOfflineQueryBuffer query = {.numBuffers = 1};
    ChiOfflineQueryStreamBuffer returned = {.pBuffers = &buffer};
    EXPECT_EQ(QcomAdaptee::GetFrameworkBuffers(&sessionCallbacks, 1, &query, nullptr, &returned),
              0U);
    EXPECT_EQ(returned.numBuffers, 1U);
    ExpectWords(buffer, {});

    RequestPrivData privData = {};
    auto* request = new OfflineRequest{
        .pOutputMetadata = MadeUp(7), .pRtPrivData = &privData, .pAdaptee = bare};
    ChiOfflineResultBlock block = {1, &buffer, 0, MadeUp(7)};
    ChiOfflineCaptureResultInfo info = {1, &block, nullptr, request};
    QcomAdaptee::ProcessCaptureResultCb(&sessionCallbacks, 1, &info);
    EXPECT_EQ(calls, "result (nil), 1 buffers of (nil) release complete 0");
    EXPECT_EQ(bare->CloseOfflineSessions(77), 1U);
    EXPECT_TRUE(device->Calls(Entry::TranslateToChiBuffer).empty());
    bare->Destroy();
}

TEST(CaptureResult, NeedsItsResultMainBlockAndPrivateData) {
    AdapteeScene scene;
    RequestPrivData privData = {};
    ChiOfflineResultBlock block = {};
    ChiOfflineCaptureResultInfo info = {};
    EXPECT_EQ(scene.adaptee->ProcessOfflineCaptureResultCb(&privData, nullptr), 1U);
    EXPECT_EQ(scene.adaptee->ProcessOfflineCaptureResultCb(&privData, &info), 1U);
    info.pResult = &block;
    EXPECT_EQ(scene.adaptee->ProcessOfflineCaptureResultCb(nullptr, &info), 1U);
    EXPECT_EQ(scene.adaptee->ProcessOfflineCaptureResultCb(&privData, &info), 0U);
    EXPECT_EQ(CountLogged("I", "pResult:"), 3U);
}

} // namespace
