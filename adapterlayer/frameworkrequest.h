/// The records of one request for buffers to the framework.
#pragma once

#include "platform/android/camera3.h"

#include <cstdint>
#include <cstdlib>

namespace OemLayer {

/// Owns all that it holds. The framework's interface is C, and so is the allocator.
struct FrameworkRequest {
    explicit FrameworkRequest(unsigned int requests)
        : count(requests), pRequests(Allocate<camera3_buffer_request>(requests)),
          pAnswers(Allocate<camera3_stream_buffer_ret>(requests)),
          pHanded(Allocate<Handed>(requests)) {}
    FrameworkRequest(const FrameworkRequest&) = delete;
    FrameworkRequest& operator=(const FrameworkRequest&) = delete;

    /// Frees also the buffer arrays of answers that the framework did not return.
    ~FrameworkRequest() {
        for (unsigned int i = 0; pHanded != nullptr && i < count; ++i) {
            std::free(pHanded[i].pBuffers);
        }
        std::free(pHanded);
        std::free(pAnswers);
        std::free(pRequests);
    }

    /// Whether there was memory for the records.
    bool IsComplete() const {
        return pRequests != nullptr && pAnswers != nullptr && pHanded != nullptr;
    }

    /// Asks for `wanted` buffers of a stream. \returns whether there was memory for the answer.
    bool Want(unsigned int index, camera3_stream* pStream, uint32_t wanted) {
        pHanded[index] = {Allocate<camera3_stream_buffer>(wanted), wanted};
        pRequests[index].stream = pStream;
        pRequests[index].num_buffers_requested = wanted;
        pAnswers[index].stream = pStream;
        pAnswers[index].output_buffers = pHanded[index].pBuffers;
        return pHanded[index].pBuffers != nullptr || wanted == 0;
    }

    /// The buffer array of an answer as it was handed to the framework. The framework and the
    /// vendor can change the answer and the query meanwhile, and not this.
    struct Handed {
        camera3_stream_buffer* pBuffers;
        uint32_t wanted;
    };

    unsigned int count;
    camera3_buffer_request* pRequests;
    camera3_stream_buffer_ret* pAnswers;
    Handed* pHanded;

  private:
    template <typename Record> static Record* Allocate(unsigned int records) {
        return static_cast<Record*>(std::calloc(records, sizeof(Record)));
    }
};

} // namespace OemLayer
