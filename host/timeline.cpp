/// A lane of events for each thread, and the file of all lanes.
#include "host/timeline.h"

#include "kit/android.h"

#include <cutils/trace.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <vector>

namespace host::timeline {
namespace {

constexpr int kProcess = 1;
constexpr int64_t kNoFrame = -1;

struct Event {
    char phase; ///< As in the trace event format.
    double microseconds;
    std::string name;
    int64_t value; ///< A frame, the number of an arrow, or a count.
};

/// Written by its own thread alone.
struct Lane {
    std::string name;
    std::vector<Event> events;
};

struct Recording {
    std::mutex mutex;                         ///< Guards the list, and the count with its events.
    std::deque<Lane> lanes{{"counters", {}}}; ///< The first is that of the count.
    int64_t inFlight = 0;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};
std::atomic<Recording*> g_recording; ///< Never freed: the device's threads may outlive main.

double Now(const Recording& recording) {
    const auto elapsed = std::chrono::steady_clock::now() - recording.start;
    return std::chrono::duration<double, std::micro>(elapsed).count();
}

Lane& OwnLane(Recording& recording) {
    thread_local Lane* lane = nullptr;
    if (lane == nullptr) {
        const std::lock_guard lock(recording.mutex);
        const std::string number = std::to_string(recording.lanes.size());
        lane = &recording.lanes.emplace_back();
        lane->name = "thread " + number;
    }
    return *lane;
}

void Add(char phase, const char* name, int64_t value) {
    if (Recording* const recording = g_recording; recording != nullptr) {
        OwnLane(*recording).events.push_back({phase, Now(*recording), name, value});
    }
}

class TimelineObserver final : public standin::Observer, public kit::AndroidSink {
  public:
    void NameThread(const std::string& name) override { NameLane(name); }
    void Begin(const char* what) override { Add('B', what, kNoFrame); }
    void End() override { Add('E', "", kNoFrame); }
};

nlohmann::json ToJson(const Event& event, size_t lane) {
    nlohmann::json json{{"ph", std::string(1, event.phase)},
                        {"pid", kProcess},
                        {"tid", lane},
                        {"ts", event.microseconds},
                        {"name", event.name}};
    if (event.phase == 'C') {
        json["args"] = {{"requests", event.value}};
    } else if (event.phase != 'B' && event.phase != 'E') {
        json.update({{"cat", "request"}, {"id", event.value}, {"bp", "e"}});
    } else if (event.value != kNoFrame) {
        json["args"] = {{"frame", event.value}};
    }
    return json;
}

void WriteLane(std::ofstream& out, const Lane& lane, size_t number) {
    const nlohmann::json name{{"ph", "M"},
                              {"pid", kProcess},
                              {"tid", number},
                              {"name", "thread_name"},
                              {"args", {{"name", lane.name}}}};
    out << ",\n" << name;
    std::vector<Event> open; // Some viewers want an end to be called as its beginning.
    for (Event event : lane.events) {
        if (event.phase == 'B') {
            open.push_back(event);
        } else if (event.phase == 'E') {
            event.name = open.back().name;
            event.value = open.back().value;
            open.pop_back();
        }
        out << ",\n" << ToJson(event, number);
    }
}

} // namespace

void Start() {
    static TimelineObserver observer;
    g_recording = new Recording;
    kit::SetAndroidSink(observer);
    observer.enabledTraceTags = ATRACE_TAG_CAMERA | ATRACE_TAG_HAL;
    StandinControl()->SetObserver(&observer);
    StandinControl()->SetTracePoints(true);
}

void NameLane(const std::string& name) {
    if (Recording* const recording = g_recording; recording != nullptr) {
        OwnLane(*recording).name = name;
    }
}

Slice::Slice(const char* what, int64_t frame) { Add('B', what, frame); }
// NOLINTNEXTLINE(bugprone-exception-escape): without memory the program may end
Slice::~Slice() { Add('E', "", kNoFrame); }

void Draw(Arrow arrow, uint64_t request) {
    Add(static_cast<char>(arrow), "request", static_cast<int64_t>(request));
}

void CountInFlight(int64_t change) {
    if (Recording* const recording = g_recording; recording != nullptr) {
        const std::lock_guard lock(recording->mutex);
        recording->inFlight += change;
        recording->lanes.front().events.push_back(
            {'C', Now(*recording), "requests in flight", recording->inFlight});
    }
}

void Write(const std::string& file) {
    static Recording* recording = nullptr; // Kept, as a late thread may still write to its lane.
    recording = g_recording.exchange(nullptr);
    if (recording == nullptr) {
        return;
    }
    const std::lock_guard lock(recording->mutex);
    const auto folder = std::filesystem::path(file).parent_path();
    std::error_code ignored; // The open tells.
    std::filesystem::create_directories(folder, ignored);
    std::ofstream out(file);
    out << R"({"traceEvents": [{"ph": "M", "pid": 1, "name": "process_name", )"
        << R"("args": {"name": "host, adapter and stand-in device"}})";
    for (size_t i = 0; i < recording->lanes.size(); ++i) {
        WriteLane(out, recording->lanes[i], i);
    }
    out << "\n]}\n";
    out.close();
    if (!out) {
        throw std::runtime_error(file + ": the trace cannot be written");
    }
}

} // namespace host::timeline
