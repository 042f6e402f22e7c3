/// The adaptee's life: what it opens, logs and closes, and the feature map that it reads.

#include "tests/support/scene.h"

namespace {

using namespace test;
using Rows = std::vector<standin::Control::ConfigRow>;

TEST(Camera, OpensMetadataThenBufferOperationsAndLogsItsLife) {
    Device device;
    device.Load();
    device->ClearRecords();
    Camera camera{device, 7};
    EXPECT_EQ(Args(Entry::OpenMetadataOps, 0, 2), (Words{7, 1, 0, 1}));
    EXPECT_EQ(device->Calls().back().entry, Entry::OpenBufferOps);
    EXPECT_EQ(Args(Entry::OpenBufferOps), Words{Args(Entry::OpenMetadataOps)[0]});
    const auto* context =
        reinterpret_cast<const ChiOfflineInterface*>(Args(Entry::OpenBufferOps)[0]);
    camera.Flush();
    camera.Destroy();
    const void* metadata = MadeUp(Args(Entry::MetadataOpsClose)[0]);
    const void* buffers = MadeUp(Args(Entry::BufferOpsClose)[0]);
    constexpr const char kLife[] =
        R"(I Create: OfflineCameraContext %p, size:120, name:%s, pOpenSession:%p, )"
        R"(pOpenMetadata:%p, pOpenBufferOps:%p
I Create: mpOfflineBufferOps:%p
I PlatformAdapter: meta adpatee %p buffer adaptee %p
I Flush: Adapter Flush
I Flush: Start destroy session managers.
E Flush: Flush X
I Destroy: Adapter destroy
I Flush: Start destroy session managers.
E ~QcomAdaptee: ~QcomAdaptee
I Destroy: Destroy X)";
    EXPECT_EQ(Log(), Printed(kLife, context, context->pName, context->pOpenSession,
                             context->pOpenMetadataOps, context->pOpenBufferOps, buffers, metadata,
                             buffers));
}

// --- The feature map

/// Opens a session for `feature` and checks what it was opened with.
void ExpectFeature(Device& device, Camera& camera, const char* feature, uint32_t opMode,
                   uint32_t flags, int32_t value) {
    Request request;
    request.wrapper.numBuffers = 0; // needs nothing of the vendor but the session
    request.wrapper.identity.featureName = feature;
    device->SetDelivery(Delivery::OnCallerThread);
    ASSERT_EQ(request.Submit(camera), 0U);
    const standin::SessionCopy session = device->Sessions().at(0);
    const SessionInfo& record = InfoOf(session);
    EXPECT_EQ(session.config.opMode, opMode);
    EXPECT_EQ(record.featureFlags, flags);
    EXPECT_EQ(record.featureValue, value);
    request.GiveBack(camera);
    camera.Flush();
}

TEST(FeatureMap, RowsAreParsed) {
    const struct {
        const char* what;
        Rows rows;
        const char* feature;
        uint32_t opMode, flags;
        int32_t value;
        size_t errors = 0;
    } cases[] = {
        {"hexadecimal, decimal", {{{"Night", "8", "1f", "3"}}}, "Night", 0x8, 0x1F, 3},
        {"with prefix", {{{"A", "0x10", "0XfF", "010"}}}, "A", 16, 255, 10},
        {"without prefix", {{{"A", "10", "ff", "-7"}}}, "A", 16, 255, -7},
        {"blanks, rest", {{{"A", " \t8", "9,1", "4x"}}}, "A", 8, 9, 4},
        {"unparsed in the first row", {{{"A", "", "zz", "x"}}}, "A", 0, 0, 0},
        {"unparsed later", {{{"A", "8", "9", "4"}}, {{"B", "zz", "y", "x"}}}, "B", 8, 9, 4},
        {"first of two", {{{"A", "1", "1", "1"}}, {{"A", "2", "2", "2"}}}, "A", 1, 1, 1},
        {"other case", {{{"Night", "8", "1f", "3"}}}, "night", 0, 0, 0},
        {"prefix of a name", {{{"Night", "8", "1f", "3"}}}, "Nigh", 0, 0, 0},
        {"longer than a name", {{{"Night", "8", "1f", "3"}}}, "Night ", 0, 0, 0},
        {"two values", {{{"A", "8"}}, {{"B", "9", "1f", "3"}}}, "B", 9, 0, 0},
        {"five values", {{{"A", "8", "9", "4", "99"}}}, "A", 8, 9, 4},
        {"absent", {{{"A", "8", "9", "4"}}, {{nullptr, nullptr, "a", nullptr}}}, "", 8, 10, 4},
        {"no values", {{{"A", "8", "9", "4"}}, {{}}}, "", 8, 9, 4},
        {"no values anywhere", {{}}, "", 0, 0, 0},
        {"no rows", {}, "A", 0, 0, 0},
        {"before one that fails", {{{"A", "1", "2", "3"}}, {.fails = true}}, "A", 1, 2, 3, 1},
        {"behind it", {{{"A", "1"}}, {.fails = true}, {{"B", "4"}}}, "B", 0, 0, 0, 1},
    };
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.what);
        Device device;
        device->SetConfigRows(wanted.rows);
        Camera camera{device};
        EXPECT_EQ(CountLogged("E", "GetOfflineMapInfoByConfig fail"), wanted.errors);
        EXPECT_EQ(CountLogged("E"), wanted.errors);
        for (const standin::Call& read : device->Calls(Entry::GetList)) {
            EXPECT_NE(read.args.at(0), 0U) << "an array for the values";
        }
        ExpectFeature(device, camera, wanted.feature, wanted.opMode, wanted.flags, wanted.value);
    }
}

TEST(FeatureMap, IsReadKeyByKeyWhenACameraIsMade) {
    Device device;
    device->SetConfigRows(Rows(11, {{"Night", "8", "1f", "3", "x"}}));
    Camera camera{device};
    EXPECT_EQ(device->Calls(Entry::GetKeyCount).at(0).text, "OemOfflineFeatureInfoMap");
    EXPECT_EQ(device->Calls(Entry::GetValuesCount).at(0).text,
              "OemOfflineFeatureInfoMap/offlineMode[0]");
    const auto reads = device->Calls(Entry::GetList);
    ASSERT_EQ(reads.size(), 11U);
    EXPECT_EQ(reads[0].text, "OemOfflineFeatureInfoMap/offlineMode/0");
    EXPECT_EQ(reads[10].text, "OemOfflineFeatureInfoMap/offlineMode/10");
    EXPECT_EQ(reads[10].args.at(1), 5U) << "the number of values of the first key";
}

TEST(FeatureMap, LogsEveryLookupAtErrorLevelAndReadsNothingAnew) {
    Device device;
    device->SetConfigRows({{{"Night", "8", "1f", "3"}}});
    Camera camera{device};
    ExpectFeature(device, camera, "Night", 8, 31, 3);
    EXPECT_EQ(LogLines("FindOfflineInfo"), Texts(3, "E find offline info Night success"));
    device->ClearRecords();
    ExpectFeature(device, camera, "Day", 0, 0, 0);
    EXPECT_EQ(LogLines("FindOfflineInfo"), Texts(3, "E not find offline info"));
    EXPECT_EQ(device->CallCount(Entry::GetKeyCount), 0U) << "looked up in what was read at first";
}

} // namespace
