/// Work in a process of its own: whatever happens there, the caller lives on.
#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <vector>

namespace kit {

/// What became of a process.
struct ChildEnd {
    int process = 0;             ///< Its number.
    int signal = 0;              ///< That killed it; 0 for none.
    int status = 0;              ///< With which it ended, where it was not killed.
    bool wasInterrupted = false; ///< By SIGINT or SIGTERM, which the caller got.

    bool IsDead() const { return signal != 0 || status != 0; }
    bool IsTimedOut() const { return signal == SIGALRM; }
    /// As in "died by signal 11 (Segmentation fault)"; empty where it ended with status 0.
    std::string Describe() const;
    /// The status of a process that ends as this one did, as a shell has it.
    int ExitStatus() const { return signal != 0 ? 128 + signal : status; }
};

struct ChildSettings {
    std::chrono::seconds limit{}; ///< It dies by SIGALRM then; 0 for never.
    /// SIGINT and SIGTERM go to the child alone, so that the caller can say how it ended.
    bool takesInterrupts = false;
};

/// Forks, and waits for the end. The caller has one thread, and one call of this at a time.
/// \param work is done in the child, on its only thread. \returns the child's status; what it
/// throws ends the child like an abort.
/// \throws std::system_error where there can be no process.
ChildEnd RunInChild(const std::function<int()>& work, const ChildSettings& settings = {});

inline constexpr size_t kMostChildren = 64;

/// The same for several works at once, kMostChildren at most, each in a process of its own: what
/// is passed on goes to all. \returns the ends in the order of the works.
std::vector<ChildEnd> RunInChildren(const std::vector<std::function<int()>>& works,
                                    const ChildSettings& settings = {});

} // namespace kit
