/// The framework's streams as the vendor's records.
#pragma once

#include "adapterlayer/sync.h"
#include "platform/chi/offline.h"

namespace OemLayer {

/// A session's input stream as the framework has it. What hangs on it is not set yet.
inline ChiStream MakeInputStream(const camera3_stream& halStream) {
    ChiStream stream = {};
    stream.streamType = static_cast<uint32_t>(halStream.stream_type);
    stream.width = halStream.width;
    stream.height = halStream.height;
    stream.format = static_cast<uint32_t>(halStream.format);
    stream.usage = halStream.usage;
    stream.maxBuffers = halStream.max_buffers;
    stream.dataSpace = static_cast<uint32_t>(halStream.data_space);
    stream.rotation = static_cast<uint32_t>(halStream.rotation);
    stream.physicalCameraId = halStream.physical_camera_id;
    stream.reserved48 = halStream.reserved48;
    stream.reserved52 = halStream.reserved52;
    stream.reserved56 = halStream.reserved56;
    stream.reserved64 = halStream.reserved64;
    stream.reservedText136 = "";
    return stream;
}

inline bool IsRawFormat(uint32_t format) {
    return format == ChiStreamFormatRaw10 || format == ChiStreamFormatRaw16;
}

inline bool IsYuvFormat(uint32_t format) { return format == ChiStreamFormatYCbCr420_888; }

/// Marks a stream as part of a session's list. Whoever watches the boundary may read an output
/// stream of the host's meanwhile.
inline void MarkListed(ChiStream* pStream) {
    StoreRelaxed(pStream->reserved148, 0);
    StoreRelaxed(pStream->reserved152, -1);
}

/// The framework's output stream as the vendor's record: the host allocates its streams as both.
inline ChiStream* AsChiStream(camera3_stream* pStream) {
    return reinterpret_cast<ChiStream*>(pStream);
}

} // namespace OemLayer
