#include "tuneCheck.hpp"

#include "error.hpp"
#include "tuning.hpp"

#include <lumo/ravelcore/pidFilter.hpp>

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

namespace lumo::ravelctl {

namespace {

void CheckSameLoop(const Prediction& prediction, const RunFolder& run, const std::vector<float>& params)
{
    const std::string name = run.GetPath().string();
    if (prediction.modes.size() != static_cast<std::size_t>(run.GetModes()) || prediction.rate_hz != run.GetRateHz()) {
        throw InputError(fmt::format("{}: expected {} modes at {:g} Hz, as predicted, but the run had {} at {:g} Hz",
                                     name, prediction.modes.size(), prediction.rate_hz, run.GetModes(),
                                     run.GetRateHz()));
    }
    for (std::size_t mode = 0; mode < prediction.modes.size(); ++mode) {
        const Prediction::Mode& expected = prediction.modes[mode];
        const std::size_t begin = mode * static_cast<std::size_t>(ravelcore::NUM_PID_FILTER_PARAMS);
        if (params[begin] != expected.kp || params[begin + 1] != expected.ki) {
            throw InputError(fmt::format(
                "{}: mode {}: expected kp {} and ki {}, as proposed, but the run had {} and {}{}", name, mode,
                expected.kp, expected.ki, params[begin], params[begin + 1],
                run.IsChangedMidway() ? " at its end; run with --gains and without its script: --script \"\""
                                      : "; run with --gains"));
        }
    }
}

std::string FormatRow(const char* name, double predicted, double measured)
{
    const std::string difference =
        predicted > 0.0 ? fmt::format("{:+11.1f} %", 100.0 * (measured / predicted - 1.0)) : fmt::format("{:>13}", "-");
    return fmt::format("  {:<22}{:11.2f}{:11.2f}{}\n", name, predicted, measured, difference);
}

bool IsNear(double measured, double predicted)
{
    return std::abs(measured - predicted) <= PredictionCheck::TOLERANCE * predicted;
}

/// Measured over predicted, mode by mode; those of which nothing is predicted are left aside.
std::string DescribeSpread(const Prediction& prediction, const std::vector<double>& measured)
{
    std::vector<double> ratios;
    ratios.reserve(measured.size());
    for (std::size_t mode = 0; mode < measured.size(); ++mode) {
        if (prediction.modes[mode].residual_um2 > 0.0) {
            ratios.push_back(std::sqrt(measured[mode] / prediction.modes[mode].residual_um2));
        }
    }
    if (ratios.empty()) {
        return "";
    }
    std::sort(ratios.begin(), ratios.end());
    const auto at = [&ratios](double fraction) {
        return ratios[static_cast<std::size_t>(std::lround(fraction * static_cast<double>(ratios.size() - 1)))];
    };
    return fmt::format(
        "mode by mode, measured over predicted: median {:.2f}, 5 % to 95 % {:.2f} to {:.2f}, "
        "extremes {:.2f} and {:.2f}\n",
        at(0.5), at(0.05), at(0.95), at(0.0), at(1.0));
}

}  // namespace

std::string PredictionCheck::FormatVerdict(const Palette& palette) const
{
    const std::string verdict =
        fmt::format("{} within {:.0f} %", is_confirmed ? "confirmed" : "NOT confirmed", 100.0 * TOLERANCE);
    return fmt::format("verdict                 {}\n", is_confirmed ? palette.Good(verdict) : palette.Bad(verdict));
}

PredictionCheck CheckPrediction(const Prediction& prediction, const RunFolder& run)
{
    if (run.GetCyclesBeforeRedefinition() < run.GetCycles()) {
        throw InputError(
            fmt::format("{}: expected a run with the same modes throughout but its script replaced some, "
                        "or a matrix; run without that script",
                        run.GetPath().string()));
    }
    const std::vector<GainsInForce> gains = run.LoadGains();
    CheckSameLoop(prediction, run, gains.back().params);
    const std::vector<double> measured =
        MeasureResiduals(run.LoadEveryCycle("modes_in"), FirstMeasuredCycle(run, gains));
    if (measured.empty()) {
        throw InputError(fmt::format("{}: expected the second half of the closed loop but the run ended before",
                                     run.GetPath().string()));
    }
    const double residual_nm = SurfaceNm(std::accumulate(measured.begin(), measured.end(), 0.0));
    PredictionCheck check;
    check.is_confirmed = IsNear(residual_nm, prediction.residual_nm);
    check.table = fmt::format("{:<24}{:>11}{:>11}{:>13}\n", "all modes, nm rms", "predicted", "measured", "difference");
    check.table += FormatRow("as measured", prediction.residual_nm, residual_nm);
    // The run's own figure begins with its second half: it mixes what there was before a later change of gains.
    const bool is_comparable = gains.back().before_cycle <= run.GetFirstJudgedCycle();
    if (const std::optional<double> surface_nm = run.GetSurfaceNm(); surface_nm && is_comparable) {
        // 0: all that was predicted is noise, of which a part is no measure.
        const bool is_predicted = prediction.surface_nm > 0.0;
        check.is_confirmed = check.is_confirmed && (!is_predicted || IsNear(*surface_nm, prediction.surface_nm));
        check.table += FormatRow("surface, controlled", prediction.surface_nm, *surface_nm);
    }
    check.table += DescribeSpread(prediction, measured);
    return check;
}

}  // namespace lumo::ravelctl
