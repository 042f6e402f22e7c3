/// The two entry points, the cameras behind the table, and how the library logs and traces.

#include "tests/support/device.h"

#include <climits>
#include <cstring>
#include <dlfcn.h>
#include <map>
#include <set>

namespace {

using namespace test;

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
    EXPECT_DEATH(tableOf2.Flush(&tableOf2), "") << "there is no camera 2";
    EXPECT_EQ(tableOf5.Destroy(&tableOf5), 0);
    EXPECT_EQ(device->CountAlive().metadataOps, 0U);
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

TEST(Logging, WritesEachLineToBothSinksInOneShape) {
    const std::map<std::string, std::pair<std::string, int>> levels = {
        {"E", {"[ERROR]", 6}}, {"W", {"[ WARN]", 5}}, {"I", {"[ INFO]", 4}}, {"V", {"[ VERB]", 2}}};
    Device device;
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

constexpr const char kBegin[] = "begin PlatformAdapter_TearDownResource";

TEST(Tracing, TearDownOfTheManagersIsASectionWhereTheVendorsBitAndATagAreOn) {
    const struct {
        uint64_t tags;
        unsigned char byte65, others;
        bool traced;
    } cases[] = {
        {0xC00, 0x40, 0x00, true},  {0x400, 0x40, 0x00, true},       {0x800, 0x40, 0x00, true},
        {0x3FF, 0x40, 0x00, false}, {UINT64_MAX, 0xBF, 0xFF, false},
    };
    auto* settings = static_cast<unsigned char*>(dlsym(RTLD_DEFAULT, "g_enableChxLogs"));
    for (const auto& wanted : cases) {
        SCOPED_TRACE(Printed("byte %x, tags %lx", wanted.byte65, wanted.tags));
        Device device;
        Camera camera{device};
        ChiStream stream = {.width = 8, .height = 8, .format = ChiStreamFormatRaw10};
        camera->ReleaseImageBuffer(camera.Table(), camera->GetImageBuffer(camera.Table(), &stream));
        Texts traceCalls; // Each with the number of managers that are destroyed by then.
        g_android.onTraceCall = [&](const std::string& call) {
            const size_t destroyed = device->CallCount(Entry::BufferManagerDestroy);
            traceCalls.push_back(call + " " + std::to_string(destroyed));
        };
        std::memset(settings, wanted.others, 100);
        settings[65] = wanted.byte65;
        g_android.enabledTraceTags = wanted.tags;
        camera->TearDownResource(camera.Table());
        EXPECT_EQ(traceCalls,
                  wanted.traced ? (Texts{kBegin + std::string(" 0"), "end 1"}) : Texts{});
        std::memset(settings, 0, 100);
    }
}

TEST(Tracing, TheBitIsReadAgainAtTheEnd) {
    Device device;
    Camera camera{device};
    device->SetTracePoints(true);
    g_android.enabledTraceTags = 0xC00;
    Texts traceCalls;
    g_android.onTraceCall = [&](const std::string& call) {
        traceCalls.push_back(call);
        device->SetTracePoints(false);
    };
    camera->TearDownResource(camera.Table());
    EXPECT_EQ(traceCalls, Texts{kBegin});
}

} // namespace
