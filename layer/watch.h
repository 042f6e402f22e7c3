/// The rules of the contract, live: a line in the log for each violation.
#pragma once

#include "contract/engine.h"
#include "contract/tap.h"

namespace layer {

class Watch final : public contract::Follower {
  public:
    Watch();
    void Take(const contract::Event& event) override;

  private:
    contract::Engine mEngine;
};

} // namespace layer
