/// Opens the real library and the recording.
#include "layer/layer.h"

#include "layer/watch.h"

#include <android/log.h>
#include <dlfcn.h>

namespace layer {
namespace {

/// The library that has this code.
Dl_info Own() {
    Dl_info own{};
    (void)dladdr(reinterpret_cast<void*>(&Open), &own);
    return own;
}

std::string OwnFolder() {
    const char* const name = Own().dli_fname;
    const std::string file = name == nullptr ? "" : name;
    const size_t slash = file.rfind('/');
    return slash == file.npos ? "." : file.substr(0, slash);
}

/// Null where the library cannot be opened, or would call itself for ever.
void* OpenReal(const std::string& file, const char* symbol) {
    void* const real = dlopen(file.c_str(), RTLD_NOW);
    const char* const reason = real == nullptr ? dlerror() : nullptr;
    Dl_info found{};
    if (real == nullptr) {
        Log(ANDROID_LOG_ERROR, "cannot open %s: %s", file.c_str(),
            reason == nullptr ? "no reason given" : reason);
    } else if (dladdr(dlsym(real, symbol), &found) != 0 && found.dli_fbase == Own().dli_fbase) {
        Log(ANDROID_LOG_ERROR, "cannot open %s: it is the layer itself", file.c_str());
        return nullptr;
    }
    return real;
}

/// Null where nobody wants one. Who only watches needs no file.
contract::Tap* OpenTap(const Settings& settings) {
    contract::Tap::Settings wanted{.file = settings.record,
                                   .bytes = uint64_t{settings.mebibytes} << 20,
                                   .wholePixels = settings.wholePixels,
                                   .follower = settings.watch ? new Watch : nullptr};
    std::string problem;
    if (!wanted.file.empty()) {
        if (auto tap = contract::Tap::Open(wanted, problem)) {
            Log(ANDROID_LOG_INFO, "records into %s", wanted.file.c_str());
            return tap.release();
        }
        Log(ANDROID_LOG_ERROR, "cannot record: %s", problem.c_str());
    }
    if (!settings.watch) {
        return nullptr;
    }
    wanted.file.clear();
    wanted.bytes = 0; // One block.
    return contract::Tap::Open(wanted, problem).release();
}

} // namespace

Layer Open(std::string Settings::*path, const char* name, const char* symbol) {
    const std::string folder = OwnFolder();
    const Settings settings = ReadSettings(folder);
    const std::string& wanted = settings.*path;
    void* const real = OpenReal(wanted.empty() ? folder + "/" + name : wanted, symbol);
    if (real == nullptr) {
        return {};
    }
    contract::Tap* const tap = OpenTap(settings);
    if (tap == nullptr) {
        Log(ANDROID_LOG_INFO, "calls are passed through");
    }
    return {real, tap};
}

void* Find(const Layer& layer, const char* symbol) {
    void* const address = layer.real == nullptr ? nullptr : dlsym(layer.real, symbol);
    if (layer.real != nullptr && address == nullptr) {
        Log(ANDROID_LOG_ERROR, "the real library lacks %s", symbol);
    }
    return address;
}

} // namespace layer
