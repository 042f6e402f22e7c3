/// What all threads of a replay share: the objects of the recording in this process.
#pragma once

#include "kit/library.h"
#include "replay/objects.h"

#include <cstdlib>

namespace replay {

/// What the vendor keeps: the adapter's records that results bring back, and the memory of images.
/// Any thread may call.
class VendorSide {
  public:
    /// A session was opened, by a call of the recording or, with null, by another.
    void OnOpenSession(const Call* call, uint64_t session, ChiOfflineSessionCallbacks* callbacks);
    void OnExecute(const Call& call, const ChiOfflineExecuteRequest& request);
    void OnManager(uint64_t manager, const ChiBufferManagerCreateData& data);
    void OnImage(uint64_t image, uint64_t manager);

    /// The record that a callback of the vendor's is to be made with; null where there is none.
    const ChiOfflineSessionCallbacks* CallbacksOf(const Call& call) const;
    struct Execution {
        void* privateData;
        ChiStreamBuffer* output;
    };
    /// What the adapter handed over with the request of a result; nulls where it did not.
    Execution ExecutionOf(const Call& result) const;
    /// Of this process, and black. Empty, not null, for an image of unknown or absurd size.
    std::span<uint8_t> MemoryOf(uint64_t image);

  private:
    struct Image {
        size_t bytes = 0;
        std::unique_ptr<uint8_t, decltype(&free)> memory{nullptr, free};
    };

    mutable std::mutex mMutex; ///< Guards all that follows.
    std::map<const Call*, ChiOfflineSessionCallbacks*> mOpened;
    std::map<uint64_t, ChiOfflineSessionCallbacks*> mSessions; ///< By their handles.
    std::map<const Call*, Execution> mExecuted;
    std::map<uint64_t, size_t> mManagers; ///< Bytes of an image.
    std::map<uint64_t, Image> mImages;
};

struct World {
    Objects objects;
    VendorSide vendor;
    PlatformLoadFunctions load;
    std::map<uint32_t, PlatFormIntCallbacks> tables; ///< By the camera.
};

/// Makes a call into the adapter, with what the recording says of its arguments. \returns false
/// where it cannot be made: it brings back what the adapter never handed over.
bool Make(const Call& call, World& world);

/// What the adapter hands over with a call that is in the recording.
void Learn(const Call& call, std::span<const uint64_t> words, World& world);

/// Writes what the vendor writes into the streams of a session's configuration, where that is lost:
/// as a later request to the session has it.
void ConfigureFor(const Call& execution, uint64_t config, World& world);

/// Answers a call of the adapter's as the recording says, and fills its records. \returns no value
/// where the stand-in has to do that: it makes the operation tables.
std::optional<uint64_t> Answer(const Call& call, std::span<const uint64_t> words, World& world);

} // namespace replay
