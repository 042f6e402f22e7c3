/// The rules over what a host receives.
#include "host/watch.h"

#include "standin/control.h"

#include <sstream>

namespace host {

using standin::Rule;

/// If the rule does not hold, the parts become the violation's values. \returns whether it holds.
template <class... Parts>
bool RequestWatch::Check(Rule rule, bool holds, const Parts&... parts) const {
    if (!holds) {
        std::ostringstream text;
        ((text << mName << ": ") << ... << parts);
        StandinControl()->Report(rule, text.str());
    }
    return holds;
}
template <class T>
void RequestWatch::CheckEqual(Rule rule, const char* what, T actual, T expected) const {
    Check(rule, actual == expected, what, " is ", actual, " and must be ", expected);
}

void RequestWatch::Expect(const Expected& expected) {
    const std::lock_guard lock(mMutex);
    mExpected = expected;
}

void RequestWatch::OnSubmitted(uint32_t status) {
    const std::lock_guard lock(mMutex);
    mStatus = status;
    if (status != 0) {
        Check(Rule::Refusal, mCalls == 0, "status ", status, " after ", mCalls, " callbacks");
        mPhase = mPhase == Phase::Closed ? mPhase : Phase::Refused;
    }
}

/// Counts a call, and checks that it may come at all.
bool RequestWatch::MayCome(const char* what, Rule whenCompleted) {
    ++mCalls;
    return Check(Rule::AfterClose, mPhase != Phase::Closed, what) &&
           Check(Rule::Refusal, mPhase != Phase::Refused, what, " after status ", mStatus) &&
           Check(whenCompleted, mPhase != Phase::Completed, what, " after the completion");
}

void RequestWatch::OnResult(const camera3_capture_result& result) {
    const std::lock_guard lock(mMutex);
    if (!MayCome("a result", Rule::LateResult)) {
        return;
    }
    const bool hasMetadata = result.result != nullptr;
    CheckEqual(Rule::ResultFrame, "the frame number", result.frame_number, mExpected.frameNumber);
    CheckEqual(Rule::ResultPartial, "the partial number", result.partial_result,
               hasMetadata ? mExpected.partialNumber : 0);
    CheckBuffers(result);
    mMetadata += hasMetadata ? 1 : 0;
}

void RequestWatch::CheckBuffers(const camera3_capture_result& result) {
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

void RequestWatch::OnRelease() {
    const std::lock_guard lock(mMutex);
    if (MayCome("a release", Rule::Release)) {
        CheckEqual(Rule::Release, "the number of releases", ++mReleases, 1U);
    }
}

void RequestWatch::OnCompletion(uint32_t status) {
    const std::lock_guard lock(mMutex);
    if (!MayCome("a completion", Rule::Completion)) {
        return;
    }
    mPhase = Phase::Completed;
    Check(Rule::Release, mReleases != 0, "a completion without a release");
    Check(Rule::Reports, mMetadata == mExpected.reports && mBuffers == mExpected.reports, mMetadata,
          " metadata and ", mBuffers, " buffers, and must be ", mExpected.reports, " of each");
    CheckEqual(Rule::CompletionStatus, "the status", status, mEndsInError ? 1U : 0U);
}

void RequestWatch::OnClosed() {
    const std::lock_guard lock(mMutex);
    mPhase = Phase::Closed;
}

} // namespace host
