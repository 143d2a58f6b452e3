#include "numberText.hpp"

#include <lumo/mirrorsim/mirrorConfig.hpp>

#include <cmath>
#include <stdexcept>
#include <string>

namespace lumo::mirrorsim {

namespace {

void Require(bool condition, const std::string& name, const std::string& expected, double found)
{
    if (!condition) {
        throw std::invalid_argument("Expected MirrorConfig::" + name + " to be " + expected + " but it is " +
                                    ToText(found) + ".");
    }
}

void RequirePositive(const std::string& name, double found)
{
    Require(std::isfinite(found) && found > 0.0, name, "greater than 0", found);
}

void RequireNotNegative(const std::string& name, double found)
{
    Require(std::isfinite(found) && found >= 0.0, name, "0 or greater", found);
}

}  // namespace

void CheckMirrorConfig(const MirrorConfig& config)
{
    RequirePositive("period_s", config.period_s);
    const double nyquist_hz = 0.5 / config.period_s;
    const std::string below_nyquist = "below half the cycle rate of " + ToText(nyquist_hz) + " Hz";
    RequireNotNegative("actuator_time_constant_s", config.actuator_time_constant_s);
    RequirePositive("stroke_limit_um", config.stroke_limit_um);
    RequirePositive("rate_limit_um_per_s", config.rate_limit_um_per_s);
    RequireNotNegative("wind_rms_um", config.wind_rms_um);
    RequirePositive("wind_corner_hz", config.wind_corner_hz);
    Require(config.wind_corner_hz < nyquist_hz, "wind_corner_hz", below_nyquist, config.wind_corner_hz);
    RequireNotNegative("drift_um_per_s", config.drift_um_per_s);
    RequireNotNegative("sensor_noise_um", config.sensor_noise_um);
    RequireNotNegative("initial_rms_um", config.initial_rms_um);
    for (std::size_t i = 0; i < config.tones.size(); ++i) {
        const Tone& tone = config.tones[i];
        const std::string name = "tones[" + std::to_string(i) + "].";
        Require(tone.mode >= 0, name + "mode", "0 or greater", tone.mode);
        RequireNotNegative(name + "frequency_hz", tone.frequency_hz);
        Require(tone.frequency_hz <= nyquist_hz, name + "frequency_hz",
                "not above half the cycle rate of " + ToText(nyquist_hz) + " Hz", tone.frequency_hz);
        Require(std::isfinite(tone.amplitude_um), name + "amplitude_um", "finite", tone.amplitude_um);
    }
}

}  // namespace lumo::mirrorsim
