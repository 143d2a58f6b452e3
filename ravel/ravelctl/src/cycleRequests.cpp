#include "cycleRequests.hpp"

#include <thread>

namespace lumo::ravelctl {

CycleRequests::CycleRequests(LiveParameters& parameters, Recordings& recordings, bool paced)
    : m_parameters(parameters), m_recordings(recordings), m_paced(paced)
{
}

void CycleRequests::Announce(std::int64_t cycle)
{
    m_due.store(cycle, std::memory_order_release);
}

void CycleRequests::Arm(Kind kind)
{
    m_armed.store(kind, std::memory_order_release);  // pairs with the acquire in BeforeCycle: the buffers are filled
}

void CycleRequests::BeforeCycle(std::int64_t cycle, const std::function<bool()>& is_stopped)
{
    m_cycle.store(cycle, std::memory_order_relaxed);  // a statistic: it orders nothing
    const Kind kind = AwaitDue(cycle, is_stopped);
    if (kind == Kind::None) {
        m_parameters.StagePiece();
        return;
    }
    const auto begin = std::chrono::steady_clock::now();
    if (!Do(kind)) {
        return;
    }
    m_outcome = {cycle, std::chrono::steady_clock::now() - begin};
    m_armed.store(Kind::None, std::memory_order_release);  // pairs with the acquire in IsDone
}

/// The request that is due and armed.
CycleRequests::Kind CycleRequests::AwaitDue(std::int64_t cycle, const std::function<bool()>& is_stopped) const
{
    constexpr std::chrono::microseconds POLL{100};
    while (true) {
        // In this order: a request that is seen to be armed comes with the cycle that was announced for it.
        const Kind kind = m_armed.load(std::memory_order_acquire);
        const bool is_due = cycle >= m_due.load(std::memory_order_acquire);
        if (!is_due) {
            return Kind::None;
        }
        if (kind != Kind::None || m_paced || is_stopped()) {
            return kind;
        }
        std::this_thread::sleep_for(POLL);
    }
}

bool CycleRequests::Do(Kind kind)
{
    switch (kind) {
        case Kind::None:
            break;
        case Kind::StopRecording:
            m_recordings.Stop();
            break;
        case Kind::StartRecording:
            m_recordings.Start();
            break;
        case Kind::TakeParameters:
            // A piece a cycle while it is paced, so that no cycle pays for more than one.
            while (m_parameters.StagePiece() && !m_paced) {
            }
            return m_parameters.TakeOver();
    }
    return true;
}

}  // namespace lumo::ravelctl
