/// The library's boundary: logging, binding of the vendor's libraries, the per-camera adapter, the
/// callback table and the two exported entry points, in the order in which each builds on the one
/// before.

#include "adapterlayer/platformadapter.h"

#include "adapterlayer/oemlog.h"
#include "adapterlayer/qcomadaptee.h"
#include "adapterlayer/sync.h"
#include "platform/chi/context.h"
#include "platform/chi/modules.h"
#include "platform/maker/zlog.h"

#include <android/log.h>
#include <cutils/trace.h>

#include <csignal>
#include <cstdio>
#include <dlfcn.h>

// --- Logging and formatting ----------------------------------------------------------------------

#ifndef OEMLAYER_LOG_LEVEL
#define OEMLAYER_LOG_LEVEL 0 // 0 none, 1 error, 2 warn, 3 info, 4 verbose
#endif

namespace OemLayer {

uint32_t g_logErrorEnabled = OEMLAYER_LOG_LEVEL >= 1;
uint32_t g_logWarnEnabled = OEMLAYER_LOG_LEVEL >= 2;
uint32_t g_logInfoEnabled = OEMLAYER_LOG_LEVEL >= 3;
uint32_t g_logVerboseEnabled = OEMLAYER_LOG_LEVEL >= 4;

const char* ZGetFileName(const char* path) {
    const char* name = path;
    for (const char* at = path; *at != '\0'; ++at) {
        if (*at == '/') {
            name = at + 1;
        }
    }
    return name;
}

namespace {

constexpr size_t kLineSize = 512;

__attribute__((format(printf, 2, 0))) void WriteLine(android_LogPriority priority, const char* fmt,
                                                     va_list args) {
    char line[kLineSize] = {};
    std::vsnprintf(line, sizeof(line), fmt, args);
    __android_log_write(priority, "CamZ", line);
}

} // namespace

void ZLogE(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    WriteLine(ANDROID_LOG_ERROR, fmt, args);
    va_end(args);
}

void ZLogW(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    WriteLine(ANDROID_LOG_WARN, fmt, args);
    va_end(args);
}

void ZLogI(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    WriteLine(ANDROID_LOG_INFO, fmt, args);
    va_end(args);
}

void ZLogV(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    WriteLine(ANDROID_LOG_VERBOSE, fmt, args);
    va_end(args);
}

} // namespace OemLayer

namespace CdkUtils {

int SNPrintF(char* buffer, size_t size, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int length = VSNPrintF(buffer, size, fmt, args);
    va_end(args);
    return length;
}

int VSNPrintF(char* buffer, size_t size, const char* fmt, va_list args) {
    const int length = std::vsnprintf(buffer, size, fmt, args);
    // Compared as signed ints, so that a size above INT_MAX counts as too small.
    const bool cut = length >= static_cast<int>(size) && size != 0;
    return cut ? -1 : length;
}

} // namespace CdkUtils

namespace OemLayer {

// --- Binding of the vendor's and the device's libraries ------------------------------------------

namespace {

constexpr const char kOfflineLibPath[] = "/vendor/lib64/hw/com.qti.chi.offline.so";
constexpr const char kCamxLibPath[] = "/vendor/lib64/hw/camera.qcom.so";
constexpr const char kUtilsLibPath[] = "/vendor/lib64/libcamxcommonutils.so";
constexpr const char kExtensionLibPath[] = "/odm/lib64/libextensionlayer.so";

// Written by `LoadLib` alone, on the loading thread, before any camera exists.
ChiOfflineInterface* g_pOfflineContext;
VeltoSetCallbackFn g_pSetNCSCallback;
VeltoSetCallbackFn g_pSetHWCallback;
VeltoSetCallbackFn g_pSetPerfCallback;
ZOfflineLogOps g_offlineLogOps;
void* g_offlineLoggerLibHandle;
EnumerateSensorModesFn pEnumerateSensorModesCb;
ExtensionProcessResultMetaFn pExtensionProcessResultMetaCb;
void* g_camxLibHandle;
void* g_extensionLibHandle;

/// A symbol of an opened library, null where the library or the symbol is missing.
template <typename Function> Function LookUp(void* library, const char* symbol) {
    return library != nullptr ? reinterpret_cast<Function>(dlsym(library, symbol)) : nullptr;
}

void* GetCamxLibHandle() {
    if (g_camxLibHandle == nullptr) {
        g_camxLibHandle = dlopen(kCamxLibPath, RTLD_NOW);
    }
    if (g_camxLibHandle == nullptr) {
        OEM_LOG_ERROR("%s: dlopen camera.qcom.so failed!", __func__);
        raise(SIGABRT);
    }
    return g_camxLibHandle;
}

void* GetExtensionLibHandle() {
    if (g_extensionLibHandle == nullptr) {
        g_extensionLibHandle = dlopen(kExtensionLibPath, RTLD_NOW);
    }
    if (g_extensionLibHandle == nullptr) {
        // The message names the camera module although the extension library is missing. Log
        // readers know it by this text; the function's name tells the two apart.
        OEM_LOG_ERROR("%s: dlopen camera.qcom.so failed!", __func__);
        raise(SIGABRT);
    }
    return g_extensionLibHandle;
}

/// Opens the vendor's offline context. A device without it still has its other camera functions, so
/// that a missing library or symbol is no error and is not even logged.
void LoadOfflineLib() {
    OEM_LOG_INFO("Load Offline Camera interfaces");
    void* library = dlopen(kOfflineLibPath, RTLD_NOW);
    const auto openContext = LookUp<ChiOfflineOpenContextFn>(library, "ChiOfflineOpenContext");
    if (openContext == nullptr) {
        return;
    }
    constexpr uint32_t kOpenArgument = 512;
    g_pOfflineContext = static_cast<ChiOfflineInterface*>(openContext(nullptr, kOpenArgument));
    const bool opened = g_pOfflineContext != nullptr;
    OEM_LOG_INFO("OfflineCameraContext %p, size:%d, name:%s", g_pOfflineContext,
                 opened ? g_pOfflineContext->size : 0,
                 opened ? PrintableText(g_pOfflineContext->pName) : "(null)");
}

/// Binds the camera module's three callback setters. A missing one is logged; its getter returns
/// null.
void LoadVeltoCallbackInt() {
    OEM_LOG_INFO("Velto Calllback interfaces");
    void* library = GetCamxLibHandle();
    g_pSetNCSCallback = LookUp<VeltoSetCallbackFn>(library, "SetVeltoNCSCallback");
    if (g_pSetNCSCallback == nullptr) {
        OEM_LOG_ERROR("%s: NCSCallback dlsym failed!", __func__);
    }
    g_pSetHWCallback = LookUp<VeltoSetCallbackFn>(library, "SetVeltoHWCallback");
    if (g_pSetHWCallback == nullptr) {
        OEM_LOG_ERROR("%s: HWCallback dlsym failed!", __func__);
    }
    g_pSetPerfCallback = LookUp<VeltoSetCallbackFn>(library, "SetVeltoPerfCallback");
    if (g_pSetPerfCallback == nullptr) {
        OEM_LOG_ERROR("%s: PerfCallback dlsym failed!", __func__);
    }
}

/// Hands the vendor's offline logger to the maker's logging library. Offline logging is optional.
void LoadOfflineLoggerLib() {
    g_offlineLoggerLibHandle = dlopen(kUtilsLibPath, RTLD_NOW);
    if (g_offlineLoggerLibHandle == nullptr) {
        OEM_LOG_ERROR("dlopen /vendor/lib64/libcamxcommonutils.so failed.");
        return;
    }
    const auto logEntry =
        LookUp<ChiOfflineLogEntryFn>(g_offlineLoggerLibHandle, "ChiOfflineLogEntry");
    if (logEntry == nullptr) {
        OEM_LOG_ERROR("dlsym ChiOfflineLogEntry failed.");
        return;
    }
    logEntry(&g_offlineLogOps);
    ZLog::SetOfflineLoggerOps(&g_offlineLogOps);
}

/// What a function returns that goes on after it raised SIGABRT, where the host ignores the signal.
constexpr uint32_t kAfterAbort = 1;

/// Binds the two functions that the device cannot do without.
void* LoadCamxFunc() {
    pEnumerateSensorModesCb =
        LookUp<EnumerateSensorModesFn>(GetCamxLibHandle(), "OemEnumerateSensorModes");
    if (pEnumerateSensorModesCb == nullptr) {
        OEM_LOG_ERROR("%s: OemEnumerateSensorModes dlsym failed!", __func__);
        raise(SIGABRT);
    }
    pExtensionProcessResultMetaCb =
        LookUp<ExtensionProcessResultMetaFn>(GetExtensionLibHandle(), "ExtensionProcessResultMeta");
    if (pExtensionProcessResultMetaCb == nullptr) {
        OEM_LOG_ERROR("%s: ExtensionProcessResultMeta dlsym failed!", __func__);
        raise(SIGABRT);
        return reinterpret_cast<void*>(static_cast<uintptr_t>(kAfterAbort));
    }
    return reinterpret_cast<void*>(pExtensionProcessResultMetaCb);
}

/// A place for checks of the bound platform; there are none.
void ValidatePlatformEnv() {}

void* LoadLib() {
    LoadOfflineLib();
    LoadVeltoCallbackInt();
    LoadOfflineLoggerLib();
    void* extension = LoadCamxFunc();
    ValidatePlatformEnv();
    return extension;
}

/// The host's log map has no effect here: levels are set when the library is built.
void LogMap(int, char*, char*) {}

} // namespace

// --- The adapter of one camera -------------------------------------------------------------------

PlatformAdapter::PlatformAdapter(uint32_t cameraId)
    : m_pAdaptee(QcomAdaptee::Create(g_pOfflineContext, cameraId)),
      m_pMetaAdaptee(m_pAdaptee->GetChiOfflineMetadataOps()),
      m_pBufferAdaptee(m_pAdaptee->GetChiOfflineBufferManagerOps()),
      m_pIntfOps(m_pAdaptee->GetChiOfflineIntfOps()) {
    OEM_LOG_INFO("meta adpatee %p buffer adaptee %p", m_pMetaAdaptee, m_pBufferAdaptee);
}

/// Buffer managers that are still listed are not destroyed here: that is `TearDownResource`.
PlatformAdapter::~PlatformAdapter() {
    if (m_pAdaptee != nullptr) {
        m_pAdaptee->Destroy();
        m_pAdaptee = nullptr;
    }
}

int64_t PlatformAdapter::Destroy(PlatformAdapter* adapter) {
    OEM_LOG_INFO("Adapter destroy");
    adapter->TearDownResource();
    delete adapter;
    return 0;
}

void PlatformAdapter::Flush() {
    OEM_LOG_INFO("Adapter Flush");
    if (m_pAdaptee != nullptr) {
        m_pAdaptee->Flush();
    }
}

namespace {

constexpr uint64_t kTraceTag = ATRACE_TAG_CAMERA | ATRACE_TAG_HAL;

/// The vendor's own switch for trace points; it can change at any time.
bool TracePointsEnabled() {
    constexpr size_t kTraceByte = 65;
    constexpr unsigned kTraceBit = 1U << 6;
    return (LoadRelaxed(g_enableChxLogs[kTraceByte]) & kTraceBit) != 0;
}

void BeginTrace(const char* operation) {
    char name[512] = {};
    CdkUtils::SNPrintF(name, sizeof(name), "PlatformAdapter_%s", operation);
    atrace_begin(kTraceTag, name);
}

} // namespace

void PlatformAdapter::TearDownResource() {
    if (TracePointsEnabled()) {
        BeginTrace(__func__);
    }
    if (m_pBufferAdaptee != nullptr) {
        for (const auto& [stream, manager] : m_streamBufferManagers) {
            if (m_pBufferAdaptee->pDestroy != nullptr) {
                m_pBufferAdaptee->pDestroy(manager);
            }
        }
        m_streamBufferManagers.clear();
    }
    // Asked again: a section that was opened stays open when the switch goes off in between.
    if (TracePointsEnabled()) {
        atrace_end(kTraceTag);
    }
}

// --- Metadata and buffers, forwarded to the vendor's operation records ---------------------------
//
// Which entries receive the record itself as their first argument differs from entry to entry, and
// is the vendor's contract. Results are passed through unchanged.

void* PlatformAdapter::CreateAndroidMetadata(void* androidMeta, uint32_t count, uint32_t* out) {
    if (m_pMetaAdaptee == nullptr || m_pMetaAdaptee->pCreateAndroid == nullptr) {
        OEM_LOG_ERROR("CreateAndroidMetadata fail");
        return nullptr;
    }
    return m_pMetaAdaptee->pCreateAndroid(m_pMetaAdaptee, androidMeta, 1, 1, count, out);
}

void* PlatformAdapter::CreateByAndroidMetadata(void* androidMeta) {
    if (m_pMetaAdaptee == nullptr || m_pMetaAdaptee->pCreateFromAndroid == nullptr ||
        androidMeta == nullptr) {
        OEM_LOG_ERROR("CreateByAndroidMetadata fail");
        return nullptr;
    }
    return m_pMetaAdaptee->pCreateFromAndroid(m_pMetaAdaptee, androidMeta, 0, 0, 0xFFFFFFFF);
}

uint32_t PlatformAdapter::ReleaseAndroidMetadata(void* metadata) {
    // The presence of the create entry decides; the release entry is then called. Not a slip.
    if (m_pMetaAdaptee == nullptr || m_pMetaAdaptee->pCreateFromAndroid == nullptr ||
        m_pMetaAdaptee->pReleaseAndroid == nullptr || metadata == nullptr) {
        OEM_LOG_ERROR("ReleaseAndroidMetadata fail");
        return 0;
    }
    return m_pMetaAdaptee->pReleaseAndroid(m_pMetaAdaptee, metadata);
}

void* PlatformAdapter::CreateWithUsage(const uint32_t* tags, uint32_t tagCount, int usage) {
    if (m_pMetaAdaptee == nullptr || m_pMetaAdaptee->pCreateWithUsage == nullptr) {
        OEM_LOG_ERROR("CreateWithUsage fail");
        return nullptr;
    }
    return m_pMetaAdaptee->pCreateWithUsage(m_pMetaAdaptee, tags, tagCount, usage);
}

uint32_t PlatformAdapter::Copy(void* first, void* second, uint8_t flag) {
    if (m_pMetaAdaptee == nullptr || m_pMetaAdaptee->pCopy == nullptr) {
        OEM_LOG_ERROR("Copy fail");
        return 0;
    }
    return m_pMetaAdaptee->pCopy(first, second, flag);
}

uint32_t PlatformAdapter::MetadataDestroy(void* metadata) {
    if (m_pMetaAdaptee == nullptr || m_pMetaAdaptee->pDestroy == nullptr) {
        OEM_LOG_ERROR("Destory Metadata fail");
        return 0;
    }
    return m_pMetaAdaptee->pDestroy(metadata);
}

void* PlatformAdapter::GetTag(void* metadata, uint32_t tagId, uint32_t* returnSize,
                              uint8_t typeId) {
    if (m_pMetaAdaptee == nullptr || m_pMetaAdaptee->pGetTag == nullptr) {
        OEM_LOG_ERROR("GetTag fail");
        return nullptr;
    }
    ChiMetadataTagEntry entryInfo = {};
    m_pMetaAdaptee->pGetTag(metadata, tagId, typeId, &entryInfo);
    OEM_LOG_VERBOSE("returnSize %p tagId %x typeId %d pTagData %p entryInfo.size %d", returnSize,
                    tagId, typeId, &entryInfo.pData, entryInfo.size);
    if (returnSize != nullptr) {
        *returnSize = entryInfo.size;
    }
    return entryInfo.pData;
}

uint32_t PlatformAdapter::SetTag(void* metadata, uint32_t tagId, const void* data, uint32_t count,
                                 uint32_t extra) {
    if (m_pMetaAdaptee == nullptr || m_pMetaAdaptee->pSetTag == nullptr) {
        OEM_LOG_ERROR("SetTag fail");
        return 0;
    }
    return m_pMetaAdaptee->pSetTag(metadata, tagId, data, count, extra);
}

uint32_t PlatformAdapter::DeleteTag(void* metadata, uint32_t tagId) {
    if (m_pMetaAdaptee == nullptr || m_pMetaAdaptee->pDeleteTag == nullptr) {
        OEM_LOG_ERROR("DeleteTag fail");
        return 0;
    }
    return m_pMetaAdaptee->pDeleteTag(metadata, tagId);
}

namespace {

/// Buffer managers know fewer formats than streams do, and take a blob as one row of bytes.
void ChooseManagerFormat(const ChiStream& stream, ChiBufferManagerCreateData& createData) {
    constexpr const char kOperation[] = "GetImageBuffer";
    createData.width = stream.width;
    createData.height = stream.height;
    createData.format = stream.format;
    switch (stream.format) {
    case ChiStreamFormatBlob:
        createData.width = stream.width * stream.height * 4;
        createData.height = 1;
        break;
    case ChiStreamFormatUBWCNV124R:
        OEM_LOG_WARN_IN(kOperation, "Overriding format from ChiStreamFormatUBWCNV124R to "
                                    "ChiStreamFormatUBWCTP10 as Gralloc does not support "
                                    "ChiStreamFormatUBWCNV124R");
        createData.format = ChiStreamFormatUBWCTP10;
        break;
    case ChiStreamFormatPD10:
        // The message promises Raw12; the format becomes UBWCTP10 here as well: "Both overridden
        // stream formats" in docs/kept-behaviours.md.
        OEM_LOG_WARN_IN(kOperation, "Overriding format from ChiStreamFormatPD10 to "
                                    "ChiStreamFormatRaw12 as Gralloc does not support "
                                    "ChiStreamFormatPD10");
        createData.format = ChiStreamFormatUBWCTP10;
        break;
    default:
        break;
    }
}

ChiBufferManagerCreateData MakeManagerCreateData(ChiStream* stream) {
    ChiBufferManagerCreateData createData = {};
    ChooseManagerFormat(*stream, createData);
    createData.reserved16 = 0x40002;
    createData.reserved24 = 0x20022;
    createData.reserved40 = 32;
    createData.reserved48 = 1;
    createData.reserved52 = 5;
    createData.pStream = stream;
    return createData;
}

} // namespace

void* PlatformAdapter::GetImageBuffer(ChiStream* stream) {
    const auto known = m_streamBufferManagers.find(stream);
    ChiBufferManagerHandle manager =
        known != m_streamBufferManagers.end() ? known->second : CreateBufferManager(stream);
    if (m_pBufferAdaptee == nullptr || m_pBufferAdaptee->pGetImageBuffer == nullptr) {
        return nullptr;
    }
    // Also with a null manager: the vendor decides what that yields.
    return m_pBufferAdaptee->pGetImageBuffer(manager);
}

/// Makes the manager of a stream and files it. One that the vendor could not make is filed as null
/// and not tried again; without the vendor's entry nothing is filed.
ChiBufferManagerHandle PlatformAdapter::CreateBufferManager(ChiStream* stream) {
    const ChiBufferManagerCreateData createData = MakeManagerCreateData(stream);
    if (m_pBufferAdaptee == nullptr || m_pBufferAdaptee->pCreate == nullptr) {
        OEM_LOG_ERROR_IN("GetImageBuffer", "Invalid m_pBufferAdaptee:%p", m_pBufferAdaptee);
        return nullptr;
    }
    char name[128] = {};
    CdkUtils::SNPrintF(name, sizeof(name), "%s_format_%d_wxh_%dx%d", "OEM_CHI_BUFFER_MANAGER",
                       createData.format, createData.width, createData.height);
    ChiBufferManagerHandle manager = m_pBufferAdaptee->pCreate(m_pBufferAdaptee, name, &createData);
    m_streamBufferManagers[stream] = manager;
    return manager;
}

void PlatformAdapter::ReleaseImageBuffer(void* imageBuffer) {
    if (m_pBufferAdaptee == nullptr || m_pBufferAdaptee->pReleaseImageBuffer == nullptr) {
        OEM_LOG_ERROR("ReleaseImageBuffer fail");
        return;
    }
    m_pBufferAdaptee->pReleaseImageBuffer(imageBuffer);
}

void* PlatformAdapter::GetCPUAddress(void* imageBuffer) {
    if (m_pBufferAdaptee == nullptr || m_pBufferAdaptee->pGetCPUAddress == nullptr) {
        OEM_LOG_ERROR("GetCPUAddress fail");
        return nullptr;
    }
    return m_pBufferAdaptee->pGetCPUAddress(imageBuffer);
}

uint32_t PlatformAdapter::SubmitRequestFromRT(OfflineDataWraper* request, RequestPrivData* privData,
                                              camera3_stream_buffer* outputBuffer,
                                              OffCamApplicationCallbacks* appCallbacks) {
    if (m_pAdaptee == nullptr) {
        OEM_LOG_ERROR("SubmitRequestFromRT fail");
        return 0;
    }
    return m_pAdaptee->SubmitRequestFromRT(request, privData, outputBuffer, appCallbacks);
}

uint32_t PlatformAdapter::TranslateToBuffer(const camera3_stream_buffer* src,
                                            ChiStreamBuffer* dst) {
    if (m_pIntfOps == nullptr || m_pIntfOps->pTranslateToChiBuffer == nullptr) {
        OEM_LOG_ERROR("TranslateToChiBuffer fail");
        return 0;
    }
    return m_pIntfOps->pTranslateToChiBuffer(src, dst);
}

uint32_t PlatformAdapter::TranslateFromBuffer(const ChiStreamBuffer* src,
                                              camera3_stream_buffer* dst) {
    if (m_pIntfOps == nullptr || m_pIntfOps->pTranslateFromChiBuffer == nullptr) {
        OEM_LOG_ERROR("TranslateFromChiBuffer fail");
        return 0;
    }
    return m_pIntfOps->pTranslateFromChiBuffer(src, dst);
}

int PlatformAdapter::CreateSensorInitSettings(int& settings, int value) {
    return ChiContextInterface::CreateSensorInitSettings(settings, value);
}

// --- The callback table --------------------------------------------------------------------------

namespace {

/// The one link between a table and its adapter, by camera id. Ids are below 16 by contract and are
/// not checked. A slot keeps its pointer after `Destroy`, until the next `Create` of the id.
PlatformAdapter* g_platformAdapters[16];

PlatformAdapter* AdapterOf(const PlatFormIntCallbacks* table) {
    return g_platformAdapters[table->cameraId];
}

void ProcRequest(PlatFormIntCallbacks*) {}

PlatformAdapter* Create(PlatFormIntCallbacks*, uint32_t cameraId) {
    auto* adapter = new PlatformAdapter(cameraId);
    g_platformAdapters[cameraId] = adapter;
    return adapter;
}

int64_t Destroy(PlatFormIntCallbacks* table) { return PlatformAdapter::Destroy(AdapterOf(table)); }

void Flush(PlatFormIntCallbacks* table) { AdapterOf(table)->Flush(); }

void TearDownResource(PlatFormIntCallbacks* table) { AdapterOf(table)->TearDownResource(); }

void* CreateAndroidMetadata(PlatFormIntCallbacks* table, void* androidMeta, uint32_t count,
                            uint32_t* out) {
    return AdapterOf(table)->CreateAndroidMetadata(androidMeta, count, out);
}

void* CreateByAndroidMetadata(PlatFormIntCallbacks* table, void* androidMeta) {
    return AdapterOf(table)->CreateByAndroidMetadata(androidMeta);
}

uint32_t ReleaseAndroidMetadata(PlatFormIntCallbacks* table, void* metadata) {
    return AdapterOf(table)->ReleaseAndroidMetadata(metadata);
}

void* CreateWithUsage(PlatFormIntCallbacks* table, const uint32_t* tags, uint32_t tagCount,
                      int usage) {
    return AdapterOf(table)->CreateWithUsage(tags, tagCount, usage);
}

uint32_t Copy(PlatFormIntCallbacks* table, void* first, void* second, uint8_t flag) {
    return AdapterOf(table)->Copy(first, second, flag);
}

uint32_t MetadataDestroy(PlatFormIntCallbacks* table, void* metadata) {
    return AdapterOf(table)->MetadataDestroy(metadata);
}

void* GetTag(PlatFormIntCallbacks* table, void* metadata, uint32_t tagId, uint32_t* returnSize,
             uint8_t typeId) {
    return AdapterOf(table)->GetTag(metadata, tagId, returnSize, typeId);
}

uint32_t SetTag(PlatFormIntCallbacks* table, void* metadata, uint32_t tagId, const void* data,
                uint32_t count, uint32_t extra) {
    return AdapterOf(table)->SetTag(metadata, tagId, data, count, extra);
}

uint32_t DeleteTag(PlatFormIntCallbacks* table, void* metadata, uint32_t tagId) {
    return AdapterOf(table)->DeleteTag(metadata, tagId);
}

void* GetImageBuffer(PlatFormIntCallbacks* table, void* chiStream) {
    return AdapterOf(table)->GetImageBuffer(static_cast<ChiStream*>(chiStream));
}

void ReleaseImageBuffer(PlatFormIntCallbacks* table, void* imageBuffer) {
    AdapterOf(table)->ReleaseImageBuffer(imageBuffer);
}

void* GetCPUAddress(PlatFormIntCallbacks* table, void* imageBuffer) {
    return AdapterOf(table)->GetCPUAddress(imageBuffer);
}

uint32_t SubmitRequestFromRT(PlatFormIntCallbacks* table, void* request, void* privData,
                             void* outputBuffer, void* appCallbacks) {
    return AdapterOf(table)->SubmitRequestFromRT(
        static_cast<OfflineDataWraper*>(request), static_cast<RequestPrivData*>(privData),
        static_cast<camera3_stream_buffer*>(outputBuffer),
        static_cast<OffCamApplicationCallbacks*>(appCallbacks));
}

uint32_t TranslateToBuffer(PlatFormIntCallbacks* table, const void* src, void* dst) {
    return AdapterOf(table)->TranslateToBuffer(static_cast<const camera3_stream_buffer*>(src),
                                               static_cast<ChiStreamBuffer*>(dst));
}

uint32_t TranslateFromBuffer(PlatFormIntCallbacks* table, const void* src, void* dst) {
    return AdapterOf(table)->TranslateFromBuffer(static_cast<const ChiStreamBuffer*>(src),
                                                 static_cast<camera3_stream_buffer*>(dst));
}

void* GetNCSCallback(PlatFormIntCallbacks*) { return reinterpret_cast<void*>(g_pSetNCSCallback); }

void* GetHWCallback(PlatFormIntCallbacks*) { return reinterpret_cast<void*>(g_pSetHWCallback); }

void* GetPerfCallback(PlatFormIntCallbacks*) { return reinterpret_cast<void*>(g_pSetPerfCallback); }

int CreateSensorInitSettings(PlatFormIntCallbacks*, int& settings, int value) {
    return PlatformAdapter::CreateSensorInitSettings(settings, value);
}

uint32_t EnumerateSensorModes(uint32_t first, uint32_t second, void* third) {
    if (pEnumerateSensorModesCb == nullptr) {
        OEM_LOG_ERROR("%s: pEnumerateSensorModesCb is NULL!", __func__);
        raise(SIGABRT);
        return kAfterAbort;
    }
    return pEnumerateSensorModesCb(first, second, third);
}

uint32_t ExtensionProcessResultMeta(uint32_t first, void** second) {
    if (pExtensionProcessResultMetaCb == nullptr) {
        OEM_LOG_ERROR("%s: pExtensionProcessResultMetaCb is NULL!", __func__);
        raise(SIGABRT);
        return kAfterAbort;
    }
    return pExtensionProcessResultMetaCb(first, second);
}

} // namespace
} // namespace OemLayer

// --- The exported entry points -------------------------------------------------------------------

void PlatformLoadContext(PlatformLoadFunctions* record) {
    record->loadLib = OemLayer::LoadLib;
    record->logMap = OemLayer::LogMap;
}

void PlatformIntContext(PlatFormIntCallbacks* table, uint32_t cameraId) {
    using namespace OemLayer;
    *table = PlatFormIntCallbacks{
        .cameraId = cameraId,
        .ProcRequest = ProcRequest,
        .Create = Create,
        .Destroy = Destroy,
        .Flush = Flush,
        .TearDownResource = TearDownResource,
        .CreateAndroidMetadata = CreateAndroidMetadata,
        .CreateByAndroidMetadata = CreateByAndroidMetadata,
        .ReleaseAndroidMetadata = ReleaseAndroidMetadata,
        .CreateWithUsage = CreateWithUsage,
        .Copy = Copy,
        .MetadataDestroy = MetadataDestroy,
        .GetTag = GetTag,
        .SetTag = SetTag,
        .DeleteTag = DeleteTag,
        .GetImageBuffer = GetImageBuffer,
        .ReleaseImageBuffer = ReleaseImageBuffer,
        .GetCPUAddress = GetCPUAddress,
        .SubmitRequestFromRT = SubmitRequestFromRT,
        .TranslateToBuffer = TranslateToBuffer,
        .TranslateFromBuffer = TranslateFromBuffer,
        .GetNCSCallback = GetNCSCallback,
        .GetHWCallback = GetHWCallback,
        .GetPerfCallback = GetPerfCallback,
        .CreateSensorInitSettings = CreateSensorInitSettings,
        .EnumerateSensorModes = EnumerateSensorModes,
        .ExtensionProcessResultMeta = ExtensionProcessResultMeta,
    };
}
