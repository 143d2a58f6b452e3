#pragma once

#include <chrono>
#include <cstdint>

namespace lumo::ravelctl {

/// The grid of the cycles' instants on the absolute monotonic clock.
/// Thread: the cycle's. Real time: yes.
class CycleClock
{
public:
    using Clock = std::chrono::steady_clock;

    /// Without pacing every instant is now.
    CycleClock(double rate_hz, bool paced);

    /// The first instant is one period from now.
    void Start();

    /// Sleeps until the next instant and returns it. Instants that have passed already are left out, not caught up
    /// with: each is a cycle missed.
    Clock::time_point AwaitNext();

    /// Instants left out since Start.
    std::int64_t GetMissed() const { return m_missed; }

private:
    Clock::time_point InstantAt(std::int64_t tick) const;

    double m_period_ns;
    bool m_paced;
    Clock::time_point m_origin;
    std::int64_t m_tick = 0;
    std::int64_t m_missed = 0;
};

}  // namespace lumo::ravelctl
