/// The per-camera object behind the callback table, and the formatting functions of the library.
#pragma once

#include "adapterlayer/oemlayer_host.h"
#include "platform/chi/offline.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <unordered_map>

namespace CdkUtils {

/// Formats into `buffer` of `size` bytes, always terminated where `size` is not 0. Any thread.
/// \returns the length written, -1 when the text was cut; with `size` 0 the length that it would
/// have.
__attribute__((weak, visibility("default"), format(printf, 3, 4))) int
SNPrintF(char* buffer, size_t size, const char* fmt, ...);

/// As `SNPrintF`, over an argument list.
__attribute__((weak, visibility("default"), format(printf, 3, 0))) int
VSNPrintF(char* buffer, size_t size, const char* fmt, va_list args);

} // namespace CdkUtils

namespace OemLayer {

class QcomAdaptee;

/// One camera, as the host sees it: forwards the table's callbacks to the vendor's operation
/// records and to the adaptee. Each method is the callback of the same name; PlatFormIntCallbacks
/// documents results, ownership and threads. The object is read before any argument, so that a
/// callback for a camera that does not exist faults instead of returning something.
class PlatformAdapter {
  public:
    explicit PlatformAdapter(uint32_t cameraId);
    ~PlatformAdapter();
    PlatformAdapter(const PlatformAdapter&) = delete;
    PlatformAdapter& operator=(const PlatformAdapter&) = delete;

    /// Tears `adapter` down and frees it. Always 0. The registry keeps its pointer.
    static int64_t Destroy(PlatformAdapter* adapter);
    void Flush();
    void TearDownResource();

    void* CreateAndroidMetadata(void* androidMeta, uint32_t count, uint32_t* out);
    void* CreateByAndroidMetadata(void* androidMeta);
    uint32_t ReleaseAndroidMetadata(void* metadata);
    void* CreateWithUsage(const uint32_t* tags, uint32_t tagCount, int usage);
    uint32_t Copy(void* first, void* second, uint8_t flag);
    uint32_t MetadataDestroy(void* metadata);
    void* GetTag(void* metadata, uint32_t tagId, uint32_t* returnSize, uint8_t typeId);
    uint32_t SetTag(void* metadata, uint32_t tagId, const void* data, uint32_t count,
                    uint32_t extra);
    uint32_t DeleteTag(void* metadata, uint32_t tagId);

    void* GetImageBuffer(ChiStream* stream);
    void ReleaseImageBuffer(void* imageBuffer);
    void* GetCPUAddress(void* imageBuffer);

    uint32_t SubmitRequestFromRT(OfflineDataWraper* request, RequestPrivData* privData,
                                 camera3_stream_buffer* outputBuffer,
                                 OffCamApplicationCallbacks* appCallbacks);
    uint32_t TranslateToBuffer(const camera3_stream_buffer* src, ChiStreamBuffer* dst);
    uint32_t TranslateFromBuffer(const ChiStreamBuffer* src, camera3_stream_buffer* dst);

    /// Needs no adapter.
    static int CreateSensorInitSettings(int& settings, int value);

  private:
    ChiBufferManagerHandle CreateBufferManager(ChiStream* stream);

    QcomAdaptee* m_pAdaptee; ///< Owned.
    ChiOfflineMetadataOps* m_pMetaAdaptee;
    ChiOfflineBufferManagerOps* m_pBufferAdaptee;
    ChiOfflineInterface* m_pIntfOps;
    /// One manager for each stream that `GetImageBuffer` was called with; null where making it
    /// failed.
    std::unordered_map<ChiStream*, ChiBufferManagerHandle> m_streamBufferManagers;
};

} // namespace OemLayer
