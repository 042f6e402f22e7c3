/// What the stand-in's sessions do to pixels.
#pragma once

#include "standin/control.h"

#include <span>

namespace standin {

struct Session;

/// How this device's sensors lay their colour filters: the colours of the first two pixels of the
/// first row, then of the second. Bit 0 is the column of red, bit 1 its row.
enum CfaPattern : uint32_t { CfaRGGB, CfaGRBG, CfaGBRG, CfaBGGR };

/// The pattern of a camera's sensor. It differs from camera to camera, and is not 0 for the first,
/// so that one that was not read or was mixed up shows.
constexpr CfaPattern CfaPatternOf(uint32_t cameraId) {
    return static_cast<CfaPattern>((cameraId + 2) % 4);
}

/// Blue 0, green 1 or red 2: what a pixel of a mosaic sees.
constexpr uint32_t ColourAt(uint32_t cfaPattern, uint32_t x, uint32_t y) {
    return 2 - (x + cfaPattern) % 2 - (y + cfaPattern / 2) % 2;
}

/// Bytes that an image takes in memory; 0 for one that is larger than this device can hold.
uint64_t ImageSize(uint32_t format, uint32_t width, uint32_t height);

/// An input, as the session reads it.
struct Frame {
    uint32_t format;     ///< That of a stream: RAW10, RAW16 (10 bits of a word) or YCbCr_420_888.
    uint32_t cfaPattern; ///< Of raw formats.
    std::span<const uint8_t> memory; ///< Rows that are not in it are black.
};

/// Merges frames of the same size into an NV12 picture, their mean. Raw frames of one pattern are
/// merged as mosaics and then demosaiced. Width and height are multiples of 2.
void DevelopFrames(std::span<const Frame> frames, uint32_t width, uint32_t height,
                   std::span<uint8_t> nv12);

/// Develops the request's inputs into its output, if that is a YUV buffer with known memory. Raw
/// inputs are read as their format records say. Inputs whose memory is not known or which are
/// larger or smaller than the output take no part.
void Develop(const Session& session, const Execution& execution, const ChiStreamBuffer& output);

} // namespace standin
