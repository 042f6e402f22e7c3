#include "host/pixels.h"

#include <algorithm>
#include <cstring>

namespace host {
namespace {

constexpr uint32_t kPixelsInGroup = 4; // Share five bytes in packed RAW10.
constexpr uint8_t kLowBits = 0x9C;     // Differ from pixel to pixel; the merge drops them.
constexpr uint8_t kNeutralChroma = 128;

/// The merged luma of a group of pixels: far enough from both ends for every frame's offset.
uint8_t MergedLuma(const Picture& picture, uint32_t group, uint32_t row) {
    return static_cast<uint8_t>(32 + (group + row / 8 * 3 + picture.number * 37) % 192);
}

} // namespace

void FillRawFrame(uint8_t* frame, const Picture& picture, uint32_t index, uint32_t count) {
    const int offset = static_cast<int>(2 * index) - static_cast<int>(count - 1);
    for (uint32_t row = 0; row < picture.height; ++row) {
        for (uint32_t group = 0; group < picture.width / kPixelsInGroup; ++group) {
            std::memset(frame, MergedLuma(picture, group, row) + offset, kPixelsInGroup);
            frame[kPixelsInGroup] = kLowBits;
            frame += kPixelsInGroup + 1;
        }
    }
}

WrongSamples CheckMerged(const uint8_t* yuv, const Picture& picture) {
    WrongSamples wrong;
    for (uint32_t row = 0; row < picture.height; ++row) {
        for (uint32_t x = 0; x < picture.width; ++x) {
            wrong.luma += *yuv++ != MergedLuma(picture, x / kPixelsInGroup, row);
        }
    }
    const size_t chroma = picture.YuvBytes() - size_t{picture.width} * picture.height;
    wrong.chroma = chroma - static_cast<size_t>(std::count(yuv, yuv + chroma, kNeutralChroma));
    return wrong;
}

} // namespace host
