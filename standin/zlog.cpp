/// The maker's logging library: keeps structured records instead of writing them anywhere.
#include "platform/maker/zlog.h"
#include "standin/state.h"

#include <cstdarg>
#include <cstdio>

namespace {

std::string Text(const char* text) { return text == nullptr ? "(null)" : text; }

__attribute__((format(printf, 1, 0))) std::string Format(const char* format, va_list arguments) {
    char* text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    std::string copy(text, length < 0 ? 0 : static_cast<size_t>(length));
    free(text);
    return copy;
}

void InstallOperations(ZOfflineLogOps* ops) {
    standin::Check(standin::Rule::LoggerOperations, ops != nullptr && ops->reserved0[0] != nullptr,
                   "the operations are not filled");
}

} // namespace

// NOLINTNEXTLINE(cert-dcl50-cpp): the maker's interface is a printf.
void ZLog::LogSystem(const char* levelMark, const char* levelLetter, const char* moduleMark,
                     const char* fileBaseName, const char* functionName, int line, const char* fmt,
                     ...) {
    va_list arguments;
    va_start(arguments, fmt);
    standin::LogRecord record{Text(levelMark),       Text(levelLetter),  Text(moduleMark),
                              Text(fileBaseName),    Text(functionName), line,
                              Format(fmt, arguments)};
    va_end(arguments);
    const auto device = standin::Device().Lock();
    if (device->script.recording) {
        device->records.logs.push_back(std::move(record));
    }
}

void ZLog::SetOfflineLoggerOps(ZOfflineLogOps* ops) {
    standin::Recorded<standin::Entry::SetOfflineLoggerOps, InstallOperations>::Call(ops);
}
