#pragma once

#include <lumo/ravelcore/activityWorker.hpp>
#include <lumo/ravelcore/task.hpp>

#include <log4cplus/logger.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// Where one worker runs. CPU -1: anywhere. Priority 0: ordinary scheduling. NUMA node -1: no preference.
struct Placement
{
    int cpu = -1;
    int priority = 0;
    int numa_node = -1;
};

/// The controller's side of the workers' handshake: one worker per task, started in lock-step.
///
/// Every task must close the handshake's gap itself (CycleGate): each then executes exactly once per start.
/// Calling order: construct, Start, then GiveStart and AwaitReady in turn, Stop. All from one thread at a time.
class WorkerGroup
{
public:
    /// How long the two sides of the handshake wait for each other.
    struct Timeouts
    {
        std::chrono::milliseconds start;  // a worker whose start does not come within this ends for good
        std::chrono::milliseconds ready;  // a worker that is not ready this long after its start is lost
    };

    /// `tasks` are not owned and must outlive the group.
    WorkerGroup(const std::vector<ravelcore::Task*>& tasks, const std::vector<Placement>& placements,
                const Timeouts& timeouts, const log4cplus::Logger& logger);

    /// Both sides wait equally long.
    WorkerGroup(const std::vector<ravelcore::Task*>& tasks, const std::vector<Placement>& placements,
                std::chrono::milliseconds timeout, const log4cplus::Logger& logger);

    /// Stops and joins what still runs, without a last start: with a long time-out for this call Stop(true) before.
    ~WorkerGroup();

    WorkerGroup(const WorkerGroup&) = delete;
    WorkerGroup& operator=(const WorkerGroup&) = delete;

    /// Starts the threads and returns when every task is initialised and every worker ready.
    /// Real time: no.
    /// Failure:   RunError that names the worker and the reason; for several workers on a BLAS that must not be called
    ///            from several threads, InputError.
    void Start();

    /// Lets every worker execute its task once. All of them must be ready.
    /// Real time: yes, but for the handshake's lock.
    void GiveStart();

    /// Waits until every worker has executed its task and is ready again; what the tasks wrote is then visible here.
    /// Real time: yes, but for the handshake's lock; a lost worker is reported with text.
    /// Failure:   RunError that names the lost worker and the reason.
    void AwaitReady();

    /// Ends and joins the workers. With `last_start` they are given a start in which the tasks are expected to do
    /// nothing, so that they see the stop request at once; otherwise they end when their wait times out.
    void Stop(bool last_start);

    int GetNumWorkers() const { return static_cast<int>(m_workers.size()); }

private:
    [[noreturn]] void ThrowLostWorker(int num_ready) const;
    bool IsReady() const { return m_ready_counter >= GetNumWorkers(); }

    std::chrono::milliseconds m_ready_timeout;
    std::mutex m_ready_mutex;
    std::condition_variable m_ready_cond;
    int m_ready_counter = 0;
    std::mutex m_start_mutex;
    std::condition_variable m_start_cond;
    int m_start_counter = 0;
    std::vector<std::unique_ptr<ravelcore::ActivityWorker>> m_workers;
    bool m_running = false;
};

/// Refuses several workers on an OpenBLAS whose openblas_get_parallel() is 0: that build is not safe to call from two
/// threads, some products are silently wrong. Failure: InputError.
void CheckBlas(int num_workers, int openblas_parallel);

/// One line about the BLAS that runs: version, build and kernel.
std::string DescribeBlas();

}  // namespace lumo::ravelctl
