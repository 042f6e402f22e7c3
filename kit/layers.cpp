/// Writes the layers' settings, and puts the vendor's layer before the stand-in's library.
#include "kit/layers.h"

#include "kit/library.h"
#include "standin/control.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

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

std::string MakeFolder() {
    std::string folder = std::filesystem::temp_directory_path() / "oemlayer.XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), folder);
    }
    return folder;
}

} // namespace

Layers::Layers(const std::string& adapterFile, const LayerSettings& settings)
    : Layers(Text(adapterFile, settings)) {}

Layers::Layers(const std::string& settingsText) : mFolder(MakeFolder()) {
    const std::string file = mFolder + "/oemlayer.layer.conf";
    std::ofstream(file) << settingsText;
    setenv(kVariable, file.c_str(), 1);
    StandinControl()->PutLayer(kVendorLibrary, Beside("../layer/com.qti.chi.offline.layer.so"));
}

Layers::~Layers() {
    StandinControl()->PutLayer(kVendorLibrary, "");
    unsetenv(kVariable);
    std::error_code ignored;
    std::filesystem::remove_all(mFolder, ignored);
}

std::string Layers::AdapterFile() const { return Beside("../layer/camera.oemlayer.layer.so"); }

} // namespace kit
