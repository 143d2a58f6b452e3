#pragma once

#include "controlLoop.hpp"
#include "cycleRequests.hpp"
#include "cycleThread.hpp"
#include "framePlayer.hpp"
#include "liveParameters.hpp"
#include "longWork.hpp"
#include "realTimeProcess.hpp"
#include "recordings.hpp"
#include "referenceInjection.hpp"
#include "runOptions.hpp"
#include "runReport.hpp"
#include "scriptPlayer.hpp"
#include "simulatedFrontEnd.hpp"
#include "sliceSet.hpp"
#include "workerGroup.hpp"

#include <lumo/mirrorsim/controlModes.hpp>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace lumo::ravelctl {

class StatusLine;

/// One run of the closed loop on the simulated mirror, from the options to the files.
///
/// Calling order: construct, Configure, Start, Wait, Stop, Save; GetReport then has the result. A slow thread calls all
/// of them; the cycle and the workers have threads of their own between Start and Stop.
class Controller
{
public:
    /// How long cycle and workers wait for each other in a paced run.
    static constexpr std::chrono::milliseconds HANDSHAKE_TIMEOUT{5000};

    /// `out` is where the user reads along (nothing is written to it when the options say quiet).
    Controller(RunOptions options, std::ostream& out);
    ~Controller();

    /// Checks everything, computes or loads the matrices, takes the memory. Nothing runs yet.
    /// Failure: InputError, RunError.
    void Configure();

    /// Starts the workers and the cycle. Failure: RunError.
    void Start();

    /// Shows the progress until the run is over or `is_interrupted` says so. `is_interrupted` is asked every 100 ms and
    /// may wait that long.
    void Wait(const std::function<bool()>& is_interrupted);

    /// Ends the cycle and the workers, joined, and works out the result. Never throws: problems go to the report.
    void Stop();

    /// Writes the recordings, the page and the summary. Never throws: a file that could not be written is a problem in
    /// the report.
    void Save();

    const RunReport& GetReport() const { return m_report; }

    /// Status for the shell.
    int GetExitStatus() const;

private:
    class Working;

    void Say(const std::string& line);
    void PlanTheRun();
    void CheckLogLevels() const;
    void CheckResources();
    void MakeGains();
    void MakeTasks();
    void MakeLoop();
    void ComputeFigures();
    void ReportScript();
    void SavePage();
    std::string DescribeRecording() const;
    void SaveGains();
    void SaveGains(std::int64_t before_cycle, const std::string& name, const std::vector<float>& params);
    void SaveConfig();
    void SaySteps(StatusLine& status);
    void JoinScript();
    void PlaceThreads();
    void ReportPlacement();

    RunOptions m_options;
    std::ostream& m_out;
    LoopPlan m_plan;
    RecordingPlan m_recording_plan;
    std::vector<ScriptStep> m_script;
    std::vector<std::filesystem::path> m_old_files;  // of the run that is replaced, as paths below the output folder
    RunReport m_report;
    mirrorsim::ControlModes m_modes;
    std::vector<float> m_pid_params;
    Plant m_plant;
    std::unique_ptr<FramePlayer> m_player;
    std::unique_ptr<ReferenceInjection> m_injection;
    std::unique_ptr<SimulatedFrontEnd> m_front_end;
    std::unique_ptr<SliceSet> m_slices;
    std::unique_ptr<RealTimeProcess> m_process;
    std::unique_ptr<WorkerGroup> m_workers;
    std::unique_ptr<Recordings> m_recordings;
    std::unique_ptr<LiveParameters> m_parameters;
    std::unique_ptr<CycleRequests> m_requests;
    std::unique_ptr<ControlLoop> m_loop;
    std::unique_ptr<CycleThread> m_cycle_thread;
    std::unique_ptr<ScriptPlayer> m_script_player;
    std::unique_ptr<LongWork> m_long_work;  // while something may take long
};

}  // namespace lumo::ravelctl
