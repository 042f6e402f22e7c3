/// An open session: its thread, and the results that it delivers.
#include "standin/session.h"

#include "standin/pixels.h"

#include <algorithm>

namespace standin {
namespace {

/// Indexed by Shape.
constexpr std::initializer_list<ShapeResult> kResults[] = {
    {{.metadata = true}, {.buffer = true}},
    {{.buffer = true, .partials = 1}, {.metadata = true}},
    {{.metadata = true, .buffer = true}},
    {{.metadata = true, .partials = 2}, {.buffer = true, .partials = 1}, {}},
    {{.metadata = true, .buffer = true, .bufferStatus = CAMERA3_BUFFER_STATUS_ERROR}},
    {{.metadata = true, .buffer = true, .secondBlock = true}},
};
static_assert(std::size(kResults) == static_cast<size_t>(Shape::Count));

/// The records of one result. They are on the heap, so that a reader after the callback is caught.
struct ResultRecords {
    ChiStreamBuffer buffer;
    ChiOfflineResultBlock block;
    ChiOfflineResultBlock second;
    ChiOfflineCaptureResultInfo info;
};

void Send(const ChiOfflineSessionCallbacks* callbacks, const Execution& execution,
          const ChiStreamBuffer& output, const ShapeResult& result) {
    const auto records = std::make_unique<ResultRecords>();
    records->buffer = output;
    if (result.bufferStatus != CAMERA3_BUFFER_STATUS_OK) {
        records->buffer.bufferStatus = result.bufferStatus;
    }
    if (result.buffer) {
        records->block = {.numBuffers = 1, .pBuffers = &records->buffer};
    }
    if (result.secondBlock) {
        records->second = records->block;
    }
    records->block.numPartialMetadata = result.partials;
    records->block.pMetadata = result.metadata ? execution.output.set.pMetadata : nullptr;
    records->info = {.frameNumber = static_cast<uint32_t>(execution.offlineFrame),
                     .pResult = &records->block,
                     .pSecondResult = result.secondBlock ? &records->second : nullptr,
                     .pPrivateData = execution.request.pPrivateData};
    auto* const info = &records->info;
    Watched<contract::Entry::ProcessCaptureResult>(
        [=] { callbacks->ProcessCaptureResultCb(callbacks, 1, info); }, callbacks, 1U, info);
}

} // namespace

std::span<const ShapeResult> ResultsOf(Shape shape) {
    const auto& results = kResults[static_cast<size_t>(shape)];
    return {results.begin(), results.size()};
}

void Session::Stop() {
    auto device = Device().Lock();
    mClosing = true;
    device->inFlight -= mQueue.size();
    mQueue.clear();
    std::erase_if(device->waiting,
                  [this](const auto& item) { return item.second.session.get() == this; });
    mWake.notify_all();
    device->idle.notify_all();
    device.reset();
    if (mThread.get_id() == std::this_thread::get_id()) {
        mThread.detach(); // Against the contract.
    } else if (mThread.joinable()) {
        mThread.join();
    }
}

void Session::Run() {
    const auto self = shared_from_this();
    auto& device = Device();
    if (Observer* const observer = device.observer) {
        observer->NameThread("vendor session " + std::to_string(data.handle & UINT32_MAX) + ", " +
                             pName);
    }
    std::unique_lock lock(device.mutex);
    for (;;) {
        mWake.wait(lock, [this] { return mClosing || !mQueue.empty(); });
        if (device.script.latency.count() > 0) {
            mWake.wait_for(lock, device.script.latency, [this] { return mClosing; });
        }
        if (mClosing) {
            return;
        }
        Job job = TakeNext();
        const bool isShuffled = device.script.order == Order::Shuffled;
        lock.unlock();
        bool isDone = DeliverNext(job);
        while (!isDone && !isShuffled) {
            isDone = DeliverNext(job);
        }
        lock.lock();
        if (!isDone && !mClosing) {
            mQueue.push_back(std::move(job));
            continue;
        }
        --device.inFlight;
        device.idle.notify_all();
    }
}

/// The job whose turn it is. The state's mutex is held.
Job Session::TakeNext() {
    auto& script = Device().script;
    script.random = script.random * 1664525 + 1013904223;
    const size_t index =
        script.order == Order::Shuffled ? (script.random >> 16) % mQueue.size() : 0;
    const auto place = mQueue.begin() + static_cast<std::ptrdiff_t>(index);
    Job job = std::move(*place);
    mQueue.erase(place);
    return job;
}

void Session::Accept(const std::shared_ptr<const Execution>& execution) {
    auto& device = Device();
    std::unique_lock lock(device.mutex);
    Job job{shared_from_this(), execution, device.script.shape,
            device.script.asksForFrameworkBuffers};
    const size_t index = device.records.executionCount++;
    if (device.script.recording) {
        device.records.executions.push_back(execution);
    }
    if (device.script.delivery == Delivery::OnCallerThread) {
        lock.unlock();
        Deliver(job);
    } else if (device.script.delivery == Delivery::ByHand && !mClosing) {
        device.waiting.emplace(index, job);
        const WhenExecuted act = device.script.whenExecuted;
        lock.unlock();
        if (act) {
            act(index, *execution);
        }
    } else if (!mClosing) {
        if (!mThread.joinable()) {
            mThread = std::thread(&Session::Run, this);
        }
        mQueue.push_back(job);
        ++device.inFlight;
        mWake.notify_all();
    }
}

void Session::Deliver(Job& job) {
    while (!DeliverNext(job)) {
    }
}

/// Everything before the first result.
void Session::Prepare(Job& job) {
    const Execution& execution = *job.execution;
    if (!mNotified.exchange(true)) {
        const ChiOfflineSessionCallbacks* const callbacks = data.pCallbacks;
        Watched<contract::Entry::ProcessNotify>(
            [=] { callbacks->ProcessNotifyCb(callbacks, 0, nullptr); }, callbacks, 0U,
            static_cast<ChiOfflineMessageInfo*>(nullptr));
    }
    if (!execution.output.buffers.empty()) {
        job.output = execution.output.buffers[0];
    }
    if (job.asksForFrameworkBuffers && OutputStream() != nullptr) {
        AskFramework(job.output);
    }
    const Activity activity = Begin("develop");
    Develop(*this, execution, job.output);
}

/// Delivers the next result of a request. \returns whether it was the last one.
bool Session::DeliverNext(Job& job) {
    if (job.delivered == 0) {
        Prepare(job);
    }
    const auto results = ResultsOf(job.shape);
    const Activity activity = Begin("deliver");
    Send(data.pCallbacks, *job.execution, job.output, results[job.delivered]);
    return ++job.delivered == results.size();
}

/// Replaces the output by a buffer of the framework's, if there is one.
void Session::AskFramework(ChiStreamBuffer& output) const {
    const auto buffer = std::make_unique<ChiStreamBuffer>();
    const auto answer = std::make_unique<ChiOfflineQueryStreamBuffer>();
    answer->pBuffers = buffer.get();
    const ChiOfflineQueryBuffer query{std::bit_cast<camera3_stream*>(OutputStream()), 1};
    unsigned int returned = 0;
    const ChiOfflineSessionCallbacks* const callbacks = data.pCallbacks;
    const uint32_t result = Watched<contract::Entry::GetFrameworkBuffers>(
        [&] {
            return callbacks->GetFrameworkBuffers(callbacks, 1, &query, &returned, answer.get());
        },
        callbacks, 1U, &query, &returned, answer.get());
    if (result == 0 && returned == 1 && answer->numBuffers == 1) {
        output = *buffer;
    }
}

const ChiStream* Session::FindStream(const ChiStream* stream) const {
    const auto found = std::find(data.streamPointers.begin(), data.streamPointers.end(), stream);
    if (found == data.streamPointers.end()) {
        return nullptr;
    }
    return &data.streams[static_cast<size_t>(found - data.streamPointers.begin())];
}

ChiStream* Session::OutputStream() const {
    return data.streamPointers.empty() ? nullptr : data.streamPointers.back();
}

} // namespace standin
