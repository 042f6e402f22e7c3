/// The vendor's common utilities: the operations of its offline logger.
#include "platform/maker/zlog.h"
#include "standin/state.h"

extern "C" __attribute__((visibility("default"))) void ChiOfflineLogEntry(ZOfflineLogOps* ops) {
    constexpr auto kFill = +[](ZOfflineLogOps* operations) {
        uint64_t word = 0x10660000; // Recognisable; nothing is called through it.
        for (void*& slot : operations->reserved0) {
            slot = standin::As<void*>(word++);
        }
    };
    standin::Recorded<standin::Entry::OfflineLogEntry, kFill>::Call(ops);
}
