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

/// Parts of a violation's text that are a value as it is, and as it must be.
template <class T> struct Got { const T& value; };
template <class T> Got(const T&) -> Got<T>;
template <class T> struct Must { const T& value; };
template <class T> Must(const T&) -> Must<T>;
/// What must be, where the text need not say it.
template <class T> struct Unsaid { const T& value; };
template <class T> Unsaid(const T&) -> Unsaid<T>;

template <class T> void AddValue(std::string& text, std::string& values, const T& value) {
    Append(text, value);
    values += values.empty() ? "" : " and ";
    Append(values, value);
}
template <class T> void AddPart(Violation& violation, const T& part) {
    Append(violation.text, part);
}
template <class T> void AddPart(Violation& violation, const Got<T>& part) {
    AddValue(violation.text, violation.got, part.value);
}
template <class T> void AddPart(Violation& violation, const Must<T>& part) {
    AddValue(violation.text, violation.expected, part.value);
}
template <class T> void AddPart(Violation& violation, const Unsaid<T>& part) {
    Append(violation.expected, part.value);
}

/// Reports what does not hold. Knows at which event the watch is.
class Checks {
  public:
    explicit Checks(std::function<void(const Violation&)> report) : mReport(std::move(report)) {}

    /// What is checked from here on is found at this event, and its text begins so, as in
    /// "ExecuteRequest", the name of its entry. Nothing is known of a request.
    void Begin(const Event& event) { Begin(event.Number(), event.Text().name, event.Text().name); }
    /// What is checked from here on is found when all should be over.
    void BeginEnd() { Begin(0, "at the end", nullptr); }
    /// It is of this request, by its real-time frame, which begins its text where it is the host's.
    void Of(uint32_t camera, std::optional<uint32_t> frame) {
        mCamera = camera;
        mRequest = frame;
    }
    void BeginText(std::string_view where) { mWhere = where; }

    /// If the rule does not hold, the parts become the violation's text and values. \returns
    /// whether it holds.
    template <class... Parts> bool Check(Rule rule, bool holds, const Parts&... parts) const {
        if (!holds) {
            Violation violation{.rule = rule,
                                .event = mEvent,
                                .text = mWhere + ": ",
                                .entry = mEntry,
                                .camera = mCamera,
                                .request = mRequest};
            (AddPart(violation, parts), ...);
            mReport(violation);
        }
        return holds;
    }
    template <class T>
    bool Expect(Rule rule, const char* what, const T& actual, const T& expected) const {
        return Check(rule, actual == expected, what, " is ", Got{actual}, " and must be ",
                     Must{expected});
    }

    /// Whether the watch began after the process had done something: what is not known then may
    /// well be there.
    bool isLate = false;

  private:
    void Begin(uint64_t event, std::string_view where, const char* entry) {
        mEvent = event;
        mWhere = where;
        mEntry = entry;
        mCamera = mRequest = std::nullopt;
    }

    std::function<void(const Violation&)> mReport;
    uint64_t mEvent = 0;
    std::string mWhere;
    const char* mEntry = nullptr;
    std::optional<uint32_t> mCamera, mRequest;
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
