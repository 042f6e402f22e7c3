/// A scenario's run: cameras, their threads, and what came of it.
#pragma once

#include "host/host_camera.h"
#include "kit/layers.h"
#include "kit/recording_file.h"
#include "view/page.h"
#include "view/report.h"
#include "view/report_json.h"
#include "view/told.h"

#include <memory>
#include <string>
#include <vector>

namespace host {

/// What is expected of a process that is to abort.
inline constexpr char kEnd[] = "the end of the process";
inline constexpr char kAbort[] = "by SIGABRT, while the library loads";

/// What came of a run.
struct Outcome {
    uint32_t requests = 0; ///< That were planned.
    uint32_t sent = 0;
    uint32_t completed = 0;
    uint32_t errors = 0; ///< Completions with a failure.
    uint32_t unanswered = 0;
    uint32_t sessions = 0; ///< Attempts to open one.
    uint64_t lost = 0;     ///< Events of the recording that newer ones have overwritten.
    uint32_t wrongPictures = 0;
    std::map<uint32_t, uint32_t> refused; ///< How many submissions got which status.
    std::vector<contract::Violation> violations;
    bool wasInterrupted = false;
    std::vector<view::Expectation> expectations; ///< None where it was interrupted.
    std::vector<std::string> unfulfilled;        ///< Those that did not come true, in words.
};

/// A picture that came back, beside a frame that it was made of.
struct Picture {
    std::string png;     ///< A file's content.
    std::string quality; ///< In a line.
};

class Run {
  public:
    /// How a run is recorded.
    struct Settings {
        std::string file;      ///< Empty for one that nobody sees.
        bool hasLayers = true; ///< Else the device and this host record what they see themselves.
        bool watches = false;  ///< The layers tell the log at once which rules are broken.
    };

    /// Sets the device up as the scenario wants it, and puts the layers in their places. One for
    /// each process: layers and library bind what they need once. The scenario must outlive the
    /// run.
    /// \throws standin::InputError where scene or recording, std::runtime_error where the library
    /// cannot be used
    Run(const Scenario& scenario, const std::string& library, const Settings& settings);

    /// From the load to the destruction of the last camera, and the reading of its recording. For
    /// the main thread.
    void Go();

    /// Looks at the pictures of the completed requests, and compares all with what was expected.
    Outcome Judge();

    /// What the recording tells, after `Go`.
    const view::Told& Told() const { return *mTold; }

    /// The requests' rows, with what came of their pictures, and those that were not sent.
    std::vector<view::Row> Rows() const;

    /// Of the first request that has one; no value where none has.
    std::optional<Picture> MakePicture() const;

    /// The same two pictures for a page, or none.
    std::vector<view::Picture> Pictures() const;

    const std::vector<std::unique_ptr<Camera>>& Cameras() const { return mCameras; }

    /// Ends the current run early: no further request is sent, and what is in flight has a second.
    /// From a signal handler, too.
    static void Interrupt();

    /// Whether the library is binding its platform, which may end the process.
    static bool IsLoading();

  private:
    /// \returns the file to open as the adapter.
    std::string PutLayers(const std::string& library, bool watch);
    void SendAll();
    void Drive(Camera& camera) const;
    void Count(const view::Request& told, Outcome& outcome) const;
    bool HasRightPicture(Request& request) const;
    Request* Find(const view::Request& told) const;
    const Request* FindJudged() const;
    void Compare(Outcome& outcome) const;

    const Scenario& mScenario;
    const kit::RecordingFile mFile;
    std::optional<kit::Layers> mLayers;
    kit::Adapter mLibrary;
    std::vector<Scene> mScenes; ///< One for each camera.
    std::vector<std::unique_ptr<Camera>> mCameras;
    std::map<uint64_t, Request*> mRequests; ///< By their records' addresses.
    std::optional<view::Told> mTold;
    Clock::time_point mStart;
};

} // namespace host
