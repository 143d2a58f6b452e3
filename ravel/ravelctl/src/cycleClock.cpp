#include "cycleClock.hpp"

#include <time.h>

#include <cerrno>
#include <cmath>

namespace lumo::ravelctl {

namespace {

/// std::this_thread::sleep_until promises no absolute sleep on the monotonic clock; this does. The steady clock is
/// CLOCK_MONOTONIC here.
void SleepUntil(CycleClock::Clock::time_point instant)
{
    constexpr std::int64_t NS_PER_S = 1'000'000'000;
    const std::int64_t ns = std::chrono::nanoseconds(instant.time_since_epoch()).count();
    const timespec wake_up{ns / NS_PER_S, ns % NS_PER_S};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &wake_up, nullptr) == EINTR) {
    }
}

}  // namespace

CycleClock::CycleClock(double rate_hz, bool paced) : m_period_ns(1.0e9 / rate_hz), m_paced(paced)
{
}

void CycleClock::Start()
{
    m_origin = Clock::now();
    m_tick = 0;
    m_missed = 0;
}

CycleClock::Clock::time_point CycleClock::AwaitNext()
{
    if (!m_paced) {
        return Clock::now();
    }
    ++m_tick;
    const Clock::time_point now = Clock::now();
    if (now > InstantAt(m_tick)) {
        const auto next = static_cast<std::int64_t>(
            std::ceil(static_cast<double>(std::chrono::nanoseconds(now - m_origin).count()) / m_period_ns));
        m_missed += next - m_tick;
        m_tick = next;
    }
    const Clock::time_point instant = InstantAt(m_tick);
    SleepUntil(instant);
    return instant;
}

CycleClock::Clock::time_point CycleClock::InstantAt(std::int64_t tick) const
{
    // From the tick's number, not by adding periods: rounding errors do not add up over a night.
    return m_origin + std::chrono::nanoseconds(std::llround(static_cast<double>(tick) * m_period_ns));
}

}  // namespace lumo::ravelctl
