/// From events to lanes, slices and arrows.
#include "view/timeline.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>

namespace view {
namespace {

using contract::Entry;
using contract::Event;
using nlohmann::json;

constexpr int kProcess = 1;

class Writer {
  public:
    Writer(std::ostream& out, const Story& story, Moment start, TimelinePart* part)
        : mOut(out), mStory(story), mStart(start), mPart(part), mOpen(story.Threads().size()) {}

    void Write() {
        mOut << R"({"traceEvents": [)"
             << json{{"ph", "M"},
                     {"pid", kProcess},
                     {"name", "process_name"},
                     {"args", {{"name", "host, adapter and vendor"}}}};
        Name(0, "counters");
        for (size_t i = 0; i < mStory.Threads().size(); ++i) {
            Name(i + 1, mStory.Threads()[i].name);
        }
        for (mIndex = 0; mIndex < mStory.Events().size(); ++mIndex) {
            Take(mStory.Events()[mIndex]);
        }
        for (size_t i = 0; i < mOpen.size(); ++i) {
            while (!mOpen[i].empty()) {
                End(i);
            }
        }
        mOut << "\n]}\n";
    }

  private:
    void Name(size_t lane, const std::string& name) {
        mOut << ",\n"
             << json{{"ph", "M"},
                     {"pid", kProcess},
                     {"tid", lane},
                     {"name", "thread_name"},
                     {"args", {{"name", name}}}};
    }

    /// Lane 0 is the counter's; a thread's is its serial.
    void Put(const char* phase, size_t lane, const std::string& name, const json& more) {
        json event{{"ph", phase},
                   {"pid", kProcess},
                   {"tid", lane},
                   {"ts", static_cast<double>(static_cast<int64_t>(mTime - mStart)) / 1e3},
                   {"name", name}};
        event.update(more);
        mOut << ",\n" << event;
    }

    void Take(const Event& event) {
        if (event.Of() == Entry::Pixels) {
            return;
        }
        mTime = event.Time();
        const size_t thread = mStory.Serials().ThreadOf(mIndex) - 1;
        mIsShown = IsShown(event);
        if (!event.IsCall()) {
            Return(event, thread);
        } else if (mIsShown) {
            mOpen[thread].push_back(mIndex);
            Put("B", thread + 1, event.Text().name, Arguments());
            Draw(event, thread + 1);
        } else {
            ++mPart->leftOut;
        }
        Count(event);
    }

    bool IsShown(const Event& event) {
        const uint32_t request = mStory.SubjectOf(mIndex).request;
        if (mPart == nullptr) {
            return true;
        }
        return request != 0 ? mPart->shows(mStory.Requests()[request - 1])
                            : event.IsCall() && mOthers++ < mPart->others;
    }

    /// Ends what returns. What returns without a call is not shown, or its call was overwritten in
    /// the recording.
    void Return(const Event& event, size_t thread) {
        const auto& open = mOpen[thread];
        const auto isCall = [&](size_t index) {
            return mStory.Events()[index].Number() == event.Header().call;
        };
        const auto found = std::find_if(open.rbegin(), open.rend(), isCall);
        const auto above = static_cast<size_t>(found - open.rbegin());
        for (size_t i = 0; found != open.rend() && i <= above; ++i) {
            End(thread);
        }
    }

    /// Some viewers want an end to be called as its beginning.
    void End(size_t thread) {
        const Event& call = mStory.Events()[mOpen[thread].back()];
        mOpen[thread].pop_back();
        Put("E", thread + 1, call.Text().name, json::object());
    }

    json Arguments() const {
        json arguments{{"event", mStory.Events()[mIndex].Number()}};
        const Subject& subject = mStory.SubjectOf(mIndex);
        if (subject.request != 0) {
            arguments["frame"] = mStory.Requests()[subject.request - 1].frame;
        }
        if (subject.session != 0) {
            arguments["session"] = subject.session;
        }
        return {{"args", arguments}};
    }

    void Draw(const Event& event, size_t lane) {
        const char* const phase = event.Of() == Entry::SubmitRequestFromRT ? "s"
                                  : event.Of() == Entry::CaptureResult     ? "t"
                                  : event.Of() == Entry::RequestComplete   ? "f"
                                                                           : nullptr;
        const uint32_t request = mStory.SubjectOf(mIndex).request;
        if (phase != nullptr && request != 0) {
            Put(phase, lane, "request", {{"cat", "request"}, {"id", request}, {"bp", "e"}});
        }
    }

    /// A request is in flight from its submission to its completion, its refusal or its loss.
    void Count(const Event& event) {
        const uint32_t serial = mStory.SubjectOf(mIndex).request;
        const bool isRefused =
            serial != 0 && event.IsReturn(Entry::SubmitRequestFromRT) && event.Result() != 0;
        const bool isCompleted = serial != 0 && event.IsCall(Entry::RequestComplete) &&
                                 mStory.Requests()[serial - 1].completed == event.Time();
        if (event.IsCall(Entry::SubmitRequestFromRT)) {
            CountTo(mInFlight + 1);
        } else if (isRefused || isCompleted) {
            CountTo(mInFlight - 1);
        } else if (event.IsReturn(Entry::Flush) || event.IsReturn(Entry::Destroy)) {
            for (const Request& request : mStory.Requests()) {
                if (request.lost == event.Time()) {
                    CountTo(mInFlight - 1);
                }
            }
        }
    }

    void CountTo(int64_t inFlight) {
        mInFlight = inFlight;
        if (!mIsShown) {
            return;
        }
        Put("C", 0, "requests in flight", {{"args", {{"requests", inFlight}}}});
    }

    std::ostream& mOut;
    const Story& mStory;
    const Moment mStart;
    TimelinePart* const mPart;
    std::vector<std::vector<size_t>> mOpen; ///< Of each thread: the calls, from the outermost.
    size_t mIndex = 0;                      ///< Of the event.
    bool mIsShown = true;                   ///< The same event.
    size_t mOthers = 0;                     ///< Calls so far that belong to no request.
    Moment mTime = 0;
    int64_t mInFlight = 0;
};

} // namespace

std::string TimelineOf(const Story& story, Moment start, TimelinePart* part) {
    std::ostringstream out;
    Writer(out, story, start, part).Write();
    return std::move(out).str();
}

} // namespace view
