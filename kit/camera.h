/// What the cameras of hosts have in common.
#pragma once

#include "contract/tap.h"
#include "kit/library.h"
#include "standin/control.h"

#include <iterator>
#include <span>
#include <utility>
#include <vector>

namespace kit {

/// The partial numbers of the real-time results end here.
inline constexpr uint32_t kPartialBase = 2;

/// Acts, and has the contract's rules see it. The arguments are those of the entry.
template <contract::Entry E, class Act, class... Args> auto See(Act act, Args... args) {
    return contract::Around<E>(StandinControl()->Feed(), act, args...);
}

/// The library's table of a camera, as a host calls it. What the contract's rules have to see of
/// the host's side stands before the library's own functions.
class HostTable : public PlatFormIntCallbacks {
  public:
    // cppcheck-suppress uninitDerivedMemberVar ; all of it is copied
    explicit HostTable(const PlatFormIntCallbacks& library)
        : PlatFormIntCallbacks(library), mLibrary(library) {
        using contract::Entry;
        Create = [](auto* table, auto id) {
            return See<Entry::Create>([=] { return Of(table).Create(table, id); }, table);
        };
        Destroy = [](auto* table) {
            return See<Entry::Destroy>([=] { return Of(table).Destroy(table); }, table);
        };
        Flush = [](auto* table) { See<Entry::Flush>([=] { Of(table).Flush(table); }, table); };
        SubmitRequestFromRT = [](auto* table, auto... args) {
            return See<Entry::SubmitRequestFromRT>(
                [=] { return Of(table).SubmitRequestFromRT(table, args...); }, table, args...);
        };
    }

  private:
    static const PlatFormIntCallbacks& Of(PlatFormIntCallbacks* table) {
        return static_cast<HostTable*>(table)->mLibrary;
    }

    PlatFormIntCallbacks mLibrary;
};

/// A camera of a host, and the framework's side of it: the base of `Host`. Its members `OnResult`,
/// `OnRelease` and `OnCompletion` are called on the vendor's threads, as is `Lend`, which has the
/// buffer for a stream that asks. A `Request` starts with the record that the library gets, and has
/// a member `camera`.
template <class Host, class Request> class HostCamera : private camera3_callback_ops {
  protected:
    // cppcheck-suppress uninitDerivedMemberVar ; the braces make all of it zero
    HostCamera(const Adapter& library, uint32_t id)
        : camera3_callback_ops{}, mTable(library.Table(id)) {
        request_stream_buffers = LendAll;
        mWrapper.identity.cameraId = id;
        mWrapper.pCamera3CbOps = this;
        mWrapper.m_pRealtimeSessionParameters =
            reinterpret_cast<const camera_metadata*>(&kSessionParameters);
    }

    static camera3_stream_buffer StreamBuffer(camera3_stream* stream, buffer_handle_t* handle) {
        return {.stream = stream, .buffer = handle, .acquire_fence = -1, .release_fence = -1};
    }

    /// Makes a request's metadata, which says for each set which one it is for. Null where the
    /// vendor gives none.
    void CreateSetMetadata(std::vector<void*>& all, uint32_t sets) {
        constexpr uint32_t kTags[] = {1, 2};
        for (uint32_t i = 0; i < sets; ++i) {
            const standin::SetMark mark{mWrapper.identity.cameraId, i};
            all.push_back(mTable.CreateWithUsage(&mTable, kTags, std::size(kTags), 0));
            if (all.back() != nullptr) {
                mTable.SetTag(&mTable, all.back(), standin::kSetMarkTag, &mark, sizeof mark, 0);
            }
        }
    }

    /// Gives back what is there, through an entry of the table.
    template <class Entry>
    void GiveBackAll(Entry PlatFormIntCallbacks::*entry, std::span<void*> all) {
        for (void*& each : all) {
            if (each != nullptr) {
                (mTable.*entry)(&mTable, std::exchange(each, nullptr));
            }
        }
    }

    HostTable mTable;
    OemLayer::OffCamApplicationCallbacks mCallbacks{
        [](auto* record) {
            const auto act = [=] { Of(record).camera.OnRelease(Of(record)); };
            See<contract::Entry::ReleaseRtBuffers>(act, IdOf(record), record);
        },
        [](auto* record, auto status) {
            const auto act = [=] { Of(record).camera.OnCompletion(Of(record), status); };
            See<contract::Entry::RequestComplete>(act, IdOf(record), record, status);
        },
        [](auto* record, auto* result) {
            const auto act = [=] { Of(record).camera.OnResult(Of(record), *result); };
            See<contract::Entry::CaptureResult>(act, IdOf(record), record, result);
        }};
    OemLayer::OfflineDataWraper mWrapper{}; ///< Of all requests, as far as they are alike.

  private:
    static constexpr uint64_t kSessionParameters = 0; // Opaque to all but the framework.

    static Request& Of(OemLayer::RequestPrivData* record) { return *static_cast<Request*>(record); }
    static uint32_t IdOf(OemLayer::RequestPrivData* record) {
        HostCamera& base = Of(record).camera;
        return base.mTable.cameraId;
    }

    static int32_t LendAll(const camera3_callback_ops* ops, uint32_t count,
                           const camera3_buffer_request* requests, uint32_t* returned,
                           camera3_stream_buffer_ret* answers) {
        auto& base = *const_cast<HostCamera*>(static_cast<const HostCamera*>(ops));
        const auto lend = [=, &host = static_cast<Host&>(base)] {
            for (uint32_t i = 0; i < count; ++i) {
                camera3_stream* const stream = requests[i].stream;
                answers[i].status = 0;
                answers[i].num_output_buffers = 1;
                *answers[i].output_buffers = StreamBuffer(stream, host.Lend(stream));
            }
            *returned = count;
            return int32_t{0};
        };
        return See<contract::Entry::RequestStreamBuffers>(lend, base.mTable.cameraId, count,
                                                          requests, returned, answers);
    }
};

} // namespace kit
