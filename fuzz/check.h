/// What the fuzzed programs share: their input, their checks, and the platform's log.
#pragma once

#include "kit/android.h"

#include <cstddef>
#include <cstdint>
#include <string>

/// Runs a program over one input. Each program has its own.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

/// The bytes of one input, read from the front; zeros behind the end.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : mNext(data), mEnd(data + size) {}

    bool IsEmpty() const { return mNext == mEnd; }
    uint8_t Byte() { return IsEmpty() ? uint8_t{0} : *mNext++; }
    bool Flag() { return Byte() % 2 == 1; }
    /// A number below `limit`, which is at most 256.
    uint32_t Below(uint32_t limit) { return Byte() % limit; }
    /// The low byte comes first.
    uint32_t Word() {
        uint32_t word = 0;
        for (uint32_t shift = 0; shift < 32; shift += 8) {
            word |= uint32_t{Byte()} << shift;
        }
        return word;
    }
    /// One of the values of an array.
    template <class T, size_t N> T& Pick(T (&values)[N]) { return values[Below(N)]; }
    /// Up to the next zero, which is passed, but no more than `most` bytes.
    std::string Text(size_t most);

  private:
    const uint8_t* mNext;
    const uint8_t* mEnd;
};

/// Ends the process where something does not hold, after a line that says what.
[[noreturn]] __attribute__((format(printf, 1, 2))) void Fail(const char* format, ...);

inline void Check(bool holds, const char* what) {
    if (!holds) {
        Fail("%s", what);
    }
}
template <class A, class B> void Expect(const char* what, A actual, B expected) {
    if (actual != static_cast<A>(expected)) {
        Fail("%s is %lld and must be %lld", what, static_cast<long long>(actual),
             static_cast<long long>(expected));
    }
}

/// Where the environment has OEMLAYER_FUZZ_TRACE, prints what is done with the input.
__attribute__((format(printf, 1, 2))) void Trace(const char* format, ...);

/// What the platform's log and trace libraries were called with last.
struct Platform final : kit::AndroidSink {
    Platform() noexcept {
        enabledTraceTags = UINT64_MAX;
        kit::SetAndroidSink(*this);
    }
    void Line(int withPriority, const char* withTag, const char* text) override;
    void Begin(const char* /*name*/) override { ++openSections; }
    void End() override { --openSections; }

    int priority = 0;
    char tag[16] = {};
    char line[1024] = {}; ///< Longer than any that the library may write.
    int openSections = 0; ///< Trace sections that were begun and not ended.
};
inline Platform g_platform;

} // namespace fuzz
