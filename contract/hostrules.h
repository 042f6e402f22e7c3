/// The rules H: what a host receives, one request at a time.
#pragma once

#include "contract/checks.h"

#include <set>
#include <unordered_map>

namespace contract {

/// Follows the requests of a host, each by the address of its record, from its submission to its
/// end.
class HostRules {
  public:
    explicit HostRules(Checks& checks) : mChecks(checks) {}

    /// A request of the host's, as one that works on it for the vendor names it; 0 for none.
    struct Reference {
        uint64_t record = 0;
        uint64_t serial = 0;
    };
    Reference Submit(const Event& event);
    void OnSubmitted(const Event& event, Reference request);
    void OnResult(const Event& event);
    void OnRelease(const Event& event);
    void OnCompletion(const Event& event);
    void OnLent(const Event& event);
    /// The next checks are of this request, if it is under way or remembered.
    void Name(Reference request);
    /// A result of the vendor's: how often the adapter is to report what, and whether its first
    /// buffer has an error status.
    void OnBrought(Reference request, uint32_t metadata, uint32_t buffers, bool hasError);

    void OnCreated(uint32_t camera) { mCameras.insert(camera); }
    /// The camera's requests are over.
    void OnFlushed(uint32_t camera);
    /// \returns whether no camera is left.
    bool OnDestroyed(uint32_t camera);

  private:
    enum class Phase : uint8_t { UnderWay, Completed, Refused, Closed };
    struct Request {
        uint64_t serial = 0;
        uint32_t camera = 0;
        uint32_t frame = 0;   ///< Of the real-time frame.
        uint32_t partial = 0; ///< Of results with metadata; those without have 0.
        bool isKnown = false; ///< The three above, and what is below.
        Lent output;
        uint64_t stream = 0;     ///< That the session produces for.
        std::optional<Lent> got; ///< A lent buffer that was reported.
        Phase phase = Phase::UnderWay;
        uint32_t status = 0; ///< Of the submission.
        uint32_t calls = 0;  ///< Results, releases and completions.
        uint32_t metadata = 0, buffers = 0, releases = 0;
        /// The last result's first buffer has an error status; of one that is not followed, any.
        bool endsInError = false;
        bool isFollowed = false; ///< The vendor's results are seen, and brought so much:
        uint32_t metadataBrought = 0, buffersBrought = 0;
    };
    /// Which entries a host's tables lack: what is not called cannot be counted.
    struct Lacks {
        bool release = false, result = false;
    };

    Request* Find(Reference request);
    Request* Receive(const Event& event, const char* what, Rule whenCompleted);
    void CheckBuffers(const Event& event, Request& request, const camera3_capture_result& result);
    void CheckReports(const Request& request) const;
    void CheckStatus(const Request& request, uint32_t status) const;
    void Name(const Request& request);
    void Begin(const Request& request);
    void End(uint64_t record, Request& request, Phase phase);

    Checks& mChecks;
    uint64_t mLastSerial = 0;
    std::unordered_map<uint64_t, Request> mRequests;  ///< By their records' addresses.
    std::deque<std::pair<uint64_t, uint64_t>> mEnded; ///< Records and serials, oldest first.
    LentBuffers mLent;                                ///< And not reported to the end yet.
    std::unordered_map<uint32_t, Lacks> mLacks;       ///< By camera.
    std::set<uint32_t> mCameras;
};

} // namespace contract
