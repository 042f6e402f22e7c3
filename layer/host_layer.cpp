/// camera.oemlayer.layer.so: stands in the adapter's place before the host, and passes each call on
/// to the real adapter, and each callback on to the host.
#include "adapterlayer/oemlayer_host.h"
#include "layer/layer.h"

#include <array>
#include <atomic>
#include <pthread.h>
#include <utility>

const char layer::kTag[] = "CamLayerHost";

namespace layer {
namespace {

using contract::Entry;
using OemLayer::OffCamApplicationCallbacks;
using OemLayer::OfflineDataWraper;
using OemLayer::RequestPrivData;

// --- The real adapter ---------------------------------------------------------------------------

/// Written once, before anything else here is used. The adapter's functions serve all cameras.
struct Real {
    Layer layer;
    decltype(&PlatformLoadContext) loadContext = nullptr;
    decltype(&PlatformIntContext) intContext = nullptr;
    PlatformLoadFunctions loadFunctions{};
    PlatFormIntCallbacks table{};
};
Real g_real;

const Real& TheReal() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, [] {
        Real& real = g_real;
        real.layer =
            Open(&Settings::adapter, "camera.oemlayer.adapter.real.so", "PlatformLoadContext");
        real.loadContext =
            reinterpret_cast<decltype(real.loadContext)>(Find(real.layer, "PlatformLoadContext"));
        real.intContext =
            reinterpret_cast<decltype(real.intContext)>(Find(real.layer, "PlatformIntContext"));
        if (real.loadContext != nullptr) {
            real.loadContext(&real.loadFunctions);
        }
        if (real.intContext != nullptr) {
            real.intContext(&real.table, 0);
        }
    });
    return g_real;
}

contract::Tap& TheTap() { return *g_real.layer.tap; }
const PlatformLoadFunctions& RealOf(const PlatformLoadFunctions*) { return g_real.loadFunctions; }
const PlatFormIntCallbacks& RealOf(const PlatFormIntCallbacks*) { return g_real.table; }

// --- Entries that are passed on -----------------------------------------------------------------

/// A reference is recorded as the address that it is.
template <class Argument> auto Plain(std::remove_reference_t<Argument>& argument) {
    if constexpr (std::is_reference_v<Argument>) {
        return &argument;
    } else {
        return argument;
    }
}

/// These have a table that says nothing: they need no camera, or name it in an argument.
template <Entry E> constexpr bool kIgnoresTable =
    E == Entry::Create || E == Entry::GetNCSCallback || E == Entry::GetHWCallback ||
    E == Entry::GetPerfCallback || E == Entry::CreateSensorInitSettings;

template <Entry E, class Act, class... Args> auto Recorded(Act act, Args... args) {
    if constexpr (kIgnoresTable<E>) {
        const auto record = [&](auto /*table*/, auto... rest) {
            return TheTap().Around<E>(act, rest...);
        };
        return record(args...);
    } else {
        return TheTap().Around<E>(act, args...);
    }
}

template <Entry E, auto Member> struct Passed;
template <Entry E, class Table, class R, class... Args, R (*Table::*Member)(Args...)>
struct Passed<E, Member> {
    static R Call(Args... args) {
        return Recorded<E>([&] { return (RealOf(static_cast<Table*>(nullptr)).*Member)(args...); },
                           Plain<Args>(args)...);
    }
};

/// In place of what the real table has; nothing where it has nothing.
template <Entry E, auto Member, class Table> void Wrap(Table& table) {
    if (table.*Member != nullptr) {
        table.*Member = Passed<E, Member>::Call;
    }
}

// --- The host's and the framework's callbacks ---------------------------------------------------

constexpr uint32_t kCameras = 16;

struct FrameworkOps : camera3_callback_ops {
    uint32_t camera;
};

/// What the adapter has of a camera in place of the tables of the camera's last submission.
struct Camera {
    OffCamApplicationCallbacks callbacks;
    FrameworkOps framework;
    std::atomic<const OffCamApplicationCallbacks*> hosts;
    std::atomic<const camera3_callback_ops*> frameworks;
};
Camera g_cameras[kCameras];

/// Calls an entry of a table that may have been replaced since the adapter looked.
template <class Table, class R, class... Params, class... Args>
R CallIfThere(const Table* table, R (*Table::*member)(Params...), Args... args) {
    const auto function = table == nullptr ? nullptr : table->*member;
    return function == nullptr ? R() : function(args...);
}

template <uint32_t Id> struct CallbacksOf {
    static void Release(RequestPrivData* privData) {
        TheTap().Around<Entry::ReleaseRtBuffers>(
            [&] { CallIfThere(Host(), &OffCamApplicationCallbacks::releaseRtBuffers, privData); },
            Id, privData);
    }
    static void Complete(RequestPrivData* privData, uint32_t status) {
        TheTap().Around<Entry::RequestComplete>(
            [&] {
                CallIfThere(Host(), &OffCamApplicationCallbacks::requestComplete, privData, status);
            },
            Id, privData, status);
    }
    static void Result(RequestPrivData* privData, camera3_capture_result* result) {
        TheTap().Around<Entry::CaptureResult>(
            [&] {
                CallIfThere(Host(), &OffCamApplicationCallbacks::captureResult, privData, result);
            },
            Id, privData, result);
    }
    static const OffCamApplicationCallbacks* Host() { return g_cameras[Id].hosts; }
};

template <uint32_t... Ids>
constexpr auto AllCallbacks(std::integer_sequence<uint32_t, Ids...> /*ids*/) {
    return std::array{OffCamApplicationCallbacks{
        CallbacksOf<Ids>::Release, CallbacksOf<Ids>::Complete, CallbacksOf<Ids>::Result}...};
}
constexpr auto kCallbacks = AllCallbacks(std::make_integer_sequence<uint32_t, kCameras>());

const camera3_callback_ops* Framework(const camera3_callback_ops* ours) {
    return g_cameras[static_cast<const FrameworkOps*>(ours)->camera].frameworks;
}

int32_t RequestStreamBuffers(const camera3_callback_ops* ours, uint32_t count,
                             const camera3_buffer_request* requests, uint32_t* returned,
                             camera3_stream_buffer_ret* answers) {
    const camera3_callback_ops* const theirs = Framework(ours);
    return TheTap().Around<Entry::RequestStreamBuffers>(
        [&] {
            return CallIfThere(theirs, &camera3_callback_ops::request_stream_buffers, theirs, count,
                               requests, returned, answers);
        },
        static_cast<const FrameworkOps*>(ours)->camera, count, requests, returned, answers);
}

/// The adapter calls nothing else of the framework's.
constexpr camera3_callback_ops kFramework{
    .process_capture_result =
        [](auto* ours, auto* result) {
            CallIfThere(Framework(ours), &camera3_callback_ops::process_capture_result,
                        Framework(ours), result);
        },
    .notify =
        [](auto* ours, auto* message) {
            CallIfThere(Framework(ours), &camera3_callback_ops::notify, Framework(ours), message);
        },
    .request_stream_buffers = RequestStreamBuffers,
    .return_stream_buffers =
        [](auto* ours, uint32_t count, auto* buffers) {
            CallIfThere(Framework(ours), &camera3_callback_ops::return_stream_buffers,
                        Framework(ours), count, buffers);
        }};

/// Our entry where theirs has one. Only what changes is written: the adapter may be reading it.
template <class Table, class... Members>
void Mirror(Table& ours, const Table& theirs, const Table& all, Members... members) {
    const auto mirror = [&](auto member) {
        const auto wanted = theirs.*member == nullptr ? nullptr : all.*member;
        if (__atomic_load_n(&(ours.*member), __ATOMIC_RELAXED) != wanted) {
            __atomic_store_n(&(ours.*member), wanted, __ATOMIC_RELAXED);
        }
    };
    (mirror(members), ...);
}

/// What the adapter gets for the host's table.
OffCamApplicationCallbacks* Replace(uint32_t id, OffCamApplicationCallbacks* theirs) {
    using Callbacks = OffCamApplicationCallbacks;
    Camera& camera = g_cameras[id];
    if (theirs == nullptr || theirs == &camera.callbacks) {
        return theirs;
    }
    camera.hosts = theirs;
    Mirror(camera.callbacks, *theirs, kCallbacks[id], &Callbacks::releaseRtBuffers,
           &Callbacks::requestComplete, &Callbacks::captureResult);
    return &camera.callbacks;
}

/// The same for the framework's.
camera3_callback_ops* Replace(uint32_t id, camera3_callback_ops* theirs) {
    using Ops = camera3_callback_ops;
    Camera& camera = g_cameras[id];
    if (theirs == nullptr || theirs == &camera.framework) {
        return theirs;
    }
    camera.frameworks = theirs;
    if (camera.framework.camera != id) {
        camera.framework.camera = id;
    }
    Mirror<Ops>(camera.framework, *theirs, kFramework, &Ops::process_capture_result, &Ops::notify,
                &Ops::request_stream_buffers, &Ops::return_stream_buffers);
    return &camera.framework;
}

/// The wrapper names the framework's table, so that it has ours as long as the call lasts. A second
/// thread, or a callback, may submit the same one meanwhile.
uint32_t PassSubmission(PlatFormIntCallbacks* table, OfflineDataWraper* wrapper, void* privData,
                        void* outputBuffer, OffCamApplicationCallbacks* callbacks) {
    const auto submit = g_real.table.SubmitRequestFromRT;
    if (table == nullptr || table->cameraId >= kCameras || wrapper == nullptr) {
        return submit(table, wrapper, privData, outputBuffer, callbacks);
    }
    const uint32_t id = table->cameraId;
    camera3_callback_ops* framework = __atomic_load_n(&wrapper->pCamera3CbOps, __ATOMIC_RELAXED);
    camera3_callback_ops* const ourFramework = Replace(id, framework);
    if (framework == ourFramework) {
        framework = const_cast<camera3_callback_ops*>(g_cameras[id].frameworks.load());
    } else {
        __atomic_store_n(&wrapper->pCamera3CbOps, ourFramework, __ATOMIC_RELAXED);
    }
    OffCamApplicationCallbacks* const ours = Replace(id, callbacks);
    const uint32_t status = submit(table, wrapper, privData, outputBuffer, ours);
    if (ourFramework != nullptr &&
        __atomic_load_n(&wrapper->pCamera3CbOps, __ATOMIC_RELAXED) == ourFramework) {
        __atomic_store_n(&wrapper->pCamera3CbOps, framework, __ATOMIC_RELAXED);
    }
    if (ours != callbacks && __atomic_load_n(&wrapper->mpOffCamAppCbs, __ATOMIC_RELAXED) == ours) {
        __atomic_store_n(&wrapper->mpOffCamAppCbs, callbacks, __ATOMIC_RELAXED);
    }
    return status;
}

template <> struct Passed<Entry::SubmitRequestFromRT, &PlatFormIntCallbacks::SubmitRequestFromRT> {
    static uint32_t Call(PlatFormIntCallbacks* table, void* request, void* privData,
                         void* outputBuffer, void* appCallbacks) {
        return TheTap().Around<Entry::SubmitRequestFromRT>(
            [&] {
                return PassSubmission(table, static_cast<OfflineDataWraper*>(request), privData,
                                      outputBuffer,
                                      static_cast<OffCamApplicationCallbacks*>(appCallbacks));
            },
            table, request, privData, outputBuffer, appCallbacks);
    }
};

/// The table's entries under their names there.
void WrapAll(PlatFormIntCallbacks& table) {
#define WRAP(entry, member) Wrap<Entry::entry, &PlatFormIntCallbacks::member>(table)
    WRAP(ProcRequest, ProcRequest);
    WRAP(Create, Create);
    WRAP(Destroy, Destroy);
    WRAP(Flush, Flush);
    WRAP(TearDownResource, TearDownResource);
    WRAP(CreateAndroidMetadata, CreateAndroidMetadata);
    WRAP(CreateByAndroidMetadata, CreateByAndroidMetadata);
    WRAP(ReleaseAndroidMetadata, ReleaseAndroidMetadata);
    WRAP(CreateWithUsage, CreateWithUsage);
    WRAP(Copy, Copy);
    WRAP(DestroyMetadata, MetadataDestroy);
    WRAP(GetTag, GetTag);
    WRAP(SetTag, SetTag);
    WRAP(DeleteTag, DeleteTag);
    WRAP(TakeImageBuffer, GetImageBuffer);
    WRAP(GiveImageBuffer, ReleaseImageBuffer);
    WRAP(MapImageBuffer, GetCPUAddress);
    WRAP(SubmitRequestFromRT, SubmitRequestFromRT);
    WRAP(TranslateToBuffer, TranslateToBuffer);
    WRAP(TranslateFromBuffer, TranslateFromBuffer);
    WRAP(GetNCSCallback, GetNCSCallback);
    WRAP(GetHWCallback, GetHWCallback);
    WRAP(GetPerfCallback, GetPerfCallback);
    WRAP(CreateSensorInitSettings, CreateSensorInitSettings);
    WRAP(EnumerateSensorModes, EnumerateSensorModes);
    WRAP(ExtensionProcessResultMeta, ExtensionProcessResultMeta);
#undef WRAP
}

} // namespace
} // namespace layer

// --- The exported entry points ------------------------------------------------------------------

void PlatformLoadContext(PlatformLoadFunctions* record) {
    using namespace layer;
    const Real& real = TheReal();
    *record = {};
    if (real.loadContext != nullptr) {
        real.loadContext(record);
    }
    if (real.layer.tap != nullptr) {
        Wrap<Entry::LoadLib, &PlatformLoadFunctions::loadLib>(*record);
        Wrap<Entry::LogMap, &PlatformLoadFunctions::logMap>(*record);
    }
}

void PlatformIntContext(PlatFormIntCallbacks* table, uint32_t cameraId) {
    using namespace layer;
    const Real& real = TheReal();
    *table = {.cameraId = cameraId};
    if (real.intContext != nullptr) {
        real.intContext(table, cameraId);
    }
    if (real.layer.tap != nullptr) {
        WrapAll(*table);
    }
}
