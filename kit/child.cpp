/// Forks, passes signals on, and waits.
#include "kit/child.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace kit {
namespace {

std::array<std::atomic<pid_t>, kMostChildren> g_children; ///< 0 for none.
std::atomic<bool> g_wasInterrupted = false;

void PassOn(int signal) {
    g_wasInterrupted = true;
    for (const std::atomic<pid_t>& child : g_children) {
        if (child != 0) {
            kill(child, signal);
        }
    }
}

/// Holds SIGINT and SIGTERM back until there are children to pass them on to; as before afterwards.
class Interrupts {
  public:
    explicit Interrupts(bool areTaken) : mAreTaken(areTaken) {
        sigset_t both;
        sigemptyset(&both);
        sigaddset(&both, SIGINT);
        sigaddset(&both, SIGTERM);
        sigprocmask(SIG_BLOCK, areTaken ? &both : nullptr, &mBefore);
    }
    ~Interrupts() {
        if (mIsPassedOn) {
            std::fill(g_children.begin(), g_children.end(), 0);
            (void)std::signal(SIGINT, mOnInterrupt);
            (void)std::signal(SIGTERM, mOnTermination);
        }
        sigprocmask(SIG_SETMASK, &mBefore, nullptr);
    }
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    /// A terminal's Ctrl-C does not reach the child by itself then.
    void BeginChild() const {
        if (mAreTaken) {
            setpgid(0, 0);
            prctl(PR_SET_PDEATHSIG, SIGKILL); // It ends with the caller, however that does.
            sigprocmask(SIG_SETMASK, &mBefore, nullptr);
        }
    }
    void PassOnTo(const std::vector<pid_t>& children) {
        if (mAreTaken) {
            std::copy(children.begin(), children.end(), g_children.begin());
            g_wasInterrupted = false;
            mIsPassedOn = true;
            mOnInterrupt = std::signal(SIGINT, PassOn);
            mOnTermination = std::signal(SIGTERM, PassOn);
            sigprocmask(SIG_SETMASK, &mBefore, nullptr);
        }
    }

  private:
    using Handler = void (*)(int);
    const bool mAreTaken;
    bool mIsPassedOn = false;
    sigset_t mBefore{};
    Handler mOnInterrupt = SIG_DFL;
    Handler mOnTermination = SIG_DFL;
};

[[noreturn]] void Fail() {
    throw std::system_error(errno, std::generic_category(), "a process of its own");
}

/// Waits for the end of a child.
ChildEnd Await(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) != child) {
        if (errno != EINTR) {
            Fail();
        }
    }
    return {.process = child,
            .signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0,
            .status = WIFEXITED(status) ? WEXITSTATUS(status) : 0};
}

/// In a child: does its work, and ends.
[[noreturn]] void Do(const std::function<int()>& work, const ChildSettings& settings) {
    alarm(static_cast<unsigned>(settings.limit.count()));
    clearerr(stdout); // What the caller could not print is no failure of the child's.
    try {
        exit(work());
    } catch (...) {
        std::abort(); // Nothing of the caller's goes on here.
    }
}

} // namespace

std::string ChildEnd::Describe() const {
    if (IsTimedOut()) {
        return "was ended when its time was over";
    }
    if (signal != 0) {
        return "died by signal " + std::to_string(signal) + " (" + strsignal(signal) + ")";
    }
    return status == 0 ? "" : "ended with status " + std::to_string(status);
}

ChildEnd RunInChild(const std::function<int()>& work, const ChildSettings& settings) {
    return RunInChildren({work}, settings).front();
}

std::vector<ChildEnd> RunInChildren(const std::vector<std::function<int()>>& works,
                                    const ChildSettings& settings) {
    (void)fflush(nullptr); // The children would write it once more.
    Interrupts interrupts(settings.takesInterrupts);
    std::vector<pid_t> children;
    for (const std::function<int()>& work : works) {
        const pid_t child = fork();
        if (child < 0) {
            std::for_each(children.begin(), children.end(),
                          [](pid_t each) { kill(each, SIGKILL); });
            Fail();
        }
        if (child == 0) {
            interrupts.BeginChild();
            Do(work, settings);
        }
        children.push_back(child);
    }
    interrupts.PassOnTo(children);
    std::vector<ChildEnd> ends;
    for (size_t i = 0; i < children.size(); ++i) {
        ends.push_back(Await(children[i]));
        g_children.at(i) = 0; // Its number may be another process' by now.
        ends.back().wasInterrupted = settings.takesInterrupts && g_wasInterrupted;
    }
    return ends;
}

} // namespace kit
