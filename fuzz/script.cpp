/// What device and framework do from now on: their faults, answers and shapes of results.

#include "fuzz/scene.h"

namespace fuzz {

namespace {

constexpr int32_t kFormats[] = {HAL_PIXEL_FORMAT_YCBCR_420_888, HAL_PIXEL_FORMAT_RAW10,
                                HAL_PIXEL_FORMAT_RAW16, HAL_PIXEL_FORMAT_BLOB};
constexpr uint32_t kSizes[] = {kWidth, kHeight, 0, 3, 64, UINT32_MAX};

/// An entry of the operation tables, or of those behind them, up to `end`.
Entry PickEntry(Scene& scene, Entry end) {
    constexpr auto kFirst = static_cast<uint32_t>(Entry::OpenSession);
    return static_cast<Entry>(kFirst + scene.Below(static_cast<uint32_t>(end) - kFirst));
}

} // namespace

void FaultStep(Scene& scene) {
    constexpr uint32_t kResults[] = {1, 3, static_cast<uint32_t>(-3)};
    constexpr uint32_t kTimes[] = {1, 2, UINT32_MAX, 0};
    const Entry entry = PickEntry(scene, Entry::Count);
    Fault fault{scene.Pick(kResults), scene.Below(4), scene.Pick(kTimes)};
    if (standin::FailureOf(entry) == 0) {
        fault.result = 0;
    }
    // Managers are destroyed in no order.
    if (entry == Entry::BufferManagerDestroy) {
        fault = {fault.result, 0, fault.times == 0 ? 0 : UINT32_MAX};
    }
    Trace("Fail %s %u + 1, %u times: %u", standin::EntryName(entry), fault.wait, fault.times,
          fault.result);
    scene.model.faults[entry] = fault;
    StandinControl()->Fail(entry, fault.result, fault.wait + 1, fault.times);
}

void MissingStep(Scene& scene) {
    // GetCPUAddress is the last entry of a table.
    const Entry entry = PickEntry(scene, Entry(static_cast<uint32_t>(Entry::GetCPUAddress) + 1));
    const bool missing = scene.Flag();
    Trace("%s is missing: %d", standin::EntryName(entry), missing);
    scene.model.missing.erase(entry);
    if (missing) {
        scene.model.missing.insert(entry);
    }
    StandinControl()->SetMissing(entry, missing);
}

void VendorStep(Scene& scene) {
    using standin::Delivery;
    Model& model = scene.model;
    model.delivery = scene.Flag() ? Delivery::OnCallerThread : Delivery::ByHand;
    model.shape = static_cast<Shape>(scene.Below(static_cast<uint32_t>(Shape::Count)));
    model.asks = scene.Flag();
    StandinControl()->SetDelivery(model.delivery);
    StandinControl()->SetShape(model.shape);
    StandinControl()->SetAsksForFrameworkBuffers(model.asks);
}

void FrameworkStep(Scene& scene) {
    scene.model.answer = {.result = static_cast<int32_t>(scene.Below(3)) - 1,
                          .returned = scene.Below(5),
                          .count = scene.Below(5),
                          .status = static_cast<int32_t>(scene.Below(2))};
}

/// The host's own records are the vendor's output streams, too.
void StreamStep(Scene& scene) {
    scene.Pick(g_outputs) = MakeStream(scene.Pick(kFormats), scene.Pick(kSizes), scene.Pick(kSizes),
                                       static_cast<int32_t>(scene.Below(3)));
}

} // namespace fuzz
