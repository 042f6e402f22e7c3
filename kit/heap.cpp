/// The operators, and the blocks that they follow.
#include "kit/heap.h"

#include <cstdio>
#include <mutex>
#include <unordered_map>

namespace kit {
namespace {

struct Block {
    size_t size;
    HeapForm form;
};

/// By their addresses, inverted, so that no leak checker finds them here.
struct Followed {
    std::mutex mutex;
    std::unordered_map<uintptr_t, Block> blocks;
};
thread_local bool t_isInside = false; ///< The list's own memory is not followed.

/// There from the first block to the last.
Followed& List() {
    static auto& list = *new (std::malloc(sizeof(Followed))) Followed;
    return list;
}

template <class Act> void WithList(Act act) {
    const std::lock_guard lock(List().mutex);
    t_isInside = true;
    act(List().blocks);
    t_isInside = false;
}

uintptr_t KeyOf(const void* memory) { return ~reinterpret_cast<uintptr_t>(memory); }

} // namespace

void* TakeFromC(size_t size, HeapForm form) {
    void* memory = nullptr;
    if (form.alignment > HeapForm{}.alignment) {
        (void)posix_memalign(&memory, static_cast<size_t>(form.alignment), size);
    } else {
        memory = std::malloc(size);
    }
    if (memory == nullptr && !form.mayFail) {
        std::abort();
    }
    return memory;
}

void* TakeFollowed(size_t size, HeapForm form) {
    void* const memory = TakeFromC(size, form);
    if (!t_isInside) {
        WithList([&](auto& blocks) { blocks[KeyOf(memory)] = {size, form}; });
    }
    return memory;
}

void GiveFollowed(void* memory, HeapForm form) {
    if (!t_isInside) {
        WithList([&](auto& blocks) {
            const auto block = blocks.extract(KeyOf(memory));
            if (!block.empty() && (block.mapped().form.isArray != form.isArray ||
                                   block.mapped().form.alignment != form.alignment)) {
                (void)std::fputs("FOUND: a block is given back in another form than taken\n",
                                 stderr);
                std::abort();
            }
        });
    }
    std::free(memory);
}

void ForEachFollowed(const std::function<void(void* memory, size_t size)>& act) {
    WithList([&](auto& blocks) {
        for (const auto& [key, block] : blocks) {
            act(reinterpret_cast<void*>(~key), block.size);
        }
    });
}

void ForgetFollowed() {
    WithList([](auto& blocks) { blocks.clear(); });
}

} // namespace kit

// --- The operators ------------------------------------------------------------------------------

#define CALLER __builtin_return_address(0)
using kit::Give;
using kit::Take;
using Align = std::align_val_t;
using Quiet = const std::nothrow_t&;

void* operator new(size_t n) { return Take(n, {false}, CALLER); }
void* operator new[](size_t n) { return Take(n, {true}, CALLER); }
void* operator new(size_t n, Align a) { return Take(n, {false, false, a}, CALLER); }
void* operator new[](size_t n, Align a) { return Take(n, {true, false, a}, CALLER); }
void* operator new(size_t n, Quiet) noexcept { return Take(n, {false, true}, CALLER); }
void* operator new[](size_t n, Quiet) noexcept { return Take(n, {true, true}, CALLER); }
void* operator new(size_t n, Align a, Quiet) noexcept { return Take(n, {false, true, a}, CALLER); }
void* operator new[](size_t n, Align a, Quiet) noexcept { return Take(n, {true, true, a}, CALLER); }

void operator delete(void* m) noexcept { Give(m, {false}); }
void operator delete[](void* m) noexcept { Give(m, {true}); }
void operator delete(void* m, size_t) noexcept { Give(m, {false}); }
void operator delete[](void* m, size_t) noexcept { Give(m, {true}); }
void operator delete(void* m, Quiet) noexcept { Give(m, {false}); }
void operator delete[](void* m, Quiet) noexcept { Give(m, {true}); }
void operator delete(void* m, Align a) noexcept { Give(m, {false, false, a}); }
void operator delete[](void* m, Align a) noexcept { Give(m, {true, false, a}); }
void operator delete(void* m, size_t, Align a) noexcept { Give(m, {false, false, a}); }
void operator delete[](void* m, size_t, Align a) noexcept { Give(m, {true, false, a}); }
void operator delete(void* m, Align a, Quiet) noexcept { Give(m, {false, false, a}); }
void operator delete[](void* m, Align a, Quiet) noexcept { Give(m, {true, false, a}); }
