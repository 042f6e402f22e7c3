/// A request's record and its moments.
#include "host/request.h"

namespace host {

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
