#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace lumo::ravelctl {

/// Keeps actuator commands within stroke and rate.
/// Thread: the cycle's. Real time: yes, but for the constructor.
class CommandLimiter
{
public:
    /// `start_um`: the commands in force; they are also what a command that is not finite is replaced by, one after the
    /// other. `rate_um`: largest change per cycle.
    CommandLimiter(std::span<const float> start_um, float stroke_um, float rate_um);

    /// Takes the commands that are wanted; GetCommand and GetShortfall then tell what may be sent.
    /// Data: as many values as at construction.
    void Limit(std::span<const float> wanted_um);

    /// Goes back to `command_um` without regard to the rate: for commands that are held, not limited.
    void Hold(std::span<const float> command_um);

    /// The limited commands, um. Valid as long as the object.
    std::span<const float> GetCommand() const { return m_command; }

    /// What the limited commands fell short of the wanted ones: limited minus wanted, um; 0 where nothing was limited.
    std::span<const float> GetShortfall() const { return m_shortfall; }

    /// Commands since construction that were limited, and that were not finite.
    std::int64_t GetNumLimited() const { return m_num_limited; }
    std::int64_t GetNumNotFinite() const { return m_num_not_finite; }

private:
    float m_stroke_um;
    float m_rate_um;
    std::vector<float> m_command;
    std::vector<float> m_shortfall;
    std::int64_t m_num_limited = 0;
    std::int64_t m_num_not_finite = 0;
};

}  // namespace lumo::ravelctl
