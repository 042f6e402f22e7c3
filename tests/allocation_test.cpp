/// The heap allocations that the built library makes, and what it frees.
///
/// This program's operator new looks up the stack for the module that asked for the memory, and
/// keeps what the adapter asked for.

#include "tests/support/scene.h"

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <execinfo.h>
#include <new>
#include <numeric>

namespace {

constexpr size_t kMaxKept = 256;

struct Allocation {
    void* memory;
    size_t size;
};

bool g_counting = false;
Allocation g_alive[kMaxKept];
size_t g_numAlive = 0;
size_t g_sizes[kMaxKept];
size_t g_numAllocations = 0;

bool NameHas(const Dl_info& info, const char* part) {
    return info.dli_fname != nullptr &&
           std::string_view(info.dli_fname).find(part) != std::string_view::npos;
}

/// Whether the code that called operator new, with the C++ library's own frames left out, is the
/// adapter's.
bool CalledByAdapter(const void* caller) {
    void* frames[32];
    void** end = frames + backtrace(frames, 32);
    for (void** frame = std::find(frames, end, caller); frame != end; ++frame) {
        Dl_info info = {};
        if (dladdr(*frame, &info) != 0 && !NameHas(info, "libc++")) {
            return NameHas(info, "camera.oemlayer.adapter.so");
        }
    }
    return false;
}

void* Allocate(size_t size, const void* caller) {
    void* memory = std::malloc(size);
    if (g_counting && memory != nullptr) {
        g_counting = false; // The question allocates, too.
        if (CalledByAdapter(caller) && g_numAllocations < kMaxKept) {
            g_sizes[g_numAllocations++] = size;
            g_alive[g_numAlive++] = {memory, size};
        }
        g_counting = true;
    }
    return memory;
}

/// What the adapter allocated there, the list's end where it is not alive.
Allocation* FindAlive(const void* memory) {
    return std::find_if(g_alive, g_alive + g_numAlive,
                        [memory](const Allocation& each) { return each.memory == memory; });
}

void Free(void* memory) {
    Allocation* kept = FindAlive(memory);
    if (memory != nullptr && kept != g_alive + g_numAlive) {
        *kept = g_alive[--g_numAlive];
    }
    std::free(memory);
}

} // namespace

void* operator new(size_t size) { return Allocate(size, __builtin_return_address(0)); }
void* operator new[](size_t size) { return Allocate(size, __builtin_return_address(0)); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size, __builtin_return_address(0));
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size, __builtin_return_address(0));
}
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete[](void* memory) noexcept { Free(memory); }
void operator delete(void* memory, size_t) noexcept { Free(memory); }
void operator delete[](void* memory, size_t) noexcept { Free(memory); }

namespace {

using namespace test;

/// What the adapter allocated since the scope began, and what of it is still alive.
class Counted {
  public:
    Counted() {
        g_numAlive = 0;
        g_numAllocations = 0;
        g_counting = true;
    }
    ~Counted() { g_counting = false; }

    static std::vector<size_t> Sizes() {
        g_counting = false;
        std::vector<size_t> sizes(g_sizes, g_sizes + g_numAllocations);
        std::sort(sizes.begin(), sizes.end());
        g_counting = true;
        return sizes;
    }
    static bool IsAlive(const void* memory) { return FindAlive(memory) != g_alive + g_numAlive; }
    static size_t BytesAlive() {
        return std::accumulate(g_alive, g_alive + g_numAlive, size_t{0},
                               [](size_t sum, const Allocation& each) { return sum + each.size; });
    }
};

struct Burst {
    std::vector<int32_t> formats; ///< Of the inputs of each set.
    uint32_t sets;
    size_t allocations;
    size_t formatsLeft; ///< Format records behind the ones that the completion frees.
};

/// A burst whose identity has had its first request.
struct KnownBurst : Scene {
    explicit KnownBurst(const Burst& burst) : Scene(Delivery::ByHand) {
        UseWords(burst.formats, burst.sets);
        request.wrapper.yuvInput = 1;
        // Longer than a string keeps in itself, so that a copy would show.
        request.wrapper.identity.featureName = "AFeatureWithANameThatIsLong";
        EXPECT_EQ(Submit(), 0U);
        device->Deliver(0, Shape::Together);
    }
};

TEST(AllocationOf, ARequestIsTheFourKindsOnlyAndItsResultLeavesTheKeptFormatRecords) {
    for (const Burst& burst : {Burst{{37}, 1, 4, 0}, Burst{{37}, 4, 7, 3}, Burst{{37, 37}, 2, 7, 3},
                               Burst{{35}, 1, 3, 0}}) {
        KnownBurst scene(burst);
        const Counted counted;
        EXPECT_EQ(scene.Submit(), 0U);
        const std::vector<size_t> sizes = Counted::Sizes();
        EXPECT_EQ(sizes.size(), burst.allocations);
        EXPECT_EQ(std::count(sizes.begin(), sizes.end(), 208U), 1) << "the output buffer";
        EXPECT_EQ(std::count(sizes.begin(), sizes.end(), 416U * burst.sets), 1) << "the inputs";
        scene.device->Deliver(1, Shape::Together);
        EXPECT_EQ(Counted::Sizes(), sizes) << "a result allocates nothing";
        EXPECT_EQ(Counted::BytesAlive(), 96 * burst.formatsLeft);
    }
}

TEST(Completion, FreesAsManyFormatRecordsAsBuffersCameAndOnlyOfTheLastSet) {
    struct Row {
        uint32_t sets;
        std::vector<uint32_t> statuses;
        const char* freed; ///< 1 for each record that is freed, set by set.
    };
    const Row rows[] = {{1, {0}, "10"},
                        {1, {0, 0}, "11"},
                        {1, {0, 0, 0}, "11"},
                        {3, {0, 0}, "000011"},
                        {3, {0}, "000010"}};
    for (const Row& row : rows) {
        Scene scene(Delivery::ByHand);
        scene.UseWords({37, 32}, row.sets);
        const Counted counted;
        scene.Submit();
        const standin::Execution execution = scene.Executed();
        scene.Info().totalResult = static_cast<uint32_t>(row.statuses.size());
        scene.Send({.statuses = row.statuses, .metadata = scene.Pending().pOutputMetadata});
        std::string freed;
        for (const standin::BufferSetCopy& set : execution.inputs) {
            for (const ChiStreamBuffer& buffer : set.buffers) {
                freed += Counted::IsAlive(buffer.pInputFormat) ? "0" : "1";
            }
        }
        EXPECT_EQ(freed, row.freed);
    }
}

} // namespace
