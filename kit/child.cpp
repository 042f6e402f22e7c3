/// Forks, passes signals on, and waits.
#include "kit/child.h"

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

std::atomic<pid_t> g_child = 0;
std::atomic<bool> g_wasInterrupted = false;

void PassOn(int signal) {
    g_wasInterrupted = true;
    kill(g_child, signal);
}

/// Holds SIGINT and SIGTERM back until there is a child to pass them on to; as before afterwards.
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
    void PassOnTo(pid_t child) {
        if (mAreTaken) {
            g_child = child;
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
    (void)fflush(nullptr); // The child would write it once more.
    Interrupts interrupts(settings.takesInterrupts);
    const pid_t child = fork();
    if (child < 0) {
        Fail();
    }
    if (child == 0) {
        interrupts.BeginChild();
        alarm(static_cast<unsigned>(settings.limit.count()));
        try {
            exit(work());
        } catch (...) {
            std::abort(); // Nothing of the caller's goes on here.
        }
    }
    interrupts.PassOnTo(child);
    int status = 0;
    while (waitpid(child, &status, 0) != child) {
        if (errno != EINTR) {
            Fail();
        }
    }
    return {.process = child,
            .signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0,
            .status = WIFEXITED(status) ? WEXITSTATUS(status) : 0,
            .wasInterrupted = settings.takesInterrupts && g_wasInterrupted};
}

} // namespace kit
