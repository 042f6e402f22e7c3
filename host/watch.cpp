/// The rules over what a host receives.
#include "host/watch.h"

#include "standin/control.h"

#include <sstream>
#include <vector>

namespace host {

using standin::Rule;

/// One call's access to the watch. What it finds is reported when it is over and the mutex free.
class RequestWatch::Turn {
  public:
    explicit Turn(RequestWatch& watch) : mName(watch.mName), mLock(watch.mMutex) {}
    ~Turn() {
        mLock.unlock();
        for (const auto& [rule, text] : mFound) {
            StandinControl()->Report(rule, mName + ": " + text);
        }
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    /// If the rule does not hold, the parts become the violation's values. \returns whether it
    /// holds.
    template <class... Parts> bool Check(Rule rule, bool holds, const Parts&... parts) {
        if (!holds) {
            std::ostringstream text;
            (text << ... << parts);
            mFound.emplace_back(rule, text.str());
        }
        return holds;
    }
    template <class T> void Expect(Rule rule, const char* what, T actual, T expected) {
        Check(rule, actual == expected, what, " is ", actual, " and must be ", expected);
    }

  private:
    const std::string mName;
    std::unique_lock<std::mutex> mLock;
    std::vector<std::pair<Rule, std::string>> mFound;
};

void RequestWatch::Expect(const Expected& expected) {
    const Turn turn(*this);
    mExpected = expected;
}

void RequestWatch::OnSubmitted(uint32_t status) {
    Turn turn(*this);
    mStatus = status;
    if (status != 0) {
        turn.Check(Rule::Refusal, mCalls == 0, "status ", status, " after ", mCalls, " callbacks");
        mPhase = mPhase == Phase::Closed ? mPhase : Phase::Refused;
    }
}

/// Counts a call, and checks that it may come at all.
bool RequestWatch::MayCome(Turn& turn, const char* what, Rule whenCompleted) {
    ++mCalls;
    return turn.Check(Rule::AfterClose, mPhase != Phase::Closed, what) &&
           turn.Check(Rule::Refusal, mPhase != Phase::Refused, what, " after status ", mStatus) &&
           turn.Check(whenCompleted, mPhase != Phase::Completed, what, " after the completion");
}

void RequestWatch::OnResult(const camera3_capture_result& result) {
    Turn turn(*this);
    if (!MayCome(turn, "a result", Rule::LateResult)) {
        return;
    }
    const bool hasMetadata = result.result != nullptr;
    turn.Expect(Rule::ResultFrame, "the frame number", result.frame_number, mExpected.frameNumber);
    turn.Expect(Rule::ResultPartial, "the partial number", result.partial_result,
                hasMetadata ? mExpected.partialNumber : 0);
    CheckBuffers(turn, result);
    mMetadata += hasMetadata ? 1 : 0;
}

void RequestWatch::CheckBuffers(Turn& turn, const camera3_capture_result& result) {
    const uint32_t count = result.num_output_buffers;
    const camera3_stream_buffer* const buffers = result.output_buffers;
    turn.Check(Rule::ResultContent,
               count == 0 ? result.result != nullptr : count == 1 && buffers != nullptr,
               "metadata ", result.result, " and ", count, " buffers at ", buffers);
    const uint32_t readable = buffers == nullptr ? 0 : count;
    for (uint32_t i = 0; i < readable; ++i) {
        turn.Check(Rule::ResultBuffer,
                   buffers[i].stream == mExpected.stream && buffers[i].buffer == mExpected.buffer,
                   "stream ", buffers[i].stream, " and buffer ", buffers[i].buffer, " must be ",
                   mExpected.stream, " and ", mExpected.buffer);
    }
    mBuffers += readable;
    mEndsInError = readable > 0 && buffers[0].status != CAMERA3_BUFFER_STATUS_OK;
}

void RequestWatch::OnRelease() {
    Turn turn(*this);
    if (MayCome(turn, "a release", Rule::Release)) {
        turn.Expect(Rule::Release, "the number of releases", ++mReleases, 1U);
    }
}

void RequestWatch::OnCompletion(uint32_t status) {
    Turn turn(*this);
    if (!MayCome(turn, "a completion", Rule::Completion)) {
        return;
    }
    mPhase = Phase::Completed;
    turn.Check(Rule::Release, mReleases != 0, "a completion without a release");
    turn.Check(Rule::Reports, mMetadata == mExpected.reports && mBuffers == mExpected.reports,
               mMetadata, " metadata and ", mBuffers, " buffers, and must be ", mExpected.reports,
               " of each");
    turn.Expect(Rule::CompletionStatus, "the status", status, mEndsInError ? 1U : 0U);
}

void RequestWatch::OnClosed() {
    const Turn turn(*this);
    mPhase = Phase::Closed;
}

} // namespace host
