/// The vendor's common utilities: the operations of its offline logger.
#include "platform/maker/zlog.h"
#include "standin/state.h"

namespace {

constexpr uint64_t kFirstOperation = 0x10660000; ///< Recognisable; nothing is called through it.

void FillOperations(ZOfflineLogOps* ops) {
    uint64_t operation = kFirstOperation;
    for (void*& slot : ops->reserved0) {
        slot = standin::As<void*>(operation++);
    }
}

} // namespace

extern "C" __attribute__((visibility("default"))) void ChiOfflineLogEntry(ZOfflineLogOps* ops) {
    standin::Recorded<standin::Entry::OfflineLogEntry, FillOperations>::Call(ops);
}
