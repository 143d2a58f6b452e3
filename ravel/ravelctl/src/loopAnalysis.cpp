#include "loopAnalysis.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <set>
#include <tuple>

namespace lumo::ravelctl {

namespace {

/// z^-1 at a frequency.
std::complex<double> UnitDelay(double period_s, double frequency_hz)
{
    return std::polar(1.0, -2.0 * std::numbers::pi * frequency_hz * period_s);
}

std::complex<double> IntegralResponse(const ravelcore::PidFilterContext& channel, std::complex<double> delay)
{
    return static_cast<double>(channel.bi) * delay / (1.0 - delay);
}

/// The frequency between `low` and `high` at which `f` changes sign, to a relative 1e-9.
double Bisect(const std::function<double(double)>& f, double low, double high)
{
    const bool low_positive = f(low) > 0.0;
    while (high - low > 1e-9 * high) {
        const double middle = 0.5 * (low + high);
        ((f(middle) > 0.0) == low_positive ? low : high) = middle;
    }
    return 0.5 * (low + high);
}

constexpr int POINTS_PER_DECADE = 400;
constexpr double LOWEST_HZ = 0.01;

/// The lowest frequency at which `f` falls from above 0 to 0 or below, or 0.
double FirstFall(const std::function<double(double)>& f, double highest_hz)
{
    const double decades = std::log10(highest_hz / LOWEST_HZ);
    double previous = LOWEST_HZ;
    for (int point = 1; point < POINTS_PER_DECADE * decades; ++point) {
        const double frequency = LOWEST_HZ * std::pow(10.0, static_cast<double>(point) / POINTS_PER_DECADE);
        if (f(previous) > 0.0 && f(frequency) <= 0.0) {
            return Bisect(f, previous, frequency);
        }
        previous = frequency;
    }
    return 0.0;
}

}  // namespace

std::complex<double> ControllerResponse(const ravelcore::PidFilterContext& channel, double period_s,
                                        double frequency_hz)
{
    const std::complex<double> delay = UnitDelay(period_s, frequency_hz);
    const std::complex<double> derivative =
        static_cast<double>(channel.bd) * (1.0 - delay) / (1.0 - static_cast<double>(channel.ad) * delay);
    return static_cast<double>(channel.kp) + IntegralResponse(channel, delay) + derivative;
}

std::complex<double> PlantResponse(const Plant& plant, double frequency_hz)
{
    const std::complex<double> delay = UnitDelay(plant.period_s, frequency_hz);
    const double a = plant.lag_coefficient;
    return a * std::pow(delay, 1 + plant.delay_cycles) / (1.0 - (1.0 - a) * delay);
}

std::complex<double> OpenLoopResponse(const ravelcore::PidFilterContext& channel, const Plant& plant,
                                      double frequency_hz)
{
    return ControllerResponse(channel, plant.period_s, frequency_hz) * PlantResponse(plant, frequency_hz);
}

std::complex<double> RejectionResponse(const ravelcore::PidFilterContext& channel, const Plant& plant,
                                       double frequency_hz)
{
    return 1.0 / (1.0 + OpenLoopResponse(channel, plant, frequency_hz));
}

std::complex<double> ReferenceResponse(const ravelcore::PidFilterContext& channel, const Plant& plant,
                                       double frequency_hz)
{
    const std::complex<double> delay = UnitDelay(plant.period_s, frequency_hz);
    const std::complex<double> from_setpoint =
        static_cast<double>(channel.bp) * static_cast<double>(channel.kp) + IntegralResponse(channel, delay);
    return from_setpoint * PlantResponse(plant, frequency_hz) * RejectionResponse(channel, plant, frequency_hz);
}

std::complex<double> SetpointFilterResponse(const ravelcore::PidFilterContext& channel, double period_s,
                                            double frequency_hz)
{
    const std::complex<double> delay = UnitDelay(period_s, frequency_hz);
    const std::complex<double> numerator =
        1.0 + static_cast<double>(channel.n1) * delay + static_cast<double>(channel.n2) * delay * delay;
    const std::complex<double> denominator =
        1.0 + static_cast<double>(channel.d1) * delay + static_cast<double>(channel.d2) * delay * delay;
    return static_cast<double>(channel.gain) * numerator / denominator;
}

Margins ComputeMargins(const ravelcore::PidFilterContext& channel, const Plant& plant)
{
    const double half_rate_hz = 0.5 / plant.period_s;
    const auto gain_above_one = [&](double f) {
        return std::abs(OpenLoopResponse(channel, plant, f)) - 1.0;
    };
    // The imaginary part of L is negative between 0 and -180 degrees; it changes sign where the phase passes -180.
    const auto before_minus_180 = [&](double f) {
        return -OpenLoopResponse(channel, plant, f).imag();
    };

    Margins margins{0.0, 0.0, std::numeric_limits<double>::infinity()};
    margins.crossover_hz = FirstFall(gain_above_one, half_rate_hz);
    if (margins.crossover_hz > 0.0) {
        const std::complex<double> at_crossover = OpenLoopResponse(channel, plant, margins.crossover_hz);
        margins.phase_margin_deg = std::arg(-at_crossover) * 180.0 / std::numbers::pi;
    }
    const double turn_hz = FirstFall(before_minus_180, half_rate_hz);
    if (turn_hz > 0.0) {
        margins.gain_margin_db = -20.0 * std::log10(std::abs(OpenLoopResponse(channel, plant, turn_hz)));
    }
    return margins;
}

double ComputeSensitivityPeak(const ravelcore::PidFilterContext& channel, const Plant& plant)
{
    const double half_rate_hz = 0.5 / plant.period_s;
    double peak = 0.0;
    for (int point = 0;; ++point) {
        const double frequency = LOWEST_HZ * std::pow(10.0, static_cast<double>(point) / POINTS_PER_DECADE);
        peak = std::max(peak, std::abs(RejectionResponse(channel, plant, std::min(frequency, half_rate_hz))));
        if (frequency >= half_rate_hz) {
            return peak;
        }
    }
}

MarginRange ComputeMarginRange(std::span<const ravelcore::PidFilterContext> channels, const Plant& plant)
{
    constexpr double NONE = std::numeric_limits<double>::infinity();
    using Loop = std::tuple<float, float, float, float>;
    std::set<Loop> seen;
    MarginRange range{{NONE, NONE, NONE}, 0.0};
    for (const ravelcore::PidFilterContext& channel : channels) {
        if (!seen.insert({channel.kp, channel.bi, channel.ad, channel.bd}).second) {
            continue;
        }
        const Margins margins = ComputeMargins(channel, plant);
        range.lowest.crossover_hz = std::min(range.lowest.crossover_hz, margins.crossover_hz);
        range.highest_crossover_hz = std::max(range.highest_crossover_hz, margins.crossover_hz);
        range.lowest.gain_margin_db = std::min(range.lowest.gain_margin_db, margins.gain_margin_db);
        if (margins.crossover_hz > 0.0) {
            range.lowest.phase_margin_deg = std::min(range.lowest.phase_margin_deg, margins.phase_margin_deg);
        }
    }
    if (range.highest_crossover_hz == 0.0) {
        range.lowest.phase_margin_deg = 0.0;
    }
    return range;
}

}  // namespace lumo::ravelctl
