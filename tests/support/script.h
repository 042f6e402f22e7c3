/// Events that no run gives at will: a test makes them up, one by one.
#pragma once

#include "contract/capture.h"
#include "contract/recording.h"

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace test {

/// Owns the memory of its events. Each comes a microsecond after the last one, the first at 1.
class Script {
  public:
    using Entry = contract::Entry;
    using Fill = std::function<void(contract::Writer&)>; ///< Puts the records behind the words.

    /// \param words the arguments; those that are missing are 0. \returns the number.
    uint64_t Call(Entry entry, std::vector<uint64_t> words = {}, const Fill& fill = {}) {
        words.resize(contract::TextOf(entry).arguments.size());
        return Add({.call = number, .thread = thread, .entry = entry}, words, fill);
    }

    /// Ends a call of this script on its thread, and has its words.
    uint64_t Return(uint64_t call, uint64_t result = 0, const Fill& fill = {}) {
        const contract::Event& its = Of(call);
        std::vector<uint64_t> words;
        for (size_t i = 0; i < its.Text().arguments.size(); ++i) {
            words.push_back(its.Word(i));
        }
        if (its.Text().result != nullptr) {
            words.push_back(result);
        }
        return Add({.call = call,
                    .thread = its.Thread(),
                    .entry = its.Of(),
                    .phase = contract::Phase::Return},
                   words, fill);
    }

    /// A call that returns at once. \returns the number of the return.
    uint64_t Both(Entry entry, const std::vector<uint64_t>& words = {}, uint64_t result = 0) {
        return Return(Call(entry, words), result);
    }

    /// A host's call. \param request its record's address
    uint64_t Submit(uint32_t camera, uint64_t request, uint32_t frame,
                    const std::string& feature = "Night") {
        OemLayer::OfflineDataWraper wrapper{.rtFrameNumber = frame};
        wrapper.identity.featureName = feature;
        return Call(Entry::SubmitRequestFromRT, {camera, contract::WordOf(&wrapper), request},
                    [&](contract::Writer& writer) {
                        contract::Capture<Entry::SubmitRequestFromRT>::Call(
                            writer, nullptr, &wrapper, nullptr, nullptr, nullptr);
                    });
    }

    const std::vector<contract::Event>& Events() const { return mEvents; }
    const contract::Event& Of(uint64_t event) const {
        return mEvents.at(event - mEvents.front().Number());
    }

    /// A recording's file of them, of a process whose clock began at 0.
    std::string File() const {
        contract::FileHeader about{.version = contract::kVersion,
                                   .blockBytes = contract::kBlockBytes,
                                   .process = 1,
                                   .realTime = 1'769'860'800'250'999'999};
        std::memcpy(about.magic, contract::kMagic, sizeof about.magic);
        return contract::Serialize(about, mEvents);
    }

    uint64_t number = 1;  ///< Of the next event; set it before the first one alone.
    uint32_t thread = 1;  ///< That calls next.
    uint64_t time = 1000; ///< Of the next event, in nanoseconds.

  private:
    uint64_t Add(contract::EventHeader header, const std::vector<uint64_t>& words,
                 const Fill& fill) {
        mRoom.resize(8192);
        auto* const place = reinterpret_cast<std::byte*>(mRoom.data());
        contract::Writer writer(place, 8 * mRoom.size());
        for (const uint64_t word : words) {
            writer.Add(word);
        }
        if (fill) {
            fill(writer);
        }
        header.number = number++;
        header.time = std::exchange(time, time + 1000);
        writer.End(header);
        std::memcpy(place, &header, sizeof header);
        const auto end = mRoom.begin() + header.size / 8;
        mEvents.emplace_back(reinterpret_cast<const contract::EventHeader*>(
            mMemory.emplace_back(mRoom.begin(), end).data()));
        return header.number;
    }

    std::vector<uint64_t> mRoom; ///< Where an event is made.
    std::deque<std::vector<uint64_t>> mMemory;
    std::vector<contract::Event> mEvents;
};

} // namespace test
