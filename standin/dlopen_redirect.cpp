/// The `dlopen` of programs that run against the stand-in device. It is linked into the program,
/// whose symbol wins over the C library's in every library of the process.
#include "standin/state.h"

#include <dlfcn.h>

#include <string_view>

namespace {

using OpenFunction = void* (*)(const char*, int);

bool IsDevicePath(std::string_view path) {
    return path.starts_with("/vendor/") || path.starts_with("/odm/") ||
           path.starts_with("/system/");
}

void* OpenNext(const char* path, int flags) {
    static const auto next = reinterpret_cast<OpenFunction>(dlsym(RTLD_NEXT, "dlopen"));
    return next(path, flags);
}

} // namespace

/// Opens paths of the device below the device root, where nothing that it lacks can be found.
extern "C" __attribute__((visibility("default"))) void* dlopen(const char* path,
                                                               int flags) noexcept {
    using namespace standin;
    if (path == nullptr || !IsDevicePath(path)) {
        return OpenNext(path, flags);
    }
    if (const auto fault = Device().Enter(Entry::LibraryOpen, Arguments(path, flags))) {
        return As<void*>(*fault);
    }
    return OpenNext(Device().FileOf(path).c_str(), flags);
}
