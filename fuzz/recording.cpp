/// The reader of recordings and all that is done with what it reads.
///
/// An input says how it is read: as a file; or as events whose parts it chooses, which then stand
/// in a file with right sums, some of it damaged. The words of these events are small numbers and a
/// few addresses, so that records find each other.

#include "contract/recording.h"
#include "contract/capture.h"
#include "fuzz/check.h"
#include "view/check.h"
#include "view/diff.h"
#include "view/json.h"
#include "view/report.h"
#include "view/timeline.h"

#include <cstdio>
#include <sstream>

namespace {

using namespace contract;

constexpr uint32_t kAddresses = 24;
constexpr uint64_t kBetween = 0x1000;
constexpr uint64_t kFirstAddress = 0x7000000000;

/// An address for large bytes, a number for small ones.
uint64_t Word(fuzz::Input& input) {
    const uint32_t byte = input.Byte();
    return byte >= 256 - 2 * kAddresses ? kFirstAddress + byte % kAddresses * kBetween : byte % 16;
}

void PutRecord(fuzz::Input& input, Writer& writer) {
    const auto record = static_cast<Record>(1 + input.Below(uint32_t(Record::Count) - 1));
    const uint64_t address = kFirstAddress + input.Below(kAddresses) * kBetween;
    const uint32_t bytes = TextOf(record).size * (1 + input.Below(3));
    std::vector<uint64_t> words(Padded(bytes) / 8);
    for (uint64_t& word : words) {
        word = Word(input);
    }
    writer.Put(record, reinterpret_cast<const void*>(address), words.data(), bytes);
}

/// Events in memory of their own.
struct Events {
    std::vector<std::vector<uint64_t>> memory;
    std::vector<Event> all;

    void Add(fuzz::Input& input) {
        memory.emplace_back(1 << 9);
        auto* const place = reinterpret_cast<std::byte*>(memory.back().data());
        Writer writer(place, 8 * memory.back().size());
        for (uint32_t words = input.Below(kMostWords + 1); words > 0; --words) {
            writer.Add(Word(input));
        }
        for (uint32_t records = input.Below(8); records > 0; --records) {
            PutRecord(input, writer);
        }
        EventHeader header{};
        writer.End(header);
        header.number = all.size() + 1;
        header.entry = static_cast<Entry>(input.Below(uint32_t(Entry::Count)));
        header.phase = static_cast<Phase>(input.Below(2));
        header.call = header.phase == Phase::Call ? header.number : input.Below(8);
        header.thread = input.Below(3);
        header.time = 1000 * header.number;
        std::memcpy(place, &header, sizeof header);
        all.emplace_back(reinterpret_cast<const EventHeader*>(place));
    }
};

std::string Made(fuzz::Input& input) {
    Events events;
    for (uint32_t flips = input.Below(4), count = 1 + input.Below(12); count > 0; --count) {
        events.Add(input);
        if (count == 1) {
            std::string file = Serialize({.blockBytes = kBlockBytes}, events.all);
            FileHeader header{};
            std::memcpy(&header, file.data(), sizeof header);
            std::memcpy(header.magic, kMagic, sizeof kMagic);
            header.version = kVersion;
            header.checksum = ChecksumWithout(header);
            std::memcpy(file.data(), &header, sizeof header);
            for (; flips > 0; --flips) {
                file[input.Word() % file.size()] ^= static_cast<char>(input.Byte());
            }
            return file;
        }
    }
    return {};
}

/// Where what is shown goes.
void Hush() {
    static const bool isHushed = std::freopen("/dev/null", "w", stdout) != nullptr;
    fuzz::Check(isHushed, "there is no /dev/null");
}

void ShowAll(const Recording& recording) {
    const view::Serials serials(recording.Events());
    const view::Story story(serials);
    const view::Moment start = recording.About().time;
    view::PrintAll("input", recording, story);
    for (size_t event = 0; event < recording.Events().size(); ++event) {
        fuzz::Check(view::JsonOf(story, event, start).starts_with("{"), "no line of an event");
    }
    view::PrintViolations(view::FindViolations(recording.Events()), story, start);
    fuzz::Check(view::TimelineOf(story, start).ends_with("]}\n"), "no end of the timeline");
    fuzz::Check(!view::FindDifference(story, story).has_value(), "it differs from itself");
}

void Run(fuzz::Input input, std::string file) {
    Hush();
    if (input.Byte() % 8 != 0) {
        file = Made(input);
    }
    std::istringstream in(file);
    try {
        ShowAll(Recording::Read("input", in));
    } catch (const RecordingError&) {
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Run({data, size}, {data + (size == 0 ? 0 : 1), data + size});
    return 0;
}
