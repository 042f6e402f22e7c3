/// Views of recordings, over recordings that are made here and damaged in every way.
#include "contract/engine.h"
#include "contract/tap.h"
#include "tests/support/device.h"
#include "tests/support/script.h"
#include "view/diff.h"
#include "view/json.h"
#include "view/text.h"
#include "view/timeline.h"
#include "view/told.h"

#include <nlohmann/json.hpp>

#include <cstring>
#include <memory>

namespace {

using namespace contract;
using test::Folder;
using test::MadeUp;
using test::Thrown;
using view::Told;

/// What differs from one recording of the same to the next.
struct Variation {
    uint64_t session = 0x1000;
    uint32_t status = 0;    ///< Of the completion.
    bool usesFirst = true;  ///< Of both sessions, for the request.
    bool isKilled = false;  ///< In the execution.
    uint32_t announced = 1; ///< Input sets of the submission.
    uint32_t height = 32;   ///< Of the output stream.
};

/// Calls of a host with two sessions and one request, whose result comes during its execution.
class Play {
  public:
    Play(const std::string& file, const Variation& variation) : mVariation(variation) {
        std::string problem;
        mTap = Tap::Open({.file = file, .bytes = uint64_t{2} * kBlockBytes}, problem);
        EXPECT_TRUE(mTap) << problem;
        mOutput.height = variation.height;
        mPriv.inputStreams = {&mRaw};
        Open("Night", mVariation.session);
        Open("Hdr", mVariation.session + 1);
        mWrapper.rtFrameNumber = 101;
        mWrapper.numBuffers = variation.announced;
        mWrapper.identity.pOutStream = &mOutput;
        mWrapper.identity.featureName = "Night";
        if (variation.isKilled) {
            Submit([this](auto... args) { mTap->Call<Entry::SubmitRequestFromRT>(args...); });
            mTap->Call<Entry::ExecuteRequest>(Session(), &mExecution);
            return;
        }
        Submit([this](auto... args) {
            mTap->Around<Entry::SubmitRequestFromRT>([this] { return Execute(); }, args...);
        });
        mTap->Around<Entry::CloseSession>([] { return 0; }, mVariation.session);
    }

  private:
    uint64_t Session() const { return mVariation.session + (mVariation.usesFirst ? 0 : 1); }

    template <class Write> void Submit(Write write) {
        void* const none = nullptr;
        write(&mTable, static_cast<void*>(&mWrapper), static_cast<void*>(&mPriv), none, none);
    }

    void Open(const char* name, uint64_t handle) {
        ChiOfflineSessionCreateInfo info{name, 0, &mCallbacks[mOpened++]};
        mTap->Around<Entry::OpenSession>([&] { return handle; }, &mInterface, &info);
        ChiStream* streams[] = {reinterpret_cast<ChiStream*>(&mRaw)};
        ChiOfflineSessionConfigInfo config{
            .pCameraText = "camera 0", .numStreams = 1, .ppChiStreams = streams};
        mTap->Around<Entry::ConfigureStreams>([] { return 0; }, handle, &config);
    }

    uint32_t Execute() {
        ChiStreamBuffer buffers[2]{{.size = 208, .pStream = reinterpret_cast<ChiStream*>(&mRaw)}};
        ChiOfflineBufferSet set{.numBuffers = 2, .pBuffers = buffers};
        mExecution.numInputs = 1;
        mExecution.pInputs = &set;
        return static_cast<uint32_t>(mTap->Around<Entry::ExecuteRequest>(
            [this] {
                Deliver();
                return 0;
            },
            Session(), &mExecution));
    }

    void Deliver() {
        ChiOfflineResultBlock block{.numBuffers = 1, .pMetadata = MadeUp(0x55)};
        ChiOfflineCaptureResultInfo info{
            .frameNumber = 1, .pResult = &block, .pPrivateData = mExecution.pPrivateData};
        camera3_stream_buffer buffer{.stream = &mOutput};
        camera3_capture_result result{
            .frame_number = 101, .num_output_buffers = 1, .output_buffers = &buffer};
        mTap->Around<Entry::ProcessCaptureResult>(
            [&] {
                mTap->Around<Entry::CaptureResult>([] {}, 0U, &mPriv, &result);
                mTap->Around<Entry::ReleaseRtBuffers>([] {}, 0U, &mPriv);
                mTap->Around<Entry::RequestComplete>([] {}, 0U, &mPriv, mVariation.status);
            },
            static_cast<const ChiOfflineSessionCallbacks*>(
                &mCallbacks[mVariation.usesFirst ? 0 : 1]),
            1U, &info);
    }

    const Variation mVariation;
    std::unique_ptr<Tap> mTap;
    PlatFormIntCallbacks mTable{};
    ChiOfflineInterface mInterface{};
    ChiOfflineSessionCallbacks mCallbacks[2]{};
    size_t mOpened = 0;
    camera3_stream mRaw = test::MakeStream(HAL_PIXEL_FORMAT_RAW10);
    camera3_stream mOutput = test::MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888);
    OemLayer::RequestPrivData mPriv{};
    OemLayer::OfflineDataWraper mWrapper{};
    ChiOfflineExecuteRequest mExecution{.pPrivateData = this};
};

std::string Played(const std::string& file, const Variation& variation = {}) {
    const auto play = std::make_unique<Play>(file, variation);
    return file;
}

TEST(Story, TellsOfSessionsAndRequests) {
    const Folder folder;
    const Told told(Played(folder / "a.rec"));
    ASSERT_EQ(told.story.Requests().size(), 1U);
    const view::Request& request = told.story.Requests().front();
    EXPECT_EQ(std::tuple(request.camera, request.frame, request.feature, request.sets),
              std::tuple(0U, 101U, "Night", 1U));
    EXPECT_EQ(std::tuple(request.session, request.status, request.completion),
              std::tuple(1U, 0U, 0U));
    EXPECT_LT(request.submitted, request.buffer);
    EXPECT_LT(request.buffer, request.released);
    EXPECT_LT(request.released, request.completed);
    EXPECT_LT(request.completed, request.returned);
    EXPECT_FALSE(request.metadata.has_value());
    ASSERT_EQ(told.story.Sessions().size(), 2U);
    const view::Session& session = told.story.Sessions().front();
    EXPECT_EQ(std::tuple(session.name, session.cameraText, session.requests),
              std::tuple("Night", "camera 0", 1U));
    EXPECT_TRUE(session.opened && session.configured && session.closed);
    EXPECT_FALSE(told.story.Sessions().back().closed.has_value());
    EXPECT_FALSE(told.story.IsOpen());
}

TEST(Story, NamesTheCallsThatAreOpenAtItsEndWithTheirArguments) {
    const Folder folder;
    const Told told(Played(folder / "a.rec", {.isKilled = true}));
    ASSERT_TRUE(told.story.IsOpen());
    const auto& open = told.story.Threads().front().open;
    ASSERT_EQ(open.size(), 2U);
    EXPECT_EQ(told.Events()[open[0]].Of(), Entry::SubmitRequestFromRT);
    EXPECT_EQ(view::LineOf(told.serials, open[1]),
              "ExecuteRequest(session 1, request there {pPrivateData execution 1})");
    int depth = 0;
    const auto trace = nlohmann::json::parse(view::TimelineOf(told.story, told.Start()));
    for (const auto& event : trace.at("traceEvents")) {
        depth += event.at("ph") == "B" ? 1 : event.at("ph") == "E" ? -1 : 0;
    }
    EXPECT_EQ(depth, 0) << "open calls end with the last event";
}

/// As far as they still call, or are called.
TEST(Story, HasTheSessionsThatWereOpenedBeforeItsBeginning) {
    const Folder folder;
    const Told told(Played(folder / "a.rec"));
    const auto isOpening = [](const Event& event) {
        return event.IsReturn(Entry::OpenSession) || event.IsReturn(Entry::ConfigureStreams);
    };
    const auto last = std::find_if(told.Events().rbegin(), told.Events().rend(), isOpening);
    const std::vector<Event> rest(last.base(), told.Events().end());
    const view::Serials serials(rest);
    const view::Story story(serials);
    ASSERT_EQ(story.Sessions().size(), 1U);
    const view::Session& session = story.Sessions().front();
    EXPECT_EQ(std::tuple(session.serial, session.feature, session.requests),
              std::tuple(1U, "Night", 1U));
    EXPECT_FALSE(session.asked || session.opened);
    EXPECT_TRUE(session.closed.has_value());
    EXPECT_EQ(story.Requests().front().session, 1U);
}

struct DiffCase {
    Variation other;
    Entry entry;
    const char* path;
    const char* one;
    const char* another;
};

TEST(Diff, FindsWhatChangedAtItsPlaceAndNothingElse) {
    static const DiffCase kCases[] = {
        {{.status = 1}, Entry::RequestComplete, "status", "0", "1"},
        {{.usesFirst = false}, Entry::ExecuteRequest, "session", "session 1", "session 2"},
        {{.announced = 2}, Entry::SubmitRequestFromRT, "request.numBuffers", "1", "2"},
        {{.height = 64}, Entry::SubmitRequestFromRT, "request.pOutStream.height", "32", "64"},
    };
    const Folder folder;
    const Told one(Played(folder / "a.rec"));
    {
        const Told same(Played(folder / "b.rec", {.session = 0x7f000000}));
        EXPECT_FALSE(view::FindDifference(one.story, same.story).has_value());
    }
    for (const DiffCase& each : kCases) {
        const Told other(Played(folder / each.path, each.other));
        const auto difference = view::FindDifference(one.story, other.story);
        ASSERT_TRUE(difference.has_value()) << each.path;
        EXPECT_EQ(one.Events()[difference->one.value()].Of(), each.entry);
        EXPECT_EQ(std::tuple(difference->path, difference->inOne, difference->inOther),
                  std::tuple(each.path, each.one, each.another));
    }
    const Told killed(Played(folder / "d.rec", {.isKilled = true}));
    const auto difference = view::FindDifference(killed.story, one.story);
    ASSERT_TRUE(difference.has_value());
    EXPECT_EQ(difference->path, "request.numInputs");
    EXPECT_EQ(difference->before.size(), 4U);
}

TEST(Json, OfEveryEntryIsALineThatParses) {
    test::Script script;
    for (size_t i = 0; i < static_cast<size_t>(Entry::Count); ++i) {
        const std::vector<uint64_t> words(kMostWords, i + 1);
        script.Both(static_cast<Entry>(i), words, i + 1);
    }
    const Folder folder;
    folder.Write("every.rec", script.File());
    Played(folder / "a.rec");
    for (const char* file : {"every.rec", "a.rec"}) {
        const Told told(folder / file);
        EXPECT_EQ(told.recording.Damage(), "");
        for (size_t i = 0; i < told.Events().size(); ++i) {
            const auto line = nlohmann::json::parse(view::JsonOf(told.story, i, 0));
            const Event& event = told.Events()[i];
            EXPECT_EQ(line.at("entry"), event.Text().name);
            EXPECT_EQ(line.at("args").size(), event.Text().arguments.size()) << line;
            EXPECT_EQ(line.contains("result"), !event.IsCall() && event.Text().result != nullptr);
        }
    }
    const Told told(folder / "a.rec");
    std::string all;
    for (size_t i = 0; i < told.Events().size(); ++i) {
        all += view::JsonOf(told.story, i, 0);
    }
    for (const char* part :
         {R"("featureName":"Night")", R"("output_buffers":[{"stream":{"stream":)",
          R"("inputStreams":[{"stream":1,)", R"("session":{"session":1,)"}) {
        EXPECT_NE(all.find(part), std::string::npos) << part << " in " << all;
    }
}

TEST(Json, SaysWhatAnEventIsAboutAndWhatIsMissing) {
    test::Script script;
    const auto cut = [](Writer& writer) { (void)writer.Limit(2, 1); };
    script.Call(Entry::LogMap, {static_cast<uint64_t>(-5)}, cut);   // 1
    const uint64_t call = script.Submit(3, 0xa00, 101, "N\xe9ght"); // 2
    script.Both(Entry::OpenSession, {0x1}, 0x5000);                 // 3
    script.Return(call, static_cast<uint64_t>(-22));                // 5
    const view::Serials serials(script.Events());
    const view::Story story(serials);
    const auto lineOf = [&](size_t event) {
        return nlohmann::json::parse(view::JsonOf(story, event - 1, 2000));
    };
    EXPECT_EQ(lineOf(1).at("args").at("first").dump(), "-5"); // As a number it equals 2^64 - 5.
    EXPECT_EQ(lineOf(1).value("cut", false), true);
    EXPECT_EQ(lineOf(1).at("time"), -1.0);
    for (const char* subject : {"camera", "session", "request"}) {
        EXPECT_FALSE(lineOf(1).contains(subject)) << subject;
    }
    const nlohmann::json submission = lineOf(2);
    EXPECT_EQ(std::tuple(submission.at("camera"), submission.at("request")), std::tuple(3, 1));
    EXPECT_FALSE(submission.contains("session") || submission.contains("cut"));
    EXPECT_NE(submission.dump().find("\"featureName\":\"N?ght\""), std::string::npos);
    EXPECT_EQ(lineOf(4).at("session"), 1);
    EXPECT_EQ(std::tuple(lineOf(5).at("call"), lineOf(5).at("result")), std::tuple(2, -22));
}

std::string ReadFile(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// Reads what may be damaged, with all views. \returns what is wrong with it, "" where nothing is.
std::string View(const std::string& file, size_t& events) {
    events = 0;
    return Thrown([&] {
        const Told told(file);
        events = told.Events().size();
        for (size_t i = 0; i < events; ++i) {
            (void)view::JsonOf(told.story, i, 0);
        }
        (void)view::FindDifference(told.story, told.story);
        if (!told.recording.Damage().empty()) {
            throw contract::RecordingError(file + ": " + told.recording.Damage());
        }
    });
}

TEST(Damage, IsToldInALineAndCrashesNothing) {
    const Folder folder;
    const std::string whole = ReadFile(Played(folder / "a.rec"));
    size_t all = 0;
    ASSERT_EQ(View(folder / "a.rec", all), "");
    std::string older = whole;
    older[offsetof(FileHeader, version)] = 9;
    const std::pair<std::string, std::string> cases[] = {
        {folder.Write("empty", ""), "the file is empty, and no recording"},
        {folder / ".", "this is a directory, and no recording"},
        {folder / "none", "No such file or directory"},
        {folder.Write("text", std::string(5000, 'x')), "this is no recording"},
        {folder.Write("older", older),
         "a recording of version 9, and this program reads version 1"},
    };
    size_t events = 0;
    for (const auto& [file, problem] : cases) {
        EXPECT_EQ(View(file, events), std::string(file).append(": ").append(problem));
    }
    // Up to where the events end; what follows is empty.
    const size_t end = whole.find_last_not_of('\0', kPageBytes + kBlockBytes - 1) + 1;
    const auto expect = [&](const std::string& what, size_t place) {
        const std::string problem = View(folder.Write("damaged", what), events);
        EXPECT_EQ(problem.find(folder / "damaged: "), events < all ? 0U : problem.npos)
            << place << ": " << problem << " after " << events << " events";
        EXPECT_EQ(problem.find('\n'), problem.npos);
    };
    for (size_t size = 0; size < end; size += 97) {
        expect(whole.substr(0, size), size);
    }
    for (size_t place = 0; place < end; place += 61) {
        std::string flipped = whole;
        flipped[place] = static_cast<char>(flipped[place] ^ (1 << place % 8));
        expect(flipped, place);
    }
}

/// One event must not become millions of records.
TEST(Damage, IsARowLongerThanAnyThatIsCaptured) {
    const std::vector<ChiStreamBuffer> buffers(65);
    for (const size_t count : {64, 65}) {
        std::vector<uint64_t> words(4096);
        auto* const bytes = reinterpret_cast<std::byte*>(words.data());
        Writer writer(bytes, 8 * words.size());
        writer.Put(buffers.data(), count);
        EventHeader header{.number = 1, .entry = Entry::ProcessCaptureResult};
        writer.End(header);
        std::memcpy(bytes, &header, sizeof header);
        reinterpret_cast<EventHeader*>(bytes)->checksum =
            ChecksumOf(reinterpret_cast<EventHeader*>(bytes));
        EXPECT_EQ(IsSound(reinterpret_cast<EventHeader*>(bytes), header.size), count == 64);
    }
}

/// Calls that never return pile up no further than that.
TEST(Damage, IsATowerOfOpenCalls) {
    test::Script script;
    for (size_t i = 0; i < 3 * kMostOpenCalls; ++i) {
        script.Call(Entry::LoadLib);
    }
    const view::Serials serials(script.Events());
    const view::Story story(serials);
    const auto& open = story.Threads().front().open;
    ASSERT_EQ(open.size(), kMostOpenCalls);
    EXPECT_EQ(open.back(), script.Events().size() - 1) << "the innermost stay";
}

} // namespace
