/// The maker's hardware configuration store: tables of keys, each with named lists of text values.
///
/// Read-only; may be called from any thread. Texts that it hands out belong to it and stay valid.
#pragma once

#include <cstdint>

extern "C" {

/// Number of keys in `table`; 0 for an unknown table.
uint32_t GetKeyCount(const char* table);

/// Number of values in `list` of `table`; a key's list is named with its index, as in
/// "offlineMode[0]".
uint32_t GetValuesCount(const char* table, const char* list);

/// Fills `values` with up to `count` texts of `list` under `key`. \returns 0 on success.
int32_t GetLocaleStringListConfiguration(const char* table, const char* list, const char* key,
                                         const char** values, uint32_t count);
}
