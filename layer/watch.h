/// The rules of the contract, live: a line in the log for each violation.
#pragma once

#include "contract/engine.h"
#include "contract/tap.h"

#include <optional>

namespace layer {

/// Follows what both layers of a process write into one file, so that rules that need both sides
/// are watched, too. Each layer tells of what its own events break, so that a line comes once.
class Watch final : public contract::Follower {
  public:
    void Take(const contract::Event& event, bool isOwn) override;

  private:
    std::optional<contract::Engine> mEngine;
    uint64_t mLast = 0; ///< The number of the last event.
    bool mTells = false;
};

} // namespace layer
