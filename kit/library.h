/// Shared libraries as the host of the adapter opens them, and the adapter itself.
#pragma once

#include "adapterlayer/oemlayer_host.h"

#include <string>

struct ChiOfflineInterface;

namespace kit {

/// A file of the build tree, from where this program lies in it.
std::string Beside(const std::string& path);

/// The built adapter: with a log, or as a device gets it.
std::string AdapterFile(bool hasLog);

/// The build id of a library's file in hexadecimal; empty where it has none, or cannot be read.
std::string BuildIdOf(const std::string& file);

/// A library that is open until the process ends. What it lacks is thrown as a std::runtime_error
/// that names it.
class Library {
  public:
    explicit Library(std::string file);

    /// What the library exports under a name, as the linker has it.
    template <typename Function> Function* Find(const char* symbol) const {
        return reinterpret_cast<Function*>(Address(symbol));
    }

  private:
    void* Address(const char* symbol) const;

    std::string mFile;
    void* mHandle;
};

class Adapter : public Library {
  public:
    using Library::Library;

    PlatformLoadFunctions LoadFunctions() const;
    /// Has it bind the vendor's and the device's libraries. \returns what its function did.
    void* Load() const { return LoadFunctions().loadLib(); }
    PlatFormIntCallbacks Table(uint32_t cameraId) const;
};

/// The vendor's offline interface, as the adapter opens it.
ChiOfflineInterface* OpenOfflineInterface(uint32_t version = 512);

} // namespace kit
