#pragma once

#include <cstdint>
#include <vector>

namespace lumo::mirrorsim {

/// A sine on one control mode, for measuring how the loop rejects it: the disturbance at cycle k holds
/// amplitude sin(2 pi frequency k period) times the mode's shape. PACT2MODES shows it with that same amplitude; the
/// surface is amplitude / sqrt(2 NUM_PACT) um rms in the mean.
struct Tone
{
    int mode;             ///< column of MODES2PACT
    double frequency_hz;  ///< 0 to half the cycle rate
    double amplitude_um;  ///< of the modal coordinate
};

/// Everything that a simulated mirror is made from. Equal configurations give equal bits, cycle for cycle, on the same
/// C++ and C library; another seed gives another mirror. Wind, noise and start draw from streams of their own:
/// switching one of them off leaves the others as they were.
struct MirrorConfig
{
    std::uint64_t seed = 1;
    double period_s = 0.002;                  ///< one cycle
    double actuator_time_constant_s = 0.003;  ///< first-order lag; 0: the actuators follow within one cycle
    double stroke_limit_um = 500.0;           ///< positions and references stay within +- this: a stroke of 1 mm
    double rate_limit_um_per_s = 1000.0;      ///< 2 um a cycle at 500 Hz: passes any sane loop, holds back a step
    double wind_rms_um = 1.0;                 ///< surface over all actuator points and time, as the edge sensors see it
    double wind_corner_hz = 0.3;              ///< spectrum flat below, power falling with f^-4 above
    double drift_um_per_s = 0.002;            ///< surface rms of the slow drift: 7.2 um an hour
    double sensor_noise_um = 0.001;           ///< rms of each sensor's reading, white
    double initial_rms_um = 2.0;              ///< surface rms of the actuator positions at cycle 0
    std::vector<Tone> tones;                  ///< added to the disturbance
};

/// Checks what can be checked without the modes' shapes.
/// Thread:    any, not in the cycle.
/// Failure:   std::invalid_argument that names the field, what it must be and what it is.
void CheckMirrorConfig(const MirrorConfig& config);

}  // namespace lumo::mirrorsim
