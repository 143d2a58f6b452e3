#pragma once

#include <lumo/mirrorsim/geometry.hpp>
#include <lumo/mirrorsim/lowPassNoise.hpp>
#include <lumo/mirrorsim/mirrorConfig.hpp>

#include <Eigen/Dense>

#include <cstdint>
#include <random>
#include <span>
#include <vector>

namespace lumo::mirrorsim {

/// What moves the surface without the actuators: wind, slow drift and tones, in micrometres at the actuator points.
///   wind   each smooth shape times low-pass noise of its own; wind_rms_um in the mean over points and time
///   drift  one fixed smooth shape, growing linearly with time from 0 at drift_um_per_s (rms)
///   tones  sines on control modes
/// Wind and drift hold no unobservable part.
/// Thread:    one.
/// Real time: the construction is not; everything else neither allocates nor blocks.
class Disturbance
{
public:
    /// At cycle 0. `modes2pact`: NUM_PACT x num_modes, row-major; only the columns of the tones' modes are copied.
    /// Failure: std::invalid_argument, as for Mirror.
    Disturbance(const Geometry& geometry, const MirrorConfig& config, std::span<const float> modes2pact, int num_modes);

    /// Moves on by one period.
    void Step();

    /// NUM_PACT values of the present cycle, valid until the next Step.
    std::span<const double> GetHeights() const { return {m_heights.data(), NUM_PACT}; }

private:
    void AddTones(std::span<const float> modes2pact, int num_modes);
    void Update();

    MirrorConfig m_config;
    std::mt19937_64 m_stream;
    std::vector<LowPassNoise> m_wind;  // one per smooth shape
    Eigen::VectorXd m_drift;           // per cycle: coefficient of each smooth shape
    Eigen::MatrixXd m_shapes;          // NUM_PACT x (NUM_SHAPES + tones)
    Eigen::VectorXd m_coefficients;    // um, one per column of m_shapes
    Eigen::VectorXd m_heights;         // um, NUM_PACT
    std::int64_t m_cycle = 0;
};

}  // namespace lumo::mirrorsim
