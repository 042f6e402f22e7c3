/// Android camera HAL3 records, as this platform lays them out.
///
/// They follow Android's public layout with one difference of this platform: a stream buffer ends
/// with 8 bytes more. Streams are allocated by the host as heads of 160-byte records, because the
/// same object also serves as the chip vendor's stream record (`ChiStream`).
#pragma once

#include "platform/abi.h"

#include <cutils/native_handle.h>
#include <system/graphics-base.h>

#include <cstdint>

/// Android's metadata buffer; opaque here.
struct camera_metadata;

/// Static information of a camera; opaque here.
struct camera_info;

enum camera3_stream_type : int32_t {
    CAMERA3_STREAM_OUTPUT = 0,
    CAMERA3_STREAM_INPUT = 1,
    CAMERA3_STREAM_BIDIRECTIONAL = 2,
};

enum camera3_buffer_status : int32_t {
    CAMERA3_BUFFER_STATUS_OK = 0,
    CAMERA3_BUFFER_STATUS_ERROR = 1,
};

/// A stream of the framework. The words from 48 on are the host's; the library copies some of them,
/// and writes those at 148 and 152 of an output stream.
struct camera3_stream {
    int32_t stream_type; ///< One of camera3_stream_type.
    uint32_t width;
    uint32_t height;
    int32_t format; ///< A HAL pixel format.
    uint32_t usage;
    uint32_t max_buffers;
    void* priv;
    int32_t data_space;
    int32_t rotation;
    const char* physical_camera_id;
    uint32_t reserved48;
    uint32_t reserved52;
    uint64_t reserved56;
    uint32_t reserved64;
    uint32_t reserved68;
    uint64_t reserved72[11];
};
ABI_SIZE(camera3_stream, 160);
ABI_OFFSET(camera3_stream, width, 4);
ABI_OFFSET(camera3_stream, format, 12);
ABI_OFFSET(camera3_stream, usage, 16);
ABI_OFFSET(camera3_stream, max_buffers, 20);
ABI_OFFSET(camera3_stream, priv, 24);
ABI_OFFSET(camera3_stream, data_space, 32);
ABI_OFFSET(camera3_stream, rotation, 36);
ABI_OFFSET(camera3_stream, physical_camera_id, 40);
ABI_OFFSET(camera3_stream, reserved48, 48);
ABI_OFFSET(camera3_stream, reserved52, 52);
ABI_OFFSET(camera3_stream, reserved56, 56);
ABI_OFFSET(camera3_stream, reserved64, 64);

/// One buffer of a stream.
struct camera3_stream_buffer {
    camera3_stream* stream;
    buffer_handle_t* buffer;
    int32_t status; ///< One of camera3_buffer_status.
    int32_t acquire_fence;
    int32_t release_fence;
    uint32_t reserved28;
    uint64_t reserved32; ///< Not in Android's public record.
};
ABI_SIZE(camera3_stream_buffer, 40);
ABI_OFFSET(camera3_stream_buffer, buffer, 8);
ABI_OFFSET(camera3_stream_buffer, status, 16);
ABI_OFFSET(camera3_stream_buffer, acquire_fence, 20);
ABI_OFFSET(camera3_stream_buffer, release_fence, 24);

/// One (possibly partial) result of a capture request.
struct camera3_capture_result {
    uint32_t frame_number;
    const camera_metadata* result;
    uint32_t num_output_buffers;
    const camera3_stream_buffer* output_buffers;
    const camera3_stream_buffer* input_buffer;
    uint32_t partial_result;
    uint32_t num_physcam_metadata;
    const char** physcam_ids;
    const camera_metadata** physcam_metadata;
};
ABI_SIZE(camera3_capture_result, 64);
ABI_OFFSET(camera3_capture_result, result, 8);
ABI_OFFSET(camera3_capture_result, num_output_buffers, 16);
ABI_OFFSET(camera3_capture_result, output_buffers, 24);
ABI_OFFSET(camera3_capture_result, input_buffer, 32);
ABI_OFFSET(camera3_capture_result, partial_result, 40);
ABI_OFFSET(camera3_capture_result, num_physcam_metadata, 44);

/// How many buffers of a stream are wanted from the framework.
struct camera3_buffer_request {
    camera3_stream* stream;
    uint32_t num_buffers_requested;
};
ABI_SIZE(camera3_buffer_request, 16);
ABI_OFFSET(camera3_buffer_request, num_buffers_requested, 8);

/// The framework's answer for one stream. The asker allocates `output_buffers`.
struct camera3_stream_buffer_ret {
    camera3_stream* stream;
    int32_t status;
    uint32_t num_output_buffers;
    camera3_stream_buffer* output_buffers;
};
ABI_SIZE(camera3_stream_buffer_ret, 24);
ABI_OFFSET(camera3_stream_buffer_ret, status, 8);
ABI_OFFSET(camera3_stream_buffer_ret, num_output_buffers, 12);
ABI_OFFSET(camera3_stream_buffer_ret, output_buffers, 16);

struct camera3_notify_msg;

/// The framework's callbacks. Every entry takes this table as its first argument.
struct camera3_callback_ops {
    void (*process_capture_result)(const camera3_callback_ops*, const camera3_capture_result*);
    void (*notify)(const camera3_callback_ops*, const camera3_notify_msg*);
    /// Fills the answers' buffers; `*num_returned` holds the number of answers. Returns 0 on
    /// success.
    int32_t (*request_stream_buffers)(const camera3_callback_ops*, uint32_t num_requests,
                                      const camera3_buffer_request* requests,
                                      uint32_t* num_returned, camera3_stream_buffer_ret* answers);
    void (*return_stream_buffers)(const camera3_callback_ops*, uint32_t num_buffers,
                                  const camera3_stream_buffer* const* buffers);
};
ABI_SIZE(camera3_callback_ops, 32);
ABI_OFFSET(camera3_callback_ops, request_stream_buffers, 16);
