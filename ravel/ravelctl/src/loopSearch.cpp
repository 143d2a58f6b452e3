#include "loopSearch.hpp"

#include "error.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace lumo::ravelctl {

namespace {

using Lanes = std::array<double, LOOPS_AT_ONCE>;

/// The channels' coefficients side by side, so that the loops are computed abreast.
struct Coefficients
{
    explicit Coefficients(const LoopBatch& channels)
    {
        for (std::size_t i = 0; i < LOOPS_AT_ONCE; ++i) {
            kp[i] = static_cast<double>(channels[i].kp);
            bi[i] = static_cast<double>(channels[i].bi);
            ad[i] = static_cast<double>(channels[i].ad);
            bd[i] = static_cast<double>(channels[i].bd);
        }
    }

    Lanes kp{};
    Lanes bi{};
    Lanes ad{};
    Lanes bd{};
};

}  // namespace

ResidualBatch ComputeResiduals(std::span<const double> disturbance_um, std::int64_t skipped, const LoopBatch& channels,
                               const Plant& plant)
{
    const Coefficients c(channels);
    const double a = plant.lag_coefficient;
    Lanes balanced{};
    balanced.fill(disturbance_um.empty() ? 0.0 : -disturbance_um.front());
    Lanes position = balanced;
    Lanes integral = balanced;
    Lanes derivative{};
    Lanes last{};
    Lanes squares{};
    std::vector<Lanes> late(static_cast<std::size_t>(plant.delay_cycles) + 1, balanced);  // commands on their way
    std::size_t place = 0;
    const auto first = static_cast<std::size_t>(skipped);
    for (std::size_t k = 0; k < disturbance_um.size(); ++k) {
        const double counted = k < first ? 0.0 : 1.0;
        Lanes& command = late[place];
        place = place + 1 == late.size() ? 0 : place + 1;
        const Lanes& acting = late[place];  // the oldest; with no delay the one that is computed here
        for (std::size_t i = 0; i < LOOPS_AT_ONCE; ++i) {
            const double measured = disturbance_um[k] + position[i];
            squares[i] += counted * measured * measured;
            derivative[i] = c.ad[i] * derivative[i] - c.bd[i] * (measured - last[i]);
            command[i] = integral[i] - c.kp[i] * measured + derivative[i];
            integral[i] -= c.bi[i] * measured;
            last[i] = measured;
            position[i] += a * (acting[i] - position[i]);
        }
    }
    const auto count = static_cast<double>(disturbance_um.size() - std::min(first, disturbance_um.size()));
    for (double& square : squares) {
        square = std::isfinite(square) && count > 0.0 ? square / count : std::numeric_limits<double>::infinity();
    }
    return squares;
}

double ComputeResidual(std::span<const double> disturbance_um, std::int64_t skipped,
                       const ravelcore::PidFilterContext& channel, const Plant& plant)
{
    LoopBatch channels;
    channels.fill(channel);
    return ComputeResiduals(disturbance_um, skipped, channels, plant).front();
}

bool MeetsDemands(const ravelcore::PidFilterContext& channel, const Plant& plant, const LoopDemands& demands)
{
    const Margins margins = ComputeMargins(channel, plant);
    return margins.crossover_hz > 0.0 && margins.phase_margin_deg >= demands.phase_margin_deg &&
           margins.gain_margin_db >= demands.gain_margin_db &&
           (!demands.max_crossover_hz || margins.crossover_hz <= *demands.max_crossover_hz) &&
           ComputeSensitivityPeak(channel, plant) <= demands.sensitivity_peak;
}

ravelcore::PidFilterContext WithGains(ravelcore::PidFilterContext channel, double kp, double ki)
{
    channel.kp = static_cast<float>(kp);
    channel.ki = static_cast<float>(ki);
    ravelcore::PidFilterInit(channel);
    return channel;
}

double LoopSearch::LowestCrossover(const Plant& plant)
{
    constexpr double OF_THE_RATE = 1.0 / 500.0;
    return OF_THE_RATE / plant.period_s;
}

LoopSearch::LoopSearch(const ravelcore::PidFilterContext& channel, const Plant& plant, const LoopDemands& demands)
    : m_channel(channel), m_plant(plant)
{
    if (demands.max_crossover_hz && *demands.max_crossover_hz <= LowestCrossover(plant)) {
        throw InputError(
            fmt::format("--max-crossover: expected more than {:g} Hz, the lowest crossover that is "
                        "proposed at this rate, but got {:g} Hz",
                        LowestCrossover(plant), *demands.max_crossover_hz));
    }
    // With the zero on the pole the open loop is an integrator behind the delay; kp is then known from the crossover.
    const double a = plant.lag_coefficient;
    const double lowest_kp = 2.0 * std::sin(std::numbers::pi * LowestCrossover(plant) * plant.period_s) / a;
    const double highest_kp = 2.0 / a;  // a crossover at half the rate
    for (const double place : {0.5, 0.7, 0.85, 1.0, 1.2, 1.4}) {
        const double ki = place * a / plant.period_s;
        const auto is_good = [&](double kp) {
            return MeetsDemands(WithGains(channel, kp, ki), plant, demands);
        };
        if (!is_good(lowest_kp)) {
            continue;
        }
        double good = lowest_kp;
        double bad = highest_kp;
        while (bad > 1.001 * good) {
            const double middle = std::sqrt(good * bad);
            (is_good(middle) ? good : bad) = middle;
        }
        m_lines.push_back({ki, lowest_kp, good});
    }
    if (m_lines.empty()) {
        throw InputError(fmt::format(
            "no gains leave a phase margin of {:g} deg, a gain margin of {:g} dB and a sensitivity peak of "
            "{:g} with a crossover of {:g} Hz, the lowest that is proposed; demand less",
            demands.phase_margin_deg, demands.gain_margin_db, demands.sensitivity_peak, LowestCrossover(plant)));
    }
}

/// From the lowest gain of a line, 0, to its highest, 1, by equal ratios.
ravelcore::PidFilterContext LoopSearch::At(const Line& line, double fraction) const
{
    return WithGains(m_channel, line.lowest_kp * std::pow(line.highest_kp / line.lowest_kp, fraction), line.ki);
}

ravelcore::PidFilterContext LoopSearch::FindBest(std::span<const double> disturbance_um, std::int64_t skipped) const
{
    constexpr int REFINEMENTS = 2;
    constexpr double STEPS = LOOPS_AT_ONCE - 1;
    const Line* best_line = &m_lines.front();
    double best_fraction = 0.0;
    double least = std::numeric_limits<double>::infinity();
    const auto look_at = [&](const Line& line, double begin, double end) {
        LoopBatch channels;
        const auto fraction_of = [&](std::size_t i) {
            return begin + (end - begin) * static_cast<double>(i) / STEPS;
        };
        for (std::size_t i = 0; i < channels.size(); ++i) {
            channels[i] = At(line, fraction_of(i));
        }
        const ResidualBatch residuals = ComputeResiduals(disturbance_um, skipped, channels, m_plant);
        for (std::size_t i = 0; i < channels.size(); ++i) {
            if (residuals[i] < least) {
                least = residuals[i];
                best_line = &line;
                best_fraction = fraction_of(i);
            }
        }
    };
    for (const Line& line : m_lines) {
        look_at(line, 0.0, 1.0);
    }
    double step = 1.0 / STEPS;
    for (int i = 0; i < REFINEMENTS; ++i) {
        look_at(*best_line, std::max(0.0, best_fraction - step), std::min(1.0, best_fraction + step));
        step *= 2.0 / STEPS;
    }
    return At(*best_line, best_fraction);
}

}  // namespace lumo::ravelctl
