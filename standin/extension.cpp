/// The device's extension layer: its hook for result metadata.
#include "standin/state.h"

extern "C" __attribute__((visibility("default"))) uint32_t
ExtensionProcessResultMeta(uint32_t first, void** metadata) {
    constexpr auto kSucceed = +[](uint32_t, void**) -> uint32_t { return standin::kOk; };
    return standin::Recorded<standin::Entry::ExtensionProcessResultMeta, kSucceed>::Call(first,
                                                                                         metadata);
}
