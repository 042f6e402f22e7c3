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

/// Tells the control object, when the library is loaded, where the trace bit is.
__attribute__((constructor)) void RegisterTraceByte() {
    standin::Device().Lock()->pTraceByte = &g_enableChxLogs[kTraceByte];
}

} // namespace

int ChiContextInterface::CreateSensorInitSettings(int& settings, int value) {
    return standin::Recorded<standin::Entry::CreateSensorInitSettings, FillSettings>::Call(
        &settings, value);
}
