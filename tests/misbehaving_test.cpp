/// A host and a vendor that change words, or look where they should not, while the library works.

#include "tests/support/scene.h"

namespace {

using namespace test;

// --- What bounds a write is read once

TEST(Misbehaving, HostThatChangesTheNumberOfSetsDuringTheCallChangesNothing) {
    for (const uint32_t sets : {0U, 24U, 300U}) {
        Scene scene;
        scene.UseWords({37}, 2);
        Once(g_android.onLine, "configure camera",
             [&] { scene.request.wrapper.numBuffers = sets; });
        EXPECT_EQ(scene.Submit(), 0U);
        EXPECT_EQ(scene.Executed().request.numInputs, 2U);
        EXPECT_EQ(scene.Executed().inputs.at(1).set.pMetadata, MadeUp(0x2001));
    }
}

TEST(Misbehaving, VendorThatChangesAStreamWhileItIsFedFeedsItOnce) {
    Scene scene;
    scene.UseWords({37, 37});
    scene.request.wrapper.yuvInput = 1;
    scene.Submit();
    ChiStream* stream = scene.Session().streamPointers.at(0);
    Once(g_android.onLine, "Input Stream Buffer Format Info", [stream] {
        stream->format = ChiStreamFormatYCbCr420_888;
        stream->streamType = ChiStreamTypeOutput;
    });
    EXPECT_EQ(scene.Submit(), 0U);
    const standin::BufferSetCopy set = scene.Executed(1).inputs.at(0);
    ASSERT_EQ(set.buffers.size(), 2U);
    EXPECT_EQ(set.buffers[0].bufferHandle, MadeUp(0x1000));
    EXPECT_NE(set.buffers[1].pStream, stream);
    EXPECT_EQ(stream->streamType, ChiStreamTypeInput) << "it is written for each input";
}

// --- What is not used is clear

TEST(Misbehaving, VendorThatReadsPastItsInputsFindsNothingOfEarlierRequests) {
    Scene scene;
    scene.UseWords({37, 32}, 12);
    scene.Submit();
    static decltype(ChiOfflineInterface::pExecuteRequest) execute;
    execute = scene.Vendor().pExecuteRequest;
    scene.Vendor().pExecuteRequest = [](uint64_t session, ChiOfflineExecuteRequest* request) {
        for (size_t i = 1; i < OemLayer::kMaxInputSets; ++i) {
            ExpectWords(request->pInputs[i], {});
        }
        for (size_t i = 2; i < OemLayer::kMaxInputBuffers; ++i) {
            ExpectWords(request->pInputs[0].pBuffers[i], {});
        }
        return execute(session, request);
    };
    scene.request.wrapper.numBuffers = 1;
    EXPECT_EQ(scene.Submit(), 0U) << "what only its execution returns";
}

TEST(Misbehaving, HostThatReadsPastAResultsBuffersFindsNothingOfEarlierResults) {
    Submitted scene;
    scene.Info().totalResult = 9;
    scene.Send({.statuses = std::vector<uint32_t>(8, 1)});
    Once(scene.request.onCallback, "result", [&] {
        for (size_t i = 1; i < 8; ++i) {
            ExpectWords(scene.request.Events().back().result.output_buffers[i], {});
        }
    });
    scene.Send({.statuses = {1}, .metadata = scene.Pending().pOutputMetadata});
    EXPECT_EQ(Story(scene.request), "BBBBBBBB MB R C1");
}

// --- Orders that a vendor can tell

TEST(Misbehaving, HostThatSubmitsFromWithinAFlushGetsANewSessionAfterIt) {
    Scene scene;
    scene.Submit();
    const uint64_t first = scene.Session().handle;
    Once(scene.device.onEntry, "CloseSession", [&] { EXPECT_EQ(scene.Submit(), 0U); });
    scene.camera.Flush();
    EXPECT_EQ(scene.Submit(), 0U);
    EXPECT_NE(scene.Session().handle, first);
}

TEST(Misbehaving, VendorWhoseOpenEntryGoesAwayMeanwhileHasOpenedAllTheSame) {
    Scene scene;
    Once(scene.device.onEntry, "OpenSession",
         [&] { scene.device->SetMissing(Entry::OpenSession); });
    EXPECT_EQ(scene.Submit(), 0U);
    EXPECT_EQ(CountLogged("E", "find offline info Night"), 3U);
    EXPECT_EQ(scene.Info().sessionName, "Night");
}

TEST(Misbehaving, VendorThatReportsNoBufferAndABadArrayFailsTheRequest) {
    Submitted scene;
    scene.Send({.statuses = {0}, .metadata = scene.Pending().pOutputMetadata, .partials = 1});
    ChiStreamBuffer bad = {.bufferStatus = 3};
    scene.Receive({0, &bad, 0, nullptr});
    EXPECT_EQ(Story(scene.request), "MB R C1");
    EXPECT_EQ(CountLogged("E", "ERROR BUFFER status 3"), 1U);
}

TEST(Misbehaving, VendorHasTranslatedAllBuffersOfAResultBeforeTheFirstIsLogged) {
    Submitted scene;
    scene.Info().totalResult = 3;
    size_t translated = 0;
    Once(g_android.onLine, "offline buffer received",
         [&] { translated = scene.device->CallCount(Entry::TranslateFromChiBuffer); });
    scene.Send({.statuses = {0, 0, 0}, .metadata = scene.Pending().pOutputMetadata});
    EXPECT_EQ(translated, 3U);
    EXPECT_EQ(Story(scene.request), "MBBB R C0");
}

} // namespace
