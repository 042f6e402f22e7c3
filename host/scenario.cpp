/// Scenarios: read, checked, and applied to the device.
#include "host/scenario.h"

#include "adapterlayer/oemlayer_host.h"
#include "kit/library.h"
#include "standin/located_json.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>

namespace host {
namespace {

using namespace standin;
using kit::DidYouMean;

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

std::vector<std::string> Words(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

/// By their numbers.
std::vector<std::string> EntryNames() {
    std::vector<std::string> names;
    for (uint32_t i = 0; i < static_cast<uint32_t>(Entry::Count); ++i) {
        names.emplace_back(EntryName(Entry{i}));
    }
    return names;
}

std::optional<Entry> FindEntry(const std::string& name) {
    const std::vector<std::string> names = EntryNames();
    const auto found = std::find(names.begin(), names.end(), name);
    return found == names.end()
               ? std::nullopt
               : std::optional(Entry{static_cast<uint32_t>(found - names.begin())});
}

/// What is wrong with the path of a file below a folder of the device, empty if nothing is.
std::string ProblemOfPath(const std::string& what, const std::string& folder,
                          const std::string& path) {
    if (std::filesystem::is_regular_file(folder + path)) {
        return "";
    }
    std::vector<std::string> paths;
    for (const auto& file : std::filesystem::recursive_directory_iterator(folder)) {
        paths.push_back(file.path().string().substr(folder.size()));
    }
    return "there is no " + what + " " + path + DidYouMean(path, paths);
}

bool IsCount(const std::string& text) {
    return text.size() < 8 && text[0] != '0' &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/// The count at an index of a fault's words.
uint32_t CountAt(const std::vector<std::string>& words, size_t index, uint32_t fallback) {
    return index < words.size() ? static_cast<uint32_t>(std::stoul(words[index])) : fallback;
}

} // namespace

// --- Faults -------------------------------------------------------------------------------------

std::string Fault::Check() const {
    const std::vector<std::string> words = Words(text);
    const std::string form = words.empty() ? "" : words[0];
    const bool isFail = form == "fail" && words.size() >= 2 && words.size() <= 4;
    const bool isMissing = form == "missing" && words.size() == 2;
    if (isFail || isMissing) {
        const std::optional<Entry> entry = FindEntry(words[1]);
        if (!entry.has_value()) {
            return "there is no entry " + words[1] + " at the device" +
                   DidYouMean(words[1], EntryNames());
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
        static const std::vector<std::string> forms{"fail", "missing", "refuse", "variant"};
        return std::string("must be ") + kFaultForms + DidYouMean(form, forms);
    }
    const std::string root = StandinControl()->DeviceRoot();
    const std::string problem = ProblemOfPath("library on the device at", root, words[1]);
    return !problem.empty() || form == "refuse"
               ? problem
               : ProblemOfPath("variant", root + "/variants/", words[2]);
}

std::string Fault::Place() const { return Words(text)[1]; }

bool Fault::WasReached(const Control& device) const {
    const std::vector<std::string> words = Words(text);
    return words[0] != "fail" || device.CallCount(*FindEntry(words[1])) >= CountAt(words, 2, 1);
}

void Fault::Apply(Control& device) const {
    const std::vector<std::string> words = Words(text);
    if (words[0] == "refuse") {
        device.RefuseLibrary(words[1]);
    } else if (words[0] == "variant") {
        device.UseVariant(words[1], words[2]);
    } else if (words[0] == "missing") {
        device.SetMissing(*FindEntry(words[1]));
    } else {
        const Entry entry = *FindEntry(words[1]);
        device.Fail(entry, FailureOf(entry), CountAt(words, 2, 1), CountAt(words, 3, UINT32_MAX));
    }
}

// --- Reading ------------------------------------------------------------------------------------

namespace {

int32_t ReadFormat(const Located& json) { return json.Choice(kFormats); }

CameraPlan ReadCamera(const Located& json, uint32_t id) {
    json.AllowKeys({"id", "inputs", "width", "height", "features", "frames", "requests", "rate",
                    "inFlight", "threads", "output", "announcedSets", "flushAfter", "heldAtFlush"});
    CameraPlan plan;
    plan.id = json.Number("id", id, 0, kMostCameras - 1);
    plan.inputs = json.List("inputs", plan.inputs, ReadFormat);
    plan.features = json.List("features", plan.features, std::mem_fn(&Located::Text), false);
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

std::string ReadRule(const Located& json) {
    std::string number = json.Text();
    if (std::none_of(contract::kRules.begin(), contract::kRules.end(),
                     [&](const auto& rule) { return rule.number == number; })) {
        json.Fail("must be the number of a rule, as in docs/contract.md" +
                  DidYouMean(number, contract::kRules, &contract::RuleText::number));
    }
    return number;
}

void ReadVendor(const Located& json, Scenario& scenario) {
    json.AllowKeys({"shape", "order", "delivery", "latency", "frameworkBuffers", "faults"});
    scenario.shape = json.Choice("shape", scenario.shape, kShapes);
    scenario.order = json.Choice<Order>(
        "order", scenario.order, {{"in-order", Order::InOrder}, {"shuffled", Order::Shuffled}});
    scenario.delivery = json.Choice<Delivery>("delivery", scenario.delivery,
                                              {{"session-thread", Delivery::OnSessionThread},
                                               {"in-call", Delivery::OnCallerThread},
                                               {"never", Delivery::ByHand}});
    scenario.latency = std::chrono::milliseconds(json.Number("latency", 0, 0, 10'000));
    scenario.frameworkBuffers = json.Flag("frameworkBuffers", false);
    std::set<std::string> targets;
    const auto readFault = [&](const Located& item) {
        Fault fault{item.Text()};
        if (const std::string problem = fault.Check(); !problem.empty()) {
            item.Fail(problem);
        }
        if (!targets.insert(fault.Place()).second) {
            item.Fail("is the second fault at the same place");
        }
        return fault;
    };
    scenario.faults = json.List("faults", scenario.faults, readFault);
}

std::map<uint32_t, uint32_t> ReadRefused(const Located& json) {
    json.AllowKeys({"1", "4"});
    return {{1, json.Number("1", 0, 0, kMost)}, {4, json.Number("4", 0, 0, kMost)}};
}

Expectation ReadExpectation(const Located& json) {
    json.AllowKeys({"completed", "refused", "notSent", "unanswered", "errors", "sessions",
                    "pictures", "abort", "violations"});
    const auto number = [&](const char* key) { return json.Number(key, 0, 0, kMost); };
    const auto optional = [&](const char* key) {
        return json.Has(key) ? std::optional(number(key)) : std::nullopt;
    };
    return {.completed = optional("completed"),
            .refused = json.Has("refused") ? ReadRefused(json["refused"]) : Expectation{}.refused,
            .notSent = number("notSent"),
            .unanswered = number("unanswered"),
            .errors = number("errors"),
            .sessions = optional("sessions"),
            .pictures = json.Flag("pictures", true),
            .abort = json.Flag("abort", false),
            .violations = json.List("violations", Expectation{}.violations, ReadRule)};
}

std::string SizeText(uint32_t width, uint32_t height) {
    return std::to_string(width) + " x " + std::to_string(height);
}

/// What is wrong with a camera's plan, empty if nothing is.
std::string CheckCamera(const CameraPlan& plan, const Scenario& scenario) {
    const auto isRaw = [](int32_t format) { return format != HAL_PIXEL_FORMAT_YCBCR_420_888; };
    const auto isTwin = [&](const CameraPlan& other) { return other.id == plan.id; };
    const size_t inputs = plan.inputs.size();
    const size_t raws = plan.CountRaws();
    const uint32_t enlargement = plan.frames * inputs > kMostOfSmall ? 2 : 1;
    const uint32_t leastWidth = enlargement * kLeastWidth;
    const uint32_t leastHeight = enlargement * kLeastHeight;
    const std::pair<bool, std::string> problems[] = {
        {plan.width < leastWidth || plan.height < leastHeight ||
             std::max(plan.width, plan.height) > kMostPixels,
         "the size must be from " + SizeText(leastWidth, leastHeight) + " for so many frames to " +
             SizeText(kMostPixels, kMostPixels)},
        {plan.width % 4 != 0 || plan.height % 2 != 0,
         "the width must be a multiple of 4, the height one of 2"},
        {uint64_t{plan.requests} * plan.width * plan.height * 3 / 2 > kMostBytes,
         "the pictures of so many requests take more than 4 GiB"},
        {inputs == 0 || raws > 2 || inputs - raws > 1,
         "inputs must be one or two raw streams, or a YUV one, or both"},
        {!std::is_partitioned(plan.inputs.begin(), plan.inputs.end(), isRaw),
         "a YUV input must be the last"},
        {raws == 2 && plan.inputs[0] != plan.inputs[1],
         "the two raw inputs must come first and have one format"},
        {raws == 2 && plan.frames > kMostDualSets, "two raw inputs can have 6 frames at most"},
        {plan.frames * inputs > OemLayer::kMaxInputBuffers,
         "frames times inputs must be 24 at most"},
        {plan.lends != scenario.frameworkBuffers,
         "output must be \"on-request\" where the vendor asks for framework buffers, and nowhere "
         "else"},
        {plan.lends && (plan.threads > 1 || plan.rate > 0 || plan.inFlight > 1),
         "requests whose output is lent must go one at a time"},
        {plan.flushAfter >= plan.requests, "flushAfter must be less than requests"},
        {plan.heldAtFlush > 0 && (plan.heldAtFlush > plan.flushAfter || plan.threads > 1 ||
                                  scenario.cameras.size() > 1 || plan.inFlight <= plan.heldAtFlush),
         "heldAtFlush must be flushAfter at most and less than inFlight, on one camera with one "
         "thread"},
        {&*std::find_if(scenario.cameras.begin(), scenario.cameras.end(), isTwin) != &plan,
         "there are two of this id"},
    };
    for (const auto& [isThere, problem] : problems) {
        if (isThere) {
            return "camera " + std::to_string(plan.id) + ": " + problem;
        }
    }
    return {};
}

void ReadCameras(const Located& json, Scenario& scenario) {
    uint32_t count = 0;
    const auto read = [&](const Located& item) { return ReadCamera(item, count++ % kMostCameras); };
    scenario.cameras = json.List("cameras", std::vector<CameraPlan>(1), read, false);
    scenario.Check([&](size_t camera, const std::string& problem) {
        (json.Has("cameras") ? json["cameras"].Items()[camera] : json).Refuse(problem);
    });
}

} // namespace

uint32_t CameraPlan::CountRaws() const {
    const auto yuvs = std::count(inputs.begin(), inputs.end(), HAL_PIXEL_FORMAT_YCBCR_420_888);
    return static_cast<uint32_t>(inputs.size() - static_cast<size_t>(yuvs));
}

void Scenario::Check(const std::function<void(size_t, const std::string&)>& refuse) const {
    for (size_t i = 0; i < cameras.size(); ++i) {
        if (const std::string problem = CheckCamera(cameras[i], *this); !problem.empty()) {
            refuse(i, problem);
        }
    }
}

Scenario Scenario::Read(const std::string& file) {
    const Located json = Located::Read(file);
    json.AllowKeys({"shows", "cameras", "vendor", "seed", "patience", "scene", "expect"});
    Scenario scenario;
    scenario.name = std::filesystem::path(file).stem().string();
    scenario.shows = json.Has("shows") ? json["shows"].Text() : "";
    scenario.seed = json.Number("seed", scenario.seed, 0, kMost);
    scenario.patience = std::chrono::seconds(json.Number("patience", kPatience, 1, 3600));
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

void Scenario::Resize(const Sizes& sizes) {
    for (CameraPlan& plan : cameras) {
        plan.width = sizes.width == 0 ? plan.width : sizes.width;
        plan.height = sizes.height == 0 ? plan.height : sizes.height;
        plan.frames = sizes.frames == 0 ? plan.frames : sizes.frames;
        plan.requests = sizes.requests == 0 ? plan.requests : sizes.requests;
    }
    if (sizes.requests > 0) {
        expect.sessions.reset(); // It depends on how many there are.
    }
}

std::set<std::filesystem::path> ScenarioFiles() {
    using std::filesystem::directory_iterator;
    return {directory_iterator(kit::Beside("../host/scenarios")), directory_iterator()};
}

std::string FileOfScenario(const std::string& scenario) {
    const bool isFile = scenario.ends_with(".json");
    std::string file = isFile ? scenario : kit::Beside("../host/scenarios/" + scenario + ".json");
    if (!isFile && !std::filesystem::exists(file)) {
        const std::string meant =
            DidYouMean(scenario, ScenarioFiles(), [](const auto& known) { return known.stem(); });
        throw InputError(
            "there is no scenario '" + scenario + "'" + (meant.empty() ? ";" : meant) +
            " './dev host --list' lists what there is, and a file's name ends in .json");
    }
    return file;
}

std::string NameOfFormat(int32_t format) {
    const auto isThis = [format](const auto& named) { return named.second == format; };
    return std::find_if(kFormats.begin(), kFormats.end(), isThis)->first;
}

} // namespace host
