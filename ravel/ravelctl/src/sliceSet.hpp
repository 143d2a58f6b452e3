#pragma once

#include "cycleGate.hpp"
#include "hugePages.hpp"
#include "modeSlice.hpp"
#include "sliceTask.hpp"

#include <lumo/mirrorsim/controlModes.hpp>
#include <lumo/ravelcore/recorder.hpp>
#include <lumo/ravelcore/taskEdc.hpp>

#include <chrono>
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

    /// The matrices go into huge pages when the tasks are initialised. Thread: a slow one, before the group starts.
    void UseHugePages() { m_uses_huge_pages = true; }

    /// How the workers' threads run, once the tasks are initialised; their page faults in all cycles, once the group
    /// has been stopped. In the order of the tasks. Thread: a slow one.
    std::vector<GrantedPlace> GetPlaces() const;
    HugePages GetHugePages() const;
    std::vector<std::int64_t> GetPageFaults() const;

    /// Starts the recorders, as Recorder::Start; stops them.
    void StartRecording(bool loopback, int decimation);
    void StopRecording();

    /// The coming cycle. `first`: the loop closes in it.
    void PrepareCycle(double sync_time_s, bool first);

    /// From now on starts are for the workers' stop request only, and nobody waits at the gate: a worker that was lost
    /// never comes there. Thread: any, also in the middle of a cycle.
    void PrepareStop();

    /// Opens or closes the loop: with the loop open the commands follow the measured modes.
    void SetClosed(bool closed);

    /// Keeps the references of this cycle, from which SetReferences leads.
    void CaptureReferences();

    /// References become `fraction` of the captured ones plus `offset_um`, one value per mode.
    void SetReferences(float fraction, std::span<const float> offset_um);

    /// New parameters of all channels, 10 floats per mode; the channels keep their state, so that the integral term
    /// goes on from where it is.
    void SetGains(std::span<const float> pid_params);

    /// Which measured modes are replaced (elements other than 0), and by what; one element per mode.
    void SetPdc(std::span<const float> mask, std::span<const float> values);
    void SetFdc(std::span<const float> mask, std::span<const float> values);

    /// Exchanges a slice's matrix for a spare one of the same size, at no cost that depends on the size.
    void SwapP2Edc(int slice, std::vector<float>& matrix);
    void SwapPact2Modes(int slice, std::vector<float>& matrix);
    void SwapModes2Pact(int slice, std::vector<float>& matrix);

    /// The modes of each slice, in the order of the tasks.
    std::vector<ModeSlice> GetModeSlices() const;

    /// What the actuators fell short of the last command, um, NUM_PACT values; the external anti-windup input.
    void SetShortfall(std::span<const float> shortfall_um);

    /// command_um[i] += the references of all slices. NUM_PACT values.
    void AddPactRef(std::vector<float>& command_um);

    /// Sum of the squares of all measured modes, um^2.
    double SumOfSquaredModes() const;

    /// The longest Execute of the last cycle among the slices.
    std::chrono::nanoseconds GetExecTime() const;

    /// The recorders of all slices, in mode order. Thread: a slow one.
    std::vector<const ravelcore::Recorder*> GetModesInRecorders() const { return GetRecorders(&Slice::rec_in); }
    std::vector<const ravelcore::Recorder*> GetModesOutRecorders() const { return GetRecorders(&Slice::rec_out); }
    std::vector<const ravelcore::Recorder*> GetModesRefRecorders() const { return GetRecorders(&Slice::rec_ref); }
    std::vector<const ravelcore::Recorder*> GetModesArwRecorders() const { return GetRecorders(&Slice::rec_arw); }

private:
    struct Slice
    {
        ModeSlice modes;
        ravelcore::Recorder rec_in;
        ravelcore::Recorder rec_out;
        ravelcore::Recorder rec_ref;
        ravelcore::Recorder rec_arw;
        std::vector<float> captured;
        std::unique_ptr<ravelcore::TaskEdc> edc;
        std::unique_ptr<SliceTask> task;
        HugePages huge_pages;
    };

    void SetUp(Slice& slice, ravelcore::TaskEdc& edc) const;
    std::vector<const ravelcore::Recorder*> GetRecorders(ravelcore::Recorder Slice::*recorder) const;

    const mirrorsim::ControlModes& m_modes;
    const std::vector<float>& m_pid_params;
    double m_period_s;
    const float* m_es_meas;
    CycleInput m_input;
    CycleGate m_gate;
    bool m_uses_huge_pages = false;
    std::vector<std::unique_ptr<Slice>> m_slices;
};

}  // namespace lumo::ravelctl
