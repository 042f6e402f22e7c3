/// What the host holds against the library: the rules for what it receives, one request at a time.
#pragma once

#include "platform/android/camera3.h"
#include "standin/control.h"

#include <mutex>
#include <sstream>
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
    void Expect(const Expected& expected) {
        const std::lock_guard lock(mMutex);
        mExpected = expected;
    }

    /// The submission returned. What came until then was in time, unless it was refused.
    void OnSubmitted(uint32_t status) {
        const std::lock_guard lock(mMutex);
        mStatus = status;
        if (status != 0) {
            Check(Rule::Refusal, mCalls == 0, "status ", status, " after ", mCalls, " callbacks");
            mPhase = mPhase == Phase::Closed ? mPhase : Phase::Refused;
        }
    }

    void OnResult(const camera3_capture_result& result) {
        const std::lock_guard lock(mMutex);
        if (!MayCome("a result", Rule::LateResult)) {
            return;
        }
        const bool hasMetadata = result.result != nullptr;
        CheckEqual(Rule::ResultFrame, "the frame number", result.frame_number,
                   mExpected.frameNumber);
        CheckEqual(Rule::ResultPartial, "the partial number", result.partial_result,
                   hasMetadata ? mExpected.partialNumber : 0);
        CheckBuffers(result);
        mMetadata += hasMetadata ? 1 : 0;
    }

    void OnRelease() {
        const std::lock_guard lock(mMutex);
        if (MayCome("a release", Rule::Release)) {
            CheckEqual(Rule::Release, "the number of releases", ++mReleases, 1U);
        }
    }

    void OnCompletion(uint32_t status) {
        const std::lock_guard lock(mMutex);
        if (!MayCome("a completion", Rule::Completion)) {
            return;
        }
        mPhase = Phase::Completed;
        Check(Rule::Release, mReleases != 0, "a completion without a release");
        Check(Rule::Reports, mMetadata == mExpected.reports && mBuffers == mExpected.reports,
              mMetadata, " metadata and ", mBuffers, " buffers, and must be ", mExpected.reports,
              " of each");
        CheckEqual(Rule::CompletionStatus, "the status", status, mEndsInError ? 1U : 0U);
    }

    /// The camera is destroyed: what still comes is a violation. An accepted request that was not
    /// completed is none here; the caller knows whether it should have been.
    void OnClosed() {
        const std::lock_guard lock(mMutex);
        mPhase = Phase::Closed;
    }

  private:
    using Rule = standin::Rule;
    enum class Phase { UnderWay, Completed, Refused, Closed };

    /// If the rule does not hold, the parts become the violation's values. \returns whether it
    /// holds.
    template <class... Parts> bool Check(Rule rule, bool holds, const Parts&... parts) const {
        if (!holds) {
            std::ostringstream text;
            ((text << mName << ": ") << ... << parts);
            StandinControl()->Report(rule, text.str());
        }
        return holds;
    }
    template <class T> void CheckEqual(Rule rule, const char* what, T actual, T expected) const {
        Check(rule, actual == expected, what, " is ", actual, " and must be ", expected);
    }

    /// Counts a call, and checks that it may come at all.
    bool MayCome(const char* what, Rule whenCompleted) {
        ++mCalls;
        return Check(Rule::AfterClose, mPhase != Phase::Closed, what) &&
               Check(Rule::Refusal, mPhase != Phase::Refused, what, " after status ", mStatus) &&
               Check(whenCompleted, mPhase != Phase::Completed, what, " after the completion");
    }

    void CheckBuffers(const camera3_capture_result& result) {
        const uint32_t count = result.num_output_buffers;
        const camera3_stream_buffer* const buffers = result.output_buffers;
        Check(Rule::ResultContent,
              count == 0 ? result.result != nullptr : count == 1 && buffers != nullptr, "metadata ",
              result.result, " and ", count, " buffers at ", buffers);
        const uint32_t readable = buffers == nullptr ? 0 : count;
        for (uint32_t i = 0; i < readable; ++i) {
            Check(Rule::ResultBuffer,
                  buffers[i].stream == mExpected.stream && buffers[i].buffer == mExpected.buffer,
                  "stream ", buffers[i].stream, " and buffer ", buffers[i].buffer, " must be ",
                  mExpected.stream, " and ", mExpected.buffer);
        }
        mBuffers += readable;
        mEndsInError = readable > 0 && buffers[0].status != CAMERA3_BUFFER_STATUS_OK;
    }

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
