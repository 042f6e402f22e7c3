/// What is executed in a session, and what the session calls back until that is over.
#include "contract/vendorrules.h"

#include <algorithm>

namespace contract {
namespace {

constexpr int32_t kUnsetFrame = -1;
constexpr uint64_t kMostReported = 8; ///< Buffers of a result; the adapter reads no more.

bool IsRaw(const Stream& stream) {
    return stream.format == ChiStreamFormatRaw16 || stream.format == ChiStreamFormatRaw10;
}

} // namespace

// --- Requests -----------------------------------------------------------------------------------

void VendorRules::CheckExecution(const Event& event, PendingCall& call, const Calls& outer) {
    Session* const session = mSessions.Require(event.Word(0));
    if (session == nullptr) {
        return;
    }
    const auto* request = event.At<ChiOfflineExecuteRequest>(event.Word(1));
    const bool isWhole =
        event.Word(1) != 0 && (request == nullptr || (request->pOfflineFrameNumber != nullptr &&
                                                      request->pLastFrameField != nullptr));
    if (!mChecks.Check(Rule::RequestRecord, isWhole,
                       "the request or one of its frame fields is null") ||
        request == nullptr) {
        return;
    }
    CheckRequest(event, *session, *request);
    CheckFramePreset(event, *session, *request);
    BeginExecution(event, *session, *request, call, outer);
}

void VendorRules::CheckRequest(const Event& event, Session& session,
                               const ChiOfflineExecuteRequest& request) {
    mChecks.Expect(Rule::RequestSession, "a session's being configured", session.isConfigured,
                   true);
    mChecks.Expect(Rule::RequestRecord, "the number of input sets",
                   request.pInputs == nullptr ? 0 : request.numInputs, request.numInputs);
    mChecks.Expect(Rule::RequestRecord, "the last word", request.reserved48, uint64_t{0});
    for (const auto& set : event.Some<ChiOfflineBufferSet>(request.pInputs, request.numInputs)) {
        mChecks.Expect(Rule::RequestRecord, "the number of inputs",
                       set.pBuffers == nullptr ? 0 : set.numBuffers, set.numBuffers);
        const auto buffers = event.Some<ChiStreamBuffer>(set.pBuffers, set.numBuffers);
        for (size_t i = 0; i < buffers.size(); ++i) {
            CheckInput(event, session, buffers[i]);
            const auto isSame = [&](const ChiStreamBuffer& each) {
                return each.pStream == buffers[i].pStream;
            };
            mChecks.Check(
                Rule::InputStream,
                std::none_of(buffers.begin(), buffers.begin() + std::ptrdiff_t(i), isSame),
                "input stream ", Handle(buffers[i].pStream), " is fed twice by one set");
        }
    }
    CheckMetadata(event, session, request);
    CheckOutput(event, session, request);
}

void VendorRules::CheckInput(const Event& event, const Session& session,
                             const ChiStreamBuffer& buffer) {
    mChecks.Expect(Rule::InputRecord, "an input's size", buffer.size, uint32_t{sizeof buffer});
    mChecks.Expect(Rule::InputRecord, "an input's type", buffer.bufferType, kChiInputBufferType);
    mChecks.Expect(Rule::InputRecord, "an input's status", buffer.bufferStatus, 0U);
    if (const Image* const image = mImages.Require(AddressOf(buffer.bufferHandle))) {
        mChecks.Expect(Rule::InputManager, "an input's manager", Handle(buffer.pBufferManager),
                       Handle(image->manager));
    }
    const uint64_t address = AddressOf(buffer.pStream);
    if (!mChecks.Check(Rule::InputStream, session.Lists(address), "input stream ", Handle(address),
                       " is not in the session's list")) {
        return;
    }
    if (const Stream* const now = event.At<Stream>(address)) {
        mChecks.Expect(Rule::InputStream, "an input stream's type", now->streamType,
                       uint32_t{ChiStreamTypeInput});
    }
    if (const Stream* const stream = session.FindStream(address)) {
        CheckFormat(event, *stream, buffer);
    }
}

/// `stream` is as the vendor left it, with the pattern of its sensor.
void VendorRules::CheckFormat(const Event& event, const Stream& stream,
                              const ChiStreamBuffer& buffer) {
    mChecks.Expect(Rule::InputFormat, "the presence of a format record",
                   buffer.pInputFormat != nullptr, IsRaw(stream));
    const auto* format = event.At<ChiInputFormat>(buffer.pInputFormat);
    if (format == nullptr || !IsRaw(stream)) {
        return;
    }
    const bool isRaw10 = stream.format == ChiStreamFormatRaw10;
    mChecks.Expect(Rule::InputFormat, "an input's format", format->bufferFormat,
                   uint32_t{isRaw10 ? ChiFormatRaw10 : ChiFormatRaw16});
    mChecks.Expect(Rule::FilterPattern, "an input's filter pattern", format->cfaPattern,
                   stream.cfaPattern);
    mChecks.Expect(Rule::InputFormat, "a format record's word at 4", format->reserved4, 0U);
}

/// An output without size and stream is one that could not be translated; the adapter goes on.
void VendorRules::CheckOutput(const Event& event, const Session& session,
                              const ChiOfflineExecuteRequest& request) {
    const auto* output = event.At<ChiOfflineBufferSet>(request.pOutput);
    const bool isCut = output == nullptr && request.pOutput != nullptr;
    const uint32_t count =
        output == nullptr || output->pBuffers == nullptr ? 0 : output->numBuffers;
    if (isCut || !mChecks.Expect(Rule::Output, "the number of outputs", count, 1U)) {
        return;
    }
    const auto* buffer = event.At<ChiStreamBuffer>(output->pBuffers);
    if (buffer == nullptr || (buffer->size == 0 && buffer->pStream == nullptr)) {
        return;
    }
    mChecks.Expect(Rule::Output, "the output's size", buffer->size, uint32_t{sizeof *buffer});
    if (!session.list.empty()) {
        mChecks.Expect(Rule::Output, "the output's stream", Handle(buffer->pStream),
                       Handle(session.list.back().address));
    }
}

void VendorRules::CheckMetadata(const Event& event, const Session& session,
                                const ChiOfflineExecuteRequest& request) {
    std::vector<uint64_t> seen;
    uint32_t index = 0;
    for (const auto& set : event.Some<ChiOfflineBufferSet>(request.pInputs, request.numInputs)) {
        const uint64_t handle = AddressOf(set.pMetadata);
        const bool isOthers = std::find(seen.begin(), seen.end(), handle) != seen.end();
        if (handle == 0) {
            mChecks.Check(Rule::SetMetadata, MayLackMetadata(session.camera), "set ", index,
                          " has no metadata");
        } else if (mChecks.Check(Rule::SetMetadata, !isOthers, "set ", index,
                                 " has the metadata of another set")) {
            seen.push_back(handle);
            CheckSetMetadata(handle, index);
        }
        ++index;
    }
    const auto* output = event.At<ChiOfflineBufferSet>(request.pOutput);
    const uint64_t own = output == nullptr ? 0 : AddressOf(output->pMetadata);
    if (own != 0 &&
        mChecks.Check(Rule::SetMetadata, std::find(seen.begin(), seen.end(), own) == seen.end(),
                      "the output has the metadata of a set")) {
        mMetadata.Require(own);
    }
}

/// A host that was given no metadata for its camera can name none, and one less for each that it
/// was refused.
bool VendorRules::MayLackMetadata(std::optional<uint32_t> camera) {
    bool isGiven = false;
    for (auto& [its, ofHost] : mSetMetadata) {
        if (camera.has_value() && its.has_value() && its != camera) {
            continue;
        }
        if (ofHost.refused > 0) {
            --ofHost.refused;
            return true;
        }
        isGiven |= ofHost.isGiven;
    }
    return !isGiven || mChecks.isLate;
}

void VendorRules::CheckSetMetadata(uint64_t handle, uint32_t index) {
    const Metadata* const metadata = mMetadata.Require(handle);
    if (metadata == nullptr || !metadata->mark.has_value()) {
        return;
    }
    mChecks.Expect(Rule::SetMetadata, "the set of a set's metadata", metadata->mark->index, index);
    // What a table was opened for before the watch is not known.
    if (metadata->camera.has_value() && !mChecks.isLate) {
        mChecks.Expect(Rule::SetMetadata, "the camera of a set's metadata", *metadata->camera,
                       metadata->mark->cameraId);
    }
}

/// The field belongs to the session: where two threads submit, the number of the one may have
/// overwritten the preset of the other.
void VendorRules::CheckFramePreset(const Event& event, const Session& session,
                                   const ChiOfflineExecuteRequest& request) {
    const auto* preset = event.At<int32_t>(request.pOfflineFrameNumber);
    if (preset == nullptr) {
        return;
    }
    const bool isOthers =
        session.executing != 0 ||
        std::any_of(session.frames.begin(), session.frames.end(), [&](const auto& last) {
            return last.second != 0 && last.second != event.Thread() && last.first == *preset;
        });
    if (!isOthers) {
        mChecks.Expect(Rule::FramePreset, "the preset of the offline frame", *preset, kUnsetFrame);
    }
}

void VendorRules::BeginExecution(const Event& event, Session& session,
                                 const ChiOfflineExecuteRequest& request, PendingCall& call,
                                 const Calls& outer) {
    Execution execution{.serial = ++mLastExecution, .session = event.Word(0)};
    for (const PendingCall& each : outer) {
        if (each.entry == Entry::SubmitRequestFromRT) {
            execution.request = each.request; // The innermost is the last.
        }
    }
    const auto* output = event.At<ChiOfflineBufferSet>(request.pOutput);
    const auto* buffer = output == nullptr ? nullptr : event.At<ChiStreamBuffer>(output->pBuffers);
    if (buffer != nullptr) {
        execution.hasOutput = true;
        execution.outputs = output->numBuffers;
        execution.output = LentOf(*buffer);
    }
    if (const auto* field = event.At<uint32_t>(request.pLastFrameField)) {
        execution.lastField = *field;
    }
    execution.isAlone = session.executing++ == 0;
    execution.executed = ++session.executed;
    call.key = AddressOf(request.pPrivateData);
    call.serial = execution.serial;
    call.session = event.Word(0);
    mExecutions[call.key] = execution;
}

void VendorRules::Executed(const Event& event, const PendingCall& call) {
    Session* const session = mSessions.FindAny(call.session);
    if (call.session == 0 || session == nullptr || session->executing == 0) {
        return;
    }
    --session->executing;
    const auto* request = event.At<ChiOfflineExecuteRequest>(event.Word(1));
    const auto* frame =
        request == nullptr ? nullptr : event.At<int32_t>(request->pOfflineFrameNumber);
    if (Worked(event) && frame != nullptr) {
        session->frames[session->nextFrame++ % session->frames.size()] = {*frame, event.Thread()};
    }
    const auto found = mExecutions.find(call.key);
    if (found == mExecutions.end() || found->second.serial != call.serial) {
        return; // It came to its end, and its address is used again.
    }
    Execution& execution = found->second;
    if (Worked(event)) {
        CheckFrameWritten(event, *session, execution);
    } else {
        execution.status = static_cast<uint32_t>(event.Result());
        mChecks.Check(Rule::RefusedRequest, execution.results == 0, "status ", execution.status,
                      " after ", execution.results, " results");
        Finish(call.key, execution, Execution::Refused);
    }
}

/// The offline frame's field may hold what another thread's submission made of it; the other field
/// is the vendor's alone.
void VendorRules::CheckFrameWritten(const Event& event, Session& session, Execution& execution) {
    const auto* request = event.At<ChiOfflineExecuteRequest>(event.Word(1));
    const auto* frame =
        request == nullptr ? nullptr : event.At<int32_t>(request->pOfflineFrameNumber);
    const auto* last = request == nullptr ? nullptr : event.At<uint32_t>(request->pLastFrameField);
    const bool isAlone = execution.isAlone && session.executed == execution.executed;
    if (frame == nullptr || last == nullptr || !isAlone) {
        return;
    }
    if (*frame != kUnsetFrame) {
        execution.frame = static_cast<uint32_t>(*frame);
        CheckResultNumber(execution);
    } else {
        mChecks.Check(Rule::FrameWritten, execution.lastField != *last,
                      "the offline frame is still ", *frame);
    }
}

/// What still comes for a request that is over is told from what never was, for a while.
void VendorRules::Finish(uint64_t privateData, Execution& execution, Execution::Phase phase) {
    execution.phase = phase;
    mLent.GiveBack(execution.got);
    const auto [oldest, serial] = Remember(mEnded, {privateData, execution.serial});
    const auto found = mExecutions.find(oldest);
    if (found != mExecutions.end() && found->second.serial == serial) {
        mExecutions.erase(found);
    }
}

// --- What a session calls back ------------------------------------------------------------------

void VendorRules::CallBack(const Event& event, PendingCall& call) {
    call.session = SessionOf(event);
    if (call.session == 0) {
        return;
    }
    if (event.Of() == Entry::ProcessCaptureResult) {
        CheckResult(event, call.session);
    } else if (event.Of() == Entry::GetFrameworkBuffers) {
        CheckQuery(event, call.session);
    }
}

/// The session whose callbacks these are, 0 where that is not to be known. It may call until it is
/// closed.
uint64_t VendorRules::SessionOf(const Event& event) {
    const uint64_t callbacks = event.Word(0);
    const auto found = mCallbacks.find(callbacks);
    if (found != mCallbacks.end()) {
        return found->second;
    }
    const bool isOpening = std::find(mOpening.begin(), mOpening.end(), callbacks) != mOpening.end();
    const bool isUnknown =
        mChecks.isLate && std::find(mClosedCallbacks.begin(), mClosedCallbacks.end(), callbacks) ==
                              mClosedCallbacks.end();
    mChecks.Check(Rule::CallbackSession, isOpening || isUnknown, Handle(callbacks),
                  " are the callbacks of no open session");
    return 0;
}

void VendorRules::CheckResult(const Event& event, uint64_t session) {
    const auto* info = event.At<ChiOfflineCaptureResultInfo>(event.Word(2));
    Execution* const execution =
        info == nullptr ? nullptr : FindExecution(AddressOf(info->pPrivateData), session);
    if (execution == nullptr) {
        return;
    }
    ++execution->results;
    execution->resultFrame = info->frameNumber;
    CheckResultNumber(*execution);
    const auto* block = event.At<ChiOfflineResultBlock>(info->pResult);
    PassOn(event, *execution, *info, block);
    if (block != nullptr) {
        CheckBlock(event, *execution, *block);
    }
    if (block != nullptr && block->numPartialMetadata == 0 &&
        execution->received == execution->outputs) {
        Finish(AddressOf(info->pPrivateData), *execution, Execution::Complete);
    }
}

/// The request that a result is for; null where none may come.
VendorRules::Execution* VendorRules::FindExecution(uint64_t privateData, uint64_t session) {
    const auto found = mExecutions.find(privateData);
    if (found == mExecutions.end() || found->second.session != session) {
        mChecks.Check(Rule::ResultRequest, mChecks.isLate, "the private data ", Handle(privateData),
                      " is that of no request of the session");
        return nullptr;
    }
    Execution& execution = found->second;
    mHost.Name(execution.request);
    const bool may =
        mChecks.Check(Rule::RefusedRequest, execution.phase != Execution::Refused,
                      "a result after status ", execution.status) &&
        mChecks.Check(Rule::ResultAfterLast, execution.phase != Execution::Complete,
                      "a result after the last one of the request ", Handle(privateData));
    return may ? &execution : nullptr;
}

void VendorRules::CheckResultNumber(const Execution& execution) {
    if (execution.frame.has_value() && execution.resultFrame.has_value()) {
        mChecks.Expect(Rule::ResultNumber, "a result's frame number", *execution.resultFrame,
                       *execution.frame);
    }
}

void VendorRules::CheckBlock(const Event& event, Execution& execution,
                             const ChiOfflineResultBlock& block) {
    mChecks.Check(Rule::PartialsFall, block.numPartialMetadata <= execution.partials,
                  Got{block.numPartialMetadata}, " partials to come after ", execution.partials);
    execution.partials = block.numPartialMetadata;
    execution.received += block.numBuffers;
    if (!execution.hasOutput) {
        return;
    }
    mChecks.Check(Rule::BufferCount, execution.received <= execution.outputs,
                  Got{execution.received}, " buffers for ", execution.outputs, " outputs");
    for (const auto& buffer : event.Some<ChiStreamBuffer>(block.pBuffers, block.numBuffers)) {
        const Lent seen = LentOf(buffer);
        const bool isLent = seen != execution.output && mLent.Has(seen);
        if (isLent) {
            execution.got = seen;
        }
        mChecks.Check(Rule::ResultOutput, isLent || seen == execution.output || mChecks.isLate,
                      "stream ", Got{Handle(seen.first)}, " and buffer ", Got{Handle(seen.second)},
                      " must be ", Must{Handle(execution.output.first)}, " and ",
                      Must{Handle(execution.output.second)});
    }
}

/// What the host is to be told: the main block, and once more where there is a second one with
/// something in it. See docs/kept-behaviours.md.
void VendorRules::PassOn(const Event& event, const Execution& execution,
                         const ChiOfflineCaptureResultInfo& info,
                         const ChiOfflineResultBlock* block) {
    const auto* second = event.At<ChiOfflineResultBlock>(info.pSecondResult);
    const bool isRepeated =
        second != nullptr && (second->pMetadata != nullptr || second->pBuffers != nullptr);
    const uint32_t times = block == nullptr ? 0 : isRepeated ? 2 : 1;
    const auto* first = block == nullptr ? nullptr : event.At<ChiStreamBuffer>(block->pBuffers);
    const uint64_t buffers =
        block == nullptr ? 0 : std::min<uint64_t>(block->numBuffers, kMostReported);
    mHost.OnBrought(
        execution.request, times * (block != nullptr && block->pMetadata != nullptr ? 1 : 0),
        times * static_cast<uint32_t>(buffers), first != nullptr && first->bufferStatus != 0);
}

void VendorRules::CheckQuery(const Event& event, uint64_t session) {
    const Session* const asks = mSessions.FindAny(session);
    if (asks == nullptr || asks->list.empty()) {
        return;
    }
    const uint64_t output = asks->list.back().address;
    for (const auto& query : event.All<ChiOfflineQueryBuffer>(event.Word(2))) {
        mChecks.Check(Rule::BufferQuery, AddressOf(query.pStream) == output, "stream ",
                      Got{Handle(query.pStream)}, " is not the session's output");
    }
}

void VendorRules::OnLent(const Event& event) {
    for (const auto& answer : event.All<ChiOfflineQueryStreamBuffer>(event.Word(4))) {
        for (const auto& buffer : event.All<ChiStreamBuffer>(answer.pBuffers)) {
            mLent.Add(LentOf(buffer));
        }
    }
}

} // namespace contract
