/// What a session's results become for the host, when a request is complete, and how a session gets
/// buffers of the framework.

#include "tests/support/scene.h"

namespace {

using namespace test;

TEST(Completion, TellsTheHostInOrderWhateverTheShapeOfTheResults) {
    const std::pair<Shape, const char*> shapes[] = {
        {Shape::MetadataFirst, "M B R C0"}, {Shape::BuffersFirst, "B M R C0"},
        {Shape::Together, "MB R C0"},       {Shape::Partials, "M B R C0"},
        {Shape::ErrorBuffer, "MB R C1"},    {Shape::SecondBlock, "MB MB R C0"},
    };
    for (const auto& [shape, story] : shapes) {
        Submitted scene;
        scene.device->Deliver(0, shape);
        EXPECT_EQ(Story(scene.request), story);
        // Those of the session's settings and of the request; not the host's own.
        EXPECT_EQ(scene.device->CallCount(Entry::MetadataDestroy), 2U);
    }
}

// The library holds no lock meanwhile: the submission makes a session, too.
TEST(Completion, GoesToTheTableOfASubmissionFromWithinTheRelease) {
    static int completions;
    completions = 0;
    Scene scene;
    auto other = scene.request.callbacks;
    other.requestComplete = [](OemLayer::RequestPrivData*, uint32_t) { ++completions; };
    Once(scene.request.onCallback, "release", [&] {
        scene.request.callbacksArgument = &other;
        EXPECT_EQ(scene.Submit("Hdr"), 0U);
    });
    EXPECT_EQ(scene.Submit(), 0U);
    EXPECT_EQ(Story(scene.request), "MB R MB R");
    EXPECT_EQ(completions, 2);
}

TEST(Completion, ReadsTheStatusOfTheRequestsOwnBufferBeforeItIsFreedAndNoneWithoutAnArray) {
    for (const bool hasArray : {true, false}) {
        Submitted scene;
        const OfflineRequest& request = scene.Pending();
        request.pOutputBuffer->bufferStatus = 1;
        scene.Receive({1, hasArray ? request.pOutputBuffer : nullptr, 0, request.pOutputMetadata});
        EXPECT_EQ(Story(scene.request), hasArray ? "MB R C1" : "Mb R C0");
        EXPECT_EQ(CountLogged("I", "offline buffer received, frameNumber:7, buferIndex:0/1, "
                                   "stream:(nil) format:0 size(0, 0)"),
                  hasArray ? 0U : 1U);
    }
}

TEST(Completion, LogsItsStepsInOrder) {
    Scene scene(Delivery::ByHand);
    scene.UseWords({37}, 3);
    scene.Submit();
    scene.Send({.statuses = {3}, .metadata = scene.Pending().pOutputMetadata, .frame = 41});
    EXPECT_EQ(scene.Named(Log("ProcessCaptureResultCb")),
              R"(I frameNumber numBuf:41 numStreamBuffers 1 numPartialMetadata 0 totalResult:1 )"
              R"(pMetadata:<metadata> pLastCount 1
I [offline_meta] frameNumber:41 release offline input metadata:0x2002 and output metadata:<metadata>
I Freeing up real time output buffers (input to first offline session)
E ERROR BUFFER status 3
I Notify close process
I Returning from capture result)");
}

TEST(Completion, IsReachedByTheCountOfBuffersOnceNoPartialIsToCome) {
    const struct {
        std::vector<Result> results; ///< The first one brings the metadata, too.
        uint32_t totalResult;
        const char* story; ///< After the last of them.
    } rows[] = {
        {{{.statuses = {0}, .partials = 1}, {.partials = 1}, {}}, 1, "MB R C0"},
        {{{.statuses = {0}, .partials = 1}}, 1, "MB"},
        {{{.statuses = {0}}, {.statuses = {0}}}, 2, "MB B R C0"},
        {{{.statuses = {0}}}, 2, "MB"},
        {{{.statuses = {0, 0}}}, 1, "MBB"},      // More than expected completes nothing, either.
        {{{.statuses = {0, 1}}}, 2, "MBB R C0"}, // Only the first buffer of a result counts,
        {{{.statuses = {9, 0}}}, 2, "MBB R C1"},
        {{{.statuses = {1}}, {.statuses = {0}}}, 2, "MB B R C0"}, // and only the last result.
        {{{.statuses = {1}, .partials = 1}, {}}, 1, "MB R C0"},
        {{{}}, 1, "M"},
        {{{}}, 0, "M R C0"}, // Without an array, too, there is no status.
    };
    for (const auto& row : rows) {
        Submitted scene;
        scene.Info().totalResult = row.totalResult;
        ChiMetadataHandle metadata = scene.Pending().pOutputMetadata;
        size_t pending = 0;
        for (Result result : row.results) {
            result.metadata = std::exchange(metadata, nullptr);
            scene.Send(result);
            pending += result.partials != 0 ? 1 : 0;
        }
        EXPECT_EQ(Story(scene.request), row.story);
        EXPECT_EQ(CountLogged("I", "Free up real time metadata  - pending"), pending);
        if (std::string_view(row.story).find('C') == std::string::npos) {
            scene.Finish();
        }
    }
}

TEST(Completion, DestroysTheOutputMetadataWithTheFirstMetadataOfARequestOnly) {
    Submitted scene;
    const ChiMetadataHandle output = scene.Pending().pOutputMetadata;
    const ChiMetadataHandle other = scene.request.wrapper.pChiMetadataHandles[0];
    scene.device->ClearRecords();
    scene.Send({.metadata = other, .partials = 1});
    scene.Send({.statuses = {0}, .metadata = other});
    EXPECT_EQ(scene.device->CallCount(Entry::MetadataDestroy), 1U);
    EXPECT_EQ(Args(Entry::MetadataDestroy), Words{Address(output)});
    EXPECT_NE(Log().find(" and output metadata:(nil)\n"), std::string::npos);
}

TEST(Completion, WithoutAnyMetadataLeavesTheOutputMetadataToTheVendor) {
    Submitted scene;
    const ChiMetadataHandle output = scene.Pending().pOutputMetadata;
    scene.Send({.statuses = {0}});
    EXPECT_EQ(Story(scene.request), "B R C0");
    EXPECT_EQ(scene.device->CountAlive().metadata, 2U) << "the host's and this one";
    scene.camera->MetadataDestroy(scene.camera.Table(), output);
}

TEST(Completion, LowersTheCamerasCounterByTheFrameOfAResultWithBuffers) {
    const std::pair<Result, int> rows[] = {{{.statuses = {0}, .partials = 1, .frame = 2}, 4},
                                           {{.statuses = {0}, .partials = 1, .frame = 6}, 0},
                                           {{.statuses = {0}, .partials = 1, .frame = 7}, 6},
                                           {{.partials = 1, .frame = 2}, 6}};
    for (const auto& [result, counterAfterwards] : rows) {
        Submitted scene; // Frame 1.
        scene.Submit();
        scene.Submit();
        scene.Send(result);
        const std::string log = Log("ProcessCaptureResultCb");
        EXPECT_NE(log.find(Printed(" pLastCount %d\n", counterAfterwards)), log.npos) << log;
        for (size_t i = 0; i < 3; ++i) {
            scene.Finish(i);
        }
    }
}

TEST(Completion, CallsTheTableThatTheLastSubmissionBrought) {
    Submitted scene;
    static int calls;
    calls = 0;
    OemLayer::OffCamApplicationCallbacks other = scene.request.callbacks;
    other.releaseRtBuffers = [](OemLayer::RequestPrivData*) { ++calls; };
    other.requestComplete = [](OemLayer::RequestPrivData*, uint32_t) { ++calls; };
    scene.request.callbacksArgument = &other;
    scene.request.wrapper.identity.pOutStream = nullptr; // Refused, and counts all the same.
    EXPECT_EQ(scene.Submit(), 4U);
    scene.Send({.statuses = {0}, .metadata = scene.Pending().pOutputMetadata});
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(Story(scene.request), "MB");
}

TEST(Result, WithoutItsRequestOrItsMainBlockOnlyLogs) {
    Submitted scene;
    scene.device->ClearRecords();
    ChiOfflineResultBlock block = {.pMetadata = MadeUp(1)};
    ChiOfflineCaptureResultInfo withoutRequest = {1, &block, &block, nullptr};
    ChiOfflineCaptureResultInfo withoutMain = {1, nullptr, &block, &scene.Pending()};
    scene.Receive(nullptr);
    scene.Receive(&withoutRequest);
    EXPECT_EQ(LogLines("ProcessCaptureResultCb").size(), 2U);
    EXPECT_EQ(CountLogged("E"), 2U);
    scene.Receive(&withoutMain);
    EXPECT_TRUE(scene.Named(Log()).ends_with(
        Printed("\nI ProcessOfflineCaptureResultCb: pResult:%p pRtPvtData:<private>\n"
                "I ProcessCaptureResultCb: Returning from capture result",
                MadeUp(Address(&withoutMain)))));
    EXPECT_EQ(LogLines().size(), 4U);
    const auto receive = scene.Session().pCallbacks->ProcessCaptureResultCb;
    ChiOfflineSessionCallbacks withoutSession = {};
    ChiOfflineCaptureResultInfo whole = {1, &block, nullptr, &scene.Pending()};
    receive(nullptr, 1, &whole);
    receive(&withoutSession, 1, &whole);
    EXPECT_EQ(LastLog("ProcessCaptureResultCb"),
              Printed("E Invalid result, pCallbacks:%p pResult:%p pPrivateData:%p",
                      MadeUp(Address(&withoutSession)), MadeUp(Address(&whole)),
                      MadeUp(Address(&scene.Pending()))));
    scene.Finish();
}

TEST(Result, IsReportedOnceMoreForASecondBlockWithMetadataOrAnArray) {
    ChiStreamBuffer buffer = {};
    const std::pair<ChiOfflineResultBlock, const char*> rows[] = {
        {{.pBuffers = &buffer}, "B B"},
        {{.pMetadata = MadeUp(1)}, "B B"},
        {{.numBuffers = 1, .numPartialMetadata = 1}, "B"},
    };
    for (auto [second, story] : rows) {
        Submitted scene;
        scene.Send({.statuses = {0}, .partials = 1, .pSecond = &second});
        EXPECT_EQ(Story(scene.request), story);
        scene.Finish();
    }
}

TEST(CaptureResult, CarriesTheRequestsFrameAndThePartialNumberOfItsMetadata) {
    Submitted scene;
    scene.Send({.statuses = {1}, .metadata = scene.Pending().pOutputMetadata, .frame = 41});
    const Event event = scene.request.Events().at(0);
    EXPECT_EQ(event.result.frame_number, 7U);
    EXPECT_EQ(event.result.num_output_buffers, 1U);
    EXPECT_EQ(event.result.partial_result, 355U);
    EXPECT_EQ(event.result.input_buffer, nullptr);
    EXPECT_EQ(event.buffers.at(0).stream, &scene.request.outputStream);
    EXPECT_EQ(event.buffers.at(0).status, 1);
    EXPECT_EQ(Args(Entry::MetadataCreateAndroid, 0, 2), (Words{1, 0, 0, 0}));
    EXPECT_EQ(scene.Named(Log("ProcessOfflineCaptureResultCb")),
              R"(I offline buffer received, frameNumber:7, buferIndex:0/1, stream:<out> format:35 )"
              R"(size(64, 32)
I Get offline camera metadata for frame:7 pMeta:<android metadata>)");
}

TEST(CaptureResult, OfOneKindLeavesTheOtherEmpty) {
    Submitted scene;
    scene.Send({.statuses = {0}, .partials = 1});
    scene.Finish();
    const camera3_capture_result buffers = scene.request.Events().at(0).result;
    const camera3_capture_result metadata = scene.request.Events().at(1).result;
    EXPECT_EQ(buffers.result, nullptr);
    EXPECT_EQ(buffers.partial_result, 0U);
    EXPECT_EQ(metadata.num_output_buffers, 0U);
    EXPECT_EQ(metadata.output_buffers, nullptr);
    EXPECT_EQ(metadata.partial_result, 355U);
}

TEST(CaptureResult, GoesWithoutMetadataThatCannotBeTranslated) {
    Submitted scene;
    scene.device->Fail(Entry::MetadataCreateAndroid, 0);
    scene.Send({.metadata = scene.Pending().pOutputMetadata});
    EXPECT_EQ(Story(scene.request), "") << "nothing to send";
    scene.Send({.statuses = {0}, .metadata = scene.request.wrapper.pChiMetadataHandles[0]});
    EXPECT_EQ(Story(scene.request), "B R C0");
    EXPECT_EQ(scene.request.Events().at(0).result.partial_result, 0U);
}

TEST(CaptureResult, ReportsTheFirstEightOfMoreBuffers) {
    for (const uint32_t count : {8U, 9U}) {
        Submitted scene;
        scene.device->ClearRecords();
        scene.Info().totalResult = count;
        Result result = {.statuses = {0, 1, 2, 3, 4, 5, 6, 7, 8},
                         .metadata = scene.Pending().pOutputMetadata};
        result.statuses.resize(count);
        scene.Send(result);
        EXPECT_EQ(Story(scene.request), "MBBBBBBBB R C0");
        EXPECT_EQ(scene.request.Events().at(0).buffers.at(7).status, 7);
        EXPECT_EQ(CountLogged("E", "9 output buffers, only the first 8 are reported"), count - 8);
        const std::string last = Printed("buferIndex:7/%u,", count);
        EXPECT_NE(Log("ProcessOfflineCaptureResultCb").find(last), std::string::npos);
    }
}

/// A framework that answers as told, and a session that asks it for one buffer and for two.
struct Framework : Submitted {
    static inline Framework* current;
    int32_t result = 0;
    uint32_t answers = 2;
    uint32_t surplus = 0; ///< Buffers beyond the wanted ones that each answer claims.
    std::function<void(camera3_stream_buffer_ret* answers)> onAnswer = [](auto*) {};

    camera3_stream streams[2] = {MakeStream(35), MakeStream(33)};
    ChiOfflineQueryBuffer queries[2] = {{&streams[0], 1}, {&streams[1], 2}};
    ChiStreamBuffer storage[3] = {};
    ChiOfflineQueryStreamBuffer returned[2] = {{nullptr, 9, 9, &storage[0]},
                                               {nullptr, 9, 9, &storage[1]}};
    unsigned int numReturned = 77;

    Framework() {
        current = this;
        request.frameworkOps.request_stream_buffers = Answer;
        device->ClearRecords();
    }
    // NOLINTNEXTLINE(bugprone-exception-escape): whatever is thrown here ends the test's process
    ~Framework() { Finish(); }

    uint32_t Ask() { return Ask(&numReturned); }
    uint32_t Ask(unsigned int* count) {
        const ChiOfflineSessionCallbacks* callbacks = Session().pCallbacks;
        return callbacks->GetFrameworkBuffers(callbacks, 2, queries, count, returned);
    }
    /// "stream:status:count" of each answer, with the statuses of its buffers.
    std::string Returned() const {
        std::string text;
        for (const ChiOfflineQueryStreamBuffer& answer : returned) {
            text += Printed(" %td:%u:%u", answer.pStream - (answer.pStream ? streams : nullptr),
                            answer.status, answer.numBuffers);
        }
        return text + Printed(" with %u %u %u", storage[0].bufferStatus, storage[1].bufferStatus,
                              storage[2].bufferStatus);
    }
    static int32_t Answer(const camera3_callback_ops* ops, uint32_t count,
                          const camera3_buffer_request* requests, uint32_t* returnedCount,
                          camera3_stream_buffer_ret* answers) {
        Framework& self = *current;
        EXPECT_EQ(ops, &self.request.frameworkOps);
        EXPECT_EQ(*returnedCount, count);
        for (uint32_t i = 0; i < count; ++i) {
            EXPECT_EQ(requests[i].stream, &self.streams[i]);
            EXPECT_EQ(requests[i].num_buffers_requested, i + 1);
            EXPECT_EQ(answers[i].stream, requests[i].stream);
            answers[i].stream = &self.streams[1 - i]; // The vendor gets that of its query.
            answers[i].status = static_cast<int32_t>(5 + i);
            answers[i].num_output_buffers = i + 1 + self.surplus;
            for (uint32_t j = 0; j <= i; ++j) {
                answers[i].output_buffers[j].status = static_cast<int32_t>(10 * (i + 1) + j);
            }
        }
        self.onAnswer(answers);
        *returnedCount = self.answers;
        return self.result;
    }
};

TEST(FrameworkBuffers, AreTranslatedIntoTheVendorsStorageAsFarAsTheyWereAskedFor) {
    constexpr const char kUntouched[] = " 0:9:9 0:9:9 with 0 0 0";
    const struct {
        uint32_t answers, surplus;
        int32_t result; ///< 1 without the entry.
        uint32_t numReturned;
        const char* returned;
        size_t errors;
        const char* line = "I request hal stream buffer success";
    } rows[] = {
        {2, 0, 0, 2, " 0:5:1 1:6:2 with 10 20 21", 0},
        {1, 0, 0, 1, " 0:5:1 0:9:9 with 10 0 0", 0},
        {0, 0, 0, 0, kUntouched, 0},
        {3, 1, 0, 2, " 0:5:1 1:6:2 with 10 20 21", 3},
        {2, 0, -5, 77, kUntouched, 1, "E request hal stream buffer failed, non-fatal retval = -5"},
        {2, 0, 1, 77, kUntouched, 1, "E request hal stream buffer failed, non-fatal retval = 1"},
    };
    for (const auto& row : rows) {
        Framework framework;
        framework.answers = row.answers;
        framework.surplus = row.surplus;
        framework.result = row.result;
        if (row.result == 1) {
            framework.request.frameworkOps.request_stream_buffers = nullptr;
        }
        EXPECT_EQ(framework.Ask(), row.result == 0 ? 0U : 1U);
        EXPECT_EQ(framework.numReturned, row.numReturned);
        EXPECT_EQ(framework.Returned(), row.returned);
        EXPECT_EQ(CountLogged("E"), row.errors);
        const std::string log = Printed("I numOfReqBuffers 1 i 0 pStream %p\n"
                                        "I numOfReqBuffers 2 i 1 pStream %p\n%s",
                                        static_cast<void*>(&framework.streams[0]),
                                        static_cast<void*>(&framework.streams[1]), row.line);
        EXPECT_TRUE(Log("GetFrameworkBuffers").starts_with(log)) << log;
    }
}

TEST(FrameworkBuffers, AreAsManyAsWereAskedForWhateverTheQueryIsRaisedToMeanwhile) {
    Framework framework;
    static camera3_stream_buffer others[4]; // Not on the heap: freeing them would end the test.
    framework.onAnswer = [&](camera3_stream_buffer_ret* answers) {
        answers[0].num_output_buffers = framework.queries[0].numBuffers = 4;
        answers[0].output_buffers = others;
    };
    framework.Vendor().pTranslateToChiBuffer = [](const camera3_stream_buffer*,
                                                  ChiStreamBuffer* buffer) {
        Framework::current->returned[0].numBuffers = 4;
        ++buffer->bufferStatus;
        return 0U;
    };
    EXPECT_EQ(framework.Ask(), 0U);
    EXPECT_EQ(framework.Returned(), " 0:5:4 1:6:2 with 1 1 1");
    EXPECT_EQ(LastLog("GetFrameworkBuffers"), "E 4 buffers returned, 1 wanted, surplus ignored");
}

TEST(FrameworkBuffers, NeedNoAddressForTheirNumberAndNoStorage) {
    Framework framework;
    framework.returned[0].pBuffers = nullptr;
    EXPECT_EQ(framework.Ask(nullptr), 0U);
    EXPECT_EQ(framework.Returned(), " 0:5:1 1:6:2 with 0 20 21");
}

TEST(FrameworkBuffers, NeedTheirArgumentsAndTheFrameworksTable) {
    Framework framework;
    const ChiOfflineSessionCallbacks* callbacks = framework.Session().pCallbacks;
    const auto get = callbacks->GetFrameworkBuffers;
    unsigned int count = 77;
    ChiOfflineSessionCallbacks bare = {};
    EXPECT_EQ(get(nullptr, 2, framework.queries, &count, framework.returned), 1U);
    EXPECT_EQ(get(callbacks, 2, nullptr, &count, framework.returned), 1U);
    EXPECT_EQ(get(callbacks, 2, framework.queries, &count, nullptr), 1U);
    EXPECT_EQ(get(&bare, 2, framework.queries, &count, framework.returned), 1U);
    framework.request.wrapper.pCamera3CbOps = nullptr;
    framework.request.wrapper.numBuffers = 13; // Refused, and its table counts all the same.
    framework.Submit();
    EXPECT_EQ(framework.Ask(), 1U);
    EXPECT_EQ(framework.numReturned + count, 2 * 77U);
    EXPECT_EQ(Log("GetFrameworkBuffers"), "");
}

} // namespace
