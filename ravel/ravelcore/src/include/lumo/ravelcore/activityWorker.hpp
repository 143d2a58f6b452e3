#pragma once

#include <lumo/ravelcore/export.hpp>
#include <lumo/ravelcore/task.hpp>
#include <vigil/app/activity.hpp>

#include <log4cplus/logger.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace lumo::ravelcore {

/// What a worker is told at construction; copied into it.
struct ActivityWorkerConfig
{
    std::string name;                               // activity id, and the thread's name
    int num_threads = 1;                            // workers in the group; the start counter counts up to it
    int worker_index = 0;                           // carried, not used
    int cpu = -1;                                   // CPU to run on; negative: any
    int priority = 0;                               // SCHED_FIFO priority; 0: ordinary scheduling
    int numa_node = -1;                             // preferred NUMA node of the thread's memory; negative: none
    std::chrono::milliseconds start_timeout{1000};  // longest wait for one start
    log4cplus::Logger logger;                       // where the worker writes
};

/// The handshake of a group: pointers to what the controller owns and keeps alive until every worker has been joined.
/// All but `owner` must be set.
struct ActivityWorkerControl
{
    void* owner = nullptr;                          // carried, not used
    std::mutex* ready_mutex = nullptr;              // guards *readyCounter
    std::condition_variable* ready_cond = nullptr;  // notified once by each worker that becomes ready
    int* readyCounter = nullptr;  // ready announcements: each worker adds 1 per cycle, only the controller resets it
    std::mutex* start_mutex = nullptr;              // guards *startCounter
    std::condition_variable* start_cond = nullptr;  // on which the workers wait for a start
    int* startCounter = nullptr;  // 0: no start pending; > 0: given, counts the workers that took it; -1: stop
};

/// The thread that runs one task in lock-step with the other workers of its group: announces itself ready, waits for a
/// start, executes its task once, and again, until it is told to stop or a start fails to arrive in time.
///
/// The controller learns from `ready_cond` and `*readyCounter` that the workers are ready, sets the counter back, and
/// gives a start by setting `*startCounter` to 1 under `start_mutex` and notifying all. The counter is 0 again when
/// every worker has taken the start. A quick worker can take a second start before a slow one has taken its first: a
/// controller that needs exactly one execution per worker and start lets no task return before every worker has begun.
///
/// To stop the group the controller sets `*startCounter` to -1 or gives no further start: a worker notices either when
/// its wait times out. A worker that has timed out has ended for good.
class RAVELCORE_API ActivityWorker : public vigil::app::Activity
{
public:
    /// Starts no thread. `task` is not owned and must outlive the worker.
    ActivityWorker(const ActivityWorkerConfig& cfg, const ActivityWorkerControl& ctl, Task& task);
    /// The owner has stopped and joined the worker by then. If not, WARN, and it waits for the thread's end here, up to
    /// one start time-out. Never throws.
    ~ActivityWorker() override;

    ActivityWorker(const ActivityWorker&) = delete;
    ActivityWorker& operator=(const ActivityWorker&) = delete;

    /// The thread's body: set-up (BLAS single-threaded, NUMA node, name, Task::Initialize), then the cycles.
    /// Thread:    the worker's; the platform calls it.
    /// Real time: the cycles are: no allocation, no lock but the handshake's two mutexes; text only with DEBUG on.
    /// Failure:   std::system_error for a mutex that cannot be locked (EPERM for a null one); what the task throws.
    void Run() override;

    /// Both do nothing: the application configures the task through Task::Configure.
    void Initialize() override;
    void Configure(const std::vector<std::string>& args) override;

private:
    void Prepare();
    void PreferNumaNode() const;
    void AnnounceReady();
    bool TakeStart();

    ActivityWorkerConfig m_cfg;
    ActivityWorkerControl m_ctl;
    Task& m_task;
};

}  // namespace lumo::ravelcore
