/// The layers between host, adapter and vendor: what passes is what would without them, and all of
/// it is recorded.

#include "contract/recording.h"
#include "host/run.h"
#include "kit/layers.h"
#include "tests/support/scene.h"

namespace {

using namespace test;
using contract::Recording;
using Called = contract::Entry;

const Folder g_folder;
const std::string g_file = g_folder / "recording"; // NOLINT(cert-err58-cpp)

// --- What passes --------------------------------------------------------------------------------

class Scenarios : public testing::TestWithParam<std::string> {};

TEST_P(Scenarios, ComeTrueThroughBothLayers) {
    const host::Scenario scenario =
        host::Scenario::Read(std::string(SCENARIOS "/") + GetParam() + ".json");
    const kit::Layers layers(kit::AdapterFile(true), {.record = g_file, .mebibytes = 8});
    const auto run = [&] {
        host::Run run(scenario, layers.AdapterFile());
        run.Go();
        EXPECT_EQ(run.Judge().unfulfilled, Texts());
    };
    if (scenario.expect.abort) {
        EXPECT_EXIT(run(), testing::KilledBySignal(SIGABRT), "");
        return;
    }
    run();
    const Recording recording = Recording::Read(g_file);
    EXPECT_EQ(recording.Damage(), "");
    size_t open = 0;
    for (const contract::Event& event : recording.Events()) {
        open += event.IsCall() ? 1 : -1;
    }
    EXPECT_EQ(recording.CountLost() == 0 ? open : 0, 0U);
}

std::vector<std::string> AllScenarios() {
    std::vector<std::string> files;
    for (const auto& file : std::filesystem::directory_iterator(SCENARIOS)) {
        files.push_back(file.path().stem());
    }
    return files;
}
INSTANTIATE_TEST_SUITE_P(Layers, Scenarios, testing::ValuesIn(AllScenarios()),
                         [](const auto& info) {
                             std::string name = info.param;
                             std::erase(name, '-');
                             return name;
                         });

} // namespace
