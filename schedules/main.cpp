/// All orders of results for small plans: as many as combinatorics gives, and each of them good.
#include "host/scenario.h"
#include "schedules/count.h"
#include "schedules/run.h"
#include "view/command.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace {

using namespace schedules;

enum ExitStatus { kAllGood = 0, kFailed = 1, kWrongInput = 2, kInterrupted = 130 };

constexpr uint64_t kMostOrders = 10'000'000; ///< They take some minutes.
constexpr uint64_t kMostShown = 10;          ///< Findings of a plan.

struct Options {
    std::vector<std::string> plans; ///< Named ones; none for all.
    uint64_t order = 0;             ///< 0 for all.
    bool isList = false;
    std::string thread = "caller";
    // A plan without a name.
    uint32_t requests = 0;
    std::vector<std::string> shapes;
    std::vector<uint32_t> sessions;
    std::vector<std::string> within;
    bool duringSubmissions = false;
    bool submitsWithin = false;
};

// NOLINTNEXTLINE(cert-err58-cpp): without memory the program may end
const std::map<std::string, bool> kThreads{{"caller", false}, {"other", true}};

std::map<std::string, const Plan*> PlansByName() {
    std::map<std::string, const Plan*> plans;
    for (const Plan& plan : NamedPlans()) {
        plans.emplace(plan.name, &plan);
    }
    return plans;
}
// NOLINTNEXTLINE(cert-err58-cpp): without memory the program may end
const std::map<std::string, const Plan*> g_plans = PlansByName();

void AddOptions(CLI::App& app, Options& options) {
    auto* const plan =
        app.add_option("plan", options.plans, "Named plans [all]")->check(view::OneOf(g_plans));
    app.add_flag("--list", options.isList, "The named plans, what they show, and their numbers");
    app.add_option("--order", options.order, "Run the order with this number alone, step by step")
        ->check(CLI::Range(uint64_t{1}, UINT64_MAX - 1));
    app.add_option("--thread", options.thread,
                   "Who delivers: the thread that submits (caller), or another one (other), for "
                   "ThreadSanitizer [caller]")
        ->check(view::OneOf(kThreads));
    const std::string group = "A plan of your own";
    auto* const requests =
        app.add_option("--requests", options.requests, "How many requests, 1 to 4")
            ->check(CLI::Range(1U, kMostRequests))
            ->excludes(plan)
            ->group(group);
    app.add_option("--shape", options.shapes,
                   "How the results of each come back, or of all [metadata-first]")
        ->check(view::OneOf(host::kShapes))
        ->delimiter(',')
        ->needs(requests)
        ->group(group);
    app.add_option("--sessions", options.sessions, "The session of each, 1 to 4, or of all [1]")
        ->check(CLI::Range(1U, kMostRequests))
        ->delimiter(',')
        ->needs(requests)
        ->group(group);
    app.add_option("--within", options.within,
                   "Results also come from within these callbacks for another request: result, "
                   "release, completion, or any of them")
        ->check(view::OneOf(kWithinNames))
        ->delimiter(',')
        ->needs(requests)
        ->group(group);
    app.add_flag("--in-calls", options.duringSubmissions,
                 "Results also come before a submission returned")
        ->needs(requests)
        ->group(group);
    app.add_flag("--submit-within", options.submitsWithin,
                 "Such callbacks submit, too; with --within and --in-calls")
        ->needs("--within", "--in-calls")
        ->group(group);
}

/// One for all, or one for each.
template <class T> std::vector<T> ForEach(uint32_t requests, std::vector<T> given, T otherwise) {
    if (given.size() <= 1) {
        return std::vector<T>(requests, given.empty() ? otherwise : given.front());
    }
    if (given.size() != requests) {
        throw std::invalid_argument(std::to_string(given.size()) + " values for " +
                                    std::to_string(requests) + " requests");
    }
    return given;
}

std::string Joined(const auto& values) {
    std::string text;
    for (const auto& value : values) {
        text += text.empty() ? "" : ",";
        if constexpr (requires { std::to_string(value); }) {
            text += std::to_string(value);
        } else {
            text += value;
        }
    }
    return text;
}

/// \throws std::invalid_argument where options do not fit together.
Plan OwnPlan(const Options& options) {
    Plan plan;
    const auto shapes = ForEach<std::string>(options.requests, options.shapes, "metadata-first");
    const auto sessions = ForEach<uint32_t>(options.requests, options.sessions, 1);
    plan.name = "--requests " + std::to_string(options.requests) + " --shape " + Joined(shapes) +
                " --sessions " + Joined(sessions);
    for (uint32_t i = 0; i < options.requests; ++i) {
        plan.shapes.push_back(host::kShapes.at(shapes[i]));
        plan.sessions.push_back(sessions[i] - 1);
    }
    for (const std::string& within : options.within) {
        plan.within |= kWithinNames.at(within);
    }
    plan.name += options.within.empty() ? "" : " --within " + Joined(options.within);
    plan.duringSubmissions = options.duringSubmissions;
    plan.name += options.duringSubmissions ? " --in-calls" : "";
    plan.submitsWithin = options.submitsWithin;
    plan.name += options.submitsWithin ? " --submit-within" : "";
    return plan;
}

std::vector<Plan> PlansOf(const Options& options) {
    if (options.requests > 0) {
        return {OwnPlan(options)};
    }
    if (!options.plans.empty()) {
        std::vector<Plan> plans;
        for (const std::string& name : options.plans) {
            plans.push_back(*g_plans.at(name));
        }
        return plans;
    }
    return {NamedPlans().begin(), NamedPlans().end()};
}

void List() {
    for (const Plan& plan : NamedPlans()) {
        const Expected expected = ExpectedCount(FreedomOf(plan));
        std::printf("%-22s %6lu orders  %s\n", plan.name.c_str(), expected.count,
                    plan.shows.c_str());
    }
}

/// All that is printed and summed up.
class Report {
  public:
    explicit Report(const Options& options) : mOptions(options) {}

    /// \returns whether somebody interrupted it.
    bool Run(const Plan& plan);
    /// \returns the status of the process.
    int Conclude() const;

  private:
    void Tell(const Plan& plan, uint64_t of, const Finding& finding);
    const char* TitleOf(const Plan& plan) const {
        return mOptions.requests > 0 ? "own plan" : plan.name.c_str();
    }

    const Options& mOptions;
    uint64_t mOrders = 0;
    uint64_t mPlans = 0;
    uint64_t mFindings = 0; ///< A wrong number is one, too.
    uint64_t mShown = 0;    ///< Of the plan.
};

void Report::Tell(const Plan& plan, uint64_t of, const Finding& finding) {
    ++mFindings;
    if (++mShown <= kMostShown) {
        std::printf("found  %s, order %lu of %lu: %s: ./dev schedules %s --order %lu%s\n",
                    TitleOf(plan), finding.number, of, finding.what.c_str(), plan.name.c_str(),
                    finding.number, kThreads.at(mOptions.thread) ? " --thread other" : "");
    }
}

bool Report::Run(const Plan& plan) {
    const auto start = std::chrono::steady_clock::now();
    const Freedom freedom = FreedomOf(plan);
    const Expected expected = ExpectedCount(freedom);
    RunSettings settings{.hasVendorThread = kThreads.at(mOptions.thread)};
    if (mOptions.order > 0) {
        settings.only = mOptions.order;
    }
    if (mOptions.order > expected.count) {
        throw std::invalid_argument("--order " + std::to_string(mOptions.order) + ": there are " +
                                    std::to_string(expected.count));
    }
    if (!settings.only.has_value() && expected.count > kMostOrders) {
        throw std::invalid_argument("these are " + std::to_string(expected.count) +
                                    " orders, and " + std::to_string(kMostOrders) +
                                    " are run at most: --order runs one");
    }
    Orders orders(freedom);
    mShown = 0;
    const uint64_t before = mFindings;
    const Outcome outcome = RunAll(plan, orders, settings, [&](const Finding& finding) {
        Tell(plan, expected.count, finding);
    });
    mOrders += outcome.enumerated;
    ++mPlans;
    if (mShown > kMostShown) {
        std::printf("       and %lu more\n", mShown - kMostShown);
    }
    if (outcome.interruptedAt.has_value()) {
        std::printf("interrupted at order %lu of %s\n", *outcome.interruptedAt, TitleOf(plan));
        return true;
    }
    if (settings.only.has_value()) {
        return false;
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    const bool agrees = outcome.enumerated == expected.count;
    const uint64_t bad = mFindings - before;
    mFindings += agrees ? 0 : 1;
    std::printf("%-22s %6lu orders enumerated, %6lu = %s%s; %s, %.1f s\n", TitleOf(plan),
                outcome.enumerated, expected.count, expected.how.c_str(),
                agrees ? "" : ": THESE DIFFER",
                bad == 0 ? "all good" : (std::to_string(bad) + " BAD").c_str(), time.count());
    return false;
}

int Report::Conclude() const {
    if (mFindings > 0) {
        std::printf("failed     %lu findings in %lu orders\n", mFindings, mOrders);
        return kFailed;
    }
    if (mOptions.order > 0) {
        std::printf("came true  this order is good\n");
    } else {
        std::printf("came true  %lu orders of %lu plans, as many as there are, and all are good\n",
                    mOrders, mPlans);
    }
    return kAllGood;
}

int Run(const Options& options) {
    if (options.isList) {
        List();
        return kAllGood;
    }
    const std::vector<Plan> plans = PlansOf(options);
    if (options.order > 0 && plans.size() > 1) {
        throw std::invalid_argument("--order needs one plan: --list has their names");
    }
    Report report(options);
    for (const Plan& plan : plans) {
        if (report.Run(plan)) {
            return kInterrupted;
        }
    }
    return report.Conclude();
}

} // namespace

int main(int argc, char** argv) try {
    Options options;
    CLI::App app{"Lets the results of small plans come back in every order that there is.",
                 "./dev schedules"};
    AddOptions(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return view::ExitOf(app, error);
    }
    return Run(options);
} catch (const std::exception& error) {
    (void)fprintf(stderr, "%s\n", error.what());
    return kWrongInput;
}
