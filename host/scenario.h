/// What a run does, and what is expected of it.
#pragma once

#include "standin/control.h"

#include <system/graphics-base.h>

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace host {

/// For people: the forms of a fault's text.
inline constexpr char kFaultForms[] = "\"fail ENTRY [NTH [TIMES]]\", \"missing ENTRY\", "
                                      "\"refuse PATH\" or \"variant PATH FILE\"";

/// Something that goes wrong at the device.
struct Fault {
    std::string text;

    /// \returns what is wrong with the text, empty if nothing is. Nothing is done yet.
    std::string Check() const;
    void Apply(standin::Control& device) const;

    /// Whether the device was called so often that it failed. True for the other forms.
    bool WasReached(const standin::Control& device) const;

    /// The entry or the path, of which a scenario has one fault at most. For a text that is right.
    std::string Place() const;
};
/// A camera of a run.
struct CameraPlan {
    uint32_t id = 0;
    /// Formats of the input streams; two raw ones are dual RDI.
    std::vector<int32_t> inputs = {HAL_PIXEL_FORMAT_RAW10};
    uint32_t width = 1600;
    uint32_t height = 1200;
    std::vector<std::string> features = {"Night"}; ///< Requests take them in turn.
    uint32_t frames = 8;                           ///< Input sets of a request.
    uint32_t requests = 3;
    uint32_t rate = 0;     ///< Requests a second; 0 for as fast as `inFlight` lets them.
    uint32_t inFlight = 0; ///< Most at once; 0 for one, or with a rate for any number.
    uint32_t threads = 1;
    bool sendsOutput = true;
    bool lends = false;         ///< The output's buffer goes to the session when it asks.
    uint32_t announcedSets = 0; ///< Where a request announces another number than it has.
    uint32_t flushAfter = 0;    ///< Flush before the request with this index; 0 for never.
    uint32_t heldAtFlush = 0;   ///< Requests that the vendor still works on at the flush.

    uint32_t CountRaws() const; ///< Inputs of a raw format.
    bool IsDualRdi() const { return CountRaws() == 2; }
};

/// What shall have come true when a run is over.
struct Expectation {
    std::optional<uint32_t> completed;                       ///< Requests. By default all.
    std::map<uint32_t, uint32_t> refused = {{1, 0}, {4, 0}}; ///< Submissions by their status.
    uint32_t notSent = 0;                ///< Requests for which there were no buffers or time.
    uint32_t unanswered = 0;             ///< Accepted requests that were never completed.
    uint32_t errors = 0;                 ///< Completions with a failure.
    std::optional<uint32_t> sessions;    ///< Attempts to open one.
    bool pictures = true;                ///< Each completed request has its picture.
    bool abort = false;                  ///< The process ends by SIGABRT.
    std::vector<std::string> violations; ///< Numbers of the rules that are broken.
};

/// What every camera of a scenario is to have otherwise; 0 leaves what the scenario says.
struct Sizes {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t frames = 0;
    uint32_t requests = 0;
};

struct Scenario {
    std::string name;
    std::string shows; ///< In a line.
    std::vector<CameraPlan> cameras;
    standin::Shape shape = standin::Shape::MetadataFirst;
    standin::Order order = standin::Order::InOrder;
    standin::Delivery delivery = standin::Delivery::OnSessionThread;
    std::chrono::milliseconds latency{};
    bool frameworkBuffers = false; ///< Sessions ask for their output buffers.
    std::vector<Fault> faults;
    uint32_t seed = 1;
    std::chrono::seconds patience{}; ///< For what is in flight at the end.
    std::string scene;      ///< A PNG file to photograph; empty for the one that the host draws.
    std::string scenePlace; ///< Where the file is named, as in "night.json:3: ".
    Expectation expect;

    /// Reads a file. Throws InputError, which names file, line, and what was expected.
    static Scenario Read(const std::string& file);

    /// Has its cameras do more or less. Whether they can is to be checked.
    void Resize(const Sizes& sizes);

    /// Calls for each camera, by its index, whose plan cannot be run, with what is wrong.
    void Check(const std::function<void(size_t, const std::string&)>& refuse) const;
};

/// The files of the scenarios that people know by their names.
std::set<std::filesystem::path> ScenarioFiles();

/// The file of a scenario that is named, or that is a file's name already.
/// \throws InputError where there is none.
std::string FileOfScenario(const std::string& scenario);

/// By their names for people.
// NOLINTNEXTLINE(cert-err58-cpp): without memory the program may end
inline const std::map<std::string, standin::Shape> kShapes{
    {"metadata-first", standin::Shape::MetadataFirst},
    {"buffers-first", standin::Shape::BuffersFirst},
    {"together", standin::Shape::Together},
    {"partials", standin::Shape::Partials},
    {"error-buffer", standin::Shape::ErrorBuffer},
    {"second-block", standin::Shape::SecondBlock}};
// NOLINTNEXTLINE(cert-err58-cpp): as there
inline const std::map<std::string, int32_t> kFormats{{"RAW10", HAL_PIXEL_FORMAT_RAW10},
                                                     {"RAW16", HAL_PIXEL_FORMAT_RAW16},
                                                     {"YUV", HAL_PIXEL_FORMAT_YCBCR_420_888}};

/// The name of one of them.
std::string NameOfFormat(int32_t format);

} // namespace host
