#pragma once

#include <lumo/ravelcore/export.hpp>

#include <string>
#include <vector>

namespace lumo::ravelcore {

/// One control channel: a second-order low-pass on the set-point and a PID controller with set-point weight, filtered
/// derivative, output limits and two anti-windup paths. A plain record of 27 floats; value-initialised it is all zeros.
/// Writing a parameter does not update what is derived from it: only PidFilterInit does, and it also clears the state.
/// Limits, state and offset are in the unit of the controlled mode.
struct PidFilterContext
{
    float feed_forward_offset;  // parameter: carried with the channel, not used by the compute functions
    float sampling_period;      // parameter: h, s
    float kp;                   // parameter: proportional gain K
    float ki;                   // parameter: integral gain factor, 1/s; the integral coefficient is K ki h
    float kd;                   // parameter: derivative time Td, s
    float karw;                 // parameter: gain of the external anti-windup input, 1/s
    float ulow;                 // parameter: lower output limit
    float uhigh;                // parameter: upper output limit
    float n;                    // parameter: derivative filter factor N
    float tt;                   // parameter: tracking time constant Tt of the saturation anti-windup, s
    float bp;                   // parameter: set-point weight b of the proportional term
    float a0;                   // derived: h / Tt
    float bi;                   // derived: h K ki
    float ci;                   // derived: karw h
    float ad;                   // derived: Td / (Td + N h)
    float bd;                   // derived: N K Td / (Td + N h)
    float ui;                   // state: integral term
    float ud;                   // state: derivative term
    float last_meas;            // state: measurement of the previous step
    float freq;                 // parameter: cut-off frequency of the set-point filter, Hz
    float gain;                 // derived: filter gain g
    float n1;                   // derived: filter numerator coefficient, always 2
    float d1;                   // derived: filter denominator coefficient
    float n2;                   // derived: filter numerator coefficient, always 1
    float d2;                   // derived: filter denominator coefficient
    float internal1;            // state: filter state w[k-1]
    float internal2;            // state: filter state w[k-2]
};

static_assert(sizeof(PidFilterContext) == 27 * sizeof(float));

/// Parameters per channel wherever they travel as a flat list, in the order kp, ki, kd, karw, bp, tt, n, ulow, uhigh,
/// freq.
inline constexpr int NUM_PID_FILTER_PARAMS = 10;

// The functions touch only the record that they are given; one record must not be stepped from two threads at once.
// None logs, and none throws or allocates but PidFilterCopy and PidFilterPrint, which allocate what they return.

/// Clears the state: ui, ud, last_meas, internal1 and internal2; nothing else. Real time: yes.
RAVELCORE_API void PidFilterReset(PidFilterContext& ctx) noexcept;

/// Clears the state and derives all coefficients from the parameters. Real time: yes.
/// kd = 0 together with n h = 0 gives NaN coefficients, which is meant.
RAVELCORE_API void PidFilterInit(PidFilterContext& ctx) noexcept;

/// Writes the default parameters and calls PidFilterInit. Real time: yes.
RAVELCORE_API void PidFilterDefault(PidFilterContext& ctx) noexcept;

/// Writes NUM_PID_FILTER_PARAMS packed parameters, beginning at `params`, into a channel; derives nothing. Real time:
/// yes.
RAVELCORE_API void PidFilterUnpack(const float* params, PidFilterContext& ctx) noexcept;

/// Replaces `contexts` by one initialised channel for each 10 parameters.
/// Returns false and changes nothing if the number of parameters is no multiple of 10 or `sampling_period` (s) is 0.
/// Real time: no (allocates).
RAVELCORE_API bool PidFilterCopy(float sampling_period, float feed_forward_offset, const std::vector<float>& params,
                                 std::vector<PidFilterContext>& contexts);

/// One step of the set-point filter; returns its output.
/// When `first`, the filter starts in the state in which an input of `init_value` gives `init_value`. Real time: yes.
RAVELCORE_API float FilterCompute(PidFilterContext& ctx, float init_value, float input, bool first) noexcept;

/// One step of the PID controller; returns the limited output.
/// `arw_input` is the external anti-windup input. When `first`, the integral starts at `meas`. Real time: yes.
/// Source: Åström and Hägglund, PID Controllers: Theory, Design, and Tuning (2nd ed. 1995), ch. 3, digital
/// implementation.
RAVELCORE_API float PidCompute(PidFilterContext& ctx, float meas, float setpoint, float arw_input, bool first) noexcept;

/// Filter and controller in one call; returns the output. Real time: yes.
/// With the filter off the working set-point is 0 where `meas` equals `setpoint`; with the PID off the output is `meas`
/// plus the working set-point, or `meas` alone where it equals `setpoint`. `add_setpoint` adds the working set-point.
RAVELCORE_API float PidFilterCompute(PidFilterContext& ctx, float meas, float setpoint, float arw_input,
                                     bool pid_enabled, bool filter_enabled, bool add_setpoint, bool first) noexcept;

/// All 27 fields, one per line as "name = value", without a newline at the end. Real time: no (allocates).
RAVELCORE_API std::string PidFilterPrint(const PidFilterContext& ctx);

}  // namespace lumo::ravelcore
