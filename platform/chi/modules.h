/// Symbols that are looked up at run time in the chip vendor's and the device's libraries.
#pragma once

#include "platform/maker/zlog.h"

#include <cstdint>

/// "ChiOfflineOpenContext": opens the offline interface; returns its record or null.
using ChiOfflineOpenContextFn = void* (*)(void*, uint32_t);

/// "ChiOfflineLogEntry": fills the vendor's offline logger operations.
using ChiOfflineLogEntryFn = void (*)(ZOfflineLogOps*);

/// "SetVeltoNCSCallback", "SetVeltoHWCallback", "SetVeltoPerfCallback": their arguments are between
/// the host and the vendor; the adapter hands the functions out as they are.
using VeltoSetCallbackFn = void (*)();

/// "OemEnumerateSensorModes".
using EnumerateSensorModesFn = uint32_t (*)(uint32_t, uint32_t, void*);

/// "ExtensionProcessResultMeta".
using ExtensionProcessResultMetaFn = uint32_t (*)(uint32_t, void**);
