/// Multinomials, hook lengths, Fuss-Catalan numbers, and a sum over divisions for the rest.
#include "schedules/count.h"

#include <algorithm>
#include <numeric>
#include <tuple>

namespace schedules {
namespace {

using Wide = unsigned __int128;

uint64_t Saturated(Wide value) {
    return value > UINT64_MAX ? UINT64_MAX : static_cast<uint64_t>(value);
}
uint64_t Product(uint64_t one, uint64_t other) { return Saturated(Wide{one} * other); }
uint64_t Sum(uint64_t one, uint64_t other) { return Saturated(Wide{one} + other); }

/// How far all is: the submissions, then the delivered results of each request.
using Moment = std::vector<uint8_t>;

/// `act` gets each moment that lies between the two, with both.
template <class Act> void ForEachBetween(const Moment& begin, const Moment& end, Act act) {
    Moment middle = begin;
    for (size_t i = 0; i < middle.size();) {
        if (i == 0) {
            act(middle);
        }
        if (middle[i] < end[i]) {
            ++middle[i];
            i = 0;
        } else {
            middle[i] = begin[i];
            ++i;
        }
    }
}

class Parts {
  public:
    explicit Parts(const Freedom& freedom) : mFreedom(freedom) {}

    uint64_t All() {
        Moment begin(mFreedom.Requests() + 1);
        Moment end{static_cast<uint8_t>(mFreedom.Requests())};
        for (uint32_t i = 0; i < mFreedom.Requests(); ++i) {
            end.push_back(static_cast<uint8_t>(mFreedom.Results(i)));
        }
        begin[0] = mFreedom.duringSubmissions ? 0 : end[0];
        return Row({begin, end}, true);
    }

  private:
    struct Span {
        Moment begin;
        Moment end;
    };

    /// The ways from one moment to the other, side by side in one place.
    uint64_t Row(const Span& span, bool submits) {
        if (span.begin == span.end) {
            return 1;
        }
        const auto key = std::tuple(span.begin, span.end, submits);
        if (const auto known = mRows.find(key); known != mRows.end()) {
            return known->second;
        }
        uint64_t count = 0;
        for (uint32_t what = submits ? 0 : 1; what < span.begin.size(); ++what) {
            count = Sum(count, StartingWith(what, span, submits));
        }
        return mRows[key] = count;
    }

    /// \param what 0 for a submission, else one more than the request of a result.
    uint64_t StartingWith(uint32_t what, const Span& span, bool submits) {
        if (span.begin[what] == span.end[what] || (what > 0 && span.begin[0] < what)) {
            return 0;
        }
        const uint32_t callbacks = what == 0 ? 1 : mFreedom.callbacks[what - 1][span.begin[what]];
        Moment first = span.begin;
        ++first[what];
        // Nothing within an execute call submits by itself, nothing within a callback delivers for
        // its own request.
        Moment last = span.end;
        last[what] = what == 0 ? last[what] : first[what];
        uint64_t count = 0;
        ForEachBetween(first, last, [&](const Moment& middle) {
            const uint64_t within =
                Places({first, middle}, callbacks, what > 0 && mFreedom.submitsWithin);
            if (within > 0) {
                count = Sum(count, Product(within, Row({middle, span.end}, submits)));
            }
        });
        return count;
    }

    /// The same over several places, one after the other.
    uint64_t Places(const Span& span, uint32_t places, bool submits) {
        if (places <= 1) {
            return places == 1 ? Row(span, submits) : span.begin == span.end ? 1 : 0;
        }
        uint64_t count = 0;
        ForEachBetween(span.begin, span.end, [&](const Moment& middle) {
            const uint64_t here = Row({span.begin, middle}, submits);
            if (here > 0) {
                count = Sum(count, Product(here, Places({middle, span.end}, places - 1, submits)));
            }
        });
        return count;
    }

    const Freedom& mFreedom;
    std::map<std::tuple<Moment, Moment, bool>, uint64_t> mRows;
};

std::string Factorial(uint64_t n) { return std::to_string(n) + "!"; }

/// n! over the product of the factors, which divides it: each prime of a factor is found again.
uint64_t Divided(uint64_t n, std::vector<uint64_t> factors) {
    uint64_t count = 1;
    for (uint64_t i = 2; i <= n; ++i) {
        uint64_t left = i;
        for (uint64_t& factor : factors) {
            const uint64_t common = std::gcd(left, factor);
            left /= common;
            factor /= common;
        }
        count = Product(count, left);
    }
    return count;
}

uint64_t TotalResults(const Freedom& freedom) {
    uint64_t total = 0;
    for (uint32_t i = 0; i < freedom.Requests(); ++i) {
        total += freedom.Results(i);
    }
    return total;
}

/// After the submissions: the results of each request keep their order.
Expected Multinomial(const Freedom& freedom) {
    const uint64_t total = TotalResults(freedom);
    std::vector<uint64_t> factors;
    std::string below;
    for (uint32_t i = 0; i < freedom.Requests(); ++i) {
        for (uint64_t factor = 2; factor <= freedom.Results(i); ++factor) {
            factors.push_back(factor);
        }
        below += (below.empty() ? "" : " ") + Factorial(freedom.Results(i));
    }
    return {Divided(total, factors), Factorial(total) + "/(" + below + ")"};
}

/// During the submissions: enter and return of each call follow each other, and a request's
/// results follow its enter. That is a tree, in which each one's subtree begins with it.
Expected HookLengths(const Freedom& freedom) {
    std::vector<uint64_t> subtrees;
    uint64_t behind = 0; // From the enter of the next request on.
    for (uint32_t i = freedom.Requests(); i-- > 0;) {
        const uint64_t results = freedom.Results(i);
        for (uint64_t length = 1; length <= results; ++length) {
            subtrees.push_back(length);
        }
        subtrees.push_back(behind + 1);
        behind += results + 2;
        subtrees.push_back(behind);
    }
    std::string below;
    std::sort(subtrees.rbegin(), subtrees.rend());
    for (const uint64_t length : subtrees) {
        below += length == 1 ? "" : (below.empty() ? "" : " ") + std::to_string(length);
    }
    return {Divided(behind, subtrees), Factorial(behind) + "/(" + below + ")"};
}

/// One result for each request, and `places` callbacks in each: the shapes of such forests, times
/// the ways to give out the requests.
Expected FussCatalan(uint64_t n, uint64_t places) {
    // binomial((places + 1) n, n)/(places n + 1), times n!, is a falling product.
    uint64_t count = 1;
    for (uint64_t i = places * n + 2; i <= (places + 1) * n; ++i) {
        count = Product(count, i);
    }
    const std::string top = std::to_string((places + 1) * n);
    return {count, Factorial(n) + " binomial(" + top + ", " + std::to_string(n) + ")/" +
                       std::to_string(places * n + 1)};
}

} // namespace

uint64_t CountByParts(const Freedom& freedom) { return Parts(freedom).All(); }

Expected ExpectedCount(const Freedom& freedom) {
    uint32_t most = 0;
    bool isSingle = true; // One result for each, and callbacks alike.
    for (const auto& results : freedom.callbacks) {
        most = std::max(most, *std::max_element(results.begin(), results.end()));
        isSingle &= results == freedom.callbacks.front() && results.size() == 1;
    }
    if (most == 0) {
        return freedom.duringSubmissions ? HookLengths(freedom) : Multinomial(freedom);
    }
    if (isSingle && !freedom.duringSubmissions) {
        return FussCatalan(freedom.Requests(), most);
    }
    return {CountByParts(freedom), "a sum over its parts"};
}

} // namespace schedules
