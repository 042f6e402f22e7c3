/// The `dlopen` of programs that run against the stand-in device. It is linked into the program,
/// whose symbol wins over the C library's in every library of the process.
#include "standin/state.h"

#include <dlfcn.h>

#include <string_view>

/// Opens paths of the device below the device root, where nothing that it lacks can be found. With
/// STANDIN_IS_LINKED the program has the device's libraries within, and stands for each of them.
extern "C" __attribute__((visibility("default"))) void* dlopen(const char* path,
                                                               int flags) noexcept {
    using namespace standin;
    static const auto next = reinterpret_cast<decltype(&dlopen)>(dlsym(RTLD_NEXT, "dlopen"));
    const std::string_view file(path == nullptr ? "" : path);
    if (!file.starts_with("/vendor/") && !file.starts_with("/odm/") &&
        !file.starts_with("/system/")) {
        return next(path, flags);
    }
    if (const std::string layer = Device().LayerAt(path); !layer.empty()) {
        return next(layer.c_str(), flags);
    }
    const std::string opened = Device().BehindLayer(path);
    if (const auto fault = Device().Enter(Entry::LibraryOpen, Arguments(opened.c_str(), flags))) {
        return As<void*>(*fault);
    }
#ifdef STANDIN_IS_LINKED
    return next(nullptr, flags);
#else
    return next(Device().FileOf(opened).c_str(), flags);
#endif
}
