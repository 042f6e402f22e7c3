/// The rules of the contract, over events and nothing else.
///
/// One engine serves all who watch: a layer on a device, the stand-in at the desk, and whoever
/// reads a recording. It sees the events of one process in their order, of either side or of both,
/// and may come late: what it has not seen the beginning of is not held against anybody.
#pragma once

#include "contract/event.h"
#include "contract/rules.h"

#include <functional>
#include <memory>
#include <string>

namespace contract {

struct Violation {
    Rule rule;
    uint64_t event;   ///< The number of the event that broke it; 0 where the end did.
    std::string text; ///< Where, and the values.
};

/// Called by one thread at a time.
class Engine {
  public:
    /// \param report gets each violation when it is found. It must not call the engine.
    explicit Engine(std::function<void(const Violation&)> report);
    ~Engine();

    void Take(const Event& event);

    /// For the end of a run: reports what was not given back.
    void CheckAllReturned();

  private:
    struct State;
    std::unique_ptr<State> mState;
};

} // namespace contract
