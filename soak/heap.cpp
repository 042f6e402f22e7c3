/// What the program's allocation functions do, which win over the C++ and the C library's in all of
/// the process.
///
/// Memory is the library's where the call comes from its code. The C++ library's own code, such as
/// a string that grows, asks for somebody: for the caller that is next on the stack. That is rare,
/// so that a look at the stack may take its time. A block has its size and its owner in front of
/// it, and is no longer counted when it is freed, by whomever.
#include "soak/heap.h"

#include "kit/heap.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdlib>
#include <dlfcn.h>
#include <execinfo.h>
#include <malloc.h>
#include <span>
#include <stdexcept>
#include <string>

namespace soak::heap {
namespace {

const link_map* g_library;
const link_map* g_runtime; ///< The C++ library.
std::atomic<int64_t> g_libraryBytes = 0;
std::atomic<int64_t> g_libraryBytesC = 0;
std::atomic<int64_t> g_processBytes = 0;

struct alignas(__STDCPP_DEFAULT_NEW_ALIGNMENT__) Header {
    size_t size;
    bool isLibrarys;
};

#if SOAK_COUNTS_C
extern "C" {
void* CallocInC(size_t count, size_t size) __asm__("__libc_calloc");
void FreeInC(void* memory) __asm__("__libc_free");
}
#else
void FreeInC(void* memory) { std::free(memory); }
#endif

/// The module that an address is in, null for none.
const link_map* ModuleOf(const void* address) {
    dl_find_object found{};
    (void)_dl_find_object(const_cast<void*>(address), &found);
    return found.dlfo_link_map;
}

bool IsLibrarys(const void* code) { return g_library != nullptr && ModuleOf(code) == g_library; }

/// Whether the code that the C++ library works for is the library's.
bool RuntimeWorksForLibrary() {
    constexpr int kMostFrames = 32;
    void* frames[kMostFrames];
    const std::span stack(frames, static_cast<size_t>(backtrace(frames, kMostFrames)));
    const auto isRuntimes = [](const void* frame) { return ModuleOf(frame) == g_runtime; };
    const auto first = std::find_if(stack.begin(), stack.end(), isRuntimes);
    const auto caller = std::find_if_not(first, stack.end(), isRuntimes);
    return caller != stack.end() && IsLibrarys(*caller);
}

/// What lies before a block. Its header is the end of it.
constexpr size_t Before(kit::HeapForm form) {
    return std::max(static_cast<size_t>(form.alignment), sizeof(Header));
}

} // namespace

void Watch(void* inLibrary) {
    const link_map* const library = ModuleOf(inLibrary);
    g_runtime = ModuleOf(std::bit_cast<void*>(static_cast<std::string (*)(int)>(std::to_string)));
    if (library == nullptr || g_runtime == nullptr) {
        throw std::runtime_error("memory cannot be told apart: no module has the address");
    }
    (void)RuntimeWorksForLibrary(); // The first look at a stack allocates.
    g_library = library;
}

Live Count() { return {g_libraryBytes, g_libraryBytesC, g_processBytes}; }

} // namespace soak::heap

void* kit::Take(size_t size, HeapForm form, const void* caller) {
    using namespace soak::heap;
    auto* const base = static_cast<char*>(TakeFromC(Before(form) + size, form));
    if (base == nullptr) {
        return nullptr;
    }
    auto* const header = reinterpret_cast<Header*>(base + Before(form)) - 1;
    const bool isLibrarys =
        IsLibrarys(caller) || (ModuleOf(caller) == g_runtime && RuntimeWorksForLibrary());
    *header = {size, isLibrarys};
    const auto bytes = static_cast<int64_t>(size);
    g_libraryBytes.fetch_add(isLibrarys ? bytes : 0, std::memory_order_relaxed);
    g_processBytes.fetch_add(bytes, std::memory_order_relaxed);
    return header + 1;
}

void kit::Give(void* memory, HeapForm form) noexcept {
    using namespace soak::heap;
    if (memory == nullptr) {
        return;
    }
    auto* const header = static_cast<Header*>(memory) - 1;
    const auto bytes = static_cast<int64_t>(header->size);
    g_libraryBytes.fetch_sub(header->isLibrarys ? bytes : 0, std::memory_order_relaxed);
    g_processBytes.fetch_sub(bytes, std::memory_order_relaxed);
    FreeInC(static_cast<char*>(memory) - Before(form));
}

// The library frees in C what it allocated there itself, and nothing else.
#if SOAK_COUNTS_C
extern "C" {
__attribute__((visibility("default"))) void* calloc(size_t count, size_t size) noexcept {
    void* const memory = soak::heap::CallocInC(count, size);
    if (soak::heap::IsLibrarys(__builtin_return_address(0))) {
        soak::heap::g_libraryBytesC += static_cast<int64_t>(malloc_usable_size(memory));
    }
    return memory;
}

__attribute__((visibility("default"))) void free(void* memory) noexcept {
    if (soak::heap::IsLibrarys(__builtin_return_address(0))) {
        soak::heap::g_libraryBytesC -= static_cast<int64_t>(malloc_usable_size(memory));
    }
    soak::heap::FreeInC(memory);
}
}
#endif
