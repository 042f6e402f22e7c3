/// An adaptee on the stand-in's interface, for what the table does not reach.
#pragma once

#include "tests/support/scene.h"

#include <dlfcn.h>

namespace test {

struct AdapteeScene {
    Device device;
    OemLayer::QcomAdaptee* adaptee;
    camera3_stream input = MakeStream(HAL_PIXEL_FORMAT_RAW10);
    camera3_stream output = MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888);
    OemLayer::OfflineSessionIdentitys identity = {&output, 3, "Night"};
    const camera_metadata* parameters = static_cast<const camera_metadata*>(MadeUp(0x77));

    AdapteeScene() : adaptee(OemLayer::QcomAdaptee::Create(Interface(), 3)) {
        device->ClearRecords();
    }
    ~AdapteeScene() { adaptee->Destroy(); }
    AdapteeScene(const AdapteeScene&) = delete;
    AdapteeScene& operator=(const AdapteeScene&) = delete;

    unsigned long Open() {
        return static_cast<unsigned long>(adaptee->OpenOfflineSession("3", identity, nullptr));
    }
    SessionInfo& Info() const {
        const ChiOfflineSessionCallbacks* callbacks = device->Sessions().at(0).pCallbacks;
        return *static_cast<SessionInfo*>(callbacks->pPrivateCallbackData);
    }
    uint32_t Prepare(unsigned long handle) {
        camera3_stream* inputs[] = {&input};
        return adaptee->PrepareOfflineConfig(1, inputs, &output, handle, parameters);
    }

    static void* Interface() {
        void* library = dlopen("/vendor/lib64/hw/com.qti.chi.offline.so", RTLD_NOW);
        const auto open =
            reinterpret_cast<void* (*)(void*, uint32_t)>(dlsym(library, "ChiOfflineOpenContext"));
        return open(nullptr, 512);
    }
};

} // namespace test
