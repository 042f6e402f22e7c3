/// The sessions that requests were found to belong to, by identity: the short way for all but the
/// first request of one.
///
/// A table of its own beside the registry's map and lists, which decide which chain serves an
/// identity and in which order chains are walked. It only remembers the answer.
#pragma once

#include "adapterlayer/oemlayer_host.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <unordered_map>

namespace OemLayer {

/// `Info` is the record of a session. Nothing here is owned. For whoever may touch the camera's
/// sessions.
template <typename Info> class FoundSessions {
  public:
    struct Session {
        uint64_t handle;
        Info* pInfo;
    };

    /// \returns null where the identity is not listed.
    const Session* Find(const OfflineSessionIdentitys& identity) const {
        const auto found = mSessions.find(Key(identity));
        return found != mSessions.end() ? &found->second : nullptr;
    }

    /// Lists a session that is not listed yet. `chainIdentity` has to stay as it is for as long.
    void Add(const OfflineSessionIdentitys& chainIdentity, const Session& session) {
        mSessions.emplace(Key(chainIdentity), session);
    }

    /// Forgets all sessions.
    void Clear() { mSessions.clear(); }

  private:
    /// An identity in words, which hold the whole name where it is not longer than two of them.
    struct Key {
        explicit Key(const OfflineSessionIdentitys& identity)
            : pOutStream(identity.pOutStream), pName(&identity.featureName),
              nameSize(static_cast<uint32_t>(pName->size())), cameraId(identity.cameraId) {
            const char* name = pName->data();
            if (nameSize >= sizeof(uint64_t)) {
                nameHead = WordAt<uint64_t>(name);
                nameTail = WordAt<uint64_t>(name + nameSize - sizeof(uint64_t));
            } else if (nameSize >= sizeof(uint32_t)) {
                nameHead = WordAt<uint32_t>(name);
                nameTail = WordAt<uint32_t>(name + nameSize - sizeof(uint32_t));
            } else {
                for (uint32_t i = 0; i < nameSize; ++i) {
                    nameHead = nameHead << 8U | static_cast<unsigned char>(name[i]);
                }
            }
        }

        bool operator==(const Key& other) const {
            return pOutStream == other.pOutStream && nameHead == other.nameHead &&
                   nameTail == other.nameTail && nameSize == other.nameSize &&
                   cameraId == other.cameraId &&
                   (nameSize <= sizeof(nameHead) + sizeof(nameTail) || *pName == *other.pName);
        }

        const camera3_stream* pOutStream;
        const std::string* pName;
        uint64_t nameHead = 0;
        uint64_t nameTail = 0;
        uint32_t nameSize;
        uint32_t cameraId;
    };

    struct Hash {
        size_t operator()(const Key& key) const {
            // Odd numbers without a pattern: what differs anywhere shows in the upper half, and the
            // table looks at the lowest bits.
            const uint64_t sum = reinterpret_cast<uintptr_t>(key.pOutStream) * 0x9E3779B97F4A7C15 +
                                 (key.nameHead + key.cameraId) * 0xC2B2AE3D27D4EB4F +
                                 key.nameTail * 0x165667B19E3779F9;
            return sum >> 32U;
        }
    };

    template <typename Word> static uint64_t WordAt(const char* text) {
        Word word;
        std::memcpy(&word, text, sizeof(word));
        return word;
    }

    /// A power of two of places, which it then grows by: the table finds one without a division.
    static constexpr size_t kFirstPlaces = 16;
    std::unordered_map<Key, Session, Hash> mSessions{kFirstPlaces};
};

} // namespace OemLayer
