/// Steps become calls, and calls of the library are held against what must come next.
#include "schedules/player.h"

#include "schedules/heap.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace schedules {
namespace {

constexpr uint32_t kFirstFrame = 101;
constexpr size_t kMostSteps = 100;        // More than there can be: an order takes no memory then.
constexpr uint32_t kMarkTag = 0x80005555; // Of an output's metadata: whose it is.
constexpr uint32_t kSpoiledPartials = 70000; // Of a request that is over.
constexpr std::array kFeatures{"Night", "Portrait"};

const char* NameOf(Within callback) {
    return callback == kResult    ? "captureResult"
           : callback == kRelease ? "releaseRtBuffers"
                                  : "requestComplete";
}

std::string Described(const standin::ShapeResult& result) {
    std::string text = result.metadata && result.buffer ? "metadata and buffer"
                       : result.metadata                ? "metadata"
                       : result.buffer                  ? "buffer"
                                                        : "nothing";
    text += result.secondBlock ? ", in two blocks" : "";
    text += result.bufferStatus != 0 ? " with an error" : "";
    return text +
           (result.partials != 0 ? ", partials to come: " + std::to_string(result.partials) : "");
}

} // namespace

Player::Player(const kit::Adapter& library, const Plan& plan, Settings settings)
    : HostCamera(library, kId), mPlan(plan), mSettings(std::move(settings)),
      mRaw(kit::MakeStream(HAL_PIXEL_FORMAT_RAW10, 16, 8)) {
    mOutputs.fill(kit::MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888, 16, 8));
    if (mSettings.hasVendorThread) {
        mVendor.emplace();
    }
    mSteps.reserve(kMostSteps);
    WarmUp();
}

/// One request, so that everything is there that stays for the next one.
void Player::WarmUp() {
    Begin();
    Submit();
    for (size_t i = 0; i < standin::ResultsOf(mPlan.shapes[0]).size(); ++i) {
        OnVendor(false, [this] { Deliver(0); });
    }
    End();
}

// --- An order -----------------------------------------------------------------------------------

void Player::Play(const Order& order) {
    Begin();
    mSteps = order;
    mNext = 0;
    while (!mPlan.duringSubmissions && mSubmitted < mPlan.Requests()) {
        Submit();
    }
    GoOn();
    if (mNext != mSteps.size()) {
        mSettings.fail("a step that leaves came where nothing was open");
    }
    End();
}

void Player::Begin() {
    auto& device = *StandinControl();
    device.Reset();
    device.SetRecording(false);
    device.SetDelivery(standin::Delivery::ByHand);
    // The locks of who watches would put the two threads in order: ThreadSanitizer would see none.
    device.SetFeed(!mSettings.hasVendorThread);
    device.SetWhenExecuted([this](size_t index, const standin::Execution& execution) {
        WhenExecuted(index, execution);
    });
    device.SetConfigRows({}); // No features: reading them takes longer than all the rest.
    mTable.Create(&mTable, kId);
    mWrapper.pRDIBufferHandles[0] = mTable.GetImageBuffer(&mTable, &mRaw);
    mWrapper.numBuffers = 1;
    mSubmitted = 0;
}

/// Everything is given back, and nothing is left.
void Player::End() {
    auto& device = *StandinControl();
    for (const Request& request : mRequests) {
        Expect(request.isOver, request, "it was not completed");
    }
    mTable.Flush(&mTable);
    const auto check = [this](bool holds, const std::string& what) {
        if (!holds) {
            mSettings.fail(what);
        }
    };
    check(device.CountAlive().sessions == 0, "a session is open after the flush");
    GiveBackAll(&PlatFormIntCallbacks::ReleaseImageBuffer, {mWrapper.pRDIBufferHandles, 1});
    mTable.TearDownResource(&mTable);
    mTable.Destroy(&mTable);
    device.CheckAllReturned();
    const auto violations = device.Violations();
    check(violations.empty(), violations.empty() ? "" : violations.front());
    check(device.CountAlive() == standin::Alive{}, "something is alive in the vendor at the end");
    // What the device, the rules and this keep of an order is gone with the next one's beginning.
    device.Reset();
    mRequests.clear();
    const int64_t blocks = g_heapBlocks.load(std::memory_order_relaxed);
    const int64_t before = mHeapBlocks.value_or(blocks);
    mHeapBlocks = blocks;
    check(blocks == before, "the process has " + std::to_string(blocks - before) +
                                " blocks of the heap more than before it");
}

/// Takes steps until one leaves what is open, or all are done.
void Player::GoOn() {
    while (mNext < mSteps.size()) {
        const Step step = mSteps[mNext++];
        if (step == kLeave) {
            return;
        }
        if (step == kSubmit) {
            Submit();
        } else {
            OnVendor(false, [this, step] { Deliver(step); });
        }
    }
}

/// Who waits within an execute call must not look at what was done meanwhile before the call
/// returned.
void Player::OnVendor(bool isInCall, const std::function<void()>& act) {
    if (!mVendor.has_value() || mVendor->IsCurrent()) {
        act();
        return;
    }
    mVendor->Do(act);
    if (!isInCall) {
        mVendor->CatchUp();
    }
}

// --- What the host and the vendor do ------------------------------------------------------------

void Player::Submit() {
    const uint32_t index = mSubmitted++;
    const uint32_t session = mPlan.sessions[index];
    Request& request = mRequests.emplace_back(*this);
    request.index = index;
    request.partialResultBase = kit::kPartialBase + index;
    request.pBufferManager = StandinControl()->ManagerOf(mWrapper.pRDIBufferHandles[0]);
    request.inputStreams = {&mRaw};
    request.numInputBuffers = 1;
    OemLayer::OfflineDataWraper wrapper = mWrapper;
    wrapper.rtFrameNumber = kFirstFrame + index;
    wrapper.identity.pOutStream = &mOutputs[session % 2];
    wrapper.identity.featureName = kFeatures[session / 2];
    CreateSetMetadata(request.metadata, 1);
    wrapper.pChiMetadataHandles[0] = request.metadata[0];
    camera3_stream_buffer output = StreamBuffer(wrapper.identity.pOutStream, &request.output);
    StandinControl()->SetShape(mPlan.shapes[index]);
    Tell("submit request " + std::to_string(index + 1) + ": frame " +
         std::to_string(wrapper.rtFrameNumber) + ", session " + std::to_string(session + 1));
    ++mDepth;
    const uint32_t status =
        mTable.SubmitRequestFromRT(&mTable, &wrapper, &request, &output, &mCallbacks);
    if (mVendor.has_value() && !mVendor->IsCurrent()) {
        mVendor->CatchUp();
    }
    --mDepth;
    Tell("returned " + std::to_string(status));
    ExpectSame(request, "the submission's status", status, 0);
}

/// In the execute call. Whose metadata it is has to be seen in what the host gets.
void Player::WhenExecuted(size_t index, const standin::Execution& execution) {
    const auto number = static_cast<uint32_t>(index);
    mTable.SetTag(&mTable, execution.output.set.pMetadata, kMarkTag, &number, sizeof number, 0);
    if (mPlan.duringSubmissions) {
        Tell("execute entered");
        OnVendor(true, [this] {
            GoOn();
            Tell("execute returns");
        });
    }
}

void Player::Deliver(uint32_t index) {
    Request& request = mRequests.at(index);
    const standin::Shape shape = mPlan.shapes[index];
    const size_t result = request.delivered++;
    const auto results = standin::ResultsOf(shape);
    request.toCome = ToldOf(shape, result);
    request.told = 0;
    Tell("deliver request " + std::to_string(index + 1) + ", result " + std::to_string(result + 1) +
         " of " + std::to_string(results.size()) + ": " + Described(results[result]));
    ++mDepth;
    StandinControl()->DeliverNext(index);
    --mDepth;
    if (request.told < request.toCome.size()) {
        Expect(false, request,
               std::string("no ") + NameOf(request.toCome[request.told].callback) +
                   " came for result " + std::to_string(result + 1));
    }
}

// --- What the host is told ----------------------------------------------------------------------

/// What must come next for the request.
const Told& Player::TakeTold(Request& request, Within callback) {
    const bool isNext =
        request.told < request.toCome.size() && request.toCome[request.told].callback == callback;
    Expect(isNext, request,
           std::string("a ") + NameOf(callback) +
               (request.isOver ? " came after the completion" : " came that must not come now"));
    return request.toCome[request.told++];
}

void Player::OnResult(Request& request, const camera3_capture_result& result) {
    const Told& told = TakeTold(request, kResult);
    ExpectSame(request, "a result's frame number", result.frame_number,
               kFirstFrame + request.index);
    ExpectSame(request, "a result's metadata", result.result != nullptr ? 1 : 0,
               told.metadata ? 1 : 0);
    ExpectSame(request, "a result's partial number", result.partial_result,
               told.metadata ? kit::kPartialBase + request.index + 255 : 0);
    ExpectSame(request, "a result's buffers", result.num_output_buffers, told.buffer ? 1 : 0);
    if (told.buffer) {
        const camera3_stream_buffer& buffer = result.output_buffers[0];
        Expect(buffer.buffer == &request.output &&
                   buffer.stream == &mOutputs[mPlan.sessions[request.index] % 2],
               request, "a result's buffer is not its output");
        ExpectSame(request, "a buffer's status", static_cast<uint64_t>(buffer.status), told.status);
    }
    if (told.metadata) {
        CheckMark(request, result.result);
    }
    Callback(request, kResult,
             ": partial number " + std::to_string(result.partial_result) + ", " +
                 std::to_string(result.num_output_buffers) + " buffers");
}

/// The metadata, which goes back then, is that of the request's own output.
void Player::CheckMark(const Request& request, const camera_metadata* android) {
    auto* const metadata = const_cast<camera_metadata*>(android);
    void* const copy = mTable.CreateByAndroidMetadata(&mTable, metadata);
    uint32_t size = 0;
    const void* const mark = mTable.GetTag(&mTable, copy, kMarkTag, &size, 0);
    uint32_t index = UINT32_MAX;
    if (mark != nullptr && size == sizeof index) {
        std::memcpy(&index, mark, sizeof index);
    }
    mTable.MetadataDestroy(&mTable, copy);
    mTable.ReleaseAndroidMetadata(&mTable, metadata);
    Expect(index == request.index, request, "a result's metadata is not that of its output");
}

void Player::OnRelease(Request& request) {
    TakeTold(request, kRelease);
    Callback(request, kRelease, "");
}

/// From here on the request is the host's, which makes something else of it.
void Player::OnCompletion(Request& request, uint32_t status) {
    const Told& told = TakeTold(request, kCompletion);
    ExpectSame(request, "the completion's status", status, told.status);
    request.isOver = true;
    GiveBackAll(&PlatFormIntCallbacks::MetadataDestroy, request.metadata);
    request.inputStreams = {};
    request.pBufferManager = nullptr;
    request.rtFrameNumber = 0;
    request.partialResultBase = kSpoiledPartials;
    Callback(request, kCompletion, ": status " + std::to_string(status));
    ExpectSame(request, "the frame number of a request that is over", request.rtFrameNumber, 0);
}

/// Others' results come from within, where the plan says so.
void Player::Callback(const Request& request, Within callback, const std::string& with) {
    Tell(std::string(NameOf(callback)) + " for request " + std::to_string(request.index + 1) +
         with);
    if ((callback & mPlan.within) != 0) {
        ++mDepth;
        GoOn();
        --mDepth;
        Tell(std::string(NameOf(callback)) + " returns");
    }
}

// --- Words --------------------------------------------------------------------------------------

void Player::Tell(const std::string& line) const {
    if (mSettings.tells && mHeapBlocks.has_value()) { // Not of the warm-up.
        const char* const who = !mVendor.has_value()   ? ""
                                : mVendor->IsCurrent() ? "vendor's thread  "
                                                       : "host's thread    ";
        std::printf("  %s%*s%s\n", who, static_cast<int>(2 * mDepth), "", line.c_str());
        (void)fflush(stdout); // Whatever happens next.
    }
}

void Player::Expect(bool holds, const Request& request, const std::string& what) const {
    if (!holds) {
        mSettings.fail("request " + std::to_string(request.index + 1) + ": " + what);
    }
}

void Player::ExpectSame(const Request& request, const char* what, uint64_t got,
                        uint64_t must) const {
    if (got != must) {
        Expect(false, request,
               std::string(what) + " is " + std::to_string(got) + " and must be " +
                   std::to_string(must));
    }
}

} // namespace schedules
