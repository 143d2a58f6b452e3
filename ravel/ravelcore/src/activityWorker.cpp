#include "blas.hpp"

#include <lumo/ravelcore/activityWorker.hpp>
#include <lumo/ravelcore/logger.hpp>

#include <numa.h>

#include <algorithm>
#include <exception>
#include <system_error>

namespace lumo::ravelcore {

namespace {

/// Locks a mutex of the control record; a null one cannot be locked, which is an error of its own.
std::unique_lock<std::mutex> Lock(std::mutex* mutex)
{
    if (mutex == nullptr) {
        throw std::system_error(std::make_error_code(std::errc::operation_not_permitted),
                                "Worker without a handshake mutex");
    }
    return std::unique_lock<std::mutex>(*mutex);
}

/// The end of a wait that begins now. A time-out that leaves the clock's range is cut off there instead of wrapping
/// around: "as long as can be" must not become "not at all".
std::chrono::system_clock::time_point DeadlineAfter(std::chrono::milliseconds timeout)
{
    using std::chrono::milliseconds;
    const auto now = std::chrono::system_clock::now();
    const auto longest = std::chrono::duration_cast<milliseconds>(std::chrono::system_clock::time_point::max() - now);
    return now + std::clamp(timeout, milliseconds::zero(), longest);
}

}  // namespace

ActivityWorker::ActivityWorker(const ActivityWorkerConfig& cfg, const ActivityWorkerControl& ctl, Task& task)
    : vigil::app::Activity(cfg.name, cfg.cpu, cfg.priority), m_cfg(cfg), m_ctl(ctl), m_task(task)
{
    RAVELCORE_TRACE_ENTRY(m_cfg.logger);
}

ActivityWorker::~ActivityWorker()
{
    RAVELCORE_TRACE_ENTRY(m_cfg.logger);
    if (IsThreadJoined()) {
        return;
    }
    // Run() uses what is about to be released, so an owner that forgot to stop and join must wait for its end here.
    try {
        LOG4CPLUS_WARN(m_cfg.logger, "Activity " << getId()
                                                 << " is destroyed before it was joined, waiting for its end; stop and "
                                                    "join it first");
        stop(nullptr);
        JoinThread();
    } catch (const std::exception&) {
        // Destroyed in its own thread: the platform's destructor ends the process and says so.
        return;
    }
}

void ActivityWorker::Initialize()
{
    RAVELCORE_TRACE_ENTRY(m_cfg.logger);
}

void ActivityWorker::Configure(const std::vector<std::string>& /*args*/)
{
    RAVELCORE_TRACE_ENTRY(m_cfg.logger);
}

void ActivityWorker::Run()
{
    RAVELCORE_TRACE_ENTRY(m_cfg.logger);
    Prepare();
    bool first = true;
    while (!IsStopRequested()) {
        AnnounceReady();
        if (!TakeStart()) {
            break;
        }
        LOG4CPLUS_DEBUG(m_cfg.logger, "Activity " << getId() << " working on task " << m_task.GetName());
        m_task.Execute(0.0, first);  // meant: a constant, tasks get no clock from the worker
        first = false;
    }
    LOG4CPLUS_DEBUG(m_cfg.logger, "Activity " << getId() << " terminated.");
}

void ActivityWorker::Prepare()
{
    blas::UseOneThread();
    if (m_cfg.numa_node >= 0) {
        PreferNumaNode();
    }
    SetName(getId());
    LOG4CPLUS_INFO(m_cfg.logger, "Activity " << getId() << " running (Thread name " << GetName() << ", CPU " << GetCPU()
                                             << ", NUMA " << m_cfg.numa_node << ", Priority " << GetPriority() << ").");
    m_task.Initialize();
}

void ActivityWorker::PreferNumaNode() const
{
    if (numa_available() < 0) {  // nothing else of libnuma may be called then
        LOG4CPLUS_WARN(m_cfg.logger, "Activity " << getId() << " cannot prefer NUMA node " << m_cfg.numa_node
                                                 << ": the system has no NUMA support; configure node -1");
        return;
    }
    numa_set_preferred(m_cfg.numa_node);
}

void ActivityWorker::AnnounceReady()
{
    const std::unique_lock<std::mutex> lock = Lock(m_ctl.ready_mutex);
    ++*m_ctl.readyCounter;
    LOG4CPLUS_DEBUG(m_cfg.logger,
                    "Activity " << getId() << " ready to start (readyCounter = " << *m_ctl.readyCounter << ")");
    m_ctl.ready_cond->notify_one();
}

/// Waits for a start and takes it; false when none came in time.
bool ActivityWorker::TakeStart()
{
    std::unique_lock<std::mutex> lock = Lock(m_ctl.start_mutex);
    int& counter = *m_ctl.startCounter;
    if (!m_ctl.start_cond->wait_until(lock, DeadlineAfter(m_cfg.start_timeout), [&counter] { return counter > 0; })) {
        if (counter == -1) {
            LOG4CPLUS_DEBUG(m_cfg.logger,
                            "Activity " << getId() << " stopped while waiting for start notification (startCounter = "
                                        << counter << ")");
        } else {
            LOG4CPLUS_WARN(m_cfg.logger, "Activity " << getId() << " timed-out waiting signal to start (startCounter = "
                                                     << counter << ")");
        }
        return false;
    }
    if (m_cfg.num_threads > counter) {
        ++counter;
        // Meant: this line and the next do not end with a bracket.
        LOG4CPLUS_DEBUG(m_cfg.logger,
                        "Activity " << getId() << " received signal to start, increase start_counter = " << counter);
    } else if (m_cfg.num_threads == counter) {
        counter = 0;
        LOG4CPLUS_DEBUG(
            m_cfg.logger,
            "Activity " << getId() << " all threads received signal to start, reset start_counter = " << counter);
    }
    return true;
}

}  // namespace lumo::ravelcore
