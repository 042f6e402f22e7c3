/// Draws what cameras see, exposes frames of it, and measures what came of them.
#include "host/picture.h"

#include "standin/pixels.h"

#include <libyuv.h>
#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <numeric>
#include <sstream>
#include <stdexcept>

namespace host {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kDarkest = 31, kBrightest = 224; // Of 255.
constexpr double kRawNoise = 40, kYuvNoise = 8;
constexpr double kRawRounding = 0.28, kYuvRounding = 1.0 / 12; // Power, as measured and in theory.
constexpr double kGainTolerance = 0.5, kShareTolerance = 0.4;
constexpr uint32_t kMostPixels = 16384; // In a row or a column of a file.
constexpr double kSmall = 250'000;      // Pixels: two such PNGs take less than 2 MB, however noisy.

[[noreturn]] void Fail(const std::string& path, const std::string& why) {
    throw std::runtime_error("cannot read the picture " + path + ": " + why);
}

// --- The scene

constexpr uint32_t kPatches[] = {0x735244, 0xC29682, 0x627A9D, 0x576C43, 0x8580B1, 0x67BDAA,
                                 0xD67E2C, 0x505BA6, 0xC15A63, 0x5E3C6C, 0x9DBC40, 0xE0A32E,
                                 0x383D96, 0x469449, 0xAF363C, 0xE7C71F, 0xBB5695, 0x0885A1,
                                 0xF3F3F2, 0xC8C8C8, 0xA0A0A0, 0x7A7A79, 0x555555, 0x343434};
constexpr double kColumns = 6, kRows = 4;
constexpr double kGap = 0.1; // Around a patch, of its place.
constexpr double kSpokes = 36;
constexpr uint32_t kGrey = 0x010101;

/// A part of the picture, and where a point lies in it, from 0 to 1.
struct Part {
    double left, top, width, height;

    double X(double x) const { return (x - left) / width; }
    double Y(double y) const { return (y - top) / height; }
    bool Has(double x, double y) const { return X(x) >= 0 && X(x) < 1 && Y(y) >= 0 && Y(y) < 1; }
};
constexpr Part kChart{0.04, 0.35, 0.52, 0.46};
constexpr Part kStar{0.6, 0.2, 0.36, 0.6};
constexpr Part kGradient{0.04, 0.86, 0.92, 0.1};

/// The colour at a point from (0, 0) to (1, 1) of a picture, which is `aspect` times as wide as
/// high.
uint32_t Draw(double x, double y, double aspect) {
    if (kGradient.Has(x, y)) {
        return static_cast<uint32_t>(255 * kGradient.X(x)) * kGrey;
    }
    const double column = kChart.X(x) * kColumns;
    const double row = kChart.Y(y) * kRows;
    const Part inner{std::floor(column) + kGap, std::floor(row) + kGap, 1 - 2 * kGap, 1 - 2 * kGap};
    if (kChart.Has(x, y) && inner.Has(column, row)) {
        return kPatches[static_cast<size_t>(std::floor(row) * kColumns + std::floor(column))];
    }
    const double right = (kStar.X(x) - 0.5) * kStar.width * aspect;
    const double down = (kStar.Y(y) - 0.5) * kStar.height;
    if (std::hypot(right, down) < std::min(kStar.width * aspect, kStar.height) / 2) {
        return std::sin(kSpokes * std::atan2(down, right)) > 0 ? 255 * kGrey : 0;
    }
    return 96 * kGrey;
}

/// A colour in the range that leaves room for noise.
uint32_t Compressed(uint32_t argb) {
    uint32_t pixel = 0xFF;
    for (const uint32_t shift : {16U, 8U, 0U}) {
        const uint32_t value = argb >> shift & 255;
        pixel = pixel << 8 | (kDarkest + value * (kBrightest - kDarkest) / 255);
    }
    return pixel;
}

// --- The panel with the number and the slots

/// Three columns and five rows of dots each, a row in an octal digit.
constexpr uint32_t kFigures[kMostFrames] = {
    075557, 026227, 071747, 071717, 055711, 074717, 074757, 071111, 075757, 075717, 025755, 065656,
    034443, 065556, 074647, 074644, 034553, 055755, 072227, 011152, 055655, 044447, 057755, 065555};
constexpr uint32_t kDotsAcross = 3, kDotsDown = 5;
constexpr uint32_t kSlotsInRow = 12;
constexpr uint32_t kPaper = 0xFF000000 | kDarkest * kGrey;
constexpr uint32_t kNumberInk = 0xFFE0961F; // Coloured, so that the filter pattern always shows.

/// Calls for the first pixel and the length of each line of pixels that a figure covers.
template <class Function>
void ForFigure(uint32_t figure, uint32_t left, uint32_t top, uint32_t dot, Function function) {
    for (uint32_t i = 0; i < kDotsAcross * kDotsDown; ++i) {
        for (uint32_t line = 0; line < dot && (kFigures[figure] >> (14 - i) & 1) != 0; ++line) {
            function(left + i % kDotsAcross * dot, top + i / kDotsAcross * dot + line, dot);
        }
    }
}

/// How strongly each slot shows its figure, from 0 to 1.
using Inks = std::vector<double>;

/// The corner of a frame that says which one it is.
class Panel {
  public:
    Panel(const Scene& scene, uint32_t number, const Inks& inks)
        : mDot(std::max(1U, std::min(scene.Width() / 128, scene.Height() / 96))),
          mNumber(std::to_string(number)), mSlots(static_cast<uint32_t>(inks.size())),
          mPixels(size_t{Width()} * Height(), kPaper) {
        const auto pen = [this](uint32_t colour) {
            return [this, colour](uint32_t x, uint32_t y, uint32_t length) {
                std::fill_n(&mPixels[size_t{y} * Width() + x], length, colour);
            };
        };
        for (uint32_t i = 0; i < mNumber.size(); ++i) {
            ForFigure(static_cast<uint32_t>(mNumber[i] - '0'), mDot * (1 + 12 * i), mDot, 3 * mDot,
                      pen(kNumberInk));
        }
        for (uint32_t i = 0; i < mSlots; ++i) {
            const double ink = std::round(inks[i] * (kBrightest - kDarkest));
            ForSlot(i, pen(kPaper + static_cast<uint32_t>(ink) * kGrey));
        }
    }

    uint32_t Width() const {
        const auto digits = static_cast<uint32_t>(mNumber.size());
        return mDot * (1 + std::max(12 * digits, 4 * std::min(mSlots, kSlotsInRow)));
    }
    uint32_t Height() const { return mDot * (17 + 6 * ((mSlots + 11) / kSlotsInRow)); }

    template <class Function> void ForSlot(uint32_t index, Function function) const {
        ForFigure(index, mDot * (1 + index % kSlotsInRow * 4),
                  mDot * (17 + index / kSlotsInRow * 6), mDot, function);
    }

    /// Covers what it can of a row of the scene.
    void Cover(uint32_t* row, uint32_t width, uint32_t y) const {
        if (y < Height()) {
            std::copy_n(&mPixels[size_t{y} * Width()], std::min(width, Width()), row);
        }
    }

  private:
    uint32_t mDot;
    std::string mNumber;
    uint32_t mSlots;
    std::vector<uint32_t> mPixels;
};

// --- The sensor

/// Whole numbers that are normally distributed, at most three times the deviation from 0.
class Noise {
  public:
    Noise(const Shot& shot, double deviation)
        : mCounter(Mixed(Mixed(Mixed(shot.seed) + shot.number) + shot.index)) {
        int value = static_cast<int>(-3 * deviation);
        for (size_t i = 0; i < mTable.size(); ++i) {
            // The least value below which is more than this part of the distribution.
            while (deviation > 0 && std::erfc((value + 0.5) / deviation * -M_SQRT1_2) * 128 <
                                        static_cast<double>(i) + 0.5) {
                ++value;
            }
            mTable[i] = static_cast<int16_t>(value);
        }
    }

    int Next() {
        const uint32_t shift = mTaken++ % 8 * 8;
        if (shift == 0) {
            mBits = Mixed(mCounter += kStep);
        }
        return mTable[mBits >> shift & 255];
    }

  private:
    static constexpr uint64_t kStep = 0x9E3779B97F4A7C15;

    static uint64_t Mixed(uint64_t word) {
        word = (word ^ word >> 30) * 0xBF58476D1CE4E5B9;
        word = (word ^ word >> 27) * 0x94D049BB133111EB;
        return word ^ word >> 31;
    }

    uint64_t mCounter;
    uint64_t mBits = 0;
    uint32_t mTaken = 0;
    std::array<int16_t, 256> mTable{};
};

void PackRaw10(const std::vector<uint16_t>& values, uint8_t* bytes) {
    for (size_t x = 0; x < values.size(); x += 4, bytes += 5) {
        bytes[4] = 0;
        for (size_t i = 0; i < 4; ++i) {
            bytes[i] = static_cast<uint8_t>(values[x + i] >> 2);
            bytes[4] |= static_cast<uint8_t>((values[x + i] & 3) << 2 * i);
        }
    }
}

/// The words of the format are this machine's.
void PackRaw16(const std::vector<uint16_t>& values, uint8_t* bytes) {
    std::memcpy(bytes, values.data(), values.size() * sizeof values[0]);
}

/// The sensor's values of one row: ten bits.
void Sense(const uint32_t* argb, uint32_t y, uint32_t cfaPattern, Noise& noise,
           std::vector<uint16_t>& values) {
    const uint32_t shifts[] = {8 * standin::ColourAt(cfaPattern, 0, y),
                               8 * standin::ColourAt(cfaPattern, 1, y)};
    for (size_t x = 0; x < values.size(); ++x) {
        const uint32_t value = argb[x] >> shifts[x % 2] & 255;
        values[x] = static_cast<uint16_t>(static_cast<int>(value << 2 | value >> 6) + noise.Next());
    }
}

/// The first `rows` rows of a frame, an even number.
void Render(const Scene& scene, const Exposure& exposure, const Inks& inks, bool isNoisy,
            uint32_t rows, std::span<uint8_t> memory) {
    const uint32_t width = scene.Width();
    const int stride = static_cast<int>(width);
    const bool isYuv = exposure.format == ChiStreamFormatYCbCr420_888;
    const Panel panel(scene, exposure.shot.number, inks);
    Noise noise(exposure.shot, isNoisy ? (isYuv ? kYuvNoise : kRawNoise) : 0);
    const auto pack = exposure.format == ChiStreamFormatRaw10 ? PackRaw10 : PackRaw16;
    std::vector<uint32_t> pixels(size_t{width} * 2);
    std::vector<uint16_t> values(width);
    for (uint32_t y = 0; y < rows; y += 2) {
        for (uint32_t i = 0; i < 2; ++i) {
            uint32_t* const row = pixels.data() + size_t{width} * i;
            std::copy_n(scene.Row(y + i), width, row);
            panel.Cover(row, width, y + i);
            if (!isYuv) {
                Sense(row, y + i, exposure.cfaPattern, noise, values);
                pack(values, &memory[standin::ImageSize(exposure.format, width, y + i)]);
            }
        }
        if (isYuv) {
            libyuv::ARGBToNV12(reinterpret_cast<const uint8_t*>(pixels.data()), stride * 4,
                               &memory[size_t{width} * y], stride,
                               &memory[size_t{width} * (rows + y / 2)], stride, stride, 2);
        }
    }
    if (isYuv && isNoisy) {
        for (uint8_t& sample : memory) {
            sample = static_cast<uint8_t>(sample + noise.Next());
        }
    }
}

/// Only the shot's own slot is inked.
Inks InksOf(const Shot& shot) {
    Inks inks(shot.count);
    inks.at(shot.index) = 1;
    return inks;
}

// --- Development

/// What a sensor's frames would become that differ in their slots alone, in the first rows: the
/// merged picture is that of as many equal ones with a part of each slot's ink.
Bytes Developed(const Scene& scene, std::span<const Exposure> exposures, const Inks& inks,
                bool isNoisy, uint32_t rows) {
    std::map<std::pair<uint32_t, uint32_t>, Bytes> memories;
    std::vector<standin::Frame> frames;
    for (const Exposure& exposure : exposures) {
        Bytes& memory = memories[{exposure.format, exposure.cfaPattern}];
        if (memory.empty()) {
            memory.resize(standin::ImageSize(exposure.format, scene.Width(), rows));
            Render(scene, exposure, inks, isNoisy, rows, memory);
        }
        frames.insert(frames.end(), exposure.weight,
                      {exposure.format, exposure.cfaPattern, memory});
    }
    Bytes nv12(standin::ImageSize(ChiStreamFormatYCbCr420_888, scene.Width(), rows));
    standin::DevelopFrames(frames, scene.Width(), rows, nv12);
    return nv12;
}

/// One frame, once.
Bytes DevelopedAlone(const Scene& scene, Exposure exposure, bool isNoisy) {
    exposure.weight = 1;
    return Developed(scene, std::span(&exposure, 1), InksOf(exposure.shot), isNoisy,
                     scene.Height());
}

/// From NV12 to bytes of blue, green and red.
void Colour(const Scene& scene, std::span<const uint8_t> nv12, uint8_t* pixels, size_t stride) {
    const int samples = static_cast<int>(scene.Width());
    const uint8_t* const uv = &nv12[size_t{scene.Width()} * scene.Height()];
    libyuv::NV12ToRGB24(nv12.data(), samples, uv, samples, pixels, static_cast<int>(stride),
                        samples, static_cast<int>(scene.Height()));
}

// --- Judgement

/// The mean of the squared differences, less what comes of the rounding to 8 bits: for raw frames
/// to RGB and to YUV, in the picture and in the clean one, for others in the picture alone.
double Power(std::span<const uint8_t> picture, std::span<const uint8_t> clean, uint32_t format) {
    const uint64_t sum =
        libyuv::ComputeSumSquareError(picture.data(), clean.data(), static_cast<int>(clean.size()));
    const double rounding = format == ChiStreamFormatYCbCr420_888 ? kYuvRounding : kRawRounding;
    return std::max(0.0, static_cast<double>(sum) / static_cast<double>(clean.size()) - rounding);
}

double Decibels(double power) { return 10 * std::log10(power); }

/// The noise power of one frame that is developed alone.
double PowerOf(const Scene& scene, const Exposure& exposure) {
    return Power(DevelopedAlone(scene, exposure, true), DevelopedAlone(scene, exposure, false),
                 exposure.format);
}

/// Development is linear, so that a figure's ink, the luma of all its pixels, lies between those of
/// an empty and of a full slot as far as it is that frame's part of the picture.
std::vector<double> SharesOf(const Scene& scene, std::span<const Exposure> frames, double total,
                             std::span<const uint8_t> nv12) {
    const Inks none(frames[0].shot.count, 0);
    const Panel panel(scene, frames[0].shot.number, none);
    const uint32_t rows = std::min(scene.Height(), panel.Height() / 2 * 2 + 4);
    const Bytes empty = Developed(scene, frames, none, false, rows);
    const Bytes full = Developed(scene, frames, Inks(none.size(), 1), false, rows);
    std::vector<double> shares;
    for (const Exposure& frame : frames) {
        const auto ink = [&](std::span<const uint8_t> picture) {
            uint64_t sum = 0;
            panel.ForSlot(frame.shot.index, [&](uint32_t x, uint32_t y, uint32_t length) {
                const uint8_t* const line = &picture[size_t{scene.Width()} * y + x];
                sum = std::accumulate(line, line + length, sum);
            });
            return static_cast<double>(sum);
        };
        shares.push_back(total * (ink(nv12) - ink(empty)) / (ink(full) - ink(empty)));
    }
    return shares;
}

// --- Files, through libpng's simplified interface

std::vector<uint32_t> ReadPng(const std::string& path, uint32_t width, uint32_t height) {
    png_image image{.version = PNG_IMAGE_VERSION};
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0) {
        Fail(path, image.message);
    }
    image.format = PNG_FORMAT_BGRA;
    const std::string size = std::to_string(image.width) + " x " + std::to_string(image.height);
    if (std::max(image.width, image.height) > kMostPixels) {
        png_image_free(&image);
        Fail(path, size + " is larger than " + std::to_string(kMostPixels) + " pixels");
    }
    std::vector<uint8_t> file(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, file.data(), 0, nullptr) == 0) {
        Fail(path, image.message);
    }
    std::vector<uint32_t> pixels(size_t{width} * height);
    const auto fileWidth = static_cast<int>(image.width);
    libyuv::ARGBScale(file.data(), fileWidth * 4, fileWidth, static_cast<int>(image.height),
                      reinterpret_cast<uint8_t*>(pixels.data()), static_cast<int>(width) * 4,
                      static_cast<int>(width), static_cast<int>(height), libyuv::kFilterBox);
    return pixels;
}

} // namespace

// --- What the header declares

Scene::Scene(uint32_t width, uint32_t height, const std::string& png)
    : mWidth(width), mHeight(height) {
    if (width % 4 != 0 || height % 2 != 0 || width < 64 || height < 32) {
        throw std::invalid_argument("there is no picture of " + std::to_string(width) + " x " +
                                    std::to_string(height));
    }
    const double aspect = static_cast<double>(width) / height;
    if (!png.empty()) {
        mPixels = ReadPng(png, width, height);
    } else {
        mPixels.reserve(size_t{width} * height);
        for (uint32_t y = 0; y < height; ++y) {
            for (uint32_t x = 0; x < width; ++x) {
                mPixels.push_back(Draw((x + 0.5) / width, (y + 0.5) / height, aspect));
            }
        }
    }
    std::transform(mPixels.begin(), mPixels.end(), mPixels.begin(), Compressed);
}

void Expose(const Scene& scene, const Exposure& exposure, bool isNoisy, std::span<uint8_t> memory) {
    Render(scene, exposure, InksOf(exposure.shot), isNoisy, scene.Height(), memory);
}

Judgement Judge(const Scene& scene, std::span<const Exposure> frames,
                std::span<const uint8_t> nv12) {
    const auto first = std::find_if(frames.begin(), frames.end(),
                                    [](const Exposure& frame) { return frame.weight > 0; });
    std::map<uint32_t, double> powers{{first->format, PowerOf(scene, *first)}}; // By the format.
    Judgement judgement{.before = Decibels(powers[first->format])};
    Inks inks(first->shot.count);
    const double total =
        std::accumulate(frames.begin(), frames.end(), 0.0,
                        [](double sum, const Exposure& frame) { return sum + frame.weight; });
    double expected = 0;
    for (const Exposure& frame : frames) {
        if (frame.weight > 0 && !powers.contains(frame.format)) {
            powers[frame.format] = PowerOf(scene, frame);
        }
        expected += frame.weight * frame.weight * powers[frame.format];
        inks.at(frame.shot.index) = frame.weight / total;
        judgement.weights.push_back(frame.weight);
    }
    const Bytes clean = Developed(scene, frames, inks, false, scene.Height());
    judgement.after = Decibels(Power(nv12, clean, first->format));
    judgement.expectedGain = judgement.before - Decibels(expected / (total * total));
    judgement.shares = SharesOf(scene, frames, total, nv12);
    return judgement;
}

bool Judgement::IsAsExpected() const {
    const auto isNear = [](double share, uint32_t weight) {
        return std::abs(share - weight) <= kShareTolerance;
    };
    return std::abs(Gain() - expectedGain) <= kGainTolerance &&
           std::equal(shares.begin(), shares.end(), weights.begin(), weights.end(), isNear);
}

std::string Judgement::Describe() const {
    char text[128];
    (void)snprintf(text, sizeof text, "noise %.1f dB -> %.1f dB: %.2f dB lower, %.2f expected;",
                   before, after, Gain(), expectedGain);
    std::ostringstream line;
    line << text << " shares";
    for (const double share : shares) {
        line << ' ' << std::round(share * 10) / 10 + 0.0; // Without the sign of a zero.
    }
    return line.str();
}

Bytes DevelopAlone(const Scene& scene, const Exposure& frame) {
    return DevelopedAlone(scene, frame, true);
}

SampledPng Sample(const Scene& scene, std::span<const uint8_t> nv12) {
    const uint32_t width = scene.Width();
    const uint32_t height = scene.Height();
    SampledPng sampled{
        .step = static_cast<uint32_t>(std::ceil(std::sqrt(1.0 * width * height / kSmall)))};
    Bytes pixels(size_t{width} * height * 3);
    Colour(scene, nv12, pixels.data(), size_t{width} * 3);
    Bytes kept;
    for (uint32_t y = 0; y < height; y += sampled.step) {
        for (uint32_t x = 0; x < width; x += sampled.step) {
            const uint8_t* const pixel = &pixels[(size_t{y} * width + x) * 3];
            kept.insert(kept.end(), pixel, pixel + 3);
        }
    }
    png_image image{.version = PNG_IMAGE_VERSION,
                    .width = (width + sampled.step - 1) / sampled.step,
                    .height = (height + sampled.step - 1) / sampled.step,
                    .format = PNG_FORMAT_BGR};
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    sampled.bytes.resize(size);
    if (png_image_write_to_memory(&image, sampled.bytes.data(), &size, 0, kept.data(), 0,
                                  nullptr) == 0) {
        throw std::runtime_error(std::string("a picture cannot be compressed: ") + image.message);
    }
    sampled.bytes.resize(size);
    return sampled;
}

std::string PngOf(const Scene& scene, const Exposure& frame, std::span<const uint8_t> nv12) {
    const uint32_t width = scene.Width();
    const uint32_t gap = std::max(2U, width / 128);
    const size_t stride = (size_t{width} * 2 + gap) * 3;
    Bytes pixels(stride * scene.Height(), 255);
    Colour(scene, DevelopedAlone(scene, frame, true), pixels.data(), stride);
    Colour(scene, nv12, &pixels[size_t{width + gap} * 3], stride);

    png_image image{.version = PNG_IMAGE_VERSION,
                    .width = 2 * width + gap,
                    .height = scene.Height(),
                    .format = PNG_FORMAT_BGR,
                    .flags = PNG_IMAGE_FLAG_FAST};
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    std::string png(size, '\0');
    if (png_image_write_to_memory(&image, png.data(), &size, 0, pixels.data(), 0, nullptr) == 0) {
        throw std::runtime_error(std::string("the picture cannot be made: ") + image.message);
    }
    png.resize(size);
    return png;
}

} // namespace host
