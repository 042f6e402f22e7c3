/// How a request's real-time outputs become the records of the vendor's execute call.

#include "tests/support/scene.h"

#include <algorithm>

namespace {

using namespace test;
using standin::Execution;

/// "stream:handle@manager" of each buffer, with a bar between the sets.
std::string Fed(const Scene& scene, size_t index = 0) {
    const Execution execution = scene.Executed(index);
    const std::vector<ChiStream*> list = scene.Session().streamPointers;
    std::string text;
    for (size_t i = 0; i < execution.inputs.size(); ++i) {
        text += i == 0 ? "" : " |";
        for (const ChiStreamBuffer& buffer : execution.inputs[i].buffers) {
            const auto stream = std::find(list.begin(), list.end(), buffer.pStream);
            text += Printed(" %td:%lx@%lx", stream - list.begin(), At(buffer, 24), At(buffer, 40));
        }
    }
    return text;
}

TEST(Submission, FeedsTheInputStreamsOfEachSet) {
    const struct {
        std::vector<int32_t> formats;
        uint32_t sets, yuvInput, dualRdi;
        const char* fed;
    } rows[] = {
        {{37, 32}, 3, 0, 0, " 0:1000@a0 1:1000@a0 | 0:1001@a0 1:1001@a0 | 0:1002@a0 1:1002@a0"},
        {{37, 38}, 4, 0, 0, " 0:1000@a0 | 0:1001@a0 | 0:1002@a0 | 0:1003@a0"},
        {{37, 37}, 2, 0, 1, " 0:1000@a0 1:1001@a1 | 0:1001@a0 1:1003@a1"},
        {{37, 37, 37, 37}, 1, 0, 1, " 0:1000@a0 1:1001@a1 2:1000@a0 3:1001@a1"},
        {{37, 37}, 1, 0, 2, " 0:1000@a0 1:1000@a0"},
        {{37, 35}, 1, 0, 0, " 0:1000@a0"},
        {{35, 35}, 2, 1, 0, " 0:3000@a2 1:3000@a2 | 0:3001@a2 1:3001@a2"},
        {{35}, 2, 2, 0, " |"},
        {{35, 37}, 1, 0, 1, " 1:1001@a1"}, // Odd by its place in the list, whatever else is fed.
        {{35, 37}, 1, 1, 1, " 0:3000@a2 1:1001@a1"},
        {{38, 33}, 1, 1, 0, ""},
        {{37}, 0, 0, 0, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fed);
        Scene scene;
        scene.UseWords(row.formats, row.sets);
        scene.request.wrapper.yuvInput = row.yuvInput;
        scene.request.wrapper.dualRdi = row.dualRdi;
        EXPECT_EQ(scene.Outcome(), "0 MB R C0");
        EXPECT_EQ(Fed(scene), row.fed);
        const Execution execution = scene.Executed();
        EXPECT_EQ(execution.request.numInputs, row.sets);
        for (size_t i = 0; i < row.sets; ++i) {
            const ChiOfflineBufferSet& set = execution.inputs.at(i).set;
            EXPECT_EQ(At(set, 8), At(execution.inputs[0].set, 8) + 208UL * set.numBuffers * i);
            EXPECT_EQ(At(set, 24), 0x2000 + i);
        }
    }
}

TEST(Submission, ReadsRawHandlesPastTheirThirteenWords) {
    Scene scene;
    scene.UseWords({37, 37}, 12);
    scene.request.wrapper.dualRdi = 1;
    scene.Submit();
    const std::string fed = Fed(scene);
    EXPECT_NE(fed.find("| 0:1006@a0 1:100d@a1 |"), fed.npos) << fed;
    EXPECT_TRUE(fed.ends_with("| 0:100b@a0 1:1017@a1")) << fed;
}

// Nothing of the library changes a configured stream's type, but nothing keeps others from it.
TEST(Submission, FeedsWhatIsAnInputByTheTimeOfItsSet) {
    const struct {
        std::vector<int32_t> formats;
        const char* types[3]; ///< Of the inputs when they are counted, and in each of two sets.
        const char* fed;      ///< As above; stream 3 is no stream.
        bool sharesFormat = false; ///< Of the first records of both sets.
    } rows[] = {
        // The second set points where its own count says, behind which nothing was written.
        {{37, 37}, {"11", "10", "11"}, " 0:1000@a0 | 1:1001@a0 3:0@0"},
        // All streams have room: what is an input by then is fed.
        {{37, 37}, {"10", "11", "11"}, " 0:1000@a0 1:1000@a0 | 0:1001@a0 1:1001@a0"},
        // Not all have: no more of a set than were inputs at first.
        {{37, 37, 37, 37}, {"1000", "1100", "1111"}, " 0:1000@a0 | 0:1001@a0"},
        // They just have.
        {{37, 37, 37},
         {"100", "111", "111"},
         " 0:1000@a0 1:1000@a0 2:1000@a0 | 0:1001@a0 1:1001@a0 2:1001@a0"},
        // Neither an input nor an output alone, and so not fed.
        {{37}, {"12", "12", "12"}, " 0:1000@a0 | 0:1001@a0"},
        // A YUV input writes no format, so that the one at its place in the array stays.
        {{37, 35}, {"10", "10", "01"}, " 0:1000@a0 | 1:3001@a2", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fed);
        Scene scene;
        scene.UseWords(row.formats, 2);
        scene.request.wrapper.yuvInput = 1;
        scene.Submit();
        const std::vector<ChiStream*> streams = scene.Session().streamPointers;
        const auto setTypes = [&](const char* types) {
            for (size_t j = 0; types[j] != '\0'; ++j) {
                streams[j]->streamType = types[j] - '0';
            }
        };
        setTypes(row.types[0]);
        g_android.onLine = [&](const std::string& line) {
            const std::string mark = "bufferIndex:";
            if (const size_t at = line.find(mark); at != line.npos) {
                setTypes(row.types[1 + line.at(at + mark.size()) - '0']);
            }
        };
        scene.Submit();
        g_android.onLine = kNothing;
        EXPECT_EQ(Fed(scene, 1), row.fed);
        const auto& inputs = scene.Executed(1).inputs;
        EXPECT_EQ(inputs[0].buffers[0].pInputFormat == inputs[1].buffers[0].pInputFormat,
                  row.sharesFormat);
    }
}

TEST(Submission, OfAsManyRecordsAsThereMayBeHasRoomForEachStream) {
    Scene scene;
    scene.UseWords({37, 37}, 8); // With the output three streams: 24 records.
    scene.Submit();
    ChiStream& second = *scene.Session().streamPointers[1];
    second.streamType = 0; // As they are counted.
    g_android.onLine = [&](const std::string& line) {
        second.streamType = line.find("bufferIndex:") != line.npos ? 1 : second.streamType;
    };
    scene.Submit();
    g_android.onLine = kNothing;
    for (const auto& set : scene.Executed(1).inputs) {
        EXPECT_EQ(set.buffers.size(), 2U);
    }
}

TEST(Submission, FillsTheRecordsOfItsInputs) {
    for (const auto& [format, bufferFormat] : {std::pair{37, 9UL}, {32, 10UL}, {35, 0UL}}) {
        Scene scene;
        scene.UseWords({format});
        scene.request.wrapper.yuvInput = 1;
        scene.Submit();
        const standin::BufferSetCopy set = scene.Executed().inputs.at(0);
        const ChiStreamBuffer& buffer = set.buffers.at(0);
        const bool raw = bufferFormat != 0;
        EXPECT_EQ(buffer.pInputFormat != nullptr, raw);
        ExpectWords(buffer,
                    {208, Address(scene.Session().streamPointers.at(0)), 2, raw ? 0x1000U : 0x3000U,
                     0, raw ? 0xA0U : 0xA2U, Address(buffer.pInputFormat)});
        // The pattern is what the vendor left in the stream; the buffer format is at 12.
        ExpectWords(set.formats.at(0), {raw ? 2U : 0U, bufferFormat << 32});
    }
}

TEST(Submission, FillsTheExecuteRecordAndWritesIntoTheHostsRecords) {
    Scene scene;
    scene.Submit();
    const Execution execution = scene.Executed();
    const ChiOfflineExecuteRequest& request = execution.request;
    const int32_t* frame = &scene.Info().offlineFrameNumber;
    ExpectWords(request, {1, Address(request.pInputs), Address(request.pOutput),
                          Address(request.pPrivateData), Address(frame), Address(frame - 1)});
    EXPECT_EQ(execution.presetFrameNumber, -1);
    const ChiOfflineBufferSet& output = execution.output.set;
    ExpectWords(output, {1, Address(output.pBuffers), 0, Address(output.pMetadata)});
    EXPECT_NE(output.pMetadata, nullptr);
    EXPECT_EQ(Address(execution.output.buffers.at(0).pStream),
              Address(&scene.request.outputStream));
    EXPECT_EQ(At(scene.request.wrapper, 2624), Address(&scene.request.output));
    EXPECT_EQ(At(scene.request.wrapper, 2728), Address(&scene.request.privData));
    EXPECT_EQ(At(scene.request.wrapper, 2736), Address(&scene.request.callbacks));
    EXPECT_EQ(At<uint32_t>(scene.request.privData, 100), 7U);
}

TEST(Submission, LogsItsStepsInOrder) {
    Scene scene;
    scene.UseWords({37, 38});
    Put(scene.request.wrapper, 96, 0x77);
    scene.Submit();
    // The result came before the last line, when there was nothing yet to lower the counter from.
    EXPECT_EQ(scene.Named(Log("SubmitRequestFromRT")),
              R"(I pChiMetadataHandles: <wrapper+120>, pRDIBufferHandles: <wrapper+216> )"
              R"(pRDIBufferStream: <wrapper+320> pRealtimePrivateData: )"
              R"(<private>,pOfflineOutputBuffer: <buffer> m_pRealtimeSessionParameters: 0x77 )"
              R"(mpOffCamAppCbs <callbacks>
I rtFrameNumber:7, bufferIndex:0/1, offline inputmeta:<rt metadata> outputmeta:(nil) )"
              R"(pBufferManager 0xa0
I streamId:0/3, stream <stream 0>, streamType:1 format:37 size:(64, 32)
I Input Stream Buffer Format Info, cfaPattern: 2 buffer format: 9
I streamId:1/3, stream <stream 1>, streamType:1 format:38 size:(64, 32)
I streamId:2/3, stream <out>, streamType:0 format:35 size:(64, 32)
I [offline_meta]rtFrameNumber:7 create offline output metadata:<metadata>
I rtFrameNumber:7, submiting request to offline session:<session> with 1 input buffers
I Execute rtFrameNumber:7<->offlineFrame:1 success mTotalCounter 1)");
}

TEST(Submission, HostRecordsMayBeOverwrittenOnceItReturned) {
    Submitted scene;
    auto* wrapper = reinterpret_cast<char*>(&scene.request.wrapper);
    std::memset(wrapper, 0xA5, 48); // All around the identity's text.
    std::memset(wrapper + 72, 0xA5, sizeof scene.request.wrapper - 72);
    scene.request.wrapper.identity.featureName = "overwritten";
    std::memset(&scene.request.output, 0xA5, sizeof scene.request.output);
    scene.device->Deliver(0, Shape::Together);
    ASSERT_EQ(Story(scene.request), "MB R C0");
    EXPECT_EQ(scene.request.Events().at(0).result.frame_number, 7U);
    EXPECT_EQ(scene.request.Events().at(0).buffers.at(0).stream, &scene.request.outputStream);
}

TEST(Submission, RefusesAMissingWrapperAndMoreThanTwelveSetsBeforeAnythingElse) {
    Scene scene;
    PlatFormIntCallbacks* table = scene.camera.Table();
    EXPECT_EQ(table->SubmitRequestFromRT(table, nullptr, nullptr, nullptr, nullptr), 4U);
    EXPECT_EQ(Log(), "E SubmitRequestFromRT: Invalid input parameters, pDataWraper is NULL");
    scene.request.wrapper.numBuffers = 13;
    EXPECT_EQ(scene.Submit(), 4U);
    EXPECT_TRUE(scene.device->Calls().empty());
    EXPECT_EQ(LogLines().size(), 1U + 2U);
    EXPECT_EQ(LastLog("SubmitRequestFromRT"),
              "E Invalid input parameters, 13 input sets, at most 12");
}

TEST(Submission, RefusesMoreThanTwentyFourInputRecords) {
    Scene scene;
    scene.UseWords({37, 37, 37}, 8);
    EXPECT_EQ(scene.Outcome(), "0 MB R C0");
    scene.request.wrapper.numBuffers = 9;
    scene.request.wrapper.rtFrameNumber = 8;
    EXPECT_EQ(scene.Outcome(), "4");
    EXPECT_EQ(scene.device->CallCount(Entry::ExecuteRequest), 1U);
    EXPECT_EQ(LastLog("SubmitRequestFromRT"),
              "E Invalid input parameters, 9 input sets of 3 buffers, at most 24");
    EXPECT_EQ(scene.request.privData.rtFrameNumber, 7U);
}

TEST(Submission, CountsOnlyTheInputsThatItFeeds) {
    const struct {
        std::vector<int32_t> formats;
        uint32_t yuvInput;
        uint32_t fedOfEachSet;
    } rows[] = {
        {{37, 38, 35}, 0, 1},     {{32, 37, 35}, 0, 2}, {{37, 38, 35}, 1, 2},
        {{35, 37, 35, 38}, 1, 3}, {{37, 32, 37}, 0, 3}, {{38, 35, 35, 33}, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.formats));
        Scene scene;
        scene.UseWords(row.formats, 12); // There is room for two of each.
        scene.request.wrapper.yuvInput = row.yuvInput;
        EXPECT_EQ(scene.Outcome(), row.fedOfEachSet <= 2 ? "0 MB R C0" : "4");
        for (const standin::Execution& execution : scene.device->Executions()) {
            EXPECT_EQ(execution.inputs.at(11).buffers.size(), row.fedOfEachSet);
        }
    }
}

TEST(Submission, GoesOnWithoutWhatItCanLack) {
    constexpr const char kNoOutput[] = "E pOfflineOutputBuffer is NULL";
    constexpr const char kNoMetadata[] = "create offline output metadata:(nil)";
    const struct {
        void (*take)(Scene&);
        const char* outcome;   ///< What the host is told all the same.
        const char* line = ""; ///< In the log of the submission.
        bool output = true;    ///< Otherwise the vendor gets an empty record.
    } rows[] = {
        {[](Scene& s) { s.request.outputArgument = nullptr; }, "0 Mb R C0", kNoOutput, false},
        {[](Scene& s) { s.device->Fail(Entry::TranslateToChiBuffer, 1); }, "0 Mb R C0", "", false},
        {[](Scene& s) { s.device->Fail(Entry::MetadataCreate, 0); }, "0 B R C0", kNoMetadata},
        {[](Scene& s) { s.request.callbacks.releaseRtBuffers = nullptr; }, "0 MB C0"},
        {[](Scene& s) { s.request.callbacks.requestComplete = nullptr; }, "0 MB R"},
    };
    for (const auto& row : rows) {
        Scene scene;
        row.take(scene);
        EXPECT_EQ(scene.Outcome(), row.outcome);
        EXPECT_NE(Log("SubmitRequestFromRT").find(row.line), std::string::npos) << row.line;
        const ChiStreamBuffer output = scene.Executed().output.buffers.at(0);
        ExpectWords(row.output ? ChiStreamBuffer{} : output, {});
        EXPECT_EQ(output.pStream != nullptr, row.output);
    }
}

TEST(Submission, WithNeitherOutputNorSessionIsRefusedAndLogsBoth) {
    Scene scene;
    scene.request.outputArgument = nullptr;
    scene.device->Fail(Entry::OpenSession, 0);
    EXPECT_EQ(scene.Outcome(), "4");
    const Texts lines = LogLines("SubmitRequestFromRT");
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[lines.size() - 2], "E pOfflineOutputBuffer is NULL");
    EXPECT_EQ(lines.back(), "E Invalid session handle or NULL session info in mSessInfoMap");
}

TEST(Submission, WithoutResultCallbackLeavesTheAndroidMetadataToTheVendor) {
    for (const bool hasTable : {false, true}) {
        Scene scene;
        scene.device.ExpectLeftovers();
        scene.request.callbacks.captureResult = nullptr;
        scene.request.callbacksArgument = hasTable ? &scene.request.callbacks : nullptr;
        EXPECT_EQ(scene.Outcome(), hasTable ? "0 R C0" : "0");
        EXPECT_EQ(scene.device->CountAlive().androidMetadata, 1U);
        EXPECT_EQ(scene.device->CountAlive().metadata, 1U) << "the host's";
    }
}

TEST(Submission, ToASessionThatCouldNotBePreparedFeedsNothing) {
    for (const int32_t type : {CAMERA3_STREAM_INPUT, CAMERA3_STREAM_BIDIRECTIONAL}) {
        Scene scene;
        scene.request.raw.stream_type = type;
        EXPECT_EQ(scene.Submit(), 0U);
        EXPECT_TRUE(Log("DoPrepareOfflineConfig").ends_with(R"( 
I [oemlayer_stream] Skipping stream since it is not output stream of parent session
E [oemlayer_stream] Incorrect number of input streams. Expected: 1 Actual: 0)"));
        EXPECT_EQ(LastLog("PrepareOfflineConfig"),
                  "E [oemlayer_stream] Unable to prepare configure session for Night for camera 0");
        EXPECT_EQ(scene.Session().config.ppChiStreams, nullptr);
        const ChiOfflineBufferSet set = scene.Executed().inputs.at(0).set;
        EXPECT_EQ(set.numBuffers, 0U);
        EXPECT_EQ(set.pMetadata, scene.request.wrapper.pChiMetadataHandles[0]);
        EXPECT_EQ(CountLogged("I", "streamId:"), 0U);
    }
}

} // namespace
