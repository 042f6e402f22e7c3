/// The formatting functions of the library, against the C library's own.
///
/// An input is: the size of the buffer (two bytes), the flags, width and precision of the three
/// conversions, the text's and the literal's lengths (two bytes each), a number, then the literal's
/// bytes over and over.

#include "adapterlayer/oemlog.h"
#include "adapterlayer/platformadapter.h"
#include "fuzz/check.h"
#include "fuzz/heap.h"

#include <android/log.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

// The formats are made at run time, each for its arguments: a text, a number and a long one.
#pragma clang diagnostic ignored "-Wformat-nonliteral"
#pragma clang diagnostic ignored "-Wformat-security"

namespace {

constexpr size_t kLine = 511; ///< Most characters of a line of the Android log.

/// A conversion such as "%-8.3s".
std::string Conversion(fuzz::Input& input, const char* kind) {
    static constexpr const char* kFlags[] = {"", "-", "0", "+", " "};
    std::string text = std::string("%") + kFlags[input.Below(kind[0] == 's' ? 2 : 5)];
    if (input.Flag()) {
        text += std::to_string(1 + input.Below(256) * (input.Flag() ? 4 : 1));
    }
    if (input.Flag()) {
        text += "." + std::to_string(input.Below(256) * (input.Flag() ? 4 : 1));
    }
    return text + kind;
}

struct Case {
    size_t size;
    std::string format, text;
    int number;
    long longNumber;

    /// Has a function of printf's kind format this, behind its first arguments.
    template <class Function, class... First> auto Call(Function function, First... first) const {
        return function(first..., format.c_str(), text.c_str(), number, longNumber);
    }
};

Case ReadCase(fuzz::Input& input) {
    Case read{};
    read.size = input.Byte() | (input.Below(5) << 8U);
    std::string conversions;
    for (const char* const kind : {"s", "d", "lx"}) {
        conversions += Conversion(input, kind);
    }
    const size_t textLength = input.Byte() | (input.Below(5) << 8U);
    const size_t literalLength = input.Byte() | (input.Below(4) << 8U);
    read.number = static_cast<int>(input.Word());
    read.longNumber = static_cast<long>(uint64_t{input.Word()} << 32 | input.Word());
    std::string repeated = input.Text(600);
    repeated += repeated.empty() ? "x" : "";
    while (repeated.size() < std::max(textLength, literalLength)) {
        repeated += repeated;
    }
    read.text = repeated.substr(0, textLength);
    for (const char byte : repeated.substr(0, literalLength)) {
        read.format += byte == '%' ? "%%" : std::string(1, byte);
    }
    read.format += conversions;
    return read;
}

/// All that the format yields.
std::string Whole(const Case& wanted) {
    char text[8192]; // All lengths together are less.
    const int length = wanted.Call(std::snprintf, text, sizeof text);
    fuzz::Check(length >= 0 && length < int{sizeof text}, "the C library cannot format this");
    return text;
}

int Print(char* buffer, size_t size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = CdkUtils::VSNPrintF(buffer, size, format, arguments);
    va_end(arguments);
    return result;
}

/// The buffer is as large as it is said to be, so that AddressSanitizer sees writes past it.
template <class Function>
void CheckPrint(Function print, const Case& wanted, const std::string& whole) {
    const std::unique_ptr<char[]> buffer(new char[wanted.size]);
    const int result = wanted.Call(print, buffer.get(), wanted.size);
    const bool isCut = wanted.size != 0 && whole.size() >= wanted.size;
    fuzz::Expect("the result", result, isCut ? -1 : static_cast<int>(whole.size()));
    if (wanted.size != 0) {
        fuzz::Check(buffer.get() == whole.substr(0, wanted.size - 1), "another text");
    }
    // A size that no int holds counts as too small, although the text fits.
    const std::unique_ptr<char[]> large(new char[whole.size() + 1]);
    fuzz::Expect("the result of a huge size", wanted.Call(print, large.get(), size_t{INT_MAX} + 1),
                 -1);
    fuzz::Check(large.get() == whole, "another text of a huge size");
}

void CheckLine(void (*write)(const char*, ...), int priority, const Case& wanted,
               const std::string& whole) {
    wanted.Call(write);
    fuzz::Expect("the priority", fuzz::g_platform.priority, priority);
    fuzz::Check(std::strcmp(fuzz::g_platform.tag, "CamZ") == 0, "another tag");
    fuzz::Check(fuzz::g_platform.line == whole.substr(0, kLine), "another line");
}

void CheckFileName(const std::string& path) {
    const std::unique_ptr<char[]> copy(new char[path.size() + 1]);
    std::memcpy(copy.get(), path.c_str(), path.size() + 1);
    const size_t start = path.rfind('/') + 1; // 0 where there is none.
    fuzz::Check(OemLayer::ZGetFileName(copy.get()) == copy.get() + start, "another file name");
}

void Run(fuzz::Input input) {
    const Case wanted = ReadCase(input);
    const std::string whole = Whole(wanted);
    CheckPrint(CdkUtils::SNPrintF, wanted, whole);
    CheckPrint(Print, wanted, whole);
    CheckLine(OemLayer::ZLogE, ANDROID_LOG_ERROR, wanted, whole);
    CheckLine(OemLayer::ZLogW, ANDROID_LOG_WARN, wanted, whole);
    CheckLine(OemLayer::ZLogI, ANDROID_LOG_INFO, wanted, whole);
    CheckLine(OemLayer::ZLogV, ANDROID_LOG_VERBOSE, wanted, whole);
    CheckFileName(wanted.text);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::ExpectNothingLeftBy([&] { Run({data, size}); });
    return 0;
}
