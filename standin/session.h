/// An open session of the offline interface and the delivery of its results.
#pragma once

#include "standin/state.h"

#include <atomic>
#include <deque>

namespace standin {

/// Members are guarded by the state's mutex unless they say otherwise.
struct Session : std::enable_shared_from_this<Session> {
    static constexpr char kMark = 'S';

    SessionCopy data{}; ///< The callbacks never change; the streams only in the configure call.
    const char* pName = nullptr; ///< Handed over at opening, readable until the session is closed.

    /// Ends the session's thread after the delivery that it is in, and drops what is queued or
    /// waits.
    void Stop();

    /// Hands a request to whom the script wants it delivered by.
    void Accept(const std::shared_ptr<const Execution>& execution);

    /// Delivers all results of a request on the calling thread. Touches nothing of the adapter's
    /// after the last one.
    void Deliver(Job& job);

    /// Delivers the next result of a request, likewise. \returns whether it was the last one.
    bool DeliverNext(Job& job);

    /// The configured record of a stream, null if the stream is not in the list.
    const ChiStream* FindStream(const ChiStream* stream) const;

    /// The stream that the output goes to; null if the session has no list.
    ChiStream* OutputStream() const;

  private:
    void Run();
    Job TakeNext();
    void Prepare(Job& job);
    void AskFramework(ChiStreamBuffer& output) const;

    std::deque<Job> mQueue;
    std::condition_variable mWake;
    bool mClosing = false;
    std::atomic<bool> mNotified = false; ///< Not guarded.
    std::thread mThread;                 ///< Started by the first request that it delivers.
};

} // namespace standin
