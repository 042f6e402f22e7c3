/// What the library costs beside straight-line code: `./dev bench`.
///
/// Each measurement is a pair: the library through its table, and the floor, on the same vendor and
/// host. They take turns in rounds, and the figure is the median over the rounds of the library's
/// time divided by the floor's, so that a busy machine hits both.
#include "bench/floor.h"
#include "bench/heap.h"
#include "kit/figures.h"
#include "standin/control.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <barrier>
#include <cstdio>
#include <ctime>
#include <deque>
#include <functional>
#include <numeric>
#include <random>
#include <thread>

namespace bench {
namespace {

// --- Two codes in turns

using Work = std::function<void()>;

/// In nanoseconds. A thread's own clock has the time that it had on a core.
template <clockid_t Clock> double Now() {
    timespec now = {};
    clock_gettime(Clock, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// What one of the two does, and how many nanoseconds it took in each round for a unit of its work.
struct Side {
    Work work;
    Work prepare = [] {}; ///< Not timed.
    std::vector<double> times = {};

    void Append(const Side& other) {
        times.insert(times.end(), other.times.begin(), other.times.end());
    }

#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Walloca" // A page at most.
    /// Works with the stack elsewhere within its page in each round: where it happens to lie in a
    /// process is worth several percent, and must not be taken for the code's own doing.
    template <clockid_t Clock> __attribute__((noinline)) void Time(size_t units) {
        constexpr size_t kPage = 4096;
        constexpr size_t kStep = 16; // The least by which a stack is aligned.
        auto* const moved =
            static_cast<volatile char*>(__builtin_alloca(kStep + times.size() * kStep % kPage));
        moved[0] = 0;
        const double start = Now<Clock>();
        work();
        times.push_back((Now<Clock>() - start) / static_cast<double>(units));
    }
#pragma clang diagnostic pop
};

/// Both, with the same work.
struct Pair {
    Side library;
    Side floor;
    size_t units; ///< In one call of either's work.

    /// Runs both in turns, first the one and then the other, for each round of `state`.
    void Measure(benchmark::State& state, double bar = kNoBar) {
        Side* first = &library;
        Side* second = &floor;
        for ([[maybe_unused]] auto round : state) {
            for (Side* side : {first, second}) {
                side->prepare();
                side->Time<CLOCK_MONOTONIC>(units);
            }
            std::swap(first, second);
            state.SetIterationTime(library.times.back() * 1e-9);
        }
        Report(state, bar);
    }

    void Report(benchmark::State& state, double bar) const {
        std::vector<double> ratios(library.times.size());
        std::transform(library.times.begin(), library.times.end(), floor.times.begin(),
                       ratios.begin(), std::divides<>());
        state.counters["library"] = Median(library.times);
        state.counters["floor"] = Median(floor.times);
        state.counters["ratio"] = Median(std::move(ratios));
        state.counters["bar"] = bar;
    }
};

// --- Requests

/// Sessions of a camera, the library's or the floor's, with a request for each.
template <class AnyCamera> class Sessions {
  public:
    explicit Sessions(const Inputs& inputs, size_t numStreams = 1, size_t featuresPerStream = 1,
                      uint32_t cameraId = 0)
        : mOutStreams(numStreams, MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888)), mCamera(cameraId) {
        for (size_t i = 0; i < numStreams * featuresPerStream; ++i) {
            mRecords.emplace_back(inputs, cameraId, "Feature" + std::to_string(i),
                                  &mOutStreams[i / featuresPerStream]);
            mRequests.push_back(&mRecords.back());
        }
        // Neither a list's order nor an address's helps to guess which one is next.
        // NOLINTNEXTLINE(cert-msc32-c, cert-msc51-cpp): the same order for both, and each time
        std::shuffle(mRequests.begin(), mRequests.end(), std::minstd_rand(1));
        ReopenFrom(0);
    }

    size_t Count() const { return mRequests.size(); }
    void SubmitAll(size_t times) {
        for (size_t i = 0; i < times; ++i) {
            for (HostRequest* request : mRequests) {
                mCamera.Submit(*request);
            }
        }
        mSubmitted += times * Count();
    }
    void ReopenFrom(size_t first) {
        CloseAll();
        for (size_t i = first; i < Count(); ++i) {
            Open(i);
        }
    }
    void Open(size_t index) {
        mCamera.Open(*mRequests[index]);
        ++mSubmitted;
    }
    void CloseAll() { mCamera.CloseAll(); }

    /// Whether each request that was submitted is completed.
    bool IsIdle() const {
        return mSubmitted == std::accumulate(mRecords.begin(), mRecords.end(), size_t{0},
                                             [](size_t sum, const HostRequest& request) {
                                                 return sum + request.privData.completed;
                                             });
    }

  private:
    std::vector<camera3_stream> mOutStreams;
    std::deque<HostRequest> mRecords;
    std::vector<HostRequest*> mRequests;
    size_t mSubmitted = 0;
    AnyCamera mCamera;
};

/// The same for both. Each has records of its own.
struct Traffic {
    template <class... Args> explicit Traffic(const Args&... args)
        : library(args...), floor(args...) {}

    /// What `act` does with the sessions, and `prepare` before.
    template <class Act, class Prepare = std::identity>
    Pair Both(size_t units, Act act, Prepare prepare = {}) {
        return {{[this, act] { act(library); }, [this, prepare] { (void)prepare(library); }},
                {[this, act] { act(floor); }, [this, prepare] { (void)prepare(floor); }},
                units};
    }

    template <class... Acts>
    Pair Measure(benchmark::State& state, double bar, size_t units, Acts... acts) {
        Pair pair = Both(units, acts...);
        pair.Measure(state, bar);
        ExpectIdle(state);
        return pair;
    }

    void ExpectIdle(benchmark::State& state) const {
        if (!library.IsIdle() || !floor.IsIdle()) {
            state.SkipWithError("not every request was completed");
        }
    }

    Sessions<Camera> library;
    Sessions<FloorCamera> floor;
};

/// A batch is long enough for the clock.
constexpr size_t kBatch = 256;

/// Has the work fail that does not call the heap just so often for each of its requests.
void ExpectHeapCalls(benchmark::State& state, HeapCalls expected, size_t requests,
                     const Work& work) {
    const HeapCalls before = t_heapCalls;
    work();
    const HeapCalls found = t_heapCalls - before;
    state.counters["new"] = static_cast<double>(found.allocations) / static_cast<double>(requests);
    state.counters["delete"] = static_cast<double>(found.frees) / static_cast<double>(requests);
    if (found != HeapCalls{expected.allocations * requests, expected.frees * requests}) {
        state.SkipWithError("the heap calls are others than expected");
    }
}

/// Of a request: itself with its input array, its output buffer, and a format record for each raw
/// buffer, of which the completion frees the first.
HeapCalls LibrarysHeapCalls(const Inputs& inputs) {
    const auto raws = static_cast<uint64_t>(
        std::count_if(std::begin(inputs.formats), std::end(inputs.formats), [](int32_t format) {
            return format != 0 && format != HAL_PIXEL_FORMAT_YCBCR_420_888;
        }));
    return {2 + raws * inputs.sets, 2 + std::min(raws, uint64_t{1})};
}

void MeasureRequests(benchmark::State& state, const RequestCase& requests) {
    Traffic traffic(requests.inputs, requests.streams, requests.featuresPerStream);
    const size_t count = traffic.library.Count();
    // A burst leaves format records: fewer of them, so that memory does not become the measurement.
    const size_t repeats =
        std::max<size_t>(1, kBatch / count / std::max(1U, 2 * requests.inputs.sets));
    traffic.Measure(state, requests.bar, repeats * count,
                    [=](auto& side) { side.SubmitAll(repeats); });
    ExpectHeapCalls(state, LibrarysHeapCalls(requests.inputs), count,
                    [&] { traffic.library.SubmitAll(1); });
}

/// Results alone: the requests of a batch wait before the clock starts.
void MeasureResults(benchmark::State& state) {
    Traffic traffic(kOneRaw);
    StandinControl()->SetDelivery(standin::Delivery::ByHand);
    const Pair pair = traffic.Measure(
        state, kNoBar, kBatch, [](auto&) { StandinControl()->DeliverInstant(); },
        [](auto& side) { side.SubmitAll(kBatch); });
    pair.library.prepare();
    ExpectHeapCalls(state, {0, 3}, kBatch, pair.library.work);
    StandinControl()->SetDelivery(standin::Delivery::OnCallerThread);
}

/// Each thread has a camera of its own, and all start each of their batches at the same time. What
/// counts is the time on a core, since there may be fewer cores than threads.
void MeasureFourCameras(benchmark::State& state) {
    constexpr uint32_t kCameras = 4;
    std::deque<Traffic> cameras;
    std::deque<Pair> pairs;
    std::barrier<> start(kCameras);
    std::vector<std::thread> threads;
    for (uint32_t id = 0; id < kCameras; ++id) {
        pairs.push_back(cameras.emplace_back(kOneRaw, 1U, 1U, id).Both(4 * kBatch, [](auto& side) {
            side.SubmitAll(4 * kBatch);
        }));
        threads.emplace_back([&start, &pair = pairs.back(), rounds = state.max_iterations] {
            for (auto i = 0 * rounds; i < rounds; ++i) {
                for (Side* side : {&pair.library, &pair.floor}) {
                    start.arrive_and_wait();
                    side->Time<CLOCK_THREAD_CPUTIME_ID>(pair.units);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    Pair all = {};
    for (const Pair& each : pairs) {
        all.library.Append(each.library);
        all.floor.Append(each.floor);
    }
    for ([[maybe_unused]] auto round : state) {
        state.SetIterationTime(Median(all.library.times) * 1e-9);
    }
    all.Report(state, kBar);
    for (const Traffic& traffic : cameras) {
        traffic.ExpectIdle(state);
    }
}

/// Requests whose calls both layers record, beside the same ones without layers. What recording
/// adds is held against a bar for each call across the boundary.
void MeasureRecording(benchmark::State& state) {
    constexpr double kMostAdded = 2000; // Nanoseconds.
    const Inputs inputs = {{HAL_PIXEL_FORMAT_RAW10}, 8};
    Sessions<Camera> plain(inputs);
    const Recorder recorder;
    Sessions<RecordedCamera> recorded(inputs, 1, 1, 1);
    const uint64_t before = recorder.CountCalls();
    recorded.SubmitAll(1);
    const auto calls = static_cast<double>(recorder.CountCalls() - before);
    constexpr size_t kRequests = kBatch / 16;
    Pair pair{
        {[&] { recorded.SubmitAll(kRequests); }}, {[&] { plain.SubmitAll(kRequests); }}, kRequests};
    pair.Measure(state);
    state.counters["calls"] = calls;
    state.counters["added"] = (Median(pair.library.times) - Median(pair.floor.times)) / calls;
    state.counters["bar"] = kMostAdded;
    ExpectHeapCalls(state, LibrarysHeapCalls(inputs), kRequests, pair.library.work);
    if (!plain.IsIdle() || !recorded.IsIdle()) {
        state.SkipWithError("not every request was completed");
    }
}

// --- The life of a session beside others

/// A session's first request: it is opened and configured, and the request submitted and completed.
void MeasureOpening(benchmark::State& state, size_t others) {
    Traffic traffic(kOneRaw, others + 1);
    traffic.Measure(
        state, kNoBar, 1, [](auto& side) { side.Open(0); }, [](auto& side) { side.ReopenFrom(1); });
}

/// A flush, for each of the sessions that it closes.
void MeasureClosing(benchmark::State& state, size_t others) {
    Traffic traffic(kOneRaw, others + 1);
    traffic.Measure(
        state, kNoBar, others + 1, [](auto& side) { side.CloseAll(); },
        [](auto& side) { side.ReopenFrom(0); });
}

// --- The metadata and buffer calls

/// A call through the table, and the vendor's entry behind it.
struct CallCase {
    const char* name;
    void (*library)(PlatFormIntCallbacks&);
    void (*floor)(const Vendor&);
};

uint32_t g_word; ///< In the place of all objects.
ChiMetadataTagEntry g_entry;
ChiStream g_stream;
camera3_stream_buffer g_theirs;
ChiStreamBuffer g_ours;

const CallCase kCalls[] = {
    {"CreateAndroidMetadata", [](auto& t) { t.CreateAndroidMetadata(&t, &g_word, 1, &g_word); },
     [](auto& v) { v.metadata->pCreateAndroid(v.metadata, &g_word, 1, 1, 1, &g_word); }},
    {"CreateByAndroidMetadata", [](auto& t) { t.CreateByAndroidMetadata(&t, &g_word); },
     [](auto& v) { v.metadata->pCreateFromAndroid(v.metadata, &g_word, 0, 0, 0); }},
    {"ReleaseAndroidMetadata", [](auto& t) { t.ReleaseAndroidMetadata(&t, &g_word); },
     [](auto& v) { v.metadata->pReleaseAndroid(v.metadata, &g_word); }},
    {"CreateWithUsage", [](auto& t) { t.CreateWithUsage(&t, &g_word, 1, 0); },
     [](auto& v) { v.metadata->pCreateWithUsage(v.metadata, &g_word, 1, 0); }},
    {"Copy", [](auto& t) { t.Copy(&t, &g_word, &g_word, 0); },
     [](auto& v) { v.metadata->pCopy(&g_word, &g_word, 0); }},
    {"MetadataDestroy", [](auto& t) { t.MetadataDestroy(&t, &g_word); },
     [](auto& v) { v.metadata->pDestroy(&g_word); }},
    {"GetTag", [](auto& t) { t.GetTag(&t, &g_word, 1, &g_word, 0); },
     [](auto& v) { v.metadata->pGetTag(&g_word, 1, 0, &g_entry); }},
    {"SetTag", [](auto& t) { t.SetTag(&t, &g_word, 1, &g_word, 1, 0); },
     [](auto& v) { v.metadata->pSetTag(&g_word, 1, &g_word, 1, 0); }},
    {"DeleteTag", [](auto& t) { t.DeleteTag(&t, &g_word, 1); },
     [](auto& v) { v.metadata->pDeleteTag(&g_word, 1); }},
    {"GetImageBuffer", [](auto& t) { t.GetImageBuffer(&t, &g_stream); },
     [](auto& v) { v.buffers->pGetImageBuffer(&g_word); }},
    {"ReleaseImageBuffer", [](auto& t) { t.ReleaseImageBuffer(&t, &g_word); },
     [](auto& v) { v.buffers->pReleaseImageBuffer(&g_word); }},
    {"GetCPUAddress", [](auto& t) { t.GetCPUAddress(&t, &g_word); },
     [](auto& v) { v.buffers->pGetCPUAddress(&g_word); }},
    {"TranslateToBuffer", [](auto& t) { t.TranslateToBuffer(&t, &g_theirs, &g_ours); },
     [](auto& v) { v.interface->pTranslateToChiBuffer(&g_theirs, &g_ours); }},
    {"TranslateFromBuffer", [](auto& t) { t.TranslateFromBuffer(&t, &g_ours, &g_theirs); },
     [](auto& v) { v.interface->pTranslateFromChiBuffer(&g_ours, &g_theirs); }},
};

void MeasureCall(benchmark::State& state, const CallCase& call) {
    constexpr size_t kUnits = 1000;
    Camera camera(0);
    const auto repeat = [](auto function, auto& argument) {
        return [function, &argument] {
            for (size_t i = 0; i < kUnits; ++i) {
                function(argument);
            }
        };
    };
    Pair{{repeat(call.library, camera.table)}, {repeat(call.floor, TheVendor())}, kUnits}.Measure(
        state);
}

// --- The table

/// Prints a line for each measurement as it is done, and whether its bar holds; and notes it.
class Table final : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context& context) override {
        PrintBasicContext(&GetErrorStream(), context);
        std::printf("%-34s %12s %12s %8s %14s   %s\n", "", "library", "floor", "ratio",
                    "new/delete", "bar");
        return true;
    }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const std::string& name = run.run_name.function_name;
            std::printf("%-34s ", name.c_str());
            if (run.error_occurred) {
                std::printf("failed: %s\n", run.error_message.c_str());
                kit::NoteFinding(name + ": " + run.error_message);
                mHolds = false;
            } else {
                Print(name, run.counters);
            }
        }
        std::fflush(stdout);
    }

    bool Holds() const { return mHolds; }

  private:
    void Print(const std::string& name, benchmark::UserCounters values) {
        const double bar = values["bar"];
        const bool isAdded = values.contains("added");
        const bool hasBar = bar > kNoBar;
        const auto figure = [&](const char* what, const char* unit, bool isJudged = false) {
            const double value = values[what];
            kit::NoteFigure(name + "; " + what, value, unit,
                            isJudged ? kit::Bar{.most = bar} : kit::Bar{});
            return value;
        };
        std::printf("%9.1f ns ", figure("library", "ns"));
        std::printf("%9.1f ns ", figure("floor", "ns"));
        std::printf("%8.3f ", figure("ratio", "", hasBar && !isAdded));
        if (values.contains("new")) {
            std::printf("%12.0f/", figure("new", ""));
            std::printf("%.0f", figure("delete", ""));
        } else {
            std::printf("%14s", "");
        }
        if (isAdded) {
            std::printf("   %.0f of %.0f ns ", figure("added", "ns", true), bar);
            std::printf("for each of %.0f calls ", figure("calls", ""));
        } else if (hasBar) {
            std::printf("   %.2f ", bar);
        } else {
            std::printf("   -\n");
            return;
        }
        const bool holds = values[isAdded ? "added" : "ratio"] <= bar;
        mHolds = mHolds && holds;
        std::printf(holds ? "holds\n" : "DOES NOT HOLD\n");
    }

    bool mHolds = true;
};

template <typename... Args> void Register([[maybe_unused]] const std::string& name,
                                          [[maybe_unused]] int rounds,
                                          [[maybe_unused]] Args... args) {
#ifndef __clang_analyzer__ // It takes what the framework keeps for lost.
    benchmark::RegisterBenchmark(name.c_str(), args...)->UseManualTime()->Iterations(rounds);
#endif
}

void RegisterAll() {
    for (const RequestCase& requests : kRequestCases) {
        Register(requests.name, 1001, MeasureRequests, requests);
    }
    Register("4 cameras on 4 threads", 501, MeasureFourCameras);
    Register("result alone", 1001, MeasureResults);
    Register("8 sets, recorded", 1001, MeasureRecording);
    for (const size_t others : {1U, 64U, 1024U}) {
        const std::string beside = " a session beside " + std::to_string(others);
        Register("open" + beside, others > 64 ? 101 : 501, MeasureOpening, others);
        Register("close" + beside, others > 64 ? 101 : 501, MeasureClosing, others);
    }
    for (const CallCase& call : kCalls) {
        Register(call.name, 201, MeasureCall, call);
    }
}

} // namespace
} // namespace bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    // A camera's process has threads. Before there is a second one, locks cost next to nothing.
    std::thread([] {}).join();
    kit::NoteBuild(BENCH_LIBRARY);
    bench::LoadLibrary(BENCH_LIBRARY);
    bench::RegisterAll();
    bench::Table table;
    const size_t count = benchmark::RunSpecifiedBenchmarks(&table);
    std::printf(table.Holds() ? "All bars hold.\n" : "Not all bars hold.\n");
    return count != 0 && table.Holds() ? 0 : 1;
}
