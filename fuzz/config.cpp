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
#include <list>
#include <optional>
#include <string_view>
#include <vector>

namespace {

using OemLayer::OfflineMapInfo;
using Row = standin::Control::ConfigRow;

// --- What a row must become, written down from what a C library's scanf promises

bool IsBlank(char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

/// The value of a digit, `base` for anything else.
uint64_t DigitOf(char byte, uint64_t base) {
    constexpr std::string_view kDigits = "00112233445566778899aAbBcCdDeEfF";
    return std::min<uint64_t>(kDigits.find(byte) / 2, base);
}

/// The number that a text begins with, as 64 bits that stop at `most`; nothing if there is none.
std::optional<uint64_t> ModelParse(const char* text, uint64_t base, uint64_t most) {
    while (IsBlank(*text)) {
        ++text;
    }
    const bool isNegative = *text == '-';
    text += *text == '-' || *text == '+' ? 1 : 0;
    // "0x" without a digit is read as 0 by some and as nothing by others: both see the 0 here.
    if (base == 16 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        text += DigitOf(text[2], base) < base ? 2 : 0;
    }
    if (DigitOf(*text, base) == base) {
        return std::nullopt;
    }
    uint64_t value = 0;
    bool isTooLarge = false;
    for (; DigitOf(*text, base) < base; ++text) {
        isTooLarge = isTooLarge || __builtin_mul_overflow(value, base, &value) ||
                     __builtin_add_overflow(value, DigitOf(*text, base), &value);
    }
    // What is too large stops at the limit of its sign, which an unsigned number has only one of.
    const uint64_t limit = most + (isNegative && base == 10 ? 1 : 0);
    if (isTooLarge || value > limit) {
        return base == 16 ? most : (isNegative ? 0 - limit : limit);
    }
    return isNegative ? 0 - value : value;
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
        info.opMode =
            static_cast<uint32_t>(ModelParse(text(1), 16, UINT64_MAX).value_or(info.opMode));
        info.featureFlags =
            static_cast<uint32_t>(ModelParse(text(2), 16, UINT64_MAX).value_or(info.featureFlags));
        info.featureValue = static_cast<int32_t>(static_cast<uint32_t>(
            ModelParse(text(3), 10, INT64_MAX).value_or(static_cast<uint32_t>(info.featureValue))));
        infos.push_back(info);
    }
    return infos;
}

OfflineMapInfo ModelFind(const std::vector<OfflineMapInfo>& infos, const std::string& name) {
    for (const OfflineMapInfo& info : infos) {
        if (info.featureName == name) {
            return info;
        }
    }
    return {};
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
    fuzz::HeapWatch heap;
    Run({data, size});
    heap.EndEmpty();
    return 0;
}
