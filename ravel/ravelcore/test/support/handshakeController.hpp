#pragma once

#include <lumo/ravelcore/activityWorker.hpp>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace lumo::ravelcore::test {

/// The controller's side of the workers' handshake.
/// Thread: one controller thread, beside the workers'. Outlives the workers.
class HandshakeController
{
public:
    /// What the workers of the group are given.
    ActivityWorkerControl Control()
    {
        return {this, &m_ready_mutex, &m_ready_cond, &m_ready_counter, &m_start_mutex, &m_start_cond, &m_start_counter};
    }

    /// Returns when `num_workers` have announced themselves since the last start; false when they never do.
    [[nodiscard]] bool AwaitReady(int num_workers)
    {
        constexpr std::chrono::minutes WATCHDOG{2};
        std::unique_lock<std::mutex> lock(m_ready_mutex);
        return m_ready_cond.wait_for(lock, WATCHDOG, [&] { return m_ready_counter >= num_workers; });
    }

    /// Lets every worker execute its task once. All of them must be ready.
    void GiveStart()
    {
        {
            const std::lock_guard<std::mutex> lock(m_ready_mutex);
            m_ready_counter = 0;
        }
        SetStartCounter(1);
        NotifyWaiting();
    }

    /// Wakes all that wait for a start, whether or not there is one.
    void NotifyWaiting() { m_start_cond.notify_all(); }

    void SetStartCounter(int value)
    {
        const std::lock_guard<std::mutex> lock(m_start_mutex);
        m_start_counter = value;
    }

    int GetStartCounter()
    {
        const std::lock_guard<std::mutex> lock(m_start_mutex);
        return m_start_counter;
    }

    int GetReadyCounter()
    {
        const std::lock_guard<std::mutex> lock(m_ready_mutex);
        return m_ready_counter;
    }

private:
    std::mutex m_ready_mutex;
    std::condition_variable m_ready_cond;
    int m_ready_counter = 0;
    std::mutex m_start_mutex;
    std::condition_variable m_start_cond;
    int m_start_counter = 0;
};

}  // namespace lumo::ravelcore::test
