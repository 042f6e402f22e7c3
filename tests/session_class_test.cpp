/// The adaptee's session operations one by one, with the statuses that the table does not show, and
/// what is freed.

#include "tests/support/adaptee.h"

#include <algorithm>
#include <cstdlib>
#include <new>

// --- The heap of this program

namespace {

int g_arraysUntilFailure = -1; ///< Of those that may fail; negative for no failure.
const void* g_freed[4096];
size_t g_freedCount = std::size(g_freed); ///< Nothing is kept.

void WatchHeap() { g_freedCount = 0; }
bool Freed(const void* block) {
    return std::find(g_freed, g_freed + g_freedCount, block) != g_freed + g_freedCount;
}

} // namespace

void* operator new(size_t size) { return std::malloc(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return std::malloc(size); }
void* operator new[](size_t size) { return std::malloc(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return g_arraysUntilFailure >= 0 && g_arraysUntilFailure-- == 0 ? nullptr : std::malloc(size);
}
void operator delete(void* block) noexcept {
    if (g_freedCount < std::size(g_freed)) {
        g_freed[g_freedCount++] = block;
    }
    std::free(block);
}
void operator delete[](void* block) noexcept { operator delete(block); }

namespace {

using namespace test;
using OemLayer::QcomAdaptee;

// --- Preparation

TEST(BufferFormat, FollowsTheStreamFormatAndIsYuvForTheUnknown) {
    const std::pair<uint32_t, uint32_t> formats[] = {{32, 10}, {33, 6}, {35, 3}, {37, 9},
                                                     {38, 26}, {34, 3}, {40, 3}};
    for (const auto& [stream, buffer] : formats) {
        Device device;
        const auto format = static_cast<ChiStreamFormat>(stream);
        EXPECT_EQ(QcomAdaptee::MapChiStreamFormatToChiBufferFormat(format), buffer);
        const std::string line =
            Printed("E Unsurport streamFormat:%u return ChiFormatYUV420NV12 by default", stream);
        EXPECT_EQ(Log("MapChiStreamFormatToChiBufferFormat"),
                  stream == 34 || stream == 40 ? line : "");
    }
}

TEST(Preparation, OfHandleZeroDoesNothing) {
    AdapteeScene scene;
    EXPECT_EQ(scene.Prepare(0), 0U);
    EXPECT_EQ(Log(), "");
    EXPECT_TRUE(scene.device->Calls().empty());
}

TEST(Preparation, RefusesAnInputThatIsNoOutputOfTheRealTimeSession) {
    AdapteeScene scene;
    scene.input.stream_type = CAMERA3_STREAM_INPUT;
    const unsigned long handle = scene.Open();
    EXPECT_EQ(scene.Prepare(handle), 1U);
    EXPECT_TRUE(Log("DoPrepareOfflineConfig").ends_with(R"( 
I [oemlayer_stream] Skipping stream since it is not output stream of parent session
E [oemlayer_stream] Incorrect number of input streams. Expected: 1 Actual: 0)"));
    EXPECT_EQ(LastLog("PrepareOfflineConfig"),
              "E [oemlayer_stream] Unable to prepare configure session for Night for camera 3");
    EXPECT_EQ(scene.adaptee->CloseOfflineSessions(handle), 0U);
}

TEST(Preparation, FailsWithFiveWhereAListFindsNoMemory) {
    const char* const last[] = {
        "E Unable to initialize ppChiStreams",
        "E [oemlayer_stream] Unable to prepare configure session for Night for camera 3"};
    for (int nth = 0; nth < 2; ++nth) {
        AdapteeScene scene;
        const unsigned long handle = scene.Open();
        g_arraysUntilFailure = nth;
        EXPECT_EQ(scene.Prepare(handle), 5U);
        g_arraysUntilFailure = -1;
        EXPECT_EQ(LastLog("PrepareOfflineConfig"), last[nth]);
        EXPECT_EQ(CountLogged("E", "[oemlayer_stream] Unable to initialize ppChiStreams"), nth);
        EXPECT_EQ(scene.adaptee->CloseOfflineSessions(handle), 0U);
    }
}

// --- Configuration

TEST(Configuration, HasNothingToDoForHandleZeroButNeedsTheEntry) {
    AdapteeScene scene;
    EXPECT_EQ(scene.adaptee->ConfigStreams(0), 0U);
    scene.device->SetMissing(Entry::ConfigureStreams);
    EXPECT_EQ(scene.adaptee->ConfigStreams(0), 1U);
    EXPECT_EQ(scene.device->CallCount(Entry::ConfigureStreams), 0U);
    QcomAdaptee* bare = QcomAdaptee::Create(nullptr, 3);
    EXPECT_EQ(bare->ConfigStreams(0), 1U);
    bare->Destroy();
}

TEST(Configuration, KeepsItsSettingsUntilItSucceedsAndDestroysThemOnce) {
    AdapteeScene scene;
    const unsigned long handle = scene.Open();
    scene.Prepare(handle);
    scene.device->Fail(Entry::ConfigureStreams, 7, 1, 1);
    EXPECT_EQ(scene.adaptee->ConfigStreams(handle), 7U);
    EXPECT_EQ(LastLog("ConfigStreams"), "E [oemlayer_stream] Configure Streams failed for usecase: "
                                        "Night for camera: 3 with opmode: 8");
    EXPECT_EQ(scene.device->CountAlive().metadata, 1U);
    EXPECT_EQ(scene.adaptee->ConfigStreams(handle), 0U);
    EXPECT_EQ(scene.adaptee->ConfigStreams(handle), 0U);
    EXPECT_EQ(scene.device->CallCount(Entry::MetadataDestroy), 1U);
    scene.adaptee->CloseOfflineSessions(handle);
}

// --- Opening and closing

TEST(Opening, FillsTheRecordFromTheFeatureMap) {
    const std::pair<const char*, const char*> rows[] = {
        {"Night", "8 1f 3 E find offline info Night success"},
        {"Hdr", "10 3 2 E find offline info Hdr success"},
        {"night", "0 0 0 E not find offline info"}};
    for (const auto& [feature, filled] : rows) {
        AdapteeScene scene;
        scene.identity.featureName = feature;
        const unsigned long handle = scene.Open();
        const SessionInfo& info = scene.Info();
        EXPECT_EQ(info.sessionName + " " + info.featureName + " " + info.cameraName,
                  std::string(feature) + " " + feature + " 3");
        EXPECT_EQ(Printed("%x %x %d ", info.opMode, info.featureFlags, info.featureValue) +
                      LastLog("FindOfflineInfo"),
                  filled);
        EXPECT_EQ(LogLines("FindOfflineInfo").size(), 3U);
        scene.adaptee->CloseOfflineSessions(handle);
    }
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
    scene.adaptee->CloseOfflineSessions(scene.device->Sessions().at(1).handle);
    scene.adaptee->CloseOfflineSessions(first);
    const unsigned long last = scene.Open();
    EXPECT_NE(last, 0U);
    scene.adaptee->CloseOfflineSessions(last);
}

TEST(Closing, DestroysTheSettingsOfASessionThatWasNotConfigured) {
    AdapteeScene scene;
    const unsigned long handle = scene.Open();
    scene.Prepare(handle);
    const void* settings = scene.Info().pConfigInfo->pSessionSettings;
    EXPECT_EQ(scene.adaptee->CloseOfflineSessions(handle), 0U);
    EXPECT_EQ(Log("CloseOfflineSessions"),
              Printed("I close sessionHdl: %lu\nI destroy chimeta: %p", handle, settings));
    EXPECT_EQ(scene.device->CallCount(Entry::MetadataDestroy), 1U);
}

TEST(Closing, OfHandleZeroDropsItsRecordsWithoutTheVendor) {
    AdapteeScene scene;
    scene.device->Fail(Entry::OpenSession, 0);
    scene.Open();
    scene.device->ClearRecords();
    EXPECT_EQ(scene.adaptee->CloseOfflineSessions(0), 0U);
    scene.adaptee->InitSessInfo(0, 1, "", "Night", nullptr); // There is no record any more.
    EXPECT_EQ(Log(), "");
    EXPECT_TRUE(scene.device->Calls().empty());
}

TEST(Closing, OfAnUnknownHandleThatTheVendorRefusesReturnsItsStatus) {
    AdapteeScene scene;
    scene.device->Fail(Entry::CloseSession, 6);
    EXPECT_EQ(scene.adaptee->CloseOfflineSessions(77), 6U);
    EXPECT_EQ(Log("CloseOfflineSessions"),
              "E Failed to close session 6 for usecase non for camera non");
    scene.device->SetMissing(Entry::CloseSession);
    EXPECT_EQ(scene.adaptee->CloseOfflineSessions(0), 1U);
}

// --- What a completion frees

TEST(Completion, FreesTheRequestItsArrayAndItsOutputBuffer) {
    Scene scene(Delivery::ByHand);
    scene.Submit();
    const OfflineRequest* request = &scene.Pending();
    const void* parts[] = {request, request->pInputBuffers, request->pOutputBuffer};
    WatchHeap();
    scene.Finish();
    EXPECT_TRUE(Freed(parts[0]) && Freed(parts[1]) && Freed(parts[2]));
}

TEST(Completion, FreesAsManyFormatRecordsAsBuffersCameAndOnlyOfTheLastSet) {
    struct Row {
        uint32_t sets;
        std::vector<uint32_t> statuses;
        const char* freed; ///< 1 for each record that is freed, set by set.
    };
    const Row rows[] = {{1, {0}, "10"},
                        {1, {0, 0}, "11"},
                        {1, {0, 0, 0}, "11"},
                        {3, {0, 0}, "000011"},
                        {3, {0}, "000010"}};
    for (const Row& row : rows) {
        Scene scene(Delivery::ByHand);
        scene.UseWords({37, 32}, row.sets);
        scene.Submit();
        const standin::Execution execution = scene.Executed();
        scene.Info().totalResult = static_cast<uint32_t>(row.statuses.size());
        WatchHeap();
        scene.Send({.statuses = row.statuses, .metadata = scene.Pending().pOutputMetadata});
        std::string freed;
        for (const standin::BufferSetCopy& set : execution.inputs) {
            for (const ChiStreamBuffer& buffer : set.buffers) {
                freed += Freed(buffer.pInputFormat) ? "1" : "0";
            }
        }
        EXPECT_EQ(freed, row.freed);
    }
}

TEST(Completion, OfARequestWithoutPrivateDataFreesTheRequestAlone) {
    AdapteeScene scene;
    static std::string calls;
    OemLayer::OffCamApplicationCallbacks callbacks = {
        [](OemLayer::RequestPrivData*) { calls += "release "; },
        [](OemLayer::RequestPrivData* data, uint32_t status) {
            calls += Printed("complete %p %u", MadeUp(Address(data)), status);
        },
        [](OemLayer::RequestPrivData*, camera3_capture_result*) { calls += "result "; }};
    OemLayer::OfflineDataWraper wrapper = {};
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
    WatchHeap();
    QcomAdaptee::ProcessCaptureResultCb(&sessionCallbacks, 1, &info);
    EXPECT_EQ(calls, "complete (nil) 1");
    EXPECT_TRUE(Freed(request));
    EXPECT_EQ(
        Log("ProcessCaptureResultCb"),
        R"(I frameNumber numBuf:1 numStreamBuffers 1 numPartialMetadata 0 totalResult:1 pMetadata:(nil) pLastCount 0
I Free up OC->OC metadata and buffers - pending
E ERROR BUFFER status 1
I Notify close process
I Returning from capture result)");
}

TEST(CaptureResult, NeedsItsResultMainBlockAndPrivateData) {
    AdapteeScene scene;
    OemLayer::RequestPrivData privData = {};
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
