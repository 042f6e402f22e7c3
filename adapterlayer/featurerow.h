/// One row of the device's feature table, as the maker's configuration store hands it out.
#pragma once

#include "platform/maker/hwconfig.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>

namespace OemLayer {

inline constexpr const char kFeatureTable[] = "OemOfflineFeatureInfoMap";

/// The values are the store's. One behind the row's end counts as absent, and an absent one is an
/// empty text.
class FeatureRow {
  public:
    /// All rows have as many values as the first one.
    FeatureRow()
        : mCount(GetValuesCount(kFeatureTable, "offlineMode[0]")), mTexts(new const char*[mCount]) {
    }

    /// Reads the row of `key`. \returns whether the store had it.
    bool Read(const char* key) {
        std::fill_n(mTexts.get(), mCount, nullptr);
        return GetLocaleStringListConfiguration(kFeatureTable, "offlineMode", key, mTexts.get(),
                                                mCount) == 0;
    }

    const char* Text(size_t index) const {
        return index < mCount && mTexts[index] != nullptr ? mTexts[index] : "";
    }

    /// Both leave `number` alone where the value does not parse.
    void ParseHex(size_t index, uint32_t& number) const { std::sscanf(Text(index), "%x", &number); }
    void ParseDecimal(size_t index, int32_t& number) const {
        std::sscanf(Text(index), "%d", &number);
    }

  private:
    uint32_t mCount;
    std::unique_ptr<const char*[]> mTexts; ///< Never null, also where there are no values.
};

} // namespace OemLayer
