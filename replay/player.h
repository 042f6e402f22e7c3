/// Plays a recording: makes the calls that host and vendor made into the adapter, on as many
/// threads, and answers what the adapter calls, as it was answered then.
#pragma once

#include "replay/turns.h"
#include "replay/world.h"
#include "standin/control.h"

#include <atomic>
#include <string>

namespace replay {

class Track;

/// One for a process: it sets the stand-in up, and answers for it from then on.
class Player final : public standin::Answerer {
  public:
    /// \param isPaced what happened later does so here, too, after as much time.
    Player(const std::vector<Event>& events, bool isPaced);
    ~Player() override;

    /// From the adapter's load to the last event. For the main thread.
    /// \param patience how long nothing at all may happen.
    /// \returns what the threads that do not come back are doing; empty where all did.
    std::string Play(const kit::Adapter& adapter, std::chrono::milliseconds patience);

    /// Calls that could not be made, in a line each.
    std::vector<std::string> Omitted();

    std::optional<uint64_t> Answer(standin::Entry entry, std::span<const uint64_t> words) override;

  private:
    friend class Track;

    void SetUpDevice();
    void MakeTables(const kit::Adapter& adapter);
    /// For a call that is not among those that the adapter made at this place.
    std::optional<uint64_t> AnswerOther(Entry entry, std::span<const uint64_t> words,
                                        const Call* outer);
    uint64_t OpenOther(const Kept& kept, std::span<const uint64_t> words, const Call* outer);
    void Omit(const Call& call);

    const bool mIsLate; ///< The recording's beginning is lost.
    const Calls mCalls;
    World mWorld;
    Turns mTurns;
    std::vector<std::string> mFeatureTexts; ///< What the device's configuration store refers to.
    std::vector<uint32_t> mUnmade;          ///< Cameras that the recording does not make.
    std::vector<std::unique_ptr<Track>> mTracks;
    std::mutex mMutex; ///< Guards what follows.
    std::vector<std::string> mOmitted;
};

} // namespace replay
