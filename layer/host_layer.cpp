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
    } else if constexpr (E == Entry::ProcRequest) { // Its table may be no camera's.
        return TheTap().Around<E>(act, static_cast<PlatFormIntCallbacks*>(nullptr));
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

/// The tables that a camera's last submission brought. The adapter has ours in their place, which
/// never change: what theirs has is looked up when it is called, as the adapter would.
struct Camera {
    std::atomic<const OffCamApplicationCallbacks*> callbacks;
    std::atomic<const camera3_callback_ops*> framework;
};
Camera g_cameras[kCameras];

/// Null where the table is, or lacks it.
template <class Table, class Function>
Function EntryOf(const Table* table, Function Table::*member) {
    return table == nullptr ? nullptr : __atomic_load_n(&(table->*member), __ATOMIC_RELAXED);
}

template <Entry E, uint32_t Id, auto Member> struct CalledBack;
template <Entry E, uint32_t Id, class... Args, void (*OffCamApplicationCallbacks::*Member)(Args...)>
struct CalledBack<E, Id, Member> {
    static void Call(Args... args) {
        if (const auto function = EntryOf(g_cameras[Id].callbacks.load(), Member)) {
            TheTap().Around<E>([&] { function(args...); }, Id, args...);
        }
    }
};

template <uint32_t Id> constexpr OffCamApplicationCallbacks kCallbacksOf{
    CalledBack<Entry::ReleaseRtBuffers, Id, &OffCamApplicationCallbacks::releaseRtBuffers>::Call,
    CalledBack<Entry::RequestComplete, Id, &OffCamApplicationCallbacks::requestComplete>::Call,
    CalledBack<Entry::CaptureResult, Id, &OffCamApplicationCallbacks::captureResult>::Call};

template <uint32_t Id> struct Framework {
    using Ops = camera3_callback_ops;

    template <auto Member, class... Args> static void PassOn(Args... args) {
        const Ops* const theirs = g_cameras[Id].framework;
        if (const auto function = EntryOf(theirs, Member)) {
            function(theirs, args...);
        }
    }
    static int32_t RequestStreamBuffers(const Ops* /*ours*/, uint32_t count,
                                        const camera3_buffer_request* requests, uint32_t* returned,
                                        camera3_stream_buffer_ret* answers) {
        const Ops* const theirs = g_cameras[Id].framework;
        const auto function = EntryOf(theirs, &Ops::request_stream_buffers);
        if (function == nullptr) {
            return 1; // What the adapter makes of it.
        }
        return TheTap().Around<Entry::RequestStreamBuffers>(
            [&] { return function(theirs, count, requests, returned, answers); }, Id, count,
            requests, returned, answers);
    }
    /// The adapter calls no other.
    static constexpr Ops kOps{
        .process_capture_result =
            [](const Ops*, auto* result) { PassOn<&Ops::process_capture_result>(result); },
        .notify = [](const Ops*, auto* message) { PassOn<&Ops::notify>(message); },
        .request_stream_buffers = RequestStreamBuffers,
        .return_stream_buffers =
            [](const Ops*, uint32_t count, auto* buffers) {
                PassOn<&Ops::return_stream_buffers>(count, buffers);
            }};
};

template <uint32_t... Ids>
constexpr auto AllCallbacks(std::integer_sequence<uint32_t, Ids...> /*ids*/) {
    return std::array{kCallbacksOf<Ids>...};
}
template <uint32_t... Ids>
constexpr auto AllFrameworks(std::integer_sequence<uint32_t, Ids...> /*ids*/) {
    return std::array{Framework<Ids>::kOps...};
}
constexpr auto kCallbacks = AllCallbacks(std::make_integer_sequence<uint32_t, kCameras>());
constexpr auto kFrameworks = AllFrameworks(std::make_integer_sequence<uint32_t, kCameras>());

/// The camera of a table of ours; kCameras where it is not one.
template <class Table>
uint32_t CameraOf(const std::array<Table, kCameras>& ours, const Table* table) {
    uint32_t id = 0;
    while (id < kCameras && table != &ours[id]) {
        ++id;
    }
    return id;
}

/// The table that a host has, where it names ours: it took that out of a wrapper during a call.
template <class Table> Table* TheirsOf(const std::array<Table, kCameras>& ours,
                                       std::atomic<const Table*> Camera::*member, Table* table) {
    const uint32_t id = CameraOf(ours, table);
    return id == kCameras ? table : const_cast<Table*>((g_cameras[id].*member).load());
}

/// What the adapter gets in its place. Nobody writes to it.
template <class Table>
Table* Replace(const Table& ours, std::atomic<const Table*>& place, Table* theirs) {
    if (theirs == nullptr) {
        return nullptr;
    }
    place = theirs;
    return const_cast<Table*>(&ours);
}

/// The submissions that the adapter is in. A second thread, or a callback, may submit a wrapper
/// that another one has put our table into.
class Submissions {
  public:
    struct Submission {
        const OfflineDataWraper* wrapper;
        camera3_callback_ops* framework; ///< As the host named it.
        Submission* next;
    };
    /// Finds out the wrapper's table.
    void Add(Submission& submission) {
        pthread_mutex_lock(&mLock);
        camera3_callback_ops* const named =
            __atomic_load_n(&submission.wrapper->pCamera3CbOps, __ATOMIC_RELAXED);
        const Submission* const other = Find(submission.wrapper);
        submission.framework = other != nullptr && CameraOf(kFrameworks, named) < kCameras
                                   ? other->framework
                                   : TheirsOf(kFrameworks, &Camera::framework, named);
        submission.next = mFirst;
        mFirst = &submission;
        pthread_mutex_unlock(&mLock);
    }
    /// Leaves the table to another submission of the wrapper. \returns whether there is none.
    bool Remove(const Submission& submission) {
        pthread_mutex_lock(&mLock);
        Submission** place = &mFirst;
        while (*place != &submission) {
            place = &(*place)->next;
        }
        *place = submission.next;
        Submission* const other = Find(submission.wrapper);
        if (other != nullptr) {
            other->framework = submission.framework;
        }
        pthread_mutex_unlock(&mLock);
        return other == nullptr;
    }

  private:
    Submission* Find(const OfflineDataWraper* wrapper) const {
        Submission* found = mFirst;
        while (found != nullptr && found->wrapper != wrapper) {
            found = found->next;
        }
        return found;
    }

    pthread_mutex_t mLock = PTHREAD_MUTEX_INITIALIZER;
    Submission* mFirst = nullptr;
};
Submissions g_submissions;

/// Puts the host's table back, where ours still is.
template <class Table>
void Restore(const std::array<Table, kCameras>& ours, Table*& place, Table* theirs) {
    if (CameraOf(ours, __atomic_load_n(&place, __ATOMIC_RELAXED)) < kCameras) {
        __atomic_store_n(&place, theirs, __ATOMIC_RELAXED);
    }
}

/// The wrapper names the framework's table, so that it has ours as long as the call lasts.
uint32_t PassSubmission(PlatFormIntCallbacks* table, OfflineDataWraper* wrapper, void* privData,
                        void* outputBuffer, OffCamApplicationCallbacks* callbacks) {
    const auto submit = g_real.table.SubmitRequestFromRT;
    if (table == nullptr || table->cameraId >= kCameras || wrapper == nullptr) {
        return submit(table, wrapper, privData, outputBuffer, callbacks);
    }
    const uint32_t id = table->cameraId;
    Submissions::Submission submission{wrapper, nullptr, nullptr};
    g_submissions.Add(submission);
    if (auto* const ours =
            Replace(kFrameworks[id], g_cameras[id].framework, submission.framework)) {
        __atomic_store_n(&wrapper->pCamera3CbOps, ours, __ATOMIC_RELAXED);
    }
    callbacks = TheirsOf(kCallbacks, &Camera::callbacks, callbacks);
    const uint32_t status = submit(table, wrapper, privData, outputBuffer,
                                   Replace(kCallbacks[id], g_cameras[id].callbacks, callbacks));
    if (g_submissions.Remove(submission)) {
        Restore(kFrameworks, wrapper->pCamera3CbOps, submission.framework);
    }
    Restore(kCallbacks, wrapper->mpOffCamAppCbs, callbacks);
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
