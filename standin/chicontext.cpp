/// The vendor's context library: sensor settings and the debug settings block.
#include "platform/chi/context.h"
#include "standin/state.h"

namespace {

constexpr size_t kSettingsSize = 256;
constexpr size_t kTraceByte = 65;

int FillSettings(int* settings, int value) {
    *settings = value;
    return standin::kOk;
}

} // namespace

unsigned char g_enableChxLogs[kSettingsSize] = {};

namespace {
[[maybe_unused]] const bool kIsRegistered = [] {
    standin::Device().Lock()->pTraceByte = &g_enableChxLogs[kTraceByte];
    return true;
}();
} // namespace

int ChiContextInterface::CreateSensorInitSettings(int& settings, int value) {
    return standin::Recorded<standin::Entry::CreateSensorInitSettings, FillSettings>::Call(
        &settings, value);
}
