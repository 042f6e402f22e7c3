/// Flush and destruction: sessions are closed in order, and nothing of them stays.

#include "tests/support/scene.h"

namespace {

using namespace test;

TEST(Flush, ClosesSessionsByStreamAddressThenInTheOrderOfOpening) {
    Scene scene;
    camera3_stream outputs[2] = {scene.request.outputStream, scene.request.outputStream};
    for (const auto& [used, feature] :
         {std::pair{1, "Night"}, {0, "Portrait"}, {1, "Hdr"}, {0, "SuperRes"}}) {
        scene.request.wrapper.identity.pOutStream = &outputs[used];
        scene.request.wrapper.identity.featureName = feature;
        scene.request.output.stream = &outputs[used];
        EXPECT_EQ(scene.Submit(), 0U);
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
    EXPECT_EQ(scene.Submit(), 4U);
    scene.request.GiveBack(scene.camera);
    scene.device->ClearRecords();
    scene.camera.Destroy();
    const auto calls = scene.device->Calls();
    EXPECT_EQ(calls.at(0).entry, Entry::BufferManagerDestroy);
    EXPECT_EQ(calls.at(1).entry, Entry::CloseSession);
    EXPECT_EQ(calls.at(2).entry, Entry::MetadataOpsClose);
    EXPECT_EQ(CountLogged("E", "Flush X"), 0U);
}

} // namespace
