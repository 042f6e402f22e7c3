/// The device's extension layer: its hook for result metadata.
#include "standin/state.h"

namespace {
uint32_t ProcessResultMeta(uint32_t /*first*/, void** /*metadata*/) { return standin::kOk; }
} // namespace

extern "C" __attribute__((visibility("default"))) uint32_t
ExtensionProcessResultMeta(uint32_t first, void** metadata) {
    using standin::Entry;
    return standin::Recorded<Entry::ExtensionProcessResultMeta, ProcessResultMeta>::Call(first,
                                                                                         metadata);
}
