/// What can go wrong in a camera's life, one thing at a time: call N of the vendor fails, or its
/// entry is missing from then on, or allocation N yields nothing, for every N of one scene.
///
/// Libraries and symbols that a device lacks are in binding_test.cpp: the library binds once per
/// process, and some of them end it.

#include "kit/heap.h"
#include "tests/support/scene.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <dlfcn.h>
#include <map>
#include <optional>
#include <regex>
#include <set>

// --- The heap of this program

namespace {

/// Which of the library's next allocations that may fail yields nothing; 0 for none.
size_t g_failing = 0;

bool YieldsNothing(const void* caller) {
    Dl_info info = {};
    return dladdr(caller, &info) != 0 &&
           std::string_view(info.dli_fname).ends_with("camera.oemlayer.adapter.so") &&
           --g_failing == 0;
}

} // namespace

void* kit::Take(size_t size, HeapForm form, const void* caller) {
    const bool fails = form.mayFail && g_failing != 0 && YieldsNothing(caller);
    return fails ? nullptr : TakeFollowed(size, form);
}
void kit::Give(void* memory, HeapForm form) noexcept { GiveFollowed(memory, form); }

/// Called before a sanitizer is ready. `malloc` with `memset` would be optimised into `calloc`.
extern "C" __attribute__((visibility("default"), no_sanitize("address", "undefined"))) void*
calloc(size_t count, size_t size) noexcept {
    const bool fails = g_failing != 0 && YieldsNothing(__builtin_return_address(0));
    void* memory = fails ? nullptr : std::realloc(nullptr, count * size);
    return memory != nullptr ? std::memset(memory, 0, count * size) : nullptr;
}

namespace {

using namespace test;

// --- What is expected

/// The rule that is broken where such an object is left.
const char* RuleOf(char left) {
    static const std::map<char, const char*> kRules = {{'A', "V24"}, {'B', "V27"}, {'I', "V29"},
                                                       {'M', "V23"}, {'S', "V5"},  {'b', "V30"},
                                                       {'m', "V30"}};
    return kRules.at(left);
}
/// An entry that returns nothing: that it failed cannot be seen.
bool IsSilent(Entry entry) {
    return entry == Entry::BufferManagerDestroy || entry == Entry::ReleaseImageBuffer ||
           entry == Entry::MetadataOpsClose || entry == Entry::BufferOpsClose;
}

/// Where the scene is looked at: after its requests, after the flush before the last of them, and
/// at its end.
enum Point : size_t { First, Second, Flushed, Third, Last, Points };

/// A letter for each object that is alive in the vendor.
std::string AliveText() {
    const standin::Alive alive = StandinControl()->CountAlive();
    return std::string(alive.androidMetadata, 'A') + std::string(alive.bufferManagers, 'B') +
           std::string(alive.imageBuffers, 'I') + std::string(alive.metadata, 'M') +
           std::string(alive.sessions, 'S') + std::string(alive.bufferOps, 'b') +
           std::string(alive.metadataOps, 'm');
}

struct Outcome {
    const char* told;      ///< F if the framework was asked for a buffer, status, story.
    const char* left = ""; ///< What stays alive for good.
};

struct Effect {
    std::set<std::string> errors = {};  ///< Messages, and numbers of broken rules of the contract.
    std::vector<Outcome> requests = {}; ///< From the one that meets it on, else from the next.
    const char* left = "";
};

constexpr Outcome kUsual = {"F 0 MB R C0"};
constexpr Outcome kBlank = {"F 0 Mb R C0"};
constexpr Outcome kNoMetadata = {"F 0 B R C0"};
constexpr Outcome kNoFramework = {"0 MB R C0"};
constexpr Outcome kRefused = {"4"};
constexpr Outcome kNotExecuted = {"1", "M"};
constexpr const char kNoSession[] = "Invalid session handle or NULL session info in mSessInfoMap";
constexpr const char kNoMatch[] = "Cannot match any session!!!";
constexpr const char kNotOpened[] =
    "[oemlayer_stream] Unable to open session for Night for stream:<address>";
constexpr const char kNotConfigured[] = "[oemlayer_stream] Configure Streams failed for usecase: "
                                        "Night for camera: 0 with opmode: 8";
constexpr const char kNoFeature[] = "not find offline info";
constexpr const char kNoBuffers[] = "Invalid m_pBufferAdaptee:(nil)";
constexpr const char kNotMade[] = "CreateWithUsage fail";
constexpr const char kNotDestroyed[] = "Destory Metadata fail";
constexpr const char kNotReleased[] = "ReleaseImageBuffer fail";

using enum Entry;

struct Row {
    Effect fails = {};
    std::optional<Effect> missing = {}; ///< Where it is another one.
};

const std::map<Entry, Row>& Rows() {
    constexpr const char kNoOps[] = "mpChiOfflineIntfOps->pOpenMetadataOps is not implemented";
    constexpr const char kNoBufferOps[] = "mpChiOfflineIntfOps->pOpenBufferOps is not implemented";
    static const std::map<Entry, Row> rows = {
        {OpenContext,
         {{{kNoBuffers, kNotMade, kNotOpened, kNoMatch, kNotReleased, kNotDestroyed},
           {3, kRefused}}}},
        {OfflineLogEntry, {}},
        {SetOfflineLoggerOps, {}},
        {GetKeyCount, {{{kNoFeature}}}},
        {GetValuesCount, {{{kNoFeature}}}},
        {GetList, {{{"GetOfflineMapInfoByConfig fail", kNoFeature}}}},
        {OpenMetadataOps,
         {{{"Metadata Ops initialization failed", kNotMade, kNotDestroyed}, {3, kNoMetadata}},
          {{{kNoOps, kNotMade, kNotDestroyed}, {3, kNoMetadata}}}}},
        {OpenBufferOps,
         {{{kNoBuffers, kNotReleased, "V28"}},
          {{{kNoBufferOps, kNoBuffers, kNotReleased, "V28"}}}}},
        {BufferManagerCreate,
         {{{"V28", "V29"}}, {{{"Invalid m_pBufferAdaptee:<address>", "V28", "V29"}}}}},
        {GetImageBuffer, {{{"V28", "V29"}}}},
        {MetadataCreateWithUsage, {{{"V23"}}, {{{kNotMade, "V23"}}}}},
        {TranslateToChiBuffer, {{{}, {kBlank}}}},
        {OpenSession, {{{kNotOpened}, {2, kRefused}}}},
        {MetadataCreateFromAndroid, {{}, {{{"V32"}}}}},
        {ConfigureStreams,
         {{{kNotConfigured}, {{"4", "SSM"}, {"4"}, {"4", "S"}}},
          {{{kNoMatch}, {{"4", "SSM"}, {"4", "S"}, {"4", "SS"}}}}}},
        {MetadataCreate, {{{}, {kNoMetadata}}}},
        {ExecuteRequest,
         {{{"ExecuteRequest failed for offline frame:-1 result:1 "}, {kNotExecuted}},
          {{{"mpChiOfflineIntfOps->pExecuteRequest is NULL"}, {kNotExecuted}}}}},
        {TranslateFromChiBuffer, {{{}, {kBlank}}}},
        {MetadataCreateAndroid, {{{"frameNumber:7 pMeta:(nil)"}, {kNoMetadata}}}},
        {MetadataDestroy, {{{}, {}, "M"}, {{{kNotDestroyed}, {}, "M"}}}},
        {CloseSession,
         {{{"Failed to close session 1 for usecase Night for camera 0"}, {{"4", "S"}}, "S"},
          {{{}, {{"4", "S"}}, "S"}}}},
        {ReleaseImageBuffer, {{}, {{{kNotReleased, "V29"}}}}},
        {MetadataReleaseAndroid, {{{}, {}, "A"}, {{{"ReleaseAndroidMetadata fail"}, {}, "A"}}}},
        {BufferManagerDestroy, {{{}, {}, "B"}}},
        {MetadataOpsClose, {{{}, {}, "m"}}},
        {BufferOpsClose, {{{}, {}, "b"}}},
    };
    return rows;
}

struct Expected {
    std::array<std::string, Points> told = {kUsual.told, kUsual.told, "", kUsual.told, ""};
    std::array<std::string, Points> left;
    std::set<std::string> errors;

    /// What happens at a point, or before the first.
    void Apply(Point point, const Effect& effect) {
        errors.insert(effect.errors.begin(), effect.errors.end());
        left.at(point) += effect.left;
        size_t next = point;
        for (const Outcome& outcome : effect.requests) {
            next += next == Flushed ? 1 : 0;
            if (next < Last) {
                told.at(next) = outcome.told;
                left.at(next++) += outcome.left;
            }
        }
        if (std::count(told.begin(), told.end(), kRefused.told) != 0) {
            errors.insert(kNoSession);
        }
    }
};

// --- The scene

struct Call {
    Point point;
    Entry entry;
};

/// One camera from load to destruction, with three requests of one identity, whose session asks the
/// framework for buffers. It follows the vendor's calls.
class Life {
  public:
    Life() {
        s_current = this;
        device.ExpectLeftovers();
        device.onEntry = [this](const std::string& name) { Follow(name); };
        device->SetDelivery(Delivery::OnCallerThread);
        device->SetShape(Shape::Together);
        device->SetAsksForFrameworkBuffers(true);
        device->SetConfigRows({{{"Night", "8", "1f", "3"}}});
        Put(mRequest.wrapper, 96, 0x77); // Session parameters.
        mRequest.frameworkOps.request_stream_buffers = [](auto*, auto, auto*, auto*, auto* ret) {
            s_current->mAsked += "F ";
            ret->num_output_buffers = 1;
            *ret->output_buffers = s_current->mRequest.output;
            return 0;
        };
    }

    void Run(const Expected& expected) {
        device.Load();
        Camera camera(device);
        mRequest.UseVendorBuffers(camera);
        const std::string taken = AliveText();
        std::string left;
        std::string results;
        for (const Point point : {First, Second, Flushed, Third, Last}) {
            SCOPED_TRACE(point);
            mPoint = point;
            const std::string& told = expected.told.at(point);
            EXPECT_EQ(Act(camera), told);
            left += expected.left.at(point);
            results += told.find('M') != told.npos ? "A" : "";
            std::string alive = left;
            if (point != Last) {
                alive += taken + results + (told.empty() || told == kRefused.told ? "" : "S");
            }
            std::sort(alive.begin(), alive.end());
            EXPECT_EQ(AliveText(), alive);
        }
        StandinControl()->CheckAllReturned();
        std::set<std::string> errors = expected.errors;
        for (const char each : failsSilently ? "" : left) {
            errors.insert(RuleOf(each));
        }
        EXPECT_EQ(Errors(), errors);
    }

    Device device;
    std::vector<Call> calls;
    size_t missingFrom = 0; ///< The index of the call from which on `missing` is; 0 for none.
    Entry missing = {};
    bool failsSilently = false; ///< What is left is known to the vendor alone.

  private:
    void Follow(const std::string& name) {
        uint32_t entry = 0;
        while (standin::EntryName(static_cast<Entry>(entry)) != name) {
            if (++entry == static_cast<uint32_t>(Entry::Count)) {
                return; // A session at work.
            }
        }
        calls.push_back({mPoint, static_cast<Entry>(entry)});
        if (calls.size() == missingFrom) {
            device->SetMissing(missing);
        }
    }
    /// Flushes, ends or submits, as the point wants it. \returns a submission's outcome.
    std::string Act(Camera& camera) {
        if (mPoint == Flushed) {
            camera.Flush();
            return "";
        }
        if (mPoint == Last) {
            mRequest.GiveBack(camera);
            camera.Destroy();
            return "";
        }
        mAsked.clear();
        const std::string outcome = OutcomeOf(mRequest, camera);
        return mAsked + outcome;
    }
    /// What was logged at error level, less what is in good times, and the rules that were broken.
    static std::set<std::string> Errors() {
        const std::regex address("0x[0-9a-f]+");
        std::set<std::string> errors;
        for (const standin::LogRecord& record : StandinControl()->Logs()) {
            if (record.letter == "E") {
                errors.insert(std::regex_replace(record.message, address, "<address>"));
            }
        }
        for (const std::string& violation : StandinControl()->Violations()) {
            errors.insert(violation.substr(0, violation.find(' ')));
        }
        for (const char* mark : {"find offline info Night success", "Flush X", "~QcomAdaptee"}) {
            errors.erase(mark);
        }
        return errors;
    }

    static inline Life* s_current;
    Request mRequest;
    std::string mAsked;
    Point mPoint = First;
};

/// The calls of a scene in which nothing fails.
std::vector<Call> UsualCalls() {
    Life life;
    life.Run({});
    return life.calls;
}

// --- The sweeps

TEST(FailNth, ACallThatFailsCostsWhatItsEntryIsFor) {
    std::map<Entry, uint32_t> made;
    for (const Call& call : UsualCalls()) {
        const uint32_t nth = ++made[call.entry];
        SCOPED_TRACE(Printed("%s %u", standin::EntryName(call.entry), nth));
        Expected expected;
        // The first translation of a request is that of its output, which the framework's replaces.
        if (call.entry != TranslateToChiBuffer || nth % 2 == 0) {
            expected.Apply(call.point, Rows().at(call.entry).fails);
        }
        Life life;
        life.device->Fail(call.entry, standin::FailureOf(call.entry), nth, 1);
        life.failsSilently = IsSilent(call.entry);
        life.Run(expected);
    }
    EXPECT_EQ(made.size(), Rows().size());
}

/// What it costs that the entry of one of the calls is missing from that call on.
Expected WithoutEntry(const std::vector<Call>& calls, size_t from) {
    const Entry missing = calls.at(from).entry;
    Expected expected;
    for (size_t i = from; i < calls.size(); ++i) {
        const auto [point, entry] = calls[i];
        // Android metadata goes back only where it could be taken in.
        const bool meets = entry == missing || (missing == MetadataCreateFromAndroid &&
                                                entry == MetadataReleaseAndroid);
        // Where the last request had no session, there is none to configure or to close.
        const size_t request = point == Flushed || point == Last ? point - 1 : point;
        if (meets && (i == from || expected.told.at(request) != kRefused.told)) {
            const Row& row = Rows().at(entry);
            expected.Apply(point, row.missing.value_or(row.fails));
        }
    }
    return expected;
}

TEST(FailNth, AnEntryThatIsMissingCostsWhatItIsFor) {
    const std::vector<Call> calls = UsualCalls();
    for (size_t i = 0; i < calls.size(); ++i) {
        const Entry entry = calls[i].entry;
        if (entry < OpenSession || entry > GetCPUAddress) {
            continue; // In no table.
        }
        SCOPED_TRACE(Printed("%s from call %zu on", standin::EntryName(entry), i));
        Life life;
        life.missingFrom = i;
        life.missing = entry;
        life.Run(WithoutEntry(calls, i));
    }
}

TEST(FailNth, AnAllocationThatYieldsNothingCostsTheStreamsOrAFrameworkBuffer) {
    const Effect noArray = {{"Unable to initialize ppChiStreams", "V7", "V32"}, {2, kNoFramework}};
    const Effect noList = {
        {"[oemlayer_stream] Unable to initialize ppChiStreams",
         "[oemlayer_stream] Unable to prepare configure session for Night for camera 0"},
        {2, kNoFramework}};
    const Effect noBuffer = {{}, {kNoFramework}};
    size_t nth = 0;
    for (const Point point : {First, Second, Third}) {
        std::vector<Effect> allocations(4, noBuffer);
        if (point != Second) {
            allocations.insert(allocations.begin(), {noArray, noList});
        }
        for (const Effect& effect : allocations) {
            SCOPED_TRACE(++nth);
            Expected expected;
            expected.Apply(point, effect);
            g_failing = nth;
            Life().Run(expected);
        }
    }
    g_failing = nth + 1;
    Life().Run({});
    EXPECT_EQ(std::exchange(g_failing, 0), 1U) << "there are no more";
}

TEST(FailNth, AnAllocationThatYieldsNothingFailsTheSessionsQuestionForBuffers) {
    Submitted scene;
    static size_t asked = 0;
    scene.request.frameworkOps.request_stream_buffers = [](auto*, auto, auto*, auto*, auto*) {
        ++asked;
        return 0;
    };
    camera3_stream stream = MakeStream(35);
    const ChiOfflineQueryBuffer queries[] = {{&stream, 1}, {&stream, 2}};
    ChiOfflineQueryStreamBuffer returned[2] = {};
    const ChiOfflineSessionCallbacks* const callbacks = scene.Session().pCallbacks;
    const size_t last = 3 + 2; // The lists, and the buffers of each answer.
    for (size_t nth = 1; nth <= last + 1; ++nth) {
        unsigned int count = 77;
        asked = 0;
        g_failing = nth;
        const uint32_t status =
            callbacks->GetFrameworkBuffers(callbacks, 2, queries, &count, returned);
        const size_t left = std::exchange(g_failing, 0);
        const bool fails = nth <= last;
        EXPECT_EQ(status, fails ? 1U : 0U) << nth;
        EXPECT_EQ(count, fails ? 77U : 2U) << nth;
        EXPECT_EQ(asked, fails ? 0U : 1U) << nth;
        EXPECT_EQ(left, fails ? 0U : 1U) << nth;
    }
    scene.Finish();
}

} // namespace
