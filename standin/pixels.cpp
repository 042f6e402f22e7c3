#include "standin/pixels.h"

#include "standin/gralloc.h"

#include <algorithm>

namespace standin {
namespace {

constexpr uint64_t kLargestImage = uint64_t{256} << 20;
constexpr uint8_t kGrey = 128;

using Images = std::vector<std::shared_ptr<const ImageBuffer>>;

/// Bytes of one row; of the luma plane for YUV.
uint64_t Stride(uint32_t format, uint64_t width) {
    if (format == ChiStreamFormatRaw10)
        return width * 5 / 4;
    const bool isBytes = format == ChiStreamFormatYCbCr420_888 || format == ChiStreamFormatBlob;
    return isBytes ? width : width * 2;
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

/// The request's inputs with known memory and the size of the output; none if one is not right.
Images InputImages(const Session& session, const Execution& execution, const ChiStream& output) {
    Images images;
    for (const BufferSetCopy& set : execution.inputs) {
        for (const ChiStreamBuffer& buffer : set.buffers) {
            const auto image = Require<ImageBuffer>(buffer.bufferHandle);
            const ChiStream* stream = session.FindStream(buffer.pStream);
            if (image != nullptr && stream != nullptr && !Fits(*image, *stream))
                return {};
            if (image != nullptr && image->width == output.width && image->height == output.height)
                images.push_back(image);
        }
    }
    return images;
}

/// Adds the eight upper bits of a row's pixels to `sums`.
void AddRow(const ImageBuffer& image, uint32_t y, std::vector<uint16_t>& sums) {
    const uint8_t* row = image.memory.data() + Stride(image.format, image.width) * y;
    for (size_t x = 0; x < sums.size(); ++x) {
        if (image.format == ChiStreamFormatRaw10)
            sums[x] += row[x / 4 * 5 + x % 4]; // four upper bytes, then one with the lower bits
        else if (image.format == ChiStreamFormatRaw16)
            sums[x] += static_cast<uint8_t>((row[2 * x] | row[2 * x + 1] << 8) >> 2); // 10 bits
        else
            sums[x] += row[x];
    }
}

void WriteMean(const Images& images, std::span<uint8_t> target) {
    const size_t width = images.front()->width;
    const uint32_t height = images.front()->height;
    std::vector<uint16_t> sums(width);
    for (uint32_t y = 0; y < height; ++y) {
        std::fill(sums.begin(), sums.end(), uint16_t{0});
        for (const auto& image : images)
            AddRow(*image, y, sums);
        std::transform(sums.begin(), sums.end(), target.data() + width * y, [&](uint16_t sum) {
            return static_cast<uint8_t>(sum / static_cast<uint32_t>(images.size()));
        });
    }
    std::fill(target.data() + width * height, target.data() + target.size(), kGrey);
}

} // namespace

uint64_t ImageSize(uint32_t format, uint32_t width, uint32_t height) {
    if (uint64_t{width} * height > kLargestImage)
        return 0;
    const uint64_t size = Stride(format, width) * height;
    return format == ChiStreamFormatYCbCr420_888 ? size * 3 / 2 : size;
}

void Develop(const Session& session, const Execution& execution, const ChiStreamBuffer& output) {
    const ChiStream* stream = session.FindStream(output.pStream);
    if (stream == nullptr || stream->format != ChiStreamFormatYCbCr420_888)
        return;
    const Images images = InputImages(session, execution, *stream);
    if (images.empty())
        return;
    const auto target = gralloc::Memory(static_cast<const buffer_handle_t*>(output.bufferHandle));
    const uint64_t size = ImageSize(stream->format, stream->width, stream->height);
    if (!target.empty() &&
        Check(Rule::Memory, target.size() >= size, "the output buffer's memory is ", target.size(),
              " bytes and must be ", size))
        WriteMean(images, target.first(size));
}

} // namespace standin
