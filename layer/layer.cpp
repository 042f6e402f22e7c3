/// Opens the real library and the recording.
#include "layer/layer.h"

#include "layer/watch.h"

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
