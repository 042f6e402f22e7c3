/// Finds the host's objects in a recording.
#include "replay/objects.h"

namespace replay {

using contract::WordOf;
using OemLayer::OffCamApplicationCallbacks;
using OemLayer::OfflineDataWraper;
using OemLayer::RequestPrivData;

Objects::Objects(const std::deque<Call>& calls, const OffCamApplicationCallbacks& callbacks,
                 const camera3_callback_ops& framework) {
    const auto addBuffers = [this](std::span<const camera3_stream_buffer> buffers) {
        for (const camera3_stream_buffer& buffer : buffers) {
            mStreams[WordOf(buffer.stream)];
        }
    };
    for (const Call& call : calls) {
        if (call.Of() == Entry::TakeImageBuffer) {
            mStreams[call.Word(1)];
        } else if (call.Of() == Entry::TranslateToBuffer) {
            addBuffers(call.call.All<camera3_stream_buffer>(call.Word(1)));
        } else if (call.Of() == Entry::SubmitRequestFromRT) {
            AddSubmission(call.call, callbacks, framework);
            addBuffers(call.call.All<camera3_stream_buffer>(call.Word(3)));
        }
    }
    mStreams.erase(0);
    mStreamMemory.resize(mStreams.size());
    ChiStream* next = mStreamMemory.data();
    for (auto& [recorded, own] : mStreams) {
        own = next++;
    }
}

void Objects::AddSubmission(const Event& event, const OffCamApplicationCallbacks& callbacks,
                            const camera3_callback_ops& framework) {
    if (const auto* wrapper = event.At<OfflineDataWraper>(event.Word(1))) {
        mStreams[WordOf(wrapper->identity.pOutStream)];
        if (wrapper->pCamera3CbOps != nullptr) {
            mFrameworks.try_emplace(WordOf(wrapper->pCamera3CbOps),
                                    std::make_unique<camera3_callback_ops>(framework));
        }
    }
    if (event.At<RequestPrivData>(event.Word(2)) != nullptr) {
        mRequests.try_emplace(event.Word(2), std::make_unique<RequestPrivData>());
        const uint64_t list = event.Word(2) + offsetof(RequestPrivData, inputStreams);
        for (const uint64_t stream : event.All<uint64_t>(list)) {
            mStreams[stream];
        }
    }
    if (const auto* table = event.At<OffCamApplicationCallbacks>(event.Word(4))) {
        const auto there = [](auto own, auto recorded) { return recorded ? own : nullptr; };
        mCallbacks.try_emplace(event.Word(4),
                               new OffCamApplicationCallbacks{
                                   there(callbacks.releaseRtBuffers, table->releaseRtBuffers),
                                   there(callbacks.requestComplete, table->requestComplete),
                                   there(callbacks.captureResult, table->captureResult)});
    }
}

uint64_t Objects::Stream(uint64_t recorded) {
    const auto host = mStreams.find(recorded);
    if (host != mStreams.end()) {
        return WordOf(host->second);
    }
    const std::lock_guard lock(mMutex);
    const auto learned = mLearned.find(recorded);
    return learned == mLearned.end() ? recorded : WordOf(learned->second);
}

void Objects::LearnStream(uint64_t recorded, ChiStream* own) {
    if (!mStreams.contains(recorded)) {
        const std::lock_guard lock(mMutex);
        mLearned[recorded] = own;
    }
}

/// Word by word, and atomically: the adapter may be reading the stream for another request.
void Objects::Refresh(uint64_t recorded, const ChiStream& copy) {
    const auto host = mStreams.find(recorded);
    if (host == mStreams.end()) {
        return;
    }
    uint32_t words[sizeof(ChiStream) / sizeof(uint32_t)];
    std::memcpy(words, &copy, sizeof words);
    auto* const own = reinterpret_cast<uint32_t*>(host->second);
    for (size_t i = 0; i < std::size(words); ++i) {
        if (__atomic_load_n(&own[i], __ATOMIC_RELAXED) != words[i]) {
            __atomic_store_n(&own[i], words[i], __ATOMIC_RELAXED);
        }
    }
}

} // namespace replay
