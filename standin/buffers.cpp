/// Buffer managers and image buffers of the offline library. The adapter passes on the null manager
/// that a failed create left, so that null is taken in silence.
#include "standin/pixels.h"
#include "standin/state.h"

namespace standin {
namespace {

void Close(ChiOfflineBufferManagerOps* ops) { Remove<BufferOps>(ops); }

ChiBufferManagerHandle Create(ChiOfflineBufferManagerOps* ops, const char* name,
                              const ChiBufferManagerCreateData* data) {
    if (!Require<BufferOps>(ops) || !Check(Rule::ManagerRecord, name != nullptr && data != nullptr,
                                           "the name or the create record is null")) {
        return nullptr;
    }
    Expect(Rule::ManagerRecord, "the word at 16", data->reserved16, uint64_t{0x40002});
    Expect(Rule::ManagerRecord, "the word at 24", data->reserved24, uint64_t{0x20022});
    Expect(Rule::ManagerRecord, "the word at 40", data->reserved40, 32U);
    Expect(Rule::ManagerRecord, "the word at 48", data->reserved48, 1U);
    Expect(Rule::ManagerRecord, "the word at 52", data->reserved52, 5U);
    Expect(Rule::ManagerRecord, "a word at 12, 32, 36 or 44",
           data->reserved12 | data->reserved32 | data->reserved36 | data->reserved44, 0U);
    return Adopt(std::make_shared<BufferManager>(BufferManager{*data}));
}

/// Image buffers that outlive their manager are freed with it, against the contract.
void Destroy(ChiBufferManagerHandle manager) {
    if (manager == nullptr) {
        return;
    }
    Remove<BufferManager>(manager);
    const size_t left =
        std::erase_if(Device().Lock()->Of<ImageBuffer>(), [manager](const auto& image) {
            return image.second->manager == Word(manager);
        });
    Expect(Rule::ImageReleased, "the number of image buffers left", left, size_t{0});
}

/// Null also for an image that is too large for this device.
ChiImageBufferHandle GetImageBuffer(ChiBufferManagerHandle manager) {
    const auto owner = manager == nullptr ? nullptr : Require<BufferManager>(manager);
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
    const auto image = Require<ImageBuffer>(handle);
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
