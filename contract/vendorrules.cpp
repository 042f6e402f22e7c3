/// What crosses the boundary to the vendor, held against what both may expect: which rules look at
/// which call, and those of sessions and their configuration.
#include "contract/vendorrules.h"

#include <algorithm>
#include <cstdlib>

namespace contract {
namespace {

constexpr uint32_t kVersion = 512;

} // namespace

// --- Every call, and every return ---------------------------------------------------------------

void VendorRules::OnCall(const Event& event, PendingCall& call, const Calls& outer) {
    const Entry entry = event.Of();
    if (entry == Entry::CloseSession) {
        CloseSession(event, call, outer);
    } else if (entry == Entry::ExecuteRequest) {
        CheckExecution(event, call, outer);
    } else if (entry < Entry::MetadataOpsClose) {
        CallInterface(event, call);
    } else if (entry < Entry::BufferOpsClose) {
        CallMetadata(event, call);
    } else if (entry < Entry::ProcessCaptureResult) {
        CallBuffers(event, call);
    } else {
        CallBack(event, call);
    }
}

void VendorRules::OnReturn(const Event& event, const PendingCall& call) {
    const Entry entry = event.Of();
    if (entry < Entry::MetadataOpsClose) {
        ReturnOfInterface(event, call);
    } else if (entry < Entry::BufferOpsClose) {
        ReturnOfMetadata(event, call);
    } else if (entry < Entry::ProcessCaptureResult) {
        ReturnOfBuffers(event, call);
    } else if (entry == Entry::GetFrameworkBuffers) {
        OnLent(event);
    }
}

void VendorRules::CallInterface(const Event& event, PendingCall& call) {
    switch (event.Of()) {
    case Entry::OpenContext:
        CheckContext(event);
        break;
    case Entry::OpenSession:
        CheckOpening(event, call);
        break;
    case Entry::ConfigureStreams:
        CheckConfiguration(event, call);
        break;
    case Entry::OpenMetadataOps:
        CheckOpenInfo(event, call);
        break;
    case Entry::TranslateToChiBuffer:
    case Entry::TranslateFromChiBuffer:
        mChecks.Check(Rule::Translation, event.Word(0) != 0 && event.Word(1) != 0,
                      "a buffer is null");
        break;
    default:
        break;
    }
}

void VendorRules::ReturnOfInterface(const Event& event, const PendingCall& call) {
    switch (event.Of()) {
    case Entry::OpenSession:
        OpenSession(event, call);
        break;
    case Entry::CloseSession:
        Closed(call, Worked(event));
        break;
    case Entry::ConfigureStreams:
        Configured(event, call);
        break;
    case Entry::ExecuteRequest:
        Executed(event, call);
        break;
    case Entry::OpenMetadataOps:
        OpenedTable(event, call, mMetadataOps);
        break;
    case Entry::OpenBufferOps:
        OpenedTable(event, call, mBufferOps);
        break;
    default:
        break;
    }
}

void VendorRules::CheckAllReturned() {
    mChecks.BeginEnd();
    mSessions.CheckLeft();
    mMetadata.CheckLeft();
    mAndroid.CheckLeft();
    mManagers.CheckLeft();
    mImages.CheckLeft();
    mMetadataOps.CheckLeft();
    mBufferOps.CheckLeft();
}

// --- Sessions -----------------------------------------------------------------------------------

void VendorRules::CheckContext(const Event& event) {
    mChecks.Expect(Rule::OpenArguments, "the first argument", Handle(event.Word(0)), Handle());
    mChecks.Expect(Rule::OpenArguments, "the second argument", static_cast<uint32_t>(event.Word(1)),
                   kVersion);
}

void VendorRules::CheckOpening(const Event& event, PendingCall& call) {
    const auto* info = event.At<ChiOfflineSessionCreateInfo>(event.Word(1));
    mChecks.Check(Rule::SessionRecord,
                  info == nullptr ? event.Word(1) != 0
                                  : info->pSessionName != nullptr && info->pCallbacks != nullptr,
                  "the create record, its name or its callbacks are null");
    if (info == nullptr) {
        return;
    }
    call.key = AddressOf(info->pCallbacks);
    call.name = event.TextAt(AddressOf(info->pSessionName));
    mOpening.push_back(call.key);
    const auto* callbacks = event.At<ChiOfflineSessionCallbacks>(info->pCallbacks);
    if (callbacks == nullptr || info->pSessionName == nullptr ||
        !mChecks.Check(Rule::SessionRecord,
                       callbacks->ProcessCaptureResultCb != nullptr &&
                           callbacks->ProcessNotifyCb != nullptr &&
                           callbacks->GetFrameworkBuffers != nullptr,
                       "a callback is null")) {
        return;
    }
    mChecks.Expect(Rule::SessionRecord, "the shared handle", info->sharedSessionHandle,
                   uint64_t{0});
    mChecks.Expect(Rule::SessionRecord, "the callbacks' fourth word", Handle(callbacks->reserved24),
                   Handle());
}

void VendorRules::OpenSession(const Event& event, const PendingCall& call) {
    const auto opening = std::find(mOpening.begin(), mOpening.end(), call.key);
    if (opening != mOpening.end()) {
        mOpening.erase(opening);
    }
    Session session;
    session.name = call.name;
    session.callbacks = call.key;
    session.opening = call.call;
    if (mSessions.Adopt(event.Result(), std::move(session)) != nullptr) {
        mCallbacks[call.key] = event.Result();
    }
}

void VendorRules::CloseSession(const Event& event, PendingCall& call, const Calls& outer) {
    const uint64_t handle = event.Word(0);
    if (mSessions.BeginEnd(handle, call) == nullptr) {
        return;
    }
    const bool isOwn = std::any_of(outer.begin(), outer.end(), [handle](const PendingCall& each) {
        return each.entry >= Entry::ProcessCaptureResult && each.session == handle;
    });
    mChecks.Check(Rule::SessionCloser, !isOwn, "a session's own thread closes it");
}

/// What the session works on never comes back.
void VendorRules::Closed(const PendingCall& call, bool worked) {
    const Session* const session = mSessions.FindAny(call.key);
    if (worked && session != nullptr && session->serial == call.serial) {
        mCallbacks.erase(session->callbacks);
        Remember(mClosedCallbacks, session->callbacks);
        std::erase_if(mExecutions,
                      [&](const auto& each) { return each.second.session == call.key; });
    }
    mSessions.FinishEnd(call, worked);
}

const Stream* VendorRules::Session::FindStream(uint64_t address) const {
    for (const ListedStream& listed : list) {
        if (listed.address == address && listed.stream.has_value()) {
            return &*listed.stream;
        }
    }
    return nullptr;
}

bool VendorRules::Session::Lists(uint64_t address) const {
    return std::any_of(list.begin(), list.end(),
                       [address](const ListedStream& listed) { return listed.address == address; });
}

// --- Configuration ------------------------------------------------------------------------------

void VendorRules::CheckConfiguration(const Event& event, PendingCall& call) {
    Session* const session = mSessions.Require(event.Word(0));
    if (session == nullptr) {
        return;
    }
    call.key = event.Word(0);
    call.serial = session->serial;
    const auto* config = event.At<ChiOfflineSessionConfigInfo>(event.Word(1));
    if (!mChecks.Check(Rule::Configuration, event.Word(1) != 0,
                       "the configuration record is null") ||
        config == nullptr) {
        return;
    }
    session->camera = CheckCamera(event, *config);
    CheckSettings(event, *session, *config, session->camera.value_or(0));
    call.list = ListOf(event, *config);
    if (!session->isConfigured) {
        session->list = call.list; // It may ask for buffers at once.
    }
    CheckListed(event, *config);
}

/// The camera of a configuration, by the number that is its text, where that is seen.
std::optional<uint32_t> VendorRules::CheckCamera(const Event& event,
                                                 const ChiOfflineSessionConfigInfo& config) {
    const std::string text(event.TextAt(AddressOf(config.pCameraText)));
    const auto number = static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
    // Without a list, the text is not recorded.
    const bool isSeen = config.pCameraText == nullptr || !text.empty();
    mChecks.Check(Rule::Configuration, !isSeen || text == std::to_string(number),
                  "the camera's text is '", Got{text}, "' and must be ", Must{"a number"});
    return text.empty() ? std::nullopt : std::optional(number);
}

/// A session that is configured once more has its settings from the first time.
void VendorRules::CheckSettings(const Event& event, const Session& session,
                                const ChiOfflineSessionConfigInfo& config, uint32_t camera) {
    if (config.pSessionSettings != nullptr) {
        mMetadata.Require(AddressOf(config.pSessionSettings));
    } else {
        mChecks.Check(Rule::SessionSettings,
                      session.isConfigured || !MakesSettings(event.Thread(), session, camera),
                      "the session settings are null");
    }
}

/// Whether the vendor makes settings for a session, as far as it was asked since that was opened;
/// else whether it can.
bool VendorRules::MakesSettings(uint32_t thread, const Session& session, uint32_t camera) {
    const Made* last = nullptr;
    for (const Made& made : mSettings) {
        if (made.thread == thread && made.event > session.opening &&
            (last == nullptr || made.event > last->event)) {
            last = &made;
        }
    }
    const auto& tables = mMetadataOps.All();
    return last != nullptr ? last->worked
                           : std::any_of(tables.begin(), tables.end(), [camera](const auto& each) {
                                 return each.second.makesSettings && each.second.camera == camera;
                             });
}

/// The list may be null: a preparation that failed leaves the record without one.
StreamList VendorRules::ListOf(const Event& event, const ChiOfflineSessionConfigInfo& config) {
    StreamList list;
    for (const uint64_t address : event.Some<uint64_t>(config.ppChiStreams, config.numStreams)) {
        ListedStream& listed = list.emplace_back(ListedStream{address, std::nullopt});
        if (const Stream* const stream = event.At<Stream>(address)) {
            listed.stream = *stream;
        }
    }
    return list;
}

void VendorRules::CheckListed(const Event& event, const ChiOfflineSessionConfigInfo& config) {
    uint32_t index = 0;
    for (const ListedStream& listed : ListOf(event, config)) {
        if (!mChecks.Check(Rule::Configuration, listed.address != 0, "stream ", index,
                           " is null")) {
            return;
        }
        const bool isOutput = ++index == config.numStreams;
        if (const auto& stream = listed.stream) {
            mChecks.Expect(Rule::StreamTypes, "a stream's type", stream->streamType,
                           uint32_t{isOutput ? ChiStreamTypeOutput : ChiStreamTypeInput});
            mChecks.Expect(Rule::StreamWords, "a stream's word at 148", stream->reserved148, 0U);
            mChecks.Expect(Rule::StreamWords, "a stream's word at 152", stream->reserved152, -1);
        }
    }
}

/// The streams stand now as the vendor left them.
void VendorRules::Configured(const Event& event, const PendingCall& call) {
    Session* const session = mSessions.FindAny(call.key);
    const auto* config = event.At<ChiOfflineSessionConfigInfo>(event.Word(1));
    if (session == nullptr || session->serial != call.serial || config == nullptr) {
        return;
    }
    const StreamList list = ListOf(event, *config);
    for (size_t i = 0; i < std::min(list.size(), call.list.size()); ++i) {
        const auto& before = call.list[i].stream;
        const auto& after = list[i].stream;
        const auto kept = [](const Stream& stream) {
            return std::array{stream.streamType, stream.width, stream.height, stream.format};
        };
        mChecks.Check(Rule::StreamsKept,
                      call.list[i].address != list[i].address || !before.has_value() ||
                          !after.has_value() || kept(*before) == kept(*after),
                      "stream ", i, " has another type, size or format than before");
    }
    if (Worked(event)) {
        session->isConfigured = true;
        session->list = list;
    }
}

} // namespace contract
