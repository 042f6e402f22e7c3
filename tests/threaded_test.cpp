/// Several threads at once; also run under ThreadSanitizer, as the endurance run and the scenarios
/// are. Those have cameras and vendor threads side by side, and submissions from within callbacks.

#include "contract/tap.h"
#include "tests/support/scene.h"

#include <deque>
#include <latch>
#include <thread>

namespace {

using namespace test;

TEST(Threaded, TwoHostThreadsOnOneCameraWhileSessionsAreMade) {
    constexpr size_t kRounds = 8;
    Device device;
    device->SetDelivery(Delivery::OnSessionThread);
    Camera camera(device);
    std::deque<Request> requests(4 * kRounds);
    for (size_t i = 0; i < requests.size(); ++i) {
        // Each round brings an identity that both threads ask for at once.
        camera3_stream* const output = requests[i].output.stream = &requests[0].outputStream;
        requests[i].wrapper.identity = {output, 0, "Feature" + std::to_string(i / 4)};
        requests[i].privData.inputStreams = {&requests[0].raw};
        requests[i].UseVendorBuffers(camera);
    }
    std::latch start(2);
    auto submitFrom = [&](size_t first) {
        start.arrive_and_wait();
        for (size_t i = first; i < requests.size(); i += 2) {
            EXPECT_EQ(requests[i].Submit(camera), 0U);
        }
    };
    std::thread other(submitFrom, 1);
    submitFrom(0);
    other.join();
    device->WaitIdle();
    for (Request& request : requests) {
        EXPECT_EQ(Story(request), "M B R C0");
        request.GiveBack(camera);
    }
    EXPECT_EQ(device->CallCount(Entry::OpenSession), kRounds);
}

TEST(Threaded, AnOutputMayBecomeAnInputAndBackWhileRequestsAreSubmitted) {
    Scene scene;
    EXPECT_EQ(scene.Submit(), 0U); // Makes the session.
    std::thread owner([type = &scene.request.outputStream.stream_type] {
        for (int32_t i = 0; i < 1000; ++i) {
            __atomic_store_n(type, i % 2, __ATOMIC_RELAXED);
        }
    });
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(scene.Submit(), 0U);
    }
    owner.join();
}

TEST(Threaded, TheRulesTakeResultsOfSeveralThreadsWhileTheSubmissionReturns) {
    using contract::Entry;
    constexpr uint32_t kThreads = 4;
    constexpr uint32_t kResults = 200;
    Device device; // Looks for violations when it goes.
    contract::Tap& tap = *device->Feed();
    Request request;
    PlatFormIntCallbacks table{};
    const camera3_stream_buffer buffer = request.output;
    camera3_capture_result result = {.frame_number = 7,
                                     .result = static_cast<camera_metadata*>(MadeUp(1)),
                                     .num_output_buffers = 1,
                                     .output_buffers = &buffer,
                                     .partial_result = 355};
    OemLayer::RequestPrivData* const record = &request.privData;
    std::latch start(kThreads + 1);
    std::vector<std::thread> vendors;
    for (uint32_t i = 0; i < kThreads; ++i) {
        vendors.emplace_back([&] {
            start.arrive_and_wait();
            for (uint32_t j = 0; j < kResults; ++j) {
                tap.Around<Entry::CaptureResult>([] {}, 0U, record, &result);
            }
        });
    }
    const auto submit = [&] { return start.arrive_and_wait(), 0U; };
    tap.Around<Entry::SubmitRequestFromRT>(
        submit, &table, static_cast<void*>(&request.wrapper), static_cast<void*>(record),
        static_cast<void*>(&request.output), static_cast<void*>(&request.callbacks));
    for (std::thread& vendor : vendors) {
        vendor.join();
    }
    tap.Around<Entry::ReleaseRtBuffers>([] {}, 0U, record);
    tap.Around<Entry::RequestComplete>([] {}, 0U, record, 0U);
}

} // namespace
