#pragma once

#include "durations.hpp"
#include "reportMath.hpp"
#include "runReport.hpp"

#include <lumo/ravelcore/recorder.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace lumo::ravelctl {

class ControlLoop;
class Recordings;
class SliceSet;
class SurfaceLog;
struct RecordingPlan;

/// The surface at some moments of the run, one value per segment: the mean error of its actuator points.
struct MirrorFrames
{
    std::vector<double> time_s;
    std::vector<double> rms_nm;                  // over all actuator points
    std::vector<std::vector<double>> piston_nm;  // frames x segments
    std::optional<std::size_t> before;           // the last frame with the loop open
};

/// Power densities of the controlled modes as measured, nm^2 of surface per hertz, summed over the modes.
struct ModeSpectra
{
    std::vector<double> frequency_hz;
    std::vector<double> before;
    std::vector<double> after;
    std::vector<double> rejection_measured;  // magnitudes: the square root of the ratio of the two; empty where it is
                                             // not that of the loop
    std::vector<double> rejection_computed;  // |1 / (1 + L)|
    double resolution_hz = 0.0;
};

/// Rms of each measured mode, nm of surface, with the loop open and over the judged cycles. Both empty where a time has
/// no samples.
struct ModeRms
{
    std::vector<double> before;
    std::vector<double> after;
};

/// Of a run: from the cycle's instant to its commands. Of a qualification: from giving the start to all workers ready.
struct CycleTimes
{
    DurationHistogram histogram;
    Percentiles percentiles_us{};
    std::optional<double> deadline_us;  // of a run the period
    bool paced = true;
    std::int64_t missed = 0;           // instants
    std::optional<std::int64_t> late;  // cycles beyond the deadline; of a qualification only
};

/// Durations of the cycles as one worker, or all of them together, took them.
struct NamedDurations
{
    std::string name;
    DurationHistogram histogram;
    Percentiles percentiles_us{};
};

/// How fast a worker went through its matrix, GB/s; missing where it did not.
struct WorkerSpeed
{
    std::string name;
    std::optional<double> product;
    std::optional<double> read;  // without a product
};

/// Durations in microseconds, a line for each name; a missing one is shown as a dash.
struct ReportTable
{
    std::string title;
    std::vector<std::string> columns;
    std::vector<std::pair<std::string, std::vector<std::optional<double>>>> rows;
};

/// A title and its lines: what, and how much of it.
struct ParameterGroup
{
    std::string title;
    std::vector<std::pair<std::string, std::string>> rows;
};

/// A moment to mark in the charts over time.
struct ReportMark
{
    double time_s = 0.0;
    std::string what;
    bool is_numbered = false;  // its text is in a list; otherwise it stands at the mark
};

/// A figure of the run's result.
struct ReportFigure
{
    std::string name;
    BeforeAfter value_nm;
};

/// Everything that a page shows. What is missing is left out of the page.
struct ReportData
{
    std::string title;
    std::string version;
    std::string started_utc;
    std::string verdict;
    bool is_good = true;
    std::vector<std::string> problems;
    std::vector<ReportFigure> figures;
    std::vector<ReportMark> marks;
    std::optional<double> end_s;     // of the charts over time
    std::optional<double> judged_s;  // from where the figures after are taken
    std::optional<MirrorFrames> mirror;
    std::optional<ThinnedSeries> residual;      // controlled modes as measured, nm of surface
    std::optional<ThinnedSeries> surface;       // the true surface, nm
    std::optional<ThinnedSeries> edge_sensors;  // nm
    std::optional<ModeSpectra> spectra;
    std::optional<double> crossover_hz;
    std::optional<ModeRms> mode_rms;
    std::optional<CycleTimes> cycle_times;
    std::vector<NamedDurations> execution_times;
    std::vector<NamedDurations> start_latencies;
    std::vector<WorkerSpeed> speeds;
    std::vector<ReportTable> tables;
    std::vector<ParameterGroup> parameters;
    std::vector<std::string> left_out;  // what the page cannot show, and why
};

/// What a run leaves for its page; nothing is owned.
struct ReportSources
{
    const RunReport& report;
    const ControlLoop& loop;
    const SliceSet& slices;
    const Recordings& recordings;
    const RecordingPlan& recording_plan;
    const std::vector<float>& pid_params;  // of all modes, as they were when the run began
    const Plant& plant;
    std::int64_t injected_cycles = 0;  // for which what is injected lasts if it is not begun again
};

/// Works out everything that the page of a finished run shows. Thread: a slow one, after the run. Real time: no.
ReportData CollectReport(const ReportSources& sources);

/// The line of a table: minimum, median, 99 %, 99.9 %, 99.99 %, maximum.
std::vector<std::optional<double>> ListPercentiles(const std::optional<Percentiles>& times_us);

/// What ListPercentiles lists.
std::vector<std::string> NamePercentiles();

/// Up to some 60 of the logged surfaces, closest together where the loop closes.
MirrorFrames ChooseFrames(const SurfaceLog& surface, const LoopPlan& plan);

/// Recorded modes: one row a sample, in the order of time, the columns of several recorders side by side.
class RecordedModes
{
public:
    /// The recorders hold the same samples. `num_recorded`: samples that each was given since it started.
    RecordedModes(std::vector<const ravelcore::Recorder*> recorders, std::int64_t num_recorded, bool loopback);

    std::int64_t GetNumSamples() const { return m_count; }
    std::size_t GetNumModes() const { return m_num_modes; }
    double TimeOf(std::int64_t sample) const;

    /// The first sample at `time_s` or later.
    std::int64_t FirstAt(double time_s) const;

    /// Calls `use(mode, value)` for modes `first_mode` to `end_mode` - 1 of a sample.
    template <typename Use>
    void ForModes(std::int64_t sample, std::size_t first_mode, std::size_t end_mode, Use use) const
    {
        const auto slot = static_cast<std::size_t>(SlotOf(sample));
        std::size_t mode = 0;
        for (const ravelcore::Recorder* recorder : m_recorders) {
            const auto size = static_cast<std::size_t>(recorder->GetSampleSize());
            const float* row = recorder->GetSamples().data() + slot * size;
            for (std::size_t i = first_mode > mode ? first_mode - mode : 0; i < size && mode + i < end_mode; ++i) {
                use(mode + i, static_cast<double>(row[i]));
            }
            mode += size;
        }
    }

private:
    std::int64_t SlotOf(std::int64_t sample) const { return (m_first + sample) % m_capacity; }

    std::vector<const ravelcore::Recorder*> m_recorders;
    std::int64_t m_capacity = 1;
    std::int64_t m_first = 0;
    std::int64_t m_count = 0;
    std::size_t m_num_modes = 0;
};

/// Samples `begin` to `end` - 1.
struct SampleRange
{
    std::int64_t begin = 0;
    std::int64_t end = 0;

    std::int64_t Count() const { return end - begin; }
};

/// Rms of each mode, nm of surface; empty for an empty range.
std::vector<double> ComputeModeRms(const RecordedModes& modes, SampleRange range);

/// Sum over the modes of their power densities, nm^2 of surface per hertz, by Welch's method with segments of `length`;
/// length / 2 + 1 values.
std::vector<double> ComputeModeDensity(const RecordedModes& modes, SampleRange range, int length, double rate_hz);

}  // namespace lumo::ravelctl
