#include "tuning.hpp"

#include "error.hpp"
#include "loopSearch.hpp"
#include "modeDisturbance.hpp"
#include "resources.hpp"

#include <lumo/mirrorsim/geometry.hpp>
#include <lumo/ravelcore/pidFilter.hpp>

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <tuple>
#include <utility>

namespace lumo::ravelctl {

namespace {

constexpr auto NUM_PARAMS = static_cast<std::size_t>(ravelcore::NUM_PID_FILTER_PARAMS);
constexpr std::size_t KP = 0;
constexpr std::size_t KI = 1;
constexpr std::size_t MODES_AT_ONCE = 16;  // a cache line of a row
constexpr std::int64_t FEWEST_CYCLES = 500;
constexpr std::int64_t SETTLING_CYCLES = 500;

/// Cycles `begin` to `end` - 1.
struct CycleRange
{
    std::int64_t begin = 0;
    std::int64_t end = 0;

    std::int64_t Count() const { return std::max<std::int64_t>(0, end - begin); }
};

CycleRange OpenPart(const RunFolder& run)
{
    return {0, std::min({run.GetOpenCycles(), run.GetCyclesBeforeRedefinition(), run.GetCycles()})};
}

CycleRange ClosedPart(const RunFolder& run)
{
    return {run.GetOpenCycles(), run.GetCyclesBeforeRedefinition()};
}

/// Which part of the run tells the disturbance.
bool ChooseOpen(const RunFolder& run, TuneFrom from)
{
    return from == TuneFrom::Open || (from == TuneFrom::Auto && OpenPart(run).Count() > ClosedPart(run).Count());
}

void CheckRun(const RunFolder& run, bool is_open, std::int64_t cycles)
{
    if (run.WasPlayed()) {
        throw InputError(
            fmt::format("{}: expected a run of which the sensors saw the mirror, but recorded frames were played back; "
                        "tune from the run that recorded them",
                        run.GetPath().string()));
    }
    if (cycles >= FEWEST_CYCLES) {
        return;
    }
    const bool is_redefined = run.GetCyclesBeforeRedefinition() < run.GetCycles();
    throw InputError(fmt::format(
        "{}: expected at least {} cycles of the disturbance but there are {} with the loop {}{}; {}",
        run.GetPath().string(), FEWEST_CYCLES, std::max<std::int64_t>(0, cycles), is_open ? "open" : "closed",
        is_redefined ? fmt::format(", before cycle {}, in which the script replaced modes or a matrix",
                                   run.GetCyclesBeforeRedefinition())
                     : "",
        is_open ? "run with a longer --open-loop, or tune --from closed" : "run for a longer --duration"));
}

/// The recordings of which the disturbance is made.
struct RunSignals
{
    RunSignals(const RunFolder& run, bool is_open) : in(run.LoadEveryCycle("modes_in"))
    {
        if (!is_open) {
            out = run.LoadEveryCycle("modes_out");
            arw = run.LoadEveryCycle("modes_arw");
        }
    }

    ModesRecording in;
    ModesRecording out;  // empty where the loop is open
    ModesRecording arw;
};

void CheckTuneMemory(const RunFolder& run, bool is_open)
{
    // The recordings, and what the file layer takes beside the one that it reads.
    const std::uint64_t copies = is_open ? 1 + 3 : 3 + 3;
    const std::uint64_t bytes =
        static_cast<std::uint64_t>(run.GetCycles()) * static_cast<std::uint64_t>(run.GetModes()) * sizeof(float);
    CheckMemory(copies * bytes, fmt::format("the recordings of {}", run.GetPath().string()),
                "free some, or tune from a shorter run");
}

/// Columns `first` on of a recording, MODES_AT_ONCE or as many as there are, each by itself.
std::vector<std::vector<double>> Columns(const ModesRecording& recording, CycleRange range, std::size_t first)
{
    const std::size_t count = std::min(MODES_AT_ONCE, static_cast<std::size_t>(recording.cols) - first);
    std::vector<std::vector<double>> columns(count, std::vector<double>(static_cast<std::size_t>(range.Count())));
    for (std::int64_t cycle = range.begin; cycle < range.end; ++cycle) {
        const std::span<const float> row = recording.Row(cycle).subspan(first, count);
        for (std::size_t i = 0; i < count; ++i) {
            columns[i][static_cast<std::size_t>(cycle - range.begin)] = static_cast<double>(row[i]);
        }
    }
    return columns;
}

/// The disturbances of modes `first` on. What a command was limited by is fed back in the cycle after it, so that the
/// last cycle's is not known; nor does it matter, as it acts later.
std::vector<std::vector<double>> Disturbances(const RunSignals& data, bool is_open, CycleRange range, std::size_t first,
                                              const Plant& plant)
{
    std::vector<std::vector<double>> measured = Columns(data.in, range, first);
    if (is_open) {
        return measured;
    }
    const CycleRange next{range.begin + 1, range.end};
    std::vector<std::vector<double>> commands = Columns(data.out, range, first);
    const std::vector<std::vector<double>> shortfalls = Columns(data.arw, next, first);
    for (std::size_t i = 0; i < measured.size(); ++i) {
        std::transform(shortfalls[i].begin(), shortfalls[i].end(), commands[i].begin(), commands[i].begin(),
                       std::plus<>());
        measured[i] = DeriveDisturbance(measured[i], commands[i], plant);
    }
    return measured;
}

std::int64_t CountLimited(const ModesRecording& arw, CycleRange range)
{
    std::int64_t count = 0;
    for (std::int64_t cycle = range.begin + 1; cycle < range.end; ++cycle) {
        const std::span<const float> row = arw.Row(cycle);
        count += std::any_of(row.begin(), row.end(), [](float value) { return value != 0.0F; }) ? 1 : 0;
    }
    return count;
}

/// Finds the gains of one mode after the other, keeping what they have in common.
class Tuner
{
public:
    Tuner(const Plant& plant, const LoopDemands& demands, std::int64_t skipped)
        : m_plant(plant), m_demands(demands), m_skipped(skipped)
    {
    }

    ModeTuning Tune(std::span<const double> disturbance, const ravelcore::PidFilterContext& channel)
    {
        ModeTuning mode;
        mode.noise_um2 = EstimateNoiseVariance(disturbance);
        mode.now = Describe(disturbance, channel);
        mode.proposed = Describe(disturbance, FindSearch(channel).FindBest(disturbance, m_skipped));
        constexpr double WORTH_IT = 0.98;  // of the mean square: 1 % of the rms
        const bool is_better = mode.proposed.residual_um2 < WORTH_IT * mode.now.residual_um2;
        const bool runs_away = !std::isfinite(mode.proposed.residual_um2);  // with a derivative that the search keeps
        if (runs_away || (!is_better && MeetsDemands(channel, m_plant, m_demands))) {
            mode.proposed = mode.now;
            mode.is_kept = true;
        }
        const ravelcore::PidFilterContext proposed =
            WithGains(channel, static_cast<double>(mode.proposed.kp), static_cast<double>(mode.proposed.ki));
        mode.quarters_um2 = ComputeQuarters(disturbance, proposed);
        return mode;
    }

private:
    TunedLoop Describe(std::span<const double> disturbance, const ravelcore::PidFilterContext& channel)
    {
        const auto key = std::make_tuple(channel.kp, channel.bi, channel.ad, channel.bd);
        auto found = m_loops.find(key);
        if (found == m_loops.end()) {
            const TunedLoop loop{channel.kp, channel.ki, ComputeMargins(channel, m_plant),
                                 ComputeSensitivityPeak(channel, m_plant), 0.0};
            found = m_loops.emplace(key, loop).first;
        }
        TunedLoop loop = found->second;
        loop.residual_um2 = ComputeResidual(disturbance, m_skipped, channel, m_plant);
        return loop;
    }

    /// Mean squares of the quarters, as differences of the sums up to their ends.
    Quarters ComputeQuarters(std::span<const double> disturbance, const ravelcore::PidFilterContext& channel) const
    {
        Quarters quarters{};
        const auto skipped = static_cast<std::size_t>(m_skipped);
        double sum = 0.0;
        std::size_t begin = skipped;
        for (std::size_t i = 0; i < quarters.size(); ++i) {
            const std::size_t end = skipped + (disturbance.size() - skipped) * (i + 1) / quarters.size();
            const double sum_to_end = ComputeResidual(disturbance.first(end), m_skipped, channel, m_plant) *
                                      static_cast<double>(end - skipped);
            quarters[i] = (sum_to_end - sum) / static_cast<double>(end - begin);
            sum = sum_to_end;
            begin = end;
        }
        return quarters;
    }

    const LoopSearch& FindSearch(const ravelcore::PidFilterContext& channel)
    {
        const auto key = std::make_pair(channel.kd, channel.n);
        auto found = m_searches.find(key);
        if (found == m_searches.end()) {
            found = m_searches.emplace(key, LoopSearch(channel, m_plant, m_demands)).first;
        }
        return found->second;
    }

    Plant m_plant;
    LoopDemands m_demands;
    std::int64_t m_skipped;
    std::map<std::pair<float, float>, LoopSearch> m_searches;             // by derivative
    std::map<std::tuple<float, float, float, float>, TunedLoop> m_loops;  // by coefficients
};

}  // namespace

double SurfaceNm(double squares_um2)
{
    constexpr double NM_PER_UM = 1.0e3;
    return NM_PER_UM * std::sqrt(std::max(0.0, squares_um2) / mirrorsim::NUM_PACT);
}

TuningTotals Tuning::ComputeTotals() const
{
    double now = 0.0;
    double proposed = 0.0;
    double surface_now = 0.0;
    double surface_proposed = 0.0;
    std::optional<double> recorded = 0.0;
    Quarters quarters{};
    for (const ModeTuning& mode : modes) {
        now += mode.now.residual_um2;
        proposed += mode.proposed.residual_um2;
        surface_now += std::max(0.0, mode.now.residual_um2 - mode.noise_um2);
        surface_proposed += std::max(0.0, mode.proposed.residual_um2 - mode.noise_um2);
        for (std::size_t i = 0; i < quarters.size(); ++i) {
            quarters[i] += std::max(0.0, mode.quarters_um2[i] - mode.noise_um2);
        }
        recorded = recorded && mode.recorded_um2 ? std::optional(*recorded + *mode.recorded_um2) : std::nullopt;
    }
    std::transform(quarters.begin(), quarters.end(), quarters.begin(), SurfaceNm);
    return {recorded ? std::optional(SurfaceNm(*recorded)) : std::nullopt,
            SurfaceNm(now),
            SurfaceNm(proposed),
            SurfaceNm(surface_now),
            SurfaceNm(surface_proposed),
            quarters};
}

std::int64_t FirstMeasuredCycle(const RunFolder& run, std::span<const GainsInForce> gains)
{
    return std::max(run.GetFirstJudgedCycle(), gains.back().before_cycle);
}

std::vector<double> MeasureResiduals(const ModesRecording& in, std::int64_t begin)
{
    const auto end = static_cast<std::int64_t>(in.timestamps.size());
    if (begin >= end) {
        return {};
    }
    std::vector<double> squares(static_cast<std::size_t>(in.cols));
    for (std::int64_t cycle = begin; cycle < end; ++cycle) {
        const std::span<const float> row = in.Row(cycle);
        for (std::size_t i = 0; i < row.size(); ++i) {
            squares[i] += static_cast<double>(row[i]) * static_cast<double>(row[i]);
        }
    }
    for (double& square : squares) {
        square /= static_cast<double>(end - begin);
    }
    return squares;
}

Tuning TuneModes(const RunFolder& run, const TuneOptions& options, const std::function<void(std::size_t)>& tell)
{
    Tuning tuning;
    tuning.is_from_open = ChooseOpen(run, options.from);
    tuning.rate_hz = run.GetRateHz();
    tuning.plant = run.GetPlant();
    tuning.demands = options.demands;
    const CycleRange range = tuning.is_from_open ? OpenPart(run) : ClosedPart(run);
    tuning.cycles = range.Count() - (tuning.is_from_open ? 0 : CyclesToForget(tuning.plant));
    CheckRun(run, tuning.is_from_open, tuning.cycles);
    tuning.skipped = std::min(SETTLING_CYCLES, tuning.cycles / 4);
    const std::vector<GainsInForce> gains = run.LoadGains();
    tuning.params = gains.back().params;
    std::vector<ravelcore::PidFilterContext> channels;
    ravelcore::PidFilterCopy(static_cast<float>(tuning.plant.period_s), 0.0F, tuning.params, channels);

    CheckTuneMemory(run, tuning.is_from_open);
    const RunSignals data(run, tuning.is_from_open);
    const bool is_redefined = run.GetCyclesBeforeRedefinition() < run.GetCycles();
    const std::vector<double> recorded =
        is_redefined ? std::vector<double>() : MeasureResiduals(data.in, FirstMeasuredCycle(run, gains));
    const bool is_mixed = is_redefined || gains.back().before_cycle > run.GetFirstJudgedCycle();
    tuning.run_surface_nm = is_mixed ? std::nullopt : run.GetSurfaceNm();
    tuning.limited_cycles = tuning.is_from_open ? 0 : CountLimited(data.arw, range);
    Tuner tuner(tuning.plant, options.demands, tuning.skipped);
    tuning.modes.reserve(channels.size());
    for (std::size_t first = 0; first < channels.size(); first += MODES_AT_ONCE) {
        for (const std::vector<double>& disturbance :
             Disturbances(data, tuning.is_from_open, range, first, tuning.plant)) {
            const std::size_t mode = tuning.modes.size();
            tell(mode);
            const bool is_finite =
                std::all_of(disturbance.begin(), disturbance.end(), [](double value) { return std::isfinite(value); });
            if (!is_finite) {
                throw InputError(fmt::format("{}: mode {}: expected finite values but not all of them are",
                                             run.GetPath().string(), mode));
            }
            ModeTuning tuned = tuner.Tune(disturbance, channels[mode]);
            if (!recorded.empty()) {
                tuned.recorded_um2 = recorded[mode];
            }
            tuning.params[mode * NUM_PARAMS + KP] = tuned.proposed.kp;
            tuning.params[mode * NUM_PARAMS + KI] = tuned.proposed.ki;
            tuning.modes.push_back(tuned);
        }
    }
    return tuning;
}

}  // namespace lumo::ravelctl
