/// Rows of the maker's configuration store, and what the library makes of them.
///
/// An input is: the number of rows; then for each row a byte that says whether its read fails (1 of
/// 16), the number of its values, and for each value 0 for an absent one, or 1 and its text up to a
/// zero.

#include "adapterlayer/oemlog.h"
#include "adapterlayer/qcomadaptee.h"
#include "fuzz/check.h"
#include "fuzz/heap.h"
#include "standin/control.h"

#include <algorithm>
#include <cstdlib>
#include <list>
#include <vector>

namespace {

using OemLayer::OfflineMapInfo;
using Row = standin::Control::ConfigRow;

// --- What a row must become: a number is what the C library's own conversion finds, 64 bits wide

/// The number that a text begins with; what was there before if there is none.
template <auto Convert, class Number> void ModelParse(const char* text, int base, Number& value) {
    char* end = nullptr;
    const auto found = Convert(text, &end, base);
    value = end != text ? static_cast<Number>(found) : value;
}

std::vector<OfflineMapInfo> ModelRows(const std::vector<Row>& rows) {
    std::vector<OfflineMapInfo> infos;
    OfflineMapInfo info;
    const size_t width = rows.empty() ? 0 : rows[0].values.size(); // All are as wide as the first.
    for (const Row& row : rows) {
        if (row.fails) {
            break;
        }
        const auto text = [&](size_t i) {
            const bool isThere = i < width && i < row.values.size() && row.values[i] != nullptr;
            return isThere ? row.values[i] : "";
        };
        info.featureName = text(0);
        ModelParse<std::strtoul>(text(1), 16, info.opMode);
        ModelParse<std::strtoul>(text(2), 16, info.featureFlags);
        ModelParse<std::strtol>(text(3), 10, info.featureValue);
        infos.push_back(info);
    }
    return infos;
}

OfflineMapInfo ModelFind(const std::vector<OfflineMapInfo>& infos, const std::string& name) {
    const auto found = std::find_if(infos.begin(), infos.end(),
                                    [&name](const auto& info) { return info.featureName == name; });
    return found != infos.end() ? *found : OfflineMapInfo();
}

// --- The input

std::vector<Row> ReadRows(fuzz::Input& input, std::list<std::string>& texts) {
    std::vector<Row> rows(input.Below(12));
    for (Row& row : rows) {
        row.fails = input.Below(16) == 1;
        row.values.resize(input.Below(8));
        for (const char*& value : row.values) {
            value = input.Flag() ? texts.emplace_back(input.Text(64)).c_str() : nullptr;
        }
    }
    return rows;
}

void ExpectSame(const OfflineMapInfo& actual, const OfflineMapInfo& expected) {
    fuzz::Check(actual.featureName == expected.featureName, "another feature");
    fuzz::Expect("the operation mode", actual.opMode, expected.opMode);
    fuzz::Expect("the flags", actual.featureFlags, expected.featureFlags);
    fuzz::Expect("the value", actual.featureValue, expected.featureValue);
}

void Run(fuzz::Input input) {
    std::list<std::string> texts;
    const std::vector<Row> rows = ReadRows(input, texts);
    StandinControl()->SetConfigRows(rows);
    OemLayer::QcomAdaptee* adaptee = OemLayer::QcomAdaptee::Create(nullptr, 3);
    const std::vector<OfflineMapInfo> expected = ModelRows(rows);
    const std::vector<OfflineMapInfo> actual = adaptee->GetOfflineMapInfoByConfig();
    fuzz::Expect("the number of rows", actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i) {
        ExpectSame(actual[i], expected[i]);
    }
    texts.emplace_back(input.Text(64));
    for (const std::string& name : texts) {
        ExpectSame(adaptee->FindOfflineInfo(name), ModelFind(expected, name));
    }
    adaptee->Destroy();
    StandinControl()->Reset();
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    StandinControl()->SetRecording(false);
    fuzz::ExpectNothingLeftBy([&] { Run({data, size}); });
    return 0;
}
