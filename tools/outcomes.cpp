/// Stands before the library's functions in the build that measures coverage, and counts how each
/// call ended, and what the vendor or an argument lacked then. It is compiled into the library, so
/// that whoever opens it is counted.
///
/// The counters lie in a file of the process, in the folder that OEMLAYER_OUTCOMES names, so that
/// they stay however the process ends. tools/coverage.py adds the files up.
#include "adapterlayer/oemlayer_host.h"
#include "adapterlayer/platformadapter.h"
#include "platform/chi/offline.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <type_traits>
#include <unistd.h>

// The library's own, which the build renames.
extern "C" void UncountedLoadContext(PlatformLoadFunctions* record);
extern "C" void UncountedIntContext(PlatFormIntCallbacks* table, uint32_t cameraId);

namespace OemLayer {

// What of an adapter is private: only an explicit instantiation may name it.
ChiOfflineMetadataOps* TableOf(const PlatformAdapter& adapter, ChiOfflineMetadataOps* kind);
ChiOfflineBufferManagerOps* TableOf(const PlatformAdapter& adapter,
                                    ChiOfflineBufferManagerOps* kind);
ChiOfflineInterface* TableOf(const PlatformAdapter& adapter, ChiOfflineInterface* kind);
template <class Ops, Ops* PlatformAdapter::*Member> struct Opened {
    friend Ops* TableOf(const PlatformAdapter& adapter, Ops* /*kind*/) { return adapter.*Member; }
};
template struct Opened<ChiOfflineMetadataOps, &PlatformAdapter::m_pMetaAdaptee>;
template struct Opened<ChiOfflineBufferManagerOps, &PlatformAdapter::m_pBufferAdaptee>;
template struct Opened<ChiOfflineInterface, &PlatformAdapter::m_pIntfOps>;

namespace {

using Table = PlatFormIntCallbacks;

// --- How calls end -------------------------------------------------------------------------------

/// What a call lacks, in the words of tools/outcomes.txt.
enum Lack : uint32_t {
    kNothing,
    kCamera,
    kVendorTable,
    kOperation,
    kCreateOperation,
    kArgument,
    kPrivateData,
    kOutput,
    kRoom,
    kLoading,
    kLacks
};
constexpr const char* kLackTexts[kLacks] = {"",
                                            ", no camera",
                                            ", no vendor table",
                                            ", no operation",
                                            ", no create operation",
                                            ", null argument",
                                            ", null private data",
                                            ", null output",
                                            ", too many sets",
                                            ", before the load function"};

constexpr uint32_t kNumbers = 16;                                       ///< Each has its counter,
enum : uint32_t { kLarger = kNumbers, kNull, kOther, kOpen, kEndings }; ///< and else these.

struct Cell {
    char text[120]; ///< As in "Copy: 0, no operation".
    std::atomic<int64_t> count;
};
static_assert(sizeof(Cell) == 128);

struct File {
    Cell cells[28][kLacks][kEndings];
};

/// Null where nobody wants to know.
File* MakeFile() {
    const char* folder = std::getenv("OEMLAYER_OUTCOMES");
    char name[4096];
    if (folder == nullptr || std::snprintf(name, sizeof name, "%s/%d.XXXXXX", folder, getpid()) >=
                                 static_cast<int>(sizeof name)) {
        return nullptr;
    }
    const int file = mkstemp(name);
    void* memory = MAP_FAILED;
    if (file >= 0 && ftruncate(file, sizeof(File)) == 0) {
        memory = mmap(nullptr, sizeof(File), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    }
    if (memory == MAP_FAILED) {
        std::perror(name);
        std::abort();
    }
    close(file);
    return static_cast<File*>(memory);
}

/// Adds to a counter. \param text for how the call ended.
void Add(uint32_t function, const char* name, Lack lack, uint32_t ending, const char* text,
         int count) {
    static File* const file = MakeFile();
    if (file != nullptr) {
        Cell& cell = file->cells[function][lack][ending];
        if (cell.text[0] == '\0') { // Whoever else does, writes the same.
            (void)std::snprintf(cell.text, sizeof cell.text, "%s: %s%s", name, text,
                                kLackTexts[lack]);
        }
        cell.count += count;
    }
}

template <class Result>
void AddResult(uint32_t function, const char* name, Lack lack, Result result) {
    int64_t number = 0;
    if constexpr (std::is_pointer_v<Result>) {
        number = static_cast<int64_t>(reinterpret_cast<uintptr_t>(result));
        if (number != 1) { // Which no address is, and the load function returns.
            const bool isNull = number == 0;
            Add(function, name, lack, isNull ? kNull : kOther, isNull ? "null" : "an address", 1);
            return;
        }
    } else {
        number = static_cast<int64_t>(result);
    }
    char text[24];
    (void)std::snprintf(text, sizeof text, "%lld", static_cast<long long>(number));
    const bool hasOwn = number >= 0 && number < kNumbers;
    Add(function, name, lack, hasOwn ? static_cast<uint32_t>(number) : kLarger, text, 1);
}

// --- What calls lack -----------------------------------------------------------------------------

constexpr uint32_t kCameras = 16;
std::atomic<PlatformAdapter*> g_adapters[kCameras];
std::atomic<bool> g_isLoaded;

const PlatformAdapter* AdapterOf(const Table* table) {
    return table->cameraId < kCameras ? g_adapters[table->cameraId].load() : nullptr;
}

template <class Ops, class Function>
Lack LackOf(const Table* table, Function Ops::*operation, Lack missing = kOperation) {
    const PlatformAdapter* const adapter = AdapterOf(table);
    if (adapter == nullptr) {
        return kCamera;
    }
    const Ops* const ops = TableOf(*adapter, static_cast<Ops*>(nullptr));
    if (ops == nullptr) {
        return kVendorTable;
    }
    return ops->*operation == nullptr ? missing : kNothing;
}

template <class... Lacks> Lack FirstOf(Lacks... lacks) {
    Lack first = kNothing;
    ((first = first != kNothing ? first : lacks), ...);
    return first;
}
Lack NullOf(const void* argument) { return argument == nullptr ? kArgument : kNothing; }

/// Most lack nothing ever.
template <auto Member> struct Before {
    template <class... Args> static Lack Of(Args&&...) { return kNothing; }
};

/// These need the camera alone.
struct BeforeCamera {
    static Lack Of(const Table* table) { return AdapterOf(table) == nullptr ? kCamera : kNothing; }
};
template <> struct Before<&Table::Destroy> : BeforeCamera {};
template <> struct Before<&Table::Flush> : BeforeCamera {};
template <> struct Before<&Table::TearDownResource> : BeforeCamera {};

/// These are one operation of the vendor.
#define NEEDS(slot, operation)                                                                     \
    template <> struct Before<&Table::slot> {                                                      \
        template <class... Args> static Lack Of(const Table* table, Args&&...) {                   \
            return LackOf(table, &operation);                                                      \
        }                                                                                          \
    }
NEEDS(CreateAndroidMetadata, ChiOfflineMetadataOps::pCreateAndroid);
NEEDS(CreateWithUsage, ChiOfflineMetadataOps::pCreateWithUsage);
NEEDS(Copy, ChiOfflineMetadataOps::pCopy);
NEEDS(MetadataDestroy, ChiOfflineMetadataOps::pDestroy);
NEEDS(GetTag, ChiOfflineMetadataOps::pGetTag);
NEEDS(SetTag, ChiOfflineMetadataOps::pSetTag);
NEEDS(DeleteTag, ChiOfflineMetadataOps::pDeleteTag);
NEEDS(ReleaseImageBuffer, ChiOfflineBufferManagerOps::pReleaseImageBuffer);
NEEDS(GetCPUAddress, ChiOfflineBufferManagerOps::pGetCPUAddress);
NEEDS(TranslateToBuffer, ChiOfflineInterface::pTranslateToChiBuffer);
NEEDS(TranslateFromBuffer, ChiOfflineInterface::pTranslateFromChiBuffer);
#undef NEEDS

template <> struct Before<&Table::CreateByAndroidMetadata> {
    static Lack Of(const Table* table, const void* metadata) {
        return FirstOf(LackOf(table, &ChiOfflineMetadataOps::pCreateFromAndroid), NullOf(metadata));
    }
};
template <> struct Before<&Table::ReleaseAndroidMetadata> {
    static Lack Of(const Table* table, const void* metadata) {
        return FirstOf(LackOf(table, &ChiOfflineMetadataOps::pCreateFromAndroid, kCreateOperation),
                       LackOf(table, &ChiOfflineMetadataOps::pReleaseAndroid), NullOf(metadata));
    }
};
template <> struct Before<&Table::GetImageBuffer> {
    static Lack Of(const Table* table, const void* /*stream*/) {
        return FirstOf(LackOf(table, &ChiOfflineBufferManagerOps::pGetImageBuffer),
                       LackOf(table, &ChiOfflineBufferManagerOps::pCreate, kCreateOperation));
    }
};
template <> struct Before<&Table::SubmitRequestFromRT> {
    static Lack Of(const Table* table, const void* wrapper, const void* privData,
                   const void* output, const void* /*callbacks*/) {
        const auto* const data = static_cast<const OfflineDataWraper*>(wrapper);
        const Lack vendor = LackOf(table, &ChiOfflineInterface::pExecuteRequest);
        return FirstOf(vendor == kCamera ? kCamera : kNothing, NullOf(wrapper),
                       data != nullptr && data->numBuffers > kMaxInputSets ? kRoom : kNothing,
                       privData == nullptr ? kPrivateData : kNothing, vendor,
                       output == nullptr ? kOutput : kNothing);
    }
};
struct BeforeLoading {
    template <class... Args> static Lack Of(Args&&...) { return g_isLoaded ? kNothing : kLoading; }
};
template <> struct Before<&Table::EnumerateSensorModes> : BeforeLoading {};
template <> struct Before<&Table::ExtensionProcessResultMeta> : BeforeLoading {};

// --- The functions -------------------------------------------------------------------------------

template <auto Member> struct Counted;
template <class Record, class Result, class... Args, Result (*Record::*Member)(Args...)>
struct Counted<Member> {
    inline static Result (*real)(Args...);
    inline static uint32_t number;
    inline static const char* name;

    static Result Call(Args... args) {
        Lack lack = Before<Member>::Of(args...);
        Add(number, name, lack, kOpen, "does not return", 1);
        if constexpr (std::is_void_v<Result>) {
            real(args...);
            Add(number, name, lack, kOther, "returns", 1);
            Add(number, name, lack, kOpen, "", -1);
        } else {
            const Result result = real(args...);
            Add(number, name, lack, kOpen, "", -1);
            if constexpr (std::is_same_v<Result, PlatformAdapter*>) {
                lack = Remember(result, args...);
            }
            AddResult(number, name, lack, result);
            return result;
        }
    }
    static Lack Remember(PlatformAdapter* adapter, const Table* /*table*/, uint32_t cameraId) {
        if (cameraId < kCameras) {
            g_adapters[cameraId] = adapter;
        }
        const auto* const vendor = TableOf(*adapter, static_cast<ChiOfflineInterface*>(nullptr));
        return vendor == nullptr ? kVendorTable : kNothing;
    }
};

/// The loader may be asked twice, and does the same.
template <auto Member, class Record> void Count(Record& record, uint32_t number, const char* name) {
    Counted<Member>::real = record.*Member;
    Counted<Member>::number = number;
    Counted<Member>::name = name;
    record.*Member = Counted<Member>::Call;
}

void* (*g_loadLib)();
void* LoadLib() {
    void* const result = g_loadLib();
    g_isLoaded = true;
    return result;
}

} // namespace
} // namespace OemLayer

void PlatformLoadContext(PlatformLoadFunctions* record) {
    UncountedLoadContext(record);
    OemLayer::g_loadLib = record->loadLib;
    record->loadLib = OemLayer::LoadLib;
    OemLayer::Count<&PlatformLoadFunctions::loadLib>(*record, 0, "loadLib");
    OemLayer::Count<&PlatformLoadFunctions::logMap>(*record, 1, "logMap");
}

void PlatformIntContext(PlatFormIntCallbacks* table, uint32_t cameraId) {
    UncountedIntContext(table, cameraId);
    uint32_t number = 1;
#define COUNT(slot) OemLayer::Count<&PlatFormIntCallbacks::slot>(*table, ++number, #slot)
    COUNT(ProcRequest);
    COUNT(Create);
    COUNT(Destroy);
    COUNT(Flush);
    COUNT(TearDownResource);
    COUNT(CreateAndroidMetadata);
    COUNT(CreateByAndroidMetadata);
    COUNT(ReleaseAndroidMetadata);
    COUNT(CreateWithUsage);
    COUNT(Copy);
    COUNT(MetadataDestroy);
    COUNT(GetTag);
    COUNT(SetTag);
    COUNT(DeleteTag);
    COUNT(GetImageBuffer);
    COUNT(ReleaseImageBuffer);
    COUNT(GetCPUAddress);
    COUNT(SubmitRequestFromRT);
    COUNT(TranslateToBuffer);
    COUNT(TranslateFromBuffer);
    COUNT(GetNCSCallback);
    COUNT(GetHWCallback);
    COUNT(GetPerfCallback);
    COUNT(CreateSensorInitSettings);
    COUNT(EnumerateSensorModes);
    COUNT(ExtensionProcessResultMeta);
#undef COUNT
}
