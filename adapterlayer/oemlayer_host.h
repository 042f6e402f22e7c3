/// The boundary between `camera.oemlayer.adapter.so` and its host, the maker's camera layer.
///
/// The host loads the library, calls `PlatformLoadContext` and then the load function that it
/// received. For each camera it calls `PlatformIntContext`, then `Create` through the table, then
/// the working callbacks, and at the end `TearDownResource`, `Destroy` or both.
///
/// Host and library share C++ objects of LLVM's libc++ inside these records; both use that library.
///
/// Thread safety has three words here:
///  - load-serial:   once, on the host's loading thread, before any camera exists;
///  - camera-serial: never at the same time as any other callback of the same camera id; other
///                   cameras may be busy meanwhile;
///  - concurrent:    at any time between `Create` and `Destroy` of the camera, from any thread.
///
/// Camera ids are below 16. The library does not check them: a larger id reads or writes past its
/// registry. A callback for a camera that does not exist faults, except for `Create` and the ones
/// that say that they need no camera.
#pragma once

#include "platform/abi.h"
#include "platform/android/camera3.h"

#include <cstdint>
#include <string>
#include <vector>

namespace OemLayer {

class PlatformAdapter;

/// Names one offline session: the stream it produces for, the camera it is opened for, the feature.
///
/// Two identities are compared only when their output streams are not null: equality and ordering
/// read the streams' formats through both pointers.
struct OfflineSessionIdentitys {
    camera3_stream* pOutStream = nullptr; ///< Not owned.
    uint32_t cameraId = 0;
    std::string featureName; ///< As in the offline feature map.

    /// Same stream, format, camera and feature. The format can never decide, since equal streams
    /// have one format; both sides of the boundary compare it all the same.
    bool operator==(const OfflineSessionIdentitys& other) const {
        return pOutStream == other.pOutStream && pOutStream->format == other.pOutStream->format &&
               cameraId == other.cameraId && featureName == other.featureName;
    }

    /// Strict order: stream address, format (never decides, see above), camera id, feature name.
    bool operator<(const OfflineSessionIdentitys& other) const {
        if (pOutStream != other.pOutStream) {
            return reinterpret_cast<uintptr_t>(pOutStream) <
                   reinterpret_cast<uintptr_t>(other.pOutStream);
        }
        if (pOutStream->format != other.pOutStream->format) {
            return pOutStream->format < other.pOutStream->format;
        }
        if (cameraId != other.cameraId) {
            return cameraId < other.cameraId;
        }
        return featureName < other.featureName;
    }
};
ABI_SIZE(OfflineSessionIdentitys, 40);
ABI_OFFSET(OfflineSessionIdentitys, cameraId, 8);
ABI_OFFSET(OfflineSessionIdentitys, featureName, 16);

/// The host's record of one real-time request. It must live until the completion callback was
/// called with it; the library writes `rtFrameNumber` and reads the rest.
struct RequestPrivData {
    void* pBufferManager;          ///< Manager of the raw input buffers.
    void* pSecondRawBufferManager; ///< Manager of the raw inputs of odd streams in dual-RDI mode.
    uint64_t reserved16[3];
    void* pYuvBufferManager; ///< Manager of the YUV input buffers.
    uint64_t reserved48[3];
    std::vector<camera3_stream*> inputStreams; ///< Read only while a session is looked up or made.
    uint32_t numInputBuffers;                  ///< Only logged.
    uint32_t rtFrameNumber;     ///< Frame number of the capture results; written by the library.
    uint32_t partialResultBase; ///< The metadata result has this plus 255 as its partial number.
    uint32_t reserved108;
};
ABI_SIZE(RequestPrivData, 112);
ABI_OFFSET(RequestPrivData, pBufferManager, 0);
ABI_OFFSET(RequestPrivData, pSecondRawBufferManager, 8);
ABI_OFFSET(RequestPrivData, pYuvBufferManager, 40);
ABI_OFFSET(RequestPrivData, inputStreams, 72);
ABI_OFFSET(RequestPrivData, numInputBuffers, 96);
ABI_OFFSET(RequestPrivData, rtFrameNumber, 100);
ABI_OFFSET(RequestPrivData, partialResultBase, 104);

/// What the library calls back for each request: on the vendor's threads, or on the submitting
/// thread where the vendor delivers during the submission. The library's locks are not held, so
/// that a callback may submit again; only what a vendor delivers while it opens or configures a
/// session comes with that camera's session registry locked. The table must live until the last
/// request completed. The table of the camera's last submission, be it refused or not, serves all
/// of its requests. A null entry is skipped; without `captureResult` the results' metadata is lost.
struct OffCamApplicationCallbacks {
    /// The real-time buffers of the request are free again. Once, right before completion.
    void (*releaseRtBuffers)(RequestPrivData*);
    /// The request is over; the library holds nothing of it any more. Once, as the last call.
    /// \param status 0, or 1 when the first buffer in the last result's array carried an error
    ///        status, also where that result counts no buffer.
    void (*requestComplete)(RequestPrivData*, uint32_t status);
    /// A result. The record and its buffer array live during the call; `result` becomes the host's
    /// and goes back through `ReleaseAndroidMetadata`.
    void (*captureResult)(RequestPrivData*, camera3_capture_result*);
};
ABI_SIZE(OffCamApplicationCallbacks, 24);
ABI_OFFSET(OffCamApplicationCallbacks, requestComplete, 8);
ABI_OFFSET(OffCamApplicationCallbacks, captureResult, 16);

/// Most input sets of one request, and most input buffers over all of its sets.
inline constexpr uint32_t kMaxInputSets = 12;
inline constexpr uint32_t kMaxInputBuffers = 24;

/// The host's record that hands real-time outputs over. It may be reused or overwritten as soon as
/// `SubmitRequestFromRT` returned.
struct OfflineDataWraper {
    uint32_t rtFrameNumber;
    uint32_t registryWord; ///< Passed on to the session registry, which does not use it.
    uint32_t reserved8;
    uint32_t numBuffers; ///< Number of input sets, at most kMaxInputSets.
    uint64_t reserved16[2];
    OfflineSessionIdentitys identity;
    union {
        uint64_t wrapperContext;
        camera_info* pCameraInfo; ///< The same word, as the camera's static information.
    };
    uint32_t wrapperWord;
    uint32_t reserved84;
    camera3_callback_ops* pCamera3CbOps; ///< Where framework buffers come from; not owned.
    const camera_metadata* m_pRealtimeSessionParameters;
    uint32_t yuvInput; ///< 1: input streams of format YCbCr_420_888 are fed.
    uint32_t reserved108[2];
    uint32_t dualRdi; ///< 1: odd input streams take the second raw buffer of a set.
    void* pChiMetadataHandles[kMaxInputSets];
    void* pRDIBufferHandles[13]; ///< See `RdiBufferHandle`.
    void* pRDIBufferStream[288];
    camera3_stream_buffer* pOfflineOutputBuffer; ///< Written by the library.
    void* yuvBufferHandles[kMaxInputSets];
    RequestPrivData* pRealtimePrivateData;      ///< Written by the library.
    OffCamApplicationCallbacks* mpOffCamAppCbs; ///< Written by the library.

    /// The raw buffer handle with this index. In dual-RDI mode set i uses the indices i and 2i + 1,
    /// and those run past the 13 words of the array into the words behind it: they are read as they
    /// lie.
    void* RdiBufferHandle(uint32_t index) const {
        constexpr uint32_t words = sizeof(pRDIBufferHandles) / sizeof(pRDIBufferHandles[0]);
        return index < words ? pRDIBufferHandles[index] : pRDIBufferStream[index - words];
    }
};
ABI_SIZE(OfflineDataWraper, 2744);
ABI_OFFSET(OfflineDataWraper, registryWord, 4);
ABI_OFFSET(OfflineDataWraper, numBuffers, 12);
ABI_OFFSET(OfflineDataWraper, identity, 32);
ABI_OFFSET(OfflineDataWraper, wrapperContext, 72);
ABI_OFFSET(OfflineDataWraper, wrapperWord, 80);
ABI_OFFSET(OfflineDataWraper, pCamera3CbOps, 88);
ABI_OFFSET(OfflineDataWraper, m_pRealtimeSessionParameters, 96);
ABI_OFFSET(OfflineDataWraper, yuvInput, 104);
ABI_OFFSET(OfflineDataWraper, dualRdi, 116);
ABI_OFFSET(OfflineDataWraper, pChiMetadataHandles, 120);
ABI_OFFSET(OfflineDataWraper, pRDIBufferHandles, 216);
ABI_OFFSET(OfflineDataWraper, pRDIBufferStream, 320);
ABI_OFFSET(OfflineDataWraper, pOfflineOutputBuffer, 2624);
ABI_OFFSET(OfflineDataWraper, yuvBufferHandles, 2632);
ABI_OFFSET(OfflineDataWraper, pRealtimePrivateData, 2728);
ABI_OFFSET(OfflineDataWraper, mpOffCamAppCbs, 2736);

} // namespace OemLayer

/// The load-time pair.
struct PlatformLoadFunctions {
    /// Binds the vendor's and the device's libraries.
    ///
    /// When:      once, before the first `Create`; a later call binds the same libraries again.
    /// Ownership: nothing changes hands; library handles are never closed.
    /// Thread:    load-serial.
    /// Returns:   the address of the bound result-metadata extension; the host need not use it. 1
    ///            without it, where the process ignores SIGABRT.
    /// Failure:   without the camera module, the extension library or one of their required
    ///            functions the process is ended with SIGABRT, after an error line. Without the
    ///            offline library it returns as usual, and cameras exist but cannot process
    ///            offline.
    void* (*loadLib)();
    /// Does nothing. Log levels are set when the library is built.
    void (*logMap)(int, char*, char*);
};
ABI_SIZE(PlatformLoadFunctions, 16);
ABI_OFFSET(PlatformLoadFunctions, logMap, 8);

/// The per-camera callback table. The order of the slots is the contract with the host.
struct PlatFormIntCallbacks {
    uint32_t cameraId; ///< Selects the camera in every callback but `Create`.

    /// Does nothing.
    ///
    /// When:      any time; needs no camera.
    /// Ownership: none.
    /// Thread:    concurrent.
    /// Returns:   nothing; cannot fail.
    /// Then:      everything.
    void (*ProcRequest)(PlatFormIntCallbacks*);

    /// Makes the adapter of a camera and opens the vendor's metadata and buffer operations for it.
    ///
    /// When:      after the load function, before any other callback of the id. A second call for
    ///            an id replaces the first adapter without freeing it: call `Destroy` first.
    /// Ownership: the adapter stays the library's until `Destroy`; the pointer is for comparing
    ///            only.
    /// Thread:    camera-serial.
    /// Returns:   the adapter, never null. The `cameraId` argument selects the slot; the table's
    ///            own id is not looked at.
    /// Failure:   a missing vendor interface or operation leaves the callbacks that need it with
    ///            the failure results given below.
    /// Then:      every callback of the id.
    OemLayer::PlatformAdapter* (*Create)(PlatFormIntCallbacks*, uint32_t cameraId);

    /// Ends a camera: destroys its buffer managers, closes its sessions and operations, frees it.
    ///
    /// When:      after `Create`, when no request of the camera is in flight: requests that the
    ///            vendor still has are neither completed nor freed. Not from within a callback of
    ///            the library. Never twice for one `Create`, since the registry keeps the stale
    ///            pointer.
    /// Ownership: vendor metadata and image buffers that the host still holds become unusable.
    /// Thread:    camera-serial.
    /// Returns:   always 0.
    /// Failure:   sessions that `Flush` leaves open stay open here, too, and the vendor must not
    ///            ask for framework buffers through them any more.
    /// Then:      `Create`, and the callbacks that need no camera.
    int64_t (*Destroy)(PlatFormIntCallbacks*);

    /// Closes the camera's offline sessions; the next request of each identity opens a new one.
    ///
    /// When:      after `Create`, when no request of the camera is in flight, and not from within a
    ///            callback of the library.
    /// Ownership: output streams are no longer referred to, except those of the identities below.
    /// Thread:    camera-serial.
    /// Returns:   nothing.
    /// Failure:   a session that the vendor does not close (logged) or has no entry to close (not
    ///            logged) stays open. So does a session whose configuration had failed. Its
    ///            identity keeps pointing at it, and its requests get status 4 until `Destroy`.
    /// Then:      every callback of the id.
    void (*Flush)(PlatFormIntCallbacks*);

    /// Destroys the buffer managers that `GetImageBuffer` made; a later call makes new ones.
    ///
    /// When:      after `Create`, when the host holds no image buffer of the camera. `Destroy`
    ///            includes it; a second call in a row finds nothing to do.
    /// Ownership: image buffers that the host still holds become unusable.
    /// Thread:    camera-serial.
    /// Returns:   nothing; cannot fail.
    /// Then:      every callback of the id.
    void (*TearDownResource)(PlatFormIntCallbacks*);

    /// Translates vendor metadata to Android metadata. The host's counterpart to what results
    /// bring.
    ///
    /// When:      after `Create`.
    /// Ownership: the result is the host's until `ReleaseAndroidMetadata`; `androidMeta`, `count`
    ///            and `out` are passed to the vendor as they are.
    /// Thread:    concurrent, as far as the vendor's metadata operations are.
    /// Returns:   the vendor's object, null when the operation is missing or fails.
    /// Then:      everything.
    void* (*CreateAndroidMetadata)(PlatFormIntCallbacks*, void* androidMeta, uint32_t count,
                                   uint32_t* out);

    /// Makes a vendor metadata object from Android metadata.
    ///
    /// When:      after `Create`.
    /// Ownership: the object is the host's until `MetadataDestroy`; `androidMeta` stays the host's
    ///            and is read during the call.
    /// Thread:    concurrent, as far as the vendor's metadata operations are.
    /// Returns:   the object, null for a null argument or when the operation is missing or fails.
    /// Then:      everything.
    void* (*CreateByAndroidMetadata)(PlatFormIntCallbacks*, void* androidMeta);

    /// Releases Android metadata that `CreateAndroidMetadata` or a capture result brought.
    ///
    /// When:      after `Create`, once for each object.
    /// Ownership: the object is gone.
    /// Thread:    concurrent, as far as the vendor's metadata operations are.
    /// Returns:   the vendor's status; 0 for a null argument or a missing operation, too, and
    ///            where the operation behind `CreateByAndroidMetadata` is missing: nothing is
    ///            released then.
    /// Then:      everything but using the object.
    uint32_t (*ReleaseAndroidMetadata)(PlatFormIntCallbacks*, void* metadata);

    /// Makes a vendor metadata object with room for the given tags.
    ///
    /// When:      after `Create`.
    /// Ownership: the object is the host's until `MetadataDestroy`; `tags` is read during the call.
    /// Thread:    concurrent, as far as the vendor's metadata operations are.
    /// Returns:   the object, null when the operation is missing or fails. `tagCount` counts ids,
    ///            and `usage` is the vendor's.
    /// Then:      everything.
    void* (*CreateWithUsage)(PlatFormIntCallbacks*, const uint32_t* tags, uint32_t tagCount,
                             int usage);

    /// Copies between two vendor metadata objects, in the direction that the vendor defines.
    ///
    /// When:      after `Create`, with live objects.
    /// Ownership: unchanged.
    /// Thread:    concurrent for different objects.
    /// Returns:   the vendor's status; 0 when the operation is missing, too.
    /// Then:      everything.
    uint32_t (*Copy)(PlatFormIntCallbacks*, void* first, void* second, uint8_t flag);

    /// Destroys a vendor metadata object of the host.
    ///
    /// When:      after `Create`, once for each object, and not before the completion of a request
    ///            that uses it as input.
    /// Ownership: the object is gone.
    /// Thread:    concurrent for different objects.
    /// Returns:   the vendor's status; 0 when the operation is missing, too.
    /// Then:      everything but using the object.
    uint32_t (*MetadataDestroy)(PlatFormIntCallbacks*, void* metadata);

    /// Reads a tag of a vendor metadata object.
    ///
    /// When:      after `Create`, with a live object.
    /// Ownership: the data stays the object's; valid until the object is written or destroyed.
    /// Thread:    concurrent with other reads of the object.
    /// Returns:   the data, null when the object has no such tag or the operation is missing.
    ///            `returnSize`, where not null, gets the vendor's size of it, and keeps its value
    ///            when the operation is missing.
    /// Then:      everything.
    void* (*GetTag)(PlatFormIntCallbacks*, void* metadata, uint32_t tagId, uint32_t* returnSize,
                    uint8_t typeId);

    /// Writes a tag of a vendor metadata object.
    ///
    /// When:      after `Create`, with a live object.
    /// Ownership: `data` is read during the call. `count` and `extra` are the vendor's.
    /// Thread:    concurrent for different objects.
    /// Returns:   the vendor's status; 0 when the operation is missing, too.
    /// Then:      everything.
    uint32_t (*SetTag)(PlatFormIntCallbacks*, void* metadata, uint32_t tagId, const void* data,
                       uint32_t count, uint32_t extra);

    /// Removes a tag of a vendor metadata object.
    ///
    /// When:      after `Create`, with a live object.
    /// Ownership: data that `GetTag` gave for the tag is gone.
    /// Thread:    concurrent for different objects.
    /// Returns:   the vendor's status; 0 when the operation is missing, too.
    /// Then:      everything.
    uint32_t (*DeleteTag)(PlatFormIntCallbacks*, void* metadata, uint32_t tagId);

    /// Takes an image buffer from the stream's buffer manager, which the first call makes.
    ///
    /// When:      after `Create`. `chiStream` is not null and is a vendor stream record; its
    ///            address stands for the stream until `TearDownResource`, also if its size or
    ///            format changes.
    /// Ownership: the buffer is the host's until `ReleaseImageBuffer`; the manager is the
    ///            library's.
    /// Thread:    one call at a time for each camera, and not with `TearDownResource` and
    ///            `Destroy`; else concurrent.
    /// Returns:   the buffer, null when the operation that takes it is missing or fails. It is
    ///            asked with a null manager, too, where the vendor could not make one, which is not
    ///            tried again before `TearDownResource`, or has no operation to: what comes of that
    ///            is the vendor's.
    /// Then:      everything.
    void* (*GetImageBuffer)(PlatFormIntCallbacks*, void* chiStream);

    /// Gives an image buffer back to its manager.
    ///
    /// When:      after `Create`, once for each buffer, before the camera's `TearDownResource`.
    /// Ownership: the buffer is the manager's again.
    /// Thread:    concurrent, as far as the vendor's buffer operations are.
    /// Returns:   nothing; with a missing operation nothing happens.
    /// Then:      everything but using the buffer.
    void (*ReleaseImageBuffer)(PlatFormIntCallbacks*, void* imageBuffer);

    /// Where an image buffer's memory is mapped.
    ///
    /// When:      after `Create`, with a buffer that the host holds.
    /// Ownership: the memory is the buffer's.
    /// Thread:    concurrent, as far as the vendor's buffer operations are.
    /// Returns:   the address, null when the operation is missing or fails.
    /// Then:      everything.
    void* (*GetCPUAddress)(PlatFormIntCallbacks*, void* imageBuffer);

    /// Hands the outputs of a real-time request to the offline session of the wrapper's identity,
    /// which the first request of an identity opens.
    ///
    /// When:      after `Create`, also from within the host's own callbacks. Not from within the
    ///            framework's buffer request where the vendor makes that while it opens or
    ///            configures a session: the session registry is locked then.
    /// Ownership: the wrapper (OfflineDataWraper) and the output buffer record
    ///            (camera3_stream_buffer) are the host's again on return. `privData`
    ///            (RequestPrivData) and the input buffers and metadata that the wrapper names are
    ///            lent until the completion callback, or until the return of a refused submission.
    ///            The callbacks (OffCamApplicationCallbacks), the framework's table, the session
    ///            parameters, the camera info and the streams stay referred to until `Flush` or
    ///            `Destroy`. Streams are records of 160 bytes; opening a session writes the words
    ///            at 148 and 152 of its output stream.
    /// Thread:    concurrent, but not with `Flush`, `TearDownResource` and `Destroy`.
    /// Returns:   0: accepted, and the host is called back, possibly before this call returns.
    ///            1: the vendor refused, or cannot execute. 4: a null wrapper or `privData`, more
    ///            sets or input buffers than kMaxInputSets and kMaxInputBuffers, or no session.
    ///            After 1 and 4 nothing is called back. Each is logged at error level. A null
    ///            `outputBuffer` is logged and submitted all the same.
    /// Then:      everything. After 4 for want of a session, the next request of the identity tries
    ///            again to open one, except where the vendor opened with handle 0 or has no entry
    ///            to open with (none until `Flush`) or refused a configuration (none until
    ///            `Destroy`).
    uint32_t (*SubmitRequestFromRT)(PlatFormIntCallbacks*, void* request, void* privData,
                                    void* outputBuffer, void* appCallbacks);

    /// Translates a framework stream buffer to a vendor stream buffer.
    ///
    /// When:      after `Create`.
    /// Ownership: `src` (40 bytes) is read and `dst` (208 bytes) written during the call.
    /// Thread:    concurrent, as far as the vendor's interface is.
    /// Returns:   the vendor's status; 0 when the operation is missing, too.
    /// Then:      everything.
    uint32_t (*TranslateToBuffer)(PlatFormIntCallbacks*, const void* src, void* dst);

    /// Translates a vendor stream buffer to a framework stream buffer.
    ///
    /// When:      after `Create`.
    /// Ownership: `src` (208 bytes) is read and `dst` (40 bytes) written during the call.
    /// Thread:    concurrent, as far as the vendor's interface is.
    /// Returns:   the vendor's status; 0 when the operation is missing, too.
    /// Then:      everything.
    uint32_t (*TranslateFromBuffer)(PlatFormIntCallbacks*, const void* src, void* dst);

    /// The camera module's function that sets the NCS callback.
    ///
    /// When:      after the load function; needs no camera, and the table is not used.
    /// Ownership: the function lives as long as the process.
    /// Thread:    concurrent.
    /// Returns:   the function, null when the camera module has none.
    /// Then:      everything.
    void* (*GetNCSCallback)(PlatFormIntCallbacks*);

    /// The camera module's function that sets the hardware callback.
    ///
    /// When:      after the load function; needs no camera, and the table is not used.
    /// Ownership: the function lives as long as the process.
    /// Thread:    concurrent.
    /// Returns:   the function, null when the camera module has none.
    /// Then:      everything.
    void* (*GetHWCallback)(PlatFormIntCallbacks*);

    /// The camera module's function that sets the performance callback.
    ///
    /// When:      after the load function; needs no camera, and the table is not used.
    /// Ownership: the function lives as long as the process.
    /// Thread:    concurrent.
    /// Returns:   the function, null when the camera module has none.
    /// Then:      everything.
    void* (*GetPerfCallback)(PlatFormIntCallbacks*);

    /// Has the vendor fill sensor init settings.
    ///
    /// When:      any time; needs no camera.
    /// Ownership: `settings` is written during the call.
    /// Thread:    concurrent, as far as the vendor's function is.
    /// Returns:   the vendor's result, unchanged.
    /// Then:      everything.
    int (*CreateSensorInitSettings)(PlatFormIntCallbacks*, int& settings, int value);

    /// The camera module's sensor-mode enumeration. Takes no table.
    ///
    /// When:      after the load function; needs no camera.
    /// Ownership: the arguments are the vendor's and passed on as they are.
    /// Thread:    concurrent, as far as the vendor's function is.
    /// Returns:   the vendor's result, unchanged.
    /// Failure:   before the load function the process is ended with SIGABRT, after an error line;
    ///            where the signal is ignored, 1.
    /// Then:      everything.
    uint32_t (*EnumerateSensorModes)(uint32_t, uint32_t, void*);

    /// The device's result-metadata extension. Takes no table.
    ///
    /// When:      after the load function; needs no camera.
    /// Ownership: the arguments are the extension's and passed on as they are.
    /// Thread:    concurrent, as far as the extension is.
    /// Returns:   the extension's result, unchanged.
    /// Failure:   before the load function the process is ended with SIGABRT, after an error line;
    ///            where the signal is ignored, 1.
    /// Then:      everything.
    uint32_t (*ExtensionProcessResultMeta)(uint32_t, void**);
};
ABI_SIZE(PlatFormIntCallbacks, 216);
ABI_OFFSET(PlatFormIntCallbacks, ProcRequest, 8);
ABI_OFFSET(PlatFormIntCallbacks, Create, 16);
ABI_OFFSET(PlatFormIntCallbacks, Destroy, 24);
ABI_OFFSET(PlatFormIntCallbacks, Flush, 32);
ABI_OFFSET(PlatFormIntCallbacks, TearDownResource, 40);
ABI_OFFSET(PlatFormIntCallbacks, CreateAndroidMetadata, 48);
ABI_OFFSET(PlatFormIntCallbacks, CreateByAndroidMetadata, 56);
ABI_OFFSET(PlatFormIntCallbacks, ReleaseAndroidMetadata, 64);
ABI_OFFSET(PlatFormIntCallbacks, CreateWithUsage, 72);
ABI_OFFSET(PlatFormIntCallbacks, Copy, 80);
ABI_OFFSET(PlatFormIntCallbacks, MetadataDestroy, 88);
ABI_OFFSET(PlatFormIntCallbacks, GetTag, 96);
ABI_OFFSET(PlatFormIntCallbacks, SetTag, 104);
ABI_OFFSET(PlatFormIntCallbacks, DeleteTag, 112);
ABI_OFFSET(PlatFormIntCallbacks, GetImageBuffer, 120);
ABI_OFFSET(PlatFormIntCallbacks, ReleaseImageBuffer, 128);
ABI_OFFSET(PlatFormIntCallbacks, GetCPUAddress, 136);
ABI_OFFSET(PlatFormIntCallbacks, SubmitRequestFromRT, 144);
ABI_OFFSET(PlatFormIntCallbacks, TranslateToBuffer, 152);
ABI_OFFSET(PlatFormIntCallbacks, TranslateFromBuffer, 160);
ABI_OFFSET(PlatFormIntCallbacks, GetNCSCallback, 168);
ABI_OFFSET(PlatFormIntCallbacks, GetHWCallback, 176);
ABI_OFFSET(PlatFormIntCallbacks, GetPerfCallback, 184);
ABI_OFFSET(PlatFormIntCallbacks, CreateSensorInitSettings, 192);
ABI_OFFSET(PlatFormIntCallbacks, EnumerateSensorModes, 200);
ABI_OFFSET(PlatFormIntCallbacks, ExtensionProcessResultMeta, 208);

extern "C" {

/// Stores the load-time pair into `record`, which must not be null. Load-serial.
__attribute__((visibility("default"))) void PlatformLoadContext(PlatformLoadFunctions* record);

/// Stores `cameraId` and the 26 callbacks into `table`, which must not be null. Makes no camera:
/// that is `Create`. Concurrent for different tables.
__attribute__((visibility("default"))) void PlatformIntContext(PlatFormIntCallbacks* table,
                                                               uint32_t cameraId);
}
