/// Opens the real library and the recording.
#include "layer/layer.h"

#include <android/log.h>
#include <dlfcn.h>

namespace layer {
namespace {

std::string OwnFolder() {
    Dl_info own{};
    if (dladdr(reinterpret_cast<void*>(&Open), &own) == 0 || own.dli_fname == nullptr) {
        return ".";
    }
    const std::string file = own.dli_fname;
    const size_t slash = file.rfind('/');
    return slash == file.npos ? "." : file.substr(0, slash);
}

/// The recording goes on in memory where its file cannot be made and somebody watches.
contract::Tap* OpenTap(const Settings& settings) {
    if (settings.record.empty()) {
        return nullptr;
    }
    std::string problem;
    auto tap = contract::Tap::Open({.file = settings.record,
                                    .bytes = uint64_t{settings.mebibytes} << 20,
                                    .wholePixels = settings.wholePixels},
                                   problem);
    if (tap == nullptr) {
        Log(ANDROID_LOG_ERROR, "cannot record: %s", problem.c_str());
    } else {
        Log(ANDROID_LOG_INFO, "records into %s", settings.record.c_str());
    }
    return tap.release();
}

} // namespace

Layer Open(std::string Settings::*path, const char* name) {
    const std::string folder = OwnFolder();
    const Settings settings = ReadSettings(folder);
    const std::string& wanted = settings.*path;
    const std::string file = wanted.empty() ? folder + "/" + name : wanted;
    void* const real = dlopen(file.c_str(), RTLD_NOW);
    if (real == nullptr) {
        const char* const reason = dlerror();
        Log(ANDROID_LOG_ERROR, "cannot open %s: %s", file.c_str(),
            reason == nullptr ? "no reason given" : reason);
        return {};
    }
    return {real, OpenTap(settings)};
}

void* Find(const Layer& layer, const char* symbol) {
    void* const address = layer.real == nullptr ? nullptr : dlsym(layer.real, symbol);
    if (layer.real != nullptr && address == nullptr) {
        Log(ANDROID_LOG_ERROR, "the real library lacks %s", symbol);
    }
    return address;
}

} // namespace layer
