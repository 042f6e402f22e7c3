/// The vendor's camera module: the maker's callback setters and the sensor modes.
#include "standin/state.h"

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED void SetVeltoNCSCallback() {}
EXPORTED void SetVeltoHWCallback() {}
EXPORTED void SetVeltoPerfCallback() {}

EXPORTED uint32_t OemEnumerateSensorModes(uint32_t first, uint32_t second, void* modes) {
    constexpr auto kSucceed = +[](uint32_t, uint32_t, void*) -> uint32_t { return standin::kOk; };
    return standin::Recorded<standin::Entry::EnumerateSensorModes, kSucceed>::Call(first, second,
                                                                                   modes);
}
