/// The arguments of the entries.
#include "contract/entries.h"

#include "contract/records.h"

#include <array>

namespace contract {
namespace {

constexpr Field Number(const char* name) { return {.name = name, .kind = Kind::Number}; }
constexpr Field Signed(const char* name) { return {.name = name, .kind = Kind::Signed}; }
constexpr Field Text(const char* name) { return {.name = name, .kind = Kind::Text}; }
constexpr Field Lent(const char* name, Record record) {
    return {.name = name, .kind = Kind::Record, .record = record};
}
/// Recorded when the call returns.
constexpr Field Out(const char* name, Record record) {
    return {.name = name, .kind = Kind::Record, .record = record, .isOut = true};
}
constexpr Field Of(const char* name, Object object, Record record = Record::None) {
    return {.name = name, .kind = Kind::Object, .object = object, .record = record};
}
constexpr Field New(const char* name, Object object, Record record = Record::None) {
    return {.name = name, .kind = Kind::Object, .object = object, .record = record, .isBorn = true};
}

constexpr Field kTable = Number("cameraId"); ///< All that a callback reads of the table.
constexpr Field kStatus = Signed("status");
constexpr Field kMetadataOps = Of("ops", Object::MetadataTable);
constexpr Field kBufferOps = Of("ops", Object::BufferTable);
constexpr Field kMetadata = Of("metadata", Object::Metadata);
constexpr Field kImage = Of("imageBuffer", Object::Image);

template <Entry> struct Arguments { static constexpr std::array<Field, 0> kAll{}; };
template <Entry> struct Result { static constexpr const Field* kField = nullptr; };

#define ARGUMENTS(entry, ...)                                                                      \
    template <> struct Arguments<Entry::entry> { static constexpr std::array kAll{__VA_ARGS__}; }
#define RESULT(entry, ...)                                                                         \
    template <> struct Result<Entry::entry> {                                                      \
        static constexpr Field kOnly = __VA_ARGS__;                                                \
        static constexpr const Field* kField = &kOnly;                                             \
    }

// --- The host's side ----------------------------------------------------------------------------

RESULT(LoadLib, Of("extension", Object::Function));
ARGUMENTS(LogMap, Signed("first"), Of("second", Object::Other), Of("third", Object::Other));
ARGUMENTS(ProcRequest, kTable);
ARGUMENTS(Create, kTable);
RESULT(Create, New("adapter", Object::Adapter));
ARGUMENTS(Destroy, kTable);
RESULT(Destroy, kStatus);
ARGUMENTS(Flush, kTable);
ARGUMENTS(TearDownResource, kTable);
ARGUMENTS(CreateAndroidMetadata, kTable, kMetadata, Number("count"), Of("out", Object::Other));
RESULT(CreateAndroidMetadata, Of("android", Object::AndroidMetadata));
ARGUMENTS(CreateByAndroidMetadata, kTable, Of("android", Object::AndroidMetadata));
RESULT(CreateByAndroidMetadata, Of("metadata", Object::Metadata));
ARGUMENTS(ReleaseAndroidMetadata, kTable, Of("android", Object::AndroidMetadata));
RESULT(ReleaseAndroidMetadata, kStatus);
ARGUMENTS(CreateWithUsage, kTable, Lent("tags", Record::Numbers), Number("tagCount"),
          Signed("usage"));
RESULT(CreateWithUsage, Of("metadata", Object::Metadata));
ARGUMENTS(Copy, kTable, Of("first", Object::Metadata), Of("second", Object::Metadata),
          Number("flag"));
RESULT(Copy, kStatus);
ARGUMENTS(DestroyMetadata, kTable, kMetadata);
RESULT(DestroyMetadata, kStatus);
ARGUMENTS(GetTag, kTable, kMetadata, Number("tagId"), Out("returnSize", Record::Numbers),
          Number("typeId"));
RESULT(GetTag, Lent("data", Record::Bytes));
ARGUMENTS(SetTag, kTable, kMetadata, Number("tagId"), Lent("data", Record::Bytes), Number("count"),
          Number("extra"));
RESULT(SetTag, kStatus);
ARGUMENTS(DeleteTag, kTable, kMetadata, Number("tagId"));
RESULT(DeleteTag, kStatus);
ARGUMENTS(TakeImageBuffer, kTable, Of("stream", Object::Stream, Record::Stream));
RESULT(TakeImageBuffer, Of("imageBuffer", Object::Image));
ARGUMENTS(GiveImageBuffer, kTable, kImage);
ARGUMENTS(MapImageBuffer, kTable, kImage);
RESULT(MapImageBuffer, Of("memory", Object::Memory));
ARGUMENTS(SubmitRequestFromRT, kTable, Lent("request", Record::OfflineDataWraper),
          New("privData", Object::Request, Record::RequestPrivData),
          Lent("outputBuffer", Record::FrameworkBuffer),
          Of("appCallbacks", Object::Callbacks, Record::AppCallbacks));
RESULT(SubmitRequestFromRT, kStatus);
ARGUMENTS(TranslateToBuffer, kTable, Lent("src", Record::FrameworkBuffer),
          Out("dst", Record::StreamBuffer));
RESULT(TranslateToBuffer, kStatus);
ARGUMENTS(TranslateFromBuffer, kTable, Lent("src", Record::StreamBuffer),
          Out("dst", Record::FrameworkBuffer));
RESULT(TranslateFromBuffer, kStatus);
RESULT(GetNCSCallback, Of("function", Object::Function));
RESULT(GetHWCallback, Of("function", Object::Function));
RESULT(GetPerfCallback, Of("function", Object::Function));
ARGUMENTS(CreateSensorInitSettings, Out("settings", Record::Signed), Signed("value"));
RESULT(CreateSensorInitSettings, kStatus);
ARGUMENTS(EnumerateSensorModes, Number("first"), Number("second"), Of("modes", Object::Other));
RESULT(EnumerateSensorModes, kStatus);
ARGUMENTS(ExtensionProcessResultMeta, Number("first"), Of("metadata", Object::Other));
RESULT(ExtensionProcessResultMeta, kStatus);

constexpr Field kRequest = Of("privData", Object::Request);
ARGUMENTS(ReleaseRtBuffers, kTable, kRequest);
ARGUMENTS(RequestComplete, kTable, kRequest, Number("status"));
ARGUMENTS(CaptureResult, kTable, kRequest, Lent("result", Record::CaptureResult));
ARGUMENTS(RequestStreamBuffers, kTable, Number("numRequests"),
          Lent("requests", Record::BufferRequest), Out("numReturned", Record::Numbers),
          Out("answers", Record::StreamBufferRet));
RESULT(RequestStreamBuffers, kStatus);

// --- The vendor's side --------------------------------------------------------------------------

constexpr Field kInterface = Of("interface", Object::Interface);
constexpr Field kSession = Of("session", Object::Session);
ARGUMENTS(OpenContext, Of("unused", Object::Other), Number("version"));
RESULT(OpenContext, Of("interface", Object::Interface, Record::Interface));
ARGUMENTS(OpenSession, kInterface, Lent("info", Record::SessionCreateInfo));
RESULT(OpenSession, New("session", Object::Session));
ARGUMENTS(CloseSession, kSession);
RESULT(CloseSession, kStatus);
ARGUMENTS(ConfigureStreams, kSession, Lent("config", Record::SessionConfigInfo));
RESULT(ConfigureStreams, kStatus);
ARGUMENTS(ExecuteRequest, kSession, Lent("request", Record::ExecuteRequest));
RESULT(ExecuteRequest, kStatus);
ARGUMENTS(OpenMetadataOps, kInterface, Lent("info", Record::MetadataOpsOpenInfo));
RESULT(OpenMetadataOps, New("ops", Object::MetadataTable, Record::MetadataOps));
ARGUMENTS(OpenBufferOps, kInterface);
RESULT(OpenBufferOps, New("ops", Object::BufferTable, Record::BufferManagerOps));
ARGUMENTS(TranslateToChiBuffer, Lent("source", Record::FrameworkBuffer),
          Out("target", Record::StreamBuffer));
RESULT(TranslateToChiBuffer, kStatus);
ARGUMENTS(TranslateFromChiBuffer, Lent("source", Record::StreamBuffer),
          Out("target", Record::FrameworkBuffer));
RESULT(TranslateFromChiBuffer, kStatus);
ARGUMENTS(MetadataOpsClose, kMetadataOps);
ARGUMENTS(MetadataCreate, kMetadataOps, Of("source", Object::Other), Number("kind"));
RESULT(MetadataCreate, New("metadata", Object::Metadata));
ARGUMENTS(MetadataCreateWithUsage, kMetadataOps, Lent("tags", Record::Numbers), Number("tagCount"),
          Signed("usage"));
RESULT(MetadataCreateWithUsage, New("metadata", Object::Metadata));
ARGUMENTS(MetadataDestroy, kMetadata);
RESULT(MetadataDestroy, kStatus);
ARGUMENTS(MetadataCreateFromAndroid, kMetadataOps, Of("android", Object::AndroidMetadata),
          Number("first"), Number("second"), Number("count"));
RESULT(MetadataCreateFromAndroid, New("metadata", Object::Metadata));
ARGUMENTS(MetadataCreateAndroid, kMetadataOps, kMetadata, Number("first"), Number("second"),
          Number("count"), Of("out", Object::Other));
RESULT(MetadataCreateAndroid, New("android", Object::AndroidMetadata));
ARGUMENTS(MetadataReleaseAndroid, kMetadataOps, Of("android", Object::AndroidMetadata));
RESULT(MetadataReleaseAndroid, kStatus);
ARGUMENTS(MetadataGetTag, kMetadata, Number("tagId"), Number("typeId"),
          Out("entry", Record::MetadataTagEntry));
RESULT(MetadataGetTag, kStatus);
ARGUMENTS(MetadataSetTag, kMetadata, Number("tagId"), Lent("data", Record::Bytes), Number("count"),
          Number("extra"));
RESULT(MetadataSetTag, kStatus);
ARGUMENTS(MetadataDeleteTag, kMetadata, Number("tagId"));
RESULT(MetadataDeleteTag, kStatus);
ARGUMENTS(MetadataCopy, Of("first", Object::Metadata), Of("second", Object::Metadata),
          Number("flag"));
RESULT(MetadataCopy, kStatus);
ARGUMENTS(BufferOpsClose, kBufferOps);
ARGUMENTS(BufferManagerCreate, kBufferOps, Text("name"),
          Lent("data", Record::BufferManagerCreateData));
RESULT(BufferManagerCreate, New("manager", Object::Manager));
ARGUMENTS(BufferManagerDestroy, Of("manager", Object::Manager));
ARGUMENTS(GetImageBuffer, Of("manager", Object::Manager));
RESULT(GetImageBuffer, New("imageBuffer", Object::Image));
ARGUMENTS(ReleaseImageBuffer, kImage);
ARGUMENTS(GetCPUAddress, kImage);
RESULT(GetCPUAddress, Of("memory", Object::Memory));

constexpr Field kCallbacks = Of("callbacks", Object::Callbacks);
ARGUMENTS(ProcessCaptureResult, kCallbacks, Number("count"),
          Lent("result", Record::CaptureResultInfo));
ARGUMENTS(ProcessNotify, kCallbacks, Number("count"), Of("message", Object::Other));
ARGUMENTS(GetFrameworkBuffers, kCallbacks, Number("numRequests"),
          Lent("requests", Record::QueryBuffer), Out("numReturned", Record::Numbers),
          Out("returned", Record::QueryStreamBuffer));
RESULT(GetFrameworkBuffers, kStatus);
ARGUMENTS(Pixels, kImage, Number("offset"), Number("bytes"), Lent("memory", Record::Bytes));

#define CONTRACT_ENTRY(identifier, name, side, caller)                                             \
    EntryText{name, Side::side, Caller::caller,                                                    \
              std::span<const Field>(Arguments<Entry::identifier>::kAll),                          \
              Result<Entry::identifier>::kField},
constexpr std::array kTexts{CONTRACT_ENTRIES(CONTRACT_ENTRY)};
#undef CONTRACT_ENTRY

constexpr std::array kObjects{
    "",         "adapter", "interface", "metadata-table", "buffer-table", "session",
    "metadata", "android", "manager",   "image",          "memory",       "stream",
    "buffer",   "request", "execution", "callbacks",      "function",     "address"};
static_assert(kObjects.size() == static_cast<size_t>(Object::Count));

} // namespace

const EntryText& TextOf(Entry entry) { return kTexts[static_cast<size_t>(entry)]; }

const char* NameOf(Object object) { return kObjects[static_cast<size_t>(object)]; }

const char* NameOf(Side side) { return side == Side::Host ? "host" : "vendor"; }

} // namespace contract
