/// Work in processes of their own: how they end, and who gets an interruption.
#include "kit/child.h"

#include "kit/shared.h"
#include "tests/support/device.h"

#include <atomic>
#include <csignal>
#include <poll.h>
#include <sys/prctl.h>

namespace {

using kit::ChildEnd;
using kit::RunInChild;

/// What several processes tell each other.
using Told = kit::Shared<std::atomic<int>>;

constexpr auto kLong = std::chrono::seconds(60); ///< Until a test that hangs fails.

/// Waits until something is told.
void Await(Told& told) {
    while (*told == 0) {
        std::this_thread::yield();
    }
}

TEST(Child, EndsAsItsWorkDoesAndTheCallerLivesOn) {
    const struct {
        std::function<int()> work;
        int signal, status, exitStatus;
        const char* how;
        std::chrono::seconds limit = kLong;
    } rows[] = {
        {[] { return 0; }, 0, 0, 0, ""},
        {[] { return 3; }, 0, 3, 3, "ended with status 3"},
        {[] { return raise(SIGKILL); }, SIGKILL, 0, 137, "died by signal 9 (Killed)"},
        {[]() -> int { throw std::runtime_error("a"); }, SIGABRT, 0, 134,
         "died by signal 6 (Aborted)"},
        {[] { return pause(); }, SIGALRM, 0, 142, "was ended when its time was over",
         std::chrono::seconds(1)},
    };
    for (const auto& row : rows) {
        const ChildEnd end = RunInChild(row.work, {.limit = row.limit});
        EXPECT_EQ(end.Describe(), row.how);
        EXPECT_EQ(end.signal, row.signal) << row.how;
        EXPECT_EQ(end.status, row.status) << row.how;
        EXPECT_EQ(end.ExitStatus(), row.exitStatus) << row.how;
        EXPECT_EQ(end.IsDead(), row.exitStatus != 0) << row.how;
        EXPECT_EQ(end.IsTimedOut(), row.signal == SIGALRM) << row.how;
        EXPECT_FALSE(end.wasInterrupted) << row.how;
    }
}

TEST(Child, WritesNothingOnceMoreThatTheCallerHasWritten) {
    const test::Folder folder;
    FILE* const file = fopen((folder / "a").c_str(), "w");
    ASSERT_NE(file, nullptr);
    (void)fputs("once", file);
    EXPECT_FALSE(RunInChild([] { return 0; }).IsDead());
    EXPECT_EQ(fclose(file), 0);
    EXPECT_EQ(std::filesystem::file_size(folder / "a"), 4U);
}

TEST(Children, RunAtOnceAndTheirEndsComeInTheOrderOfTheirWorks) {
    Told last;
    kit::Shared<std::array<std::atomic<int>, 3>> processes;
    std::vector<std::function<int()>> works;
    for (int i = 0; i < 3; ++i) {
        works.emplace_back([&, i] {
            (*processes)[static_cast<size_t>(i)] = getpid();
            if (i == 2) {
                *last = 1;
            }
            Await(last);
            return i + 1;
        });
    }
    const auto ends = kit::RunInChildren(works, {.limit = kLong});
    ASSERT_EQ(ends.size(), 3U);
    for (size_t i = 0; i < ends.size(); ++i) {
        EXPECT_EQ(ends[i].status, static_cast<int>(i) + 1);
        EXPECT_EQ(ends[i].process, (*processes)[i]);
    }
}

int g_caught = 0; ///< Signals that this process itself got.
void Catch(int /*signal*/) { ++g_caught; }

TEST(Children, GetAnInterruptionOfTheCallerAndNobodyElseDoes) {
    for (const int signal : {SIGINT, SIGTERM}) {
        (void)std::signal(signal, Catch);
        Told ready;
        const auto wait = [&] {
            (void)std::signal(signal, SIG_DFL);
            ++*ready;
            return pause();
        };
        const auto end = [&] {
            (void)std::signal(signal, SIG_IGN); // And so ends as it likes.
            while (*ready != 2) {
                std::this_thread::yield();
            }
            return kill(getppid(), signal);
        };
        const auto ends =
            kit::RunInChildren({wait, end, wait}, {.limit = kLong, .takesInterrupts = true});
        for (const ChildEnd& each : ends) {
            EXPECT_EQ(each.signal, &each == &ends[1] ? 0 : signal);
            EXPECT_TRUE(each.wasInterrupted);
        }
        EXPECT_EQ(g_caught, 0) << "while there are children";
        (void)raise(signal);
        EXPECT_EQ(std::exchange(g_caught, 0), 1) << "as before, afterwards";
        const ChildEnd later = RunInChild([] { return 0; }, {.takesInterrupts = true});
        EXPECT_FALSE(later.wasInterrupted);
    }
}

TEST(Child, HasTheMaskOfSignalsOfItsCallerWhichKeepsItToo) {
    const auto isHeldBack = [] {
        sigset_t own;
        return sigprocmask(SIG_BLOCK, nullptr, &own) == 0 ? sigismember(&own, SIGTERM) : 2;
    };
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, SIGTERM);
    for (const int how : {SIG_BLOCK, SIG_UNBLOCK}) {
        sigprocmask(how, &one, nullptr);
        const int wanted = how == SIG_BLOCK ? 1 : 0;
        EXPECT_EQ(RunInChild(isHeldBack, {.takesInterrupts = true}).status, wanted);
        EXPECT_EQ(isHeldBack(), wanted);
    }
}

TEST(Child, IsOutOfATerminalsReachIfTheCallerTakesInterruptions) {
    for (const bool takes : {true, false}) {
        const ChildEnd end = RunInChild([] { return getpgrp() == getpid() ? 1 : 0; },
                                        {.limit = kLong, .takesInterrupts = takes});
        EXPECT_EQ(end.status, takes ? 1 : 0);
    }
}

TEST(Child, EndsWithACallerThatIsKilled) {
    int ends[2] = {};
    ASSERT_EQ(pipe(ends), 0);
    const auto survive = [&] {
        (void)kill(getppid(), SIGKILL);
        (void)poll(nullptr, 0, 10'000); // It dies here, and its end of the pipe with it.
        return write(ends[1], "x", 1) == 1 ? 0 : 1;
    };
    const ChildEnd killed =
        RunInChild([&] { return RunInChild(survive, {.takesInterrupts = true}).status; });
    EXPECT_EQ(killed.signal, SIGKILL);
    close(ends[1]);
    char got = 0;
    EXPECT_EQ(read(ends[0], &got, 1), 0) << "it lives on";
    close(ends[0]);
}

} // namespace
