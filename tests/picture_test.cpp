/// Pictures: what a session develops out of frames, how the host judges it, and their files. What
/// the adapter feeds becomes pictures in host_test.cpp.

#include "host/picture.h"
#include "standin/pixels.h"
#include "tests/support/device.h"

#include <algorithm>
#include <deque>
#include <map>
#include <png.h>

namespace {

using namespace test;
using host::Exposure;
using host::Judgement;
using host::Scene;

using Bytes = std::vector<uint8_t>;
using Exposures = std::vector<Exposure>;

constexpr uint32_t kWidth = 256;
constexpr uint32_t kHeight = 192;
constexpr uint32_t kFrameNumber = 107;
constexpr uint64_t kSeed = 5;
constexpr uint32_t kRaw10 = HAL_PIXEL_FORMAT_RAW10;
constexpr uint32_t kRaw16 = HAL_PIXEL_FORMAT_RAW16;
constexpr uint32_t kYuv = HAL_PIXEL_FORMAT_YCBCR_420_888;
constexpr uint32_t kSwapped = standin::CfaGRBG; ///< Of the usual GBRG.

/// All frames of a request, each fed once.
Exposures Burst(uint32_t format, uint32_t count, uint32_t cfaPattern = standin::CfaGBRG) {
    Exposures frames;
    for (uint32_t i = 0; i < count; ++i) {
        frames.push_back({{kFrameNumber, i, count, kSeed}, format, cfaPattern});
    }
    return frames;
}

/// Takes the frames, and develops them read in the format and with the pattern of `read`.
Bytes Developed(const Scene& scene, const Exposures& frames, const Exposure& read) {
    std::deque<Bytes> memories;
    std::vector<standin::Frame> inputs;
    for (const Exposure& frame : frames) {
        Bytes& memory = memories.emplace_back(standin::ImageSize(frame.format, kWidth, kHeight));
        Expose(scene, frame, true, memory);
        inputs.push_back({read.format, read.cfaPattern, memory});
    }
    Bytes nv12(standin::ImageSize(kYuv, kWidth, kHeight));
    standin::DevelopFrames(inputs, kWidth, kHeight, nv12);
    return nv12;
}

constexpr struct {
    const char* name;
    uint32_t format;
    uint32_t count;
    void (*deviate)(Exposures& frames);
} kDeviations[] = {
    {"the first of 12 left out", kRaw10, 12, [](Exposures& all) { all.erase(all.begin()); }},
    {"the last of 12 left out", kYuv, 12, [](Exposures& all) { all.pop_back(); }},
    {"one of 8 fed instead of another", kRaw10, 8, [](Exposures& all) { all[3] = all[2]; }},
    {"one of 8 fed once more", kRaw16, 8, [](Exposures& all) { all.push_back(all[2]); }},
    {"another frame number", kRaw10, 1, [](Exposures& all) { all[0].shot.number += 1; }},
    {"one of 8 of another request", kRaw10, 8, [](Exposures& all) { all[7].shot.number += 1; }},
    {"another pattern", kRaw10, 1, [](Exposures& all) { all[0].cfaPattern = standin::CfaRGGB; }},
    {"red and blue swapped", kRaw10, 1, [](Exposures& all) { all[0].cfaPattern = kSwapped; }},
    {"one of 8 patterns", kRaw10, 8, [](Exposures& all) { all[7].cfaPattern = standin::CfaRGGB; }},
    {"RAW16 read as RAW10", kRaw10, 1, [](Exposures& all) { all[0].format = kRaw16; }},
    {"RAW10 read as RAW16", kRaw16, 1, [](Exposures& all) { all[0].format = kRaw10; }},
};

TEST(PictureJudgement, FindsWhatDeviates) {
    const Scene scene(kWidth, kHeight);
    for (const auto& deviation : kDeviations) {
        SCOPED_TRACE(deviation.name);
        const Exposures frames = Burst(deviation.format, deviation.count);
        Exposures fed = frames;
        deviation.deviate(fed);
        const Judgement judgement = Judge(scene, frames, Developed(scene, fed, frames[0]));
        EXPECT_FALSE(judgement.IsAsExpected()) << judgement.Describe();
    }
}

TEST(PictureJudgement, TellsEachShareForAnyNumberOfFrames) {
    const Scene scene(kWidth, kHeight);
    for (uint32_t count = 1; count <= 12; ++count) {
        SCOPED_TRACE(count);
        const Exposures frames = Burst(kRaw10, count);
        const Judgement good = Judge(scene, frames, Developed(scene, frames, frames[0]));
        EXPECT_TRUE(good.IsAsExpected()) << good.Describe();
        if (count > 1) {
            Exposures fed = frames;
            fed[0] = fed[1];
            const Judgement bad = Judge(scene, frames, Developed(scene, fed, frames[0]));
            EXPECT_FALSE(bad.IsAsExpected()) << bad.Describe();
            EXPECT_NEAR(bad.shares[0], 0, 0.3);
            EXPECT_NEAR(bad.shares[1], 2, 0.3);
        }
    }
}

TEST(PictureJudgement, IsOneLine) {
    const Judgement judgement{.before = 12.34,
                              .after = 6.32,
                              .expectedGain = 6.1,
                              .weights = {1, 2, 0, 1},
                              .shares = {1.04, 1.96, -0.01, 0.91}};
    EXPECT_EQ(judgement.Describe(),
              "noise 12.3 dB -> 6.3 dB: 6.02 dB lower, 6.10 expected; shares 1 2 0 0.9");
}

// --- Development, out of mosaics that are written by hand

/// A mosaic of one colour, of `kFlat` pixels either way, given its filters as in "RGGB".
constexpr uint32_t kFlat = 8;
constexpr uint32_t kLumas = kFlat * kFlat;

Bytes FlatRaw16(const std::string& filters, const std::map<char, int>& colour) {
    Bytes words;
    for (uint32_t i = 0; i < kLumas; ++i) {
        const int value = colour.at(filters[i / kFlat % 2 * 2 + i % 2]);
        words.push_back(static_cast<uint8_t>(value % 256));
        words.push_back(static_cast<uint8_t>(value / 256));
    }
    return words;
}

Bytes DevelopFlat(const std::vector<standin::Frame>& frames) {
    Bytes nv12(kLumas * 3 / 2);
    standin::DevelopFrames(frames, kFlat, kFlat, nv12);
    return nv12;
}

TEST(PictureDevelopment, KeepsAColourToTheEdgesForEachPattern) {
    // 10 bits of R, G and B are 199, 101 and 50 of 255; and those, by BT.601, Y 123, U 91, V 174.
    const std::map<char, int> colour{{'R', 800}, {'G', 404}, {'B', 200}};
    const char* const patterns[] = {"RGGB", "GRBG", "GBRG", "BGGR"};
    for (uint32_t pattern = 0; pattern < 4; ++pattern) {
        SCOPED_TRACE(patterns[pattern]);
        const Bytes mosaic = FlatRaw16(patterns[pattern], colour);
        const Bytes nv12 = DevelopFlat({{kRaw16, pattern, mosaic}});
        for (size_t i = 0; i < nv12.size(); ++i) {
            ASSERT_NEAR(nv12[i], i < kLumas ? 123 : (i % 2 == 0 ? 91 : 174), 1) << "sample " << i;
        }
    }
}

TEST(PictureDevelopment, ReadsPackedPixels) {
    // Two rows of RGGB: R 803, G 400, B 202. In the fifth byte, the first pixel's bits are lowest.
    const uint8_t rows[2][5] = {{200, 100, 200, 100, 0b00110011}, {100, 50, 100, 50, 0b10001000}};
    Bytes packed;
    for (uint32_t group = 0; group < kLumas / 4; ++group) {
        const auto& row = rows[group / (kFlat / 4) % 2];
        packed.insert(packed.end(), std::begin(row), std::end(row));
    }
    const Bytes words = FlatRaw16("RGGB", {{'R', 803}, {'G', 400}, {'B', 202}});
    EXPECT_EQ(DevelopFlat({{kRaw10, standin::CfaRGGB, packed}}),
              DevelopFlat({{kRaw16, standin::CfaRGGB, words}}));
}

TEST(PictureDevelopment, WeighsEveryFrameTheSameAndRoundsAtTheEndAlone) {
    const struct {
        std::vector<int> raw;
        std::vector<uint8_t> yuv;
        uint8_t luma;
    } cases[] = {
        {{800}, {}, 187},
        {{803}, {}, 188},
        {{800, 800, 803}, {}, 188},
        {{}, {100, 101, 101}, 101},
        {{}, {100, 100, 101}, 100},
        {{803}, {100, 100, 100}, 122},
        {{803, 803, 803}, {100}, 166},
    };
    for (const auto& wanted : cases) {
        std::deque<Bytes> memories;
        std::vector<standin::Frame> frames;
        for (const int value : wanted.raw) {
            memories.push_back(FlatRaw16("RGGB", {{'R', value}, {'G', value}, {'B', value}}));
            frames.push_back({kRaw16, standin::CfaRGGB, memories.back()});
        }
        for (const uint8_t luma : wanted.yuv) {
            Bytes& memory = memories.emplace_back(kLumas * 3 / 2, uint8_t{128});
            std::fill_n(memory.begin(), kLumas, luma);
            frames.push_back({kYuv, 0, memory});
        }
        Bytes nv12(kLumas * 3 / 2, uint8_t{128});
        std::fill_n(nv12.begin(), kLumas, wanted.luma);
        EXPECT_EQ(DevelopFlat(frames), nv12);
    }
}

struct Pixels {
    uint32_t width, height;
    Bytes rgb;
};

Pixels Read(const std::string& file) {
    png_image image{.version = PNG_IMAGE_VERSION};
    EXPECT_NE(png_image_begin_read_from_memory(&image, file.data(), file.size()), 0)
        << image.message;
    image.format = PNG_FORMAT_RGB;
    Pixels pixels{image.width, image.height, Bytes(PNG_IMAGE_SIZE(image))};
    EXPECT_NE(png_image_finish_read(&image, nullptr, pixels.rgb.data(), 0, nullptr), 0);
    return pixels;
}

void WriteFile(const std::string& path, const Pixels& pixels) {
    png_image image{.version = PNG_IMAGE_VERSION,
                    .width = pixels.width,
                    .height = pixels.height,
                    .format = PNG_FORMAT_RGB};
    EXPECT_NE(png_image_write_to_file(&image, path.c_str(), 0, pixels.rgb.data(), 0, nullptr), 0);
}

TEST(PictureFile, ShowsANoisyFrameAndTheMergedOneSideBySide) {
    const Scene scene(kWidth, kHeight);
    const Exposures frames = Burst(kRaw10, 12);
    const Pixels file = Read(PngOf(scene, frames[0], Developed(scene, frames, frames[0])));
    ASSERT_EQ(file.width, 2 * kWidth + 2);
    ASSERT_EQ(file.height, kHeight);
    // A patch of the chart, where neighbours are the same; its colour is told by the scene.
    constexpr uint32_t kLeft = 16;
    constexpr uint32_t kTop = 96;
    constexpr uint32_t kSize = 8;
    const uint32_t colour = scene.Row(kTop)[kLeft];
    const int rgb[] = {static_cast<int>(colour >> 16 & 255), static_cast<int>(colour >> 8 & 255),
                       static_cast<int>(colour & 255)};
    EXPECT_GT(rgb[0], rgb[2] + 50) << "this patch tells red from blue";
    double power[2] = {};
    double mean[2][3] = {};
    for (uint32_t i = 0; i < 2 * kSize * kSize; ++i) {
        const uint32_t side = i / (kSize * kSize);
        const uint32_t x = kLeft + i % kSize + side * (kWidth + 2);
        const uint8_t* const pixel =
            &file.rgb[size_t{3} * (file.width * (kTop + i / kSize % kSize) + x)];
        for (size_t j = 0; j < 3; ++j) {
            mean[side][j] += pixel[j] / double{kSize * kSize};
            power[side] += (pixel[j] - rgb[j]) * (pixel[j] - rgb[j]);
        }
    }
    for (size_t j = 0; j < 3; ++j) {
        EXPECT_NEAR(mean[0][j], rgb[j], 10);
        EXPECT_NEAR(mean[1][j], rgb[j], 4);
    }
    EXPECT_GT(power[0], 4 * power[1]) << "the left one is noisy";
}

TEST(PictureFile, BecomesASceneOfTheFramesSizeWithRoomForNoise) {
    const Folder folder;
    // The left half is red, the right one blue.
    Pixels pixels{40, 20, {}};
    for (uint32_t i = 0; i < 40 * 20; ++i) {
        const uint8_t left = i % 40 < 20 ? 255 : 0;
        pixels.rgb.insert(pixels.rgb.end(), {left, 0, static_cast<uint8_t>(255 - left)});
    }
    WriteFile(folder / "halves.png", pixels);
    const Scene scene(128, 96, folder / "halves.png");
    for (uint32_t i = 0; i < 128 * 96; ++i) {
        const uint32_t x = i % 128;
        const uint32_t pixel = scene.Row(i / 128)[x];
        if (x < 60 || x >= 68) { // Scaling may lose a little, and blurs where the halves meet.
            ASSERT_NEAR(pixel >> 16 & 255, x < 64 ? 224 : 31, 2) << "at " << x;
            ASSERT_NEAR(pixel & 255, x < 64 ? 31 : 224, 2) << "at " << x;
            ASSERT_EQ(pixel >> 8 & 255, 31U) << "at " << x;
        }
    }
}

TEST(PictureFile, ThatCannotBeReadIsNamedWithItsReason) {
    const Folder folder;
    WriteFile(folder / "wide.png", {16385, 1, Bytes(size_t{16385} * 3)});
    WriteFile(folder / "cut.png", {64, 64, Bytes(size_t{64} * 64 * 3)});
    std::filesystem::resize_file(folder / "cut.png", 60);
    folder.Write("text.png", "no picture at all");
    const std::pair<const char*, const char*> cases[] = {
        {"missing.png", "No such file or directory"},
        {"text.png", "Not a PNG file"},
        {"cut.png", "Read Error"},
        {"wide.png", "16385 x 1 is larger than 16384 pixels"},
    };
    for (const auto& [name, reason] : cases) {
        const std::string path = folder / name;
        EXPECT_EQ(Thrown([&] { Scene(128, 96, path); }),
                  "cannot read the picture " + path + ": " + reason);
    }
}

TEST(PictureSize, HasLimits) {
    const std::pair<uint32_t, uint32_t> sizes[] = {{60, 32}, {64, 30}, {66, 32}, {64, 33}};
    for (const auto& [width, height] : sizes) {
        EXPECT_EQ(Thrown([w = width, h = height] { Scene(w, h); }),
                  Printed("there is no picture of %u x %u", width, height));
    }
    // The smallest one has a place for every slot of the largest request.
    const Scene scene(64, 32);
    const Exposures frames = Burst(kYuv, host::kMostFrames);
    Bytes memory(standin::ImageSize(kYuv, 64, 32));
    Expose(scene, frames.back(), false, memory);
    const Judgement judgement = Judge(scene, frames, memory);
    EXPECT_NEAR(judgement.shares.front(), 0, 0.1);
    EXPECT_NEAR(judgement.shares.back(), host::kMostFrames, 0.1);
}

} // namespace
