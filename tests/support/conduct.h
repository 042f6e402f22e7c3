/// Rows in which rules of the contract are seen failing, and a vendor's conduct as mere events.
#pragma once

#include "contract/engine.h"
#include "contract/tap.h"
#include "tests/support/device.h"

#include <set>
#include <thread>

namespace test {

using standin::Rule;
using Names = std::vector<std::pair<const char*, const void*>>; ///< Of handles and addresses.

/// A rule, calls that show it broken, what the violation then says, and what is changed before.
/// Where it says nothing, the rule holds: what is nearly wrong is not.
template <class Side> struct Row {
    Rule rule;
    const char* calls;
    const char* values;
    void (*change)(Side& side) = [](Side&) {};
};
constexpr const char* kHolds = nullptr;

/// The violation's parts are what its text says.
inline void ExpectParts(const contract::Violation& found) {
    std::string text = found.text;
    std::erase(text, '\''); // Around a text.
    const bool hasBoth = text.find(" is ") != text.npos && text.find(" and must be ") != text.npos;
    EXPECT_TRUE(!hasBoth ||
                (text.find(" is " + found.got) != text.npos &&
                 text.ends_with(" and must be " + found.expected) && !found.expected.empty()))
        << text << ": got '" << found.got << "', expected '" << found.expected << "'";
    EXPECT_TRUE(!text.starts_with("camera ") ||
                (found.camera == 0U &&
                 text.starts_with("camera 0, frame " + std::to_string(*found.request) + ": ")))
        << text;
    EXPECT_EQ(found.entry == nullptr, text.starts_with("at the end: ")) << text;
}

/// The rule's violation is the only one. It shows handles and addresses by their names.
template <class Side>
void ExpectViolation(const Row<Side>& row, const std::string& where, const Names& names) {
    Texts violations = StandinControl()->Violations();
    for (const auto& [name, address] : names) {
        for (std::string& violation : violations) {
            violation = WithName(violation, address, name);
        }
    }
    const contract::RuleText& text = contract::TextOf(row.rule);
    Texts expected;
    if (row.values != kHolds) {
        expected = {Printed("%s %s: %s%s", text.number, text.name, where.c_str(), row.values)};
    }
    EXPECT_EQ(violations, expected) << text.number << ' ' << row.calls;
    for (const contract::Violation& found : StandinControl()->FoundViolations()) {
        ExpectParts(found);
    }
}

/// A vendor, and what it does, as events alone.
struct Conduct {
    Device device;
    contract::Tap& tap;
    ChiStream output = {.width = 64, .height = 32, .format = 35, .reserved152 = -1};
    ChiStream other = {.width = 32, .height = 32, .format = 35, .reserved152 = -1};
    ChiStream* list[1] = {&output};
    ChiOfflineSessionCallbacks callbacks = {.ProcessCaptureResultCb = [](auto...) {},
                                            .ProcessNotifyCb = [](auto...) {},
                                            .GetFrameworkBuffers = [](auto...) { return 0U; }};
    ChiOfflineSessionCallbacks others = callbacks;
    const ChiOfflineSessionCallbacks* pCaller = &callbacks;
    uint64_t session = 77;
    ChiOfflineSessionCreateInfo createInfo = {"Night", 0, &callbacks};
    ChiOfflineSessionCreateInfo* pCreateInfo = &createInfo;
    ChiOfflineSessionConfigInfo config = {
        .pCameraText = "0", .numStreams = 1, .ppChiStreams = list};
    ChiMetadataOpsOpenInfo openInfo = {0, 1, 0, 1};
    ChiMetadataOpsOpenInfo* pOpenInfo = &openInfo;
    ChiOfflineMetadataOps ops{};
    void* source = nullptr;
    uint32_t words[3] = {0, 0, UINT32_MAX};
    uint64_t lastMetadata = 0x100;
    ChiStreamBuffer buffer = {.size = sizeof buffer, .pStream = &output, .bufferHandle = this};
    ChiStreamBuffer brought = buffer;
    ChiOfflineBufferSet inputSet{};
    ChiOfflineBufferSet outputSet = {.numBuffers = 1, .pBuffers = &buffer};
    int32_t preset = -1;
    int32_t frame = -1;
    uint32_t lastFrame = 0;
    int32_t written = 5;
    ChiOfflineExecuteRequest request = {.pInputs = &inputSet,
                                        .pOutput = &outputSet,
                                        .pPrivateData = this,
                                        .pOfflineFrameNumber = &frame,
                                        .pLastFrameField = &lastFrame};
    ChiOfflineExecuteRequest* pRequest = &request;
    ChiOfflineResultBlock block = {.numBuffers = 1, .pBuffers = &brought};
    ChiOfflineResultBlock secondBlock{};
    ChiOfflineCaptureResultInfo info = {.frameNumber = 5, .pResult = &block, .pPrivateData = this};
    ChiOfflineQueryBuffer query = {AsStream(&output), 1};
    ChiStreamBuffer lent = {.pStream = &output, .bufferHandle = &lent};
    std::function<void()> act = [] {};

    /// \param into takes the events instead of the device's tap.
    explicit Conduct(contract::Tap* into = nullptr)
        : tap(into != nullptr ? *into : *device->Feed()) {
        device.ExpectLeftovers();
    }
    static camera3_stream* AsStream(ChiStream* stream) {
        return reinterpret_cast<camera3_stream*>(stream);
    }
    static void ProvideSettings(Conduct& vendor) {
        vendor.ops.pCreateFromAndroid = [](auto...) { return ChiMetadataHandle(); };
    }
    static void PresetsFive(Conduct& vendor) {
        vendor.act = [&vendor] { vendor.preset = 5; };
    }
    static void ListsOther(Conduct& vendor) {
        vendor.act = [&vendor] { vendor.list[0] = &vendor.other; };
    }
    static void LeaveSetWithoutMetadata(Conduct& vendor) { vendor.request.numInputs = 1; }

    /// o opens the session, c configures it, e executes a request, x closes the session, t opens
    /// metadata operations, m makes metadata with them, u some with usage, a some from Android's.
    /// A large letter is such a call that the vendor refuses, and what follows some in parentheses
    /// happens within. r delivers the result, p the same with a partial to come, q asks the
    /// framework for a buffer and gets `lent`, 2 goes on with another session and 1 with the first,
    /// ! does what the row says, & has another thread do what follows.
    void Play(std::string_view calls) {
        for (size_t i = 0; i < calls.size(); ++i) {
            const char call = calls[i];
            const char what = static_cast<char>(std::tolower(call));
            std::string_view within;
            if (calls.substr(i + 1, 1) == "(") {
                const size_t end = calls.find(')', i);
                within = calls.substr(i + 2, end - i - 2);
                i = end;
            }
            if (call == '!') {
                act();
            } else if (call == '&') {
                std::thread([&] { Play(calls.substr(++i, 1)); }).join();
            } else if (call == '1' || call == '2') {
                session = call == '1' ? 77 : 78;
                pCaller = createInfo.pCallbacks = call == '1' ? &callbacks : &others;
            } else if (std::strchr("rpq", what) != nullptr) {
                CallBack(what);
            } else if (std::strchr("tmua", what) != nullptr) {
                MakeMetadata(what, call == what);
            } else {
                CallSession(what, call == what, within);
            }
        }
    }
    void CallSession(char call, bool works, std::string_view within) {
        using contract::Entry;
        const auto answer = [&] { return Play(within), works ? 0 : 1; };
        if (call == 'o') {
            const auto open = [&] { return Play(within), works ? session : uint64_t{0}; };
            tap.Around<Entry::OpenSession>(open, kNone, pCreateInfo);
        } else if (call == 'c') {
            tap.Around<Entry::ConfigureStreams>(answer, session, &config);
        } else if (call == 'x') {
            tap.Around<Entry::CloseSession>(answer, session);
        } else {
            frame = preset;
            const auto execute = [&] {
                frame = written;
                lastFrame += written > 0 ? 1 : 0;
                return answer();
            };
            tap.Around<Entry::ExecuteRequest>(execute, session, pRequest);
        }
    }
    void MakeMetadata(char call, bool works) {
        using contract::Entry;
        const auto make = [&] { return works ? MadeUp(++lastMetadata) : nullptr; };
        if (call == 't') {
            tap.Around<Entry::OpenMetadataOps>([&] { return works ? &ops : nullptr; }, kNone,
                                               pOpenInfo);
        } else if (call == 'm') {
            tap.Around<Entry::MetadataCreate>([] { return MadeUp(0x4D); }, &ops, source, 0U);
        } else if (call == 'u') {
            tap.Around<Entry::MetadataCreateWithUsage>(
                make, &ops, static_cast<const uint32_t*>(nullptr), 0U, 0);
        } else {
            tap.Around<Entry::MetadataCreateFromAndroid>(
                make, &ops, static_cast<const void*>(nullptr), words[0], words[1], words[2]);
        }
    }
    void CallBack(char call) {
        using contract::Entry;
        if (call == 'q') {
            unsigned int returned = 1;
            ChiOfflineQueryStreamBuffer answer = {query.pStream, 0, 1, &lent};
            tap.Around<Entry::GetFrameworkBuffers>(
                [] { return 0U; }, pCaller, 1U, static_cast<const ChiOfflineQueryBuffer*>(&query),
                &returned, &answer);
        } else {
            block.numPartialMetadata = call == 'p' ? 1 : 0;
            tap.Around<Entry::ProcessCaptureResult>([] {}, pCaller, 1U, &info);
        }
    }
    static constexpr ChiOfflineInterface* kNone = nullptr;
};

/// Each rule whose number has one of these letters is seen failing in one of the rows.
template <class... Rows> void ExpectARowForEach(const std::string& letters, const Rows&... rows) {
    std::set<Rule> seen;
    const auto add = [&seen](const auto& some) {
        for (const auto& row : some) {
            if (row.values != kHolds) {
                seen.insert(row.rule);
            }
        }
    };
    (add(rows), ...);
    for (size_t i = 0; i < contract::kRules.size(); ++i) {
        const bool isMeant = letters.find(contract::kRules[i].number[0]) != letters.npos;
        EXPECT_TRUE(!isMeant || seen.contains(static_cast<Rule>(i))) << contract::kRules[i].number;
    }
}

} // namespace test
