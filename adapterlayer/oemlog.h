/// The one log site of the library.
///
/// A message goes to the maker's logging library as a structured record and, right after it, as one
/// line to the Android log under the tag "CamZ". Each level has its own flag. A site whose flag is
/// zero costs one load and one branch; none of its arguments is evaluated. An enabled site
/// evaluates them twice.
#pragma once

#include "platform/maker/zlog.h"

#include <cstdint>

namespace OemLayer {

/// Of this library alone: a site reads its flag without asking the dynamic linker's table.
#define OEM_INTERNAL __attribute__((visibility("hidden")))

/// The level flags. OEMLAYER_LOG_LEVEL sets them when the library is built; nothing in it writes
/// them later. Read by every thread without synchronisation.
extern OEM_INTERNAL uint32_t g_logErrorEnabled;
extern OEM_INTERNAL uint32_t g_logWarnEnabled;
extern OEM_INTERNAL uint32_t g_logInfoEnabled;
extern OEM_INTERNAL uint32_t g_logVerboseEnabled;

inline constexpr const char kLogModuleMark[] = "[OEM_LYR]";

/// What follows the last '/' of `path`, or `path` itself where it has none. Any thread.
const char* ZGetFileName(const char* path);

/// Write one line to the Android log at error, warning, info or verbose priority, cut at 511
/// characters. Any thread; no state is shared.
__attribute__((format(printf, 1, 2))) void ZLogE(const char* fmt, ...);
__attribute__((format(printf, 1, 2))) void ZLogW(const char* fmt, ...);
__attribute__((format(printf, 1, 2))) void ZLogI(const char* fmt, ...);
__attribute__((format(printf, 1, 2))) void ZLogV(const char* fmt, ...);

/// A text that another party owns and may have left out.
inline const char* PrintableText(const char* text) { return text != nullptr ? text : "(null)"; }

} // namespace OemLayer

#ifdef __cppcheck__ // It does not know __VA_OPT__.
#define OEM_LOG_ARGUMENTS(...) , ##__VA_ARGS__
#else
#define OEM_LOG_ARGUMENTS(...) __VA_OPT__(, ) __VA_ARGS__
#endif

/// Both sinks of an enabled site. `operation` is the unqualified name of the operation that logs.
#define OEM_LOG_SITE(enabled, mark, letter, write, operation, fmt, ...)                            \
    do {                                                                                           \
        if (enabled) [[unlikely]] {                                                                \
            ZLog::LogSystem(mark, letter, OemLayer::kLogModuleMark,                                \
                            OemLayer::ZGetFileName(__FILE__), operation, __LINE__,                 \
                            fmt OEM_LOG_ARGUMENTS(__VA_ARGS__));                                   \
            write(mark "%s %s:%d %s() " fmt "\n", OemLayer::kLogModuleMark,                        \
                  OemLayer::ZGetFileName(__FILE__), __LINE__,                                      \
                  operation OEM_LOG_ARGUMENTS(__VA_ARGS__));                                       \
        }                                                                                          \
    } while (false)

/// For a function that is a step of an operation and logs under the operation's name.
#define OEM_LOG_ERROR_IN(operation, ...)                                                           \
    OEM_LOG_SITE(OemLayer::g_logErrorEnabled, "[ERROR]", "E", OemLayer::ZLogE, operation,          \
                 __VA_ARGS__)
#define OEM_LOG_WARN_IN(operation, ...)                                                            \
    OEM_LOG_SITE(OemLayer::g_logWarnEnabled, "[ WARN]", "W", OemLayer::ZLogW, operation,           \
                 __VA_ARGS__)
#define OEM_LOG_INFO_IN(operation, ...)                                                            \
    OEM_LOG_SITE(OemLayer::g_logInfoEnabled, "[ INFO]", "I", OemLayer::ZLogI, operation,           \
                 __VA_ARGS__)
#define OEM_LOG_VERBOSE_IN(operation, ...)                                                         \
    OEM_LOG_SITE(OemLayer::g_logVerboseEnabled, "[ VERB]", "V", OemLayer::ZLogV, operation,        \
                 __VA_ARGS__)

/// For a function that is an operation itself.
#define OEM_LOG_ERROR(...) OEM_LOG_ERROR_IN(__func__, __VA_ARGS__)
#define OEM_LOG_WARN(...) OEM_LOG_WARN_IN(__func__, __VA_ARGS__)
#define OEM_LOG_INFO(...) OEM_LOG_INFO_IN(__func__, __VA_ARGS__)
#define OEM_LOG_VERBOSE(...) OEM_LOG_VERBOSE_IN(__func__, __VA_ARGS__)
