/// The table of what faults may cost: docs/kept-behaviours.md and docs/contract.md, fault by fault.
#include "campaign/documented.h"

#include "standin/located_json.h"

#include <sstream>

namespace campaign {
namespace {

constexpr uint64_t kAny = 1'000'000'000; // However often it fails.

/// What each failing call may cost. Rules of objects that are left at the end follow from `left`.
struct Cost {
    const char* rules = "";
    const char* left = ""; ///< A letter for each object, see Kinds.
    std::map<uint32_t, uint64_t> refused = {};
    uint64_t notSent = 0;
    uint64_t wrongPictures = 0;
    bool abort = false;
    bool abortIsDue = false;
    uint64_t sessions = 0;
    uint64_t chains = 0;
    bool isFirstFree = false; ///< Of sessions: one call that fails alone costs none.
};

const std::map<char, const char*>& Kinds() {
    static const std::map<char, const char*> kinds = {{'A', "Android metadata"},
                                                      {'B', "buffer managers"},
                                                      {'M', "metadata"},
                                                      {'S', "sessions"},
                                                      {'T', "operation tables"}};
    return kinds;
}

/// By the place of the fault: "fail" and "refuse", or the only form.
const std::map<std::string, Cost>& Fails() {
    // "At the boundary": a hard lack ends the load.
    const Cost hard{.abort = true, .abortIsDue = true};
    // Without the offline library there is neither metadata, nor a buffer, nor a session.
    const Cost noOffline{.notSent = kAny};
    static const std::map<std::string, Cost> costs = {
        // The N-th library may be one that the device cannot do without.
        {"LibraryOpen", {.notSent = kAny, .abort = true}},
        {"OpenContext", noOffline},
        // An entry that returns nothing: the operations are installed as they are.
        {"OfflineLogEntry", {.rules = "V2"}},
        {"OpenBufferOps", {.notSent = kAny}},
        {"BufferManagerCreate", {.notSent = kAny}},
        {"GetImageBuffer", {.notSent = 1}},
        {"GetCPUAddress", {.wrongPictures = 1}},
        {"TranslateToChiBuffer", {.rules = "H4", .wrongPictures = 1}},
        {"TranslateFromChiBuffer", {.rules = "H4"}},
        {"OpenSession", {.refused = {{4, kAny}}, .sessions = 1, .isFirstFree = true}},
        // The attempt, its retry, and a further one after a flush; the settings of the first.
        {"ConfigureStreams", {.left = "SSSM", .refused = {{4, kAny}}, .sessions = 3, .chains = 1}},
        {"ExecuteRequest", {.refused = {{1, 1}}}},
        {"MetadataCreateAndroid", {.rules = "H5"}},
        {"MetadataDestroy", {.left = "M"}},
        // The session, and the one that is opened after a flush for the identity that it kept.
        {"CloseSession", {.left = "SS", .refused = {{4, kAny}}, .sessions = 2}},
        {"MetadataReleaseAndroid", {.left = "A"}},
        {"BufferManagerDestroy", {.left = "B"}},
        {"MetadataOpsClose", {.left = "T"}},
        {"BufferOpsClose", {.left = "T"}},
        {"/vendor/lib64/hw/com.qti.chi.offline.so", noOffline},
        {"/vendor/lib64/hw/camera.qcom.so", hard},
        {"/odm/lib64/libextensionlayer.so", hard},
    };
    return costs;
}

/// Where it costs something else that the entry is missing, or that a library lacks a function.
const std::map<std::string, Cost>& Lacks() {
    static const std::map<std::string, Cost> costs = {
        // Android metadata goes back only where it could be taken in.
        {"MetadataCreateFromAndroid", {.left = "A"}},
        // Nobody was handed the record.
        {"OpenSession", {.refused = {{4, kAny}}}},
        // What the manager holds goes with it.
        {"ReleaseImageBuffer", {.rules = "V29"}},
        {"camera.qcom.no-ncs.so", {}},
        {"camera.qcom.no-hw.so", {}},
        {"camera.qcom.no-perf.so", {}},
    };
    return costs;
}

/// The cost of a fault, and for how many calls.
std::pair<Cost, uint64_t> CostOf(const host::Fault& fault) {
    std::istringstream stream(fault.text);
    std::string form;
    std::string place;
    std::string third;
    uint64_t times = 0;
    stream >> form >> place >> third >> times;
    const std::string lack = form == "missing" ? place : form == "variant" ? third : "";
    if (const auto found = Lacks().find(lack); found != Lacks().end()) {
        return {found->second, kAny};
    }
    const auto found = Fails().find(place);
    return {found == Fails().end() ? Cost{} : found->second, times == 0 ? kAny : times};
}

} // namespace

Allowed AllowedBy(const std::vector<host::Fault>& faults) {
    Allowed allowed;
    for (const host::Fault& fault : faults) {
        const auto& [cost, times] = CostOf(fault);
        std::istringstream rules(cost.rules);
        allowed.rules.insert(std::istream_iterator<std::string>(rules), {});
        for (const char* kind = cost.left; *kind != '\0'; ++kind) {
            allowed.left[Kinds().at(*kind)] += times;
        }
        for (const auto& [status, count] : cost.refused) {
            allowed.refused[status] += count * times;
        }
        allowed.notSent += cost.notSent * times;
        allowed.wrongPictures += cost.wrongPictures * times;
        allowed.abort |= cost.abort;
        allowed.abortIsDue |= cost.abortIsDue;
        allowed.sessions += cost.sessions * (times - (cost.isFirstFree ? 1 : 0));
        allowed.chains += cost.chains * times;
    }
    return allowed;
}

} // namespace campaign
