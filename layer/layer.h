/// What both layers begin with.
#pragma once

#include "contract/tap.h"
#include "layer/settings.h"

namespace layer {

/// Made at a layer's first call, and never freed.
struct Layer {
    void* real = nullptr; ///< The library that the layer stands for; null where it is missing.
    contract::Tap* tap = nullptr; ///< Null where calls are passed through only.
};

/// Reads the settings, opens the real library, and the recording where one is wanted. What fails is
/// in the log.
/// \param path the setting with the real library's path,
/// \param name and the name under which it lies beside the layer otherwise,
/// \param symbol and what both export.
Layer Open(std::string Settings::*path, const char* name, const char* symbol);

/// A symbol of the real library. \returns null, with a line in the log, where it is missing.
void* Find(const Layer& layer, const char* symbol);

} // namespace layer
