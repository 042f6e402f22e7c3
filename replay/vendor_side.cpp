/// What the vendor keeps.
#include "replay/world.h"

namespace replay {
namespace {

constexpr uint64_t kMostImageBytes = uint64_t{1} << 28;

template <class Map> auto Find(const Map& map, const typename Map::key_type& key) {
    const auto found = map.find(key);
    return found == map.end() ? typename Map::mapped_type{} : found->second;
}

} // namespace

void VendorSide::OnOpenSession(const Call* call, uint64_t session,
                               ChiOfflineSessionCallbacks* callbacks) {
    const std::lock_guard lock(mMutex);
    mOpened[call] = mSessions[session] = callbacks;
}

void VendorSide::OnExecute(const Call& call, const ChiOfflineExecuteRequest& request) {
    const std::lock_guard lock(mMutex);
    mExecuted[&call] = {request.pPrivateData,
                        request.pOutput == nullptr ? nullptr : request.pOutput->pBuffers};
}

/// Room for any format.
void VendorSide::OnManager(uint64_t manager, const ChiBufferManagerCreateData& data) {
    const std::lock_guard lock(mMutex);
    const uint64_t pixels = uint64_t{data.width} * data.height;
    mManagers[manager] = pixels < kMostImageBytes / 8 ? pixels * 4 + 4096 : 0;
}

void VendorSide::OnImage(uint64_t image, uint64_t manager) {
    const std::lock_guard lock(mMutex);
    const size_t bytes = Find(mManagers, manager);
    if (mImages[image].bytes != bytes) {
        mImages[image] = {.bytes = bytes};
    }
}

const ChiOfflineSessionCallbacks* VendorSide::CallbacksOf(const Call& call) const {
    const std::lock_guard lock(mMutex);
    const auto* const known = call.opening == nullptr ? nullptr : Find(mOpened, call.opening);
    if (known != nullptr || call.execution == nullptr) {
        return known;
    }
    return Find(mSessions, call.execution->Word(0));
}

VendorSide::Execution VendorSide::ExecutionOf(const Call& result) const {
    const std::lock_guard lock(mMutex);
    return Find(mExecuted, result.execution);
}

std::span<uint8_t> VendorSide::MemoryOf(uint64_t handle) {
    const std::lock_guard lock(mMutex);
    Image& image = mImages[handle];
    if (image.memory == nullptr) {
        image.memory.reset(static_cast<uint8_t*>(calloc(image.bytes + 1, 1)));
    }
    return {image.memory.get(), image.memory == nullptr ? 0 : image.bytes};
}

} // namespace replay
