/// A scenario's threads, and the judgement of what they did.
#include "host/run.h"

#include "host/progress.h"
#include "standin/located_json.h"
#include "view/check.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <thread>
#include <unistd.h>

namespace host {

using standin::InputError;
using standin::Joined;

namespace {

constexpr std::chrono::seconds kGrace{1}; // For what is in flight at an interruption.

std::atomic<bool> g_interrupted = false;
std::atomic<bool> g_loading = false;

/// Until when to wait: a time, or an interruption.
auto OverAt(Clock::time_point until) {
    return [until] { return g_interrupted || Clock::now() >= until; };
}

/// Waits, but not beyond an interruption.
void WaitUntil(Clock::time_point due) {
    for (const auto isOver = OverAt(due); !isOver();) {
        std::this_thread::sleep_for(std::min<Clock::duration>(due - Clock::now(), kGlance));
    }
}

/// How many requests of a camera may be in flight.
uint32_t LimitOf(const CameraPlan& plan) {
    if (plan.inFlight > 0) {
        return plan.inFlight;
    }
    return plan.rate > 0 ? UINT32_MAX : plan.threads;
}

uint64_t AddressOf(const OemLayer::RequestPrivData& record) {
    return reinterpret_cast<uint64_t>(&record);
}

/// What a run's recording takes, in MiB: more than was measured for the calls of a request and of
/// each of its sets.
uint32_t SizeOf(const Scenario& scenario) {
    uint64_t bytes = 4U << 20;
    for (const CameraPlan& plan : scenario.cameras) {
        const uint64_t ofRequest = 12288 + uint64_t{4096} * plan.frames * plan.inputs.size();
        bytes += plan.requests * ofRequest;
    }
    return static_cast<uint32_t>(std::min<uint64_t>(bytes >> 20, 4096));
}

/// The library's own path, once it is known to be one: the layer that opens it has no way to say.
std::string Checked(const std::string& library) {
    const kit::Adapter adapter(library);
    (void)adapter.Find<decltype(PlatformLoadContext)>("PlatformLoadContext");
    (void)adapter.Find<decltype(PlatformIntContext)>("PlatformIntContext");
    return std::filesystem::absolute(library);
}

} // namespace

void Run::Interrupt() { g_interrupted = true; }

bool Run::IsLoading() { return g_loading; }

Run::Run(const Scenario& scenario, const std::string& library, const Settings& settings)
    : mScenario(scenario), mFile(settings.file),
      mLibrary(settings.hasLayers ? PutLayers(Checked(library), settings.watches) : library) {
    standin::Control& device = *StandinControl();
    device.SetShape(scenario.shape);
    device.SetDelivery(scenario.delivery);
    device.SetPace(scenario.latency, scenario.order, scenario.seed);
    device.SetAsksForFrameworkBuffers(scenario.frameworkBuffers);
    device.SetRecording(false);
    device.SetFeed(!settings.hasLayers);
    for (const Fault& fault : scenario.faults) {
        fault.Apply(device);
    }
    const Progress progress([] { return std::string("drawing what the cameras see"); });
    for (const CameraPlan& plan : mScenario.cameras) {
        try {
            mScenes.emplace_back(plan.width, plan.height, mScenario.scene);
        } catch (const std::runtime_error& error) {
            throw InputError(mScenario.scenePlace + error.what());
        }
    }
    mFile.Begin();
    if (!settings.hasLayers) {
        device.RecordFeed(mFile.Path(), uint64_t{SizeOf(scenario)} << 20);
    }
}

std::string Run::PutLayers(const std::string& library, bool watch) {
    mLayers.emplace(
        library,
        kit::LayerSettings{.record = mFile.Path(), .mebibytes = SizeOf(mScenario), .watch = watch});
    return mLayers->AdapterFile();
}

void Run::Go() {
    g_loading = true;
    mLibrary.Load();
    g_loading = false;
    if (contract::WriterOf(mFile.Path()) != static_cast<uint32_t>(getpid())) {
        throw std::runtime_error("the run cannot be recorded, as the log says");
    }
    uint32_t planned = 0;
    for (size_t i = 0; i < mScenario.cameras.size(); ++i) {
        planned += mScenario.cameras[i].requests;
        mCameras.push_back(
            std::make_unique<Camera>(mLibrary, mScenario.cameras[i], mScenario, mScenes[i]));
    }
    const Progress progress([&] {
        uint32_t completed = 0;
        for (const auto& camera : mCameras) {
            completed += camera->CountCompleted();
        }
        return std::to_string(completed) + " of " + std::to_string(planned) + " requests completed";
    });
    SendAll();
    const auto until = Clock::now() + mScenario.patience;
    for (const auto& camera : mCameras) {
        camera->WaitForVendor(0, OverAt(until));
    }
    const auto grace = Clock::now() + kGrace;
    for (const auto& camera : mCameras) {
        if (g_interrupted) {
            camera->WaitForVendor(0, [grace] { return Clock::now() >= grace; });
        }
        camera->Close();
    }
    StandinControl()->CheckAllReturned();
    mTold.emplace(mFile.Path());
}

/// Has each camera's threads send its requests.
void Run::SendAll() {
    mStart = Clock::now();
    std::vector<std::thread> threads;
    for (const auto& camera : mCameras) {
        for (uint32_t i = 0; i < camera->Plan().threads; ++i) {
            threads.emplace_back([this, &camera] { Drive(*camera); });
        }
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Sends requests of a camera for as long as there are some. The work of one thread.
void Run::Drive(Camera& camera) const {
    const CameraPlan& plan = camera.Plan();
    while (Request* const request = g_interrupted ? nullptr : camera.Prepare()) {
        if (!request->problem.empty()) {
            continue;
        }
        if (plan.rate > 0) {
            const std::chrono::microseconds all = std::chrono::seconds(request->index);
            WaitUntil(mStart + all / plan.rate);
        }
        if (!camera.TakeRoom(LimitOf(plan), OverAt(Clock::now() + mScenario.patience))) {
            camera.Drop(*request, g_interrupted ? "interrupted" : "the time is up");
            return;
        }
        camera.Send(*request);
    }
}

// --- What came of it ----------------------------------------------------------------------------

Outcome Run::Judge() {
    Outcome outcome;
    std::atomic<uint32_t> judged = 0;
    const Progress progress([&] { return std::to_string(judged) + " pictures looked at"; });
    for (const auto& camera : mCameras) {
        outcome.requests += camera->Plan().requests;
        for (const auto& request : camera->Requests()) {
            mRequests[AddressOf(*request)] = request.get();
        }
    }
    for (const view::Request& request : mTold->story.Requests()) {
        Count(request, outcome);
        ++judged;
    }
    outcome.sessions = static_cast<uint32_t>(mTold->story.Sessions().size());
    outcome.lost = mTold->recording.CountLost();
    outcome.violations = view::FindViolations(mTold->Events());
    for (const contract::Violation& violation : StandinControl()->FoundViolations()) {
        outcome.violations.push_back(violation);
    }
    outcome.wasInterrupted = g_interrupted.exchange(false); // The next run is another one.
    if (!outcome.wasInterrupted) {
        Compare(outcome);
    }
    return outcome;
}

/// The host's own request; null where the recording has one that it never made.
Request* Run::Find(const view::Request& told) const {
    const auto found = mRequests.find(told.address);
    return found == mRequests.end() ? nullptr : found->second;
}

void Run::Count(const view::Request& told, Outcome& outcome) const {
    outcome.sent += told.status.has_value() ? 1 : 0;
    if (told.status.value_or(0) != 0) {
        ++outcome.refused[*told.status];
    } else if (told.completion.has_value()) {
        ++outcome.completed;
        outcome.errors += *told.completion;
    } else if (told.status.has_value()) {
        ++outcome.unanswered;
    }
    if (told.completion == 0U && mScenario.expect.pictures) {
        Request* const request = Find(told);
        outcome.wrongPictures += request != nullptr && HasRightPicture(*request) ? 0 : 1;
    }
}

bool Run::HasRightPicture(Request& request) const {
    if (!request.frames.empty()) {
        request.judgement =
            host::Judge(request.camera.Sees(), request.frames, request.output.Pixels());
    }
    return request.judgement.has_value() && request.judgement->IsAsExpected();
}

std::vector<view::Row> Run::Rows() const {
    std::vector<view::Row> rows = view::RowsOf(mTold->story);
    for (view::Row& row : rows) {
        const Request* const request = Find(row.request);
        if (request != nullptr && request->judgement.has_value()) {
            const Judgement& judgement = *request->judgement;
            row.isGood = row.isGood && judgement.IsAsExpected();
            row.picture = row.isGood ? "right picture" : "wrong picture: " + judgement.Describe();
        }
    }
    for (const auto& [address, request] : mRequests) {
        if (!request->problem.empty()) {
            view::Request unsent;
            unsent.camera = request->camera.Plan().id;
            unsent.frame = request->rtFrameNumber;
            unsent.feature = request->feature;
            rows.push_back({unsent, "not sent: " + request->problem, false});
        }
    }
    std::stable_sort(rows.begin(), rows.end(), [](const view::Row& one, const view::Row& other) {
        return std::pair(one.request.camera, one.request.frame) <
               std::pair(other.request.camera, other.request.frame);
    });
    return rows;
}

void Run::Compare(Outcome& outcome) const {
    const Expectation& expect = mScenario.expect;
    const auto compareTexts = [&](const std::string& what, const std::string& found,
                                  const std::string& expected) {
        outcome.expectations.push_back({what, expected, found, found == expected});
        if (found != expected) {
            outcome.unfulfilled.push_back(what + ": " + expected + " expected, " + found +
                                          " found");
        }
    };
    const auto compare = [&](const std::string& what, uint32_t found, uint32_t expected) {
        compareTexts(what, std::to_string(found), std::to_string(expected));
    };
    compare("completed requests", outcome.completed, expect.completed.value_or(outcome.requests));
    for (const auto& [status, expected] : expect.refused) {
        compare("submissions refused with status " + std::to_string(status),
                outcome.refused[status], expected);
    }
    compare("requests that were not sent", outcome.requests - outcome.sent, expect.notSent);
    compare("requests that were never completed", outcome.unanswered, expect.unanswered);
    compare("completions with a failure", outcome.errors, expect.errors);
    compare("sessions opened", outcome.sessions, expect.sessions.value_or(outcome.sessions));
    compare("wrong pictures", outcome.wrongPictures, 0);
    compare("events that found no room in the recording", static_cast<uint32_t>(outcome.lost), 0);
    std::set<std::string> broken;
    for (const contract::Violation& violation : outcome.violations) {
        broken.insert(contract::TextOf(violation.rule).number);
    }
    const std::set<std::string> allowed(expect.violations.begin(), expect.violations.end());
    compareTexts("rules broken", Joined(broken), Joined(allowed));
    for (const Fault& fault : mScenario.faults) {
        compareTexts("the fault \"" + fault.text + "\"",
                     fault.WasReached(*StandinControl()) ? "reached" : "never reached", "reached");
    }
    if (expect.abort) {
        outcome.expectations.push_back({kEnd, kAbort, "as usual", false});
        outcome.unfulfilled.emplace_back("the process should have ended by SIGABRT");
    }
}

/// The first request whose picture was looked at; null if there is none.
const Request* Run::FindJudged() const {
    for (const auto& camera : mCameras) {
        for (const auto& request : camera->Requests()) {
            if (request->judgement.has_value()) {
                return request.get();
            }
        }
    }
    return nullptr;
}

std::optional<Picture> Run::MakePicture() const {
    const Progress progress([] { return std::string("making the picture"); });
    const Request* const request = FindJudged();
    if (request == nullptr) {
        return std::nullopt;
    }
    return Picture{
        .png = PngOf(request->camera.Sees(), request->frames.front(), request->output.Pixels()),
        .quality = request->judgement->Describe()};
}

std::vector<view::Picture> Run::Pictures() const {
    const Request* const request = FindJudged();
    if (request == nullptr) {
        return {};
    }
    const Scene& scene = request->camera.Sees();
    const auto make = [&](const std::string& title, std::span<const uint8_t> nv12) {
        const SampledPng sampled = Sample(scene, nv12);
        const std::string step = std::to_string(sampled.step);
        return view::Picture{title,
                             std::to_string(scene.Width()) + " x " +
                                 std::to_string(scene.Height()) +
                                 (sampled.step > 1 ? ", one pixel of " + step + " x " + step : ""),
                             sampled.bytes};
    };
    const std::string name =
        std::to_string(request->camera.Plan().id) + "/" + std::to_string(request->rtFrameNumber);
    return {make("A noisy frame of " + name, DevelopAlone(scene, request->frames.front())),
            make("The picture of " + name, request->output.Pixels())};
}

} // namespace host
