/// What names a session, and the chain that holds one.

#include "tests/support/adaptee.h"

namespace {

using namespace test;
using OemLayer::OfflineSessionIdentitys;
using OemLayer::SessionObjects;

camera3_stream g_streams[2] = {MakeStream(-1), MakeStream(HAL_PIXEL_FORMAT_RAW16)};

TEST(Identity, IsOrderedByStreamThenUnsignedCameraThenFeature) {
    const OfflineSessionIdentitys ascending[] = {
        {&g_streams[0], 0, ""},           {&g_streams[0], 0, "Night"},
        {&g_streams[0], 0, "NightHdr"},   {&g_streams[0], 0, "night"},
        {&g_streams[0], 0, "n\x7f"},      {&g_streams[0], 0, "n\x80"},
        {&g_streams[0], 1, "A"},          {&g_streams[0], 0x7FFFFFFF, "A"},
        {&g_streams[0], 0x80000000, "A"}, {&g_streams[1], 0, ""},
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

TEST(SessionChain, OpensForTheCameraAndStreamThatItIsGiven) {
    for (const auto& [cameraId, text] : {std::pair{0U, "0"}, {4294967295U, "4294967295"}}) {
        AdapteeScene scene;
        SessionObjects chain({&scene.input, 5, "Night"});
        EXPECT_EQ(chain.GenerateOfflineSession(cameraId, scene.adaptee, &scene.output), 0U);
        const standin::SessionCopy session = scene.device->Sessions().at(0);
        EXPECT_EQ(session.name, std::string("session_of_camera_") + text);
        EXPECT_EQ(chain.GetSessionHandle(), session.handle);
        EXPECT_TRUE(chain.GetIdentity() ==
                    (OfflineSessionIdentitys{&scene.output, cameraId, "Night"}));
        scene.adaptee->CloseOfflineSessions(session.handle);
    }
}

TEST(SessionChain, WhoseOpeningFailedHasHandleZeroAndItsNewIdentity) {
    AdapteeScene scene;
    scene.device->Fail(Entry::OpenSession, 0);
    SessionObjects chain({&scene.input, 5, "Night"});
    EXPECT_EQ(chain.GenerateOfflineSession(6, scene.adaptee, &scene.output), 1U);
    EXPECT_EQ(chain.GetSessionHandle(), 0U);
    EXPECT_TRUE(chain.GetIdentity() == (OfflineSessionIdentitys{&scene.output, 6, "Night"}));
    scene.adaptee->CloseOfflineSessions(0);
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
    scene.adaptee->CloseOfflineSessions(chain.GetSessionHandle());
}

TEST(SessionChain, ReturnsTheStatusOfTheConfigurationNotOfThePreparation) {
    for (const uint32_t status : {0U, 9U}) {
        AdapteeScene scene;
        scene.input.stream_type = CAMERA3_STREAM_INPUT; // Cannot be prepared.
        scene.device->Fail(Entry::ConfigureStreams, status);
        SessionObjects chain(scene.identity);
        chain.GenerateOfflineSession(3, scene.adaptee, &scene.output);
        EXPECT_EQ(chain.Initialize(scene.adaptee, {&scene.input}, scene.parameters), status);
        scene.adaptee->CloseOfflineSessions(chain.GetSessionHandle());
    }
}

} // namespace
