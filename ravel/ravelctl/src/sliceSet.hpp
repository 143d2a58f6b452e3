#pragma once

#include "cycleGate.hpp"
#include "modeSlice.hpp"
#include "sliceTask.hpp"

#include <lumo/mirrorsim/controlModes.hpp>
#include <lumo/ravelcore/recorder.hpp>
#include <lumo/ravelcore/taskEdc.hpp>

#include <chrono>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

namespace lumo::ravelctl {

/// The control tasks of all slices, as if they were one: what the cycle thread hands them, and what it takes from them,
/// between cycles.
///
/// Thread:    the cycle's between cycles, where nothing else is said; a slow one before and after the run.
/// Real time: the same functions are.
class SliceSet
{
public:
    /// `modes`, `pid_params` (10 per mode) and `es_meas` (NUM_ES floats) must outlive the set. `num_samples`: capacity
    /// of the recorders. Real time: no.
    SliceSet(const mirrorsim::ControlModes& modes, int num_slices, const std::vector<float>& pid_params,
             double period_s, const float* es_meas, int num_samples);

    /// What a WorkerGroup runs, one task per slice. Thread: a slow one.
    std::vector<ravelcore::Task*> GetTasks() const;

    /// Starts the recorders. Thread: a slow one, when the tasks are initialised.
    void StartRecording();

    /// The coming cycle. `first`: the loop closes in it.
    void PrepareCycle(double sync_time_s, bool first);

    /// From now on starts are for the workers' stop request only, and nobody waits at the gate: a worker that was lost
    /// never comes there. Thread: any, also in the middle of a cycle.
    void PrepareStop();

    /// Opens or closes the loop: with the loop open the commands follow the measured modes.
    void SetClosed(bool closed);

    /// Keeps the references of this cycle, from which LeadReferences leads.
    void CaptureReferences();

    /// References become `fraction` of the captured ones.
    void LeadReferences(float fraction);

    /// What the actuators fell short of the last command, um, NUM_PACT values; the external anti-windup input.
    void SetShortfall(std::span<const float> shortfall_um);

    /// command_um[i] += the references of all slices. NUM_PACT values.
    void AddPactRef(std::vector<float>& command_um);

    /// Sum of the squares of all measured modes, um^2.
    double SumOfSquaredModes() const;

    /// The longest Execute of the last cycle among the slices.
    std::chrono::nanoseconds GetExecTime() const;

    /// Writes the recorded modes of all slices side by side, in mode order. Thread: a slow one, after the run.
    void SaveModesIn(const std::filesystem::path& file) const;
    void SaveModesOut(const std::filesystem::path& file) const;

private:
    struct Slice
    {
        ModeSlice modes;
        ravelcore::Recorder rec_in;
        ravelcore::Recorder rec_out;
        std::vector<float> captured;
        std::unique_ptr<ravelcore::TaskEdc> edc;
        std::unique_ptr<SliceTask> task;
    };

    void SetUp(const Slice& slice, ravelcore::TaskEdc& edc) const;
    void Save(const std::filesystem::path& file, const char* name, ravelcore::Recorder Slice::*recorder) const;

    const mirrorsim::ControlModes& m_modes;
    const std::vector<float>& m_pid_params;
    double m_period_s;
    const float* m_es_meas;
    CycleInput m_input;
    CycleGate m_gate;
    std::vector<std::unique_ptr<Slice>> m_slices;
};

}  // namespace lumo::ravelctl
