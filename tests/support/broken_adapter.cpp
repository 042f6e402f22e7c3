/// An adapter that is the built one but for one mistake, at the submission of one real-time frame.
/// The environment says which: BROKEN_ADAPTER is "abort 150", "hang 150", "refuse 150" or "once 150",
/// which refuses in the first of all processes only: there is no file BROKEN_ADAPTER_MARK yet.
#include "adapterlayer/oemlayer_host.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

PlatFormIntCallbacks g_real;

template <class Function> Function* Find(const char* symbol) {
    static void* const adapter = dlopen(getenv("REAL_ADAPTER"), RTLD_NOW);
    return reinterpret_cast<Function*>(dlsym(adapter, symbol));
}

uint32_t Submit(PlatFormIntCallbacks* table, void* request, void* privData, void* outputBuffer,
                void* appCallbacks) {
    char mistake[16] = "";
    unsigned frame = 0;
    (void)sscanf(getenv("BROKEN_ADAPTER"), "%15s %u", mistake, &frame);
    if (static_cast<OemLayer::OfflineDataWraper*>(request)->rtFrameNumber == frame) {
        if (strcmp(mistake, "abort") == 0) {
            abort();
        }
        while (strcmp(mistake, "hang") == 0) {
            pause();
        }
        const bool isOnce = strcmp(mistake, "once") == 0;
        if (!isOnce ||
            open(getenv("BROKEN_ADAPTER_MARK"), O_CREAT | O_EXCL | O_CLOEXEC, 0600) >= 0) {
            return 4;
        }
    }
    return g_real.SubmitRequestFromRT(table, request, privData, outputBuffer, appCallbacks);
}

} // namespace

void PlatformLoadContext(PlatformLoadFunctions* record) {
    Find<decltype(PlatformLoadContext)>("PlatformLoadContext")(record);
}

void PlatformIntContext(PlatFormIntCallbacks* table, uint32_t cameraId) {
    Find<decltype(PlatformIntContext)>("PlatformIntContext")(table, cameraId);
    g_real = *table;
    table->SubmitRequestFromRT = Submit;
}
