/// Opens libraries, and names what they lack.
#include "kit/library.h"

#include "platform/chi/offline.h"

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <iterator>
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

namespace {

/// A copy of what lies at an offset of a file's bytes; all zero where they end before.
template <class T> T At(const std::string& bytes, uint64_t offset) {
    T value{};
    if (offset <= bytes.size() && bytes.size() - offset >= sizeof value) {
        std::memcpy(&value, bytes.data() + offset, sizeof value);
    }
    return value;
}

std::string HexOf(const std::string& bytes) {
    std::string hex;
    for (const char byte : bytes) {
        constexpr char kDigits[] = "0123456789abcdef";
        hex += kDigits[static_cast<unsigned char>(byte) / 16];
        hex += kDigits[static_cast<unsigned char>(byte) % 16];
    }
    return hex;
}

} // namespace

std::string BuildIdOf(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), {}};
    const auto header = At<Elf64_Ehdr>(bytes, 0);
    for (uint64_t i = 0; i < header.e_phnum; ++i) {
        const auto segment = At<Elf64_Phdr>(bytes, header.e_phoff + i * sizeof(Elf64_Phdr));
        uint64_t place = segment.p_offset;
        const uint64_t end = place + std::min<uint64_t>(segment.p_filesz, bytes.size());
        while (segment.p_type == PT_NOTE && place + sizeof(Elf64_Nhdr) < end) {
            const auto note = At<Elf64_Nhdr>(bytes, place);
            const uint64_t name = (uint64_t{note.n_namesz} + 3) & ~uint64_t{3};
            place += sizeof note + name;
            if (note.n_type == NT_GNU_BUILD_ID && place <= bytes.size()) {
                return HexOf(bytes.substr(place, note.n_descsz));
            }
            place += (uint64_t{note.n_descsz} + 3) & ~uint64_t{3};
        }
    }
    return {};
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
