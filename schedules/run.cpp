/// What a process says of its orders is in memory that it shares with the one that judges.
#include "schedules/run.h"

#include "kit/child.h"
#include "kit/library.h"
#include "kit/shared.h"
#include "schedules/player.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <unistd.h>

/// What ThreadSanitizer asks a program for: a race ends the process, in the order that has it.
extern "C" __attribute__((visibility("default"))) const char*
ThreadSanitizerOptions() __asm__("__tsan_default_options");
const char* ThreadSanitizerOptions() { return "halt_on_error=1"; }

namespace schedules {
namespace {

constexpr unsigned kPatience = 30; ///< Seconds for an order; some thousands take one.
constexpr int kFound = 1;

struct Said {
    std::atomic<uint64_t> number = 0;     ///< The order under way.
    std::atomic<uint64_t> enumerated = 0; ///< Those before it that came to their end.
    std::atomic<bool> isDone = false;     ///< All did.
    char what[500] = {};                  ///< A finding; empty for none.
};

/// Nothing that the finding may have spoiled is used any more, and nothing is cleaned up.
[[noreturn]] void Say(Said& said, const std::string& what) {
    what.copy(said.what, sizeof said.what - 1);
    (void)fflush(stdout);
    _exit(kFound);
}

/// In a process of its own: all orders from this one on.
int PlayFrom(uint64_t number, const Plan& plan, Orders& orders, const RunSettings& settings,
             Said& said) {
    const kit::Adapter library(kit::AdapterFile(false));
    library.Load();
    Order order = orders.At(number); // Before the player counts blocks.
    Player player(library, plan,
                  {.hasVendorThread = settings.hasVendorThread,
                   .tells = settings.only.has_value(),
                   .fail = [&said](const std::string& what) { Say(said, what); }});
    do {
        said.number = number++;
        alarm(kPatience);
        player.Play(order);
        ++said.enumerated;
    } while (!settings.only.has_value() && orders.Advance(order));
    alarm(0);
    said.isDone = true;
    return 0;
}

} // namespace

Outcome RunAll(const Plan& plan, Orders& orders, const RunSettings& settings,
               const std::function<void(const Finding&)>& report) {
    const uint64_t last = settings.only.value_or(orders.Count());
    Outcome outcome;
    uint64_t number = settings.only.value_or(1);
    while (number <= last) {
        kit::Shared<Said> shared;
        Said& said = *shared;
        said.number = number;
        const kit::ChildEnd end =
            kit::RunInChild([&] { return PlayFrom(number, plan, orders, settings, said); },
                            {.takesInterrupts = true});
        outcome.enumerated += said.enumerated;
        if (end.wasInterrupted) {
            outcome.interruptedAt = said.number;
            break;
        }
        if (said.isDone && !end.IsDead()) {
            break;
        }
        const std::string what = said.what;
        report({said.number, !what.empty() ? what
                             : said.isDone ? "after the last one the process " + end.Describe()
                                           : "the process " + end.Describe()});
        outcome.enumerated += said.isDone ? 0 : 1;
        number = said.isDone ? last + 1 : said.number + 1;
    }
    return outcome;
}

} // namespace schedules
