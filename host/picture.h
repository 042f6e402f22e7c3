/// The pictures of a run: the scene, the frames that a sensor takes of it, and how good the picture
/// is that comes back for them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace host {

/// Most frames of one request.
inline constexpr uint32_t kMostFrames = 24;

/// What the sensor looks at. All values lie between 12 % and 88 % of full scale, so that noise
/// never clips.
class Scene {
  public:
    /// Reads a PNG and scales it to the size; draws a colour chart, a resolution star and a grey
    /// gradient where none is named.
    /// \throws std::invalid_argument where the width is no multiple of 4 from 64 on, or the height
    /// none of 2 from 32 on
    /// \throws std::runtime_error that names the file and what is wrong with it
    Scene(uint32_t width, uint32_t height, const std::string& png = "");

    uint32_t Width() const { return mWidth; }
    uint32_t Height() const { return mHeight; }
    /// The pixels of a row, as 0xAARRGGBB.
    const uint32_t* Row(uint32_t y) const { return &mPixels[size_t{y} * mWidth]; }

  private:
    uint32_t mWidth;
    uint32_t mHeight;
    std::vector<uint32_t> mPixels;
};

/// Frame `index` of the `count` frames, at most `kMostFrames`, of the request with frame number
/// `number`. In a corner of the frame stand the number and a row of `count` slots, of which only
/// the frame's own shows a figure. Frames with another index, number or seed have independent
/// noise.
struct Shot {
    uint32_t number;
    uint32_t index;
    uint32_t count;
    uint64_t seed;
};

/// How a frame is taken, and what should become of it.
struct Exposure {
    Shot shot;
    uint32_t format;         ///< Of the stream: RAW10, RAW16 or YCbCr_420_888.
    uint32_t cfaPattern = 0; ///< Of the sensor, for raw formats.
    uint32_t weight = 1;     ///< How often the request feeds this frame; may be 0.
};

/// Writes the sensor's output. The noise is Gaussian: 40 of 1023 for raw formats, 8 of 255 for YUV.
/// \param memory of `standin::ImageSize` bytes for the format and the scene's size.
void Expose(const Scene& scene, const Exposure& exposure, bool isNoisy, std::span<uint8_t> memory);

/// How good a merged picture is. Noise is the RMS error over all samples, in decibels above one
/// step of 255, less what the rounding to 8 bits adds.
struct Judgement {
    double before = 0;       ///< Noise of the first frame that is fed, developed alone.
    double after = 0;        ///< Noise of the picture.
    double expectedGain = 0; ///< In decibels: 10 log10(N) for N frames that are fed once each.
    std::vector<uint32_t> weights;
    std::vector<double> shares; ///< The measured weight of each frame in the picture.

    double Gain() const { return before - after; }
    /// The gain is within half a decibel of the expected one, and each share is within 0.4 of its
    /// weight. Chance has no say where 12 frames or less have 128 x 96 pixels, or more 256 x 192.
    bool IsAsExpected() const;
    /// As in "noise 15.1 dB -> 6.1 dB: 9.03 dB lower, 9.03 expected; shares 1 1 1 1 1 1 1 1".
    std::string Describe() const;
};

/// \param frames of one request: one at least, and one at least that is fed.
/// \param nv12 the picture that came back for them, of the scene's size.
Judgement Judge(const Scene& scene, std::span<const Exposure> frames,
                std::span<const uint8_t> nv12);

/// A PNG file's content: a frame, developed alone, and the picture that came back side by side.
/// \throws std::runtime_error where there is no memory for it.
std::string PngOf(const Scene& scene, const Exposure& frame, std::span<const uint8_t> nv12);
/// A frame, developed alone: a picture of the scene's size in NV12.
std::vector<uint8_t> DevelopAlone(const Scene& scene, const Exposure& frame);

/// A picture for a page: the bytes of a PNG that has one pixel of `step` x `step`, so that noise
/// stays as it is.
struct SampledPng {
    std::string bytes;
    uint32_t step;
};

/// \param nv12 a picture of the scene's size.
/// 	hrows std::runtime_error where it cannot be compressed
SampledPng Sample(const Scene& scene, std::span<const uint8_t> nv12);

} // namespace host
