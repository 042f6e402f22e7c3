#include "host/report.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <unistd.h>

namespace host {
namespace {

using standin::Entry;

enum class Colour { Plain = 0, Strong = 1, Bad = 31, Good = 32 };

std::string Painted(Colour colour, const std::string& text) {
    static const bool colours = isatty(STDOUT_FILENO) != 0 && getenv("NO_COLOR") == nullptr;
    return colours && colour != Colour::Plain
               ? "\033[" + std::to_string(static_cast<int>(colour)) + "m" + text + "\033[0m"
               : text;
}

void Heading(const std::string& text) { printf("\n%s\n", Painted(Colour::Strong, text).c_str()); }

void Row(const std::string& name, const std::string& value, Colour colour = Colour::Plain) {
    printf("  %-40s  %s\n", name.c_str(), Painted(colour, value).c_str());
}

std::string Count(size_t count, const char* name) {
    return std::to_string(count) + " " + name + (count == 1 ? "" : "s");
}

std::string Joined(const Texts& texts, const char* none) {
    std::string joined;
    for (const std::string& text : texts) {
        joined += (joined.empty() ? "" : ", ") + text;
    }
    return joined.empty() ? none : joined;
}

/// Whether the library of a device path is in this process.
bool IsLoaded(const std::string& path) {
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    return library != nullptr && dlclose(library) == 0;
}

/// The requests that a session worked on, as in "1 Night".
std::string WorkOf(uint64_t session, const Camera& camera) {
    Texts texts;
    for (size_t i = 0; i < camera.Requests().size(); ++i) {
        if (const Request& request = *camera.Requests()[i]; request.session == session) {
            texts.push_back(std::to_string(i + 1) + " " + request.step.feature);
        }
    }
    return Joined(texts, "nothing");
}

std::string LeftAlive(const standin::Alive& alive) {
    const std::pair<size_t, const char*> kinds[] = {
        {alive.sessions, "session"},
        {alive.metadata, "metadata object"},
        {alive.androidMetadata, "Android metadata object"},
        {alive.bufferManagers, "buffer manager"},
        {alive.imageBuffers, "image buffer"},
        {alive.metadataOps, "metadata operation table"},
        {alive.bufferOps, "buffer operation table"}};
    Texts texts;
    for (const auto& [count, name] : kinds) {
        if (count > 0) {
            texts.push_back(Count(count, name));
        }
    }
    return Joined(texts, "nothing");
}

/// Each feature has one session, each session one feature, and no other was opened.
bool AreSessionsRight(const standin::Control& device, const Camera& camera) {
    std::map<std::string, uint64_t> ofFeature;
    std::set<uint64_t> all;
    bool same = true;
    for (const auto& request : camera.Requests()) {
        const auto known = ofFeature.try_emplace(request->step.feature, request->session).first;
        same &= known->second == request->session;
        all.insert(request->session);
    }
    return same && all.size() == ofFeature.size() &&
           device.CallCount(Entry::OpenSession) == all.size();
}

} // namespace

void PrintPlan(const std::string& library, const Fault* fault, const Plan& plan) {
    printf("%s\n", Painted(Colour::Strong, "Adapter " + library).c_str());
    if (fault != nullptr) {
        Row(std::string("fault ") + fault->name, fault->what);
    }
    if (plan.endsInAbort) {
        Row("expected", "an error line, and the end of this process by SIGABRT");
    }
}

void PrintLibraries(const standin::Control& device, PlatFormIntCallbacks table) {
    Heading("Device libraries");
    for (const auto& call : device.Calls(Entry::LibraryOpen)) {
        const bool found = IsLoaded(call.text);
        Row(call.text, found ? "found" : "refused", found ? Colour::Good : Colour::Bad);
    }
    const std::pair<void*, const char*> setters[] = {
        {table.GetNCSCallback(&table), "NCS"},
        {table.GetHWCallback(&table), "hardware"},
        {table.GetPerfCallback(&table), "performance"}};
    Texts bound;
    for (const auto& [function, name] : setters) {
        if (function != nullptr) {
            bound.emplace_back(name);
        }
    }
    Row("callback setters", Joined(bound, "none"));
}

void PrintCamera(const standin::Control& device, const PlatFormIntCallbacks& table,
                 const Plan& plan) {
    Heading("Camera " + std::to_string(table.cameraId));
    const std::string size = std::to_string(plan.width) + " x " + std::to_string(plan.height);
    Row("rows read of the feature map", std::to_string(device.CallCount(Entry::GetList)));
    Row("input stream", "RAW10, " + size);
    Row("output stream", "YCbCr_420_888, " + size);
}

void PrintRequestHeading(size_t number, const Step& step) {
    Heading("Request " + std::to_string(number) + ": " + step.feature + ", " +
            Count(step.frames, "frame"));
}

void PrintRequest(const Request& request) {
    if (request.IsAccepted()) {
        printf("  %9.1f ms  %-10s  session %#" PRIx64 ", offline frame %d\n", request.returned,
               "submitted", request.session, request.offlineFrame);
    }
    for (const Event& event : request.Events()) {
        printf("  %9.1f ms  %-10s  %s\n", event.milliseconds, NameOf(event.kind),
               request.Describe(event).c_str());
    }
    for (const std::string& finding : request.Findings()) {
        printf("  %s\n", Painted(Colour::Bad, finding).c_str());
    }
}

void PrintSessions(const standin::Control& device, const Camera& camera) {
    Heading("Offline sessions");
    for (const auto& session : device.Sessions()) {
        printf("  %#" PRIx64 "  %s, operation mode %#x%s, worked on %s\n", session.handle,
               session.name.c_str(), session.config.opMode,
               session.configured ? "" : ", not configured",
               WorkOf(session.handle, camera).c_str());
    }
    Row("attempts to open one", std::to_string(device.CallCount(Entry::OpenSession)));
    if (!AreSessionsRight(device, camera)) {
        Row("", "not one session for each feature", Colour::Bad);
    }
    Row("buffers asked of the framework", std::to_string(camera.CountLent()));
}

bool PrintVerdict(const standin::Control& device, const Camera& camera) {
    const auto& requests = camera.Requests();
    const auto good = static_cast<size_t>(
        std::count_if(requests.begin(), requests.end(),
                      [](const auto& request) { return request->Findings().empty(); }));
    const standin::Alive alive = device.CountAlive();
    const Texts violations = device.Violations();
    const bool isGood = good == requests.size() && AreSessionsRight(device, camera) &&
                        alive.Total() == 0 && violations.empty();
    Heading("Closed");
    for (const std::string& violation : violations) {
        printf("  violation: %s\n", Painted(Colour::Bad, violation).c_str());
    }
    const std::string verdict =
        std::to_string(good) + " of " + Count(requests.size(), "request") +
        " came back as they should; left alive in the vendor: " + LeftAlive(alive) + "; " +
        Count(violations.size(), "violation") + " of the contract.";
    printf("%s\n", Painted(isGood ? Colour::Good : Colour::Bad, verdict).c_str());
    return isGood;
}

} // namespace host
