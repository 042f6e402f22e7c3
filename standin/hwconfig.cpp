/// The maker's configuration store. It shows one table, out of a file of the device or by script.
#include "platform/maker/hwconfig.h"
#include "standin/state.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace {

using nlohmann::json;
using standin::Entry;
using Row = standin::Control::ConfigRow;

constexpr const char* kFile = "/odm/etc/camera/offline_features.json";
constexpr const char* kTable = "OemOfflineFeatureInfoMap";
constexpr const char* kList = "offlineMode";
constexpr const char* kExpected =
    R"(expected {"OemOfflineFeatureInfoMap": [{"offlineMode": ["Night", "8", "1f", "3"]}, ...]})";

bool IsRow(const json& row) {
    return row.contains(kList) && row[kList].is_array() &&
           std::all_of(row[kList].begin(), row[kList].end(),
                       [](const json& value) { return value.is_string(); });
}

/// Whether a complete value can stand where it does: the file, the table, or a row of the table.
bool IsRight(const json& value, int depth, bool inTable) {
    if (depth == 0)
        return value.contains(kTable);
    if (depth == 1 && inTable)
        return value.is_array();
    return depth != 2 || !inTable || IsRow(value);
}

/// Parses and checks the file's text. `position` follows, so that a failure can name its line.
json Parse(const std::string& text, size_t& position) {
    using Event = json::parse_event_t;
    std::istringstream stream(text);
    bool inTable = false;
    return json::parse(stream, [&](int depth, Event event, const json& parsed) {
        position = static_cast<size_t>(stream.rdbuf()->pubseekoff(0, std::ios::cur, std::ios::in));
        if (event == Event::key && depth == 1)
            inTable = parsed == kTable;
        const bool isComplete =
            event == Event::value || event == Event::array_end || event == Event::object_end;
        if (isComplete && !IsRight(parsed, depth, inTable))
            throw std::runtime_error(kExpected);
        return true;
    });
}

/// The file's content; nothing, and a line on standard error, if it is missing or malformed.
json Load(const std::string& path) {
    std::ifstream file(path);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    size_t position = 0;
    std::string problem = kExpected;
    try {
        if (!file.is_open())
            throw std::runtime_error(problem);
        return Parse(text, position);
    } catch (const json::parse_error& error) {
        position = error.byte;
        problem += std::string("; ") + error.what();
    } catch (const std::runtime_error&) {
    }
    const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(position, text.size()));
    (void)fprintf(stderr, "%s:%td: %s%s\n", path.c_str(), 1 + std::count(text.begin(), end, '\n'),
                  file.is_open() ? "" : "the file is missing; ", problem.c_str());
    return json::object();
}

/// The rows that hold now. The file is read once for a device root.
std::vector<Row> Rows(std::string_view table) {
    static json content;
    static std::vector<Row> fileRows;
    static unsigned generation = UINT32_MAX;
    const auto device = standin::Device().Lock();
    if (table != kTable)
        return {};
    if (device->script.configRows.has_value())
        return *device->script.configRows;
    if (std::exchange(generation, device->configGeneration) != device->configGeneration) {
        content = Load(device->deviceRoot + kFile);
        fileRows.clear();
        for (const json& row : content[kTable]) {
            auto& values = fileRows.emplace_back().values;
            for (const json& value : row[kList])
                values.push_back(value.get_ref<const std::string&>().c_str());
        }
    }
    return fileRows;
}

uint32_t KeyCount(const char* table) { return static_cast<uint32_t>(Rows(table).size()); }

/// The lists of all keys are known by the key's index.
uint32_t ValuesCount(const char* table, const char* list) {
    const auto rows = Rows(table);
    for (size_t i = 0; i < rows.size(); ++i) {
        if (list == kList + ("[" + std::to_string(i)) + "]")
            return static_cast<uint32_t>(rows[i].values.size());
    }
    return 0;
}

int32_t FillList(const char* table, const char* list, const char* key, const char** values,
                 uint32_t count) {
    const auto rows = Rows(table);
    for (size_t i = 0; i < rows.size() && std::string_view(list) == kList; ++i) {
        if (key != std::to_string(i) || rows[i].fails)
            continue;
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
