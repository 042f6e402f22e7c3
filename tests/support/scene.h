/// The scene of the session and request tests: one camera, one request, results made by hand.
#pragma once

#include "adapterlayer/qcomadaptee.h"
#include "tests/support/device.h"

#include <cstring>
#include <deque>
#include <span>

namespace test {

using OfflineRequest = OemLayer::QcomAdaptee::OfflineRequest;
using SessionInfo = OemLayer::QcomAdaptee::PrivateSessionInfo;

/// Reads, and writes, a word at a byte offset of a record.
template <typename Word = uint64_t, typename Record> Word At(const Record& record, size_t offset) {
    Word word;
    std::memcpy(&word, reinterpret_cast<const char*>(&record) + offset, sizeof word);
    return word;
}
template <typename Record> void Put(Record& record, size_t offset, uint64_t word) {
    std::memcpy(reinterpret_cast<char*>(&record) + offset, &word, sizeof word);
}

/// The words of a record, of eight bytes each, are as given, and the others 0.
template <typename Record> void ExpectWords(const Record& record, Words words) {
    words.resize(sizeof record / 8);
    for (size_t i = 0; i < words.size(); ++i) {
        EXPECT_EQ(At(record, 8 * i), words[i]) << "at " << 8 * i;
    }
}

/// What the library keeps for a session, as the vendor gets it back with every result.
inline SessionInfo& InfoOf(const standin::SessionCopy& session) {
    return *static_cast<SessionInfo*>(session.pCallbacks->pPrivateCallbackData);
}

/// What a host was told about a request, in order: M and B for a result's metadata and each of its
/// buffers, b for one that was not translated, - for an empty result, R for the release, C with the
/// status for the completion. The first `skipped` events are left out.
inline std::string Story(const Request& request, size_t skipped = 0) {
    std::string story;
    const std::vector<Event> events = request.Events();
    for (const Event& event : std::span(events).subspan(skipped)) {
        story += story.empty() ? "" : " ";
        if (event.kind != "result") {
            story += event.kind == "release" ? "R" : "C" + std::to_string(event.status);
            continue;
        }
        std::string brought = event.result.result != nullptr ? "M" : "";
        for (const camera3_stream_buffer& buffer : event.buffers) {
            brought += buffer.stream != nullptr ? 'B' : 'b';
        }
        story += brought.empty() ? "-" : brought;
    }
    return story;
}

/// Submits. \returns the status, and the story of what came at once, as in "0 MB R C0".
inline std::string OutcomeOf(Request& request, Camera& camera) {
    const size_t before = request.Events().size();
    const std::string status = std::to_string(request.Submit(camera));
    const std::string story = Story(request, before);
    return status + (story.empty() ? "" : " ") + story;
}

/// A hand-made result, with a buffer for each status.
struct Result {
    std::vector<uint32_t> statuses = {};
    ChiMetadataHandle metadata = nullptr;
    uint32_t partials = 0;
    uint32_t frame = 1;
    ChiOfflineResultBlock* pSecond = nullptr;
};

/// A camera and a request that holds buffers of the vendor.
struct Scene {
    Device device;
    Camera camera;
    Request request;
    std::deque<camera3_stream> inputs;

    explicit Scene(Delivery delivery = Delivery::OnCallerThread, uint32_t cameraId = 0)
        : camera(device, cameraId) {
        device->SetDelivery(delivery);
        device->SetShape(Shape::Together);
        request.UseVendorBuffers(camera);
        device->ClearRecords();
    }
    ~Scene() { request.GiveBack(camera); }

    /// Inputs of these formats, and handles that tell which one they are: 1000 and up for raw
    /// buffers, 2000 for metadata, 3000 for YUV buffers; a0, a1 and a2 for their managers.
    void UseWords(const std::vector<int32_t>& formats, uint32_t sets = 1) {
        device.ExpectViolations();
        request.privData.inputStreams.clear();
        for (const int32_t format : formats) {
            request.privData.inputStreams.push_back(&inputs.emplace_back(MakeStream(format)));
        }
        request.wrapper.numBuffers = sets;
        for (size_t i = 0; i < 26; ++i) {
            Put(request.wrapper, 216 + 8 * i, 0x1000 + i);
        }
        for (size_t i = 0; i < 12; ++i) {
            Put(request.wrapper, 120 + 8 * i, 0x2000 + i);
            Put(request.wrapper, 2632 + 8 * i, 0x3000 + i);
        }
        Put(request.privData, 0, 0xA0);
        Put(request.privData, 8, 0xA1);
        Put(request.privData, 40, 0xA2);
    }

    uint32_t Submit() { return request.Submit(camera); }
    std::string Outcome() { return OutcomeOf(request, camera); }
    uint32_t Submit(const std::string& feature) {
        request.wrapper.identity.featureName = feature;
        return Submit();
    }
    standin::SessionCopy Session() const { return device->Sessions().at(0); }
    SessionInfo& Info() const { return InfoOf(Session()); }
    /// The device's own table: an entry that is replaced stays so in the test.
    ChiOfflineInterface& Vendor() const { return *Info().pAdaptee->GetChiOfflineIntfOps(); }
    standin::Execution Executed(size_t index = 0) const { return device->Executions().at(index); }
    OfflineRequest& Pending(size_t index = 0) const {
        return *static_cast<OfflineRequest*>(Executed(index).request.pPrivateData);
    }

    /// Calls the session's result callback.
    void Receive(ChiOfflineCaptureResultInfo* info) const {
        Session().pCallbacks->ProcessCaptureResultCb(Session().pCallbacks, 1, info);
    }
    void Receive(ChiOfflineResultBlock block, const Result& rest = {}, size_t index = 0) const {
        ChiOfflineCaptureResultInfo info = {rest.frame, &block, rest.pSecond, &Pending(index)};
        Receive(&info);
    }
    /// Delivers a result through it. Buffers are copies of the output.
    void Send(const Result& result, size_t index = 0) const {
        std::vector<ChiStreamBuffer> buffers(result.statuses.size(),
                                             Executed(index).output.buffers.at(0));
        for (size_t i = 0; i < buffers.size(); ++i) {
            buffers[i].bufferStatus = result.statuses[i];
        }
        const auto count = static_cast<uint32_t>(buffers.size());
        Receive({count, buffers.data(), result.partials, result.metadata}, result, index);
    }
    /// Completes a request, whatever it waits for, so that nothing of it stays.
    void Finish(size_t index = 0) const {
        Info().totalResult = Pending(index).numReceivedBuffers;
        Send({.metadata = Pending(index).pOutputMetadata}, index);
    }

    /// A log in which the addresses of this scene are names.
    std::string Named(std::string log) const {
        const auto name = [&log](const void* address, const std::string& as) {
            log = WithName(log, address, as);
        };
        name(&request.raw, "<in>");
        name(&request.outputStream, "<out>");
        name(&request.privData, "<private>");
        name(&request.output, "<buffer>");
        name(&request.callbacks, "<callbacks>");
        for (const size_t offset : {120, 216, 320}) {
            name(reinterpret_cast<const char*>(&request.wrapper) + offset,
                 "<wrapper+" + std::to_string(offset) + ">");
        }
        name(request.wrapper.pChiMetadataHandles[0], "<rt metadata>");
        for (const standin::SessionCopy& session : device->Sessions()) {
            name(MadeUp(session.handle), "<session>");
            name(session.config.ppChiStreams, "<list>");
            name(session.config.pSessionSettings, "<settings>");
            for (size_t j = 0; j < session.streamPointers.size(); ++j) {
                name(session.streamPointers[j], "<stream " + std::to_string(j) + ">");
            }
        }
        for (const standin::Execution& execution : device->Executions()) {
            name(execution.output.set.pMetadata, "<metadata>");
        }
        for (const Event& event : request.Events()) {
            name(event.result.result, "<android metadata>");
        }
        return log;
    }
};

/// With one request that waits for its results.
struct Submitted : Scene {
    Submitted() : Scene(Delivery::ByHand) { EXPECT_EQ(Submit(), 0U); }
};

} // namespace test
