/// The maker's logging library: structured log records, and the sink of the vendor's offline
/// logger.
#pragma once

#include "platform/abi.h"

#include <cstdint>

/// Logger operations that the vendor's utilities fill in and the maker's logging library calls.
///
/// Only the two libraries on either side know the entries, and so its real size; the adapter
/// carries the record. The room is generous, since the vendor writes it without being told a size.
struct ZOfflineLogOps {
    void* reserved0[32];
};
ABI_SIZE(ZOfflineLogOps, 256);

/// Declared as a class of static functions on the device; the linker sees the same names either
/// way.
namespace ZLog {

/// Takes one structured record. May be called from any thread.
/// \param levelMark "[ERROR]", "[ WARN]", "[ INFO]" or "[ VERB]"; \param levelLetter its letter.
/// \param fmt printf format of the message, followed by its arguments.
__attribute__((format(printf, 7, 8))) void
LogSystem(const char* levelMark, const char* levelLetter, const char* moduleMark,
          const char* fileBaseName, const char* functionName, int line, const char* fmt, ...);

/// Installs the vendor's offline logger. The record must stay alive; it is not copied.
void SetOfflineLoggerOps(ZOfflineLogOps* ops);

} // namespace ZLog
