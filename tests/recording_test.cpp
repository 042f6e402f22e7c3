/// Recordings: what the ring keeps, and what is read of one that is damaged.

#include "contract/recording.h"
#include "contract/tap.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace contract;

/// A file for one test, which is removed.
struct File {
    std::string name = testing::TempDir() + "recording." + std::to_string(getpid());
    ~File() { unlink(name.c_str()); }

    std::string Read() const {
        std::ostringstream bytes;
        bytes << std::ifstream(name, std::ios::binary).rdbuf();
        return bytes.str();
    }
};

std::unique_ptr<Tap> Open(const File& file) {
    std::string problem;
    auto tap = Tap::Open({.file = file.name}, problem);
    EXPECT_EQ(problem, "");
    return tap;
}

/// Writes the call and the return of a request with one input set, and a call of another entry.
/// \returns the number of that.
uint64_t Execute(Tap& tap, uint64_t session) {
    int32_t frame = -1;
    uint32_t last = 0;
    ChiStream stream{.width = 4096};
    ChiStreamBuffer input{.size = sizeof input, .pStream = &stream};
    ChiOfflineBufferSet set{.numBuffers = 1, .pBuffers = &input};
    ChiOfflineExecuteRequest request{
        .numInputs = 1, .pInputs = &set, .pOfflineFrameNumber = &frame, .pLastFrameField = &last};
    const auto accept = [&] {
        frame = 7;
        request = {}; // The record is the vendor's to spoil.
        return int32_t{0};
    };
    tap.Around<Entry::ExecuteRequest>(accept, session, &request);
    return tap.Call<Entry::ProcRequest>(static_cast<PlatFormIntCallbacks*>(nullptr));
}

TEST(Recording, HoldsACallsRecordsAndWhatItWrote) {
    const File file;
    const auto tap = Open(file);
    Execute(*tap, 5);
    const Recording recording = Recording::Read(file.name);
    ASSERT_EQ(recording.Events().size(), 3U);
    EXPECT_EQ(recording.Damage(), "");
    const Event& call = recording.Events()[0];
    const Event& end = recording.Events()[1];
    const auto* request = call.At<ChiOfflineExecuteRequest>(call.Word(1));
    ASSERT_NE(request, nullptr);
    const auto sets = call.All<ChiOfflineBufferSet>(request->pInputs);
    ASSERT_EQ(sets.size(), 1U);
    const auto inputs = call.All<ChiStreamBuffer>(sets[0].pBuffers);
    ASSERT_EQ(inputs.size(), 1U);
    EXPECT_EQ(call.At<Stream>(inputs[0].pStream)->width, 4096U);
    EXPECT_EQ(*call.At<int32_t>(request->pOfflineFrameNumber), -1);
    EXPECT_EQ(*end.At<int32_t>(request->pOfflineFrameNumber), 7);
    EXPECT_EQ(end.Header().call, call.Number());
    EXPECT_EQ(end.Result(), 0U);
}

TEST(Recording, KeepsTheLastEventsOfARing) {
    const File file;
    const auto tap = Open(file);
    uint64_t last = 0;
    for (int i = 0; i < 10000; ++i) {
        last = Execute(*tap, 5);
    }
    const Recording recording = Recording::Read(file.name);
    EXPECT_EQ(recording.Damage(), "");
    EXPECT_EQ(recording.Events().back().Number(), last);
    EXPECT_GT(recording.CountLost(), 0U);
    EXPECT_EQ(recording.Events().size() + recording.CountLost(), last);
}

TEST(Recording, IsOneForAllThatWriteInOneProcess) {
    const File file;
    const auto first = Open(file);
    const auto second = Open(file);
    Execute(*first, 1);
    Execute(*second, 2);
    EXPECT_EQ(Recording::Read(file.name).Events().size(), 6U);
}

/// What a follower saw, as spans of numbers: "own 1-3".
struct Spans : Follower {
    struct Span {
        bool isOwn;
        uint64_t first, last;
        bool operator==(const Span&) const = default;
    };
    std::vector<Span> seen;

    void Take(const Event& event, bool isOwn) override {
        const uint64_t number = event.Number();
        if (seen.empty() || seen.back().isOwn != isOwn || number != seen.back().last + 1) {
            seen.push_back({isOwn, number, number});
        }
        seen.back().last = number;
    }
};

TEST(Recording, ShowsWhatOthersWriteToItsFollowers) {
    const File file;
    std::string problem;
    Spans spans[2];
    const auto first = Tap::Open({.file = file.name, .follower = &spans[0]}, problem);
    Execute(*first, 1);
    const auto second = Tap::Open({.file = file.name, .follower = &spans[1]}, problem);
    Execute(*second, 2);
    Execute(*second, 2);
    Execute(*first, 1);
    const std::vector<Spans::Span> one{{true, 1, 3}, {false, 4, 9}, {true, 10, 12}};
    EXPECT_EQ(spans[0].seen, one);
    uint64_t last = 0;
    for (int i = 0; i < 10000; ++i) {
        last = Execute(*second, 2); // From block to block, and round the ring.
    }
    const std::vector<Spans::Span> other{
        {false, 1, 3}, {true, 4, 9}, {false, 10, 12}, {true, 13, last}};
    EXPECT_EQ(spans[1].seen, other);
    last = Execute(*first, 1);
    const uint64_t lost = Recording::Read(file.name).CountLost();
    const std::vector<Spans::Span> late{{false, lost + 1, last - 3}, {true, last - 2, last}};
    EXPECT_EQ(std::vector(spans[0].seen.begin() + 3, spans[0].seen.end()), late);
}

TEST(Recording, OfADeadProcessMakesRoomForTheNext) {
    const File file;
    if (const pid_t child = fork(); child != 0) {
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
    } else {
        const auto tap = Open(file);
        tap->Around<Entry::ExecuteRequest>([]() -> int32_t { _exit(0); }, uint64_t{5},
                                           static_cast<ChiOfflineExecuteRequest*>(nullptr));
    }
    const Recording recording = Recording::Read(file.name);
    ASSERT_EQ(recording.Events().size(), 1U);
    EXPECT_TRUE(recording.Events()[0].IsCall(Entry::ExecuteRequest));
    EXPECT_EQ(recording.Events()[0].Word(0), 5U);
    const auto tap = Open(file);
    EXPECT_EQ(Recording::Read(file.name).Events().size(), 0U);
}

TEST(Recording, IsNotTakenFromAnotherProcess) {
    const File file;
    const auto tap = Open(file);
    Execute(*tap, 5);
    const pid_t child = fork();
    if (child == 0) {
        std::string problem;
        const auto second = Tap::Open({.file = file.name}, problem);
        _exit(second == nullptr && problem == file.name + ": another process records into it");
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(Recording::Read(file.name).Events().size(), 3U);
}

TEST(Recording, SaysWhyItCannotBeMade) {
    std::string problem;
    for (const char* const file : {"/", "/dev/full", "/no/such/folder/file"}) {
        EXPECT_EQ(Tap::Open({.file = file}, problem), nullptr);
        EXPECT_EQ(problem.rfind(file + std::string(": "), 0), 0U) << problem;
    }
}

TEST(Recording, HasANameThatALayersSettingsCanHold) {
    const File file;
    const std::pair<std::string, std::string> kProblems[] = {
        {file.name, ""},
        {file.name + "#b", "the path has a '#' or a line's end in it"},
        {file.name + "\nb", "the path has a '#' or a line's end in it"},
        {file.name + " ", "the path ends in a blank"},
        {"/dev/full", "this is no file"}};
    for (const auto& [name, problem] : kProblems) {
        const std::string line = ProblemOfFile(name);
        EXPECT_EQ(line.substr(std::min(line.size(), line.rfind(": ") + 2)), problem);
        EXPECT_EQ(line.find('\n'), line.npos);
    }
    const auto tap = Open(file);
    EXPECT_EQ(ProblemOfFile(file.name),
              file.name + ": no recording can be made here: it is being written already");
}

// --- Limits -------------------------------------------------------------------------------------

/// Something of which so much is recorded, in memory that has no more than its number.
struct Limit {
    const char* what;
    size_t most;
    Record record;
    size_t bytes; ///< Of one.
    void (*write)(Tap& tap, size_t number);
};

constexpr Limit kLimits[] = {
    {"a text", 256, Record::Text, 1,
     [](Tap& tap, size_t number) {
         std::vector<char> text(number, 'x');
         if (number < 257) { // Where the limit is passed, the end is not looked for.
             text.push_back('\0');
         }
         tap.Call<Entry::BufferManagerCreate>(
             static_cast<ChiOfflineBufferManagerOps*>(nullptr),
             static_cast<const char*>(text.data()),
             static_cast<const ChiBufferManagerCreateData*>(nullptr));
     }},
    {"a feature", 256, Record::Text, 1,
     [](Tap& tap, size_t number) {
         OemLayer::OfflineDataWraper wrapper{};
         wrapper.identity.featureName.assign(number, 'x');
         void* const none = nullptr;
         tap.Call<Entry::SubmitRequestFromRT>(static_cast<PlatFormIntCallbacks*>(nullptr),
                                              static_cast<void*>(&wrapper), none, none, none);
     }},
    {"a tag's values", 4096, Record::Bytes, 1,
     [](Tap& tap, size_t number) {
         const std::vector<uint8_t> values(std::min<size_t>(number, 4096));
         tap.Call<Entry::MetadataSetTag>(ChiMetadataHandle(), 1U,
                                         static_cast<const void*>(values.data()),
                                         static_cast<uint32_t>(number), 0U);
     }},
    {"streams", 4096, Record::Pointers, sizeof(void*),
     [](Tap& tap, size_t number) {
         std::vector<ChiStream*> streams(std::min<size_t>(number, 4096));
         ChiOfflineSessionConfigInfo config{};
         config.numStreams = static_cast<uint32_t>(number);
         config.ppChiStreams = streams.data();
         tap.Call<Entry::ConfigureStreams>(uint64_t{5}, &config);
     }},
    {"sets", 64, Record::BufferSet, sizeof(ChiOfflineBufferSet),
     [](Tap& tap, size_t number) {
         std::vector<ChiOfflineBufferSet> sets(std::min<size_t>(number, 64));
         ChiOfflineExecuteRequest request{.numInputs = static_cast<uint32_t>(number),
                                          .pInputs = sets.data()};
         tap.Call<Entry::ExecuteRequest>(uint64_t{5}, &request);
     }},
    {"buffers", 64, Record::StreamBuffer, sizeof(ChiStreamBuffer),
     [](Tap& tap, size_t number) {
         std::vector<ChiStreamBuffer> buffers(std::min<size_t>(number, 64));
         ChiOfflineBufferSet set{.numBuffers = static_cast<uint32_t>(number),
                                 .pBuffers = buffers.data()};
         ChiOfflineExecuteRequest request{.numInputs = 1, .pInputs = &set};
         tap.Call<Entry::ExecuteRequest>(uint64_t{5}, &request);
     }},
    {"outputs", 64, Record::StreamBuffer, sizeof(ChiStreamBuffer),
     [](Tap& tap, size_t number) {
         std::vector<ChiStreamBuffer> buffers(std::min<size_t>(number, 64));
         ChiOfflineBufferSet set{.numBuffers = static_cast<uint32_t>(number),
                                 .pBuffers = buffers.data()};
         ChiOfflineExecuteRequest request{.pOutput = &set};
         tap.Call<Entry::ExecuteRequest>(uint64_t{5}, &request);
     }},
    {"answers", 64, Record::QueryStreamBuffer, sizeof(ChiOfflineQueryStreamBuffer),
     [](Tap& tap, size_t number) {
         const std::vector<ChiOfflineQueryBuffer> queries(std::min<size_t>(number, 64));
         std::vector<ChiOfflineQueryStreamBuffer> answers(queries.size());
         auto returned = static_cast<unsigned int>(number);
         tap.Around<Entry::GetFrameworkBuffers>(
             [] { return 0U; }, static_cast<const ChiOfflineSessionCallbacks*>(nullptr), returned,
             queries.data(), &returned, answers.data());
     }},
};

TEST(Recording, SaysWhereAnEventIsCut) {
    const File file;
    const auto tap = Open(file);
    for (const Limit& limit : kLimits) {
        for (const size_t number : {limit.most - 1, limit.most, limit.most + 1}) {
            limit.write(*tap, number);
            const Recording recording = Recording::Read(file.name);
            const Event& event = recording.Events().back();
            EXPECT_EQ(event.Header().isCut != 0, number > limit.most) << limit.what << number;
            const RecordHeader* record = event.First();
            while (record != nullptr && record->record != limit.record) {
                record = event.Next(record);
            }
            ASSERT_NE(record, nullptr) << limit.what;
            EXPECT_EQ(record->bytes, std::min(number, limit.most) * limit.bytes) << limit.what;
        }
    }
    // None of them took a block of its own for that.
    EXPECT_EQ(Recording::Read(file.name).CountLost(), 0U);
}

TEST(Recording, LeavesOutWhatABlockHasNoRoomFor) {
    const File file;
    const auto tap = Open(file);
    std::vector<ChiStream> streams(size_t{64} * 64);
    std::vector<ChiStreamBuffer> buffers(streams.size());
    std::vector<ChiOfflineBufferSet> sets(64);
    for (size_t i = 0; i < buffers.size(); ++i) {
        buffers[i].pStream = &streams[i];
        sets[i / 64] = {.numBuffers = 64, .pBuffers = &buffers[i / 64 * 64]};
    }
    ChiOfflineExecuteRequest request{.numInputs = 64, .pInputs = sets.data()};
    tap->Call<Entry::ExecuteRequest>(uint64_t{5}, &request);
    Execute(*tap, 5);
    const Recording recording = Recording::Read(file.name);
    EXPECT_EQ(recording.Damage(), "");
    ASSERT_EQ(recording.Events().size(), 4U);
    EXPECT_NE(recording.Events()[0].Header().isCut, 0U);
    EXPECT_EQ(recording.Events()[0].All<ChiOfflineBufferSet>(request.pInputs).size(), 64U);
    EXPECT_EQ(recording.Events()[1].Header().isCut, 0U);
}

// --- Damage -------------------------------------------------------------------------------------

/// The bytes of a recording with three calls, without the room behind them.
std::string Sample() {
    const File file;
    const auto tap = Open(file);
    for (int i = 0; i < 3; ++i) {
        Execute(*tap, 5);
    }
    const Recording recording = Recording::Read(file.name);
    size_t used = sizeof(BlockHeader);
    for (const Event& event : recording.Events()) {
        used += event.Header().size;
    }
    return file.Read().substr(0, kPageBytes + used);
}

/// What is read of it: the number of events and the damage, or the message.
std::pair<size_t, std::string> Try(const std::string& bytes) try {
    std::istringstream in(bytes);
    const Recording recording = Recording::Read("file", in);
    return {recording.Events().size(), recording.Damage()};
} catch (const RecordingError& error) {
    return {0, error.what()};
}

TEST(Recording, IsReadUpToWhereItWasCut) {
    const std::string whole = Sample();
    ASSERT_EQ(Try(whole), std::pair(size_t{9}, std::string()));
    size_t most = 0;
    for (size_t size = 0; size < whole.size(); ++size) {
        const auto [events, damage] = Try(whole.substr(0, size));
        ASSERT_NE(damage, "") << "cut to " << size;
        ASSERT_GE(events, most);
        most = events;
    }
    EXPECT_EQ(most, 8U);
}

TEST(Recording, IsReadUpToAFlippedBit) {
    const std::string whole = Sample();
    for (size_t bit = 0; bit < 8 * whole.size(); bit += 7) {
        std::string bytes = whole;
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ 1 << bit % 8);
        const auto [events, damage] = Try(bytes);
        const bool isInEvents = bit / 8 >= kPageBytes;
        ASSERT_TRUE(events == 9 ? !isInEvents : !damage.empty()) << "bit " << bit;
    }
}

/// A ring that has not come round has lost nothing: what is not there was damaged.
TEST(Recording, SaysWhereItsBeginningIsDamaged) {
    const File file;
    const auto tap = Open(file);
    std::string whole;
    for (LivePart live{}; live.block == 0;) {
        for (int i = 0; i < 100; ++i) {
            Execute(*tap, 5);
        }
        whole = file.Read();
        std::memcpy(&live, &whole[kLiveOffset], sizeof live);
    }
    ASSERT_EQ(Try(whole).second, "");
    constexpr std::pair<size_t, const char*> kRows[] = {
        {offsetof(BlockHeader, firstEvent), "its beginning is damaged"},
        {sizeof(BlockHeader) + offsetof(EventHeader, number),
         "it ends before the first event: what follows is damaged"}};
    for (const auto& [place, damage] : kRows) {
        std::string bytes = whole;
        bytes[kPageBytes + place] ^= 1;
        EXPECT_EQ(Try(bytes).second, damage);
    }
}

TEST(Recording, NamesWhatIsNone) {
    const auto changed = [](auto change) {
        std::string bytes = Sample();
        FileHeader header{};
        std::memcpy(&header, bytes.data(), sizeof header);
        change(header);
        header.checksum = ChecksumWithout(header);
        std::memcpy(bytes.data(), &header, sizeof header);
        return Try(bytes).second;
    };
    EXPECT_EQ(Try("").second, "file: the file is empty, and no recording");
    EXPECT_EQ(Try("{\"cameras\": []}").second, "file: this is no recording");
    EXPECT_EQ(changed([](auto& header) { header.version = 9; }),
              "file: a recording of version 9, and this program reads version 1");
    EXPECT_EQ(changed([](auto& header) { header.blocks = UINT32_MAX; }),
              "file: the recording's header is wrong: 4294967295 blocks of 1048576 bytes");
    EXPECT_THROW(Recording::Read("/"), RecordingError);
    EXPECT_THROW(Recording::Read("/dev/null"), RecordingError);
    EXPECT_THROW(Recording::Read("/no/such/file"), RecordingError);
}

/// An event whose parts say more than there is: its sums are right, as a hostile writer's would be.
TEST(Recording, TrustsNoLength) {
    const std::string whole = Sample();
    const size_t place = kPageBytes + sizeof(BlockHeader);
    EventHeader first{};
    std::memcpy(&first, &whole[place], sizeof first);
    const auto sealed = [&](auto change) {
        std::string bytes = whole;
        std::vector<uint64_t> event(first.size / 8);
        std::memcpy(event.data(), &bytes[place], first.size);
        auto* const header = reinterpret_cast<EventHeader*>(event.data());
        change(*header, *reinterpret_cast<RecordHeader*>(&event[(sizeof first + 16) / 8]));
        const uint32_t size = std::exchange(header->size, std::min(header->size, first.size));
        header->checksum = size >= sizeof first ? ChecksumOf(header) : 0;
        header->size = size;
        std::memcpy(&bytes[place], event.data(), first.size);
        return Try(bytes).first;
    };
    EXPECT_EQ(sealed([](EventHeader&, RecordHeader&) {}), 9U);
    using Change = void (*)(EventHeader&, RecordHeader&);
    constexpr Change kChanges[] = {
        [](EventHeader& event, RecordHeader&) { event.size = UINT32_MAX - 7; },
        [](EventHeader& event, RecordHeader&) { event.size = 8; },
        [](EventHeader& event, RecordHeader&) { event.words = 255; },
        [](EventHeader& event, RecordHeader&) { event.entry = Entry::Count; },
        [](EventHeader& event, RecordHeader&) { event.phase = static_cast<Phase>(2); },
        [](EventHeader&, RecordHeader& record) { record.bytes = UINT32_MAX; },
        [](EventHeader&, RecordHeader& record) { record.bytes -= 1; },
        [](EventHeader&, RecordHeader& record) { record.record = Record::Count; },
        [](EventHeader&, RecordHeader& record) { record.record = Record::None; }};
    for (size_t i = 0; i < std::size(kChanges); ++i) {
        EXPECT_EQ(sealed(kChanges[i]), 0U) << "change " << i;
    }
}

} // namespace
