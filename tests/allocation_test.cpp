/// The heap allocations that the built libraries make, and what they free. This program's operator
/// new keeps what the adapter asked for, or the layers.

#include "kit/heap.h"
#include "kit/layers.h"
#include "tests/support/scene.h"

#include <algorithm>
#include <dlfcn.h>
#include <execinfo.h>
#include <set>

namespace {

constexpr char kAdapter[] = "camera.oemlayer.adapter.so";
constexpr char kLayers[] = "layer.so";

const char* g_whose = kAdapter; ///< A part of the file's name.
bool g_counting = false;
std::vector<size_t> g_sizes;

bool NameHas(const Dl_info& info, const char* part) {
    return info.dli_fname != nullptr &&
           std::string_view(info.dli_fname).find(part) != std::string_view::npos;
}

/// Whether the code that called operator new, with the C++ library's own frames left out, is that
/// of whom is asked for.
bool CalledByThem(const void* caller) {
    void* frames[32];
    void** end = frames + backtrace(frames, 32);
    for (void** frame = std::find(frames, end, caller); frame != end; ++frame) {
        Dl_info info = {};
        if (dladdr(*frame, &info) != 0 && !NameHas(info, "libc++")) {
            return NameHas(info, g_whose);
        }
    }
    return false;
}

} // namespace

void* kit::Take(size_t size, HeapForm form, const void* caller) {
    bool isKept = false;
    if (g_counting) {
        g_counting = false; // The question and the list allocate, too.
        isKept = CalledByThem(caller);
        g_sizes.insert(g_sizes.end(), isKept ? 1 : 0, size);
        g_counting = true;
    }
    return isKept ? TakeFollowed(size, form) : TakeFromC(size, form);
}

void kit::Give(void* memory, HeapForm form) noexcept { GiveFollowed(memory, form); }

namespace {

using namespace test;

/// What was allocated since the scope began, and what of it is still alive.
class Counted {
  public:
    explicit Counted(const char* whose = kAdapter) {
        g_whose = whose;
        kit::ForgetFollowed();
        g_sizes.clear();
        g_counting = true;
    }
    ~Counted() { g_counting = false; }

    static std::vector<size_t> Sizes() {
        std::vector<size_t> sizes = g_sizes;
        std::sort(sizes.begin(), sizes.end());
        return sizes;
    }
    static std::set<const void*> Alive() {
        std::set<const void*> alive;
        kit::ForEachFollowed([&](const void* each, size_t) { alive.insert(each); });
        return alive;
    }
};

TEST(AllocationOf, ARequestIsTheThreeKindsAndACompletionFreesAsManyFormatRecordsAsBuffersCame) {
    const struct {
        std::vector<int32_t> formats; ///< Of the inputs of each set.
        uint32_t sets;
        std::vector<uint32_t> statuses; ///< Of the buffers that come.
        size_t allocations;
        const char* freed; ///< 1 for each input whose record is freed, or that has none.
    } rows[] = {
        {{37}, 1, {0}, 3, "1"},
        {{37}, 4, {0}, 6, "0001"}, // Only of the last set.
        {{37, 37}, 2, {0}, 6, "0010"},
        {{35}, 1, {0}, 2, "1"},
        {{37, 32}, 1, {0}, 4, "10"},
        {{37, 32}, 1, {0, 0}, 4, "11"},
        {{37, 32}, 1, {0, 0, 0}, 4, "11"},
        {{37, 32}, 3, {0, 0}, 8, "000011"},
        {{37, 32}, 3, {0}, 8, "000010"},
    };
    for (const auto& row : rows) {
        Scene scene(Delivery::ByHand);
        scene.UseWords(row.formats, row.sets);
        scene.request.wrapper.yuvInput = 1;
        // Longer than a string keeps in itself, so that a copy would show.
        EXPECT_EQ(scene.Submit("AFeatureWithANameThatIsLong"), 0U);
        scene.device->Deliver(0, Shape::Together);
        const Counted counted;
        EXPECT_EQ(scene.Submit(), 0U) << "of a known identity";
        const std::vector<size_t> sizes = Counted::Sizes();
        EXPECT_EQ(sizes.size(), row.allocations);
        EXPECT_EQ(std::count(sizes.begin(), sizes.end(), 208U), 1) << "the output buffer";
        EXPECT_EQ(std::count(sizes.begin(), sizes.end(), 88U + 416U * row.sets), 1)
            << "the request with its input array";
        const standin::Execution execution = scene.Executed(1);
        scene.Info().totalResult = static_cast<uint32_t>(row.statuses.size());
        scene.Send({.statuses = row.statuses, .metadata = scene.Pending(1).pOutputMetadata}, 1);
        EXPECT_EQ(Counted::Sizes(), sizes) << "a result allocates nothing";
        const auto alive = Counted::Alive();
        std::string freed;
        for (const standin::BufferSetCopy& set : execution.inputs) {
            for (const ChiStreamBuffer& buffer : set.buffers) {
                freed += alive.contains(buffer.pInputFormat) ? "0" : "1";
            }
        }
        EXPECT_EQ(freed, row.freed);
        EXPECT_EQ(alive.size(), std::count(freed.begin(), freed.end(), '0'));
    }
}

TEST(AllocationOf, ACameraHasItsAlignedObjectsAndTheyEndWithIt) {
    Device device;
    device.Load();
    const Counted counted;
    Camera camera(device);
    const std::vector<size_t> sizes = Counted::Sizes();
    EXPECT_GE(std::count(sizes.begin(), sizes.end(), sizeof(OemLayer::QcomAdaptee)), 1);
    EXPECT_GE(std::count(sizes.begin(), sizes.end(), sizeof(OemLayer::SessionManagers)), 1);
    camera.Destroy();
    EXPECT_TRUE(Counted::Alive().empty());
}

TEST(AllocationOf, LayersIsNoneForWhatTheyRecord) {
    const Folder folder;
    const kit::Layers layers(kit::AdapterFile(true), {.record = folder / "recording"});
    Device device(layers.AdapterFile());
    device->SetDelivery(Delivery::OnCallerThread);
    Camera camera(device);
    Request request;
    request.UseVendorBuffers(camera);
    {
        const Counted counted(kLayers);
        EXPECT_EQ(request.Submit(camera), 0U);
        EXPECT_EQ(request.Submit(camera), 0U);
        camera.Flush();
        EXPECT_EQ(request.Submit(camera), 0U) << "in another session";
        EXPECT_EQ(Counted::Sizes().size(), 0U);
    }
    request.GiveBack(camera);
}

} // namespace
