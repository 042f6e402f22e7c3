/// One request from its submission to its completion, for a count of its instructions under
/// callgrind, which starts and stops at `OneRequest`. instructions.sh runs it.
#include "bench/device.h"

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

struct Case {
    const char* name;
    bench::Inputs inputs;
    uint32_t features; ///< On the request's stream; the request is for the last one.
};

constexpr Case kCases[] = {
    {"1-raw", {{HAL_PIXEL_FORMAT_RAW10}, 1}, 1},
    {"8-sets", {{HAL_PIXEL_FORMAT_RAW10}, 8}, 1},
    {"12-sets-of-2", {{HAL_PIXEL_FORMAT_RAW10, HAL_PIXEL_FORMAT_RAW16}, 12}, 1},
    {"yuv", {{HAL_PIXEL_FORMAT_YCBCR_420_888}, 1}, 1},
    {"8-features", {{HAL_PIXEL_FORMAT_RAW10}, 1}, 8},
};

} // namespace

/// Not inlined and not renamed, so that callgrind finds it.
extern "C" __attribute__((noinline)) uint32_t OneRequest(bench::Camera* camera,
                                                         bench::HostRequest* request);

uint32_t OneRequest(bench::Camera* camera, bench::HostRequest* request) {
    return camera->Submit(*request);
}

// NOLINTNEXTLINE(bugprone-exception-escape): whatever is thrown here ends the process
int main(int argc, char** argv) {
    for (const Case& each : kCases) {
        if (argc < 3) {
            std::printf("%s\n", each.name);
        } else if (std::strcmp(argv[1], each.name) == 0) {
            bench::LoadLibrary(argv[2]);
            bench::Camera camera(0);
            camera3_stream out = bench::MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888);
            std::deque<bench::HostRequest> others;
            for (uint32_t i = 1; i < each.features; ++i) {
                others.emplace_back(each.inputs, 0, "Feature" + std::to_string(i), &out);
                camera.Submit(others.back());
            }
            bench::HostRequest request(each.inputs, 0, "Feature0", &out);
            camera.Submit(request);
            // The session is open, and memory of each size is at hand.
            std::vector<std::unique_ptr<ChiInputFormat>> formats(size_t{2} *
                                                                 OemLayer::kMaxInputSets);
            for (auto& format : formats) {
                format = std::make_unique<ChiInputFormat>();
            }
            formats.clear();
            camera.Submit(request);
            const uint32_t status = OneRequest(&camera, &request);
            return status == 0 && request.privData.completed == 3 ? 0 : 1;
        }
    }
    return argc < 3 ? 0 : 2;
}
