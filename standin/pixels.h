/// What the stand-in's sessions do to pixels.
#pragma once

#include "standin/session.h"

namespace standin {

/// Bytes that an image takes in memory; 0 for one that is larger than this device can hold.
uint64_t ImageSize(uint32_t format, uint32_t width, uint32_t height);

/// Averages the request's inputs into its output, if that is a YUV buffer with known memory: its
/// luma is the mean, rounded down, of the eight upper bits of the input pixels, its chroma is grey.
/// Inputs whose memory is not known or which are larger or smaller than the output take no part.
void Develop(const Session& session, const Execution& execution, const ChiStreamBuffer& output);

} // namespace standin
