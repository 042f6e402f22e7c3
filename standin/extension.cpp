/// The device's extension layer: its hook for result metadata.
#include "standin/state.h"

extern "C" __attribute__((visibility("default"))) uint32_t
ExtensionProcessResultMeta(uint32_t first, void** metadata) {
    using namespace standin;
    constexpr auto kSucceed = Nothing<uint32_t (*)(uint32_t, void**)>::Call;
    return Recorded<Entry::ExtensionProcessResultMeta, kSucceed>::Call(first, metadata);
}
