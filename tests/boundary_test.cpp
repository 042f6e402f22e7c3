/// The two entry points, the cameras behind the table with the features that they know, and how the
/// library logs and traces.

#include "tests/support/scene.h"

#include <climits>
#include <cstring>
#include <dlfcn.h>
#include <map>
#include <set>

namespace {

using namespace test;
using Rows = std::vector<standin::Control::ConfigRow>;

TEST(EntryPoints, LoadContextStoresTheLoadAndTheLogMapFunction) {
    Device device;
    const PlatformLoadFunctions functions = device.library.LoadFunctions();
    ASSERT_NE(functions.logMap, nullptr);
    char text[] = "4";
    functions.logMap(4, text, text);
    EXPECT_TRUE(device->Calls().empty() && device->Logs().empty()) << "the log map does nothing";
    EXPECT_NE(functions.loadLib(), nullptr);
    EXPECT_FALSE(device->Calls().empty());
}

TEST(EntryPoints, IntContextFillsTheTableAndMakesNoCamera) {
    Device device;
    constexpr uint64_t kUntouched = 0xEEEEEEEEEEEEEEEE;
    struct {
        PlatFormIntCallbacks table = {};
        uint64_t behind = kUntouched;
    } record;
    device.library.Find<decltype(PlatformIntContext)>("PlatformIntContext")(&record.table, 3);
    uint64_t words[27];
    std::memcpy(words, &record.table, sizeof words);
    const std::set<uint64_t> slots(words + 1, words + 27);
    EXPECT_EQ(static_cast<uint32_t>(words[0]), 3U);
    EXPECT_TRUE(slots.size() == 26 && !slots.contains(0)) << "26 functions, all different";
    EXPECT_EQ(record.behind, kUntouched);
    record.table.ProcRequest(&record.table); // There is no camera: touching it would fault.
    EXPECT_TRUE(device->Calls().empty() && device->Logs().empty());
}

TEST(Cameras, AreFiledUnderTheArgumentOfCreateAndFoundUnderTheTablesId) {
    Device device;
    device.Load();
    PlatFormIntCallbacks tableOf2 = device.library.Table(2);
    PlatFormIntCallbacks tableOf5 = device.library.Table(5);
    EXPECT_NE(tableOf2.Create(&tableOf2, 5), nullptr);
    EXPECT_EQ(Args(Entry::OpenMetadataOps).at(2), 5U);
    EXPECT_EQ(tableOf5.Destroy(&tableOf5), 0);
    EXPECT_EQ(device->CountAlive().metadataOps, 0U);
}

#define CALL(slot, ...)                                                                            \
    {                                                                                              \
#slot, [](T & t) { (void)t.slot(&t __VA_OPT__(, ) __VA_ARGS__); }                          \
    }

TEST(Cameras, ThatWereNeverMadeFaultInEveryCallbackThatNeedsOneWhateverTheArguments) {
    using T = PlatFormIntCallbacks;
    const struct {
        const char* name;
        void (*call)(T& table);
    } cases[] = {
        CALL(Destroy),
        CALL(Flush),
        CALL(TearDownResource),
        CALL(CreateAndroidMetadata, nullptr, 0, nullptr),
        CALL(CreateByAndroidMetadata, nullptr),
        CALL(ReleaseAndroidMetadata, nullptr),
        CALL(CreateWithUsage, nullptr, 0, 0),
        CALL(Copy, nullptr, nullptr, 0),
        CALL(MetadataDestroy, nullptr),
        CALL(GetTag, nullptr, 0, nullptr, 0),
        CALL(SetTag, nullptr, 0, nullptr, 0, 0),
        CALL(DeleteTag, nullptr, 0),
        CALL(GetImageBuffer, nullptr),
        CALL(ReleaseImageBuffer, nullptr),
        CALL(GetCPUAddress, nullptr),
        CALL(SubmitRequestFromRT, nullptr, nullptr, nullptr, nullptr),
        CALL(TranslateToBuffer, nullptr, nullptr),
        CALL(TranslateFromBuffer, nullptr, nullptr),
    };
    Device device;
    Camera other{device, 1};
    T table = device.library.Table(2);
    for (const auto& wanted : cases) {
        EXPECT_DEATH(wanted.call(table), "") << wanted.name;
    }
}

TEST(Cameras, LiveApartUpToIdFifteenAndCanBeMadeAgain) {
    Device device;
    Camera first{device, 0};
    Camera last{device, 15};
    first.Destroy();
    Camera again{device, 0};
    for (Camera* camera : {&last, &again}) {
        void* metadata = (*camera)->CreateWithUsage(camera->Table(), nullptr, 0, 0);
        EXPECT_EQ((*camera)->MetadataDestroy(camera->Table(), metadata), 0U);
    }
    EXPECT_EQ(device->CountAlive().metadataOps, 2U);
}

TEST(Cameras, ReplacedByASecondCreateAreNotFreed) {
    Device device;
    device.ExpectLeftovers();
    device.Load();
    PlatFormIntCallbacks table = device.library.Table(0);
    static const void* volatile first = table.Create(&table, 0); // reachable, so not called a leak
    EXPECT_NE(table.Create(&table, 0), first);
    EXPECT_EQ(device->CallCount(Entry::MetadataOpsClose), 0U);
    table.Destroy(&table);
    EXPECT_EQ(device->CountAlive().metadataOps, 1U);
}

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

// --- Log and trace

TEST(Logging, WritesEachLineToBothSinksInOneShape) {
    const std::map<std::string, std::pair<std::string, int>> levels = {
        {"E", {"[ERROR]", 6}}, {"W", {"[ WARN]", 5}}, {"I", {"[ INFO]", 4}}, {"V", {"[ VERB]", 2}}};
    Device device;
    device.ExpectViolations(); // The host asks for a tag of nothing.
    Camera camera{device};
    ChiStream stream = {.width = 8, .height = 8, .format = 40};
    device->Fail(Entry::GetImageBuffer, 0);
    camera->GetImageBuffer(camera.Table(), &stream);
    camera->CreateByAndroidMetadata(camera.Table(), nullptr);
    device->Fail(Entry::MetadataGetTag, 1);
    camera->GetTag(camera.Table(), nullptr, 1, nullptr, 0);
    camera.Flush();

    const auto logs = device->Logs();
    const auto& lines = g_android.lines;
    ASSERT_EQ(logs.size(), lines.size());
    std::set<std::string> seen;
    for (size_t i = 0; i < logs.size(); ++i) {
        const auto& [mark, priority] = levels.at(logs[i].letter);
        EXPECT_EQ(logs[i].mark + logs[i].module, mark + "[OEM_LYR]");
        EXPECT_EQ(lines[i].text,
                  Printed("%s[OEM_LYR] %s:%d %s() %s\n", mark.c_str(), logs[i].file.c_str(),
                          logs[i].line, logs[i].function.c_str(), logs[i].message.c_str()));
        EXPECT_TRUE(lines[i].tag == "CamZ" && lines[i].priority == priority);
        seen.insert(logs[i].letter + ' ' + logs[i].file);
    }
    EXPECT_EQ(seen, (std::set<std::string>{"E platformadapter.cpp", "W platformadapter.cpp",
                                           "I platformadapter.cpp", "V platformadapter.cpp",
                                           "E qcomadaptee.cpp", "I qcomadaptee.cpp"}));
}

TEST(Logging, CutsTheAndroidLineAt511CharactersAndTheRecordNever) {
    Device device;
    Camera camera{device};
    Request request;
    const std::string name(600, 'n');
    request.wrapper.identity = {nullptr, 0, name};
    request.Submit(camera);
    EXPECT_EQ(CountLogged("I", "pOutStream (nil) cameraId 0 featureName " + name), 1U);
    size_t longest = 0;
    for (const Android::LogLine& line : g_android.lines) {
        longest = std::max(longest, line.text.size());
    }
    EXPECT_EQ(longest, 511U);
}

TEST(Formatting, ReturnsTheLengthAndMinusOneWhereTheTextIsCut) {
    const struct {
        const char* argument;
        size_t size;
        int result;
        const char* text;
    } cases[] = {
        {"123456", 8, 7, "<123456"},
        {"1234567", 8, -1, "<123456"},
        {"123456789", 8, -1, "<123456"},
        {"123456789", 0, 10, "untouched"},
        {"12", 1, -1, ""},
        {"12", size_t{INT_MAX} + 1, -1, "<12"}, // compared as signed numbers
    };
    Device device;
    const auto print =
        device.library.Find<int(char*, size_t, const char*, ...)>("_ZN8CdkUtils8SNPrintFEPcmPKcz");
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.argument);
        char text[16] = "untouched";
        EXPECT_EQ(print(text, wanted.size, "<%s", wanted.argument), wanted.result);
        EXPECT_STREQ(text, wanted.text);
    }
}

TEST(Tracing, TearDownOfTheManagersIsASectionWhereTheVendorsBitAndATagAreOn) {
    const struct {
        uint64_t tags;
        unsigned char byte65, others;
        size_t calls;
    } cases[] = {
        {0xC00, 0x40, 0x00, 2},
        {0x400, 0x40, 0x00, 2},
        {0x800, 0x40, 0x00, 2},
        {0x3FF, 0x40, 0x00, 0},
        {UINT64_MAX, 0xBF, 0xFF, 0},
        {0xC00, 0x40, 0x00, 1}, // Turned off meanwhile: the bit is read again at the end.
    };
    auto* settings = static_cast<unsigned char*>(dlsym(RTLD_DEFAULT, "g_enableChxLogs"));
    for (const auto& wanted : cases) {
        SCOPED_TRACE(Printed("byte %x, tags %lx", wanted.byte65, wanted.tags));
        Device device;
        Camera camera{device};
        ChiStream stream = {.width = 8, .height = 8, .format = ChiStreamFormatRaw10};
        camera->ReleaseImageBuffer(camera.Table(), camera->GetImageBuffer(camera.Table(), &stream));
        Texts calls; // Each with the number of managers that are destroyed by then.
        g_android.onTraceCall = [&](const std::string& call) {
            const size_t destroyed = device->CallCount(Entry::BufferManagerDestroy);
            calls.push_back(call + " " + std::to_string(destroyed));
            settings[65] = wanted.calls == 1 ? 0 : settings[65];
        };
        std::memset(settings, wanted.others, 100);
        settings[65] = wanted.byte65;
        g_android.enabledTraceTags = wanted.tags;
        camera->TearDownResource(camera.Table());
        Texts expected = {"begin PlatformAdapter_TearDownResource 0", "end 1"};
        expected.resize(wanted.calls);
        EXPECT_EQ(calls, expected);
        std::memset(settings, 0, 100);
    }
}

} // namespace
