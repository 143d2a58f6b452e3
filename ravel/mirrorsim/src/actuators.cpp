#include "numberText.hpp"

#include <lumo/mirrorsim/actuators.hpp>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace lumo::mirrorsim {

Actuators::Actuators(const MirrorConfig& config, std::span<const double> initial_um)
    : m_lag_coefficient(1.0 - std::exp(-config.period_s / config.actuator_time_constant_s)),
      m_stroke_limit(config.stroke_limit_um),
      m_step_limit(config.rate_limit_um_per_s * config.period_s),
      m_positions(initial_um.begin(), initial_um.end()),
      m_references(m_positions)
{
    CheckMirrorConfig(config);
    for (const double position : m_positions) {
        if (!(std::abs(position) <= m_stroke_limit)) {
            throw std::invalid_argument("Expected initial positions within the stroke of +-" + ToText(m_stroke_limit) +
                                        " um but found " + ToText(position) + " um.");
        }
    }
}

void Actuators::Step(std::span<const float> command_um)
{
    if (command_um.size() != m_positions.size()) {
        throw std::invalid_argument("Expected a command of " + std::to_string(m_positions.size()) +
                                    " actuators but received one of " + std::to_string(command_um.size()) + ".");
    }
    for (std::size_t i = 0; i < m_positions.size(); ++i) {
        const double change = m_lag_coefficient * (m_references[i] - m_positions[i]);
        const double position = m_positions[i] + std::clamp(change, -m_step_limit, m_step_limit);
        m_positions[i] = std::clamp(position, -m_stroke_limit, m_stroke_limit);
        if (std::isfinite(command_um[i])) {
            m_references[i] = std::clamp(static_cast<double>(command_um[i]), -m_stroke_limit, m_stroke_limit);
        } else {
            ++m_num_rejected;
        }
    }
}

}  // namespace lumo::mirrorsim
