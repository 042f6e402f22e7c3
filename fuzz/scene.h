/// What the steps of one input share.
///
/// A step is what host, framework or vendor does once: it reads from the input what it needs, tells
/// the model, then calls the library or changes the device.
#pragma once

#include "fuzz/check.h"
#include "fuzz/model.h"
#include "kit/stream.h"

#include <cstddef>
#include <vector>

namespace fuzz {

using kit::MakeStream;

inline constexpr uint32_t kWidth = 8;
inline constexpr uint32_t kHeight = 4;

/// Input streams; the first three are also those of the images that are fed. What comes after the
/// first six makes no image.
inline constexpr camera3_stream kInputs[] = {
    MakeStream(HAL_PIXEL_FORMAT_RAW10, kWidth, kHeight),
    MakeStream(HAL_PIXEL_FORMAT_RAW16, kWidth, kHeight),
    MakeStream(HAL_PIXEL_FORMAT_YCBCR_420_888, kWidth, kHeight),
    MakeStream(HAL_PIXEL_FORMAT_RAW12, kWidth, kHeight),
    MakeStream(HAL_PIXEL_FORMAT_BLOB, kWidth, kHeight),
    MakeStream(HAL_PIXEL_FORMAT_RAW10, kWidth, kHeight, CAMERA3_STREAM_INPUT),
    MakeStream(HAL_PIXEL_FORMAT_RAW10, 0, kHeight),
    MakeStream(HAL_PIXEL_FORMAT_BLOB, 0x10000, 0x10000),
    MakeStream(ChiStreamFormatPD10, UINT32_MAX, UINT32_MAX),
    MakeStream(ChiStreamFormatUBWCNV124R, 0, kHeight)};
inline constexpr size_t kYuv = 2;
inline constexpr size_t kImages = 6;

struct Scene : Input {
    Scene(const Input& bytes, bool hasInterface) : Input(bytes), model(hasInterface) {}

    Model model;
    Camera cameras[3] = {{.id = 0}, {.id = 7}, {.id = 15}};
    std::vector<void*> metadata, android; ///< Objects that the host has.
    uint32_t lastTag = 0;

    /// One of the cameras, which is made where it is not.
    Camera& PickCamera();
    template <class T> T Take(std::vector<T>& list) {
        const auto place = list.begin() + static_cast<std::ptrdiff_t>(Byte() % list.size());
        T taken = *place;
        list.erase(place);
        return taken;
    }
};

/// The host's own streams. Their order in memory is that in which sessions are closed.
inline camera3_stream g_inputs[std::size(kInputs)];
inline camera3_stream g_outputs[4];
inline uint8_t g_memory[64 * 64 * 3 / 2]; ///< Of all output buffers.
inline buffer_handle_t g_handle;

void Destroy(Scene& scene, Camera& camera);

// --- The steps

using Step = void(Scene& scene);

// host.cpp
Step DestroyStep, FlushStep, TearDownStep, NoCameraStep, ImageStep, ReleaseImageStep, TranslateStep,
    MakeStep, MetadataStep, ReleaseAndroidStep, SubmitStep;
// vendor.cpp
Step DeliverStep, CraftStep, NothingStep, FaultStep, MissingStep, VendorStep, FrameworkStep,
    StreamStep;

} // namespace fuzz
