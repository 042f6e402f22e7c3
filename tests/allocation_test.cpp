/// Counts the heap allocations that the built library makes.
///
/// This program's operator new looks up the stack for the module that asked for the memory, and
/// keeps what the adapter asked for.

#include "tests/support/device.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <execinfo.h>
#include <new>
#include <numeric>
#include <ostream>

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

void Free(void* memory) {
    const auto* end = g_alive + g_numAlive;
    auto* kept = std::find_if(g_alive, g_alive + g_numAlive,
                              [&](const Allocation& each) { return each.memory == memory; });
    if (memory != nullptr && kept != end) {
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

using standin::Delivery;
using standin::Shape;
using test::Camera;
using test::Device;
using test::Request;

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
    static size_t BytesAlive() {
        return std::accumulate(g_alive, g_alive + g_numAlive, size_t{0},
                               [](size_t sum, const Allocation& each) { return sum + each.size; });
    }
};

struct Burst {
    const char* what;
    uint32_t sets;
    bool secondRaw;
    bool yuv;
    size_t allocations;
    size_t formatsLeft; ///< Format records behind the ones that the completion frees.
};

constexpr Burst kBursts[] = {
    {"one raw input", 1, false, false, 4, 0},
    {"four sets of one raw input", 4, false, false, 7, 3},
    {"two sets of two raw inputs", 2, true, false, 7, 3},
    {"one YUV input", 1, false, true, 3, 0},
};

void PrintTo(const Burst& burst, std::ostream* out) { *out << burst.what; }

class AllocationOf : public testing::TestWithParam<Burst> {};

INSTANTIATE_TEST_SUITE_P(Bursts, AllocationOf, testing::ValuesIn(kBursts),
                         [](const auto& info) { return "Case" + std::to_string(info.index); });

/// Submits one burst and completes it by hand.
struct Scene {
    explicit Scene(const Burst& burst) : second(test::MakeStream(HAL_PIXEL_FORMAT_RAW10)) {
        device->SetDelivery(Delivery::ByHand);
        device.ExpectLeftovers(); // The handles are made up; this is about the adapter's memory.
        request.wrapper.numBuffers = burst.sets;
        // Longer than a string keeps in itself, so that a copy would show.
        request.wrapper.identity.featureName = "AFeatureWithANameThatIsLong";
        if (burst.secondRaw) {
            request.privData.inputStreams = {&request.raw, &second};
        }
        if (burst.yuv) {
            request.raw.format = HAL_PIXEL_FORMAT_YCBCR_420_888;
            request.wrapper.yuvInput = 1;
        }
    }

    void Complete() { device->Deliver(executions++, Shape::Together); }

    Device device{TEST_PLAIN_ADAPTER_LIBRARY};
    Camera camera{device};
    camera3_stream second;
    Request request;
    size_t executions = 0;
};

TEST_P(AllocationOf, ARequestForAKnownIdentityIsTheFourKindsOnly) {
    Scene scene(GetParam());
    ASSERT_EQ(scene.request.Submit(scene.camera), 0U);
    scene.Complete();
    for (int round = 0; round < 2; ++round) {
        Counted counted;
        ASSERT_EQ(scene.request.Submit(scene.camera), 0U);
        const std::vector<size_t> sizes = Counted::Sizes();
        EXPECT_EQ(sizes.size(), GetParam().allocations);
        EXPECT_EQ(std::count(sizes.begin(), sizes.end(), 208U), 1) << "the output buffer";
        EXPECT_EQ(std::count(sizes.begin(), sizes.end(), 416U * GetParam().sets), 1)
            << "the input array";
        scene.Complete();
    }
}

TEST_P(AllocationOf, AResultAllocatesNothingAndFreesAllButTheKeptFormatRecords) {
    Scene scene(GetParam());
    ASSERT_EQ(scene.request.Submit(scene.camera), 0U);
    scene.Complete();
    Counted counted;
    ASSERT_EQ(scene.request.Submit(scene.camera), 0U);
    const size_t submitted = Counted::Sizes().size();
    scene.Complete();
    EXPECT_EQ(Counted::Sizes().size(), submitted);
    EXPECT_EQ(Counted::BytesAlive(), 96 * GetParam().formatsLeft);
}

} // namespace
