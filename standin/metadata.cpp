/// Metadata objects of the offline library, and their translation to and from Android metadata.
#include "standin/state.h"

namespace standin {
namespace {

void Close(ChiOfflineMetadataOps* ops) { Remove<MetadataOps>(ops); }

/// A new object; null where the table is not open.
ChiMetadataHandle Make(ChiOfflineMetadataOps* ops, const Tags& tags = {}) {
    return Find<MetadataOps>(ops) ? Adopt(std::make_shared<Metadata>(Metadata{tags})) : nullptr;
}

ChiMetadataHandle Create(ChiOfflineMetadataOps* ops, void* /*source*/, uint32_t /*kind*/) {
    return Make(ops);
}

ChiMetadataHandle CreateWithUsage(ChiOfflineMetadataOps* ops, const uint32_t* /*tags*/,
                                  uint32_t /*tagCount*/, int32_t /*usage*/) {
    return Make(ops);
}

uint32_t Destroy(ChiMetadataHandle metadata) { return Remove<Metadata>(metadata) ? kOk : kFailed; }

/// Android metadata that this library did not make is the host's own and makes an empty object.
ChiMetadataHandle CreateFromAndroid(ChiOfflineMetadataOps* ops, const void* android,
                                    uint32_t /*first*/, uint32_t /*second*/, uint32_t /*count*/) {
    const auto source = Find<AndroidMetadata>(android);
    return Make(ops, source ? source->tags : Tags{});
}

void* CreateAndroid(ChiOfflineMetadataOps* ops, ChiMetadataHandle handle, uint32_t /*first*/,
                    uint32_t /*second*/, uint32_t /*count*/, uint32_t* /*out*/) {
    const auto source = Find<Metadata>(handle);
    if (!Find<MetadataOps>(ops) || !source) {
        return nullptr;
    }
    return Adopt(std::make_shared<AndroidMetadata>(AndroidMetadata{source->tags}));
}

uint32_t ReleaseAndroid(ChiOfflineMetadataOps* ops, void* android) {
    return Find<MetadataOps>(ops) && Remove<AndroidMetadata>(android) ? kOk : kFailed;
}

uint32_t GetTag(ChiMetadataHandle handle, uint32_t tagId, uint8_t /*typeId*/,
                ChiMetadataTagEntry* entry) {
    const auto metadata = Find<Metadata>(handle);
    if (!metadata || !metadata->tags.contains(tagId)) {
        return kFailed;
    }
    auto& value = metadata->tags[tagId];
    entry->pData = value.data();
    entry->size = static_cast<uint32_t>(value.size());
    return kOk;
}

/// `count` is in bytes.
uint32_t SetTag(ChiMetadataHandle handle, uint32_t tagId, const void* data, uint32_t count,
                uint32_t /*extra*/) {
    const auto metadata = Find<Metadata>(handle);
    if (!metadata || (data == nullptr && count > 0)) {
        return kFailed;
    }
    const auto* bytes = static_cast<const uint8_t*>(data);
    metadata->tags[tagId].assign(bytes, bytes + count);
    return kOk;
}

uint32_t DeleteTag(ChiMetadataHandle handle, uint32_t tagId) {
    const auto metadata = Find<Metadata>(handle);
    return metadata && metadata->tags.erase(tagId) > 0 ? kOk : kFailed;
}

/// Copies the tags of `second` over those of `first`.
uint32_t Copy(ChiMetadataHandle first, ChiMetadataHandle second, uint8_t /*flag*/) {
    const auto target = Find<Metadata>(first);
    const auto source = Find<Metadata>(second);
    if (!target || !source) {
        return kFailed;
    }
    for (const auto& [tagId, value] : source->tags) {
        target->tags[tagId] = value;
    }
    return kOk;
}

void Fill(SlotList& slots, ChiOfflineMetadataOps& table) {
    Install<Entry::MetadataOpsClose, Close, Close>(slots, table.pClose);
    Install<Entry::MetadataCreate, Create>(slots, table.pCreate);
    Install<Entry::MetadataCreateWithUsage, CreateWithUsage>(slots, table.pCreateWithUsage);
    Install<Entry::MetadataDestroy, Destroy>(slots, table.pDestroy);
    Install<Entry::MetadataCreateFromAndroid, CreateFromAndroid>(slots, table.pCreateFromAndroid);
    Install<Entry::MetadataCreateAndroid, CreateAndroid>(slots, table.pCreateAndroid);
    Install<Entry::MetadataReleaseAndroid, ReleaseAndroid>(slots, table.pReleaseAndroid);
    Install<Entry::MetadataGetTag, GetTag>(slots, table.pGetTag);
    Install<Entry::MetadataSetTag, SetTag>(slots, table.pSetTag);
    Install<Entry::MetadataDeleteTag, DeleteTag>(slots, table.pDeleteTag);
    Install<Entry::MetadataCopy, Copy>(slots, table.pCopy);
}

} // namespace

ChiOfflineMetadataOps* OpenMetadataOps(ChiOfflineInterface* /*interface*/,
                                       ChiMetadataOpsOpenInfo* /*info*/) {
    return OpenTable(Fill);
}

} // namespace standin
