/// What the library leaves allocated where things go wrong: docs/kept-behaviours.md lists it. This
/// program alone runs with kept_leaks.supp, which names what may stay.

#include "tests/support/scene.h"

namespace {

using namespace test;
using OemLayer::SessionObjects;
using PrivateSessionInfo = SessionInfo;

// docs/kept-behaviours.md states these.
static_assert(sizeof(OfflineRequest) == 88);
static_assert(sizeof(SessionObjects) == 48);
static_assert(sizeof(PrivateSessionInfo) == 288);

TEST(KeptLeaks, ARequestWithoutPrivateDataIsRefusedAfterTheLookUp) {
    for (const bool known : {false, true}) {
        Scene scene;
        if (known) {
            scene.Submit();
        }
        scene.device->ClearRecords();
        scene.request.privDataArgument = nullptr;
        EXPECT_EQ(scene.Submit(), 4U);
        EXPECT_EQ(LastLog("SubmitRequestFromRT"),
                  "E Invalid input parameters, pRealtimePrivateData is NULL");
        EXPECT_EQ(scene.Named(LastLog("GetSessHandle")),
                  known ? "I Session handle <session> matched." : "E Cannot match any session!!!");
        EXPECT_EQ(scene.device->Calls().size(), 1U) << "the translation";
    }
}

TEST(KeptLeaks, ARequestThatIsNotExecutedIsNotCounted) {
    for (const bool hasOutput : {true, false}) {
        Scene scene(Delivery::ByHand);
        scene.device.ExpectLeftovers();
        scene.request.outputArgument = hasOutput ? &scene.request.output : nullptr;
        scene.device->Fail(Entry::ExecuteRequest, static_cast<uint32_t>(-3), 1, 1);
        EXPECT_EQ(scene.Submit(), 1U);
        EXPECT_EQ(LastLog("SubmitRequestFromRT"),
                  "E ExecuteRequest failed for offline frame:-1 result:-3 ");
        scene.Submit();
        EXPECT_EQ(LastLog("SubmitRequestFromRT"),
                  "I Execute rtFrameNumber:7<->offlineFrame:1 success mTotalCounter 1");
        scene.Finish();
    }
}

TEST(KeptLeaks, ARequestThatNoEntryExecutesIsRefusedOnceThereIsASession) {
    Scene scene;
    scene.device.ExpectLeftovers(); // Of the request, its metadata.
    scene.device->SetMissing(Entry::ExecuteRequest);
    scene.device->Fail(Entry::OpenSession, 0, 1, 1);
    EXPECT_EQ(scene.Outcome(), "4");
    scene.camera.Flush();
    EXPECT_EQ(scene.Outcome(), "1");
    EXPECT_EQ(LastLog("SubmitRequestFromRT"), "E mpChiOfflineIntfOps->pExecuteRequest is NULL");
    EXPECT_EQ(scene.device->CountAlive().metadata, 2U) << "the host's, and the output's";
}

TEST(KeptLeaks, RequestsInFlightAtACloseAreNeitherFreedNorReported) {
    Submitted scene;
    scene.device.ExpectLeftovers();
    scene.camera.Flush();
    EXPECT_EQ(Story(scene.request), "");
    EXPECT_EQ(scene.device->CountAlive().sessions, 0U);
    EXPECT_EQ(scene.device->CountAlive().metadata, 2U);
}

TEST(KeptLeaks, ConfigurationThatFailsIsTriedAgainOnceAndEndsWithHandleZero) {
    Scene scene;
    scene.device.ExpectLeftovers();
    scene.device->Fail(Entry::ConfigureStreams, 3, 1, 1);
    EXPECT_EQ(scene.Submit(), 4U);
    EXPECT_EQ(scene.Named(LastLog("OpenOfflineSession")),
              "W identity{0, <out>} already exist in  mRtLinkSessHdlMap,");
    EXPECT_EQ(scene.Named(LastLog("GenerateOfflineSessions")),
              "I Supported session[1/1]: handle 0 cameraId 0 feature Night for outputStream <out>");
    EXPECT_EQ(CountLogged("I", "Generate offline session for feature"), 3U) << "only one has ended";
    EXPECT_EQ(scene.Submit(), 4U);
    EXPECT_EQ(scene.device->CallCount(Entry::OpenSession), 2U);
    EXPECT_EQ(scene.device->CallCount(Entry::ConfigureStreams), 1U);
}

TEST(KeptLeaks, ASessionThatFailedToOpenCanStillCallBackAfterALaterOneFailed) {
    Scene scene;
    scene.device->Fail(Entry::OpenSession, 0);
    scene.Submit();
    scene.Submit("Hdr");
    const auto opened = scene.device->Calls(Entry::OpenSession);
    ASSERT_EQ(opened.size(), 2U);
    const auto* create = static_cast<ChiOfflineSessionCreateInfo*>(MadeUp(opened[0].args.at(1)));
    const ChiOfflineQueryBuffer query = {&scene.request.outputStream, 1};
    ChiOfflineQueryStreamBuffer answer = {};
    const auto* callbacks = create->pCallbacks;
    EXPECT_EQ(callbacks->GetFrameworkBuffers(callbacks, 1, &query, nullptr, &answer), 1U);
    EXPECT_STREQ(create->pSessionName, "session_of_camera_0");
    EXPECT_EQ(CountLogged("E", "request hal stream buffer failed"), 1U) << "it has its camera";
}

TEST(KeptLeaks, ACloseThatFailsLeavesOneSessionAndItsIdentity) {
    for (uint32_t i = 0; i < 6; ++i) {
        const uint32_t streams = i < 3 ? 1 : 3; // With one, the sessions are in one list.
        const uint32_t nth = i % 3 + 1;
        SCOPED_TRACE(Printed("%u of %u streams", nth, streams));
        Scene scene;
        scene.device.ExpectLeftovers();
        std::vector outputs(streams, scene.request.outputStream);
        const auto submitAll = [&] {
            Texts outcomes;
            for (const char* feature : {"Night", "Portrait", "Hdr"}) {
                scene.request.output.stream = &outputs[outcomes.size() % streams];
                scene.request.wrapper.identity = {scene.request.output.stream, 0, feature};
                outcomes.push_back(scene.Outcome());
            }
            return outcomes;
        };
        submitAll();
        scene.device->Fail(Entry::CloseSession, 8, nth, 1);
        scene.camera.Flush();
        EXPECT_EQ(scene.device->CountAlive().sessions, 1U);
        EXPECT_EQ(CountLogged("E", "Failed to close session 8 for usecase "), 1U);
        Texts outcomes(3, "0 MB R C0");
        outcomes[nth - 1] = "4"; // Closed in the order of opening: addresses ascend.
        EXPECT_EQ(submitAll(), outcomes);
        EXPECT_EQ(CountLogged("W", "identity{0, "), 1U);
    }
}

TEST(KeptLeaks, ACloseThatFailsTearsNothingDown) {
    Submitted scene;
    scene.device.ExpectLeftovers();
    scene.device->Fail(Entry::CloseSession, 8, 1, 1);
    scene.camera.Flush();
    EXPECT_EQ(Log("CloseOfflineSessions"),
              "E Failed to close session 8 for usecase Night for camera 0");
    EXPECT_EQ(scene.Session().name, "session_of_camera_0");
    EXPECT_EQ(scene.Info().configInfo.ppChiStreams[0]->format, 37U);
    scene.Finish(); // The session still delivers,
    EXPECT_EQ(Story(scene.request), "M R C0");
    scene.Submit("Hdr"); // and the counter goes on.
    EXPECT_EQ(LastLog("SubmitRequestFromRT"),
              "I Execute rtFrameNumber:7<->offlineFrame:2 success mTotalCounter 3");
}

TEST(KeptLeaks, AHandleThatTheVendorGivesTwiceTakesBothIdentitiesAlong) {
    Scene scene;
    scene.device.ExpectLeftovers();
    scene.Submit();
    scene.device->Fail(Entry::OpenSession, scene.Session().handle, 1, 1);
    EXPECT_EQ(scene.Submit("Hdr"), 0U);
    EXPECT_EQ(scene.Submit("Night"), 0U);
    EXPECT_EQ(scene.Executed(2).request.pOfflineFrameNumber,
              scene.Executed(1).request.pOfflineFrameNumber)
        << "of the handle's later record";
    scene.camera.Flush();
    for (const char* feature : {"Night", "Hdr"}) {
        EXPECT_EQ(scene.Submit(feature), 0U);
    }
    EXPECT_EQ(CountLogged("W"), 0U);
}

} // namespace
