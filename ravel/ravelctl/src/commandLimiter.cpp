#include "commandLimiter.hpp"

#include <algorithm>
#include <cmath>

namespace lumo::ravelctl {

CommandLimiter::CommandLimiter(std::span<const float> start_um, float stroke_um, float rate_um)
    : m_stroke_um(stroke_um),
      m_rate_um(rate_um),
      m_command(start_um.begin(), start_um.end()),
      m_shortfall(start_um.size(), 0.0F)
{
}

void CommandLimiter::Limit(std::span<const float> wanted_um)
{
    for (std::size_t i = 0; i < m_command.size(); ++i) {
        const float wanted = wanted_um[i];
        if (!std::isfinite(wanted)) {
            m_shortfall[i] = 0.0F;
            ++m_num_not_finite;
            continue;
        }
        const float within_rate = std::clamp(wanted, m_command[i] - m_rate_um, m_command[i] + m_rate_um);
        m_command[i] = std::clamp(within_rate, -m_stroke_um, m_stroke_um);
        m_shortfall[i] = m_command[i] - wanted;
        m_num_limited += m_shortfall[i] != 0.0F ? 1 : 0;
    }
}

void CommandLimiter::Hold(std::span<const float> command_um)
{
    std::copy(command_um.begin(), command_um.end(), m_command.begin());
    std::fill(m_shortfall.begin(), m_shortfall.end(), 0.0F);
}

}  // namespace lumo::ravelctl
