/// Which faults there are, and with which others each is tried.
#include "campaign/cells.h"

#include "standin/located_json.h"
#include "view/text.h"

#include <algorithm>
#include <filesystem>
#include <set>

namespace campaign {
namespace {

namespace fs = std::filesystem;
using standin::Entry;

constexpr uint32_t kMostSmall = 8; // Requests; a scenario with more has as many as its features.

/// A fault that may be tried.
struct Form {
    std::string text;
    std::string place;
    bool isLater = false; ///< Of one call that is not the first.
};

void Add(std::vector<Form>& forms, const std::string& text, bool isLater = false) {
    forms.push_back({text, host::Fault{text}.Place(), isLater});
}

/// The faults of the device's libraries: none is there, or one that lacks a function.
void AddLibraries(std::vector<Form>& forms) {
    const std::string root = StandinControl()->DeviceRoot();
    std::set<fs::path> libraries;
    for (const auto& file : fs::recursive_directory_iterator(root)) {
        if (file.path().extension() == ".so") {
            libraries.insert(file.path().lexically_relative(root));
        }
    }
    const auto isVariant = [](const fs::path& file) { return *file.begin() == "variants"; };
    for (const fs::path& library : libraries) {
        if (isVariant(library)) {
            continue;
        }
        Add(forms, "refuse /" + library.string());
        for (const fs::path& variant : libraries) {
            if (isVariant(variant) &&
                variant.filename().string().starts_with(library.stem().string() + ".no-")) {
                Add(forms, "variant /" + library.string() + " " + variant.filename().string());
            }
        }
    }
}

std::vector<Form> FormsOf(const Target& target, const Choice& choice, Plan& plan) {
    std::vector<Form> forms;
    for (uint32_t i = 0; i < static_cast<uint32_t>(Entry::Count); ++i) {
        const std::string name = standin::EntryName(Entry{i});
        const uint64_t calls = target.calls[i];
        if (calls > 0) {
            Add(forms, "fail " + name);
        }
        const uint64_t most = choice.mostCalls == 0 ? calls : choice.mostCalls;
        for (uint64_t nth = 1; nth <= std::min(calls, most); ++nth) {
            Add(forms, "fail " + name + " " + std::to_string(nth) + " 1", nth > 1);
        }
        plan.beyond += calls - std::min(calls, most);
        if (const std::string missing = "missing " + name; host::Fault{missing}.Check().empty()) {
            Add(forms, missing);
        }
    }
    AddLibraries(forms);
    plan.taken += std::erase_if(forms, [&](const Form& form) {
        const auto isThere = [&](const host::Fault& own) { return own.Place() == form.place; };
        return std::any_of(target.scenario.faults.begin(), target.scenario.faults.end(), isThere);
    });
    return forms;
}

/// Whether a place is among those that are wanted.
bool IsWanted(const Choice& choice, const Form& form) {
    return choice.places.empty() ||
           std::find(choice.places.begin(), choice.places.end(), form.place) != choice.places.end();
}

void AddPairs(size_t target, const std::vector<Form>& forms, const Choice& choice, Plan& plan) {
    // Of several places, both are wanted; of one, it with each other.
    const int wanted = choice.places.size() == 1 ? 1 : 2;
    for (auto one = forms.begin(); one != forms.end(); ++one) {
        for (auto other = one + 1; other != forms.end(); ++other) {
            if (one->place == other->place ||
                IsWanted(choice, *one) + IsWanted(choice, *other) < wanted) {
                continue;
            }
            if (choice.pairs == Pairs::First && (one->isLater || other->isLater)) {
                ++plan.pairs;
                continue;
            }
            plan.cells.push_back({target, {one->text, other->text}});
        }
    }
}

} // namespace

Target ReadTarget(const std::string& name) {
    const std::string file = host::FileOfScenario(name);
    Target target{name, host::Scenario::Read(file), "", {}};
    host::Sizes sizes{.width = 128, .height = 96};
    for (const host::CameraPlan& plan : target.scenario.cameras) {
        // One that is flushed, or whose results are counted, needs all of its requests.
        const bool isCounted = target.scenario.expect.completed.has_value() || plan.flushAfter > 0;
        if (plan.requests > kMostSmall && !isCounted) {
            sizes.requests =
                std::max({3U, sizes.requests, static_cast<uint32_t>(plan.features.size())});
        }
        if (plan.frames * plan.inputs.size() > 12 || plan.inputs.size() > 1) {
            sizes.width = 256;
            sizes.height = 192;
        }
    }
    target.scenario.Resize(sizes);
    target.scenario.Check([&](size_t, const std::string& problem) {
        throw standin::InputError(file + ": made small: " + problem);
    });
    target.options = "--width " + std::to_string(sizes.width) + " --height " +
                     std::to_string(sizes.height) +
                     (sizes.requests == 0 ? "" : " --requests " + std::to_string(sizes.requests));
    return target;
}

std::string NameOf(const std::string& scenario, const std::vector<std::string>& faults) {
    return scenario + ": " +
           (faults.empty() ? "no fault" : faults[0] + (faults.size() < 2 ? "" : " + " + faults[1]));
}

std::string CommandOf(const Target& target, const std::vector<std::string>& faults,
                      uint32_t seconds, const std::string& library) {
    std::string command = "./dev host " + view::ShellWord(target.name) + " " + target.options +
                          " --limit " + std::to_string(seconds);
    for (const std::string& fault : faults) {
        command += " --fault " + view::ShellWord(fault);
    }
    return command + (library.empty() ? "" : " --library " + view::ShellWord(library));
}

Plan MakePlan(const std::vector<Target>& targets, const Choice& choice) {
    Plan plan;
    std::set<std::string> places;
    for (size_t i = 0; i < targets.size(); ++i) {
        const std::vector<Form> forms = FormsOf(targets[i], choice, plan);
        plan.cells.push_back({i, {}});
        for (const Form& form : forms) {
            places.insert(form.place);
            if (IsWanted(choice, form)) {
                plan.cells.push_back({i, {form.text}});
            }
        }
        if (choice.pairs != Pairs::None) {
            AddPairs(i, forms, choice, plan);
        }
    }
    for (const std::string& place : choice.places) {
        if (!places.contains(place)) {
            throw standin::InputError("these scenarios leave no fault to try at '" + place + "'" +
                                      kit::DidYouMean(place, places));
        }
    }
    return plan;
}

} // namespace campaign
