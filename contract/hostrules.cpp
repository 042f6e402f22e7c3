/// What a host receives, held against what it may expect.
#include "contract/hostrules.h"

#include <algorithm>

namespace contract {
namespace {

constexpr uint32_t kMetadataPartial = 255; ///< Above the request's base.

} // namespace

// --- Submissions --------------------------------------------------------------------------------

/// A record's address may be used again when its request is over.
HostRules::Reference HostRules::Submit(const Event& event) {
    const uint64_t record = event.Word(2);
    if (record == 0) {
        return {};
    }
    Request request{.serial = ++mLastSerial, .camera = static_cast<uint32_t>(event.Word(0))};
    const auto* wrapper = event.At<OemLayer::OfflineDataWraper>(event.Word(1));
    const auto* own = event.At<OemLayer::RequestPrivData>(record);
    const auto* output = event.At<camera3_stream_buffer>(event.Word(3));
    if (wrapper != nullptr && own != nullptr && (output != nullptr || event.Word(3) == 0)) {
        request.isKnown = true;
        request.frame = wrapper->rtFrameNumber;
        request.partial = own->partialResultBase + kMetadataPartial;
        request.stream = AddressOf(wrapper->identity.pOutStream);
        request.output = {request.stream, 0}; // Of a request without, one has to be lent.
        if (output != nullptr) {
            request.output = LentOf(*output);
        }
    }
    const auto* table = event.At<OemLayer::OffCamApplicationCallbacks>(event.Word(4));
    Lacks& lacks = mLacks[request.camera];
    lacks.release |= table == nullptr || table->releaseRtBuffers == nullptr;
    lacks.result |= table == nullptr || table->captureResult == nullptr;
    mRequests[record] = request;
    return {record, request.serial};
}

/// What came until now was in time, unless the submission was refused.
void HostRules::OnSubmitted(const Event& event, Reference reference) {
    const auto status = static_cast<uint32_t>(event.Result());
    Request* const request = Find(reference);
    if (request == nullptr || status == 0) {
        return;
    }
    Begin(*request);
    request->status = status;
    mChecks.Check(Rule::Refusal, request->calls == 0, "status ", status, " after ", request->calls,
                  " callbacks");
    if (request->phase != Phase::Closed) {
        End(reference.record, *request, Phase::Refused);
    }
}

void HostRules::OnBrought(Reference reference, uint32_t metadata, uint32_t buffers, bool hasError) {
    if (Request* const request = Find(reference)) {
        request->isFollowed = true;
        request->metadataBrought += metadata;
        request->buffersBrought += buffers;
        request->endsInError = hasError;
    }
}

// --- What comes back ----------------------------------------------------------------------------

/// Counts a call, and checks that it may come at all. \returns null where it may not.
HostRules::Request* HostRules::Receive(const Event& event, const char* what, Rule whenCompleted) {
    const uint64_t record = event.Word(1);
    if (record == 0) {
        return nullptr; // Of a request that another session fed.
    }
    const auto found = mRequests.find(record);
    if (found == mRequests.end()) {
        mChecks.Check(whenCompleted, mChecks.isLate, what, " for a request that is none, ",
                      Handle(record));
        return nullptr;
    }
    Request& request = found->second;
    Begin(request);
    ++request.calls;
    const bool may = mChecks.Check(Rule::AfterClose, request.phase != Phase::Closed, what) &&
                     mChecks.Check(Rule::Refusal, request.phase != Phase::Refused, what,
                                   " after status ", request.status) &&
                     mChecks.Check(whenCompleted, request.phase != Phase::Completed, what,
                                   " after the completion");
    return may ? &request : nullptr;
}

void HostRules::OnResult(const Event& event) {
    Request* const request = Receive(event, "a result", Rule::LateResult);
    const auto* result = event.At<camera3_capture_result>(event.Word(2));
    if (request == nullptr || result == nullptr || !request->isKnown) {
        return;
    }
    const bool hasMetadata = result->result != nullptr;
    mChecks.Expect(Rule::ResultFrame, "the frame number", result->frame_number, request->frame);
    mChecks.Expect(Rule::ResultPartial, "the partial number", result->partial_result,
                   hasMetadata ? request->partial : 0);
    CheckBuffers(event, *request, *result);
    request->metadata += hasMetadata ? 1 : 0;
}

void HostRules::CheckBuffers(const Event& event, Request& request,
                             const camera3_capture_result& result) {
    const uint32_t count = result.num_output_buffers;
    mChecks.Check(Rule::ResultContent,
                  count == 0 ? result.result != nullptr
                             : count == 1 && result.output_buffers != nullptr,
                  "metadata ", Handle(result.result), " and ", count, " buffers at ",
                  Handle(result.output_buffers));
    const auto buffers = event.All<camera3_stream_buffer>(result.output_buffers);
    for (const camera3_stream_buffer& buffer : buffers) {
        const Lent seen = LentOf(buffer);
        const bool isLent = seen.first == request.stream && mLent.Has(seen);
        if (seen != request.output && isLent) {
            request.got = seen;
        }
        mChecks.Check(Rule::ResultBuffer, seen == request.output || isLent || mChecks.isLate,
                      "stream ", Got{Handle(seen.first)}, " and buffer ", Got{Handle(seen.second)},
                      " must be ", Must{Handle(request.output.first)}, " and ",
                      Must{Handle(request.output.second)});
    }
    request.buffers += static_cast<uint32_t>(buffers.size());
    if (!request.isFollowed) {
        request.endsInError |=
            std::any_of(buffers.begin(), buffers.end(), [](const camera3_stream_buffer& buffer) {
                return buffer.status != CAMERA3_BUFFER_STATUS_OK;
            });
    }
}

void HostRules::OnRelease(const Event& event) {
    if (Request* const request = Receive(event, "a release", Rule::Release)) {
        mChecks.Expect(Rule::Release, "the number of releases", ++request->releases, 1U);
    }
}

void HostRules::OnCompletion(const Event& event) {
    Request* const request = Receive(event, "a completion", Rule::Completion);
    if (request == nullptr) {
        return;
    }
    const Lacks& lacks = mLacks[request->camera];
    mChecks.Check(Rule::Release, request->releases != 0 || lacks.release,
                  "a completion without a release");
    if (request->isKnown && !lacks.result) {
        CheckReports(*request);
        CheckStatus(*request, static_cast<uint32_t>(event.Word(2)));
    }
    mLent.GiveBack(request->got);
    End(event.Word(1), *request, Phase::Completed);
}

/// As often as the vendor brought them. Where that is not seen, a buffer is all that there must be:
/// metadata may come in parts, or not at all.
void HostRules::CheckReports(const Request& request) const {
    if (request.isFollowed) {
        mChecks.Check(Rule::Reports,
                      request.metadata == request.metadataBrought &&
                          request.buffers == request.buffersBrought,
                      Got{request.metadata}, " metadata and ", Got{request.buffers},
                      " buffers, and must be ", Must{request.metadataBrought}, " and ",
                      Must{request.buffersBrought});
    } else {
        mChecks.Check(Rule::Reports, request.buffers != 0, "no buffer before the completion");
    }
}

/// Which of the vendor's results was the last is not known where these are not seen. An error must
/// be one of a buffer then.
void HostRules::CheckStatus(const Request& request, uint32_t status) const {
    if (request.isFollowed || status != 0) {
        mChecks.Expect(Rule::CompletionStatus, "the status", status, request.endsInError ? 1U : 0U);
    }
}

/// The framework's answer to an adapter that asked for buffers.
void HostRules::OnLent(const Event& event) {
    for (const auto& answer : event.All<camera3_stream_buffer_ret>(event.Word(4))) {
        for (const auto& buffer : event.All<camera3_stream_buffer>(answer.output_buffers)) {
            mLent.Add(LentOf(buffer));
        }
    }
}

// --- The ends -----------------------------------------------------------------------------------

/// The next checks are of this request.
void HostRules::Name(const Request& request) {
    mChecks.Of(request.camera, request.isKnown ? std::optional(request.frame) : std::nullopt);
}

void HostRules::Name(Reference reference) {
    if (const Request* const request = Find(reference)) {
        Name(*request);
    }
}

/// The same, and their texts say so.
void HostRules::Begin(const Request& request) {
    std::string where;
    Append(where, "camera ");
    Append(where, request.camera);
    Append(where, ", frame ");
    Append(where, request.frame);
    mChecks.BeginText(where);
    Name(request);
}

HostRules::Request* HostRules::Find(Reference reference) {
    const auto found = mRequests.find(reference.record);
    const bool isIt = found != mRequests.end() && found->second.serial == reference.serial;
    return isIt ? &found->second : nullptr;
}

/// What still comes for a request that is over is told from what never was, for a while.
void HostRules::End(uint64_t record, Request& request, Phase phase) {
    request.phase = phase;
    const auto [oldest, serial] = Remember(mEnded, {record, request.serial});
    if (Find({oldest, serial}) != nullptr) {
        mRequests.erase(oldest);
    }
}

void HostRules::OnFlushed(uint32_t camera) {
    std::set<uint64_t> over; // An end may forget another one.
    for (const auto& [record, request] : mRequests) {
        if (request.camera == camera && request.phase == Phase::UnderWay) {
            over.insert(record);
        }
    }
    for (const uint64_t record : over) {
        const auto found = mRequests.find(record);
        if (found != mRequests.end()) {
            End(record, found->second, Phase::Closed);
        }
    }
}

bool HostRules::OnDestroyed(uint32_t camera) {
    OnFlushed(camera);
    for (auto& [record, request] : mRequests) {
        request.phase = request.camera == camera ? Phase::Closed : request.phase;
    }
    mLacks.erase(camera);
    mCameras.erase(camera);
    return mCameras.empty();
}

} // namespace contract
