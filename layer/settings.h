/// What a layer shall do, and its log.
///
/// The file is the one that OEMLAYER_LAYER_SETTINGS names, or else `oemlayer.layer.conf` beside the
/// layer: lines `key = value`, and comments behind a `#`. Android's properties win over it.
#pragma once

#include <cstdint>
#include <string>

namespace layer {

/// Under which a layer's lines are in Android's log. Each layer defines its own.
extern const char kTag[];

struct Settings {
    std::string adapter; ///< The real library of the host's layer; empty for the one beside it.
    std::string vendor;  ///< Of the vendor's layer, likewise.
    std::string record;  ///< The recording's file; empty for none.
    uint32_t mebibytes = 64;
    bool wholePixels = false;
    bool watch = false;
};

/// Reads them. Where something is wrong, a line in the log says what, and nothing is recorded or
/// watched. \param folder where the layer lies.
Settings ReadSettings(const std::string& folder);

/// Writes a line to Android's log, cut at 511 characters. Any thread.
/// \param priority a number of <android/log.h>.
__attribute__((format(printf, 2, 3))) void Log(int priority, const char* format, ...);

} // namespace layer
