/// One row of the device's feature table, as the maker's configuration store hands it out.
#pragma once

#include "platform/maker/hwconfig.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace OemLayer {

inline constexpr const char kFeatureTable[] = "OemOfflineFeatureInfoMap";

/// The values are the store's. One behind the row's end counts as absent, and an absent one is an
/// empty text.
class FeatureRow {
  public:
    /// All rows have as many values as the first one.
    FeatureRow() : mTexts(GetValuesCount(kFeatureTable, "offlineMode[0]")) {}

    /// Reads the row of `key`. \returns whether the store had it.
    bool Read(const char* key) {
        std::fill(mTexts.begin(), mTexts.end(), nullptr);
        return GetLocaleStringListConfiguration(kFeatureTable, "offlineMode", key, mTexts.data(),
                                                static_cast<uint32_t>(mTexts.size())) == 0;
    }

    const char* Text(size_t index) const {
        return index < mTexts.size() && mTexts[index] != nullptr ? mTexts[index] : "";
    }

    /// Both leave `number` alone where the value does not parse.
    void ParseHex(size_t index, uint32_t& number) const { std::sscanf(Text(index), "%x", &number); }
    void ParseDecimal(size_t index, int32_t& number) const {
        std::sscanf(Text(index), "%d", &number);
    }

  private:
    std::vector<const char*> mTexts;
};

} // namespace OemLayer
