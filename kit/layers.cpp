/// Writes the layers' settings, and puts the vendor's layer before the stand-in's library.
#include "kit/layers.h"

#include "kit/library.h"
#include "standin/control.h"

#include <cstdlib>
#include <fstream>

namespace kit {
namespace {

constexpr char kVariable[] = "OEMLAYER_LAYER_SETTINGS";
constexpr char kVendorLibrary[] = "/vendor/lib64/hw/com.qti.chi.offline.so";

std::string Text(const std::string& adapterFile, const LayerSettings& settings) {
    return "adapter = " + adapterFile + "\nvendor = /vendor/lib64/hw/com.qti.chi.offline.real.so" +
           (settings.record.empty() ? "" : "\nrecord = " + settings.record) +
           "\nsize = " + std::to_string(settings.mebibytes) +
           "\npixels = " + (settings.wholePixels ? "whole" : "hash") +
           "\nwatch = " + (settings.watch ? "on" : "off") + "\n";
}

} // namespace

Layers::Layers(const std::string& adapterFile, const LayerSettings& settings)
    : Layers(Text(adapterFile, settings)) {}

Layers::Layers(const std::string& settingsText) {
    std::ofstream(mFile.Path()) << settingsText;
    setenv(kVariable, mFile.Path().c_str(), 1);
    StandinControl()->PutLayer(kVendorLibrary, Beside("../layer/com.qti.chi.offline.layer.so"));
}

Layers::~Layers() {
    StandinControl()->PutLayer(kVendorLibrary, "");
    unsetenv(kVariable);
}

std::string Layers::AdapterFile() const { return Beside("../layer/camera.oemlayer.layer.so"); }

} // namespace kit
