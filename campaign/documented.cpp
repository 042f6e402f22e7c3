/// The table of what faults may cost: docs/kept-behaviours.md and docs/contract.md, fault by fault.
#include "campaign/documented.h"

#include "standin/located_json.h"

#include <sstream>

namespace campaign {
namespace {

/// What a fault may cost. Rules of objects that are left at the end follow from `left`.
struct Cost {
    const char* rules = "";
    const char* left = ""; ///< A letter for each object of one failing call, see kKinds.
    std::set<uint32_t> statuses = {};
    bool notSent = false;
    bool wrongPictures = false;
    bool abort = false;
    bool abortIsDue = false;
    bool sessionRecords = false;
};

const std::map<char, const char*>& Kinds() {
    static const std::map<char, const char*> kinds = {
        {'A', "Android metadata"}, {'B', "buffer managers"}, {'I', "image buffers"},
        {'M', "metadata"},         {'S', "sessions"},        {'T', "operation tables"}};
    return kinds;
}

/// By the place of the fault: "fail" and "refuse", or the only form.
const std::map<std::string, Cost>& Fails() {
    // "At the boundary": a hard lack ends the load.
    const Cost hard{.abort = true, .abortIsDue = true};
    // Without the offline library there is neither metadata, nor a buffer, nor a session.
    const Cost noOffline{.statuses = {4}, .notSent = true};
    static const std::map<std::string, Cost> costs = {
        // The N-th library may be one that the device cannot do without.
        {"LibraryOpen", {.statuses = {4}, .notSent = true, .abort = true}},
        {"OpenContext", noOffline},
        // An entry that returns nothing: the operations are installed as they are.
        {"OfflineLogEntry", {.rules = "V2"}},
        // A host without metadata, beside one of another camera that has some.
        {"OpenMetadataOps", {.rules = "V31"}},
        {"OpenBufferOps", {.notSent = true}},
        {"BufferManagerCreate", {.notSent = true}},
        {"GetImageBuffer", {.notSent = true}},
        {"GetCPUAddress", {.wrongPictures = true}},
        {"MetadataCreateWithUsage", {}},
        {"MetadataSetTag", {}},
        {"TranslateToChiBuffer", {.rules = "H4", .wrongPictures = true}},
        {"TranslateFromChiBuffer", {.rules = "H4"}},
        {"OpenSession", {.statuses = {4}, .sessionRecords = true}},
        {"MetadataCreateFromAndroid", {.rules = "V32"}},
        // The attempt, its retry, and a further one after a flush; and the settings of each.
        {"ConfigureStreams", {.left = "SSSMMM", .statuses = {4}, .sessionRecords = true}},
        {"ExecuteRequest", {.statuses = {1}}},
        {"MetadataCreateAndroid", {.rules = "H5"}},
        {"MetadataDestroy", {.left = "M"}},
        {"CloseSession", {.left = "SSMM", .statuses = {4}, .sessionRecords = true}},
        {"ReleaseImageBuffer", {.left = "I"}},
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
        {"MetadataCreateFromAndroid", {.rules = "V32", .left = "A"}},
        // What the manager holds goes with it.
        {"ReleaseImageBuffer", {.rules = "V29", .left = "I"}},
        {"camera.qcom.no-ncs.so", {}},
        {"camera.qcom.no-hw.so", {}},
        {"camera.qcom.no-perf.so", {}},
    };
    return costs;
}

constexpr uint64_t kAny = 1'000'000'000; // However often it fails.

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
        allowed.statuses.insert(cost.statuses.begin(), cost.statuses.end());
        allowed.notSent |= cost.notSent;
        allowed.wrongPictures |= cost.wrongPictures;
        allowed.abort |= cost.abort;
        allowed.abortIsDue |= cost.abortIsDue;
        allowed.sessionRecords |= cost.sessionRecords;
    }
    return allowed;
}

} // namespace campaign
