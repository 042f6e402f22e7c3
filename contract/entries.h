/// Everything that crosses the boundary between host, adapter and vendor, call by call.
///
/// Each entry has the list of its arguments, by which events are shown, compared and played again.
/// contract/records.h has the same for the records that arguments point at.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace contract {

/// On which of the adapter's two sides an entry lies.
enum class Side : uint8_t { Host, Vendor };

/// Who calls an entry: the adapter, or host and vendor, who call into it.
enum class Caller : uint8_t { Adapter, Outside };

// clang-format off
/// ENTRY(identifier, its name within its side, side, caller). Numbers go into recordings: new ones
/// come last, with a new version of the format.
#define CONTRACT_ENTRIES(ENTRY) \
    ENTRY(LoadLib, "loadLib", Host, Outside) \
    ENTRY(LogMap, "logMap", Host, Outside) \
    ENTRY(ProcRequest, "ProcRequest", Host, Outside) \
    ENTRY(Create, "Create", Host, Outside) \
    ENTRY(Destroy, "Destroy", Host, Outside) \
    ENTRY(Flush, "Flush", Host, Outside) \
    ENTRY(TearDownResource, "TearDownResource", Host, Outside) \
    ENTRY(CreateAndroidMetadata, "CreateAndroidMetadata", Host, Outside) \
    ENTRY(CreateByAndroidMetadata, "CreateByAndroidMetadata", Host, Outside) \
    ENTRY(ReleaseAndroidMetadata, "ReleaseAndroidMetadata", Host, Outside) \
    ENTRY(CreateWithUsage, "CreateWithUsage", Host, Outside) \
    ENTRY(Copy, "Copy", Host, Outside) \
    ENTRY(DestroyMetadata, "MetadataDestroy", Host, Outside) \
    ENTRY(GetTag, "GetTag", Host, Outside) \
    ENTRY(SetTag, "SetTag", Host, Outside) \
    ENTRY(DeleteTag, "DeleteTag", Host, Outside) \
    ENTRY(TakeImageBuffer, "GetImageBuffer", Host, Outside) \
    ENTRY(GiveImageBuffer, "ReleaseImageBuffer", Host, Outside) \
    ENTRY(MapImageBuffer, "GetCPUAddress", Host, Outside) \
    ENTRY(SubmitRequestFromRT, "SubmitRequestFromRT", Host, Outside) \
    ENTRY(TranslateToBuffer, "TranslateToBuffer", Host, Outside) \
    ENTRY(TranslateFromBuffer, "TranslateFromBuffer", Host, Outside) \
    ENTRY(GetNCSCallback, "GetNCSCallback", Host, Outside) \
    ENTRY(GetHWCallback, "GetHWCallback", Host, Outside) \
    ENTRY(GetPerfCallback, "GetPerfCallback", Host, Outside) \
    ENTRY(CreateSensorInitSettings, "CreateSensorInitSettings", Host, Outside) \
    ENTRY(EnumerateSensorModes, "EnumerateSensorModes", Host, Outside) \
    ENTRY(ExtensionProcessResultMeta, "ExtensionProcessResultMeta", Host, Outside) \
    ENTRY(ReleaseRtBuffers, "releaseRtBuffers", Host, Adapter) \
    ENTRY(RequestComplete, "requestComplete", Host, Adapter) \
    ENTRY(CaptureResult, "captureResult", Host, Adapter) \
    ENTRY(RequestStreamBuffers, "request_stream_buffers", Host, Adapter) \
    ENTRY(OpenContext, "OpenContext", Vendor, Adapter) \
    ENTRY(OpenSession, "OpenSession", Vendor, Adapter) \
    ENTRY(CloseSession, "CloseSession", Vendor, Adapter) \
    ENTRY(ConfigureStreams, "ConfigureStreams", Vendor, Adapter) \
    ENTRY(ExecuteRequest, "ExecuteRequest", Vendor, Adapter) \
    ENTRY(OpenMetadataOps, "OpenMetadataOps", Vendor, Adapter) \
    ENTRY(OpenBufferOps, "OpenBufferOps", Vendor, Adapter) \
    ENTRY(TranslateToChiBuffer, "TranslateToChiBuffer", Vendor, Adapter) \
    ENTRY(TranslateFromChiBuffer, "TranslateFromChiBuffer", Vendor, Adapter) \
    ENTRY(MetadataOpsClose, "MetadataOpsClose", Vendor, Adapter) \
    ENTRY(MetadataCreate, "MetadataCreate", Vendor, Adapter) \
    ENTRY(MetadataCreateWithUsage, "MetadataCreateWithUsage", Vendor, Adapter) \
    ENTRY(MetadataDestroy, "MetadataDestroy", Vendor, Adapter) \
    ENTRY(MetadataCreateFromAndroid, "MetadataCreateFromAndroid", Vendor, Adapter) \
    ENTRY(MetadataCreateAndroid, "MetadataCreateAndroid", Vendor, Adapter) \
    ENTRY(MetadataReleaseAndroid, "MetadataReleaseAndroid", Vendor, Adapter) \
    ENTRY(MetadataGetTag, "MetadataGetTag", Vendor, Adapter) \
    ENTRY(MetadataSetTag, "MetadataSetTag", Vendor, Adapter) \
    ENTRY(MetadataDeleteTag, "MetadataDeleteTag", Vendor, Adapter) \
    ENTRY(MetadataCopy, "MetadataCopy", Vendor, Adapter) \
    ENTRY(BufferOpsClose, "BufferOpsClose", Vendor, Adapter) \
    ENTRY(BufferManagerCreate, "BufferManagerCreate", Vendor, Adapter) \
    ENTRY(BufferManagerDestroy, "BufferManagerDestroy", Vendor, Adapter) \
    ENTRY(GetImageBuffer, "GetImageBuffer", Vendor, Adapter) \
    ENTRY(ReleaseImageBuffer, "ReleaseImageBuffer", Vendor, Adapter) \
    ENTRY(GetCPUAddress, "GetCPUAddress", Vendor, Adapter) \
    ENTRY(ProcessCaptureResult, "ProcessCaptureResultCb", Vendor, Outside) \
    ENTRY(ProcessNotify, "ProcessNotifyCb", Vendor, Outside) \
    ENTRY(GetFrameworkBuffers, "GetFrameworkBuffers", Vendor, Outside) \
    ENTRY(Pixels, "pixels", Vendor, Adapter)
// clang-format on

#define CONTRACT_ENTRY(identifier, name, side, caller) identifier,
/// `Pixels` is no call: its events carry what an input's image holds, piece by piece.
enum class Entry : uint16_t { CONTRACT_ENTRIES(CONTRACT_ENTRY) Count };
#undef CONTRACT_ENTRY

/// What a word of an argument list or of a record is.
enum class Kind : uint8_t {
    Number,     ///< Unsigned.
    Signed,     ///< Negative numbers are the full word.
    Word,       ///< Bits without a meaning here.
    Text,       ///< The address of a text that ends with a zero.
    TextObject, ///< A std::string in place.
    Pointers,   ///< A std::vector of pointers in place.
    Record,     ///< The address of a record that is lent for the call.
    Object,     ///< A handle or an address of something that lives on.
};

/// What the handles and addresses stand for that live on. A new one gets the next serial of its
/// kind, at its birth or, where that was not seen, at its first appearance.
enum class Object : uint8_t {
    None,
    Adapter,
    Interface,
    MetadataTable,
    BufferTable,
    Session,
    Metadata,
    AndroidMetadata,
    Manager,
    Image,
    Memory,
    Stream,
    Buffer,    ///< A framework's buffer handle.
    Request,   ///< The host's record of a request.
    Execution, ///< The adapter's record of a request, which the vendor brings back.
    Callbacks, ///< A table of callbacks, or what belongs to one.
    Function,
    Other, ///< Opaque to all but its owner.
    Count,
};

enum class Record : uint16_t;

/// One argument of an entry, or one member of a record.
struct Field {
    const char* name;
    Kind kind;
    Object object = Object::None;
    Record record{};         ///< What it points at, as far as that is recorded; 0 for nothing.
    uint16_t offset = 0;     ///< In a record.
    uint16_t size = 8;       ///< Of one of them.
    uint16_t count = 1;      ///< How many lie in a row.
    bool isBorn = false;     ///< The object is a new one.
    bool isOut = false;      ///< The record behind it is recorded when the call returns.
    bool isReserved = false; ///< Of unknown meaning, and mostly 0.
};

struct EntryText {
    const char* name;
    Side side;
    Caller caller;
    std::span<const Field> arguments;
    const Field* result; ///< Null where it returns nothing.
};

/// All about an entry. `entry` is below Entry::Count.
const EntryText& TextOf(Entry entry);
const char* NameOf(Object object); ///< As in "session".
const char* NameOf(Side side);

} // namespace contract
