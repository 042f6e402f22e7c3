/// Threads, and which recorded call it is that the adapter makes.
#include "replay/player.h"

#include "standin/state.h"

#include <algorithm>
#include <cstdio>
#include <set>
#include <thread>

namespace replay {
namespace {

using contract::Kind;
using contract::Object;
using contract::Side;

thread_local Track* t_track = nullptr;

/// Of the vendor's interface.
uint64_t FailureOf(Entry entry) {
    const auto offset = static_cast<uint32_t>(entry) - static_cast<uint32_t>(Entry::OpenContext);
    return standin::FailureOf(
        static_cast<standin::Entry>(static_cast<uint32_t>(standin::Entry::OpenContext) + offset));
}

std::string NameOf(const Call& call) {
    return std::string(call.call.Text().name) + ", event " + std::to_string(call.Number());
}

/// Whether a call of the vendor's entries is for the same objects as a recorded one.
bool IsForSame(const Call& call, std::span<const uint64_t> words) {
    if (call.call.Text().side == Side::Host) {
        return true;
    }
    const auto fields = call.call.Text().arguments;
    for (size_t i = 0; i < std::min(fields.size(), words.size()); ++i) {
        const bool isHandle = fields[i].kind == Kind::Object &&
                              fields[i].object >= Object::Session &&
                              fields[i].object <= Object::Image;
        if (isHandle && words[i] != call.Word(i)) {
            return false;
        }
    }
    return true;
}

} // namespace

// --- One thread ---------------------------------------------------------------------------------

class Track {
  public:
    Track(Player& player, const Lane& lane) : mPlayer(player), mLane(lane) {}

    void Run() {
        t_track = this;
        for (const Call* call : mLane.calls) {
            Play(*call);
        }
        t_track = nullptr;
        mPlayer.mTurns.Leave();
    }

    /// The adapter calls. \returns no value where the stand-in is to do it itself.
    std::optional<uint64_t> Arrive(Entry entry, std::span<const uint64_t> words) {
        const Call* const call = Match(entry, words);
        if (call == nullptr) {
            return mPlayer.AnswerOther(entry, words,
                                       mFrames.empty() ? nullptr : mFrames.back().call);
        }
        const Call* const outer = mAt.exchange(call);
        Learn(*call, words, mPlayer.mWorld); // First: others may wait for it.
        mPlayer.mTurns.End(call->call);
        for (const Call* inner : call->inner) {
            Play(*inner);
        }
        std::optional<uint64_t> answer;
        if (call->end.has_value()) {
            mPlayer.mTurns.Begin(*call->end);
            answer = replay::Answer(*call, words, mPlayer.mWorld);
        } else {
            answer = mPlayer.AnswerOther(entry, words, mFrames.back().call);
        }
        mAt = outer;
        return answer;
    }

    /// What the thread is in, empty for nothing.
    std::string Describe() const {
        const Call* const at = mAt;
        return at == nullptr ? ""
                             : "thread " + std::to_string(mLane.thread) + " is in " + NameOf(*at);
    }

  private:
    /// A call into the adapter that is under way.
    struct Frame {
        const Call* call;
        std::vector<bool> isMade; ///< Of the calls that the adapter made meanwhile.
    };

    void Play(const Call& call) {
        const Call* const needed = call.execution == nullptr ? call.opening : call.execution;
        mPlayer.mTurns.Begin(call.call, needed == nullptr ? nullptr : &needed->call);
        const Call* const outer = mAt.exchange(&call);
        mFrames.push_back({&call, std::vector<bool>(call.inner.size())});
        if (!Make(call, mPlayer.mWorld)) {
            mPlayer.Omit(call);
        }
        mFrames.pop_back();
        mAt = outer;
        mPlayer.mTurns.Skip(call);
    }

    /// The next recorded call of this entry: the first that is for the same objects, if there is
    /// one.
    const Call* Match(Entry entry, std::span<const uint64_t> words) {
        if (mFrames.empty()) {
            return nullptr;
        }
        Frame& frame = mFrames.back();
        const auto& inner = frame.call->inner;
        size_t best = inner.size();
        for (size_t i = 0; i < inner.size(); ++i) {
            if (frame.isMade[i] || inner[i]->Of() != entry) {
                continue;
            }
            const bool isSame = IsForSame(*inner[i], words);
            if (isSame || best == inner.size()) {
                best = i;
            }
            if (isSame) {
                break;
            }
        }
        if (best == inner.size()) {
            return nullptr;
        }
        for (size_t i = 0; i < best; ++i) {
            if (!frame.isMade[i] && inner[i]->Of() == entry) {
                mPlayer.mTurns.Skip(*inner[i]); // This thread comes to it later: none waits for it.
            }
        }
        frame.isMade[best] = true;
        return inner[best];
    }

    Player& mPlayer;
    const Lane& mLane;
    std::vector<Frame> mFrames;
    std::atomic<const Call*> mAt = nullptr; ///< For who waits for the thread.
};

// --- The host's callbacks -----------------------------------------------------------------------

namespace {

/// The adapter makes no threads, so that each of its callbacks comes on one of a track.
uint64_t OnCallback(Entry entry, std::initializer_list<uint64_t> words) {
    return t_track == nullptr ? 0 : t_track->Arrive(entry, words).value_or(0);
}

constexpr uint32_t kCameras = 16; // The adapter has room for so many, and does not look.

constexpr OemLayer::OffCamApplicationCallbacks kCallbacks{
    [](OemLayer::RequestPrivData* request) {
        OnCallback(Entry::ReleaseRtBuffers, {0, contract::WordOf(request)});
    },
    [](OemLayer::RequestPrivData* request, uint32_t status) {
        OnCallback(Entry::RequestComplete, {0, contract::WordOf(request), status});
    },
    [](OemLayer::RequestPrivData* request, camera3_capture_result* result) {
        OnCallback(Entry::CaptureResult, {0, contract::WordOf(request), contract::WordOf(result)});
    }};

constexpr camera3_callback_ops kFramework{
    .process_capture_result = nullptr,
    .notify = nullptr,
    .request_stream_buffers =
        [](const camera3_callback_ops*, uint32_t count, const camera3_buffer_request* requests,
           uint32_t* returned, camera3_stream_buffer_ret* answers) {
            return static_cast<int32_t>(
                OnCallback(Entry::RequestStreamBuffers,
                           {0, count, contract::WordOf(requests), contract::WordOf(returned),
                            contract::WordOf(answers)}));
        },
    .return_stream_buffers = nullptr};

// --- The device ---------------------------------------------------------------------------------

/// What was null in a recorded operation table is so here.
void SetMissing(const Event& event, contract::Record record, standin::Entry first) {
    const auto table = event.Find(record, event.Result());
    if (table.empty()) {
        return;
    }
    auto entry = static_cast<uint32_t>(first);
    for (const contract::Field& member : contract::TextOf(record).members) {
        if (member.object == Object::Function) {
            uint64_t function = 0;
            std::memcpy(&function, &table[member.offset], sizeof function);
            if (function == 0) {
                StandinControl()->SetMissing(static_cast<standin::Entry>(entry));
            }
            ++entry;
        }
    }
}

/// The operation mode that a submission's session was configured with; no value where it opened
/// none.
std::optional<uint32_t> ModeOf(const Call& submission) {
    for (const Call* inner : submission.inner) {
        const auto* const config = inner->Of() == Entry::ConfigureStreams
                                       ? inner->call.At<ChiOfflineSessionConfigInfo>(inner->Word(1))
                                       : nullptr;
        if (config != nullptr) {
            return config->opMode;
        }
    }
    return std::nullopt;
}

std::string FeatureOf(const Call& submission) {
    constexpr size_t kPlace = offsetof(OemLayer::OfflineDataWraper, identity) +
                              offsetof(OemLayer::OfflineSessionIdentitys, featureName);
    return std::string(submission.call.TextAt(submission.Word(1) + kPlace));
}

/// The adapter's first call of an entry inside of another call; null where there is none.
const Call* FindInner(const Call* outer, Entry entry) {
    for (const Call* inner : outer == nullptr ? std::vector<Call*>() : outer->inner) {
        if (inner->Of() == entry) {
            return inner;
        }
    }
    return nullptr;
}

} // namespace

// --- All threads --------------------------------------------------------------------------------

Player::Player(const std::vector<Event>& events, bool isPaced)
    : mIsLate(LacksBeginning(events)),
      mCalls(events), mWorld{{mCalls.All(), kCallbacks, kFramework}, {}, {}, {}},
      mTurns(events, isPaced) {
    for (const Lane& lane : mCalls.Lanes()) {
        if (!lane.calls.empty()) {
            mTracks.push_back(std::make_unique<Track>(*this, lane));
        }
        for (const Call* call : lane.calls) {
            mTurns.Expect(*call);
        }
    }
    SetUpDevice();
}

Player::~Player() { StandinControl()->SetAnswerer(nullptr); }

/// Its operation tables lack what the recorded ones lacked, and its features have the modes that
/// sessions were configured with.
void Player::SetUpDevice() {
    std::map<std::string, std::string> modes;
    for (const Call& call : mCalls.All()) {
        if (call.Of() == Entry::SubmitRequestFromRT) {
            if (const auto mode = ModeOf(call)) {
                char text[16];
                (void)snprintf(text, sizeof text, "0x%x", *mode);
                modes[FeatureOf(call)] = text;
            }
        }
        if (!call.end.has_value()) {
            continue;
        }
        if (call.Of() == Entry::OpenContext) {
            SetMissing(*call.end, contract::Record::Interface, standin::Entry::OpenSession);
        } else if (call.Of() == Entry::OpenMetadataOps) {
            SetMissing(*call.end, contract::Record::MetadataOps, standin::Entry::MetadataOpsClose);
        } else if (call.Of() == Entry::OpenBufferOps) {
            SetMissing(*call.end, contract::Record::BufferManagerOps,
                       standin::Entry::BufferOpsClose);
        }
    }
    std::vector<standin::Control::ConfigRow> rows;
    mFeatureTexts.reserve(2 * modes.size());
    for (const auto& [feature, mode] : modes) {
        const auto keep = [this](const std::string& text) {
            return mFeatureTexts.emplace_back(text).c_str();
        };
        rows.push_back({{keep(feature), keep(mode), "0", "0"}});
    }
    StandinControl()->SetConfigRows(rows);
    StandinControl()->SetRecording(false);
    StandinControl()->SetFeed(false); // The layers see all.
    StandinControl()->SetAnswerer(this);
}

/// Of all cameras, and notes those that are used before the recording makes them: what made them
/// has been overwritten, or was left out.
void Player::MakeTables(const kit::Adapter& adapter) {
    std::set<uint32_t> made;
    for (const Call& call : mCalls.All()) {
        if (!call.HasCamera()) {
            continue;
        }
        const auto id = static_cast<uint32_t>(call.Word(0));
        if (id >= kCameras) {
            throw contract::RecordingError(NameOf(call) + ": there is no camera " +
                                           std::to_string(id));
        }
        mWorld.tables.try_emplace(id, adapter.Table(id));
        if (made.insert(id).second && call.Of() != Entry::Create) {
            mUnmade.push_back(id);
        }
    }
    mWorld.tables.try_emplace(0, adapter.Table(0));
    mWorld.load = adapter.LoadFunctions();
    if (mIsLate) {
        (void)mWorld.load.loadLib();
    }
    for (const uint32_t id : mUnmade) {
        PlatFormIntCallbacks& table = mWorld.tables.at(id);
        (void)table.Create(&table, id);
    }
}

std::string Player::Play(const kit::Adapter& adapter, std::chrono::milliseconds patience) {
    MakeTables(adapter);
    std::vector<std::thread> threads;
    for (const auto& track : mTracks) {
        threads.emplace_back(&Track::Run, track.get());
    }
    const bool areDone = mTurns.WaitForAll(mTracks.size(), patience);
    for (std::thread& thread : threads) {
        areDone ? thread.join() : thread.detach();
    }
    std::string stuck;
    for (const auto& track : mTracks) {
        const std::string text = areDone ? "" : track->Describe();
        stuck += (stuck.empty() || text.empty() ? "" : "; ") + text;
    }
    return stuck;
}

void Player::Omit(const Call& call) {
    const std::lock_guard lock(mMutex);
    mOmitted.push_back(NameOf(call) + ": the library has handed over nothing that it could be "
                                      "made with");
}

std::vector<std::string> Player::Omitted() {
    const std::lock_guard lock(mMutex);
    return mOmitted;
}

// --- Answers ------------------------------------------------------------------------------------

std::optional<uint64_t> Player::Answer(standin::Entry entry, std::span<const uint64_t> words) {
    return t_track == nullptr ? AnswerOther(AsEvent(entry), words, nullptr)
                              : t_track->Arrive(AsEvent(entry), words);
}

/// As the same was answered anywhere else. Otherwise what has to bring something fails, and the
/// rest succeeds, such as the end of an object. No object is made twice.
std::optional<uint64_t> Player::AnswerOther(Entry entry, std::span<const uint64_t> words,
                                            const Call* outer) {
    const contract::EntryText& text = contract::TextOf(entry);
    const bool isTable = entry == Entry::OpenContext || entry == Entry::OpenMetadataOps ||
                         entry == Entry::OpenBufferOps || entry == Entry::MetadataOpsClose ||
                         entry == Entry::BufferOpsClose;
    if (isTable) {
        return std::nullopt;
    }
    if (text.side == Side::Host) {
        return entry == Entry::RequestStreamBuffers ? 1 : 0;
    }
    if (const Kept* const kept = FindKept(entry, &Kept::open)) {
        return OpenOther(*kept, words, outer);
    }
    const Call* const execution = FindInner(outer, Entry::ExecuteRequest);
    if (entry == Entry::ConfigureStreams && execution != nullptr) {
        ConfigureFor(*execution, words[1], mWorld);
        return 0;
    }
    if (text.result != nullptr && !text.result->isBorn) {
        for (const Call& call : mCalls.All()) {
            if (call.Of() == entry && call.end.has_value() && IsForSame(call, words)) {
                return replay::Answer(call, words, mWorld);
            }
        }
    }
    const bool brings = entry == Entry::ExecuteRequest || entry == Entry::MetadataGetTag ||
                        entry == Entry::TranslateToChiBuffer ||
                        entry == Entry::TranslateFromChiBuffer ||
                        (text.result != nullptr && text.result->kind == Kind::Object);
    return brings ? FailureOf(entry) : 0;
}

/// The handle that the recorded call uses: it was opened before the ring's beginning.
uint64_t Player::OpenOther(const Kept& kept, std::span<const uint64_t> words, const Call* outer) {
    const Call* const user = FindInner(outer, kept.use);
    if (user == nullptr) {
        return 0;
    }
    const uint64_t handle = user->Word(0);
    if (kept.open == Entry::OpenSession) {
        const auto* const info = standin::As<const ChiOfflineSessionCreateInfo*>(words[1]);
        mWorld.vendor.OnOpenSession(nullptr, handle, info == nullptr ? nullptr : info->pCallbacks);
    } else if (words[2] != 0) {
        mWorld.vendor.OnManager(handle, *standin::As<const ChiBufferManagerCreateData*>(words[2]));
    }
    return handle;
}

} // namespace replay
