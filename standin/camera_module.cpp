/// The vendor's camera module: the maker's callback setters and the sensor modes.
#include "standin/state.h"

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED void SetVeltoNCSCallback() {}
EXPORTED void SetVeltoHWCallback() {}
EXPORTED void SetVeltoPerfCallback() {}

EXPORTED uint32_t OemEnumerateSensorModes(uint32_t first, uint32_t second, void* modes) {
    using namespace standin;
    constexpr auto kSucceed = Nothing<uint32_t (*)(uint32_t, uint32_t, void*)>::Call;
    return Recorded<Entry::EnumerateSensorModes, kSucceed>::Call(first, second, modes);
}
