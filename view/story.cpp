/// Follows the events, with what each thread is in the middle of.
#include "view/story.h"

#include "contract/engine.h"

#include <algorithm>
#include <set>
#include <utility>

namespace view {

using contract::Entry;
using contract::Event;
using OemLayer::OfflineDataWraper;

/// What a thread was seen to do, for its name.
struct Doings {
    std::set<uint32_t> cameras;  ///< That it submitted for.
    std::set<uint32_t> sessions; ///< Whose results it brought.
    bool isHost = false;         ///< Something that a host does.
};

class Teller {
  public:
    explicit Teller(Story& story)
        : mStory(story), mEvents(story.Events()), mDoings(story.mSerials.CountThreads()) {
        mStory.mThreads.resize(mDoings.size());
        mStory.mSubjects.resize(mEvents.size());
    }

    void Tell() {
        mHasHost = std::any_of(mEvents.begin(), mEvents.end(), [](const Event& event) {
            return event.Text().side == contract::Side::Host;
        });
        for (mIndex = 0; mIndex < mEvents.size(); ++mIndex) {
            Take();
        }
        NameThreads();
    }

  private:
    void Take() {
        mEvent = mEvents[mIndex];
        mThread = mStory.mSerials.ThreadOf(mIndex);
        mStory.mThreads[mThread - 1].kernel = mEvent.Thread();
        Subject& subject = Mine();
        if (!Open().empty()) {
            subject = mStory.mSubjects[Open().back()]; // As what it is made for.
        }
        if (mEvent.Of() == Entry::Pixels) {
            return;
        }
        if (mEvent.IsCall()) {
            Doing().isHost |= Open().empty() && IsMadeByHost();
            OnCall();
            if (Open().size() == contract::kMostOpenCalls) {
                Open().erase(Open().begin());
            }
            Open().push_back(mIndex);
        } else if (Close()) {
            OnReturn();
        }
    }

    /// Takes the call that returns from those that are open, with what is left above it.
    bool Close() {
        auto& open = Open();
        for (size_t i = open.size(); i-- > 0;) {
            if (mEvents[open[i]].Number() == mEvent.Header().call) {
                mCall = open[i];
                Mine() = mStory.mSubjects[mCall];
                open.resize(i);
                return true;
            }
        }
        return false;
    }

    void OnCall() {
        const auto& arguments = mEvent.Text().arguments;
        if (mEvent.Text().side == contract::Side::Host && !arguments.empty() &&
            std::string_view(arguments[0].name) == "cameraId") {
            Mine().camera = static_cast<uint32_t>(mEvent.Word(0));
        }
        switch (mEvent.Of()) {
        case Entry::SubmitRequestFromRT:
            return OnSubmission();
        case Entry::CaptureResult:
            return OnResult();
        case Entry::ReleaseRtBuffers:
            return OnHostMoment(&Request::released);
        case Entry::RequestComplete:
            return OnCompletion();
        case Entry::OpenSession:
            return OnOpening();
        case Entry::ConfigureStreams:
            return OnConfiguration();
        case Entry::CloseSession:
            return OnHandle(mEvent.Word(0));
        case Entry::ExecuteRequest:
            return OnExecution();
        case Entry::ProcessCaptureResult:
            return OnVendorResult();
        case Entry::ProcessNotify:
        case Entry::GetFrameworkBuffers:
            return OnSession(mCallbacks, mEvent.Word(0));
        default:
            return;
        }
    }

    /// Whoever calls the adapter from outside, or is called by it on the other side.
    bool IsMadeByHost() const {
        return (mEvent.Text().side == contract::Side::Host) ==
               (mEvent.Text().caller == contract::Caller::Outside);
    }

    void OnReturn() {
        switch (mEvent.Of()) {
        case Entry::SubmitRequestFromRT:
            return OnSubmitted();
        case Entry::Flush:
        case Entry::Destroy:
            return OnFlush();
        case Entry::OpenSession:
            return OnOpened();
        case Entry::ConfigureStreams:
            return OnSessionMoment(&Session::configured);
        case Entry::CloseSession:
            return OnSessionMoment(&Session::closed);
        case Entry::ExecuteRequest:
            return OnExecuted();
        default:
            return;
        }
    }

    // --- Requests -------------------------------------------------------------------------------

    Request& NewRequest(uint64_t address) {
        Request& request = mStory.mRequests.emplace_back();
        request.serial = static_cast<uint32_t>(mStory.mRequests.size());
        request.address = address;
        request.thread = mThread;
        request.submitted = mEvent.Time();
        Mine().request = request.serial;
        return request;
    }

    void OnSubmission() {
        Request& request = NewRequest(mEvent.Word(2));
        request.camera = Mine().camera;
        if (const auto* const wrapper = mEvent.At<OfflineDataWraper>(mEvent.Word(1))) {
            constexpr size_t kFeature = offsetof(OfflineDataWraper, identity) +
                                        offsetof(OemLayer::OfflineSessionIdentitys, featureName);
            request.frame = wrapper->rtFrameNumber;
            request.sets = wrapper->numBuffers;
            request.feature = mEvent.TextAt(mEvent.Word(1) + kFeature);
        }
        mRequests[request.address] = request.serial;
        Doing().cameras.insert(request.camera.value_or(0));
    }

    void OnSubmitted() {
        if (Request* const request = Current()) {
            request->returned = mEvent.Time();
            request->status = static_cast<uint32_t>(mEvent.Result());
        }
    }

    /// The host's request that the event names.
    Request* Named() {
        const auto found = mRequests.find(mEvent.Word(1));
        if (found == mRequests.end()) {
            return nullptr;
        }
        Mine().request = found->second;
        return Current();
    }
    Request* Current() {
        const uint32_t serial = Mine().request;
        return serial == 0 ? nullptr : &mStory.mRequests[serial - 1];
    }

    void Note(std::optional<Moment>& moment) const {
        if (!moment.has_value()) {
            moment = mEvent.Time();
        }
    }

    void OnHostMoment(std::optional<Moment> Request::*moment) {
        Request* const request = Named();
        if (request != nullptr && !request->lost.has_value()) {
            Note(request->*moment);
        }
    }

    void OnResult() {
        Request* const request = Named();
        const auto* const result = mEvent.At<camera3_capture_result>(mEvent.Word(2));
        if (request != nullptr && result != nullptr) {
            NoteResult(*request, result->result != nullptr, result->num_output_buffers > 0);
        }
    }

    void NoteResult(Request& request, bool hasMetadata, bool hasBuffer) const {
        if (hasMetadata) {
            Note(request.metadata);
        }
        if (hasBuffer) {
            Note(request.buffer);
        }
    }

    void OnCompletion() {
        Request* const request = Named();
        if (request != nullptr && !request->lost.has_value() && !request->completion.has_value()) {
            request->completed = mEvent.Time();
            request->completion = static_cast<uint32_t>(mEvent.Word(2));
        }
    }

    void OnFlush() {
        for (Request& request : mStory.mRequests) {
            if (request.camera == Mine().camera && request.status == 0U &&
                !request.completion.has_value()) {
                Note(request.lost);
            }
        }
    }

    // --- Sessions -------------------------------------------------------------------------------

    /// By their index among the story's, as the vendor's handle or the callbacks' record tells.
    using Index = std::map<uint64_t, size_t>;

    void OnSession(const Index& index, uint64_t key) {
        const auto found = index.find(key);
        if (found != index.end()) {
            Mine().session = mStory.mSessions[found->second].serial;
            Mine().camera = mStory.mSessions[found->second].camera;
        }
    }

    /// The same, by the vendor's handle: one that was opened before the ring's beginning is a
    /// session, too.
    void OnHandle(uint64_t handle) {
        if (handle != 0 && !mSessions.contains(handle)) {
            Session& session = mStory.mSessions.emplace_back();
            session.serial = mStory.mSerials.Of(mIndex).front().serial; // The first argument.
            session.camera = Mine().camera;
            const Request* const request = Current();
            session.feature = request == nullptr ? "" : request->feature;
            mSessions[handle] = mBySerial[session.serial] = mStory.mSessions.size() - 1;
        }
        OnSession(mSessions, handle);
    }

    Session* CurrentSession() {
        const uint32_t serial = Mine().session;
        const auto found = mBySerial.find(serial);
        return serial == 0 || found == mBySerial.end() ? nullptr : &mStory.mSessions[found->second];
    }

    void OnOpening() {
        Session& session = mStory.mSessions.emplace_back();
        session.camera = Mine().camera;
        session.asked = mEvent.Time();
        if (const auto* const info = mEvent.At<ChiOfflineSessionCreateInfo>(mEvent.Word(1))) {
            session.name = mEvent.TextAt(reinterpret_cast<uint64_t>(info->pSessionName));
        }
        const Request* const request = Current();
        session.feature = request == nullptr ? session.name : request->feature;
        mOpening[mEvent.Number()] = mStory.mSessions.size() - 1;
    }

    void OnOpened() {
        const auto found = mOpening.find(mEvent.Header().call);
        if (found == mOpening.end() || mEvent.Result() == 0) {
            return;
        }
        Session& session = mStory.mSessions[found->second];
        session.serial = mStory.mSerials.Of(mIndex).back().serial; // The result comes last.
        session.opened = mEvent.Time();
        Mine().session = session.serial;
        mSessions[mEvent.Result()] = found->second;
        mBySerial[session.serial] = found->second;
        const Event& call = mEvents[mCall];
        if (const auto* const info = call.At<ChiOfflineSessionCreateInfo>(call.Word(1))) {
            mCallbacks[reinterpret_cast<uint64_t>(info->pCallbacks)] = found->second;
        }
    }

    void OnConfiguration() {
        OnHandle(mEvent.Word(0));
        const auto* const config = mEvent.At<ChiOfflineSessionConfigInfo>(mEvent.Word(1));
        if (Session* const session = CurrentSession(); session != nullptr && config != nullptr) {
            session->cameraText = mEvent.TextAt(reinterpret_cast<uint64_t>(config->pCameraText));
        }
    }

    void OnSessionMoment(std::optional<Moment> Session::*moment) {
        Session* const session = CurrentSession();
        if (session != nullptr && mEvent.Result() == 0) {
            Note(session->*moment);
        }
    }

    // --- Executions -----------------------------------------------------------------------------

    void OnExecution() {
        OnHandle(mEvent.Word(0));
        Session* const session = CurrentSession();
        const auto* const record = mEvent.At<ChiOfflineExecuteRequest>(mEvent.Word(1));
        if (record == nullptr) {
            return;
        }
        const auto execution = reinterpret_cast<uint64_t>(record->pPrivateData);
        if (!mHasHost) {
            Request& request = NewRequest(execution);
            request.sets = record->numInputs;
            request.feature = session == nullptr ? "" : session->name;
        }
        if (Request* const request = Current()) {
            request->session = Mine().session;
            mExecutions[execution] = request->serial;
        }
        if (session != nullptr) {
            ++session->requests;
        }
    }

    /// Without the host's side it is the submission.
    void OnExecuted() {
        Request* const request = mHasHost ? nullptr : Current();
        if (request == nullptr) {
            return;
        }
        OnSubmitted();
        const auto* const record = mEvent.At<ChiOfflineExecuteRequest>(mEvent.Word(1));
        const int32_t* const frame =
            record == nullptr ? nullptr : mEvent.At<int32_t>(record->pOfflineFrameNumber);
        request->frame = frame == nullptr ? 0 : static_cast<uint32_t>(*frame);
    }

    void OnVendorResult() {
        OnSession(mCallbacks, mEvent.Word(0));
        FindResult();
        if (Open().empty()) {
            Doing().sessions.insert(Mine().session);
        }
    }

    void FindResult() {
        const auto* const result = mEvent.At<ChiOfflineCaptureResultInfo>(mEvent.Word(2));
        if (result == nullptr) {
            return;
        }
        const auto found = mExecutions.find(reinterpret_cast<uint64_t>(result->pPrivateData));
        if (found == mExecutions.end()) {
            return;
        }
        Mine().request = found->second;
        const uint32_t session = mStory.mRequests[found->second - 1].session;
        const auto its = mBySerial.find(session);
        if (Mine().session == 0 && its != mBySerial.end()) { // It was opened before the beginning.
            mCallbacks[mEvent.Word(0)] = its->second;
            OnSession(mCallbacks, mEvent.Word(0));
        }
        const auto* const block = mEvent.At<ChiOfflineResultBlock>(result->pResult);
        if (mHasHost || block == nullptr) {
            return;
        }
        Request& request = *Current();
        NoteResult(request, block->pMetadata != nullptr, block->numBuffers > 0);
        if (block->numPartialMetadata == 0 && request.buffer.has_value()) {
            Note(request.completed);
            request.completion = 0;
        }
    }

    // --- Threads --------------------------------------------------------------------------------

    void NameThreads() {
        std::map<uint32_t, uint32_t> ofCamera;
        for (const Doings& doings : mDoings) {
            for (const uint32_t camera : doings.cameras) {
                ++ofCamera[camera];
            }
        }
        std::map<uint32_t, uint32_t> named;
        bool hasHost = false;
        for (size_t i = 0; i < mDoings.size(); ++i) {
            const Doings& doings = mDoings[i];
            std::string& name = mStory.mThreads[i].name;
            const std::string number = ", thread " + std::to_string(i + 1);
            if (doings.cameras.size() == 1) {
                const uint32_t camera = *doings.cameras.begin();
                name = "host camera " + std::to_string(camera) +
                       (ofCamera[camera] > 1 ? ", thread " + std::to_string(named[camera]++) : "");
            } else if (doings.isHost && doings.sessions.empty()) {
                name = std::exchange(hasHost, true) ? "host" + number : "host";
            } else {
                name = NameOfVendor(doings) + (doings.sessions.size() == 1 ? "" : number);
            }
        }
    }

    std::string NameOfVendor(const Doings& doings) const {
        const uint32_t serial = doings.sessions.size() == 1 ? *doings.sessions.begin() : 0;
        const auto found = mBySerial.find(serial);
        return found == mBySerial.end() ? "vendor"
                                        : "vendor session " + std::to_string(serial) + ", " +
                                              mStory.mSessions[found->second].feature;
    }

    std::vector<size_t>& Open() { return mStory.mThreads[mThread - 1].open; }
    Doings& Doing() { return mDoings[mThread - 1]; }
    Subject& Mine() { return mStory.mSubjects[mIndex]; }

    Story& mStory;
    const std::vector<Event>& mEvents;
    std::vector<Doings> mDoings;
    bool mHasHost = false;
    size_t mIndex = 0; ///< Of the event, which is below.
    size_t mCall = 0;  ///< Of the call that returns with it.
    Event mEvent;
    uint32_t mThread = 0; ///< Its serial.
    Index mSessions;
    Index mCallbacks;
    std::map<uint64_t, size_t> mOpening;      ///< By the number of the call.
    std::map<uint32_t, size_t> mBySerial;     ///< The sessions.
    std::map<uint64_t, uint32_t> mRequests;   ///< The serials, by the records' addresses.
    std::map<uint64_t, uint32_t> mExecutions; ///< Likewise, by those of the adapter's records.
};

Story::Story(const view::Serials& serials) : mSerials(serials) { Teller(*this).Tell(); }

bool Story::IsOpen() const {
    return std::any_of(mThreads.begin(), mThreads.end(),
                       [](const Thread& thread) { return !thread.open.empty(); });
}

} // namespace view
