#pragma once

#include <atomic>
#include <cstdint>

namespace lumo::ravelcore::test {

/// Closes the gap of the start handshake on the controller's side: each task passes it once per cycle, and none comes
/// out before all workers of the group have begun the cycle.
/// Thread: the workers'. Allocates nothing.
class StartGate
{
public:
    explicit StartGate(int num_workers) : m_num_workers(num_workers) {}

    void Pass()
    {
        // The cycle cannot end before this worker is counted.
        const std::uint32_t cycle = m_cycle.load(std::memory_order_acquire);
        if (m_num_inside.fetch_add(1, std::memory_order_acq_rel) + 1 == m_num_workers) {
            m_num_inside.store(0, std::memory_order_relaxed);
            // Publishes the count reset above: pairs with the acquire loads of those that come out.
            m_cycle.store(cycle + 1, std::memory_order_release);
            m_cycle.notify_all();
            return;
        }
        m_num_inside.notify_all();
        m_cycle.wait(cycle, std::memory_order_acquire);
    }

    /// Returns when a worker, but not all of them, waits inside.
    void AwaitInside() { m_num_inside.wait(0, std::memory_order_acquire); }

private:
    const int m_num_workers;
    std::atomic<int> m_num_inside{0};
    std::atomic<std::uint32_t> m_cycle{0};

    static_assert(std::atomic<int>::is_always_lock_free && std::atomic<std::uint32_t>::is_always_lock_free);
};

}  // namespace lumo::ravelcore::test
