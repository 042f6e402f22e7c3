/// What the host owned and the adapter read, made anew from the copies in a recording: streams,
/// request records, tables of callbacks. And what the adapter owns, as it is learned.
///
/// Handles of the vendor's are none of it: nobody but the vendor looks into them, so that a replay
/// uses the recorded ones.
#pragma once

#include "replay/calls.h"

#include <memory>
#include <mutex>
#include <vector>

namespace replay {

/// By their recorded addresses. Streams lie in the order in which they lay, since the adapter goes
/// through them in that order. Any thread may call, once it is made.
class Objects {
  public:
    /// \param callbacks and `framework` are what tables of the host hold.
    Objects(const std::deque<Call>& calls, const OemLayer::OffCamApplicationCallbacks& callbacks,
            const camera3_callback_ops& framework);

    /// A stream of either side. One that is not known stays what it is.
    template <class T> T* StreamOf(T* recorded) {
        return reinterpret_cast<T*>(Stream(contract::WordOf(recorded)));
    }
    /// What the adapter made of a stream list.
    void LearnStream(uint64_t recorded, ChiStream* own);
    /// Writes what the host has written into a stream of its own since.
    void Refresh(uint64_t recorded, const ChiStream& copy);

    OemLayer::RequestPrivData* RequestOf(uint64_t recorded) const {
        return Find(mRequests, recorded);
    }
    OemLayer::OffCamApplicationCallbacks* CallbacksOf(uint64_t recorded) const {
        return Find(mCallbacks, recorded);
    }
    camera3_callback_ops* FrameworkOf(const camera3_callback_ops* recorded) const {
        return Find(mFrameworks, contract::WordOf(recorded));
    }

  private:
    template <class T> using Owned = std::map<uint64_t, std::unique_ptr<T>>;
    template <class T> static T* Find(const Owned<T>& all, uint64_t recorded) {
        const auto found = all.find(recorded);
        return found == all.end() ? nullptr : found->second.get();
    }

    void AddSubmission(const Event& event, const OemLayer::OffCamApplicationCallbacks& callbacks,
                       const camera3_callback_ops& framework);
    uint64_t Stream(uint64_t recorded);

    std::map<uint64_t, ChiStream*> mStreams; ///< The host's.
    std::vector<ChiStream> mStreamMemory;
    Owned<OemLayer::RequestPrivData> mRequests;
    Owned<OemLayer::OffCamApplicationCallbacks> mCallbacks;
    Owned<camera3_callback_ops> mFrameworks;
    std::mutex mMutex;                       ///< Guards what follows.
    std::map<uint64_t, ChiStream*> mLearned; ///< The adapter's streams.
};

} // namespace replay
