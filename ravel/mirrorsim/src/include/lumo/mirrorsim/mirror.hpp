#pragma once

#include <lumo/mirrorsim/actuators.hpp>
#include <lumo/mirrorsim/disturbance.hpp>
#include <lumo/mirrorsim/geometry.hpp>
#include <lumo/mirrorsim/mirrorConfig.hpp>
#include <nodeio/feMeas.hpp>

#include <Eigen/SparseCore>

#include <cstdint>
#include <random>
#include <span>
#include <vector>

namespace lumo::mirrorsim {

using EsRecord = nodeio::SingleFEMeasType<nodeio::FE_TYPES_COLLECT_ES_MEAS>;
using PactRecord = nodeio::SingleFEMeasType<nodeio::FE_TYPES_COLLECT_PACT_MEAS>;

/// The plant: the actuators, the disturbance and the edge sensors of the whole mirror, one cycle at a time.
///
/// The cycle, exactly. At cycle k the records show the surface s[k] = p[k] + d[k] (positions plus disturbance at the
/// actuator points) through the sensors. The controller computes the command u[k] from them and calls Step(u[k]),
/// which makes it cycle k + 1:
///
///     p[k+1] = p[k] + a (u[k-1] - p[k]),   a = 1 - exp(-period / time constant)
///
/// The command of the previous Step acts, one cycle late. From command to position that is, within the limits,
///
///     P(z) = a z^-2 / (1 - (1 - a) z^-1)
///
/// The rate limit bounds the change of p per cycle, the stroke limit bounds p and the acting command.
/// Before the first Step, u[-1] = p[0]: a mirror at rest.
///
/// Thread:    one; the construction may be in another.
/// Real time: the construction is not; everything else is: no allocation, lock, system call or text.
/// Data:      all displacements in micrometres; spans are valid until the next Step and as long as the object.
class Mirror
{
public:
    /// Cycles by which a command is late before the lag begins.
    static constexpr int COMMAND_DELAY_CYCLES = 1;

    /// A mirror at cycle 0.
    /// Data:    `modes2pact` NUM_PACT x num_modes, row-major, as in ControlModes; only the columns of the tones' modes
    ///          are copied. Both may be left out where there are no tones.
    /// Failure: std::invalid_argument for a value in `config` that makes no sense, for a tone whose mode is not among
    ///          the `num_modes`, and for a matrix of another size.
    Mirror(const Geometry& geometry, const MirrorConfig& config, std::span<const float> modes2pact = {},
           int num_modes = 0);

    /// One period on, as above: the command given now acts one cycle later, the actuators follow with their lag, the
    /// disturbance moves on, the sensors draw new noise.
    /// Data:    `command_um` NUM_PACT values. One that is not finite is not taken, its actuator keeps the command it
    ///          had, and GetNumRejected counts it.
    /// Failure: std::invalid_argument for another size; nothing has changed then.
    void Step(std::span<const float> command_um);

    /// The edge-sensor record of this cycle; the same record however often it is asked for.
    /// Data: block 1: piston readings, owner minus neighbour, with noise, by slot; 0 in empty slots. Blocks 2 and 3
    ///       (the change of gap and shear): 0, pistons of rigid segments move neither. Status words 0. The time stamp
    ///       is stored last, atomically, for readers that poll it.
    void FillEsMeas(double timestamp_s, int tag, EsRecord& record) const;

    /// The actuator record of this cycle.
    /// Data: block 1: positions p[k]; block 2: the limited command u[k-1] that acts from now on. Status words 0. The
    ///       time stamp is stored last, atomically.
    void FillPactMeas(double timestamp_s, int tag, PactRecord& record) const;

    /// p[k], NUM_PACT values.
    std::span<const double> GetActuatorPositions() const { return m_actuators.GetPositions(); }

    /// d[k], NUM_PACT values.
    std::span<const double> GetDisturbance() const { return m_disturbance.GetHeights(); }

    /// s[k] = p[k] + d[k], NUM_PACT values: the truth.
    std::span<const double> GetSurface() const { return m_surface; }

    /// a in the equation above.
    double GetLagCoefficient() const { return m_actuators.GetLagCoefficient(); }

    /// k: the number of Steps.
    std::int64_t GetCycle() const { return m_cycle; }

    /// Command values that were not finite, since construction.
    std::int64_t GetNumRejected() const { return m_actuators.GetNumRejected(); }

    const MirrorConfig& GetConfig() const { return m_config; }

private:
    void UpdateSurface();
    void DrawNoise();

    MirrorConfig m_config;
    Eigen::SparseMatrix<double, Eigen::RowMajor> m_sensor_matrix;
    Actuators m_actuators;
    Disturbance m_disturbance;
    std::vector<int> m_slots;       // of the sensors that exist, ascending
    std::vector<double> m_surface;  // um, NUM_PACT
    std::vector<double> m_noise;    // um, NUM_ES, 0 in empty slots
    std::mt19937_64 m_noise_stream;
    std::normal_distribution<double> m_normal;
    std::int64_t m_cycle = 0;
};

}  // namespace lumo::mirrorsim
