/// What the host holds against the library: the rules for what it receives, one request at a time.
#pragma once

#include "platform/android/camera3.h"
#include "standin/rules.h"

#include <mutex>
#include <string>

namespace host {

/// What a host may expect of the library for one request, and whether the library keeps to it.
/// Violations go to the stand-in's control object. Each member may be called from any thread, and
/// calls nobody but that object.
class RequestWatch {
  public:
    struct Expected {
        uint32_t frameNumber;   ///< Of the real-time frame.
        uint32_t partialNumber; ///< Of results with metadata; those without have 0.
        uint32_t reports = 1;   ///< How often metadata and buffer are reported.
        const camera3_stream* stream;
        buffer_handle_t* buffer;
    };

    /// \param name begins each violation's text, as in "camera 0, request 3".
    explicit RequestWatch(std::string name) : mName(std::move(name)) {}

    /// Before the submission.
    void Expect(const Expected& expected);

    /// The submission returned. What came until then was in time, unless it was refused.
    void OnSubmitted(uint32_t status);

    void OnResult(const camera3_capture_result& result);
    void OnRelease();
    void OnCompletion(uint32_t status);

    /// The camera is destroyed: what still comes is a violation. An accepted request that was not
    /// completed is none here; the caller knows whether it should have been.
    void OnClosed();

  private:
    enum class Phase { UnderWay, Completed, Refused, Closed };

    template <class... Parts>
    bool Check(standin::Rule rule, bool holds, const Parts&... parts) const;
    template <class T>
    void CheckEqual(standin::Rule rule, const char* what, T actual, T expected) const;
    bool MayCome(const char* what, standin::Rule whenCompleted);
    void CheckBuffers(const camera3_capture_result& result);

    const std::string mName;
    std::mutex mMutex; ///< Guards all that follows.
    Expected mExpected{};
    Phase mPhase = Phase::UnderWay;
    uint32_t mStatus = 0; ///< Of the submission.
    uint32_t mCalls = 0;  ///< Results, releases and completions.
    uint32_t mMetadata = 0;
    uint32_t mBuffers = 0;
    uint32_t mReleases = 0;
    bool mEndsInError = false; ///< The last result's first buffer has an error status.
};

} // namespace host
