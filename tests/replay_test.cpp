/// Replays: what was recorded happens again, what the library does otherwise is found, and what
/// fails in many requests is shown by few.
#include "host/run.h"
#include "replay/compare.h"
#include "replay/shrink.h"
#include "replay/turns.h"
#include "tests/support/scene.h"
#include "view/check.h"

#include <deque>
#include <set>
#include <sstream>
#include <sys/wait.h>

namespace {

using namespace test;
using contract::Recording;
using Called = contract::Entry;
using view::Told;

constexpr auto kAnything = kit::OutputFile::Replaces::Anything;

constexpr char kTwoHundred[] =
    R"({"cameras": [{"features": ["Night", "Hdr"], "requests": 200, "frames": 2, "width": 128,
                     "height": 96}], "vendor": {"faults": ["fail ExecuteRequest 120 1"]}})";
constexpr unsigned kSubmission = 150; ///< The frame that the broken adapter fails at.

/// Does something in a process of its own: layers and library bind what they need once.
template <class Act> void InAProcess(Act act) {
    const pid_t child = fork();
    if (child == 0) {
        act();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

/// Records the run of a scenario, with small pictures, and for a second where it has a rate.
std::string Record(const Folder& folder, const std::string& scenarioFile) {
    std::string file = folder / "run.rec";
    InAProcess([&] {
        host::Scenario scenario = host::Scenario::Read(scenarioFile);
        for (host::CameraPlan& plan : scenario.cameras) {
            plan.width = 128;
            plan.height = 96;
            plan.requests = plan.rate > 0 ? std::min(plan.requests, plan.rate) : plan.requests;
        }
        host::Run(scenario, kit::AdapterFile(false), {.file = file}).Go();
    });
    return file;
}

/// Replays a recording, and compares. The replay's own recording is beside it.
struct Replayed {
    const Told recording;
    const replay::Ending ending;
    const Told own;
    const replay::Comparison comparison{recording, own};

    explicit Replayed(const std::string& file, const std::string& library = kit::AdapterFile(false),
                      std::chrono::seconds patience = std::chrono::seconds(10))
        : recording(file),
          ending(replay::PlayInProcess(recording.Events(), {.library = library,
                                                            .record = file + ".replay",
                                                            .isPaced = false,
                                                            .isQuiet = true,
                                                            .patience = patience})),
          own(file + ".replay") {}

    void ExpectAlike() const {
        EXPECT_EQ(ending.Describe() + ending.stuck, "");
        if (recording.Events().front().IsCall(Called::LoadLib)) {
            EXPECT_EQ(ending.omitted, Texts()); // Else there are results of what is lost.
        }
        if (comparison.Difference().has_value()) {
            comparison.Print();
            ADD_FAILURE() << "differs at " << comparison.Difference()->path;
        }
    }
};

/// What a host is told: how often each status.
std::map<std::string, size_t> StatusesOf(const Told& told) {
    std::map<std::string, size_t> counts;
    for (const view::Request& request : told.story.Requests()) {
        ++counts[view::OutcomeOf(request)];
    }
    return counts;
}

class Scenarios : public testing::TestWithParam<std::string> {};

TEST_P(Scenarios, HappenAgain) {
    const Folder folder;
    const Replayed replayed(Record(folder, SCENARIOS "/" + GetParam() + ".json"));
    EXPECT_EQ(StatusesOf(replayed.own), StatusesOf(replayed.recording));
    EXPECT_FALSE(replayed.recording.story.Requests().empty());
    replayed.ExpectAlike();
}

/// Of one thread there is one order, unless the vendor shuffles.
class OneThread : public Scenarios {};

TEST_P(OneThread, DiffersInNothing) {
    const Folder one;
    const Folder other;
    const Told first(Record(one, SCENARIOS "/" + GetParam() + ".json"));
    const Told second(Record(other, SCENARIOS "/" + GetParam() + ".json"));
    const auto difference = FindDifference(first.story, second.story);
    EXPECT_FALSE(difference.has_value()) << difference->path;
}

/// But for the one whose process dies before the first camera.
Texts AllScenarios(bool ofOneThread) {
    Texts names;
    for (const auto& file : std::filesystem::directory_iterator(SCENARIOS)) {
        const auto scenario = host::Scenario::Read(file.path());
        const bool isOfOne = scenario.cameras.size() == 1 && scenario.cameras[0].threads == 1 &&
                             scenario.order == standin::Order::InOrder;
        if (!scenario.expect.abort && (isOfOne || !ofOneThread)) {
            names.push_back(file.path().stem());
        }
    }
    return names;
}

std::string NameOf(const testing::TestParamInfo<std::string>& info) {
    std::string name = info.param;
    std::erase(name, '-');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Replay, Scenarios, testing::ValuesIn(AllScenarios(false)), NameOf);
INSTANTIATE_TEST_SUITE_P(Replay, OneThread, testing::ValuesIn(AllScenarios(true)), NameOf);

TEST(Replay, HasTheImagesOfARecordingThatHasThem) {
    const Folder folder;
    InAProcess([&] {
        const kit::Layers layers(kit::AdapterFile(false),
                                 {.record = folder / "run.rec", .wholePixels = true});
        Device device(layers.AdapterFile());
        Camera camera(device);
        device->SetDelivery(Delivery::OnCallerThread);
        Request request;
        request.UseVendorBuffers(camera);
        void* const image = request.wrapper.pRDIBufferHandles[0];
        auto* const memory = camera->GetCPUAddress(camera.Table(), image);
        ASSERT_NE(memory, nullptr);
        std::memcpy(memory, "an image", 8);
        EXPECT_EQ(request.Submit(camera), 0U);
        request.GiveBack(camera);
    });
    Replayed(folder / "run.rec").ExpectAlike(); // With the images' hashes.
}

void Write(const std::string& file, const contract::FileHeader& about,
           const std::vector<contract::Event>& events) {
    kit::OutputFile(file, kAnything).Write(contract::Serialize(about, events));
}

/// Writes the recording once more, with events as `act` leaves their copies.
template <class Act> void Rewrite(const std::string& file, Act act) {
    const Recording recording = Recording::Read(file);
    std::vector<contract::Event> events;
    std::deque<std::vector<uint64_t>> copies;
    for (const contract::Event& event : recording.Events()) {
        auto& copy = copies.emplace_back(event.Header().size / 8);
        std::memcpy(copy.data(), &event.Header(), event.Header().size);
        auto* const header = reinterpret_cast<contract::EventHeader*>(copy.data());
        act(*header, copy[sizeof *header / 8 + header->words - 1]);
        events.emplace_back(header);
    }
    Write(file, recording.About(), events);
}

/// Lets the recording say that its last submission was refused.
void ExpectRefusalFound(const std::string& file) {
    uint64_t last = 0;
    const Recording recording = Recording::Read(file);
    for (const contract::Event& event : recording.Events()) {
        last = event.IsReturn(Called::SubmitRequestFromRT) ? event.Number() : last;
    }
    uint64_t place = 0; // Events are numbered anew.
    uint64_t refused = 0;
    Rewrite(file, [&](const contract::EventHeader& header, uint64_t& result) {
        ++place;
        if (header.number == last) {
            refused = place;
            result = 4;
        }
    });
    const Replayed replayed(file);
    const auto& difference = replayed.comparison.Difference();
    ASSERT_TRUE(difference.has_value() && difference->one.has_value());
    EXPECT_EQ(replayed.comparison.Events()[*difference->one].Number(), refused);
    EXPECT_EQ(difference->inOne + ", " + difference->inOther, "4, 0");
}

TEST(Replay, SaysWhereTheLibraryDoesSomethingElse) {
    const Folder folder;
    ExpectRefusalFound(Record(folder, SCENARIOS "/refused.json"));
}

/// Two sessions of one stream and a buffer manager, all opened long before the ring's beginning.
void RunIntoSmallRing(const std::string& file) {
    const kit::Layers layers(kit::AdapterFile(false),
                             {.record = file, .mebibytes = 2, .wholePixels = true});
    Device device(layers.AdapterFile());
    Camera camera(device);
    device->SetDelivery(Delivery::OnCallerThread);
    camera3_stream raw = MakeStream(HAL_PIXEL_FORMAT_RAW10);
    raw.width = 400; // Pixels fill the ring.
    raw.height = 300;
    camera3_stream output = MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888);
    for (int i = 0; i < 40; ++i) {
        Request request;
        request.privData.inputStreams = {&raw};
        request.wrapper.identity = {&output, 0, i % 2 == 0 ? "Night" : "Hdr"};
        request.output.stream = &output;
        request.UseVendorBuffers(camera);
        (void)camera->GetCPUAddress(camera.Table(), request.wrapper.pRDIBufferHandles[0]);
        ASSERT_EQ(request.Submit(camera), 0U);
        request.GiveBack(camera);
    }
}

TEST(Replay, OfARingComparesWhatItsBeginningAllows) {
    const Folder folder;
    const std::string file = folder / "run.rec";
    InAProcess([&] { RunIntoSmallRing(file); });
    const Recording recording = Recording::Read(file);
    ASSERT_GT(recording.CountLost(), 0U);
    Replayed(file).ExpectAlike();
    // It may begin anywhere within two requests, with either.
    const auto& all = recording.Events();
    for (std::ptrdiff_t lost = 1; lost < 60; lost += 7) {
        Write(file, recording.About(), {all.begin() + lost, all.end()});
        Replayed(file).ExpectAlike();
    }
    ExpectRefusalFound(file);
}

/// Whatever else is wrong with them, a replay ends.
TEST(Replay, WaitsForNoTimeThatCannotBe) {
    const Folder folder;
    const std::string file = Record(folder, SCENARIOS "/refused.json");
    Rewrite(file, [place = 0](contract::EventHeader& header, uint64_t) mutable {
        if (++place > 1) {
            header.time = place % 2 == 0 ? header.time + UINT64_MAX / 4 : 1;
        }
    });
    const replay::Ending ending = replay::PlayInProcess(
        Recording::Read(file).Events(),
        {.library = kit::AdapterFile(false), .record = file + ".replay", .isQuiet = true});
    EXPECT_EQ(ending.Describe() + ending.stuck, "");
}

TEST(Replay, KeepsTheRecordingsPauseUnlessItIsToBeFast) {
    static constexpr std::chrono::nanoseconds kPause = std::chrono::seconds(2);
    const Folder folder;
    const std::string file = Record(folder, SCENARIOS "/refused.json");
    Rewrite(file, [place = 0](contract::EventHeader& header, uint64_t) mutable {
        header.time += ++place > 100 ? static_cast<uint64_t>(kPause.count()) : 0;
    });
    const Recording recording = Recording::Read(file);
    ASSERT_GT(recording.Events().size(), 100U);
    for (const bool isPaced : {true, false}) {
        const std::string own = file + ".replay";
        (void)replay::PlayInProcess(recording.Events(), {.library = kit::AdapterFile(false),
                                                         .record = own,
                                                         .isPaced = isPaced,
                                                         .isQuiet = true});
        const Recording played = Recording::Read(own);
        const std::chrono::nanoseconds took(played.Events().back().Time() -
                                            played.Events().front().Time());
        // The first event may be late, and the one after the pause is not.
        EXPECT_EQ(took >= kPause * 9 / 10, isPaced) << took.count() << " ns";
    }
}

TEST(Replay, GoesOnWithWhatIsLeftOfARecording) {
    const Folder folder;
    for (const char* const scenario : {"/flush.json", "/framework-buffers.json"}) {
        const std::string file = Record(folder, std::string(SCENARIOS) + scenario);
        const Recording recording = Recording::Read(file);
        const auto& all = recording.Events();
        for (size_t i = 1; i < 8; ++i) {
            const auto middle = all.begin() + static_cast<std::ptrdiff_t>(all.size() * i / 8);
            Write(file, recording.About(), {all.begin(), middle});
            Replayed(file).ExpectAlike();
            Write(file, recording.About(), {middle, all.end()});
            const Replayed late(file);
            late.ExpectAlike();
            EXPECT_EQ(StatusesOf(late.own)["ok"], StatusesOf(late.recording)["ok"]);
        }
    }
}

// --- Parts of a recording

/// A part as a replay gets it.
Recording Numbered(const Recording& whole, const replay::Units::Part& part) {
    std::istringstream numbered(contract::Serialize(whole.About(), part.events));
    return Recording::Read("a part", numbered);
}

size_t CountCalls(const Recording& recording, Called entry) {
    const auto& all = recording.Events();
    return static_cast<size_t>(std::count_if(
        all.begin(), all.end(), [&](const contract::Event& each) { return each.IsCall(entry); }));
}

void ExpectWholeParts(const Recording& recording) {
    const replay::Calls calls(recording.Events());
    const replay::Units units(calls);
    const size_t requests = CountCalls(recording, Called::SubmitRequestFromRT);
    std::set<size_t> all;
    for (size_t i = 0; i < units.All().size(); ++i) {
        all.insert(i);
    }
    EXPECT_EQ(contract::Serialize(recording.About(), units.Choose(all, units.Cameras()).events),
              contract::Serialize(recording.About(), recording.Events()));
    std::set<std::string> broken; // In the whole, already.
    for (const auto& violation : view::FindViolations(recording.Events())) {
        broken.insert(contract::TextOf(violation.rule).number);
    }
    const auto expect = [&](const std::set<size_t>& chosen, size_t wanted, bool endsAll) {
        const Recording part = Numbered(recording, units.Choose(chosen, units.Cameras()));
        EXPECT_EQ(CountCalls(part, Called::SubmitRequestFromRT), wanted);
        for (const auto& violation : view::FindViolations(part.Events())) {
            const std::string rule = contract::TextOf(violation.rule).number;
            EXPECT_TRUE(!rule.starts_with('V') || broken.contains(rule) ||
                        (violation.entry == nullptr && !endsAll))
                << contract::LineOf(violation);
        }
    };
    for (const size_t each : all) {
        SCOPED_TRACE(each);
        const size_t own = units.All()[each].requests;
        std::set<size_t> others = all;
        others.erase(each);
        expect(others, requests - own, own > 0); // A flush, say, closes sessions.
        std::erase_if(others, [&](size_t unit) { return units.All()[unit].requests > 0; });
        expect(others, 0, own > 0);
        others.insert(each);
        expect(others, own, true);
    }
}

/// The device is asked for nothing that was not made, and nothing stays but for what a call ends
/// that is left out.
/// Of scenarios with one thread: a preset of frame numbers may be that of a request left out.
TEST(Units, CanBeLeftOutWithoutBreakingARule) {
    for (const char* const scenario : {"flush", "dual-rdi", "framework-buffers"}) {
        SCOPED_TRACE(scenario);
        const Folder folder;
        ExpectWholeParts(
            Recording::Read(Record(folder, SCENARIOS "/" + std::string(scenario) + ".json")));
    }
}

TEST(Units, AreLeftOutWithTheirCamera) {
    const Folder folder;
    const Recording recording = Recording::Read(Record(folder, SCENARIOS "/four-cameras.json"));
    const replay::Calls calls(recording.Events());
    const replay::Units units(calls);
    ASSERT_EQ(units.Cameras().size(), 4U);
    for (const uint32_t camera : units.Cameras()) {
        std::set<size_t> own;
        size_t requests = 0;
        for (size_t i = 0; i < units.All().size(); ++i) {
            if (units.All()[i].camera == camera) {
                own.insert(i);
                requests += units.All()[i].requests;
            }
        }
        const Recording part = Numbered(recording, units.Choose(own, {camera}));
        EXPECT_EQ(CountCalls(part, Called::Create), 1U);
        EXPECT_EQ(CountCalls(part, Called::SubmitRequestFromRT), requests);
        EXPECT_EQ(CountCalls(part, Called::RequestComplete), requests);
        EXPECT_GT(requests, 0U);
        EXPECT_TRUE(view::FindViolations(part.Events()).empty());
    }
}

TEST(Turns, EndOnceAllHaveLeftOrNothingHappens) {
    const Folder folder;
    const Recording recording = Recording::Read(Record(folder, SCENARIOS "/refused.json"));
    replay::Turns turns(recording.Events(), false);
    turns.Leave();
    EXPECT_TRUE(turns.WaitForAll(1, std::chrono::hours(1)));
    EXPECT_FALSE(turns.WaitForAll(2, std::chrono::milliseconds(1)));
    turns.Leave();
    EXPECT_TRUE(turns.WaitForAll(2, std::chrono::milliseconds(0)));
}

/// The fewest calls that show it, replayed once more.
replay::Shrunk ExpectShrunk(const std::string& file, const replay::Wanted& wanted,
                            const std::string& library = kit::AdapterFile(false)) {
    const Recording recording = Recording::Read(file);
    kit::OutputFile less(file + ".less", kAnything);
    const auto shrunk = replay::Shrink(recording, wanted, library, less, [](const auto&) {});
    EXPECT_TRUE(shrunk.has_value());
    return shrunk.value_or(replay::Shrunk{.requests = SIZE_MAX});
}

TEST(Shrink, LeavesTheRequestThatFails) {
    const Folder folder;
    const std::string file = Record(folder, folder.Write("scenario.json", kTwoHundred));
    EXPECT_LE(ExpectShrunk(file, {.status = 1}).requests, 5U);
    const Replayed byStatus(file + ".less");
    byStatus.ExpectAlike();
    EXPECT_EQ(StatusesOf(byStatus.own)["refused, status 1"], 1U);

    kit::OutputFile none(file + ".no");
    const auto nothing = replay::Shrink(Recording::Read(file), {.status = 77},
                                        kit::AdapterFile(false), none, [](const auto&) {});
    EXPECT_FALSE(nothing.has_value());
}

TEST(Shrink, LeavesOneCameraWithTheRequestThatCompletesSo) {
    const Folder folder;
    const std::string file = Record(folder, folder.Write("scenario.json", R"({
        "cameras": [{"frames": 1}, {"id": 1, "frames": 1}],
        "vendor": {"shape": "error-buffer"}})"));
    const auto shrunk = ExpectShrunk(file, {.status = 1});
    EXPECT_EQ(shrunk.requests, 1U);
    EXPECT_EQ(shrunk.others, 0U);
    EXPECT_TRUE(shrunk.isConfirmed);
    const Recording less = Recording::Read(file + ".less");
    EXPECT_EQ(less.Events().size(), shrunk.events);
    EXPECT_EQ(CountCalls(less, Called::Create), 1U);
    EXPECT_EQ(CountCalls(less, Called::RequestComplete), 1U);
}

TEST(Shrink, LeavesWhatBreaksARule) {
    const Folder folder;
    const std::string file = Record(folder, SCENARIOS "/refused.json");
    const auto shrunk = ExpectShrunk(file, {.rule = contract::Rule::MetadataDestroyed});
    EXPECT_EQ(shrunk.requests, 1U);
    EXPECT_EQ(shrunk.others, 0U);
    Replayed(file + ".less").ExpectAlike();
}

TEST(Shrink, AndReplayStandALibraryThatDiesOrHangs) {
    const Folder folder;
    const std::string file = Record(folder, folder.Write("scenario.json", kTwoHundred));
    setenv("REAL_ADAPTER", kit::AdapterFile(false).c_str(), 1);
    const auto break_ = [](const std::string& mistake) {
        setenv("BROKEN_ADAPTER", (mistake + " " + std::to_string(kSubmission)).c_str(), 1);
    };
    break_("refuse");
    const Replayed refusing(file, BROKEN_ADAPTER_FILE);
    ASSERT_TRUE(refusing.comparison.Difference().has_value());
    EXPECT_EQ(StatusesOf(refusing.own)["refused, status 4"], 1U);

    break_("hang");
    const Replayed hanging(file, BROKEN_ADAPTER_FILE, std::chrono::seconds(1));
    EXPECT_NE(hanging.ending.stuck.find("is in SubmitRequestFromRT"), std::string::npos);

    break_("abort");
    EXPECT_EQ(Replayed(file, BROKEN_ADAPTER_FILE).ending.signal, SIGABRT);
    EXPECT_EQ(ExpectShrunk(file, {.isCrash = true}, BROKEN_ADAPTER_FILE).requests, 1U);
    EXPECT_EQ(Replayed(file + ".less", BROKEN_ADAPTER_FILE).ending.signal, SIGABRT);
}

} // namespace
