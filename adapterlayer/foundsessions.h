/// The sessions that requests were found to belong to, by identity: the short way for all but the
/// first request of one.
///
/// A table of its own beside the registry's map and lists, which decide which chain serves an
/// identity and in which order chains are walked. It only remembers the answer.
#pragma once

#include "adapterlayer/oemlayer_host.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <unordered_map>

namespace OemLayer {

/// An identity in words, which stand for the whole name where it is not longer than two of them.
/// Refers to the identity that it was made from.
class IdentityKey {
  public:
    explicit IdentityKey(const OfflineSessionIdentitys& identity)
        : mpOutStream(identity.pOutStream), mpName(&identity.featureName),
          mNameSize(static_cast<uint32_t>(std::min<size_t>(mpName->size(), UINT32_MAX))),
          mCameraId(identity.cameraId) {
        const char* name = mpName->data();
        uint64_t nameTail = 0;
        if (mNameSize >= sizeof(uint64_t)) {
            mNameHead = WordAt<uint64_t>(name);
            nameTail = WordAt<uint64_t>(name + mNameSize - sizeof(uint64_t));
        } else if (mNameSize >= sizeof(uint32_t)) {
            mNameHead = WordAt<uint32_t>(name);
            nameTail = WordAt<uint32_t>(name + mNameSize - sizeof(uint32_t));
        } else {
            for (uint32_t i = 0; i < mNameSize; ++i) {
                mNameHead = mNameHead << 8U | static_cast<unsigned char>(name[i]);
            }
        }
        // Odd numbers without a pattern: what differs anywhere shows in the topmost byte, and a
        // table looks at the lowest bits.
        mHash = __builtin_bswap64(reinterpret_cast<uintptr_t>(mpOutStream) * 0x9E3779B97F4A7C15 +
                                  (mNameHead + mCameraId) * 0xC2B2AE3D27D4EB4F +
                                  nameTail * 0x165667B19E3779F9);
    }

    size_t Hash() const { return mHash; }

    /// The name's tail need not be kept: where all else is equal, what is left of the hash is the
    /// tail times an odd number, which differs for each tail.
    bool operator==(const IdentityKey& other) const {
        return mHash == other.mHash && mpOutStream == other.mpOutStream &&
               mNameHead == other.mNameHead && mNameSize == other.mNameSize &&
               mCameraId == other.mCameraId &&
               (mNameSize <= 2 * sizeof(uint64_t) || *mpName == *other.mpName);
    }

  private:
    template <typename Word> static uint64_t WordAt(const char* text) {
        Word word;
        std::memcpy(&word, text, sizeof(word));
        return word;
    }

    uint64_t mHash;
    const camera3_stream* mpOutStream;
    uint64_t mNameHead = 0;
    const std::string* mpName;
    uint32_t mNameSize;
    uint32_t mCameraId;
};

/// `Info` is the record of a session. Nothing here is owned. For whoever may touch the camera's
/// sessions.
template <typename Info> class FoundSessions {
  public:
    FoundSessions() { mSessions.max_load_factor(kMostPerPlace); }

    /// Walks the identity's place alone, which hardly ever holds another one: a general search of
    /// the table also compares the hashes. \returns null where the identity is not listed.
    __attribute__((always_inline, flatten)) Info* Find(const IdentityKey& key) const {
        const size_t place = mSessions.bucket(key);
        for (auto each = mSessions.begin(place); each != mSessions.end(place); ++each) {
            if (each->first == key) {
                return each->second;
            }
        }
        return nullptr;
    }

    /// Lists the session of an identity that is not listed yet. `chainIdentity` has to stay as it
    /// is for as long.
    void Add(const OfflineSessionIdentitys& chainIdentity, Info* pInfo) {
        mSessions.emplace(chainIdentity, pInfo);
    }

    /// Forgets all sessions, and gives the memory back.
    void Clear() {
        if (!mSessions.empty()) {
            *this = {};
        }
    }

  private:
    struct Hash {
        size_t operator()(const IdentityKey& key) const { return key.Hash(); }
    };

    /// A power of two of places, which it then grows by: the table finds one without a division.
    static constexpr size_t kFirstPlaces = 16;
    /// Few sessions share a place, so that hardly any request has to look further.
    static constexpr float kMostPerPlace = 0.25F;
    std::unordered_map<IdentityKey, Info*, Hash> mSessions{kFirstPlaces};
};

} // namespace OemLayer
