#pragma once

#include <lumo/ravelcore/pidFilter.hpp>

#include <complex>
#include <functional>
#include <span>

/// The loop of one mode in the frequency domain, computed from the channel's coefficients as they really are.
///
/// All modes share the plant P(z) = a z^-(1 + delay) / (1 - (1 - a) z^-1) from command to measured mode: the actuators'
/// first-order lag, sampled, behind a command that acts `delay` cycles late. Limits are not reached.
namespace lumo::ravelctl {

/// The plant's two figures and the sampling period.
struct Plant
{
    double lag_coefficient = 1.0;  // a, 0 to 1
    int delay_cycles = 0;
    double period_s = 0.002;
};

/// Controller, from error to command, at `frequency_hz`: kp + bi z^-1 / (1 - z^-1) + bd (1 - z^-1) / (1 - ad z^-1).
/// The derivative acts on the measurement only, which is the same thing inside the loop.
std::complex<double> ControllerResponse(const ravelcore::PidFilterContext& channel, double period_s,
                                        double frequency_hz);

std::complex<double> PlantResponse(const Plant& plant, double frequency_hz);

/// L = C P.
std::complex<double> OpenLoopResponse(const ravelcore::PidFilterContext& channel, const Plant& plant,
                                      double frequency_hz);

/// From a disturbance of the mode to what remains of it: 1 / (1 + L).
std::complex<double> RejectionResponse(const ravelcore::PidFilterContext& channel, const Plant& plant,
                                       double frequency_hz);

/// From the reference (after the set-point filter) to the measured mode, with the set-point weight bp in the
/// proportional term: (bp kp + bi z^-1 / (1 - z^-1)) P / (1 + L).
std::complex<double> ReferenceResponse(const ravelcore::PidFilterContext& channel, const Plant& plant,
                                       double frequency_hz);

/// The set-point filter g (1 + n1 z^-1 + n2 z^-2) / (1 + d1 z^-1 + d2 z^-2).
std::complex<double> SetpointFilterResponse(const ravelcore::PidFilterContext& channel, double period_s,
                                            double frequency_hz);

struct Margins
{
    double crossover_hz;      // lowest frequency with |L| = 1; 0 where there is none
    double phase_margin_deg;  // 180 + phase of L at the crossover
    double gain_margin_db;    // -20 log10 |L| where the phase of L passes -180 degrees
};

/// Searched on a fine grid from 0.01 Hz to half the sampling rate, refined by bisection. Real time: no.
Margins ComputeMargins(const ravelcore::PidFilterContext& channel, const Plant& plant);

/// The largest factor by which the loop amplifies a disturbance: max |1 / (1 + L)|, on the same grid. Its inverse is
/// how near L comes to -1. Real time: no.
double ComputeSensitivityPeak(const ravelcore::PidFilterContext& channel, const Plant& plant);

/// The margins of many loops: each figure is the lowest of all of them. A loop without a crossover has no phase margin.
struct MarginRange
{
    Margins lowest{0.0, 0.0, 0.0};
    double highest_crossover_hz = 0.0;
};

/// Real time: no. `channels`: at least one.
MarginRange ComputeMarginRange(std::span<const ravelcore::PidFilterContext> channels, const Plant& plant);

}  // namespace lumo::ravelctl
