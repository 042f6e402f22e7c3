/// Every way to take a block from the heap and give it back. Whoever accounts for the heap has to
/// see all of them.
#pragma once

#include <cstddef>
#include <new>

namespace test {

inline constexpr size_t kSize = 192;
inline constexpr std::align_val_t kLine{64};

struct HeapForm {
    const char* name;
    void* (*take)();
    void (*give)(void* memory);
};

// Function by function, since a new expression could be left out by the compiler.
inline constexpr HeapForm kHeapForms[] = {
    {"one", [] { return operator new(kSize); }, [](void* m) { operator delete(m); }},
    {"one, sized", [] { return operator new(kSize); }, [](void* m) { operator delete(m, kSize); }},
    {"one, nothrow", [] { return operator new(kSize, std::nothrow); },
     [](void* m) { operator delete(m, std::nothrow); }},
    {"array", [] { return operator new[](kSize); }, [](void* m) { operator delete[](m); }},
    {"array, sized", [] { return operator new[](kSize); },
     [](void* m) { operator delete[](m, kSize); }},
    {"array, nothrow", [] { return operator new[](kSize, std::nothrow); },
     [](void* m) { operator delete[](m, std::nothrow); }},
    {"aligned", [] { return operator new(kSize, kLine); },
     [](void* m) { operator delete(m, kLine); }},
    {"aligned, sized", [] { return operator new(kSize, kLine); },
     [](void* m) { operator delete(m, kSize, kLine); }},
    {"aligned, nothrow", [] { return operator new(kSize, kLine, std::nothrow); },
     [](void* m) { operator delete(m, kLine, std::nothrow); }},
    {"aligned array", [] { return operator new[](kSize, kLine); },
     [](void* m) { operator delete[](m, kLine); }},
    {"aligned array, sized", [] { return operator new[](kSize, kLine); },
     [](void* m) { operator delete[](m, kSize, kLine); }},
    {"aligned array, nothrow", [] { return operator new[](kSize, kLine, std::nothrow); },
     [](void* m) { operator delete[](m, kLine, std::nothrow); }},
};

} // namespace test
