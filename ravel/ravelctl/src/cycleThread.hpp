#pragma once

#include "ownThread.hpp"
#include "workerGroup.hpp"

#include <brisk/configurablePthreadActivity.hpp>

#include <atomic>
#include <cstdint>
#include <functional>

namespace lumo::ravelctl {

/// The thread of the cycle. What ends its work early is kept by the platform (GetThreadException).
class CycleThread : public brisk::ConfigurablePthreadActivity
{
public:
    /// `is_stopped` says whether the work is to end; it is real-time safe.
    using Work = std::function<void(const std::function<bool()>& is_stopped)>;

    /// What `work` refers to must outlive the thread. Nothing runs before StartThread.
    CycleThread(const ravelctl::Placement& placement, Work work);

    /// Stops and joins.
    ~CycleThread() override;

    void Run() override;

    /// Whether the work is over, however it ended. Thread: any.
    bool HasEnded() const { return m_ended.load(); }

    // Thread: a slow one, once the thread has been joined.

    const GrantedPlace& GetPlace() const { return m_place; }

    /// Page faults of the thread during the work; -1 where an exception ended it.
    std::int64_t GetPageFaults() const { return m_page_faults; }

private:
    Work m_work;
    GrantedPlace m_place;
    std::int64_t m_page_faults = -1;
    std::atomic<bool> m_ended{false};
};

}  // namespace lumo::ravelctl
