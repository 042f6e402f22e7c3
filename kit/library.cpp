/// Opens libraries, and names what they lack.
#include "kit/library.h"

#include "platform/chi/offline.h"

#include <dlfcn.h>
#include <filesystem>
#include <stdexcept>

namespace kit {

std::string Beside(const std::string& path) {
    const auto self = std::filesystem::read_symlink("/proc/self/exe");
    return (self.parent_path() / path).lexically_normal().string();
}

std::string AdapterFile(bool hasLog) {
    return Beside(std::string("../adapterlayer/") + (hasLog ? "verbose/" : "") +
                  "camera.oemlayer.adapter.so");
}

Library::Library(std::string file)
    : mFile(std::move(file)), mHandle(dlopen(mFile.c_str(), RTLD_NOW)) {
    if (mHandle == nullptr) {
        throw std::runtime_error(std::string("the library cannot be used: ") + dlerror());
    }
}

void* Library::Address(const char* symbol) const {
    void* const address = dlsym(mHandle, symbol);
    if (address == nullptr) {
        throw std::runtime_error(mFile + " lacks " + symbol);
    }
    return address;
}

PlatformLoadFunctions Adapter::LoadFunctions() const {
    PlatformLoadFunctions functions{};
    Find<decltype(PlatformLoadContext)>("PlatformLoadContext")(&functions);
    return functions;
}

PlatFormIntCallbacks Adapter::Table(uint32_t cameraId) const {
    PlatFormIntCallbacks table{};
    Find<decltype(PlatformIntContext)>("PlatformIntContext")(&table, cameraId);
    return table;
}

ChiOfflineInterface* OpenOfflineInterface(uint32_t version) {
    const Library vendor("/vendor/lib64/hw/com.qti.chi.offline.so");
    const auto open = vendor.Find<void*(void*, uint32_t)>("ChiOfflineOpenContext");
    return static_cast<ChiOfflineInterface*>(open(nullptr, version));
}

} // namespace kit
