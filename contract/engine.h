/// The rules of the contract, over events and nothing else.
///
/// One engine serves all who watch: a layer on a device, the stand-in at the desk, and whoever
/// reads a recording. It sees the events of one process in their order, of either side or of both,
/// and may come late: what it has not seen the beginning of is not held against anybody. Handles
/// are used again by real vendors; one is judged by whether it is alive now. What it keeps does not
/// grow with the number of requests.
#pragma once

#include "contract/event.h"
#include "contract/rules.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace contract {

struct Violation {
    Rule rule;
    uint64_t event;              ///< The number of the event that broke it; 0 where the end did.
    std::string text;            ///< Where, and the values.
    std::string got{};           ///< The values as they are, with "and" between them; and
    std::string expected{};      ///< as they must be. Empty where the text has words for it.
    const char* entry = nullptr; ///< That the event calls or returns from; null for the end.
    std::optional<uint32_t> camera{}, request{}; ///< The request by its frame. As far as known.
};

/// A violation as a line: the rule's number and name, and the text.
inline std::string LineOf(const Violation& violation) {
    const RuleText& rule = TextOf(violation.rule);
    return rule.number + (' ' + (rule.name + (": " + violation.text)));
}

/// So many calls of a thread are followed at once. Nobody has that many open; the outermost of a
/// crafted recording's are let go.
inline constexpr size_t kMostOpenCalls = 1000;

/// Called by one thread at a time.
class Engine {
  public:
    /// \param report gets each violation when it is found. It must not call the engine.
    explicit Engine(std::function<void(const Violation&)> report);
    ~Engine();

    void Take(const Event& event);

    /// Reports what was not given back, each object once. The engine does so itself when the last
    /// operation table is closed, and when the last camera is destroyed.
    void CheckAllReturned();

    /// As a new engine, for who knows that nothing is alive: what comes is seen from its beginning,
    /// whatever its number is.
    void Reset();

  private:
    struct State;
    std::function<void(const Violation&)> mReport;
    std::unique_ptr<State> mState;
};

} // namespace contract
