#include "gains.hpp"

#include "error.hpp"
#include "gainParams.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace lumo::ravelctl {

LoopDesign DesignFor(double rate_hz)
{
    constexpr double FULL_RATE_HZ = 500.0;
    const double scale = std::min(1.0, rate_hz / FULL_RATE_HZ);
    LoopDesign design;
    design.crossover_hz *= scale;
    design.setpoint_filter_hz *= scale;
    design.tracking_time_s /= scale;
    return design;
}

std::vector<float> DesignGains(const LoopDesign& design, const Plant& plant, const mirrorsim::ControlModes& modes,
                               double stroke_limit_um)
{
    const double a = plant.lag_coefficient;
    const double kp = 2.0 * std::sin(std::numbers::pi * design.crossover_hz * plant.period_s) / a;
    const double ki = a / plant.period_s;
    const auto num_modes = static_cast<std::size_t>(modes.num_modes);
    std::vector<float> largest(num_modes, 0.0F);  // element of each mode, by magnitude
    for (std::size_t i = 0; i < modes.modes2pact.size(); ++i) {
        float& value = largest[i % num_modes];
        value = std::max(value, std::abs(modes.modes2pact[i]));
    }
    std::vector<float> params;
    params.reserve(num_modes * ravelcore::NUM_PID_FILTER_PARAMS);
    for (const float element : largest) {
        const auto limit = static_cast<float>(stroke_limit_um) / element;
        params.insert(params.end(), {static_cast<float>(kp), static_cast<float>(ki), 0.0F,
                                     static_cast<float>(1.0 / design.tracking_time_s), 1.0F,
                                     static_cast<float>(design.tracking_time_s), 10.0F, -limit, limit,
                                     static_cast<float>(design.setpoint_filter_hz)});
    }
    return params;
}

void ChangeGains(const float* params, ravelcore::PidFilterContext& channel) noexcept
{
    const ravelcore::PidFilterContext before = channel;
    ravelcore::PidFilterUnpack(params, channel);
    ravelcore::PidFilterInit(channel);  // clears the state
    channel.ui = before.ui;
    channel.ud = before.ud;
    channel.last_meas = before.last_meas;
    channel.internal1 = before.internal1;
    channel.internal2 = before.internal2;
}

void CheckGains(std::span<const float> params)
{
    constexpr std::size_t ULOW = 7;
    constexpr std::size_t UHIGH = 8;
    for (std::size_t begin = 0; begin < params.size(); begin += GAIN_PARAMS.size()) {
        const std::size_t mode = begin / GAIN_PARAMS.size();
        for (std::size_t i = 0; i < GAIN_PARAMS.size(); ++i) {
            const float value = params[begin + i];
            const Sign sign = GAIN_PARAMS[i].sign;
            if (sign == Sign::Positive && !(value > 0.0F)) {
                throw InputError(
                    fmt::format("mode {}: {}: expected more than 0 but got {}", mode, GAIN_PARAMS[i].name, value));
            }
            if (sign == Sign::NotNegative && !(value >= 0.0F)) {
                throw InputError(
                    fmt::format("mode {}: {}: expected 0 or above but got {}", mode, GAIN_PARAMS[i].name, value));
            }
        }
        if (params[begin + ULOW] > params[begin + UHIGH]) {
            throw InputError(fmt::format("mode {}: ulow: expected at most uhigh = {} but got {}", mode,
                                         params[begin + UHIGH], params[begin + ULOW]));
        }
    }
}

void CheckStable(std::span<const ravelcore::PidFilterContext> channels, const Plant& plant)
{
    for (std::size_t mode = 0; mode < channels.size(); ++mode) {
        const Margins margins = ComputeMargins(channels[mode], plant);
        // A very high gain has no crossover at all: it is above 1 up to half the rate.
        const bool has_no_phase_left = margins.crossover_hz > 0.0 && margins.phase_margin_deg <= 0.0;
        if (has_no_phase_left || margins.gain_margin_db <= 0.0) {
            throw InputError(
                fmt::format("mode {}: expected gains with which the loop is stable but at {:g} Hz they leave a phase "
                            "margin of {:.0f} deg and a gain margin of {:.1f} dB; use gains for this rate",
                            mode, 1.0 / plant.period_s, margins.phase_margin_deg, margins.gain_margin_db));
        }
    }
}

}  // namespace lumo::ravelctl
