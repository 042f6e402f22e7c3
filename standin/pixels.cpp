/// What a session does to pixels: it unpacks, merges and demosaics.
#include "standin/pixels.h"

#include "standin/gralloc.h"
#include "standin/session.h"

#include <libyuv.h>

#include <algorithm>
#include <map>

namespace standin {
namespace {

constexpr uint64_t kLargestImage = uint64_t{256} << 20;
constexpr uint32_t kWhite = 1023; // Of raw formats.
constexpr uint32_t kScaleBits = 22;

/// Bytes of one row; of the luma plane for YUV.
uint64_t Stride(uint32_t format, uint64_t width) {
    if (format == ChiStreamFormatRaw10) {
        return width * 5 / 4;
    }
    const bool isBytes = format == ChiStreamFormatYCbCr420_888 || format == ChiStreamFormatBlob;
    return isBytes ? width : width * 2;
}

/// Four pixels have their upper bits in a byte each, and share a fifth.
void AddRaw10(const uint8_t* bytes, uint32_t width, uint16_t* sums) {
    for (uint32_t x = 0; x + 4 <= width; x += 4, bytes += 5) {
        for (uint32_t i = 0; i < 4; ++i) {
            sums[x + i] += static_cast<uint16_t>(bytes[i] << 2 | (bytes[4] >> 2 * i & 3));
        }
    }
}

void AddRaw16(const uint8_t* bytes, uint32_t width, uint16_t* sums) {
    for (uint32_t x = 0; x < width; ++x, bytes += 2) {
        sums[x] += static_cast<uint16_t>(bytes[0] | bytes[1] << 8) & kWhite;
    }
}

/// The sum of mosaics of one pattern. Each row has one more pixel at either end.
class Mosaic {
  public:
    Mosaic(uint32_t width, uint32_t height)
        : mWidth(width), mHeight(height), mSums(size_t{width + 2} * height) {}

    void Add(const Frame& frame) {
        ++mCount;
        const bool isRaw10 = frame.format == ChiStreamFormatRaw10;
        const size_t stride = Stride(frame.format, mWidth);
        const size_t rows = std::min<size_t>(mHeight, frame.memory.size() / stride);
        for (uint32_t y = 0; y < rows; ++y) {
            (isRaw10 ? AddRaw10 : AddRaw16)(frame.memory.data() + stride * y, mWidth, Row(y));
        }
    }
    uint32_t Count() const { return mCount; }

    void Demosaic(uint32_t cfaPattern, std::span<uint8_t> nv12) {
        // Continues the rows beyond both ends with the pixels that have the same filters.
        for (uint32_t y = 0; y < mHeight; ++y) {
            uint16_t* const row = Row(y);
            row[-1] = row[1];
            row[mWidth] = row[mWidth - 2];
        }
        const int width = static_cast<int>(mWidth);
        uint8_t* const uv = nv12.data() + size_t{mWidth} * mHeight;
        std::vector<uint8_t> argb(size_t{mWidth} * 8);
        for (uint32_t y = 0; y < mHeight; y += 2) {
            DemosaicRow(y, cfaPattern, argb.data());
            DemosaicRow(y + 1, cfaPattern, argb.data() + size_t{mWidth} * 4);
            libyuv::ARGBToNV12(argb.data(), width * 4, nv12.data() + size_t{mWidth} * y, width,
                               uv + size_t{mWidth} * y / 2, width, width, 2);
        }
    }

  private:
    uint16_t* Row(uint32_t y) { return &mSums[size_t{mWidth + 2} * y + 1]; }

    /// The pixels of a row with the row's own colour, red or blue, alternate with green ones.
    void DemosaicRow(uint32_t y, uint32_t cfaPattern, uint8_t* argb) {
        const uint16_t* above = Row(y == 0 ? 1 : y - 1);
        const uint16_t* row = Row(y);
        const uint16_t* below = Row(y + 1 == mHeight ? y - 1 : y + 1);
        const uint32_t greenAt = ColourAt(cfaPattern, 0, y) == 1 ? 0 : 1;
        const uint32_t colour = ColourAt(cfaPattern, 1 - greenAt, y);
        const uint32_t scale = (255U << kScaleBits) / (4 * kWhite * mCount);
        const auto write = [scale](uint8_t& sample, uint32_t fourTimes) {
            const uint32_t scaled = fourTimes * scale + (1U << (kScaleBits - 1));
            sample = static_cast<uint8_t>(scaled >> kScaleBits);
        };
        for (uint32_t x = 0; x < mWidth; ++x, ++above, ++row, ++below, argb += 4) {
            const uint32_t own = 4U * row[0];
            const uint32_t sides = row[-1] + row[1];
            const uint32_t ends = above[0] + below[0];
            const uint32_t corners = above[-1] + above[1] + below[-1] + below[1];
            const bool isGreen = x % 2 == greenAt;
            write(argb[colour], isGreen ? 2 * sides : own);
            write(argb[1], isGreen ? own : sides + ends);
            write(argb[2 - colour], isGreen ? 2 * ends : corners);
        }
    }

    uint32_t mWidth;
    uint32_t mHeight;
    uint32_t mCount = 0;
    std::vector<uint16_t> mSums;
};

using Sums = std::vector<uint16_t>;

void AddTimes(uint32_t times, std::span<const uint8_t> picture, Sums& sums) {
    const size_t size = std::min(sums.size(), picture.size());
    for (size_t i = 0; i < size; ++i) {
        sums[i] += static_cast<uint16_t>(times * picture[i]);
    }
}

/// Whether an input buffer's memory is that of an image of its stream.
bool Fits(const ImageBuffer& image, const ChiStream& stream) {
    return Check(Rule::Memory,
                 image.format == stream.format && image.width == stream.width &&
                     image.height == stream.height,
                 "an image of ", image.width, "x", image.height, " and format ", image.format,
                 " is an input of a stream of ", stream.width, "x", stream.height, " and format ",
                 stream.format);
}

} // namespace

uint64_t ImageSize(uint32_t format, uint32_t width, uint32_t height) {
    if (uint64_t{width} * height > kLargestImage) {
        return 0;
    }
    const uint64_t size = Stride(format, width) * height;
    return format == ChiStreamFormatYCbCr420_888 ? size * 3 / 2 : size;
}

void DevelopFrames(std::span<const Frame> frames, uint32_t width, uint32_t height,
                   std::span<uint8_t> nv12) {
    Sums sums(ImageSize(ChiStreamFormatYCbCr420_888, width, height));
    std::map<uint32_t, Mosaic> mosaics; // By their pattern.
    for (const Frame& frame : frames) {
        if (frame.format == ChiStreamFormatYCbCr420_888) {
            AddTimes(1, frame.memory, sums);
        } else {
            mosaics.try_emplace(frame.cfaPattern % 4, width, height).first->second.Add(frame);
        }
    }
    for (auto& [cfaPattern, mosaic] : mosaics) {
        std::vector<uint8_t> picture(sums.size());
        mosaic.Demosaic(cfaPattern, picture);
        AddTimes(mosaic.Count(), picture, sums);
    }
    const auto count = static_cast<uint32_t>(frames.size());
    std::transform(sums.begin(), sums.end(), nv12.begin(), [count](uint16_t sum) {
        return static_cast<uint8_t>((sum + count / 2) / count);
    });
}

void Develop(const Session& session, const Execution& execution, const ChiStreamBuffer& output) {
    const ChiStream* stream = session.FindStream(output.pStream);
    if (stream == nullptr || stream->format != ChiStreamFormatYCbCr420_888 ||
        stream->width % 2 != 0 || stream->height % 2 != 0) {
        return;
    }
    std::vector<std::shared_ptr<const ImageBuffer>> images; // Those whose memory is read.
    std::vector<Frame> frames;
    for (const BufferSetCopy& set : execution.inputs) {
        for (size_t i = 0; i < set.buffers.size(); ++i) {
            const ChiStreamBuffer& buffer = set.buffers[i];
            const auto image = Find<ImageBuffer>(buffer.bufferHandle);
            Check(Rule::ImageAlive, image != nullptr, "an input's image buffer ",
                  contract::Handle(buffer.bufferHandle), " is not alive when it is read");
            const ChiStream* input = session.FindStream(buffer.pStream);
            if (image != nullptr && input != nullptr && !Fits(*image, *input)) {
                return;
            }
            if (image == nullptr || image->width != stream->width ||
                image->height != stream->height) {
                continue;
            }
            const ChiInputFormat& format = set.formats[i]; // As the input is read, if it is raw.
            images.push_back(image);
            frames.push_back({buffer.pInputFormat == nullptr          ? ChiStreamFormatYCbCr420_888
                              : format.bufferFormat == ChiFormatRaw10 ? ChiStreamFormatRaw10
                                                                      : ChiStreamFormatRaw16,
                              format.cfaPattern, image->memory});
        }
    }
    if (frames.empty()) {
        return;
    }
    const auto target = gralloc::Memory(static_cast<const buffer_handle_t*>(output.bufferHandle));
    const uint64_t size = ImageSize(stream->format, stream->width, stream->height);
    if (!target.empty() &&
        Check(Rule::Memory, target.size() >= size, "the output buffer's memory is ",
              contract::Got{target.size()}, " bytes and must be ", contract::Must{size})) {
        DevelopFrames(frames, stream->width, stream->height, target.first(size));
    }
}

} // namespace standin
