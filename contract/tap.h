/// Where events are written: a ring of memory, in a file or in the process alone.
///
/// The two layers of a process write into one file: the second to come finds that the file is that
/// of its own process, and joins. Events of all threads are written one at a time, in the order of
/// their numbers; a lock in the file keeps them apart. Memory of a file outlives the process
/// however it ends.
#pragma once

#include "contract/capture.h"
#include "contract/format.h"

#include <memory>
#include <string>
#include <type_traits>

namespace contract {

// Programs with RTTI derive from it, and tap.cpp has none: its table is each source's own.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wweak-vtables"
/// Sees all events in their order: those of its own tap when they are written, on the thread that
/// wrote them, and behind them those that the file's other writers wrote since the last one. What
/// a ring has lost by then is a gap in the numbers.
struct Follower {
    virtual ~Follower() = default;
    /// \param event its memory is valid during the call.
    /// \param isOwn whether the follower's own tap wrote it.
    virtual void Take(const Event& event, bool isOwn) = 0;
};
#pragma clang diagnostic pop

/// Any thread may call its members. After the opening, nothing is allocated.
class Tap {
  public:
    struct Settings {
        std::string file; ///< Empty for memory of the process.
        uint64_t bytes = 0;
        bool wholePixels = false;
        Follower* follower = nullptr; ///< Or null. It must outlive the tap.
    };
    /// \returns null, and what is wrong, where the file cannot be made.
    static std::unique_ptr<Tap> Open(const Settings& settings, std::string& problem);
    ~Tap();
    Tap(const Tap&) = delete;
    Tap& operator=(const Tap&) = delete;

    /// Writes the call, calls `act`, and writes its return. \returns what `act` does.
    template <Entry E, class Act, class... Args>
    std::invoke_result_t<Act> Around(Act act, Args... args) {
        const Before<E> before(mImages, args...);
        if constexpr (E == Entry::ExecuteRequest) {
            WritePixels(before);
        }
        const uint64_t call = WriteCall<E>(before, args...);
        ForgetImages<E>(args...);
        if constexpr (std::is_void_v<std::invoke_result_t<Act>>) {
            act();
            WriteReturn<E>(call, before, args...);
        } else {
            const auto result = act();
            LearnImages<E>(result, args...);
            WriteReturn<E>(call, before, args..., result);
            return result;
        }
    }

    /// Writes an event alone. \returns its number.
    template <Entry E, class... Args> uint64_t Call(Args... args) {
        return WriteCall<E>(Before<E>(mImages, args...), args...);
    }

  private:
    Tap() = default;

    template <Entry E, class... Args> uint64_t WriteCall(const Before<E>& before, Args... args) {
        return Write(E, Phase::Call, 0, [&](Writer& writer) {
            (writer.Add(WordOf(args)), ...);
            if constexpr (std::is_empty_v<Before<E>>) {
                Capture<E>::Call(writer, args...);
            } else {
                Capture<E>::Call(writer, args..., before);
            }
        });
    }

    template <Entry E, class... Args>
    void WriteReturn(uint64_t call, const Before<E>& before, Args... args) {
        Write(E, Phase::Return, call, [&](Writer& writer) {
            (writer.Add(WordOf(args)), ...);
            if constexpr (std::is_empty_v<Before<E>>) {
                Capture<E>::Return(writer, args...);
            } else {
                Capture<E>::Return(writer, args..., before);
            }
        });
    }

    /// What a call gives back may be gone before it returns.
    template <Entry E, class First, class... Rest> void ForgetImages(First first, Rest...) {
        if constexpr (E == Entry::BufferOpsClose) {
            mImages.RemoveTable(first);
        } else if constexpr (E == Entry::BufferManagerDestroy) {
            mImages.RemoveManager(first);
        } else if constexpr (E == Entry::ReleaseImageBuffer) {
            mImages.RemoveImage(first);
        }
    }
    template <Entry E> void ForgetImages() {}

    /// Where nothing is kept, nobody reads what images hold.
    template <Entry E, class Result, class... Args> void LearnImages(Result result, Args... args) {
        if (!mHasFile) {
            return;
        }
        if constexpr (E == Entry::BufferManagerCreate) {
            const auto add = [&](auto* table, const char*, auto* data) {
                mImages.AddManager(table, result, data);
            };
            add(args...);
        } else if constexpr (E == Entry::GetImageBuffer) {
            mImages.AddImage(result, args...);
        } else if constexpr (E == Entry::GetCPUAddress) {
            mImages.SetAddress(args..., result);
        }
    }

    /// An event for each piece of each input, where whole images are wanted.
    void WritePixels(const Before<Entry::ExecuteRequest>& before);

    /// An event is filled in place, and once more at the start of the next block where this one
    /// has no room for it.
    template <class Fill> uint64_t Write(Entry entry, Phase phase, uint64_t call, Fill fill) {
        const uint32_t thread = OwnThread();
        Lock();
        for (;;) {
            Writer writer(mPlace, mRoom);
            fill(writer);
            if (!writer.IsFull() || IsAtStart()) {
                const uint64_t number = Commit(writer, entry, phase, call, thread);
                Unlock();
                return number;
            }
            BeginBlock();
        }
    }

    int OpenFile(const Settings& settings, FileHeader& header, bool& joins);
    bool Map(const Settings& settings, std::string& problem);
    void Start(const FileHeader& header);
    void Lock();
    void Unlock();
    bool IsAtStart() const;
    void BeginBlock();
    void FindPlace();
    std::byte* BlockAt(uint64_t number) const;
    void ShowFollower(uint64_t own);
    uint64_t Commit(Writer& writer, Entry entry, Phase phase, uint64_t call, uint32_t thread);
    uint32_t OwnThread() const;

    std::byte* mMemory = nullptr; ///< The page and the blocks.
    size_t mBytes = 0;
    LivePart* mShared = nullptr;
    Follower* mFollower = nullptr;
    uint64_t mNextToShow = 1;  ///< The number of an event. The follower has seen those before;
    uint64_t mBlockToShow = 0; ///< it is in this block
    uint64_t mOffsetToShow = sizeof(BlockHeader); ///< at this place, or begins the next one.
    Images mImages;
    bool mHasFile = false;
    bool mWholePixels = false;
    unsigned int mThreadKey = 0;
    std::byte* mPlace = nullptr; ///< Of the next event, while the lock is held.
    size_t mRoom = 0;
};

/// `Tap::Around` where there is a tap; else just acts.
template <Entry E, class Act, class... Args> auto Around(Tap* tap, Act act, Args... args) {
    return tap == nullptr ? act() : tap->template Around<E>(act, args...);
}

} // namespace contract
