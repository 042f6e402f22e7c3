/// An adapter that is the built one but for one mistake. The environment says which: BROKEN_ADAPTER
/// is "abort 150", "hang 150" or "refuse 150", at the submission of that real-time frame; or
/// "once 150", which refuses in the first of all processes only: there is no file
/// BROKEN_ADAPTER_MARK yet; or "lack 0" or "lack 1", which leaves every second function out.
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

struct Mistake {
    char name[16] = "";
    unsigned number = 0;

    Mistake() { (void)sscanf(getenv("BROKEN_ADAPTER"), "%15s %u", name, &number); }
    bool Is(const char* other) const { return strcmp(name, other) == 0; }
};

/// The functions begin behind so many bytes.
template <class Table> void Lack(Table* table, size_t behind) {
    const Mistake mistake;
    auto* const first = reinterpret_cast<void**>(reinterpret_cast<char*>(table) + behind);
    const size_t functions = (sizeof *table - behind) / sizeof(void*);
    for (size_t i = mistake.number; mistake.Is("lack") && i < functions; i += 2) {
        first[i] = nullptr;
    }
}

uint32_t Submit(PlatFormIntCallbacks* table, void* request, void* privData, void* outputBuffer,
                void* appCallbacks) {
    const Mistake mistake;
    if (static_cast<OemLayer::OfflineDataWraper*>(request)->rtFrameNumber == mistake.number) {
        if (mistake.Is("abort")) {
            abort();
        }
        while (mistake.Is("hang")) {
            pause();
        }
        const char* const mark = mistake.Is("once") ? getenv("BROKEN_ADAPTER_MARK") : nullptr;
        if (mark == nullptr || open(mark, O_CREAT | O_EXCL | O_CLOEXEC, 0600) >= 0) {
            return 4;
        }
    }
    return g_real.SubmitRequestFromRT(table, request, privData, outputBuffer, appCallbacks);
}

} // namespace

void PlatformLoadContext(PlatformLoadFunctions* record) {
    Find<decltype(PlatformLoadContext)>("PlatformLoadContext")(record);
    Lack(record, 0);
}

void PlatformIntContext(PlatFormIntCallbacks* table, uint32_t cameraId) {
    Find<decltype(PlatformIntContext)>("PlatformIntContext")(table, cameraId);
    g_real = *table;
    table->SubmitRequestFromRT = Submit;
    Lack(table, sizeof(void*)); // The camera's number is first.
}
