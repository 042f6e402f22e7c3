/// The layers between host, adapter and vendor: what passes is what would without them, all of it
/// is recorded, and what they lack or cannot read is in the log.

#include "contract/images.h"
#include "contract/recording.h"
#include "host/run.h"
#include "kit/layers.h"
#include "tests/support/scene.h"
#include "view/report.h"
#include "view/told.h"

#include <android/log.h>
#include <csignal>
#include <latch>
#include <map>
#include <regex>
#include <set>
#include <thread>

namespace {
std::map<std::string, std::string> g_properties; // NOLINT(cert-err58-cpp)
}

// What a device has set: of the others the length is 0.
extern "C" __attribute__((visibility("default"))) int
GetSystemProperty(const char* name, char* value) __asm__("__system_property_get");

int GetSystemProperty(const char* name, char* value) {
    return static_cast<int>(g_properties[name].copy(value, g_properties[name].size()));
}

namespace {

using namespace test;
using contract::Recording;
using Called = contract::Entry;

constexpr char kVendorPath[] = "/vendor/lib64/hw/com.qti.chi.offline.so";
constexpr char kRealPath[] = "/vendor/lib64/hw/com.qti.chi.offline.real.so";

/// The file that layers record into, also those of a process that a test starts.
struct File {
    std::string path = testing::TempDir() + "oemlayer_recording." + std::to_string(getpid());
    ~File() { std::filesystem::remove(path); }
} const g_file; // NOLINT(cert-err58-cpp)

Recording Read() {
    Recording recording = Recording::Read(g_file.path);
    EXPECT_EQ(recording.Damage(), "");
    return recording;
}

/// How often each entry was called. All calls have returned.
std::map<Called, size_t> CountCalls() {
    std::map<Called, size_t> counts;
    std::set<uint64_t> open;
    const Recording recording = Read();
    EXPECT_EQ(recording.CountLost(), 0U);
    for (const contract::Event& event : recording.Events()) {
        if (event.IsCall()) {
            ++counts[event.Of()];
            open.insert(event.Number());
        } else {
            open.erase(event.Header().call);
        }
    }
    EXPECT_EQ(open, std::set<uint64_t>());
    return counts;
}

/// Runs a part of a test in a process of its own: layers read their settings once.
template <class Act> void InAProcess(Act act) {
    EXPECT_EXIT((act(), _exit(testing::Test::HasFailure() ? 1 : 0)), testing::ExitedWithCode(0),
                "");
}

/// A camera behind them, and a request.
struct RecordedScene {
    kit::Layers layers;
    Device device{layers.AdapterFile()};
    Camera camera{device};
    Request request;

    explicit RecordedScene(const kit::LayerSettings& settings = {.record = g_file.path})
        : layers(kit::AdapterFile(true), settings) {
        device->SetDelivery(Delivery::OnCallerThread);
        request.UseVendorBuffers(camera);
    }
    ~RecordedScene() { request.GiveBack(camera); }
};

// --- What passes --------------------------------------------------------------------------------

/// The layers' lines, as "E text", without the folder of the settings.
Texts LayerLog() {
    static const std::regex file("/proc/self/fd/[0-9]+|/[^ ]*/oemlayer.layer.conf");
    Texts log;
    for (const Android::LogLine& line : g_android.lines) {
        if (line.tag.starts_with("CamLayer")) {
            log.push_back((line.priority == ANDROID_LOG_ERROR ? "E " : "I ") +
                          std::regex_replace(line.text, file, "oemlayer.layer.conf"));
        }
    }
    return log;
}

/// The rules that lines are about.
std::set<std::string> RulesOf(const Texts& lines) {
    static const std::regex rule("(E )?([VHR][0-9]+) .*");
    std::set<std::string> rules;
    for (const std::string& line : lines) {
        if (std::smatch match; std::regex_match(line, match, rule)) {
            rules.insert(match[2]);
        }
    }
    return rules;
}

/// The vendor's entries lie in one order in both lists.
Entry After(Entry entry) { return Entry(static_cast<uint32_t>(entry) + 1); }
Called SameAs(Entry entry) {
    const auto called = static_cast<Called>(static_cast<uint32_t>(Called::OpenContext) +
                                            static_cast<uint32_t>(entry) -
                                            static_cast<uint32_t>(Entry::OpenContext));
    EXPECT_EQ(contract::TextOf(called).name, std::string(standin::EntryName(entry)));
    return called;
}

class Scenarios : public testing::TestWithParam<std::string> {};

/// What the device and the host's cameras count themselves.
TEST_P(Scenarios, HaveEachCallInTheirRecording) {
    const auto scenario = host::Scenario::Read(SCENARIOS "/" + GetParam() + ".json");
    host::Run run(scenario, kit::AdapterFile(true), {.file = g_file.path});
    if (scenario.expect.abort) {
        EXPECT_EXIT(run.Go(), testing::KilledBySignal(SIGABRT), "");
        return;
    }
    run.Go();
    EXPECT_EQ(run.Judge().unfulfilled, Texts());
    auto calls = CountCalls();
    for (auto entry = Entry::OpenContext; entry <= Entry::GetCPUAddress; entry = After(entry)) {
        EXPECT_EQ(calls[SameAs(entry)], StandinControl()->CallCount(entry))
            << standin::EntryName(entry);
    }
    size_t completed = 0;
    for (const auto& camera : run.Cameras()) {
        completed += camera->CountCompleted();
    }
    EXPECT_EQ(calls[Called::RequestComplete], completed);
}

Texts AllScenarios() {
    Texts names;
    for (const auto& file : std::filesystem::directory_iterator(SCENARIOS)) {
        names.push_back(file.path().stem());
    }
    return names;
}
INSTANTIATE_TEST_SUITE_P(Layers, Scenarios, testing::ValuesIn(AllScenarios()),
                         [](const auto& info) {
                             std::string name = info.param;
                             std::erase(name, '-');
                             return name;
                         });

TEST(Layer, TellsTheLogWhichRulesAreBroken) {
    RecordedScene scene({.record = g_file.path, .watch = true});
    scene.device.ExpectViolations();
    scene.request.privData.pBufferManager = MadeUp(0x77);
    EXPECT_EQ(OutcomeOf(scene.request, scene.camera), "0 M B R C0");
    const auto rules = RulesOf(LayerLog());
    EXPECT_TRUE(rules.count("V15")) << testing::PrintToString(rules);
    EXPECT_EQ(rules, RulesOf(StandinControl()->Violations()));
}

TEST(Layer, HasTheWrapperAsTheHostLeftItAfterTheCall) {
    RecordedScene scene;
    EXPECT_EQ(OutcomeOf(scene.request, scene.camera), "0 M B R C0");
    EXPECT_EQ(scene.request.wrapper.pCamera3CbOps, &scene.request.frameworkOps);
    EXPECT_EQ(scene.request.wrapper.mpOffCamAppCbs, &scene.request.callbacks);
    // So it is with the same one within a callback.
    Once(scene.request.onCallback, "complete",
         [&] { EXPECT_EQ(scene.request.Submit(scene.camera), 0U); });
    EXPECT_EQ(OutcomeOf(scene.request, scene.camera), "0 M B R C0 M B R C0");
    EXPECT_EQ(scene.request.wrapper.pCamera3CbOps, &scene.request.frameworkOps);
    // And where another request's came between.
    Request other;
    other.UseVendorBuffers(scene.camera);
    Once(scene.request.onCallback, "complete", [&] {
        EXPECT_EQ(OutcomeOf(other, scene.camera), "0 M B R C0");
        EXPECT_EQ(scene.request.Submit(scene.camera), 0U);
    });
    EXPECT_EQ(scene.request.Submit(scene.camera), 0U);
    EXPECT_EQ(scene.request.wrapper.pCamera3CbOps, &scene.request.frameworkOps);
    EXPECT_EQ(other.wrapper.pCamera3CbOps, &other.frameworkOps);
    other.GiveBack(scene.camera);
}

TEST(Layer, HasTheHostsNullCallbacksToo) {
    RecordedScene scene;
    scene.device.ExpectLeftovers(); // The results' metadata is lost.
    const auto captureResult = std::exchange(scene.request.callbacks.captureResult, nullptr);
    EXPECT_EQ(OutcomeOf(scene.request, scene.camera), "0 R C0");
    scene.request.callbacks.releaseRtBuffers = nullptr;
    EXPECT_EQ(OutcomeOf(scene.request, scene.camera), "0 C0");
    scene.request.callbacksArgument = nullptr;
    EXPECT_EQ(OutcomeOf(scene.request, scene.camera), "0");
    scene.request.callbacksArgument = &scene.request.callbacks; // Filled once it is submitted.
    Once(scene.device.onEntry, "ExecuteRequest",
         [&] { scene.request.callbacks.captureResult = captureResult; });
    EXPECT_EQ(OutcomeOf(scene.request, scene.camera), "0 M B C0");
    auto calls = CountCalls();
    EXPECT_EQ(calls[Called::CaptureResult], 2U);
    EXPECT_EQ(calls[Called::ReleaseRtBuffers], 1U);
    EXPECT_EQ(calls[Called::RequestComplete], 3U);
}

TEST(Layer, TakesTheVendorsCallbacksWithAnyRecord) {
    RecordedScene scene;
    EXPECT_EQ(OutcomeOf(scene.request, scene.camera), "0 M B R C0");
    const ChiOfflineSessionCallbacks copy = *scene.device->Sessions().at(0).pCallbacks;
    ChiOfflineSessionCallbacks empty = copy;
    empty.pPrivateCallbackData = nullptr;
    const ChiOfflineQueryBuffer query{&scene.request.outputStream, 1};
    ChiOfflineQueryStreamBuffer answer{};
    unsigned int returned = 7;
    const auto ask = [&](const ChiOfflineSessionCallbacks* callbacks) {
        return copy.GetFrameworkBuffers(callbacks, 1, &query, &returned, &answer);
    };
    EXPECT_EQ(ask(&copy), 1U); // The framework has no such entry yet.
    EXPECT_EQ(returned, 7U);
    scene.request.frameworkOps.request_stream_buffers = [](auto*, auto, auto*, auto* count, auto*) {
        *count = 0;
        return 0;
    };
    EXPECT_EQ(ask(nullptr), 1U);
    EXPECT_EQ(ask(&empty), 1U);
    EXPECT_EQ(returned, 7U);
    EXPECT_EQ(ask(&copy), 0U);
    EXPECT_EQ(returned, 0U);
    EXPECT_EQ(CountCalls()[Called::RequestStreamBuffers], 1U);
    Words records;
    const Recording recording = Read();
    for (const contract::Event& event : recording.Events()) {
        if (event.IsCall(Called::GetFrameworkBuffers)) {
            records.push_back(event.Word(0));
        }
    }
    EXPECT_EQ(records, (Words{Address(&copy), 0, Address(&empty), Address(&copy)}));
}

ChiOfflineInterface* OpenInterface(const char* path) {
    const kit::Library library(path);
    const auto open = library.Find<void*(void*, uint32_t)>("ChiOfflineOpenContext");
    return static_cast<ChiOfflineInterface*>(open(nullptr, 512));
}

TEST(Layer, HasTheVendorsNullEntriesAndOtherWordsToo) {
    const kit::Layers layers(kit::AdapterFile(true), {.record = g_file.path});
    const Device device;
    for (auto entry = Entry::CloseSession; entry <= Entry::GetCPUAddress; entry = After(entry)) {
        device->SetMissing(entry, static_cast<uint32_t>(entry) % 2 == 0);
    }
    for (const Entry entry : {Entry::OpenMetadataOps, Entry::OpenBufferOps, Entry::MetadataOpsClose,
                              Entry::BufferOpsClose}) {
        device->SetMissing(entry, false);
    }
    auto& ours = *OpenInterface(kVendorPath);
    auto& theirs = *OpenInterface(kRealPath);
    const auto compare = [](auto* our, auto* their) {
        EXPECT_NE(our, their);
        for (size_t at = 0; at < sizeof *our; at += 8) {
            EXPECT_EQ(At(*our, at) == 0, At(*their, at) == 0) << at;
        }
    };
    const auto compareTables = [&](auto* our, auto* their) {
        compare(our, their);
        our->pClose(our);
        their->pClose(their);
    };
    compare(&ours, &theirs);
    EXPECT_EQ(ours.pName, theirs.pName);
    ChiMetadataOpsOpenInfo info{0, 1, 0, 1};
    compareTables(ours.pOpenMetadataOps(&ours, &info), theirs.pOpenMetadataOps(&theirs, &info));
    compareTables(ours.pOpenBufferOps(&ours), theirs.pOpenBufferOps(&theirs));
}

TEST(Layer, HasTheAdaptersNullEntriesToo) {
    setenv("REAL_ADAPTER", kit::AdapterFile(true).c_str(), 1);
    for (const char* const mistake : {"lack 0", "lack 1"}) {
        InAProcess([mistake] {
            setenv("BROKEN_ADAPTER", mistake, 1);
            const kit::Layers layers(BROKEN_ADAPTER_FILE, {.record = g_file.path});
            const kit::Adapter layer(layers.AdapterFile());
            const kit::Adapter real(BROKEN_ADAPTER_FILE);
            const PlatFormIntCallbacks ours = layer.Table(3);
            const PlatFormIntCallbacks theirs = real.Table(3);
            EXPECT_EQ(ours.cameraId, 3U);
            for (size_t at = 8; at < sizeof ours; at += 8) {
                EXPECT_EQ(At(ours, at) == 0, At(theirs, at) == 0) << at;
                EXPECT_TRUE(At(ours, at) == 0 || At(ours, at) != At(theirs, at)) << at;
            }
            EXPECT_EQ(layer.LoadFunctions().loadLib == nullptr,
                      real.LoadFunctions().loadLib == nullptr);
            EXPECT_EQ(layer.LoadFunctions().logMap == nullptr,
                      real.LoadFunctions().logMap == nullptr);
        });
    }
}

/// A client's records of a session, and how often the vendor called back with them.
struct SessionRecords {
    ChiOfflineSessionCallbacks callbacks{
        [](auto*, auto, auto*) {},
        [](const ChiOfflineSessionCallbacks* own, auto, auto*) {
            ++static_cast<SessionRecords*>(own->pPrivateCallbackData)->notified;
        },
        [](auto*, auto, auto*, auto*, auto*) { return 1U; }, nullptr, this};
    ChiOfflineSessionCreateInfo info{"session", 0, &callbacks};
    uint32_t notified = 0;

    /// \returns the vendor's record of the session that is opened.
    const ChiOfflineSessionCallbacks* Open(ChiOfflineInterface& vendor, uint64_t& session) {
        session = vendor.pOpenSession(&vendor, &info);
        return session == 0 ? nullptr : StandinControl()->Sessions().back().pCallbacks;
    }
};

/// A vendor may call back long after the close, with the record that it got or with a copy of it.
TEST(Layer, UsesASessionsRecordAgainOnceManyOthersWereClosed) {
    const kit::Layers layers(kit::AdapterFile(true), {.record = g_file.path});
    Device device;
    device.ExpectViolations();
    auto& vendor = *OpenInterface(kVendorPath);
    SessionRecords records[4];
    uint64_t sessions[4];
    const auto* const record = records[0].Open(vendor, sessions[0]);
    EXPECT_NE(record, &records[0].callbacks);
    device->Fail(Entry::CloseSession, 1, 1, 1);
    EXPECT_EQ(vendor.pCloseSession(sessions[0]), 1);
    const auto* const other = records[1].Open(vendor, sessions[1]);
    EXPECT_NE(other, record) << "which the vendor still has";
    record->ProcessNotifyCb(record, 0, nullptr);
    EXPECT_EQ(records[0].notified, 1U);

    EXPECT_EQ(vendor.pCloseSession(sessions[0]), 0);
    records[2].callbacks.GetFrameworkBuffers = nullptr; // The vendor is to see that, and refuse it.
    EXPECT_EQ(records[2].Open(vendor, sessions[2]), nullptr);
    const ChiOfflineSessionCallbacks copy = *record;
    for (int i = 0; i < 63; ++i) { // One more is that of the refused opening.
        EXPECT_NE(records[3].Open(vendor, sessions[3]), record);
        EXPECT_EQ(vendor.pCloseSession(sessions[3]), 0);
    }
    record->ProcessNotifyCb(record, 0, nullptr);
    records[0].callbacks.ProcessNotifyCb = nullptr; // The client's own record may be gone.
    copy.ProcessNotifyCb(&copy, 0, nullptr);
    EXPECT_EQ(records[0].notified, 3U);
    EXPECT_EQ(records[3].notified, 0U);

    EXPECT_EQ(records[3].Open(vendor, sessions[3]), record);
    record->ProcessNotifyCb(record, 0, nullptr);
    EXPECT_EQ(records[3].notified, 1U);
    EXPECT_EQ(vendor.pCloseSession(sessions[1]), 0);
    EXPECT_EQ(vendor.pCloseSession(sessions[3]), 0);
}

TEST(Layer, OfEitherSideWorksAlone) {
    for (const bool isVendors : {false, true}) {
        InAProcess([isVendors] {
            const kit::Layers layers(kit::AdapterFile(true), {.record = g_file.path});
            if (!isVendors) {
                StandinControl()->PutLayer(kVendorPath, "");
            }
            {
                Device device(isVendors ? kit::AdapterFile(true) : layers.AdapterFile());
                device->SetDelivery(Delivery::OnCallerThread);
                Camera camera(device);
                Request request;
                request.UseVendorBuffers(camera);
                EXPECT_EQ(OutcomeOf(request, camera), "0 M B R C0");
                request.GiveBack(camera);
            }
            auto calls = CountCalls();
            EXPECT_EQ(calls[Called::SubmitRequestFromRT], isVendors ? 0U : 1U);
            EXPECT_EQ(calls[Called::ExecuteRequest], isVendors ? 1U : 0U);
        });
    }
}

TEST(Layer, TakesTwoThreadsWhoseRequestsHaveTablesOfTheirOwn) {
    RecordedScene scene;
    scene.device->SetDelivery(Delivery::OnSessionThread);
    std::deque<Request> requests(24);
    for (Request& request : requests) {
        request.UseVendorBuffers(scene.camera);
    }
    std::latch start(2);
    const auto submitFrom = [&](size_t first) {
        start.arrive_and_wait();
        for (size_t i = first; i < requests.size(); i += 2) {
            EXPECT_EQ(requests[i].Submit(scene.camera), 0U);
            EXPECT_EQ(requests[i].wrapper.pCamera3CbOps, &requests[i].frameworkOps);
        }
    };
    std::thread other(submitFrom, 1);
    submitFrom(0);
    other.join();
    scene.device->WaitIdle();
    for (Request& request : requests) {
        EXPECT_EQ(Story(request), "M B R C0");
        request.GiveBack(scene.camera);
    }
}

// --- What is recorded ---------------------------------------------------------------------------

TEST(Recording, EndsWithTheCallInWhichTheProcessWasKilled) {
    EXPECT_EXIT(
        {
            RecordedScene scene;
            scene.device.onEntry = [](const std::string& entry) {
                if (entry == "ExecuteRequest") {
                    (void)raise(SIGKILL);
                }
            };
            (void)scene.request.Submit(scene.camera);
        },
        testing::KilledBySignal(SIGKILL), "");
    const Recording recording = Read();
    const contract::Event last = recording.Events().back();
    ASSERT_TRUE(last.IsCall(Called::ExecuteRequest));
    const auto* const request = last.At<ChiOfflineExecuteRequest>(last.Word(1));
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->numInputs, 1U);
    const auto* const set = last.At<ChiOfflineBufferSet>(request->pInputs);
    ASSERT_NE(set, nullptr);
    const auto* const buffer = last.At<ChiStreamBuffer>(set->pBuffers);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(last.At<ChiStream>(buffer->pStream)->format, uint32_t{ChiStreamFormatRaw10});
    const view::Told told(g_file.path);
    testing::internal::CaptureStdout();
    view::PrintAll(told.file, told.recording, told.story);
    const std::string shown = testing::internal::GetCapturedStdout();
    EXPECT_NE(shown.find(": ExecuteRequest(session 1, request "), shown.npos) << shown;
}

/// What the images hold, by the last request: its hash, and the bytes before it.
TEST(Recording, HasWhatMappedInputsHold) {
    RecordedScene scene({.record = g_file.path, .wholePixels = true});
    void* const image = scene.request.wrapper.pRDIBufferHandles[0];
    const size_t bytes = 64 * 32 * 5 / 4;
    EXPECT_EQ(scene.request.Submit(scene.camera), 0U); // Not mapped.
    auto* const memory =
        static_cast<uint8_t*>(scene.camera->GetCPUAddress(scene.camera.Table(), image));
    std::fill_n(memory, bytes, uint8_t{7});
    memory[bytes - 1] = 8;
    EXPECT_EQ(scene.request.Submit(scene.camera), 0U);
    const Recording recording = Read();
    std::vector<std::vector<uint8_t>> pixels;
    std::vector<std::pair<uint64_t, uint64_t>> hashes;
    for (const contract::Event& event : recording.Events()) {
        if (event.IsCall(Called::Pixels)) {
            const auto piece = event.All<uint8_t>(event.Word(3));
            EXPECT_EQ(event.Word(0), Address(image));
            pixels.emplace_back(piece.begin(), piece.end());
        } else if (event.IsCall(Called::ExecuteRequest)) {
            const auto* const hash = event.At<contract::PixelHash>(image);
            hashes.emplace_back(hash == nullptr ? 0 : hash->bytes,
                                hash == nullptr ? 0 : hash->hash);
        }
    }
    EXPECT_EQ(pixels, std::vector(1, std::vector<uint8_t>(memory, memory + bytes)));
    EXPECT_EQ(hashes.at(0).first, 0U);
    EXPECT_EQ(hashes.at(1), std::pair(uint64_t{bytes}, contract::HashOfPixels(memory, bytes)));
    memory[bytes - 1] = 7;
    EXPECT_NE(hashes.at(1).second, contract::HashOfPixels(memory, bytes));
}

// --- What is wrong ------------------------------------------------------------------------------

struct SettingsCase {
    std::string text;
    std::string log;
    bool records = false;
    std::map<std::string, std::string> properties = {};
};

TEST(LayerSettings, HoldOrAreNamedInTheLog) {
    const std::string record = "record = " + g_file.path + "\n";
    const std::string recorded = "I records into " + g_file.path;
    const SettingsCase cases[] = {
        {"# A comment.\n\n", ""},
        {record, recorded, true},
        {" size=2 # MiB\n" + record + "pixels = hash\nwatch = off\nvendor = x\n", recorded, true},
        {record + "colour = red", "E oemlayer.layer.conf:3: there is no setting 'colour'"},
        {record + "size 3", "E oemlayer.layer.conf:3: 'size 3' must be 'key = value'"},
        {"size = 1\n" + record,
         "E oemlayer.layer.conf:2: size must be a number of MiB from 2 to 4096, not '1'"},
        {"size = 5000\nwatch = x",
         "E oemlayer.layer.conf:2: size must be a number of MiB from 2 to 4096, not '5000'"},
        {"size = 64M",
         "E oemlayer.layer.conf:2: size must be a number of MiB from 2 to 4096, not '64M'"},
        {"pixels = half", "E oemlayer.layer.conf:2: pixels must be 'hash' or 'whole', not 'half'"},
        {"watch = yes", "E oemlayer.layer.conf:2: watch must be 'on' or 'off', not 'yes'"},
        {"record = /nowhere/file", "E cannot record: /nowhere/file: No such file or directory"},
        {"record = /nowhere/file", recorded, true, {{"vendor.oemlayer.layer.record", g_file.path}}},
        {record,
         "E property vendor.oemlayer.layer.size must be a number of MiB from 2 to 4096, not 'all'",
         false,
         {{"vendor.oemlayer.layer.size", "all"}}},
    };
    for (const SettingsCase& each : cases) {
        InAProcess([&each] {
            g_properties = each.properties;
            const kit::Layers layers("adapter = " + kit::AdapterFile(true) + "\n" + each.text);
            const kit::Adapter real(kit::AdapterFile(true));
            const kit::Adapter layer(layers.AdapterFile());
            EXPECT_EQ(layer.Table(3).Create != real.Table(3).Create, each.records) << each.text;
            EXPECT_EQ(layer.LoadFunctions().loadLib != real.LoadFunctions().loadLib, each.records);
            EXPECT_EQ(layer.Table(3).cameraId, 3U);
            Texts log = each.log.empty() ? Texts() : Texts{each.log};
            if (!each.records) {
                log.push_back("I calls are passed through");
            }
            EXPECT_EQ(LayerLog(), log);
        });
    }
}

TEST(LayerSettings, NeedNoFile) {
    kit::Layers layers("");
    setenv("OEMLAYER_LAYER_SETTINGS", "/nowhere/oemlayer.layer.conf", 1);
    (void)OpenInterface(kVendorPath);
    EXPECT_EQ(LayerLog().at(0), "I oemlayer.layer.conf: No such file or directory");
}

TEST(Layer, IsAsMissingAsWhatItStandsFor) {
    const kit::Layers layers("adapter = /nowhere/adapter.so\nvendor = " + std::string(kRealPath));
    StandinControl()->RefuseLibrary(kVendorPath);
    const kit::Adapter layer(layers.AdapterFile());
    EXPECT_EQ(layer.LoadFunctions().loadLib, nullptr);
    EXPECT_EQ(layer.LoadFunctions().logMap, nullptr);
    const PlatFormIntCallbacks table = layer.Table(3);
    EXPECT_EQ(table.cameraId, 3U);
    for (size_t at = 8; at < sizeof table; at += 8) {
        EXPECT_EQ(At(table, at), 0U) << at;
    }
    EXPECT_EQ(OpenInterface(kVendorPath), nullptr);
    EXPECT_EQ(StandinControl()->CallCount(Entry::LibraryOpen), 1U);
    const Texts log = LayerLog();
    ASSERT_EQ(log.size(), 2U);
    EXPECT_EQ(log[0].find("E cannot open /nowhere/adapter.so: /nowhere"), 0U) << log[0];
    EXPECT_EQ(log[1].find("E cannot open " + std::string(kRealPath) + ": /"), 0U) << log[1];
}

TEST(Layer, DoesNotStandForItself) {
    const std::string own = kit::Beside("../layer/camera.oemlayer.layer.so");
    const kit::Layers layers("adapter = " + own + "\nrecord = " + g_file.path);
    EXPECT_EQ(kit::Adapter(own).LoadFunctions().loadLib, nullptr);
    EXPECT_EQ(LayerLog(), Texts{"E cannot open " + own + ": it is the layer itself"});
}

} // namespace
