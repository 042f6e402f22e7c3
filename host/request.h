/// One request of the host: what it lends to the library, and what comes back.
#pragma once

#include "adapterlayer/oemlayer_host.h"
#include "host/faults.h"
#include "host/picture.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace host {

class Camera;
using Texts = std::vector<std::string>;

/// An output buffer of the framework, in memory of this process.
class OutputBuffer {
  public:
    explicit OutputBuffer(const Scene& scene);
    ~OutputBuffer();
    OutputBuffer(const OutputBuffer&) = delete;
    OutputBuffer& operator=(const OutputBuffer&) = delete;

    buffer_handle_t* Reference() { return &mHandle; }
    std::span<const uint8_t> Pixels() const { return mPixels; }

  private:
    std::vector<uint8_t> mPixels;
    buffer_handle_t mHandle;
};

/// One thing that came back.
struct Event {
    enum Kind { Metadata, Buffer, Release, Completion } kind;
    double milliseconds;      ///< Since the request was submitted.
    uint32_t frameNumber = 0; ///< Of the result.
    uint32_t value = 0;       ///< Partial number, buffer status or completion status.
    bool isOurs = false;      ///< The output buffer of the request, and no other.
};
const char* NameOf(Event::Kind kind);

/// Starts with the record that the library gets, so that callbacks find their request.
///
/// Until it is submitted it is the host's thread's, then the vendor's threads' until the
/// completion.
struct Request : OemLayer::RequestPrivData {
    // cppcheck-suppress uninitDerivedMemberVar ; the braces make all of it zero
    Request(Camera& owner, const Step& what, const Scene& seen)
        : RequestPrivData{}, camera(owner), step(what), scene(seen), output(seen) {}

    Camera& camera;
    const Step step;
    const Scene& scene;
    std::vector<Exposure> frames;
    OutputBuffer output;
    std::vector<void*> rawBuffers;
    std::vector<void*> metadata;
    uint32_t expectedFrame = 0;
    uint32_t expectedReports = 1; ///< How often each result is reported.
    std::string problem;          ///< Why it was not submitted; empty if it was.
    uint32_t status = 0;          ///< Of the submission.
    std::chrono::steady_clock::time_point submitted;
    double returned = 0;      ///< Milliseconds until the submission had returned.
    uint64_t session = 0;     ///< That the device worked on it in; 0 for none.
    int32_t offlineFrame = 0; ///< The device's number for it.

    bool IsAccepted() const { return problem.empty() && status == 0; }
    double Elapsed() const; ///< Milliseconds since the submission.

    /// What came back so far. From any thread.
    void Record(const Event& event);
    std::vector<Event> Events() const;

    /// \returns false if the completion does not come in time.
    bool WaitForCompletion();

    std::string Describe(const Event& event) const;

    /// What did not come back as it should, one line each.
    Texts Findings() const;

  private:
    std::string DescribePicture() const;
    const Judgement& Judged() const; ///< Once the picture is there.
    std::multiset<std::string> Expected() const;

    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<Event> mEvents;
    mutable std::optional<Judgement> mJudgement;
};

} // namespace host
