/// How the first request of an identity makes its session, how later ones find it, and how flush
/// and destruction close it, so that nothing of it stays.

#include "tests/support/scene.h"

#include <set>

namespace {

using namespace test;

std::string CalledEntries(const Scene& scene) {
    std::string entries;
    for (const standin::Call& call : scene.device->Calls()) {
        entries += std::string(" ") + standin::EntryName(call.entry);
    }
    return entries;
}

TEST(Session, IsOpenedPreparedAndConfiguredByItsFirstRequest) {
    Scene scene(Delivery::OnCallerThread, 2);
    scene.request.wrapper.identity.cameraId = 5;
    scene.request.raw.width = 96;
    Put(scene.request.wrapper, 96, 0x77);
    scene.device.ExpectViolations(); // The input buffer is not as wide.
    EXPECT_EQ(scene.Submit(), 0U);
    const std::string log = scene.Named(Log());
    const size_t start = log.find('\n') + 1;
    EXPECT_EQ(log.substr(start, log.find("I Submit", start) - start),
              R"(I GetSessHandle: pOutStream <out> cameraId 5 featureName Night
I GenerateOfflineSessions: Generate offline session for pStream(<out>) size (64 x 32) Started...
I GenerateOfflineSessions: Generate offline session for feature Night outputStream:<out> )"
              R"(phyCameraId:5 size (64 x 32) pInputStreams[1/1] <in> size (96 x 32) start
E FindOfflineInfo: find offline info Night success
I DoOpenOfflineSession: Shared session handle: 0
I DoOpenOfflineSession: Opened new session, sessionHdl: <session>
E FindOfflineInfo: find offline info Night success
E FindOfflineInfo: find offline info Night success
I OpenOfflineSession: [oemlayer_stream] offline session Night for cameraId:5 stream:<out> )"
              R"(sessHdl:<session>
I Initialize: Prepare config offline m_Sesshdle <session> pOutStream <out> pInStreams size 1 )"
              R"(pConfiguration 0x77
I PrepareOfflineConfig: [oemlayer_stream] Preparing streams for Night numInStreams 1
I PrepareOfflineConfig: [oemlayer_stream] Convert offline input streamIndex: pHalStream:<in> to )"
              R"(pChiStream:<stream 0>, type:0, format:37 size(96, 32)
I DoPrepareOfflineConfig: create chimeta: <settings> 
I DoPrepareOfflineConfig: [oemlayer_stream] Configuring offline input stream:<stream 0> format: )"
              R"(37, size(96, 32) at Index:0/1
I DoPrepareOfflineConfig: [oemlayer_stream] Buffer format for input stream Id 0 for session Night
I DoPrepareOfflineConfig: [oemlayer_stream] Configuring offline output stream:<out> format:35, )"
              R"(size(64, 32) at Index:0/1
I ConfigStreams: [oemlayer_stream] configure camera 5 with ppChiStreams: <list>
I ConfigStreams: destroy chimeta: <settings>
I GenerateOfflineSessions: Generate offline session for feature Night outputStream:<out> )"
              R"(phyCameraId:5 size (64 x 32) end
I GenerateOfflineSessions: Generate offline session for pStream(<out>) size (64 x 32) End...
I GenerateOfflineSessions: Supported session[1/1]: handle <session> cameraId 5 feature Night )"
              R"(for outputStream <out>
I GetSessHandle: Session handle <session> matched.
)");
    EXPECT_EQ(CalledEntries(scene),
              " TranslateToChiBuffer OpenSession MetadataCreateFromAndroid ConfigureStreams "
              "MetadataDestroy MetadataCreate ExecuteRequest TranslateFromChiBuffer "
              "MetadataCreateAndroid MetadataDestroy");
}

TEST(Session, TurnsAHostStreamIntoAVendorStream) {
    Scene scene;
    camera3_stream& raw = scene.request.raw;
    std::memset(reinterpret_cast<char*>(&raw) + 16, 0x5A, sizeof raw - 16);
    uint32_t expected[40] = {1, 64, 32, 37}; // An input from now on.
    for (const size_t word : {4, 5, 8, 9, 12, 13, 14, 15, 16}) {
        expected[word] = static_cast<uint32_t>(0x100 + word);
        std::memcpy(reinterpret_cast<char*>(&raw) + 4 * word, &expected[word], 4);
    }
    expected[32] = 2; // The vendor's colour filter pattern, in a stream that was cleared.
    expected[38] = 0xFFFFFFFF;
    raw.physical_camera_id = "wide";
    scene.Submit();

    const ChiStream stream = scene.Session().streams.at(0);
    for (const size_t word : {6, 10, 34}) { // Pointers.
        std::memcpy(&expected[word], reinterpret_cast<const char*>(&stream) + 4 * word, 8);
    }
    EXPECT_EQ(std::memcmp(&stream, expected, sizeof stream), 0);
    EXPECT_STREQ(At<const char*>(stream, 40), "wide");
    EXPECT_STREQ(At<const char*>(stream, 136), "");
    EXPECT_EQ(At<const uint64_t*>(stream, 24)[0], 0U);
    EXPECT_EQ(At<const uint64_t*>(stream, 24)[1], Address(&raw));
    EXPECT_EQ(raw.stream_type, CAMERA3_STREAM_OUTPUT) << "the host's own record is left alone";
}

TEST(Session, IsOpenedAndConfiguredWithItsRecordsTheHostsOutputLast) {
    Scene scene;
    scene.UseWords({37, 34});
    scene.request.wrapper.identity.cameraId = 5;
    Put(scene.request.wrapper, 72, 0x55);
    Put(scene.request.wrapper, 96, 0x77);
    camera3_stream& output = scene.request.outputStream;
    output.stream_type = CAMERA3_STREAM_BIDIRECTIONAL; // Only an input is no output.
    std::memset(reinterpret_cast<char*>(&output) + 144, 0x5A, 16);
    scene.Submit();

    const standin::SessionCopy session = scene.Session();
    // The text that was handed over stays, while the record's own name is the feature's by now.
    EXPECT_STREQ(At<const char*>(*session.pCreateInfo, 0), "session_of_camera_5");
    EXPECT_EQ(scene.Info().sessionName, "Night");
    EXPECT_EQ(scene.Info().pCameraInfo, MadeUp(0x55));
    EXPECT_EQ(At(*session.pCreateInfo, 8) + At(*session.pCallbacks, 24), 0U);
    EXPECT_STREQ(At<const char*>(session.config, 0), "5");
    constexpr uint64_t kOpMode = 8; // The feature's.
    ExpectWords(session.config, {At(session.config, 0), 3, Address(session.config.ppChiStreams),
                                 kOpMode, Args(Entry::MetadataDestroy)[0]});
    const std::vector<ChiStream*>& list = session.streamPointers;
    EXPECT_EQ(list.at(0)->format, 37U);
    EXPECT_EQ(list.at(1), list.at(0) + 1) << "one block";
    EXPECT_EQ(Address(list.at(2)), Address(&output));
    EXPECT_EQ(At(output, 144), 0x5A5A5A5AU) << "0 at 148, and nothing before it";
    EXPECT_EQ(At(output, 152), 0x5A5A5A5AFFFFFFFFU);
    EXPECT_EQ(Args(Entry::MetadataCreateFromAndroid, 0, 1), (Words{0x77, 0, 0, 0xFFFFFFFF}));
    EXPECT_EQ(Log("MapChiStreamFormatToChiBufferFormat"),
              "E Unsurport streamFormat:34 return ChiFormatYUV420NV12 by default");
    const auto notify = At<decltype(session.pCallbacks->ProcessNotifyCb)>(*session.pCallbacks, 8);
    notify(session.pCallbacks, 0, nullptr);
    EXPECT_EQ(LastLog("ProcessNotifyCb"), "I Notify Callback Received - Implementation pending");
}

TEST(Session, IsSharedByEqualIdentitiesOnly) {
    Scene scene;
    Put(scene.request.wrapper, 96, 0x66);
    scene.Submit();
    scene.Submit();
    EXPECT_EQ(scene.Named(LastLog("GetSessHandle")), "I Session handle <session> matched.");
    scene.request.wrapper.identity.cameraId = 1;
    scene.Submit();
    Put(scene.request.wrapper, 96, 0x77); // Of the submission that opens the session.
    EXPECT_EQ(scene.Submit("Hdr"), 0U);
    EXPECT_EQ(Args(Entry::MetadataCreateFromAndroid, 2).at(1), 0x77U);
    const auto sessions = scene.device->Sessions(); // In the order of opening.
    ASSERT_EQ(sessions.size(), 3U);
    const char* const chains[] = {"cameraId 0 feature Night", "cameraId 1 feature Night",
                                  "cameraId 1 feature Hdr"};
    std::string dump;
    for (int i = 0; i < 3; ++i) {
        dump += Printed("\nI Supported session[%d/3]: handle %ld %s for outputStream %p", i + 1,
                        static_cast<long>(sessions[i].handle), chains[i],
                        MadeUp(Address(&scene.request.outputStream)));
    }
    EXPECT_TRUE(Log("GenerateOfflineSessions").ends_with(dump)) << dump;
    EXPECT_EQ(scene.Executed(3).session, sessions[2].handle);
}

TEST(Session, IsFoundAgainByEachLetterOfItsName) {
    Scene scene;
    scene.UseWords({37});
    Texts names = {"",     "a",     "b",     "ab",    "bb",        "abc",       "abcd",     "abce",
                   "bbcd", "abcde", "abcdf", "bbcde", "abcdefghi", "abcdefghj", "bbcdefghi"};
    for (const char* middle : {"", "-", "+", "--", "-+", "+-"}) {
        names.push_back(std::string("sixteen-letters.") + middle);
        names.push_back("an-eight" + std::string(middle) + "and-more");
    }
    for (int i = 0; i < 64; ++i) { // So many that some share a place.
        names.push_back(Printed("abcdefgh-%c--%c---", 'A' + i % 8, 'A' + i / 8));
    }
    Words sessions[2];
    for (Words& round : sessions) {
        for (const std::string& name : names) {
            EXPECT_EQ(scene.Submit(name), 0U);
            round.push_back(scene.device->Executions().back().session);
        }
    }
    EXPECT_EQ(sessions[1], sessions[0]);
    const std::set<uint64_t> different(sessions[0].begin(), sessions[0].end());
    EXPECT_EQ(different.size(), names.size());
}

TEST(Session, IsNotMadeForAStreamThatCannotHaveOneOrWithoutInputs) {
    constexpr const char kNoStream[] = "E Failed to find pOutStream in m_pStream2SuppSessMap";
    const struct {
        void (*spoil)(Request&);
        const char* line;       ///< Of the registry.
        size_t generationLines; ///< Two for each attempt.
    } rows[] = {
        {[](Request& r) { r.wrapper.identity.pOutStream = nullptr; }, "E pOutStream is null!!!", 0},
        {[](Request& r) { r.outputStream.stream_type = CAMERA3_STREAM_INPUT; }, kNoStream, 0},
        {[](Request& r) { r.outputStream.width = 0; }, kNoStream, 0},
        {[](Request& r) { r.outputStream.height = 0; }, kNoStream, 0},
        {[](Request& r) { r.privData.inputStreams.clear(); }, "E Cannot match any session!!!", 4},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        Scene scene;
        row.spoil(scene.request);
        EXPECT_EQ(scene.Submit(), 4U);
        EXPECT_EQ(LastLog("GetSessHandle"), row.line);
        EXPECT_EQ(LogLines("GenerateOfflineSessions").size(), row.generationLines);
        EXPECT_EQ(LastLog("SubmitRequestFromRT"),
                  "E Invalid session handle or NULL session info in mSessInfoMap");
        EXPECT_EQ(scene.device->Calls().size(), 1U) << "the translation";
    }
}

TEST(Session, WhoseOpeningFailedIsListedWithHandleZeroUntilFlush) {
    Scene scene;
    scene.device->Fail(Entry::OpenSession, 0, 1, 1);
    EXPECT_EQ(scene.Submit(), 4U);
    EXPECT_EQ(scene.Named(LastLog("OpenOfflineSession")),
              "E [oemlayer_stream] Unable to open session for Night for stream:<out>");
    EXPECT_EQ(LogLines("FindOfflineInfo").size(), 3U) << "its record is completed all the same";
    EXPECT_EQ(scene.Submit(), 4U);
    EXPECT_EQ(LastLog("GetSessHandle"), "I Session handle 0 matched.");
    scene.camera.Flush();
    EXPECT_EQ(scene.device->CallCount(Entry::CloseSession), 0U);
    EXPECT_EQ(scene.Submit(), 0U);
}

TEST(Session, WithoutAnOpenEntryLeavesTheRecordOfAFailedOpeningAlone) {
    Scene scene;
    scene.device->Fail(Entry::OpenSession, 0, 1, 1);
    EXPECT_EQ(scene.Submit(), 4U);
    scene.device->SetMissing(Entry::OpenSession);
    scene.device->ClearRecords();
    EXPECT_EQ(scene.Submit("Hdr"), 4U);
    EXPECT_EQ(LogLines("FindOfflineInfo").size(), 1U) << "nothing is completed";
}

TEST(Session, WithoutInputsClosesNothingAndLeavesTheCamerasCounter) {
    Scene scene;
    scene.Submit();
    const auto inputs = std::exchange(scene.request.privData.inputStreams, {});
    EXPECT_EQ(scene.Submit("Hdr"), 4U);
    scene.request.privData.inputStreams = inputs;
    EXPECT_EQ(scene.Submit("Night"), 0U);
    EXPECT_EQ(LastLog("SubmitRequestFromRT"),
              "I Execute rtFrameNumber:7<->offlineFrame:2 success mTotalCounter 3");
}

TEST(Flush, ClosesSessionsByStreamAddressThenInTheOrderOfOpening) {
    Scene scene;
    camera3_stream outputs[2] = {scene.request.outputStream, scene.request.outputStream};
    for (const auto& [used, feature] :
         {std::pair{1, "Night"}, {0, "Portrait"}, {1, "Hdr"}, {0, "SuperRes"}}) {
        scene.request.wrapper.identity.pOutStream = &outputs[used];
        scene.request.output.stream = &outputs[used];
        EXPECT_EQ(scene.Submit(feature), 0U);
    }
    const auto opened = scene.device->Sessions();
    scene.device->ClearRecords();
    scene.camera.Flush();

    std::string expected = "I Flush: Adapter Flush\nI Flush: Start destroy session managers.\n";
    for (const size_t i : {1, 3, 0, 2}) {
        expected += Printed("I CloseOfflineSessions: close sessionHdl: %li\n",
                            static_cast<long>(opened.at(i).handle));
    }
    EXPECT_EQ(Log(), expected + "E Flush: Flush X");
    EXPECT_EQ(scene.device->CallCount(Entry::CloseSession), 4U);
    EXPECT_EQ(scene.device->Calls().size(), 4U);
}

TEST(Flush, SetsTheCamerasCounterToZero) {
    Scene scene; // Results come before the counter is raised, and do not lower it.
    scene.Submit();
    const uint64_t first = scene.Session().handle;
    scene.camera.Flush();
    EXPECT_EQ(scene.Submit(), 0U);
    EXPECT_NE(scene.Session().handle, first);
    EXPECT_EQ(LastLog("SubmitRequestFromRT"),
              "I Execute rtFrameNumber:7<->offlineFrame:2 success mTotalCounter 2");
}

TEST(Destroy, ClosesSessionsBeforeTheOperations) {
    Scene scene;
    scene.UseWords({37, 37, 37}, 9); // Too many for a request, but a session is made.
    scene.Submit();
    scene.request.GiveBack(scene.camera);
    scene.device->ClearRecords();
    scene.camera.Destroy();
    EXPECT_EQ(CalledEntries(scene), " BufferManagerDestroy CloseSession MetadataOpsClose "
                                    "BufferOpsClose");
}

} // namespace
