/// Endurance: four cameras, many requests, and at the end an account of each request and each byte.
#include "host/progress.h"
#include "kit/figures.h"
#include "soak/camera.h"
#include "soak/heap.h"
#include "view/command.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <deque>
#include <functional>
#include <thread>
#include <unistd.h>

namespace {

using namespace soak;
using namespace standin;
using Clock = std::chrono::steady_clock;

enum ExitStatus { kCameTrue = 0, kFailed = 1, kInterrupted = 130 };

constexpr uint32_t kCameras = 4;
constexpr int64_t kFormatRecord = 96;
constexpr std::chrono::microseconds kLate{50};
constexpr size_t kMostShown = 10; // Problems of a kind.
constexpr auto kShapes = static_cast<uint32_t>(Shape::Count);
constexpr uint32_t kRounds = 2 * kShapes * 2 * 2; // All that a round can be.
constexpr std::array<const char*, kShapes> kShapeNames{
    "metadata first", "buffers first", "together", "partials", "error buffer", "second block"};

struct Options {
    uint64_t requests = 1'000'000;
    uint64_t seconds = 0; ///< 0 for no limit.
};

// What the signal handlers reach.
Tally g_tally;
std::atomic<bool> g_isInterrupted = false;

/// Kinds of inputs alternate, so that what is left grows in every other round.
Round RoundAt(uint32_t number) {
    return {.isMixed = number % 2 == 1,
            .shape = static_cast<Shape>(number / 2 % kShapes),
            .order = number / (2 * kShapes) % 2 == 0 ? Order::Shuffled : Order::InOrder,
            .lends = number / (4 * kShapes) % 2 == 1,
            .isLate = number % 3 == 2};
}

std::string NameOf(uint32_t number) {
    const Round round = RoundAt(number);
    return "round " + std::to_string(number + 1) + (round.isMixed ? ": bursts, " : ": plain, ") +
           kShapeNames.at(static_cast<size_t>(round.shape)) +
           (round.order == Order::Shuffled ? ", shuffled" : "") + (round.lends ? ", lent" : "") +
           (round.isLate ? ", late" : "");
}

/// The account at a moment when nothing is under way.
struct Account {
    std::string when;
    uint64_t requests;
    heap::Live live;
    int64_t expected; ///< Bytes of the library.

    bool IsRight() const { return live.library == expected && live.libraryC == 0; }
};

class Soak {
  public:
    /// Loads the library. Throws std::runtime_error where it cannot be used.
    explicit Soak(const Options& options) : mOptions(options) {
        StandinControl()->SetRecording(false);
        kit::NoteBuild(kit::AdapterFile(false));
        const kit::Adapter library(kit::AdapterFile(false));
        heap::Watch(std::bit_cast<void*>(library.Table(0).Create));
        library.Load();
        for (uint32_t id = 0; id < kCameras; ++id) {
            mCameras.emplace_back(library, id, g_tally);
        }
    }

    void Go() {
        Keep("loaded", 0);
        OnAllCameras([](uint32_t /*index*/, Camera& camera) {
            camera.Create();
            camera.Drive({}, 0);
        });
        // What idle cameras have, before any request: the rounds' accounts start from here.
        const int64_t idle = heap::Count().library;
        Keep("created", idle);
        {
            const host::Progress progress([this] { return Describe(); });
            for (uint32_t i = 0; !g_tally.isOver && (i < kRounds || mOptions.seconds > 0); ++i) {
                GoRound(i);
                Keep(NameOf(i), idle);
            }
        }
        OnAllCameras([](uint32_t /*index*/, Camera& camera) { camera.Destroy(); });
        Keep("destroyed", 0);
        StandinControl()->CheckAllReturned();
    }

    /// Prints what was done, and notes it. \returns whether all of it was right.
    bool Judge() const;

  private:
    /// The script is changed while nothing is in flight, and the requests are spread evenly.
    void GoRound(uint32_t number) {
        mRound = number;
        const Round round = RoundAt(number);
        StandinControl()->SetShape(round.shape);
        StandinControl()->SetAsksForFrameworkBuffers(round.lends);
        StandinControl()->SetPace(kLate * (round.isLate ? 1 : 0), round.order, number);
        OnAllCameras([&](uint32_t index, Camera& camera) {
            constexpr uint64_t kShares = uint64_t{kRounds} * kCameras;
            const uint64_t share = number % kRounds * kCameras + index;
            camera.Drive(round, mOptions.requests * (share + 1) / kShares -
                                    mOptions.requests * share / kShares);
        });
    }

    /// On a thread for each, and waits for them.
    void OnAllCameras(const std::function<void(uint32_t, Camera&)>& act) {
        std::vector<std::thread> threads;
        for (uint32_t i = 0; i < kCameras; ++i) {
            threads.emplace_back([&act, i, this] { act(i, mCameras[i]); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    /// \param idle what the library has but for the format records that it leaves.
    void Keep(const std::string& when, int64_t idle) {
        StandinControl()->WaitIdle();
        const int64_t expected = idle + kFormatRecord * g_tally.formatsLeft;
        mAccounts.push_back({when, g_tally.completed, heap::Count(), expected});
        if (!mAccounts.back().IsRight() || !StandinControl()->Violations().empty()) {
            g_tally.isOver = true; // What comes would only repeat it.
        }
    }

    std::string Describe() const {
        const auto seconds = std::chrono::floor<std::chrono::seconds>(Clock::now() - mStart);
        const bool isTimed = mOptions.seconds > 0;
        return "round " + std::to_string(mRound + 1) +
               (isTimed ? "" : " of " + std::to_string(kRounds)) + ", " +
               std::to_string(g_tally.completed) +
               (isTimed ? "" : " of " + std::to_string(mOptions.requests)) +
               " requests completed, " + std::to_string(seconds.count()) + " s";
    }

    /// What did not hold, a line each.
    std::vector<std::string> Problems() const {
        std::vector<std::string> problems;
        const auto compare = [&](const char* what, uint64_t found, uint64_t expected) {
            if (found != expected) {
                problems.push_back(std::string(what) + ": " + std::to_string(expected) +
                                   " expected, " + std::to_string(found) + " found");
            }
        };
        const auto& device = *StandinControl();
        compare("requests executed", device.CallCount(Entry::ExecuteRequest), g_tally.accepted);
        compare("requests released", g_tally.released, g_tally.accepted);
        compare("requests completed", g_tally.completed, g_tally.accepted);
        compare("sessions opened", device.CallCount(Entry::OpenSession), g_tally.sessions);
        compare("sessions closed", device.CallCount(Entry::CloseSession), g_tally.sessions);
        for (const Account& account : mAccounts) {
            if (!account.IsRight()) {
                problems.push_back("memory, " + account.when + ": " +
                                   std::to_string(account.expected) + " bytes expected, " +
                                   std::to_string(account.live.library) + " found, and " +
                                   std::to_string(account.live.libraryC) + " of the C allocator");
            }
        }
        const std::vector<std::string> violations = device.Violations();
        problems.insert(problems.end(), violations.begin(), violations.end());
        return problems;
    }

    const Options mOptions;
    const Clock::time_point mStart = Clock::now();
    std::vector<Account> mAccounts;
    std::deque<Camera> mCameras;
    std::atomic<uint32_t> mRound = 0;
};

/// The same numbers for machines.
void Note(const Account& account) {
    const auto note = [&](const char* what, auto value, const char* unit,
                          const kit::Bar& bar = {}) {
        kit::NoteFigure(account.when + "; " + what, static_cast<double>(value), unit, bar);
    };
    const auto expected = static_cast<double>(account.expected);
    note("requests", account.requests, "");
    note("library", account.live.library, "bytes", {expected, expected});
    note("expected", account.expected, "bytes");
    note("difference", account.live.library - account.expected, "bytes");
    note("process", account.live.process, "bytes");
    note("library, from the C allocator", account.live.libraryC, "bytes", {0, 0});
}

void PrintSummary(double seconds) {
    const auto count = [](const char* name, auto value, const char* unit = "") {
        kit::NoteFigure(name, static_cast<double>(value), unit);
        return value;
    };
    std::printf("\nrequests   %lu accepted, ", count("requests accepted", g_tally.accepted.load()));
    std::printf("%lu released, ", count("requests released", g_tally.released.load()));
    std::printf("%lu completed, ", count("requests completed", g_tally.completed.load()));
    std::printf("%lu of them with a failure as they were to be\n",
                count("requests with a failure", g_tally.failed.load()));
    std::printf("sessions   %lu in ", count("sessions", g_tally.sessions.load()));
    std::printf("%lu bursts and ", count("bursts", g_tally.bursts.load()));
    std::printf("%.1f s; ", count("time", seconds, "s"));
    std::printf("cameras created %lu times\n", count("cameras created", g_tally.creations.load()));
    std::printf("memory     %ld format records of ",
                count("format records to stay", g_tally.formatsLeft.load()));
    std::printf("%ld bytes to stay; %s\n", count("size of a format record", kFormatRecord, "bytes"),
                SOAK_COUNTS_C ? "what the C allocator gives is counted, too"
                              : "the C allocator is a sanitizer's, and not counted");
}

bool Soak::Judge() const {
    std::printf("%-52s %9s %12s %12s %10s %12s\n", "live bytes of the heap", "requests", "library",
                "expected", "difference", "process");
    for (const Account& account : mAccounts) {
        const auto& [when, requests, live, expected] = account;
        std::printf("%-52s %9lu %12ld %12ld %10ld %12ld\n", when.c_str(), requests, live.library,
                    expected, live.library - expected, live.process);
        Note(account);
    }
    PrintSummary(std::chrono::duration<double>(Clock::now() - mStart).count());
    const std::vector<std::string> problems = Problems();
    std::for_each(problems.begin(), problems.end(), kit::NoteFinding);
    for (size_t i = 0; i < problems.size() && i < kMostShown; ++i) {
        std::printf("%s%s\n", i == 0 ? "failed     " : "           ", problems[i].c_str());
    }
    if (problems.size() > kMostShown) {
        std::printf("           and %zu more\n", problems.size() - kMostShown);
    } else if (problems.empty()) {
        std::printf("came true  all of the above, and nothing is alive in the vendor\n");
    }
    return problems.empty();
}

// --- The program --------------------------------------------------------------------------------

void OnTimeUp(int /*signal*/) { g_tally.isOver = true; }

/// The second one ends the process as usual.
void OnInterrupt(int signal) {
    g_isInterrupted = true;
    OnTimeUp(signal);
    (void)std::signal(signal, SIG_DFL);
}

} // namespace

int main(int argc, char** argv) try {
    Options options;
    CLI::App app{"Sends requests to four cameras of camera.oemlayer.adapter.so for as long as is "
                 "wanted, and accounts for each request and each byte.",
                 "./dev soak"};
    app.footer(
        "--report FILE, to ./dev soak: each figure for machines (JSON), too; '-': to standard "
        "output");
    app.add_option("--requests", options.requests, "How many requests [1000000], over 48 rounds")
        ->check(CLI::Range(uint64_t{1}, uint64_t{1'000'000'000}));
    app.add_option("--seconds", options.seconds,
                   "Go on for so long instead, in rounds of the same size")
        ->check(CLI::Range(1U, 1'000'000U));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return view::ExitOf(app, error);
    }
    (void)std::signal(SIGINT, OnInterrupt);
    (void)std::signal(SIGTERM, OnInterrupt);
    (void)std::signal(SIGALRM, OnTimeUp);
    alarm(static_cast<unsigned>(options.seconds));
    Soak soak(options);
    soak.Go();
    if (!soak.Judge()) {
        return kFailed;
    }
    return g_isInterrupted ? kInterrupted : kCameTrue;
} catch (const std::exception& error) {
    (void)fprintf(stderr, "%s\n", error.what());
    return kFailed;
}
