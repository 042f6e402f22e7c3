/// Requests from their submission to their completion, one to each session of a camera, for a count
/// of their instructions under callgrind, which starts and stops at `OneRequest`. instructions.sh
/// runs it.
#include "bench/device.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <vector>

/// Not inlined and not renamed, so that callgrind finds it.
extern "C" __attribute__((noinline)) uint32_t OneRequest(bench::Camera* camera,
                                                         bench::HostRequest* request);

uint32_t OneRequest(bench::Camera* camera, bench::HostRequest* request) {
    return camera->Submit(*request);
}

namespace {

/// \returns whether each request was completed at once.
bool Run(const bench::RequestCase& run) {
    bench::Camera camera(0);
    std::vector<camera3_stream> streams(run.streams,
                                        bench::MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888));
    std::deque<bench::HostRequest> requests;
    for (size_t i = 0; i < run.streams * run.featuresPerStream; ++i) {
        camera.Open(requests.emplace_back(run.inputs, 0, "Feature" + std::to_string(i),
                                          &streams[i / run.featuresPerStream]));
    }
    // Memory of each size is at hand.
    std::vector<std::unique_ptr<ChiInputFormat>> formats(size_t{2} * OemLayer::kMaxInputSets);
    for (auto& format : formats) {
        format = std::make_unique<ChiInputFormat>();
    }
    formats.clear();
    // Every session gets a request, its first since it was opened: where it was forgotten while
    // others were opened, searching for it is counted.
    return std::all_of(requests.begin(), requests.end(), [&camera](bench::HostRequest& request) {
        return OneRequest(&camera, &request) == 0 && request.privData.completed == 2;
    });
}

} // namespace

/// Runs the case with the given number, or lists how many requests each case counts, and its name.
// NOLINTNEXTLINE(bugprone-exception-escape): whatever is thrown here ends the process
int main(int argc, char** argv) {
    if (argc == 3) {
        bench::LoadLibrary(argv[2]);
        return Run(bench::kRequestCases[std::strtoul(argv[1], nullptr, 10)]) ? 0 : 1;
    }
    for (const bench::RequestCase& each : bench::kRequestCases) {
        std::printf("%zu %s\n", each.streams * each.featuresPerStream, each.name);
    }
    return 0;
}
