/// The layers between the host of a program, the adapter and the stand-in's offline library.
#pragma once

#include "kit/unnamed_file.h"

#include <cstdint>
#include <string>

namespace kit {

/// What they do, once for the process: they read their settings at their first call.
struct LayerSettings {
    std::string record; ///< The recording's file; empty for none.
    uint32_t mebibytes = 64;
    bool wholePixels = false;
    bool watch = false;
};

/// Puts both layers in their places as long as this lives. Made before the adapter is loaded.
class Layers {
  public:
    /// \param adapterFile the adapter that the host's layer opens.
    /// \throws std::system_error where the settings' file cannot be made.
    Layers(const std::string& adapterFile, const LayerSettings& settings);
    /// The same, with the settings' file as it is given.
    explicit Layers(const std::string& settingsText);
    ~Layers();
    Layers(const Layers&) = delete;
    Layers& operator=(const Layers&) = delete;

    /// What the host opens in the adapter's place.
    std::string AdapterFile() const;

  private:
    UnnamedFile mFile; ///< With the settings.
};

} // namespace kit
