/// The callbacks that forward to the vendor's metadata, buffer and interface operations.

#include "tests/support/device.h"

namespace {

using namespace test;

uint64_t Word(const void* pointer) { return Address(pointer); }
uint64_t Word(uint32_t number) { return number; }

void* P(uint64_t word) { return reinterpret_cast<void*>(word); }
uint32_t* N(uint64_t word) { return static_cast<uint32_t*>(P(word)); }

constexpr uint32_t kWide = 0x8000'0000; ///< Where a narrower or a signed type would change it.
constexpr uint64_t kMeta = 0xEC04D;     ///< Stands for the metadata operations' record.
constexpr const char kNV124RWarning[] =
    "W Overriding format from ChiStreamFormatUBWCNV124R to ChiStreamFormatUBWCTP10 as Gralloc does "
    "not support ChiStreamFormatUBWCNV124R";

/// A callback that hands its arguments on and the result back.
struct Forward {
    Entry entry;
    const char* name;
    uint64_t (*call)(Camera&);
    std::initializer_list<uint64_t> received; ///< What the vendor's entry gets.
    const char* failing = nullptr;            ///< Logged before "fail" where it is not the name.
};

#define CALL(slot, ...) #slot, [](Camera & on) { return Word(on->slot(on.Table(), __VA_ARGS__)); }

constexpr const char kToChi[] = "TranslateToChiBuffer";
constexpr const char kFromChi[] = "TranslateFromChiBuffer";
using enum Entry;
constexpr Forward kForwards[] = {
    {MetadataCreateAndroid,
     CALL(CreateAndroidMetadata, P(1), kWide, N(4)),
     {kMeta, 1, 1, 1, kWide, 4}},
    {MetadataCreateFromAndroid, CALL(CreateByAndroidMetadata, P(1)), {kMeta, 1, 0, 0, 0xFFFFFFFF}},
    {MetadataReleaseAndroid, CALL(ReleaseAndroidMetadata, P(1)), {kMeta, 1}},
    {MetadataCreateWithUsage, CALL(CreateWithUsage, N(1), kWide, -5), {kMeta, 1, kWide, 0ULL - 5}},
    {MetadataCopy, CALL(Copy, P(1), P(2), 0xFE), {1, 2, 0xFE}},
    {MetadataDestroy, CALL(MetadataDestroy, P(1)), {1}, "Destory Metadata"},
    {MetadataSetTag, CALL(SetTag, P(1), kWide, P(3), ~5U, ~6U), {1, kWide, 3, ~5U, ~6U}},
    {MetadataDeleteTag, CALL(DeleteTag, P(1), kWide), {1, kWide}},
    {GetCPUAddress, CALL(GetCPUAddress, P(1)), {1}},
    {TranslateToChiBuffer, CALL(TranslateToBuffer, P(1), P(2)), {1, 2}, kToChi},
    {TranslateFromChiBuffer, CALL(TranslateFromBuffer, P(1), P(2)), {1, 2}, kFromChi},
};

TEST(Forwarding, PassesArgumentsOnAndTheResultBack) {
    Device device;
    device->SetFeed(false); // Nothing lies behind these words.
    Camera camera{device};
    for (const Forward& forward : kForwards) {
        for (const uint64_t result : {uint64_t{kWide} + 7, uint64_t{0}}) {
            device->Fail(forward.entry, result); // the entry returns this and does nothing
            EXPECT_EQ(forward.call(camera), result) << forward.name;
        }
    }
    EXPECT_EQ(CountLogged("E"), 0U);
    camera.Destroy();
    for (const Forward& forward : kForwards) {
        Words wanted = forward.received;
        std::replace(wanted.begin(), wanted.end(), kMeta, Args(MetadataOpsClose)[0]);
        EXPECT_EQ(Args(forward.entry, 0), wanted) << forward.name;
        EXPECT_EQ(Args(forward.entry, 1), wanted) << forward.name;
        EXPECT_EQ(device->CallCount(forward.entry), 2U) << forward.name;
    }
}

void ExpectFailures(Camera& camera) {
    for (const Forward& forward : kForwards) {
        EXPECT_EQ(forward.call(camera), 0U) << forward.name;
        const char* failing = forward.failing ? forward.failing : forward.name;
        EXPECT_EQ(LastLog(forward.name), Printed("E %s fail", failing));
        EXPECT_EQ(StandinControl()->CallCount(forward.entry), 0U) << forward.name;
    }
    uint32_t size = 77;
    EXPECT_EQ(camera->GetTag(camera.Table(), nullptr, 1, &size, 0), nullptr);
    EXPECT_EQ(size, 77U);
    EXPECT_EQ(LastLog("GetTag"), "E GetTag fail");
    camera->ReleaseImageBuffer(camera.Table(), nullptr);
    EXPECT_EQ(LastLog("ReleaseImageBuffer"), "E ReleaseImageBuffer fail");
}

TEST(Forwarding, FailsWithoutTheEntry) {
    Device device;
    Camera camera{device};
    for (const Forward& forward : kForwards) {
        device->SetMissing(forward.entry); // Alone.
        EXPECT_EQ(forward.call(camera), 0U) << forward.name;
        device->SetMissing(forward.entry, false);
    }
    for (const Forward& forward : kForwards) {
        device->SetMissing(forward.entry);
    }
    device->SetMissing(MetadataGetTag);
    device->SetMissing(ReleaseImageBuffer);
    ExpectFailures(camera);
}

TEST(Forwarding, FailsWithoutTheRecord) {
    Device device;
    device->RefuseLibrary("/vendor/lib64/hw/com.qti.chi.offline.so");
    device.Load();
    device->ClearRecords();
    Camera camera{device};
    EXPECT_EQ(Log(), "I PlatformAdapter: meta adpatee (nil) buffer adaptee (nil)");
    ExpectFailures(camera);
    ChiStream stream = {.width = 8, .height = 8, .format = ChiStreamFormatUBWCNV124R};
    EXPECT_EQ(camera->GetImageBuffer(camera.Table(), &stream), nullptr);
    EXPECT_EQ(Log("GetImageBuffer"),
              std::string(kNV124RWarning) + "\nE Invalid m_pBufferAdaptee:(nil)");
}

TEST(Forwarding, ReleasesAndroidMetadataOnlyWhereItCanBeTakenIn) {
    Device device;
    Camera camera{device};
    EXPECT_EQ(camera->CreateByAndroidMetadata(camera.Table(), nullptr), nullptr);
    EXPECT_EQ(camera->ReleaseAndroidMetadata(camera.Table(), nullptr), 0U);
    device->SetMissing(MetadataCreateFromAndroid);
    EXPECT_EQ(camera->ReleaseAndroidMetadata(camera.Table(), P(1)), 0U);
    EXPECT_EQ(device->CallCount(MetadataCreateFromAndroid), 0U);
    EXPECT_EQ(device->CallCount(MetadataReleaseAndroid), 0U);
    EXPECT_EQ(Log("CreateByAndroidMetadata"), "E CreateByAndroidMetadata fail");
    EXPECT_EQ(LogLines("ReleaseAndroidMetadata"), Texts(2, "E ReleaseAndroidMetadata fail"));
}

TEST(GetTag, ReturnsTheDataAndItsSizeOrAClearedRecordsWhereTheVendorFillsNone) {
    Device device;
    Camera camera{device};
    void* metadata = camera->CreateWithUsage(camera.Table(), nullptr, 0, 0);
    camera->SetTag(camera.Table(), metadata, 0x80000ABC, "five", 5, 0);
    uint32_t size = 0;
    void* data = camera->GetTag(camera.Table(), metadata, 0x80000ABC, &size, 0xFE);
    EXPECT_STREQ(static_cast<const char*>(data), "five");
    EXPECT_EQ(size, 5U);
    EXPECT_EQ(camera->GetTag(camera.Table(), metadata, 0x80000ABC, nullptr, 0), data);

    const uint64_t record = Args(MetadataGetTag).at(3);
    EXPECT_EQ(Args(MetadataGetTag), (Words{Word(metadata), 0x80000ABC, 0xFE, record}));
    EXPECT_EQ(LogLines("GetTag").at(0),
              Printed("V returnSize %p tagId 80000abc typeId 254 pTagData %p entryInfo.size 5",
                      &size, P(record + 8)));

    device->Fail(MetadataGetTag, 1);
    EXPECT_EQ(camera->GetTag(camera.Table(), metadata, 0x80000ABC, &size, 0), nullptr);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(CountLogged("E"), 0U) << "the vendor's result is not looked at";
    camera->MetadataDestroy(camera.Table(), metadata);
}

constexpr uint64_t kImage = 0x1234;
constexpr uint64_t kTP10 = 0x7FA30C09;
constexpr const char kPD10Warning[] =
    "W Overriding format from ChiStreamFormatPD10 to ChiStreamFormatRaw12 as Gralloc does not "
    "support ChiStreamFormatPD10";

TEST(GetImageBuffer, MakesTheManagerThatTheStreamsFormatAsksFor) {
    const struct {
        uint32_t format, width, height;
        Words made; ///< Width, height, format.
        const char* name;
        const char* log = "";
    } cases[] = {
        {35, 4000, 3000, {4000, 3000, 35}, "35_wxh_4000x3000"},
        {33, 4000, 3000, {48000000, 1, 33}, "33_wxh_48000000x1"},
        {40, 64, 32, {64, 32, kTP10}, "2141391881_wxh_64x32", kNV124RWarning},
        {0x7FA30C08, 64, 32, {64, 32, kTP10}, "2141391881_wxh_64x32", kPD10Warning},
    };
    for (const auto& wanted : cases) {
        SCOPED_TRACE(wanted.format);
        Device device;
        Camera camera{device};
        device->Fail(GetImageBuffer, kImage);
        ChiStream stream = {
            .width = wanted.width, .height = wanted.height, .format = wanted.format};
        EXPECT_EQ(camera->GetImageBuffer(camera.Table(), &stream), P(kImage));
        camera->ReleaseImageBuffer(camera.Table(), P(kImage));
        camera.Destroy();

        const standin::Call made = device->Calls(BufferManagerCreate).at(0);
        EXPECT_EQ(made.args.at(0), Args(BufferOpsClose)[0]);
        EXPECT_EQ((Words{made.args.begin() + 2, made.args.begin() + 5}), wanted.made);
        EXPECT_EQ(made.args.at(5), Address(&stream));
        EXPECT_EQ(made.text, std::string("OEM_CHI_BUFFER_MANAGER_format_") + wanted.name);
        EXPECT_EQ(Log("GetImageBuffer"), wanted.log);
    }
}

class Managers : public testing::Test {
  protected:
    void* Take(ChiStream& stream) { return camera->GetImageBuffer(camera.Table(), &stream); }
    Device device;
    Camera camera{device};
    ChiStream first = {.width = 8, .height = 8, .format = ChiStreamFormatRaw10};
    ChiStream second = first;
};

TEST_F(Managers, AreMadeOnceForEachStreamAndAnewAfterTheTearDownThatDestroysThem) {
    void* images[] = {Take(first), Take(second), Take(first)};
    EXPECT_EQ(device->CallCount(BufferManagerCreate), 2U);
    EXPECT_EQ(Args(GetImageBuffer, 0), Args(GetImageBuffer, 2));
    EXPECT_NE(Args(GetImageBuffer, 0), Args(GetImageBuffer, 1));
    for (void* image : images) {
        camera->ReleaseImageBuffer(camera.Table(), image);
    }
    EXPECT_EQ(device->CountAlive().imageBuffers, 0U);
    EXPECT_EQ(device->CountAlive().bufferManagers, 2U);
    camera->TearDownResource(camera.Table());
    camera->TearDownResource(camera.Table());
    EXPECT_EQ(device->CallCount(BufferManagerDestroy), 2U);
    EXPECT_EQ(device->CountAlive().bufferManagers, 0U);
    camera->ReleaseImageBuffer(camera.Table(), Take(first));
    EXPECT_EQ(device->CallCount(BufferManagerCreate), 3U);
}

TEST_F(Managers, ThatCouldNotBeMadeAreKeptAsNullUntilTearDown) {
    device->Fail(BufferManagerCreate, 0, 1, 1);
    Take(first);
    EXPECT_EQ(Take(first), nullptr);
    EXPECT_EQ(device->CallCount(BufferManagerCreate), 1U);
    EXPECT_EQ(Args(GetImageBuffer, 0), Words{0});
    EXPECT_EQ(Args(GetImageBuffer, 1), Words{0});
    camera->TearDownResource(camera.Table());
    EXPECT_EQ(Args(BufferManagerDestroy), Words{0});
}

TEST_F(Managers, AreMadeAlsoWhereNothingCanBeTakenFromThem) {
    device->SetMissing(GetImageBuffer);
    EXPECT_EQ(Take(first), nullptr);
    EXPECT_EQ(Take(first), nullptr);
    EXPECT_EQ(device->CallCount(BufferManagerCreate), 1U);
    EXPECT_EQ(device->CountAlive().bufferManagers, 1U);
    EXPECT_EQ(Log("GetImageBuffer"), "") << "as if the vendor had none left";
}

TEST_F(Managers, AreNotKeptWhereTheCreateEntryIsMissing) {
    device.ExpectViolations(); // One image twice, and its managers are not its own.
    device->SetMissing(BufferManagerCreate);
    device->Fail(GetImageBuffer, kImage);
    EXPECT_EQ(Take(first), P(kImage)) << "asked for with a null manager";
    EXPECT_EQ(Args(GetImageBuffer), Words{0});
    device->SetMissing(BufferManagerCreate, false);
    Take(first);
    EXPECT_EQ(device->CallCount(BufferManagerCreate), 1U);
    camera.Destroy();
    EXPECT_EQ(LastLog("GetImageBuffer"),
              Printed("E Invalid m_pBufferAdaptee:%p", P(Args(BufferOpsClose)[0])));
}

} // namespace
