/// The orders in which the results of some requests can come back: what an order is, all of them
/// one after the other, and the number of each.
///
/// An order is a row of steps. A step enters an execute call, begins to deliver the next result of
/// a request, or leaves the innermost thing that is open: an execute call, or a callback to the
/// host. Where callbacks take no steps, a delivery is over at once. The library is not needed here.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace schedules {

/// What may happen when. Results of a request come in their order, and none of a request from
/// within a callback for that request.
struct Freedom {
    /// For each request and each of its results: how many of the host's callbacks take steps, one
    /// after the other.
    std::vector<std::vector<uint32_t>> callbacks;
    /// Results also come before all is submitted: between submissions, and within the execute call.
    bool duringSubmissions = false;
    bool submitsWithin = false; ///< Such a callback also submits the next request.

    uint32_t Requests() const { return static_cast<uint32_t>(callbacks.size()); }
    uint32_t Results(uint32_t request) const {
        return static_cast<uint32_t>(callbacks[request].size());
    }
};

/// Enters the execute call of the next request where it is kSubmit, leaves what is open where it is
/// kLeave, and else delivers for the request with this index.
using Step = uint8_t;
inline constexpr Step kSubmit = 254;
inline constexpr Step kLeave = 255;
using Order = std::vector<Step>;

/// For one thread at a time.
class Orders {
  public:
    explicit Orders(Freedom freedom) : mFreedom(std::move(freedom)) {}

    /// How many there are, UINT64_MAX where they are at least so many.
    uint64_t Count() { return CountFrom(Start()); }
    /// \param number from 1 to Count().
    Order At(uint64_t number);
    uint64_t NumberOf(const Order& order);

    /// The first one, and the one after this; found from the steps alone, without any number.
    Order First() const;
    /// \returns false where it was the last.
    bool Advance(Order& order) const;

  private:
    /// What is open, as a number: 0 for an execute call; a callback has its request, and how many
    /// callbacks there are to come with it.
    using Open = uint16_t;
    struct State {
        uint32_t submitted;
        std::vector<uint32_t> delivered;
        std::vector<Open> open;

        bool operator<(const State& other) const {
            return std::tie(submitted, delivered, open) <
                   std::tie(other.submitted, other.delivered, other.open);
        }
    };

    State Start() const;
    std::vector<Step> Choices(const State& state) const;
    void Take(State& state, Step step) const;
    void Complete(State state, Order& order) const;
    uint64_t CountFrom(const State& state);

    Freedom mFreedom;
    std::map<State, uint64_t> mCounts;
};

} // namespace schedules
