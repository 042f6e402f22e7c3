/// Buffer managers and image buffers of the offline library.
#include "standin/pixels.h"
#include "standin/state.h"

namespace standin {
namespace {

void Close(ChiOfflineBufferManagerOps* ops) { Remove<BufferOps>(ops); }

ChiBufferManagerHandle Create(ChiOfflineBufferManagerOps* ops, const char* name,
                              const ChiBufferManagerCreateData* data) {
    if (!Find<BufferOps>(ops) || name == nullptr || data == nullptr) {
        return nullptr;
    }
    return Adopt(std::make_shared<BufferManager>(BufferManager{*data}));
}

/// Image buffers that outlive their manager are freed with it, against the contract.
void Destroy(ChiBufferManagerHandle manager) {
    if (Remove<BufferManager>(manager)) {
        std::erase_if(Device().Lock()->Of<ImageBuffer>(), [manager](const auto& image) {
            return image.second->manager == Word(manager);
        });
    }
}

/// Null also for an image that is too large for this device.
ChiImageBufferHandle GetImageBuffer(ChiBufferManagerHandle manager) {
    const auto owner = Find<BufferManager>(manager);
    if (!owner) {
        return nullptr;
    }
    const auto& data = owner->data;
    const uint64_t size = ImageSize(data.format, data.width, data.height);
    if (size == 0) {
        return nullptr;
    }
    return Adopt(std::make_shared<ImageBuffer>(ImageBuffer{
        Word(manager), data.format, data.width, data.height, std::vector<uint8_t>(size)}));
}

void ReleaseImageBuffer(ChiImageBufferHandle image) { Remove<ImageBuffer>(image); }

void* GetCPUAddress(ChiImageBufferHandle handle) {
    const auto image = Find<ImageBuffer>(handle);
    return image ? image->memory.data() : nullptr;
}

void Fill(SlotList& slots, ChiOfflineBufferManagerOps& table) {
    Install<Entry::BufferOpsClose, Close, Close>(slots, table.pClose);
    Install<Entry::BufferManagerCreate, Create>(slots, table.pCreate);
    Install<Entry::BufferManagerDestroy, Destroy>(slots, table.pDestroy);
    Install<Entry::GetImageBuffer, GetImageBuffer>(slots, table.pGetImageBuffer);
    Install<Entry::ReleaseImageBuffer, ReleaseImageBuffer>(slots, table.pReleaseImageBuffer);
    Install<Entry::GetCPUAddress, GetCPUAddress>(slots, table.pGetCPUAddress);
}

} // namespace

ChiOfflineBufferManagerOps* OpenBufferOps(ChiOfflineInterface* /*interface*/) {
    return OpenTable(Fill);
}

} // namespace standin
