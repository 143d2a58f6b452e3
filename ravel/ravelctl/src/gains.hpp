#pragma once

#include "loopAnalysis.hpp"

#include <lumo/mirrorsim/controlModes.hpp>
#include <lumo/ravelcore/pidFilter.hpp>

#include <span>
#include <vector>

namespace lumo::ravelctl {

/// What the gains are chosen for.
struct LoopDesign
{
    double crossover_hz = 20.0;        // open loop
    double setpoint_filter_hz = 30.0;  // cut-off of the set-point filter
    double tracking_time_s = 0.02;     // of both anti-windup paths
};

/// The design for a cycle rate: the figures above at 500 Hz and more, scaled down with slower rates, because the loop's
/// delay is a number of cycles.
LoopDesign DesignFor(double rate_hz);

/// Packed parameters of `num_modes` channels (10 floats each, as TaskEdc::SetPidFilters takes them).
///
/// A PI controller whose zero cancels the pole of the actuators' lag, so that the open loop is an integrator behind the
/// delay: K a = 2 sin(pi fc h) puts the crossover at fc exactly, ki = a / h cancels the pole. Each mode's output limit
/// is the mode amplitude, in um, that takes its most loaded actuator to the stroke limit. The external anti-windup
/// input is fed with what the actuators fell short of the command and acts with the tracking time.
std::vector<float> DesignGains(const LoopDesign& design, const Plant& plant, const mirrorsim::ControlModes& modes,
                               double stroke_limit_um);

/// New parameters, NUM_PID_FILTER_PARAMS beginning at `params`, for a channel that keeps its state, so that its
/// integral term goes on from where it is. Real time: yes.
void ChangeGains(const float* params, ravelcore::PidFilterContext& channel) noexcept;

/// Refuses packed parameters, 10 floats per mode, with which a channel cannot work: they would give values that are no
/// numbers, which stay in a channel for good, or limits the wrong way round.
/// Failure: InputError that names the mode and the parameter.
void CheckGains(std::span<const float> params);

/// Refuses gains with which the loop of a mode runs away: with the plant of this rate it has no phase margin or no gain
/// margin. Failure: InputError that names the mode and the margins.
void CheckStable(std::span<const ravelcore::PidFilterContext> channels, const Plant& plant);

}  // namespace lumo::ravelctl
