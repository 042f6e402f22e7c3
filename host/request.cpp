#include "host/request.h"

#include "standin/gralloc.h"

namespace host {
namespace {

constexpr uint8_t kUnwritten = 0x11;

} // namespace

OutputBuffer::OutputBuffer(uint32_t width, uint32_t height)
    : mPixels(size_t{width} * height * 3 / 2, kUnwritten),
      mHandle(standin::gralloc::Wrap(mPixels.data(), mPixels.size())) {}

OutputBuffer::~OutputBuffer() { native_handle_delete(const_cast<native_handle_t*>(mHandle)); }

// cppcheck-suppress uninitDerivedMemberVar ; the braces make all of it zero
Request::Request(Camera& owner, std::string name, uint32_t number, uint32_t width, uint32_t height)
    : RequestPrivData{}, camera(owner), index(number), output(width, height),
      watch(std::move(name)) {}

void Request::Note(std::optional<Clock::time_point> Moments::*event) {
    const auto now = Clock::now();
    const std::lock_guard lock(mMutex);
    if (!(mMoments.*event).has_value()) {
        mMoments.*event = now;
    }
}

Moments Request::When() const {
    const std::lock_guard lock(mMutex);
    return mMoments;
}

} // namespace host
