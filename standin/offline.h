/// The parts of the offline library.
#pragma once

#include "standin/state.h"

namespace standin {

ChiOfflineMetadataOps* OpenMetadataOps(ChiOfflineInterface*, ChiMetadataOpsOpenInfo* info);
ChiOfflineBufferManagerOps* OpenBufferOps(ChiOfflineInterface*);
void* OpenContext(void* unused, uint32_t version);

template <class Record> Record* OpenTable(void (*fill)(SlotList&, Record&)) {
    const auto table = std::make_shared<Table<Record>>(fill);
    Device().Lock()->template Of<Table<Record>>().emplace(Word(&table->record), table);
    return &table->record;
}

} // namespace standin
