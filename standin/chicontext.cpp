/// The vendor's context library: sensor settings and the debug settings block.
#include "platform/chi/context.h"
#include "standin/state.h"

unsigned char g_enableChxLogs[256] = {};

namespace {

/// Tells the control object, when the library is loaded, where the trace bit is.
__attribute__((constructor)) void RegisterTraceByte() {
    standin::Device().Lock()->pTraceByte = &g_enableChxLogs[65];
}

} // namespace

int ChiContextInterface::CreateSensorInitSettings(int& settings, int value) {
    using namespace standin;
    constexpr auto kFill = +[](int* filled, int given) {
        *filled = given;
        return kOk;
    };
    return Recorded<Entry::CreateSensorInitSettings, kFill>::Call(&settings, value);
}
