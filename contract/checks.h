/// How rules are checked, and how a violation's text is made.
#pragma once

#include "contract/engine.h"

#include <cstdio>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace contract {

/// A handle or an address in a violation's text.
struct Handle {
    uint64_t word = 0;
    Handle() = default;
    explicit Handle(uint64_t value) : word(value) {}
    explicit Handle(const void* value) : word(reinterpret_cast<uint64_t>(value)) {}
    bool operator==(const Handle&) const = default;
};
inline uint64_t AddressOf(const void* pointer) { return Handle(pointer).word; }

inline void Append(std::string& text, std::string_view part) { text += part; }
inline void Append(std::string& text, Handle handle) {
    char digits[24];
    (void)snprintf(digits, sizeof digits, handle.word == 0 ? "(nil)" : "0x%llx",
                   static_cast<unsigned long long>(handle.word));
    text += digits;
}
template <class T>
requires std::is_integral_v<T>
void Append(std::string& text, T value) { text += std::to_string(value); }

/// Reports what does not hold. Knows at which event the watch is.
class Checks {
  public:
    explicit Checks(std::function<void(const Violation&)> report) : mReport(std::move(report)) {}

    /// What is checked from here on is found at this event, and its text begins so, as in
    /// "ExecuteRequest".
    void Begin(uint64_t event, std::string_view where) {
        mEvent = event;
        mWhere = where;
    }

    /// If the rule does not hold, the parts become the violation's values. \returns whether it
    /// holds.
    template <class... Parts> bool Check(Rule rule, bool holds, const Parts&... parts) const {
        if (!holds) {
            Violation violation{rule, mEvent, mWhere + ": "};
            (Append(violation.text, parts), ...);
            mReport(violation);
        }
        return holds;
    }
    template <class T>
    bool Expect(Rule rule, const char* what, const T& actual, const T& expected) const {
        return Check(rule, actual == expected, what, " is ", actual, " and must be ", expected);
    }

    /// Whether the watch began after the process had done something: what is not known then may
    /// well be there.
    bool isLate = false;

  private:
    std::function<void(const Violation&)> mReport;
    uint64_t mEvent = 0;
    std::string mWhere;
};

/// How many of those that are gone are remembered, for what is said of them.
inline constexpr size_t kMostRemembered = 1024;

/// Adds one that is gone. \returns the one that is forgotten for it; a `T()` where there is none.
template <class T> T Remember(std::deque<T>& gone, const T& next) {
    gone.push_back(next);
    T oldest{};
    if (gone.size() > kMostRemembered) {
        oldest = gone.front();
        gone.pop_front();
    }
    return oldest;
}

/// What a framework lent: a buffer of a stream.
using Lent = std::pair<uint64_t, uint64_t>;
inline Lent LentOf(const camera3_stream_buffer& buffer) {
    return {AddressOf(buffer.stream), AddressOf(buffer.buffer)};
}
inline Lent LentOf(const ChiStreamBuffer& buffer) {
    return {AddressOf(buffer.pStream), AddressOf(buffer.bufferHandle)};
}

/// Each as often as it was lent.
class LentBuffers {
  public:
    void Add(const Lent& buffer) { ++mCounts[buffer]; }
    bool Has(const Lent& buffer) const { return mCounts.contains(buffer); }
    void GiveBack(const std::optional<Lent>& buffer) {
        const auto lent = buffer.has_value() ? mCounts.find(*buffer) : mCounts.end();
        if (lent != mCounts.end() && --lent->second == 0) {
            mCounts.erase(lent);
        }
    }

  private:
    std::map<Lent, uint32_t> mCounts;
};

} // namespace contract
