/// com.qti.chi.offline.layer.so: stands in the vendor library's place before the adapter, and
/// passes each call on to the real library, and each callback on to the adapter.
#include "layer/layer.h"
#include "platform/chi/modules.h"
#include "platform/chi/offline.h"

#include <new>
#include <pthread.h>
#include <utility>

const char layer::kTag[] = "CamLayerVendor";

namespace layer {
namespace {

using contract::Entry;

// --- The real library ---------------------------------------------------------------------------

/// Written once, before anything else here is used.
struct Real {
    Layer layer;
    ChiOfflineOpenContextFn openContext = nullptr;
};
Real g_real;

const Real& TheReal() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, [] {
        g_real.layer =
            Open(&Settings::vendor, "com.qti.chi.offline.real.so", "ChiOfflineOpenContext");
        g_real.openContext =
            reinterpret_cast<ChiOfflineOpenContextFn>(Find(g_real.layer, "ChiOfflineOpenContext"));
    });
    return g_real;
}

contract::Tap& TheTap() { return *g_real.layer.tap; }

/// A table of ours, that stands for one of the vendor's.
template <class Table> struct Wrapped : Table {
    Table* real;
    Wrapped* next; ///< Of those that were closed, where it
    bool isClosed; ///< is one of them.
};

/// Records of ours that were closed. They are never freed, and used again only once many others
/// have been closed: whoever still has one may close it twice, or call back with it, as it could
/// without the layer.
template <class Record> class Closed {
  public:
    void Give(Record* record) {
        pthread_mutex_lock(&mLock);
        if (!std::exchange(record->isClosed, true)) {
            record->next = nullptr;
            (mCount == 0 ? mFirst : mLast->next) = record;
            mLast = record;
            ++mCount;
        }
        pthread_mutex_unlock(&mLock);
    }
    /// One from the heap only where many are open. \returns null where there is no memory.
    Record* Take() {
        Record* record = nullptr;
        pthread_mutex_lock(&mLock);
        if (mCount > kKept) {
            record = std::exchange(mFirst, mFirst->next);
            record->isClosed = false;
            --mCount;
        } else if (mUsed < kOwn) {
            record = &mOwn[mUsed++];
        }
        pthread_mutex_unlock(&mLock);
        return record != nullptr ? record : new (std::nothrow) Record();
    }

  private:
    static constexpr size_t kKept = 64; ///< That are closed, and not used again yet.
    static constexpr size_t kOwn = 2 * kKept;

    pthread_mutex_t mLock = PTHREAD_MUTEX_INITIALIZER;
    Record mOwn[kOwn] = {};
    size_t mUsed = 0;
    Record* mFirst = nullptr; ///< The one that was closed longest ago.
    Record* mLast = nullptr;
    size_t mCount = 0;
};
template <class Record> Closed<Record> g_closed;

/// What is called where no table says whose function it is. A process has one vendor and one
/// adapter, whose tables of a kind have the same functions: those of the last one serve all.
template <class Table> Table g_functions;

ChiOfflineInterface* RealOf(ChiOfflineInterface* ours) {
    return static_cast<Wrapped<ChiOfflineInterface>*>(ours)->real;
}
ChiOfflineMetadataOps* RealOf(ChiOfflineMetadataOps* ours) {
    return static_cast<Wrapped<ChiOfflineMetadataOps>*>(ours)->real;
}
ChiOfflineBufferManagerOps* RealOf(ChiOfflineBufferManagerOps* ours) {
    return static_cast<Wrapped<ChiOfflineBufferManagerOps>*>(ours)->real;
}

// --- Entries that are passed on -----------------------------------------------------------------

template <Entry E, auto Member> struct Passed;

/// With the table as the first argument.
template <Entry E, class Table, class R, class... Args, R (*Table::*Member)(Table*, Args...)>
struct Passed<E, Member> {
    static R Call(Table* table, Args... args) {
        Table* const real = RealOf(table);
        return TheTap().Around<E>([&] { return (real->*Member)(real, args...); }, table, args...);
    }
};

/// Without.
template <Entry E, class Table, class R, class First, class... Args,
          R (*Table::*Member)(First, Args...)>
requires(!std::is_same_v<First, Table*>) struct Passed<E, Member> {
    static R Call(First first, Args... args) {
        const auto function = __atomic_load_n(&(g_functions<Table>.*Member), __ATOMIC_RELAXED);
        return TheTap().Around<E>([&] { return function(first, args...); }, first, args...);
    }
};

/// In place of what the real table has; nothing where it has nothing.
template <Entry E, auto Member, class Table> void Wrap(Table& table) {
    if (table.*Member != nullptr) {
        __atomic_store_n(&(g_functions<Table>.*Member), table.*Member, __ATOMIC_RELAXED);
        table.*Member = Passed<E, Member>::Call;
    }
}

void WrapAll(ChiOfflineInterface& table);
void WrapAll(ChiOfflineMetadataOps& table);
void WrapAll(ChiOfflineBufferManagerOps& table);

/// A table for one that the vendor opened. Where there is no memory, the vendor's own.
template <class Table> Table* NewTable(Table* real) {
    Wrapped<Table>* const ours = real == nullptr ? nullptr : g_closed<Wrapped<Table>>.Take();
    if (ours == nullptr) {
        return real;
    }
    static_cast<Table&>(*ours) = *real;
    ours->real = real;
    WrapAll(*ours);
    return ours;
}

/// An entry that opens a table.
template <Entry E, auto Member> struct Opens;
template <Entry E, class Table, class... Args,
          Table* (*ChiOfflineInterface::*Member)(ChiOfflineInterface*, Args...)>
struct Opens<E, Member> {
    static Table* Call(ChiOfflineInterface* ours, Args... args) {
        ChiOfflineInterface* const real = RealOf(ours);
        return TheTap().Around<E>([&] { return NewTable((real->*Member)(real, args...)); }, ours,
                                  args...);
    }
};

/// One that closes it.
template <Entry E, class Table> void Close(Table* table) {
    auto* const ours = static_cast<Wrapped<Table>*>(table);
    TheTap().Around<E>([&] { ours->real->pClose(ours->real); }, table);
    g_closed<Wrapped<Table>>.Give(ours);
}

// --- Sessions and their callbacks ---------------------------------------------------------------

/// What the vendor has of a session in place of the adapter's records. Its private word leads back
/// here, also from a copy of it.
struct Session : ChiOfflineSessionCallbacks {
    ChiOfflineSessionCreateInfo info;
    const ChiOfflineSessionCallbacks* adapters; ///< Not read once they may be gone.
    ChiOfflineSessionCallbacks copy;            ///< Of the adapter's.
    uint64_t handle;
    Session* next;
    bool isClosed;
};

/// The open ones.
class Sessions {
  public:
    void Add(Session* session) {
        pthread_mutex_lock(&mLock);
        session->next = mFirst;
        mFirst = session;
        pthread_mutex_unlock(&mLock);
    }
    /// The last one of that handle. \returns null where the handle is unknown.
    Session* Take(uint64_t handle) {
        pthread_mutex_lock(&mLock);
        Session** place = &mFirst;
        while (*place != nullptr && (*place)->handle != handle) {
            place = &(*place)->next;
        }
        Session* const found = *place;
        if (found != nullptr) {
            *place = found->next;
        }
        pthread_mutex_unlock(&mLock);
        return found;
    }

  private:
    pthread_mutex_t mLock = PTHREAD_MUTEX_INITIALIZER;
    Session* mFirst = nullptr;
};
Sessions g_sessions;

/// A callback. The adapter gets its own record where the vendor passes ours, and a copy of its own
/// where the vendor passes a copy. What has none of our words is passed on as it is.
template <Entry E, class R, class... Args,
          R (*ChiOfflineSessionCallbacks::*Member)(const ChiOfflineSessionCallbacks*, Args...)>
struct Passed<E, Member> {
    static R Call(const ChiOfflineSessionCallbacks* theirs, Args... args) {
        using Callbacks = ChiOfflineSessionCallbacks;
        const auto* const session =
            theirs == nullptr ? nullptr : static_cast<const Session*>(theirs->pPrivateCallbackData);
        const Callbacks* passed = theirs;
        auto function = __atomic_load_n(&(g_functions<Callbacks>.*Member), __ATOMIC_RELAXED);
        if (session != nullptr) {
            passed = theirs == session ? session->adapters : &session->copy;
            function = session->copy.*Member;
        }
        return TheTap().Around<E>([&] { return function(passed, args...); },
                                  theirs == session ? passed : theirs, args...);
    }
};

/// Null where the adapter's records have no callbacks, or there is no memory.
Session* NewSession(const ChiOfflineSessionCreateInfo* info) {
    using Callbacks = ChiOfflineSessionCallbacks;
    if (info == nullptr || info->pCallbacks == nullptr) {
        return nullptr;
    }
    Session* const session = g_closed<Session>.Take();
    if (session != nullptr) {
        static_cast<Callbacks&>(*session) = *info->pCallbacks;
        session->adapters = info->pCallbacks;
        session->copy = *info->pCallbacks;
        session->info = *info;
        session->info.pCallbacks = session;
        session->pPrivateCallbackData = session;
        Wrap<Entry::ProcessCaptureResult, &Callbacks::ProcessCaptureResultCb, Callbacks>(*session);
        Wrap<Entry::ProcessNotify, &Callbacks::ProcessNotifyCb, Callbacks>(*session);
        Wrap<Entry::GetFrameworkBuffers, &Callbacks::GetFrameworkBuffers, Callbacks>(*session);
    }
    return session;
}

uint64_t OpenSession(ChiOfflineInterface* ours, ChiOfflineSessionCreateInfo* info) {
    const auto open = [&]() -> uint64_t {
        ChiOfflineInterface* const real = RealOf(ours);
        Session* const session = NewSession(info);
        if (session == nullptr) {
            return real->pOpenSession(real, info);
        }
        session->handle = real->pOpenSession(real, &session->info);
        const uint64_t handle = session->handle;
        if (handle != 0) {
            g_sessions.Add(session);
        } else {
            g_closed<Session>.Give(session);
        }
        return handle;
    };
    return TheTap().Around<Entry::OpenSession>(open, ours, info);
}

/// Out of the list before the vendor may give the handle to another one.
int32_t CloseSession(uint64_t handle) {
    const auto close = [&] {
        Session* const session = g_sessions.Take(handle);
        const int32_t status = g_functions<ChiOfflineInterface>.pCloseSession(handle);
        if (session != nullptr && status == 0) {
            g_closed<Session>.Give(session);
        } else if (session != nullptr) {
            g_sessions.Add(session);
        }
        return status;
    };
    return TheTap().Around<Entry::CloseSession>(close, handle);
}

template <> struct Passed<Entry::OpenSession, &ChiOfflineInterface::pOpenSession> {
    static constexpr auto* Call = OpenSession;
};
template <> struct Passed<Entry::CloseSession, &ChiOfflineInterface::pCloseSession> {
    static constexpr auto* Call = CloseSession;
};
template <> struct Passed<Entry::OpenMetadataOps, &ChiOfflineInterface::pOpenMetadataOps>
    : Opens<Entry::OpenMetadataOps, &ChiOfflineInterface::pOpenMetadataOps> {};
template <> struct Passed<Entry::OpenBufferOps, &ChiOfflineInterface::pOpenBufferOps>
    : Opens<Entry::OpenBufferOps, &ChiOfflineInterface::pOpenBufferOps> {};
template <> struct Passed<Entry::MetadataOpsClose, &ChiOfflineMetadataOps::pClose> {
    static constexpr auto* Call = Close<Entry::MetadataOpsClose, ChiOfflineMetadataOps>;
};
template <> struct Passed<Entry::BufferOpsClose, &ChiOfflineBufferManagerOps::pClose> {
    static constexpr auto* Call = Close<Entry::BufferOpsClose, ChiOfflineBufferManagerOps>;
};

// --- The tables' entries under their names there ------------------------------------------------

void WrapAll(ChiOfflineInterface& table) {
#define WRAP(entry) Wrap<Entry::entry, &ChiOfflineInterface::p##entry>(table)
    WRAP(OpenSession);
    WRAP(CloseSession);
    WRAP(ConfigureStreams);
    WRAP(ExecuteRequest);
    WRAP(OpenMetadataOps);
    WRAP(OpenBufferOps);
    WRAP(TranslateToChiBuffer);
    WRAP(TranslateFromChiBuffer);
#undef WRAP
}

void WrapAll(ChiOfflineMetadataOps& table) {
    Wrap<Entry::MetadataOpsClose, &ChiOfflineMetadataOps::pClose>(table);
#define WRAP(entry) Wrap<Entry::Metadata##entry, &ChiOfflineMetadataOps::p##entry>(table)
    WRAP(Create);
    WRAP(CreateWithUsage);
    WRAP(Destroy);
    WRAP(CreateFromAndroid);
    WRAP(CreateAndroid);
    WRAP(ReleaseAndroid);
    WRAP(GetTag);
    WRAP(SetTag);
    WRAP(DeleteTag);
    WRAP(Copy);
#undef WRAP
}

void WrapAll(ChiOfflineBufferManagerOps& table) {
    using Ops = ChiOfflineBufferManagerOps;
    Wrap<Entry::BufferOpsClose, &Ops::pClose>(table);
    Wrap<Entry::BufferManagerCreate, &Ops::pCreate>(table);
    Wrap<Entry::BufferManagerDestroy, &Ops::pDestroy>(table);
    Wrap<Entry::GetImageBuffer, &Ops::pGetImageBuffer>(table);
    Wrap<Entry::ReleaseImageBuffer, &Ops::pReleaseImageBuffer>(table);
    Wrap<Entry::GetCPUAddress, &Ops::pGetCPUAddress>(table);
}

/// The one of the process: a vendor that is opened again has the same.
ChiOfflineInterface* InterfaceFor(ChiOfflineInterface* real) {
    static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    static ChiOfflineInterface* ours = nullptr;
    pthread_mutex_lock(&lock);
    if (ours == nullptr) {
        ours = NewTable(real);
    }
    ChiOfflineInterface* const answer = real == nullptr ? nullptr : ours;
    pthread_mutex_unlock(&lock);
    return answer;
}

} // namespace
} // namespace layer

// --- The exported entry point -------------------------------------------------------------------

extern "C" __attribute__((visibility("default"))) void* ChiOfflineOpenContext(void* unused,
                                                                              uint32_t version);

void* ChiOfflineOpenContext(void* unused, uint32_t version) {
    using namespace layer;
    const Real& real = TheReal();
    if (real.openContext == nullptr) {
        return nullptr;
    }
    if (real.layer.tap == nullptr) {
        return real.openContext(unused, version);
    }
    const auto open = [&]() -> void* {
        return InterfaceFor(static_cast<ChiOfflineInterface*>(real.openContext(unused, version)));
    };
    return TheTap().Around<Entry::OpenContext>(open, unused, version);
}
