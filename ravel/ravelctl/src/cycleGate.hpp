#pragma once

#include <atomic>
#include <cstdint>

namespace lumo::ravelctl {

/// Lets no worker return from a cycle before every worker of the group has begun it.
///
/// The workers' start handshake alone has a gap: the counter stays above 0 until the last worker has taken the start,
/// so a quick worker that is back early would take the same start a second time and a slow one would miss it. Each task
/// passes the gate once per cycle, which closes the gap.
///
/// Thread:    the workers'; Open any.
/// Real time: yes; waits only for a worker that has been started but has not begun, in the kernel when that takes long.
class CycleGate
{
public:
    explicit CycleGate(int num_workers) : m_num_workers(static_cast<std::uint32_t>(num_workers)) {}

    /// The calling worker has begun a cycle.
    void Enter() noexcept
    {
        // Releases what the worker did before; pairs with the acquire load in AwaitAll.
        m_entered.fetch_add(1, std::memory_order_release);
        m_entered.notify_all();  // no system call while nobody sleeps
    }

    /// Returns when all workers have begun cycle number `cycle`, counted from 1; the count may wrap around.
    void AwaitAll(std::uint32_t cycle) const noexcept
    {
        const std::uint32_t target = cycle * m_num_workers;
        std::uint32_t entered = m_entered.load(std::memory_order_acquire);
        while (static_cast<std::int32_t>(entered - target) < 0) {
            m_entered.wait(entered, std::memory_order_acquire);
            entered = m_entered.load(std::memory_order_acquire);
        }
    }

    /// Lets everybody pass from now on: for the end of a run in which a worker was lost.
    void Open() noexcept
    {
        m_entered.fetch_add(FAR_AHEAD, std::memory_order_release);
        m_entered.notify_all();
    }

private:
    static constexpr std::uint32_t FAR_AHEAD = 1U << 30U;  // half of what still counts as ahead

    const std::uint32_t m_num_workers;
    std::atomic<std::uint32_t> m_entered{0};

    static_assert(std::atomic<std::uint32_t>::is_always_lock_free);
};

}  // namespace lumo::ravelctl
