/// The test picture: raw frames of a burst whose merged picture is known beforehand.
#pragma once

#include <cstddef>
#include <cstdint>

namespace host {

/// A picture's size, and which one of the run it is: every picture looks different.
struct Picture {
    uint32_t width;  ///< A multiple of 4.
    uint32_t height; ///< A multiple of 2.
    uint32_t number;

    size_t RawBytes() const { return size_t{width} * height * 5 / 4; }
    size_t YuvBytes() const { return size_t{width} * height * 3 / 2; }
};

/// Fills a packed RAW10 frame: frame `index` of a burst of `count`. The frames all differ, and the
/// top 8 bits of a pixel have an exact mean over the burst, which a missing or doubled frame moves.
void FillRawFrame(uint8_t* frame, const Picture& picture, uint32_t index, uint32_t count);

/// Samples of a merged picture that are not what the burst gives.
struct WrongSamples {
    size_t luma = 0;
    size_t chroma = 0;
};
WrongSamples CheckMerged(const uint8_t* yuv, const Picture& picture);

} // namespace host
