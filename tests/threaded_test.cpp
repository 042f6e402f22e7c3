/// Several threads at once; also run under ThreadSanitizer.

#include "tests/support/device.h"

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <latch>
#include <thread>

namespace {

using standin::Delivery;
using standin::Entry;
using standin::Shape;
using test::Camera;
using test::Device;
using test::Event;
using test::Request;

/// Submits `requests` one after the other, each with buffers of its own, and waits for all of them.
void SubmitAll(Camera& camera, std::deque<Request>& requests) {
    for (Request& request : requests) {
        EXPECT_EQ(request.Submit(camera), 0U);
    }
    for (Request& request : requests) {
        EXPECT_TRUE(request.WaitComplete());
    }
}

void ExpectWholeAndInOrder(const Request& request) {
    const std::vector<Event> events = request.Events();
    ASSERT_GE(events.size(), 3U);
    EXPECT_EQ(request.Count(Event::Release), 1U);
    EXPECT_EQ(request.Count(Event::Complete), 1U);
    EXPECT_EQ(events[events.size() - 2].kind, Event::Release);
    EXPECT_EQ(events.back().kind, Event::Complete);
    EXPECT_EQ(events.back().status, 0U);
}

class ThreadedIn : public testing::TestWithParam<Shape> {};

INSTANTIATE_TEST_SUITE_P(Shapes, ThreadedIn,
                         testing::Values(Shape::MetadataFirst, Shape::BuffersFirst, Shape::Together,
                                         Shape::Partials),
                         [](const auto& info) { return "Shape" + std::to_string(info.index); });

TEST_P(ThreadedIn, FourCamerasEachWithAHostThreadAndVendorThreads) {
    constexpr uint32_t kCameras = 4;
    constexpr uint32_t kRequests = 12;
    Device device;
    device->SetDelivery(Delivery::OnSessionThread);
    device->SetShape(GetParam());
    device.Load();
    std::vector<std::thread> hosts;
    for (uint32_t id = 0; id < kCameras; ++id) {
        hosts.emplace_back([&device, id] {
            Camera camera(device, id);
            // Requests share the streams of the first two: two sessions for each camera.
            std::deque<Request> requests(kRequests);
            for (uint32_t i = 0; i < kRequests; ++i) {
                Request& request = requests[i];
                const Request& streams = requests[i % 2];
                request.wrapper.rtFrameNumber = 1000 * id + i;
                request.wrapper.identity.featureName = i % 2 == 0 ? "Night" : "Portrait";
                request.ShareStreams(streams);
                request.UseVendorBuffers(camera, 1 + i % 3);
            }
            SubmitAll(camera, requests);
            for (Request& request : requests) {
                ExpectWholeAndInOrder(request);
                EXPECT_EQ(request.Events().front().result.frame_number,
                          request.wrapper.rtFrameNumber);
                request.GiveBack(camera);
            }
            camera.Flush();
        });
    }
    for (std::thread& host : hosts) {
        host.join();
    }
    EXPECT_EQ(device->CallCount(Entry::OpenSession), 2U * kCameras);
    EXPECT_EQ(device->CallCount(Entry::ExecuteRequest), kRequests * kCameras);
}

TEST(Threaded, TwoHostThreadsOnOneCameraWhileSessionsAreMade) {
    constexpr int kRounds = 8;
    Device device;
    device->SetDelivery(Delivery::OnSessionThread);
    Camera camera(device);
    std::deque<Request> requests(4 * kRounds);
    for (size_t i = 0; i < requests.size(); ++i) {
        // Each round brings an identity that both threads ask for at once.
        requests[i].wrapper.identity.featureName = "Feature" + std::to_string(i / 4);
        requests[i].ShareStreams(requests[0]);
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
    for (Request& request : requests) {
        EXPECT_TRUE(request.WaitComplete());
        ExpectWholeAndInOrder(request);
        request.GiveBack(camera);
    }
    EXPECT_EQ(device->CallCount(Entry::OpenSession), static_cast<size_t>(kRounds));
}

TEST(Threaded, AHostMaySubmitAgainFromWithinTheCompletion) {
    constexpr int kRequests = 16;
    struct Chain {
        Camera* camera;
        std::deque<Request> requests;
        std::atomic<size_t> next{1};
    };
    static Chain* chain;
    Device device;
    device->SetDelivery(Delivery::OnSessionThread);
    Camera camera(device);
    Chain scene{&camera, std::deque<Request>(kRequests)};
    chain = &scene;
    for (Request& request : scene.requests) {
        request.ShareStreams(scene.requests[0]);
        request.UseVendorBuffers(camera);
        request.onRelease = [] {
            const size_t next = chain->next++;
            if (next < chain->requests.size()) {
                EXPECT_EQ(chain->requests[next].Submit(*chain->camera), 0U);
            }
        };
    }
    ASSERT_EQ(scene.requests[0].Submit(camera), 0U);
    for (Request& request : scene.requests) {
        EXPECT_TRUE(request.WaitComplete());
        ExpectWholeAndInOrder(request);
        request.GiveBack(camera);
    }
}

} // namespace
