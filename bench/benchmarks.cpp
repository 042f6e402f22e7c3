/// What the library costs beside straight-line code: `./dev bench`.
///
/// Each measurement is a pair: the library through its table, and the floor, on the same vendor and
/// host. They take turns in rounds, and the figure is the median over the rounds of the library's
/// time divided by the floor's, so that a busy machine hits both.
#include "bench/floor.h"
#include "bench/heap.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <thread>

namespace bench {
namespace {

constexpr double kNoBar = 0;

// --- Two codes in turns

double SteadyNow() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

/// The time that the calling thread had on a core, for threads that share cores.
[[maybe_unused]] double ThreadNow() {
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Nanoseconds per unit of work, round by round.
struct Rounds {
    std::vector<double> library;
    std::vector<double> floor;

    double Ratio() const {
        std::vector<double> ratios(library.size());
        std::transform(library.begin(), library.end(), floor.begin(), ratios.begin(),
                       std::divides<>());
        return Median(std::move(ratios));
    }
};

using Work = std::function<void()>;

template <double (*Now)()> double Time(const Work& work, size_t units) {
    const double start = Now();
    work();
    return (Now() - start) / static_cast<double>(units);
}

#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Walloca" // A page at most.
/// Works with the stack elsewhere within its page each time: where it happens to lie in a process is
/// worth several percent, and must not be taken for the code's own doing.
template <double (*Now)()>
__attribute__((noinline)) double TimeAnywhere(size_t round, const Work& work, size_t units) {
    constexpr size_t kPage = 4096;
    constexpr size_t kStep = 16; // The least by which a stack is aligned.
    auto* const moved =
        static_cast<volatile char*>(__builtin_alloca(kStep + round * kStep % kPage));
    moved[0] = 0;
    return Time<Now>(work, units);
}
#pragma clang diagnostic pop

void Report(benchmark::State& state, const Rounds& rounds, double bar = kNoBar) {
    state.counters["library"] = Median(rounds.library);
    state.counters["floor"] = Median(rounds.floor);
    state.counters["ratio"] = rounds.Ratio();
    state.counters["bar"] = bar;
}

/// Runs both in turns, first the one and then the other, for each round of `state`. The preparations
/// are not timed.
struct Pair {
    Work library;
    Work floor;
    size_t units; ///< Of work in one call of each.
    Work prepareLibrary = [] {};
    Work prepareFloor = [] {};

    Rounds Measure(benchmark::State& state) const {
        Rounds rounds;
        bool libraryFirst = true;
        for ([[maybe_unused]] auto round : state) {
            for (const bool isLibrary : {libraryFirst, !libraryFirst}) {
                (isLibrary ? prepareLibrary : prepareFloor)();
                (isLibrary ? rounds.library : rounds.floor)
                    .push_back(TimeAnywhere<SteadyNow>(rounds.library.size(),
                                                       isLibrary ? library : floor, units));
            }
            libraryFirst = !libraryFirst;
            state.SetIterationTime(rounds.library.back() * 1e-9);
        }
        return rounds;
    }
};

// --- Requests

/// Requests for sessions of one camera, in the library and in the floor. Each side has records of
/// its own.
class Traffic {
  public:
    Traffic(const Inputs& inputs, size_t numStreams, size_t featuresPerStream,
            uint32_t cameraId = 0)
        : mCamera(cameraId) {
        for (size_t i = 0; i < numStreams * featuresPerStream; ++i) {
            AddIdentity(inputs, cameraId, i, i % featuresPerStream == 0);
        }
        // Neither a list's order nor an address's helps to guess which one is next.
        for (auto* requests : {&mLibrary, &mFloor}) {
            // NOLINTNEXTLINE(cert-msc32-c, cert-msc51-cpp): the same order for both, and each time
            std::shuffle(requests->begin(), requests->end(), std::minstd_rand(1));
        }
        OpenSessions();
    }
    Traffic(const Traffic&) = delete;
    Traffic& operator=(const Traffic&) = delete;
    ~Traffic() { CloseFloor(); }

    size_t Count() const { return mLibrary.size(); }
    void SubmitLibrary() { SubmitLibrary(mLibrary); }
    void SubmitFloor() { SubmitFloor(mFloor); }

    /// How many of the requests that were submitted are not completed.
    int64_t Missing() const {
        int64_t missing = mSubmitted;
        for (const auto* requests : {&mLibrary, &mFloor}) {
            for (const auto& request : *requests) {
                missing -= request->host.privData.completed;
            }
        }
        return missing;
    }

    /// Sessions keep their requests for `Deliver`, or no longer do.
    void Hold(bool holds) {
        for (const auto* requests : {&mLibrary, &mFloor}) {
            for (const auto& request : *requests) {
                request->pVendor->holds = holds;
            }
        }
    }

  private:
    struct Request {
        Request(const Inputs& inputs, uint32_t cameraId, const std::string& feature,
                camera3_stream* pOut)
            : host(inputs, cameraId, feature, pOut) {}
        HostRequest host;
        VendorSession* pVendor = nullptr;
        FloorSession* pFloor = nullptr;
    };
    using Requests = std::vector<std::unique_ptr<Request>>;

    void AddIdentity(const Inputs& inputs, uint32_t cameraId, size_t number, bool newStream) {
        const std::string feature = "Feature" + std::to_string(number);
        for (auto* requests : {&mLibrary, &mFloor}) {
            if (newStream) {
                mOutStreams.push_back(MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888));
            }
            auto* const pOut = newStream ? &mOutStreams.back()
                                         : requests->back()->host.wrapper.identity.pOutStream;
            requests->push_back(std::make_unique<Request>(inputs, cameraId, feature, pOut));
        }
    }

    void OpenSessions() {
        for (const auto& request : mLibrary) {
            mCamera.Submit(request->host);
            request->pVendor = LastSession();
            ++mSubmitted;
        }
        for (const auto& request : mFloor) {
            request->pFloor = mFloorCamera.Open(request->host);
            request->pVendor = LastSession();
        }
    }

    void CloseFloor() {
        for (const auto& request : mFloor) {
            mFloorCamera.Close(request->pFloor);
        }
    }

    void SubmitLibrary(const Requests& requests) {
        for (const auto& request : requests) {
            mCamera.Submit(request->host);
        }
        mSubmitted += static_cast<int64_t>(requests.size());
    }
    void SubmitFloor(const Requests& requests) {
        for (const auto& request : requests) {
            mFloorCamera.Submit(*request->pFloor, request->host);
        }
        mSubmitted += static_cast<int64_t>(requests.size());
    }

    FloorCamera mFloorCamera;
    Camera mCamera;
    std::deque<camera3_stream> mOutStreams;
    Requests mLibrary;
    Requests mFloor;
    int64_t mSubmitted = 0;
};

/// A batch is long enough for the clock.
constexpr size_t kBatch = 256;

struct RequestCase {
    const char* name;
    Inputs inputs;
    size_t streams;
    size_t featuresPerStream;
    double bar;
};

constexpr RequestCase kRequestCases[] = {
    {"1 set of 1 raw buffer", {{HAL_PIXEL_FORMAT_RAW10}, 1}, 1, 1, 1.05},
    {"8 sets of 1 raw buffer", {{HAL_PIXEL_FORMAT_RAW10}, 8}, 1, 1, 1.05},
    {"12 sets of 2 raw buffers",
     {{HAL_PIXEL_FORMAT_RAW10, HAL_PIXEL_FORMAT_RAW16}, 12},
     1,
     1,
     1.05},
    {"1 set of 1 YUV buffer", {{HAL_PIXEL_FORMAT_YCBCR_420_888}, 1}, 1, 1, 1.05},
    {"64 streams", {{HAL_PIXEL_FORMAT_RAW10}, 1}, 64, 1, 1.15},
    {"8 features on one stream", {{HAL_PIXEL_FORMAT_RAW10}, 1}, 1, 8, 1.25},
    {"64 features on one stream", {{HAL_PIXEL_FORMAT_RAW10}, 1}, 1, 64, kNoBar},
    {"1,024 streams", {{HAL_PIXEL_FORMAT_RAW10}, 1}, 1024, 1, 1.35},
};

/// One request's heap calls, and what the contract says they are: the request, its input array, its
/// output buffer, and a format record for each raw buffer, of which the completion frees the first.
void CountHeapCalls(benchmark::State& state, const Work& submitAll, size_t requests,
                    const Inputs& inputs) {
    const auto raws = static_cast<uint64_t>(
        std::count_if(std::begin(inputs.formats), std::end(inputs.formats), [](int32_t format) {
            return format != 0 && format != HAL_PIXEL_FORMAT_YCBCR_420_888;
        }));
    const HeapCalls expected = {3 + raws * inputs.sets, 3 + std::min(raws, uint64_t{1})};
    const HeapCalls before = CountedHeapCalls();
    submitAll();
    const HeapCalls found = CountedHeapCalls() - before;
    state.counters["new"] = static_cast<double>(found.allocations) / static_cast<double>(requests);
    state.counters["delete"] = static_cast<double>(found.frees) / static_cast<double>(requests);
    if (found.allocations != expected.allocations * requests ||
        found.frees != expected.frees * requests) {
        state.SkipWithError("the heap calls are not the contract's");
    }
}

void ExpectAllCompleted(benchmark::State& state, const Traffic& traffic) {
    if (traffic.Missing() != 0) {
        state.SkipWithError("not every request was completed");
    }
}

Work Repeat(size_t times, Work work) {
    return [times, work = std::move(work)] {
        for (size_t i = 0; i < times; ++i) {
            work();
        }
    };
}

void MeasureRequests(benchmark::State& state, const RequestCase& requests) {
    Traffic traffic(requests.inputs, requests.streams, requests.featuresPerStream);
    // A burst leaves format records: fewer of them, so that memory does not become the measurement.
    const size_t repeats =
        std::max<size_t>(1, kBatch / traffic.Count() / std::max(1U, 2 * requests.inputs.sets));
    const Pair pair = {Repeat(repeats, [&] { traffic.SubmitLibrary(); }),
                       Repeat(repeats, [&] { traffic.SubmitFloor(); }), repeats * traffic.Count()};
    Report(state, pair.Measure(state), requests.bar);
    CountHeapCalls(
        state, [&] { traffic.SubmitLibrary(); }, traffic.Count(), requests.inputs);
    ExpectAllCompleted(state, traffic);
}

/// Results alone: the requests of a batch wait before the clock starts.
void MeasureResults(benchmark::State& state) {
    Traffic traffic({{HAL_PIXEL_FORMAT_RAW10}, 1}, 1, 1);
    traffic.Hold(true);
    const auto deliver = [] {
        for (const Held& held : HeldRequests()) {
            Deliver(*held.pSession, held.pOutput, held.pPrivateData);
        }
    };
    const auto submit = [](Work work) {
        return [work = Repeat(kBatch, std::move(work))] {
            HeldRequests().clear();
            work();
        };
    };
    const Pair pair = {deliver, deliver, kBatch, submit([&] { traffic.SubmitLibrary(); }),
                       submit([&] { traffic.SubmitFloor(); })};
    Report(state, pair.Measure(state));
    HeldRequests().clear();
    traffic.SubmitLibrary();
    const HeapCalls before = CountedHeapCalls();
    deliver();
    const HeapCalls found = CountedHeapCalls() - before;
    state.counters["new"] = static_cast<double>(found.allocations);
    state.counters["delete"] = static_cast<double>(found.frees);
    if (found != HeapCalls{0, 4}) {
        state.SkipWithError("a result allocates, or frees another number of records");
    }
    ExpectAllCompleted(state, traffic);
}

// --- Four cameras on four threads

constexpr uint32_t kCameras = 4;

/// Each thread has a camera of its own, and all start each of their batches at the same time. What
/// counts is the time on a core, since there may be fewer cores than threads.
void MeasureFourCameras(benchmark::State& state) {
    std::deque<Traffic> cameras;
    for (uint32_t id = 0; id < kCameras; ++id) {
        cameras.emplace_back(Inputs{{HAL_PIXEL_FORMAT_RAW10}, 1}, 1, 1, id);
    }
    std::vector<Rounds> rounds(kCameras);
    std::barrier<> start(kCameras);
    std::vector<std::thread> threads;
    const auto count = static_cast<size_t>(state.max_iterations);
    for (uint32_t id = 0; id < kCameras; ++id) {
        threads.emplace_back([&, id] {
            constexpr size_t kUnits = 4 * kBatch;
            const Work library = Repeat(kUnits, [&] { cameras[id].SubmitLibrary(); });
            const Work floor = Repeat(kUnits, [&] { cameras[id].SubmitFloor(); });
            for (size_t i = 0; i < count; ++i) {
                start.arrive_and_wait();
                rounds[id].library.push_back(TimeAnywhere<ThreadNow>(i, library, kUnits));
                start.arrive_and_wait();
                rounds[id].floor.push_back(TimeAnywhere<ThreadNow>(i, floor, kUnits));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    Rounds all;
    for (const Rounds& each : rounds) {
        all.library.insert(all.library.end(), each.library.begin(), each.library.end());
        all.floor.insert(all.floor.end(), each.floor.begin(), each.floor.end());
    }
    for ([[maybe_unused]] auto round : state) {
        state.SetIterationTime(Median(all.library) * 1e-9);
    }
    Report(state, all, 1.05);
    for (const Traffic& traffic : cameras) {
        ExpectAllCompleted(state, traffic);
    }
}

// --- The metadata and buffer calls

/// The vendor's tables, as the library has them at hand.
struct Vendor {
    ChiOfflineInterface* interface = Interface();
    ChiOfflineMetadataOps* metadata = MetadataOps();
    ChiOfflineBufferManagerOps* buffers = BufferOps();
};

/// A call through the table, and the vendor's entry behind it.
struct CallCase {
    const char* name;
    void (*library)(PlatFormIntCallbacks*);
    void (*floor)(const Vendor&);
};

void* volatile g_object; ///< Keeps results from being left out.
uint32_t g_word;
ChiMetadataTagEntry g_entry;
ChiStream g_stream;
camera3_stream_buffer g_frameworkBuffer;
ChiStreamBuffer g_vendorBuffer;

const CallCase kCalls[] = {
    {"CreateAndroidMetadata",
     [](PlatFormIntCallbacks* t) { g_object = t->CreateAndroidMetadata(t, &g_word, 1, &g_word); },
     [](const Vendor& v) {
         g_object = v.metadata->pCreateAndroid(v.metadata, &g_word, 1, 1, 1, &g_word);
     }},
    {"CreateByAndroidMetadata",
     [](PlatFormIntCallbacks* t) { g_object = t->CreateByAndroidMetadata(t, &g_word); },
     [](const Vendor& v) {
         g_object = v.metadata->pCreateFromAndroid(v.metadata, &g_word, 0, 0, 0);
     }},
    {"ReleaseAndroidMetadata",
     [](PlatFormIntCallbacks* t) { t->ReleaseAndroidMetadata(t, &g_word); },
     [](const Vendor& v) { v.metadata->pReleaseAndroid(v.metadata, &g_word); }},
    {"CreateWithUsage",
     [](PlatFormIntCallbacks* t) { g_object = t->CreateWithUsage(t, &g_word, 1, 0); },
     [](const Vendor& v) { g_object = v.metadata->pCreateWithUsage(v.metadata, &g_word, 1, 0); }},
    {"Copy", [](PlatFormIntCallbacks* t) { t->Copy(t, &g_word, &g_word, 0); },
     [](const Vendor& v) { v.metadata->pCopy(&g_word, &g_word, 0); }},
    {"MetadataDestroy", [](PlatFormIntCallbacks* t) { t->MetadataDestroy(t, &g_word); },
     [](const Vendor& v) { v.metadata->pDestroy(&g_word); }},
    {"GetTag", [](PlatFormIntCallbacks* t) { g_object = t->GetTag(t, &g_word, 1, &g_word, 0); },
     [](const Vendor& v) { v.metadata->pGetTag(&g_word, 1, 0, &g_entry); }},
    {"SetTag", [](PlatFormIntCallbacks* t) { t->SetTag(t, &g_word, 1, &g_word, 1, 0); },
     [](const Vendor& v) { v.metadata->pSetTag(&g_word, 1, &g_word, 1, 0); }},
    {"DeleteTag", [](PlatFormIntCallbacks* t) { t->DeleteTag(t, &g_word, 1); },
     [](const Vendor& v) { v.metadata->pDeleteTag(&g_word, 1); }},
    {"GetImageBuffer", [](PlatFormIntCallbacks* t) { g_object = t->GetImageBuffer(t, &g_stream); },
     [](const Vendor& v) { g_object = v.buffers->pGetImageBuffer(&g_word); }},
    {"ReleaseImageBuffer", [](PlatFormIntCallbacks* t) { t->ReleaseImageBuffer(t, &g_word); },
     [](const Vendor& v) { v.buffers->pReleaseImageBuffer(&g_word); }},
    {"GetCPUAddress", [](PlatFormIntCallbacks* t) { g_object = t->GetCPUAddress(t, &g_word); },
     [](const Vendor& v) { g_object = v.buffers->pGetCPUAddress(&g_word); }},
    {"TranslateToBuffer",
     [](PlatFormIntCallbacks* t) { t->TranslateToBuffer(t, &g_frameworkBuffer, &g_vendorBuffer); },
     [](const Vendor& v) {
         v.interface->pTranslateToChiBuffer(&g_frameworkBuffer, &g_vendorBuffer);
     }},
    {"TranslateFromBuffer",
     [](PlatFormIntCallbacks* t) {
         t->TranslateFromBuffer(t, &g_vendorBuffer, &g_frameworkBuffer);
     },
     [](const Vendor& v) {
         v.interface->pTranslateFromChiBuffer(&g_vendorBuffer, &g_frameworkBuffer);
     }},
};

void MeasureCall(benchmark::State& state, const CallCase& call) {
    constexpr size_t kUnits = 1000;
    Camera camera(0);
    const Vendor vendor;
    const Pair pair = {[&] {
                           for (size_t i = 0; i < kUnits; ++i) {
                               call.library(&camera.table);
                           }
                       },
                       [&] {
                           for (size_t i = 0; i < kUnits; ++i) {
                               call.floor(vendor);
                           }
                       },
                       kUnits};
    Report(state, pair.Measure(state));
}

// --- The life of a session beside others

/// A camera with sessions, to which one more is opened.
class Sessions {
  public:
    explicit Sessions(size_t others) : mOutStreams(others + 1) {
        for (camera3_stream& stream : mOutStreams) {
            stream = MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888);
            mRequests.emplace_back(Inputs{{HAL_PIXEL_FORMAT_RAW10}, 1}, 0, "Night", &stream);
        }
    }

    size_t Count() const { return mRequests.size(); }
    void OpenOthers() {
        for (size_t i = 1; i < Count(); ++i) {
            Open(mRequests[i]);
        }
    }
    void OpenOne() { Open(mRequests[0]); }

  protected:
    ~Sessions() = default;

  private:
    virtual void Open(HostRequest& request) = 0;

    std::vector<camera3_stream> mOutStreams;
    std::deque<HostRequest> mRequests;
};

class LibrarySessions final : public Sessions {
  public:
    using Sessions::Sessions;
    void CloseAll() { mCamera.table.Flush(&mCamera.table); }

  private:
    void Open(HostRequest& request) override { mCamera.Submit(request); }

    Camera mCamera{0};
};

class FloorSessions final : public Sessions {
  public:
    using Sessions::Sessions;
    void CloseAll() {
        for (FloorSession* session : mOpen) {
            mCamera.Close(session);
        }
        mOpen.clear();
    }

  private:
    void Open(HostRequest& request) override {
        mOpen.push_back(mCamera.Open(request));
        mCamera.Submit(*mOpen.back(), request);
    }

    FloorCamera mCamera;
    std::vector<FloorSession*> mOpen;
};

/// A session's first request: it is opened and configured, and the request submitted and completed.
void MeasureOpening(benchmark::State& state, size_t others) {
    LibrarySessions library(others);
    FloorSessions floor(others);
    const auto prepare = [](auto& sessions) {
        return [&sessions] {
            sessions.CloseAll();
            sessions.OpenOthers();
        };
    };
    const Pair pair = {[&] { library.OpenOne(); }, [&] { floor.OpenOne(); }, 1, prepare(library),
                       prepare(floor)};
    Report(state, pair.Measure(state));
    floor.CloseAll();
}

/// A flush, for each of the sessions that it closes.
void MeasureClosing(benchmark::State& state, size_t others) {
    LibrarySessions library(others);
    FloorSessions floor(others);
    const auto prepare = [](auto& sessions) {
        return [&sessions] {
            sessions.OpenOthers();
            sessions.OpenOne();
        };
    };
    const Pair pair = {[&] { library.CloseAll(); }, [&] { floor.CloseAll(); }, others + 1,
                       prepare(library), prepare(floor)};
    Report(state, pair.Measure(state));
}

// --- The table

/// Prints a line for each measurement as it is done, and whether its bar holds.
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
            const std::string name = run.run_name.function_name;
            if (run.error_occurred) {
                std::printf("%-34s failed: %s\n", name.c_str(), run.error_message.c_str());
                mHolds = false;
                continue;
            }
            const auto value = [&run](const char* counter) {
                const auto found = run.counters.find(counter);
                return found != run.counters.end() ? found->second.value : -1;
            };
            std::printf("%-34s %9.1f ns %9.1f ns %8.3f %14s   %s\n", name.c_str(), value("library"),
                        value("floor"), value("ratio"),
                        HeapText(value("new"), value("delete")).c_str(),
                        BarText(value("ratio"), value("bar")).c_str());
        }
        std::fflush(stdout);
    }

    bool Holds() const { return mHolds; }

  private:
    static std::string HeapText(double allocations, double frees) {
        return allocations < 0 ? ""
                               : std::to_string(static_cast<long>(allocations)) + "/" +
                                     std::to_string(static_cast<long>(frees));
    }

    std::string BarText(double ratio, double bar) {
        if (bar <= kNoBar) {
            return "-";
        }
        const bool holds = ratio <= bar;
        mHolds = mHolds && holds;
        char text[32];
        std::snprintf(text, sizeof text, "%.2f %s", bar, holds ? "holds" : "DOES NOT HOLD");
        return text;
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
    bench::LoadLibrary(BENCH_LIBRARY);
    bench::RegisterAll();
    bench::Table table;
    const size_t count = benchmark::RunSpecifiedBenchmarks(&table);
    std::printf(table.Holds() ? "All bars hold.\n" : "Not all bars hold.\n");
    return count != 0 && table.Holds() ? 0 : 1;
}
