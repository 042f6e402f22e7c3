#include "host/request.h"

#include "standin/gralloc.h"
#include "standin/pixels.h"

namespace host {
namespace {

constexpr uint8_t kUnwritten = 0x11; // Darker than any scene.
constexpr uint32_t kMetadataPartial = 255;

#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr std::chrono::seconds kPatience{60};
#else
constexpr std::chrono::seconds kPatience{10};
#endif

constexpr const char* kReleased = "the raw buffers are free again";

} // namespace

const char* NameOf(Event::Kind kind) {
    static constexpr const char* kNames[] = {"metadata", "buffer", "release", "completion"};
    return kNames[kind];
}

OutputBuffer::OutputBuffer(const Scene& scene)
    : mPixels(standin::ImageSize(ChiStreamFormatYCbCr420_888, scene.Width(), scene.Height()),
              kUnwritten),
      mHandle(standin::gralloc::Wrap(mPixels.data(), mPixels.size())) {}

OutputBuffer::~OutputBuffer() { native_handle_delete(const_cast<native_handle_t*>(mHandle)); }

double Request::Elapsed() const {
    const auto elapsed = std::chrono::steady_clock::now() - submitted;
    return std::chrono::duration<double, std::milli>(elapsed).count();
}

void Request::Record(const Event& event) {
    const std::lock_guard lock(mMutex);
    mEvents.push_back(event);
    mChanged.notify_all();
}

std::vector<Event> Request::Events() const {
    const std::lock_guard lock(mMutex);
    return mEvents;
}

bool Request::WaitForCompletion() {
    std::unique_lock lock(mMutex);
    return mChanged.wait_for(lock, kPatience, [this] {
        return !mEvents.empty() && mEvents.back().kind == Event::Completion;
    });
}

std::string Request::Describe(const Event& event) const {
    const std::string frame = "frame " + std::to_string(event.frameNumber);
    const std::string value = std::to_string(event.value);
    switch (event.kind) {
    case Event::Metadata:
        return frame + ", partial number " + value;
    case Event::Buffer:
        return frame + ", status " + value + ", " +
               (event.isOurs ? DescribePicture() : "none of the host's");
    case Event::Completion:
        return "status " + value;
    case Event::Release:
        break;
    }
    return kReleased;
}

const Judgement& Request::Judged() const {
    if (!mJudgement) {
        mJudgement = Judge(scene, frames, output.Pixels());
    }
    return *mJudgement;
}

std::string Request::DescribePicture() const {
    return (Judged().IsAsExpected() ? "" : "wrong: ") + Judged().Describe();
}

/// The names and descriptions of what should come back.
std::multiset<std::string> Request::Expected() const {
    const std::string frame = "frame " + std::to_string(expectedFrame);
    const std::string partial = std::to_string(partialResultBase + kMetadataPartial);
    const std::string metadataLine = "metadata: " + frame + ", partial number " + partial;
    const std::string bufferLine = "buffer: " + frame + ", status 0, " + Judged().Describe();
    std::multiset<std::string> expected{std::string("release: ") + kReleased,
                                        "completion: status 0"};
    for (uint32_t i = 0; i < expectedReports; ++i) {
        expected.insert({metadataLine, bufferLine});
    }
    return expected;
}

Texts Request::Findings() const {
    if (!problem.empty()) {
        return {problem};
    }
    if (status != 0) {
        return {"refused with status " + std::to_string(status)};
    }
    const std::vector<Event> events = Events();
    std::multiset<std::string> missing = Expected();
    Texts findings;
    for (const Event& event : events) {
        const std::string text = std::string(NameOf(event.kind)) + ": " + Describe(event);
        if (const auto found = missing.find(text); found != missing.end()) {
            missing.erase(found);
        } else {
            findings.push_back("unexpected " + text);
        }
    }
    for (const std::string& text : missing) {
        findings.push_back("missing " + text);
    }
    if (findings.empty() && (events.back().kind != Event::Completion ||
                             events[events.size() - 2].kind != Event::Release)) {
        findings.emplace_back("release and completion are not the last, in this order");
    }
    return findings;
}

} // namespace host
