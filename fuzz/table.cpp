/// Sequences of calls over the whole callback table, on a device that has faults, held against the
/// model.
///
/// An input is: a byte for the log level, a byte for whether the device lacks its offline interface
/// (1 of 16), and then steps until it ends: a byte that names the step (in the order of `kSteps`),
/// and what the step reads. A step on a camera reads which one first, and makes it where it is not.
///
/// What the host may not do is not tried: callbacks for an id without camera other than those that
/// need none, wild pointers, handles after their end. Nor does the vendor send results of a request
/// that is over.

#include "adapterlayer/oemlog.h"
#include "fuzz/heap.h"
#include "fuzz/scene.h"
#include "standin/gralloc.h"

#include <algorithm>
#include <utility>

namespace {

using namespace fuzz;

constexpr Step* kSteps[] = {SubmitStep,       DeliverStep,  CraftStep,     VendorStep,
                            FaultStep,        MissingStep,  FlushStep,     DestroyStep,
                            TearDownStep,     StreamStep,   FrameworkStep, ImageStep,
                            ReleaseImageStep, NothingStep,  MakeStep,      MetadataStep,
                            TranslateStep,    NoCameraStep, SubmitStep,    ReleaseAndroidStep};

/// From the first step to the last check. \returns what must stay on the heap.
Left Run(const Input& input, bool hasInterface) {
    Scene scene(input, hasInterface);
    while (!scene.IsEmpty()) {
        scene.Pick(kSteps)(scene);
        scene.model.CheckRequests();
    }
    for (Camera& camera : scene.cameras) {
        if (camera.exists) {
            Destroy(scene, camera);
        }
    }
    scene.model.CheckRequests();
    scene.model.CheckDevice();
    return scene.model.left;
}

/// Binds the device's libraries, with the offline interface or without, unless they are.
void Load(bool hasInterface) {
    static std::optional<bool> loaded;
    if (std::exchange(loaded, hasInterface) == hasInterface) {
        return;
    }
    static const buffer_handle_t handle = standin::gralloc::Wrap(g_memory, sizeof g_memory);
    g_handle = handle;
    StandinControl()->Reset();
    if (!hasInterface) {
        StandinControl()->Fail(Entry::OpenContext, 0);
    }
    PlatformLoadFunctions functions{};
    PlatformLoadContext(&functions);
    functions.logMap(4, nullptr, nullptr);
    functions.loadLib();
}

/// A new device, and streams as they were.
void Prepare() {
    static const std::vector<standin::Control::ConfigRow> rows(kConfigRows, {{"fffff", "8", "1f"}});
    StandinControl()->Reset();
    StandinControl()->SetRecording(false);
    StandinControl()->SetConfigRows(rows);
    StandinControl()->SetDelivery(standin::Delivery::ByHand);
    standin::FailureOf(Entry::GetList); // It makes a list of its own at first.
    std::copy(std::begin(kInputs), std::end(kInputs), g_inputs);
    std::fill(std::begin(g_outputs), std::end(g_outputs), kInputs[kYuv]);
}

void SetLogLevel(uint32_t level) {
    OemLayer::g_logErrorEnabled = level >= 1;
    OemLayer::g_logWarnEnabled = level >= 2;
    OemLayer::g_logInfoEnabled = level >= 3;
    OemLayer::g_logVerboseEnabled = level >= 4;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    SetLogLevel(input.Below(5));
    const bool hasInterface = input.Below(16) != 1;
    Load(hasInterface);
    Prepare();
    Left left{};
    const auto blocks = BlocksLeftBy([&] {
        left = Run(input, hasInterface);
        StandinControl()->Reset();
    });
    CheckHeap(blocks, left);
    return 0;
}
