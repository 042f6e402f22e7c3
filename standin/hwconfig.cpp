/// The maker's configuration store. It shows one table, out of a file of the device or by script.
#include "platform/maker/hwconfig.h"
#include "standin/located_json.h"
#include "standin/state.h"

#include <algorithm>
#include <cstdio>
#include <list>

namespace {

using standin::Entry;
using Row = standin::Control::ConfigRow;

constexpr const char* kFile = "/odm/etc/camera/offline_features.json";
constexpr const char* kTable = "OemOfflineFeatureInfoMap";
constexpr const char* kList = "offlineMode";
constexpr const char* kExpected =
    R"(expected {"OemOfflineFeatureInfoMap": [{"offlineMode": ["Night", "8", "1f", "3"]}, ...]})";

/// The rows of the file. Nothing, and a line on standard error, if it is missing or malformed.
std::vector<Row> Load(const std::string& path) try {
    static std::list<std::string> texts; // The rows point at them.
    std::vector<Row> rows;
    for (const standin::Located& row : standin::Located::Read(path)[kTable].Items()) {
        auto& values = rows.emplace_back().values;
        for (const standin::Located& value : row[kList].Items()) {
            values.push_back(texts.emplace_back(value.Text()).c_str());
        }
    }
    return rows;
} catch (const standin::InputError& error) {
    (void)fprintf(stderr, "%s; %s\n", error.what(), kExpected);
    return {};
}

/// The rows that hold now. The file is read once.
std::vector<Row> Rows(std::string_view table) {
    const auto device = standin::Device().Lock();
    if (table != kTable) {
        return {};
    }
    if (device->script.configRows.has_value()) {
        return *device->script.configRows;
    }
    static const std::vector<Row> fileRows = Load(device->deviceRoot + kFile);
    return fileRows;
}

uint32_t KeyCount(const char* table) { return static_cast<uint32_t>(Rows(table).size()); }

/// The lists of all keys are known by the key's index.
uint32_t ValuesCount(const char* table, const char* list) {
    const auto rows = Rows(table);
    for (size_t i = 0; i < rows.size(); ++i) {
        if (list == kList + ("[" + std::to_string(i)) + "]") {
            return static_cast<uint32_t>(rows[i].values.size());
        }
    }
    return 0;
}

int32_t FillList(const char* table, const char* list, const char* key, const char** values,
                 uint32_t count) {
    const auto rows = Rows(table);
    for (size_t i = 0; i < rows.size() && std::string_view(list) == kList; ++i) {
        if (key != std::to_string(i) || rows[i].fails) {
            continue;
        }
        std::copy_n(rows[i].values.begin(), std::min<size_t>(count, rows[i].values.size()), values);
        return standin::kOk;
    }
    return standin::kFailed;
}

} // namespace

uint32_t GetKeyCount(const char* table) {
    return standin::Recorded<Entry::GetKeyCount, KeyCount>::Call(table);
}

uint32_t GetValuesCount(const char* table, const char* list) {
    return standin::Recorded<Entry::GetValuesCount, ValuesCount>::Call(table, list);
}

int32_t GetLocaleStringListConfiguration(const char* table, const char* list, const char* key,
                                         const char** values, uint32_t count) {
    return standin::Recorded<Entry::GetList, FillList>::Call(table, list, key, values, count);
}
