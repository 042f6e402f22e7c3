/// A run in a process of its own, of which there is a report however it ends.
#pragma once

#include "host/log_file.h"
#include "host/run.h"
#include "kit/child.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace host {

/// Made by the process that forks, before anything is loaded. It shares files with the run: the
/// recording, the log, and the report of a run that comes to its end.
class Isolated {
  public:
    struct Settings {
        std::string library;  ///< The adapter.
        std::string command;  ///< That repeats the run.
        std::string record;   ///< The recording's file; empty for one that nobody sees.
        bool hasPage = false; ///< The run keeps pictures for a page.
    };
    /// \param scenario must outlive this.
    /// \throws contract::RecordingError where nothing can be recorded into the file,
    /// std::system_error where there is no room for files that nobody sees.
    Isolated(const Scenario& scenario, Settings settings);

    /// What the run has to record into, and where its log goes.
    const std::string& Recording() const { return mRecording.Path(); }
    const LogFile& Log() const { return mLog; }

    /// In the run's process: what came of it.
    void Keep(const Run& run, const Outcome& outcome) const;

    struct Ended {
        nlohmann::ordered_json report; ///< As docs/report.schema.json describes it.
        kit::ChildEnd end;
    };
    /// Runs. The caller has one thread.
    /// \param work the run, for its own process, whose status it returns. What it throws becomes a
    /// line on standard error, the report's text, and a status.
    /// \param statusOf the status for what was thrown.
    /// \param limit until the run is given up; 0 for none.
    /// \throws std::system_error where there can be no process.
    Ended Go(const std::function<int()>& work,
             const std::function<int(const std::exception&)>& statusOf,
             std::chrono::seconds limit) const;

    /// The timeline of what was recorded, as far as it got; nothing where that is nothing.
    std::optional<std::string> TraceOf(const Ended& ended) const;

    /// Has the report and the status say that something beside the run is wrong, which is empty
    /// where nothing is.
    static void Blame(Ended& ended, const std::string& problem);

    /// A page of the same; with the run's pictures, if the settings say so and it came to its end.
    std::string PageOf(const Ended& ended) const;

  private:
    view::ReportFacts Facts() const;
    std::vector<view::Picture> Pictures() const;
    std::unique_ptr<view::Told> ToldBy(const kit::ChildEnd& end,
                                       std::string* problem = nullptr) const;
    void Say(const nlohmann::ordered_json& said) const;
    nlohmann::ordered_json Heard() const;
    nlohmann::ordered_json ReportOfEnd(const kit::ChildEnd& end, const std::string& failure) const;
    void Classify(const kit::ChildEnd& end, const std::string& failure,
                  view::ReportFacts& facts) const;

    const Scenario& mScenario;
    const Settings mSettings;
    const kit::RecordingFile mRecording;
    const LogFile mLog;
    const kit::UnnamedFile mSaid;     ///< By the run's process, at its end.
    const kit::UnnamedFile mPictures; ///< Its pictures, if it made any.
};

} // namespace host
