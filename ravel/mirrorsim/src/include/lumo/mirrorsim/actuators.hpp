#pragma once

#include <lumo/mirrorsim/mirrorConfig.hpp>

#include <cstdint>
#include <span>
#include <vector>

namespace lumo::mirrorsim {

/// The position actuators: one cycle of delay, a first-order lag, a limit of rate and one of stroke.
/// Thread:    one.
/// Real time: the construction is not; everything else neither allocates nor blocks.
/// Data:      micrometres; spans are valid until the next Step and as long as the object.
class Actuators
{
public:
    /// At rest: the first Step holds the initial positions.
    /// Data:    `initial_um` one value per actuator, copied.
    /// Failure: std::invalid_argument for a configuration that makes no sense, or an initial position beyond the
    /// stroke.
    Actuators(const MirrorConfig& config, std::span<const double> initial_um);

    /// One period on. The reference that was given a Step ago acts; `command_um`, limited to the stroke, is the next.
    /// Data:    one value per actuator; one that is not finite leaves its reference as it was and is counted.
    /// Failure: std::invalid_argument for another size; nothing has changed then.
    void Step(std::span<const float> command_um);

    std::span<const double> GetPositions() const { return m_positions; }

    /// The limited commands that act during the next Step.
    std::span<const double> GetReferences() const { return m_references; }

    /// The part of its way that an actuator goes within one cycle: 1 - exp(-period / time constant).
    double GetLagCoefficient() const { return m_lag_coefficient; }

    /// Command values that were not finite, since construction.
    std::int64_t GetNumRejected() const { return m_num_rejected; }

private:
    double m_lag_coefficient;
    double m_stroke_limit;  // um
    double m_step_limit;    // um per cycle
    std::vector<double> m_positions;
    std::vector<double> m_references;
    std::int64_t m_num_rejected = 0;
};

}  // namespace lumo::mirrorsim
