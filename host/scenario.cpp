/// Scenarios: read, checked, and applied to the device.
#include "host/scenario.h"

#include "adapterlayer/oemlayer_host.h"
#include "standin/located_json.h"

#include <system/graphics-base.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>

namespace host {
namespace {

using standin::Delivery;
using standin::Entry;
using standin::Located;
using standin::Order;
using standin::Shape;

constexpr uint32_t kMostCameras = 16;
constexpr uint32_t kLeastWidth = 128, kLeastHeight = 96; // Smaller pictures are judged by chance.
constexpr uint32_t kMostOfSmall = 12;   // Frames; for more of them twice the size is needed.
constexpr uint32_t kMostPixels = 16384; // In a row or a column.
constexpr uint64_t kMostBytes = uint64_t{4} << 30; // Of all pictures.
constexpr uint32_t kMost = 1'000'000;
constexpr uint32_t kMostDualSets = 6; // More would read past the wrapper's 13 raw handles.

#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr uint32_t kPatience = 60;
#else
constexpr uint32_t kPatience = 10;
#endif

const std::map<std::string, int32_t>& Formats() {
    static const std::map<std::string, int32_t> formats{{"RAW10", HAL_PIXEL_FORMAT_RAW10},
                                                        {"RAW16", HAL_PIXEL_FORMAT_RAW16},
                                                        {"YUV", HAL_PIXEL_FORMAT_YCBCR_420_888}};
    return formats;
}

std::vector<std::string> Words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

std::optional<Entry> FindEntry(const std::string& name) {
    for (uint32_t i = 0; i < static_cast<uint32_t>(Entry::Count); ++i) {
        if (standin::EntryName(Entry{i}) == name) {
            return Entry{i};
        }
    }
    return std::nullopt;
}

bool IsCount(const std::string& text) {
    return text.size() < 8 && text[0] != '0' &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace

const char* const kFaultForms = "\"fail ENTRY [NTH [TIMES]]\", \"missing ENTRY\", \"refuse PATH\" "
                                "or \"variant PATH FILE\"";

const std::map<std::string, Shape>& Shapes() {
    static const std::map<std::string, Shape> shapes{
        {"metadata-first", Shape::MetadataFirst},
        {"buffers-first", Shape::BuffersFirst},
        {"together", Shape::Together},
        {"partials", Shape::Partials},
        {"error-buffer", Shape::ErrorBuffer},
        {"second-block", Shape::SecondBlock},
    };
    return shapes;
}

// --- Faults -------------------------------------------------------------------------------------

std::string Fault::Check() const {
    const std::vector<std::string> words = Words(text);
    const std::string form = words.empty() ? "" : words[0];
    const bool isFail = form == "fail" && words.size() >= 2 && words.size() <= 4;
    const bool isMissing = form == "missing" && words.size() == 2;
    if (isFail || isMissing) {
        const std::optional<Entry> entry = FindEntry(words[1]);
        if (!entry.has_value()) {
            return "there is no entry " + words[1] + " at the device";
        }
        if (isMissing && (*entry < Entry::OpenSession || *entry > Entry::GetCPUAddress)) {
            return words[1] + " is in no table, so that it cannot be missing there";
        }
        const bool areCounts = std::all_of(words.begin() + 2, words.end(), IsCount);
        return areCounts ? "" : "a count must be a number from 1 on";
    }
    const bool isLibrary =
        (form == "refuse" && words.size() == 2) || (form == "variant" && words.size() == 3);
    if (!isLibrary) {
        return std::string("must be ") + kFaultForms;
    }
    const std::string root = StandinControl()->DeviceRoot();
    if (!std::filesystem::is_regular_file(root + words[1])) {
        return "there is no library " + words[1] + " on the device";
    }
    const bool isThere =
        form == "refuse" || std::filesystem::is_regular_file(root + "/variants/" + words[2]);
    return isThere ? "" : "there is no variant " + words[2];
}

bool Fault::WasReached(const standin::Control& device) const {
    const std::vector<std::string> words = Words(text);
    if (words[0] != "fail") {
        return true;
    }
    const auto nth = words.size() > 2 ? std::stoul(words[2]) : 1;
    return device.CallCount(*FindEntry(words[1])) >= nth;
}

void Fault::Apply(standin::Control& device) const {
    std::vector<std::string> words = Words(text);
    if (words[0] == "refuse") {
        device.RefuseLibrary(words[1]);
    } else if (words[0] == "variant") {
        device.UseVariant(words[1], words[2]);
    } else if (words[0] == "missing") {
        device.SetMissing(*FindEntry(words[1]));
    } else {
        const Entry entry = *FindEntry(words[1]);
        const auto nth = words.size() > 2 ? std::stoul(words[2]) : 1;
        const auto times = words.size() > 3 ? std::stoul(words[3]) : UINT32_MAX;
        device.Fail(entry, standin::FailureOf(entry), static_cast<uint32_t>(nth),
                    static_cast<uint32_t>(times));
    }
}

// --- Reading ------------------------------------------------------------------------------------

namespace {

std::vector<std::string> ReadTexts(const Located& json, const std::string& key) {
    std::vector<std::string> texts;
    for (const Located& item : json[key].Items()) {
        texts.push_back(item.Text());
    }
    if (texts.empty()) {
        json[key].Fail("must not be empty");
    }
    return texts;
}

CameraPlan ReadCamera(const Located& json, uint32_t id) {
    json.AllowKeys({"id", "inputs", "width", "height", "features", "frames", "requests", "rate",
                    "inFlight", "threads", "output", "announcedSets", "flushAfter", "heldAtFlush"});
    CameraPlan plan;
    plan.id = json.Number("id", id, 0, kMostCameras - 1);
    if (json.Has("inputs")) {
        plan.inputs.clear();
        for (const Located& item : json["inputs"].Items()) {
            plan.inputs.push_back(item.Choice(Formats()));
        }
    }
    if (json.Has("features")) {
        plan.features = ReadTexts(json, "features");
    }
    plan.width = json.Number("width", plan.width, kLeastWidth, kMostPixels, 4);
    plan.height = json.Number("height", plan.height, kLeastHeight, kMostPixels, 2);
    plan.frames = json.Number("frames", plan.frames, 1, OemLayer::kMaxInputSets);
    plan.requests = json.Number("requests", plan.requests, 1, kMost);
    plan.rate = json.Number("rate", plan.rate, 0, 1000);
    plan.inFlight = json.Number("inFlight", plan.inFlight, 0, kMost);
    plan.threads = json.Number("threads", plan.threads, 1, 64);
    const int output = json.Choice<int>("output", 1, {{"none", 0}, {"own", 1}, {"on-request", 2}});
    plan.sendsOutput = output != 0;
    plan.lends = output == 2;
    plan.announcedSets = json.Number("announcedSets", 0, 0, kMost);
    plan.flushAfter = json.Number("flushAfter", 0, 0, kMost);
    plan.heldAtFlush = json.Number("heldAtFlush", 0, 0, kMost);
    return plan;
}

std::vector<Fault> ReadFaults(const Located& json) {
    std::vector<Fault> faults;
    std::set<std::string> targets;
    for (const Located& item : json.Items()) {
        faults.push_back({item.Text()});
        if (const std::string problem = faults.back().Check(); !problem.empty()) {
            item.Fail(problem);
        }
        if (!targets.insert(Words(faults.back().text)[1]).second) {
            item.Fail("is the second fault at the same place");
        }
    }
    return faults;
}

/// Numbers of rules.
std::vector<std::string> ReadRules(const Located& json) {
    std::vector<std::string> numbers;
    for (const Located& item : json.Items()) {
        numbers.push_back(item.Text());
        if (std::none_of(standin::kRules.begin(), standin::kRules.end(),
                         [&](const auto& rule) { return rule.number == numbers.back(); })) {
            item.Fail("must be the number of a rule, as in docs/contract.md");
        }
    }
    return numbers;
}

void ReadVendor(const Located& json, Scenario& scenario) {
    json.AllowKeys({"shape", "order", "delivery", "latency", "frameworkBuffers", "faults"});
    scenario.shape = json.Choice("shape", scenario.shape, Shapes());
    scenario.order = json.Choice<Order>(
        "order", scenario.order, {{"in-order", Order::InOrder}, {"shuffled", Order::Shuffled}});
    scenario.delivery = json.Choice<Delivery>("delivery", scenario.delivery,
                                              {{"session-thread", Delivery::OnSessionThread},
                                               {"in-call", Delivery::OnCallerThread},
                                               {"never", Delivery::ByHand}});
    scenario.latencyMilliseconds = json.Number("latency", 0, 0, 10'000);
    scenario.frameworkBuffers = json.Flag("frameworkBuffers", false);
    if (json.Has("faults")) {
        scenario.faults = ReadFaults(json["faults"]);
    }
}

std::map<uint32_t, uint32_t> ReadRefused(const Located& json) {
    json.AllowKeys({"1", "4"});
    return {{1, json.Number("1", 0, 0, kMost)}, {4, json.Number("4", 0, 0, kMost)}};
}

Expectation ReadExpectation(const Located& json) {
    json.AllowKeys({"completed", "refused", "notSent", "unanswered", "errors", "sessions",
                    "pictures", "abort", "violations"});
    Expectation expect;
    if (json.Has("completed")) {
        expect.completed = json.Number("completed", 0, 0, kMost);
    }
    if (json.Has("refused")) {
        expect.refused = ReadRefused(json["refused"]);
    }
    expect.notSent = json.Number("notSent", 0, 0, kMost);
    expect.unanswered = json.Number("unanswered", 0, 0, kMost);
    expect.errors = json.Number("errors", 0, 0, kMost);
    if (json.Has("sessions")) {
        expect.sessions = json.Number("sessions", 0, 0, kMost);
    }
    expect.pictures = json.Flag("pictures", true);
    expect.abort = json.Flag("abort", false);
    if (json.Has("violations")) {
        expect.violations = ReadRules(json["violations"]);
    }
    return expect;
}

/// Whether a camera of the list before this one has its id.
bool IsTwin(const CameraPlan& plan, const Scenario& scenario) {
    const auto first = std::find_if(scenario.cameras.begin(), scenario.cameras.end(),
                                    [&](const CameraPlan& other) { return other.id == plan.id; });
    return &*first != &plan;
}

std::string CheckSize(const CameraPlan& plan) {
    const bool isLarge = plan.frames * plan.inputs.size() > kMostOfSmall;
    const uint32_t leastWidth = isLarge ? 2 * kLeastWidth : kLeastWidth;
    const uint32_t leastHeight = isLarge ? 2 * kLeastHeight : kLeastHeight;
    if (plan.width < leastWidth || plan.height < leastHeight ||
        std::max(plan.width, plan.height) > kMostPixels) {
        return "the size must be from " + std::to_string(leastWidth) + " x " +
               std::to_string(leastHeight) + " for so many frames to " +
               std::to_string(kMostPixels) + " x " + std::to_string(kMostPixels);
    }
    if (plan.width % 4 != 0 || plan.height % 2 != 0) {
        return "the width must be a multiple of 4, the height one of 2";
    }
    if (uint64_t{plan.requests} * plan.width * plan.height * 3 / 2 > kMostBytes) {
        return "the pictures of so many requests take more than 4 GiB";
    }
    return {};
}

std::string CheckCamera(const CameraPlan& plan, const Scenario& scenario) {
    const std::string who = "camera " + std::to_string(plan.id) + ": ";
    const auto raws = std::count_if(plan.inputs.begin(), plan.inputs.end(), [](int32_t format) {
        return format != HAL_PIXEL_FORMAT_YCBCR_420_888;
    });
    if (const std::string problem = CheckSize(plan); !problem.empty()) {
        return who + problem;
    }
    if (plan.inputs.empty() || raws > 2 || plan.inputs.size() - static_cast<size_t>(raws) > 1) {
        return who + "inputs must be one or two raw streams, or a YUV one, or both";
    }
    if (raws > 0 && plan.inputs[0] == HAL_PIXEL_FORMAT_YCBCR_420_888) {
        return who + "a YUV input must be the last";
    }
    if (raws == 2 && plan.inputs[1] == HAL_PIXEL_FORMAT_YCBCR_420_888) {
        return who + "a YUV input must be the last";
    }
    if (plan.IsDualRdi() && plan.inputs[0] != plan.inputs[1]) {
        return who + "the two raw inputs must come first and have one format";
    }
    if (plan.IsDualRdi() && plan.frames > kMostDualSets) {
        return who + "two raw inputs can have 6 frames at most";
    }
    if (plan.frames * plan.inputs.size() > OemLayer::kMaxInputBuffers) {
        return who + "frames times inputs must be 24 at most";
    }
    if (plan.lends != scenario.frameworkBuffers) {
        return who + "output must be \"on-request\" where the vendor asks for framework buffers, "
                     "and nowhere else";
    }
    if (plan.lends && (plan.threads > 1 || plan.rate > 0 || plan.inFlight > 1)) {
        return who + "requests whose output is lent must go one at a time";
    }
    if (plan.flushAfter >= plan.requests) {
        return who + "flushAfter must be less than requests";
    }
    if (plan.heldAtFlush > 0 &&
        (plan.heldAtFlush > plan.flushAfter || plan.threads > 1 || scenario.cameras.size() > 1 ||
         plan.inFlight <= plan.heldAtFlush)) {
        return who + "heldAtFlush must be flushAfter at most and less than inFlight, on one camera "
                     "with one thread";
    }
    return IsTwin(plan, scenario) ? who + "there are two of this id" : std::string{};
}

void ReadCameras(const Located& json, Scenario& scenario) {
    std::vector<Located> places;
    if (!json.Has("cameras")) {
        scenario.cameras.emplace_back();
        places.push_back(json);
    } else {
        places = json["cameras"].Items();
        for (const Located& place : places) {
            const auto id = static_cast<uint32_t>(scenario.cameras.size()) % kMostCameras;
            scenario.cameras.push_back(ReadCamera(place, id));
        }
    }
    for (size_t i = 0; i < places.size(); ++i) {
        const std::string problem = CheckCamera(scenario.cameras[i], scenario);
        if (!problem.empty()) {
            places[i].Refuse(problem);
        }
    }
    if (places.empty()) {
        json["cameras"].Fail("must not be empty");
    }
}

} // namespace

bool CameraPlan::IsDualRdi() const {
    return inputs.size() > 1 && inputs[0] != HAL_PIXEL_FORMAT_YCBCR_420_888 &&
           inputs[1] != HAL_PIXEL_FORMAT_YCBCR_420_888;
}

std::string Scenario::Check() const {
    for (const CameraPlan& plan : cameras) {
        if (std::string problem = CheckCamera(plan, *this); !problem.empty()) {
            return problem;
        }
    }
    return {};
}

Scenario Scenario::Read(const std::string& file) {
    const Located json = Located::Read(file);
    json.AllowKeys({"shows", "cameras", "vendor", "seed", "patience", "scene", "expect"});
    Scenario scenario;
    scenario.name = std::filesystem::path(file).stem().string();
    scenario.shows = json.Text("shows", "");
    scenario.seed = json.Number("seed", scenario.seed, 0, kMost);
    scenario.patienceSeconds = json.Number("patience", kPatience, 1, 3600);
    if (json.Has("scene")) {
        const auto folder = std::filesystem::path(file).parent_path();
        scenario.scene = (folder / json["scene"].Text()).string();
        scenario.scenePlace = json["scene"].Where() + ": ";
    }
    if (json.Has("vendor")) {
        ReadVendor(json["vendor"], scenario);
    }
    if (json.Has("expect")) {
        scenario.expect = ReadExpectation(json["expect"]);
    }
    ReadCameras(json, scenario);
    return scenario;
}

} // namespace host
