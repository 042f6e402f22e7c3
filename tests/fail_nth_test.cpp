/// What can go wrong in a camera's life, one thing at a time: call N of the vendor fails, or its
/// entry is missing from then on, or allocation N yields nothing, for every N of one scene.
///
/// Libraries and symbols that a device lacks are in binding_test.cpp: the library binds once per
/// process, and some of them end it.

#include "tests/support/scene.h"

#include <array>
#include <bit>
#include <cstdlib>
#include <dlfcn.h>
#include <map>
#include <new>
#include <regex>
#include <set>

// --- The heap of this program

namespace {

/// Which of the library's allocations that may fail yields nothing, counted from now on; 0 for none.
size_t g_failing = 0;

bool YieldsNothing(const void* caller) {
    Dl_info info = {};
    return dladdr(caller, &info) != 0 &&
           std::string_view(info.dli_fname).ends_with("camera.oemlayer.adapter.so") &&
           --g_failing == 0;
}

} // namespace

void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    const bool fails = g_failing != 0 && YieldsNothing(__builtin_return_address(0));
    return fails ? nullptr : ::operator new[](size);
}

/// Called before a sanitizer is ready. Made of `realloc`, since `malloc` and a loop that clears
/// would be optimised into `calloc`.
extern "C" __attribute__((visibility("default"), no_sanitize("address", "undefined"))) void*
calloc(size_t count, size_t size) noexcept {
    const bool fails = g_failing != 0 && YieldsNothing(__builtin_return_address(0));
    void* memory = fails ? nullptr : std::realloc(nullptr, count * size);
    return memory != nullptr ? std::memset(memory, 0, count * size) : nullptr;
}

namespace {

using namespace test;
using standin::Alive;

// --- What is expected

enum class Stage { Load, Create, Take, Submit, Deliver, Flush, GiveBack, Destroy };

/// Where the scene is looked at: after each of its requests, after the flush that comes between the
/// second and the third, and at its end.
enum Point : size_t { First, Second, Flushed, Third, Last };

/// The status of a request, F where the framework was asked for a buffer, and the request's story.
constexpr const char kUsual[] = "0 F MB R C0";
constexpr const char kBlank[] = "0 F Mb R C0";
constexpr const char kNoMetadata[] = "0 F B R C0";
constexpr const char kNoStreams[] = "0 MB R C0"; ///< Or no memory to ask the framework with.

/// A request, and what remains of it in the vendor for good.
struct Outcome {
    const char* told = "";
    Alive left = {};
};

struct Effect {
    Texts errors = {};
    std::vector<Outcome> requests = {}; ///< From the one that meets it on, else from the next.
    Alive left = {};
};

struct Row {
    Stage stage;
    Entry entry;
    Effect fails;
    Effect missing = {};
};

constexpr const char kNoSession[] = "Invalid session handle or NULL session info in mSessInfoMap";
constexpr const char kNoMatch[] = "Cannot match any session!!!";
constexpr const char kNotOpened[] =
    "[oemlayer_stream] Unable to open session for Night for stream:<address>";
constexpr const char kNotConfigured[] = "[oemlayer_stream] Configure Streams failed for usecase: "
                                        "Night for camera: 0 with opmode: 8";
constexpr const char kNotClosed[] = "Failed to close session 1 for usecase Night for camera 0";
constexpr const char kNoFeature[] = "not find offline info";
constexpr const char kNoMetadataOps[] = "mpChiOfflineIntfOps->pOpenMetadataOps is not implemented";
constexpr const char kNoBufferOps[] = "mpChiOfflineIntfOps->pOpenBufferOps is not implemented";
constexpr const char kNoManager[] = "Invalid m_pBufferAdaptee:<address>";
constexpr const char kNoBuffers[] = "Invalid m_pBufferAdaptee:(nil)";
constexpr const char kNotMade[] = "CreateWithUsage fail";
constexpr const char kNotDestroyed[] = "Destory Metadata fail";
constexpr const char kNotReleased[] = "ReleaseAndroidMetadata fail";
constexpr const char kImageNotReleased[] = "ReleaseImageBuffer fail";

using enum Stage;
using enum Entry;
const std::vector<Row> kRows = {
    {Load,
     OpenContext,
     {{kNoBuffers, kNotMade, kNotOpened, kNoMatch, kNoSession, kImageNotReleased, kNotDestroyed},
      {{"4"}, {"4"}, {"4"}}}},
    {Load, OfflineLogEntry, {}},
    {Load, SetOfflineLoggerOps, {}},
    {Create, GetKeyCount, {{kNoFeature}}},
    {Create, GetValuesCount, {{kNoFeature}}},
    {Create, GetList, {{"GetOfflineMapInfoByConfig fail", kNoFeature}}},
    {Create,
     OpenMetadataOps,
     {{"Metadata Ops initialization failed", kNotMade, kNotDestroyed},
      {{kNoMetadata}, {kNoMetadata}, {kNoMetadata}}},
     {{kNoMetadataOps, kNotMade, kNotDestroyed}, {{kNoMetadata}, {kNoMetadata}, {kNoMetadata}}}},
    {Create,
     OpenBufferOps,
     {{kNoBuffers, kImageNotReleased}},
     {{kNoBufferOps, kNoBuffers, kImageNotReleased}}},
    {Take, BufferManagerCreate, {}, {{kNoManager}}},
    {Take, GetImageBuffer, {}},
    {Take, MetadataCreateWithUsage, {}, {{kNotMade}}},
    {Submit, TranslateToChiBuffer, {}, {{}, {{kBlank}}}},
    {Submit,
     OpenSession,
     {{kNotOpened, kNoSession}, {{"4"}, {"4"}}},
     {{kNotOpened, kNoSession}, {{"4"}, {"4"}}}},
    {Submit, MetadataCreateFromAndroid, {}},
    {Submit,
     ConfigureStreams,
     {{kNotConfigured, kNoSession},
      {{"4", {.sessions = 2, .metadata = 1}}, {"4"}, {"4", {.sessions = 1}}}},
     {{kNoMatch, kNoSession},
      {{"4", {.sessions = 2, .metadata = 1}}, {"4", {.sessions = 1}}, {"4", {.sessions = 2}}}}},
    {Submit, MetadataDestroy, {.left = {.metadata = 1}}, {.left = {.metadata = 1}}},
    {Submit, MetadataCreate, {{}, {{kNoMetadata}}}, {{}, {{kNoMetadata}}}},
    {Submit,
     ExecuteRequest,
     {{"ExecuteRequest failed for offline frame:-1 result:1 "}, {{"1", {.metadata = 1}}}},
     {{"mpChiOfflineIntfOps->pExecuteRequest is NULL"}, {{"1", {.metadata = 1}}}}},
    {Deliver, TranslateToChiBuffer, {{}, {{kBlank}}}, {{}, {{kBlank}}}},
    {Deliver, TranslateFromChiBuffer, {{}, {{kBlank}}}, {{}, {{kBlank}}}},
    {Deliver,
     MetadataCreateAndroid,
     {{"frameNumber:7 pMeta:(nil)"}, {{kNoMetadata}}},
     {{"frameNumber:7 pMeta:(nil)"}, {{kNoMetadata}}}},
    {Deliver, MetadataDestroy, {.left = {.metadata = 1}}, {.left = {.metadata = 1}}},
    {Stage::Flush,
     CloseSession,
     {{kNotClosed, kNoSession}, {{"4", {.sessions = 1}}}, {.sessions = 1}},
     {{kNoSession}, {{"4", {.sessions = 1}}}, {.sessions = 1}}},
    {GiveBack, ReleaseImageBuffer, {}, {{kImageNotReleased}}},
    {GiveBack, MetadataDestroy, {.left = {.metadata = 1}}, {{kNotDestroyed}, {}, {.metadata = 1}}},
    {GiveBack,
     MetadataReleaseAndroid,
     {.left = {.androidMetadata = 1}},
     {{kNotReleased}, {}, {.androidMetadata = 1}}},
    {Destroy,
     BufferManagerDestroy,
     {.left = {.bufferManagers = 1}},
     {.left = {.bufferManagers = 1}}},
    {Destroy, CloseSession, {{kNotClosed}, {}, {.sessions = 1}}, {.left = {.sessions = 1}}},
    {Destroy, MetadataOpsClose, {.left = {.metadataOps = 1}}, {.left = {.metadataOps = 1}}},
    {Destroy, BufferOpsClose, {.left = {.bufferOps = 1}}, {.left = {.bufferOps = 1}}},
};

using Numbers = std::array<size_t, sizeof(Alive) / sizeof(size_t)>;

void Add(Alive& sum, const Alive& more) {
    auto numbers = std::bit_cast<Numbers>(sum);
    const auto added = std::bit_cast<Numbers>(more);
    std::transform(numbers.begin(), numbers.end(), added.begin(), numbers.begin(), std::plus());
    sum = std::bit_cast<Alive>(numbers);
}

struct Expected {
    std::array<Outcome, Last + 1> at = {{{kUsual}, {kUsual}, {}, {kUsual}, {}}};
    std::set<std::string> errors;

    /// Whether the last request before or at a point has no session.
    bool IsRefused(Point point) const {
        return *at.at(point == Flushed || point == Last ? point - 1 : point).told == '4';
    }
    /// What happens at a point, or before it, where it is the first.
    void Apply(Point point, const Effect& effect) {
        errors.insert(effect.errors.begin(), effect.errors.end());
        Add(at.at(point).left, effect.left);
        size_t next = point;
        for (const Outcome& outcome : effect.requests) {
            next += next == Flushed ? 1 : 0;
            if (next < Last) {
                at.at(next).told = outcome.told;
                Add(at.at(next++).left, outcome.left);
            }
        }
    }
};

// --- The scene

struct Call {
    Stage stage;
    Point point;
    Entry entry;
};

/// One camera from load to destruction, with three requests of one identity, whose session asks the
/// framework for buffers. It follows the vendor's calls.
class Life : public standin::Observer {
  public:
    Life() {
        current = this;
        device.ExpectLeftovers();
        device->SetObserver(this);
        device->SetDelivery(Delivery::OnCallerThread);
        device->SetShape(Shape::Together);
        device->SetAsksForFrameworkBuffers(true);
        device->SetConfigRows({{{"Night", "8", "1f", "3"}}});
        Put(mRequest.wrapper, 96, 0x77);
        mRequest.frameworkOps.request_stream_buffers = Answer;
    }

    void Run() {
        device.Load();
        Enter(Create, First);
        Camera camera(device);
        Enter(Take, First);
        mRequest.UseVendorBuffers(camera);
        mTaken = device->CountAlive();
        Submit(camera, First);
        Submit(camera, Second);
        Enter(Stage::Flush, Flushed);
        camera.Flush();
        mAlive.at(Flushed) = device->CountAlive();
        Submit(camera, Third);
        Enter(GiveBack, Last);
        mRequest.GiveBack(camera);
        Enter(Destroy, Last);
        camera.Destroy();
        mAlive.at(Last) = device->CountAlive();
    }

    void Check(const Expected& expected) const {
        EXPECT_EQ(Errors(), expected.errors);
        Alive left = {};
        size_t results = 0;
        for (const Point point : {First, Second, Flushed, Third, Last}) {
            SCOPED_TRACE(point);
            const std::string told = expected.at.at(point).told;
            Add(left, expected.at.at(point).left);
            Alive alive = left;
            if (point != Last) {
                Add(alive, mTaken);
                alive.sessions += told.empty() || told == "4" ? 0 : 1;
                alive.androidMetadata += results += told.find('M') != told.npos ? 1 : 0;
            }
            EXPECT_EQ(mTold.at(point), told);
            EXPECT_EQ(std::bit_cast<Numbers>(mAlive.at(point)), std::bit_cast<Numbers>(alive));
        }
    }

    /// The entry is missing from the vendor's call with this index on.
    void MissFrom(size_t index, Entry entry) {
        mMissingFrom = index;
        mMissing = entry;
    }

    Device device;
    std::vector<Call> calls;

  private:
    void NameThread(const std::string&) override {}
    void Begin(const char* what) override {
        uint32_t entry = 0;
        while (entry < static_cast<uint32_t>(Entry::Count) &&
               std::string(what) != standin::EntryName(static_cast<Entry>(entry))) {
            ++entry;
        }
        if (entry == static_cast<uint32_t>(Entry::Count)) {
            return; // It is at work on its own.
        }
        calls.push_back({mStage, mPoint, static_cast<Entry>(entry)});
        if (calls.back().entry == ExecuteRequest) {
            mStage = Deliver;
        }
        if (calls.size() == mMissingFrom) {
            device->SetMissing(mMissing);
        }
    }
    void End() override {}

    void Enter(Stage stage, Point point) {
        mStage = stage;
        mPoint = point;
    }
    void Submit(Camera& camera, Point point) {
        Enter(Stage::Submit, point);
        mAsked.clear();
        const size_t before = mRequest.Events().size();
        const std::string status = std::to_string(mRequest.Submit(camera));
        const std::string story = Story(mRequest, before);
        mTold.at(point) = status + mAsked + (story.empty() ? "" : " " + story);
        mAlive.at(point) = device->CountAlive();
    }
    static int32_t Answer(const camera3_callback_ops*, uint32_t, const camera3_buffer_request*,
                          uint32_t*, camera3_stream_buffer_ret* answers) {
        current->mAsked += " F";
        answers->num_output_buffers = 1;
        *answers->output_buffers = current->mRequest.output;
        return 0;
    }
    /// What was logged at error level, without what is logged there in good times.
    static std::set<std::string> Errors() {
        std::set<std::string> errors;
        for (const standin::LogRecord& record : StandinControl()->Logs()) {
            if (record.letter == "E") {
                errors.insert(
                    std::regex_replace(record.message, std::regex("0x[0-9a-f]+"), "<address>"));
            }
        }
        for (const char* mark : {"find offline info Night success", "Flush X", "~QcomAdaptee"}) {
            errors.erase(mark);
        }
        return errors;
    }

    static inline Life* current;
    Request mRequest;
    std::string mAsked;
    std::array<std::string, Last + 1> mTold;
    std::array<Alive, Last + 1> mAlive = {};
    Alive mTaken = {};
    Stage mStage = Load;
    Point mPoint = First;
    size_t mMissingFrom = 0;
    Entry mMissing = {};
};

// --- The sweeps

/// The calls of a scene in which nothing fails.
std::vector<Call> UsualCalls() {
    Life life;
    life.Run();
    life.Check({});
    EXPECT_EQ(life.device->Violations(), Texts());
    return life.calls;
}

const Row& RowOf(const Call& call) {
    const auto row = std::find_if(kRows.begin(), kRows.end(), [&call](const Row& each) {
        return each.stage == call.stage && each.entry == call.entry;
    });
    EXPECT_NE(row, kRows.end()) << standin::EntryName(call.entry);
    return *row;
}

TEST(FailNth, ACallThatFailsCostsWhatItsEntryIsFor) {
    const std::vector<Call> calls = UsualCalls();
    std::map<Entry, uint32_t> made;
    std::set<const Row*> met;
    for (const Call& call : calls) {
        const uint32_t nth = ++made[call.entry];
        SCOPED_TRACE(Printed("%s %u", standin::EntryName(call.entry), nth));
        Expected expected;
        met.insert(&RowOf(call));
        expected.Apply(call.point, RowOf(call).fails);
        Life life;
        life.device->Fail(call.entry, standin::FailureOf(call.entry), nth, 1);
        life.Run();
        life.Check(expected);
    }
    EXPECT_EQ(met.size(), kRows.size());
}

/// What a call costs from which on its entry is missing.
Expected WithoutEntry(const std::vector<Call>& calls, size_t from) {
    const Entry missing = calls.at(from).entry;
    Expected expected;
    for (size_t i = from; i < calls.size(); ++i) {
        const Call& call = calls[i];
        // Android metadata goes back only where it can be taken in.
        const bool meets = call.entry == missing || (call.entry == MetadataReleaseAndroid &&
                                                     missing == MetadataCreateFromAndroid);
        // Without a session there is nothing to make ready or to close.
        if (meets && (i == from || !expected.IsRefused(call.point))) {
            expected.Apply(call.point, RowOf(call).missing);
        }
    }
    return expected;
}

TEST(FailNth, AnEntryThatIsMissingCostsWhatItIsFor) {
    const std::vector<Call> calls = UsualCalls();
    for (size_t i = 0; i < calls.size(); ++i) {
        const Entry entry = calls[i].entry;
        if (entry < OpenSession || entry > GetCPUAddress) {
            continue; // It is in no table.
        }
        SCOPED_TRACE(Printed("%s from call %zu", standin::EntryName(entry), i));
        Life life;
        life.MissFrom(i, entry);
        life.Run();
        life.Check(WithoutEntry(calls, i));
    }
}

TEST(FailNth, AnAllocationThatYieldsNothingCostsAListOfStreamsOrAFrameworkBuffer) {
    const Effect list = {{"Unable to initialize ppChiStreams"}, {{kNoStreams}, {kNoStreams}}};
    const Effect whole = {
        {"[oemlayer_stream] Unable to initialize ppChiStreams",
         "[oemlayer_stream] Unable to prepare configure session for Night for camera 0"},
        list.requests};
    const Effect framework = {{}, {{kNoStreams}}};
    const std::pair<Point, const Effect*> allocations[] = {
        {First, &list},      {First, &whole},      {First, &framework},  {First, &framework},
        {First, &framework}, {Second, &framework}, {Second, &framework}, {Second, &framework},
        {Third, &list},      {Third, &whole},      {Third, &framework},  {Third, &framework},
        {Third, &framework},
    };
    size_t nth = 0;
    for (const auto& [point, effect] : allocations) {
        SCOPED_TRACE(++nth);
        Expected expected;
        expected.Apply(point, *effect);
        Life life;
        g_failing = nth;
        life.Run();
        EXPECT_EQ(g_failing, 0U);
        life.Check(expected);
    }
    g_failing = nth + 1;
    UsualCalls();
    EXPECT_EQ(g_failing, 1U) << "the library makes more such allocations";
    g_failing = 0;
}

} // namespace
