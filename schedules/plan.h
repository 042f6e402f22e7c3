/// What is run in every order: some requests, how their results come, and where from.
#pragma once

#include "schedules/orders.h"
#include "standin/control.h"

#include <map>
#include <span>
#include <string>
#include <vector>

namespace schedules {

inline constexpr uint32_t kMostRequests = 4;

/// The host's callbacks, as bits.
enum Within : uint32_t { kNone = 0, kResult = 1, kRelease = 2, kCompletion = 4, kAny = 7 };

struct Plan {
    std::string name;
    std::string shows;
    std::vector<standin::Shape> shapes; ///< Of each request, in which they are submitted.
    std::vector<uint32_t> sessions;     ///< Which one each goes to, from 0.
    bool duringSubmissions = false;     ///< As in Freedom.
    uint32_t within = kNone;            ///< The callbacks from within which others' results come.
    bool submitsWithin = false;         ///< As in Freedom.

    uint32_t Requests() const { return static_cast<uint32_t>(shapes.size()); }
};

/// What the host is to be told of a request, one after the other.
struct Told {
    Within callback = kResult;
    bool metadata = false; ///< These two are of results.
    bool buffer = false;
    uint32_t status = 0; ///< The buffer's, or the completion's.
};

/// What the delivery of a result has the host be told.
std::vector<Told> ToldOf(standin::Shape shape, size_t result);

/// \param plan one with as many sessions as shapes.
Freedom FreedomOf(const Plan& plan);

/// The plans that have names. They take some seconds together.
std::span<const Plan> NamedPlans();

/// How callbacks are called in options.
// NOLINTNEXTLINE(cert-err58-cpp): without memory the program may end
inline const std::map<std::string, Within> kWithinNames{
    {"result", kResult}, {"release", kRelease}, {"completion", kCompletion}, {"any", kAny}};

} // namespace schedules
