#include "reportData.hpp"

#include "controlLoop.hpp"
#include "machineFacts.hpp"
#include "reportText.hpp"

#include <lumo/mirrorsim/geometry.hpp>

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <tuple>
#include <utility>

namespace lumo::ravelctl {

namespace {

constexpr double NM_PER_UM = 1.0e3;
constexpr std::size_t MOST_POINTS = 2000;  // of a series
constexpr std::size_t MOST_SPECTRUM_POINTS = 500;
constexpr int SHORTEST_SEGMENT = 64;
constexpr int LONGEST_SEGMENT = 4096;
constexpr int MOST_SEGMENTS = 32;  // bounds the work for recordings of hours
// Under a Hann window the first bin still holds part of the mean that was taken away.
constexpr std::size_t FIRST_BIN = 2;

std::vector<double> Rounded(std::vector<double> values)
{
    std::transform(values.begin(), values.end(), values.begin(), RoundToDigits);
    return values;
}

/// A modal coordinate of 1 um in nm of surface: modes are orthonormal over the actuator points.
double SurfaceNmPerUm()
{
    return NM_PER_UM / std::sqrt(static_cast<double>(mirrorsim::NUM_PACT));
}

ThinnedSeries ThinSurface(const SurfaceLog& surface, double rate_hz)
{
    const std::vector<std::int64_t>& cycles = surface.GetCycles();
    std::vector<float> rms_nm;
    for (int sample = 0; sample < surface.GetNumSamples(); ++sample) {
        double squares = 0.0;
        for (const float height : surface.GetSurface(sample)) {
            squares += static_cast<double>(height) * static_cast<double>(height);
        }
        rms_nm.push_back(static_cast<float>(std::sqrt(squares / mirrorsim::NUM_PACT) * NM_PER_UM));
    }
    const std::int64_t step = cycles.size() > 1 ? cycles[1] - cycles[0] : 1;
    return Thin(rms_nm, static_cast<double>(step) / rate_hz, MOST_POINTS);
}

/// The rejection of all modes together at a frequency, each mode counted by its mean square before the loop closed. The
/// gains are those with which the run began.
class ComputedRejection
{
public:
    ComputedRejection(const ReportSources& sources, const std::vector<double>& rms_before) : m_plant(sources.plant)
    {
        std::vector<ravelcore::PidFilterContext> channels;
        ravelcore::PidFilterCopy(static_cast<float>(m_plant.period_s), 0.0F, sources.pid_params, channels);
        for (std::size_t mode = 0; mode < channels.size() && mode < rms_before.size(); ++mode) {
            const ravelcore::PidFilterContext& channel = channels[mode];
            const auto key = std::make_tuple(channel.kp, channel.bi, channel.ad, channel.bd);
            Loop& loop = m_loops.try_emplace(key, Loop{channel, 0.0}).first->second;
            loop.weight += rms_before[mode] * rms_before[mode];
            m_sum += rms_before[mode] * rms_before[mode];
        }
    }

    double At(double frequency_hz) const
    {
        double rejected = 0.0;
        for (const auto& [key, loop] : m_loops) {
            rejected += loop.weight * std::norm(RejectionResponse(loop.channel, m_plant, frequency_hz));
        }
        return std::sqrt(rejected / m_sum);
    }

private:
    /// Of modes with equal gains.
    struct Loop
    {
        ravelcore::PidFilterContext channel;
        double weight;
    };

    Plant m_plant;
    std::map<std::tuple<float, float, float, float>, Loop> m_loops;
    double m_sum = 0.0;
};

ModeSpectra MakeSpectra(const ComputedRejection& rejection, const std::vector<double>& before,
                        const std::vector<double>& after, double step_hz, bool is_measured)
{
    ModeSpectra spectra;
    spectra.resolution_hz = step_hz;
    const std::vector<std::size_t> bins = LogSpacedBins(FIRST_BIN, before.size() - 1, MOST_SPECTRUM_POINTS);
    std::vector<double> frequency_hz(before.size());
    for (std::size_t bin = 0; bin < before.size(); ++bin) {
        frequency_hz[bin] = step_hz * static_cast<double>(bin);
    }
    spectra.frequency_hz = MeanOfBins(frequency_hz, bins);
    spectra.before = MeanOfBins(before, bins);
    spectra.after = MeanOfBins(after, bins);

    for (std::size_t i = 0; i < spectra.frequency_hz.size(); ++i) {
        if (is_measured) {
            spectra.rejection_measured.push_back(std::sqrt(spectra.after[i] / spectra.before[i]));
        }
        spectra.rejection_computed.push_back(rejection.At(spectra.frequency_hz[i]));
    }
    for (std::vector<double>* values : {&spectra.frequency_hz, &spectra.before, &spectra.after,
                                        &spectra.rejection_measured, &spectra.rejection_computed}) {
        *values = Rounded(std::move(*values));
    }
    return spectra;
}

/// Empty where the spectra's ratio is what the loop rejects; otherwise a sentence.
std::string WhyNoRejectionIsMeasured(const RunOptions& options)
{
    if (!options.play.es.empty() || !options.play.pact.empty()) {
        return "recorded frames were played back, which do not answer to the commands.";
    }
    if (!options.inject.file.empty()) {
        return "the modes follow the injected references, which is in their spectrum beside what is left of the "
               "disturbances.";
    }
    return "";
}

/// What only the recorded modes tell.
void AddModes(const ReportSources& sources, ReportData& data)
{
    const RecordingPlan& recording = sources.recording_plan;
    if (!recording.modes) {
        data.left_out.emplace_back("Power spectra, rejection and the modes one by one: the modes were not recorded.");
        return;
    }
    const RecordedModes modes(sources.slices.GetModesInRecorders(),
                              sources.recordings.GetCycles() / recording.decimation, recording.loopback);
    const LoopPlan& plan = sources.report.plan;
    const SampleRange before{0, modes.FirstAt(plan.TimeOf(plan.open_cycles))};
    const SampleRange after{modes.FirstAt(plan.TimeOf(plan.FirstJudgedCycle())), modes.GetNumSamples()};
    ModeRms rms{Rounded(ComputeModeRms(modes, before)), Rounded(ComputeModeRms(modes, after))};
    if (rms.before.empty() && rms.after.empty()) {
        data.left_out.emplace_back("The modes one by one: none were recorded before the loop closed or after it had.");
    } else {
        data.mode_rms = std::move(rms);
    }
    const int length = SegmentLength(std::min(before.Count(), after.Count()), SHORTEST_SEGMENT, LONGEST_SEGMENT);
    if (length == 0) {
        data.left_out.push_back(fmt::format(
            "Power spectra and rejection: they take at least {} recorded samples with the loop open and as many "
            "closed, but there are {} and {}{}.",
            SHORTEST_SEGMENT * 3 / 2, before.Count(), after.Count(),
            sources.report.script.empty() ? "" : "; what a script saves is recorded no longer"));
        return;
    }
    const double rate_hz = plan.rate_hz / recording.decimation;
    const std::string no_rejection = WhyNoRejectionIsMeasured(sources.report.options);
    const ComputedRejection rejection(sources, ComputeModeRms(modes, before));
    data.spectra =
        MakeSpectra(rejection, ComputeModeDensity(modes, before, length, rate_hz),
                    ComputeModeDensity(modes, after, length, rate_hz), rate_hz / length, no_rejection.empty());
    if (!no_rejection.empty()) {
        data.left_out.push_back("The rejection as measured: " + no_rejection);
    }
    if (recording.decimation > 1) {
        data.left_out.push_back(fmt::format(
            "Frequencies above {:g} Hz: one in {} cycles was recorded, and what is above that frequency appears below "
            "it.",
            0.5 * rate_hz, recording.decimation));
    }
}

/// Where samples begin to be added to the references, and where they end.
void AddInjectionMarks(const ReportSources& sources, ReportData& data)
{
    const RunReport& report = sources.report;
    const InjectOptions& inject = report.options.inject;
    const std::int64_t begin = report.plan.FirstInjectedCycle();
    if (inject.file.empty() || report.cycles_done <= begin) {
        return;
    }
    data.marks.push_back(
        {report.plan.TimeOf(begin), fmt::format("injected references begin: {}", inject.file.string()), true});
    const std::int64_t end = begin + sources.injected_cycles;
    if (!inject.loop && report.cycles_done > end) {
        data.marks.push_back({report.plan.TimeOf(end), "injected references end", true});
    }
}

void AddMarks(const ReportSources& sources, ReportData& data)
{
    const RunReport& report = sources.report;
    const LoopPlan& plan = report.plan;
    if (report.cycles_done > plan.open_cycles) {
        data.marks.push_back({plan.TimeOf(plan.open_cycles), "loop closes", false});
    }
    for (const ScriptEvent& event : report.script) {
        const std::string refused = event.problem.empty() ? "" : "; refused: " + event.problem;
        data.marks.push_back({event.time_s, event.what + refused, true});
    }
    AddInjectionMarks(sources, data);
    std::stable_sort(data.marks.begin(), data.marks.end(),
                     [](const ReportMark& a, const ReportMark& b) { return a.time_s < b.time_s; });
    if (report.cycles_done > plan.FirstJudgedCycle()) {
        data.judged_s = plan.TimeOf(plan.FirstJudgedCycle());
    }
}

void AddTimes(const ReportSources& sources, ReportData& data)
{
    constexpr double US_PER_S = 1.0e6;
    const RunReport& report = sources.report;
    const Durations& cycles = sources.loop.GetCycleTimes();
    const Durations& executions = sources.loop.GetExecTimes();
    if (const auto percentiles = cycles.ComputePercentiles()) {
        data.cycle_times = CycleTimes{CountDurations(cycles.GetValuesUs(), report.missed_before),
                                      *percentiles,
                                      US_PER_S / report.plan.rate_hz,
                                      report.plan.paced,
                                      report.missed_cycles,
                                      {}};
    }
    if (const auto percentiles = executions.ComputePercentiles()) {
        data.execution_times.push_back({report.options.workers == 1 ? "the worker" : "the slowest worker of each cycle",
                                        CountDurations(executions.GetValuesUs(), {}), *percentiles});
    }
    data.tables.push_back({"Time",
                           NamePercentiles(),
                           {{"cycle", ListPercentiles(cycles.ComputePercentiles())},
                            {"task execution", ListPercentiles(executions.ComputePercentiles())}}});
}

}  // namespace

std::vector<std::string> NamePercentiles()
{
    return {"min", "median", "99 %", "99.9 %", "99.99 %", "max"};
}

std::vector<std::optional<double>> ListPercentiles(const std::optional<Percentiles>& times_us)
{
    if (!times_us) {
        return std::vector<std::optional<double>>(NamePercentiles().size());
    }
    return {times_us->min, times_us->p50, times_us->p99, times_us->p999, times_us->p9999, times_us->max};
}

MirrorFrames ChooseFrames(const SurfaceLog& surface, const LoopPlan& plan)
{
    constexpr int OPEN_FRAMES = 11;
    constexpr int CLOSING_FRAMES = 24;
    constexpr int CLOSED_FRAMES = 24;
    const std::vector<std::int64_t>& logged = surface.GetCycles();
    std::vector<std::size_t> chosen;
    const auto choose = [&](std::int64_t begin, std::int64_t end, int count) {
        for (int i = 0; i <= count; ++i) {
            // The last sample up to that cycle, so that what is open stays open.
            const std::int64_t cycle = begin + (end - begin) * i / count;
            const auto after = std::upper_bound(logged.begin(), logged.end(), cycle) - logged.begin();
            if (after > 0 && (chosen.empty() || static_cast<std::size_t>(after - 1) > chosen.back())) {
                chosen.push_back(static_cast<std::size_t>(after - 1));
            }
        }
    };
    const std::int64_t closing_ends = std::min(plan.cycles - 1, plan.open_cycles + 2 * plan.lead_cycles);
    choose(0, plan.open_cycles - 1, OPEN_FRAMES);
    choose(plan.open_cycles - 1, closing_ends, CLOSING_FRAMES);
    choose(closing_ends, plan.cycles - 1, CLOSED_FRAMES);

    MirrorFrames frames;
    for (const std::size_t sample : chosen) {
        if (logged[sample] < plan.open_cycles) {
            frames.before = frames.time_s.size();
        }
        const std::span<const float> heights_um = surface.GetSurface(static_cast<int>(sample));
        std::vector<double> pistons(mirrorsim::NUM_SEGMENTS);
        double squares = 0.0;
        for (std::size_t i = 0; i < heights_um.size(); ++i) {
            const double height_nm = static_cast<double>(heights_um[i]) * NM_PER_UM;
            pistons[i / mirrorsim::NUM_PACT_PER_SEGMENT] += height_nm / mirrorsim::NUM_PACT_PER_SEGMENT;
            squares += height_nm * height_nm;
        }
        frames.time_s.push_back(plan.TimeOf(logged[sample]));
        frames.rms_nm.push_back(RoundToDigits(std::sqrt(squares / mirrorsim::NUM_PACT)));
        frames.piston_nm.push_back(std::move(pistons));
    }
    return frames;
}

RecordedModes::RecordedModes(std::vector<const ravelcore::Recorder*> recorders, std::int64_t num_recorded,
                             bool loopback)
    : m_recorders(std::move(recorders))
{
    m_capacity = m_recorders.front()->GetNumSamples();
    m_count = std::min(num_recorded, m_capacity);
    m_first = loopback ? num_recorded - m_count : 0;
    for (const ravelcore::Recorder* recorder : m_recorders) {
        m_num_modes += static_cast<std::size_t>(recorder->GetSampleSize());
        if (!loopback) {
            m_count = std::min(m_count, static_cast<std::int64_t>(recorder->GetIndex()) + 1);
        }
    }
}

double RecordedModes::TimeOf(std::int64_t sample) const
{
    return m_recorders.front()->GetTimestamps()[static_cast<std::size_t>(SlotOf(sample))];
}

std::int64_t RecordedModes::FirstAt(double time_s) const
{
    constexpr double ROUNDING_S = 1.0e-9;
    std::int64_t begin = 0;
    std::int64_t end = m_count;
    while (begin < end) {
        const std::int64_t middle = begin + (end - begin) / 2;
        if (TimeOf(middle) < time_s - ROUNDING_S) {
            begin = middle + 1;
        } else {
            end = middle;
        }
    }
    return begin;
}

std::vector<double> ComputeModeRms(const RecordedModes& modes, SampleRange range)
{
    if (range.Count() <= 0) {
        return {};
    }
    std::vector<double> rms(modes.GetNumModes());
    for (std::int64_t sample = range.begin; sample < range.end; ++sample) {
        modes.ForModes(sample, 0, rms.size(), [&rms](std::size_t mode, double value) { rms[mode] += value * value; });
    }
    for (double& value : rms) {
        value = std::sqrt(value / static_cast<double>(range.Count())) * SurfaceNmPerUm();
    }
    return rms;
}

std::vector<double> ComputeModeDensity(const RecordedModes& modes, SampleRange range, int length, double rate_hz)
{
    constexpr std::size_t MODES_AT_ONCE = 16;  // a cache line of a row
    Welch welch(length, rate_hz);
    const std::vector<std::int64_t> starts = SegmentStarts(range.Count(), length, MOST_SEGMENTS);
    std::vector<std::vector<double>> series(MODES_AT_ONCE, std::vector<double>(static_cast<std::size_t>(length)));
    for (const std::int64_t start : starts) {
        for (std::size_t first = 0; first < modes.GetNumModes(); first += MODES_AT_ONCE) {
            const std::size_t end = std::min(first + MODES_AT_ONCE, modes.GetNumModes());
            for (int i = 0; i < length; ++i) {
                modes.ForModes(range.begin + start + i, first, end, [&](std::size_t mode, double value) {
                    series[mode - first][static_cast<std::size_t>(i)] = value;
                });
            }
            for (std::size_t mode = first; mode < end; ++mode) {
                welch.Add(series[mode - first]);
            }
        }
    }
    std::vector<double> density = welch.GetSum();
    for (double& value : density) {
        value *= SurfaceNmPerUm() * SurfaceNmPerUm() / static_cast<double>(starts.size());
    }
    return density;
}

ReportData CollectReport(const ReportSources& sources)
{
    const RunReport& report = sources.report;
    const LoopPlan& plan = report.plan;
    ReportData data;
    data.title = "Run of " + report.started_utc;
    data.version = report.version;
    data.started_utc = report.started_utc;
    data.verdict = Verdict(report);
    data.is_good = report.problems.empty() && !report.interrupted && report.DidHold();
    data.problems = report.problems;
    if (report.mirror_was_seen) {
        data.figures.push_back({"surface, controlled modes", report.controlled_rms_nm});
        data.figures.push_back({"surface, total", report.surface_rms_nm});
    }
    data.figures.push_back({"edge sensors", report.edge_sensor_rms_nm});
    AddMarks(sources, data);
    data.end_s = plan.TimeOf(report.cycles_done);

    const double period_s = 1.0 / plan.rate_hz;
    const SurfaceLog& surface = sources.loop.GetSurfaceLog();
    if (surface.GetNumSamples() > 0) {
        data.mirror = ChooseFrames(surface, plan);
        data.surface = ThinSurface(surface, plan.rate_hz);
    } else {
        data.left_out.emplace_back(report.mirror_was_seen
                                       ? "The mirror's surface: the run ended before the first cycle."
                                       : "The mirror's surface: recorded frames were played back, which do not tell.");
    }
    if (!sources.loop.GetResidualsNm().empty()) {
        data.residual = Thin(sources.loop.GetResidualsNm(), period_s, MOST_POINTS);
        data.edge_sensors = Thin(sources.loop.GetEsRmsNm(), period_s, MOST_POINTS);
    }
    AddModes(sources, data);
    if (report.options.gains.empty()) {  // else each mode may have its own
        data.crossover_hz = report.margins.crossover_hz;
    }
    AddTimes(sources, data);
    data.parameters = DescribeRun(sources);
    data.parameters.push_back(DescribeMachine(ReadMachineFiles("/"), report.blas));
    return data;
}

}  // namespace lumo::ravelctl
