/// What happened, as a recording's events tell it: requests, sessions, threads, and what is still
/// open at the end.
#pragma once

#include "view/serials.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace view {

using Moment = uint64_t; ///< In nanoseconds of CLOCK_MONOTONIC.

/// A request of the host's; where the host's side is not recorded, one of the adapter's.
struct Request {
    uint32_t serial = 0;  ///< From 1 on; of the request's record.
    uint64_t address = 0; ///< Of that record.
    std::optional<uint32_t> camera;
    uint32_t frame = 0; ///< Of the real-time frame, or the vendor's own.
    std::string feature;
    uint32_t sets = 0;    ///< Of inputs.
    uint32_t session = 0; ///< Its serial; 0 where it got to none.
    uint32_t thread = 0;  ///< The serial of the one that submitted it.
    std::optional<Moment> submitted, returned, metadata, buffer, released, completed;
    std::optional<uint32_t> status;     ///< Of the submission, once it returned.
    std::optional<uint32_t> completion; ///< Its status.
    std::optional<Moment> lost; ///< When its sessions were closed, or its camera was, before.
};

/// A session, or an attempt to open one.
struct Session {
    uint32_t serial = 0; ///< From 1 on; 0 where the vendor gave none.
    std::string name;    ///< As the vendor was told.
    std::string feature; ///< Of the request that opened it, and its camera.
    std::optional<uint32_t> camera;
    std::string cameraText;      ///< As the vendor was told at the configuration.
    std::optional<Moment> asked; ///< None, nor when it was opened, where that was before the ring.
    std::optional<Moment> opened, configured, closed;
    uint32_t requests = 0;
};

struct Thread {
    uint32_t kernel = 0;      ///< As the kernel numbers it.
    std::string name;         ///< After what it does, as in "vendor session 2, Night".
    std::vector<size_t> open; ///< Calls that have not returned at the end, from the outermost.
};

/// What an event is about, as far as that is known. Serials; 0 where there is none.
struct Subject {
    std::optional<uint32_t> camera;
    uint32_t session = 0;
    uint32_t request = 0;
};

class Story {
  public:
    /// \param serials and their events must outlive this.
    explicit Story(const Serials& serials);

    const view::Serials& Serials() const { return mSerials; }
    const std::vector<contract::Event>& Events() const { return mSerials.Events(); }

    /// In the order of their submissions.
    const std::vector<Request>& Requests() const { return mRequests; }
    /// With the attempts that failed, in their order.
    const std::vector<Session>& Sessions() const { return mSessions; }
    /// By their serials, less 1.
    const std::vector<Thread>& Threads() const { return mThreads; }
    /// Of an event by its index.
    const Subject& SubjectOf(size_t event) const { return mSubjects[event]; }
    /// Whether the events end while calls are open: the process died, or had not ended yet.
    bool IsOpen() const;

  private:
    friend class Teller;

    const view::Serials& mSerials;
    std::vector<Request> mRequests;
    std::vector<Session> mSessions;
    std::vector<Thread> mThreads;
    std::vector<Subject> mSubjects;
};

} // namespace view
