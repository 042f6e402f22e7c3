/// Streams and output buffers of a host.
#pragma once

#include "adapterlayer/oemlayer_host.h"
#include "standin/gralloc.h"

#include <vector>

namespace kit {

constexpr camera3_stream MakeStream(int32_t format, uint32_t width = 64, uint32_t height = 32,
                                    int32_t type = CAMERA3_STREAM_OUTPUT) {
    return {.stream_type = type,
            .width = width,
            .height = height,
            .format = format,
            .usage = 3,
            .max_buffers = 4};
}

/// An output buffer of the framework, in memory of this process.
class OutputBuffer {
  public:
    OutputBuffer(uint32_t width, uint32_t height)
        : mPixels(size_t{width} * height * 3 / 2, kUnwritten),
          mHandle(standin::gralloc::Wrap(mPixels.data(), mPixels.size())) {}
    ~OutputBuffer() { native_handle_delete(const_cast<native_handle_t*>(mHandle)); }
    OutputBuffer(const OutputBuffer&) = delete;
    OutputBuffer& operator=(const OutputBuffer&) = delete;

    buffer_handle_t* Reference() { return &mHandle; }
    const std::vector<uint8_t>& Pixels() const { return mPixels; }

  private:
    static constexpr uint8_t kUnwritten = 0x11;

    std::vector<uint8_t> mPixels; ///< NV12.
    buffer_handle_t mHandle;
};

} // namespace kit
