#include "workerGroup.hpp"

#include "error.hpp"

#include <cblas.h>
#include <fmt/core.h>

#include <exception>

namespace lumo::ravelctl {

namespace {

constexpr int BLAS_SEQUENTIAL = 0;  // what openblas_get_parallel() answers for the serial build

std::string Describe(const std::exception_ptr& exception)
{
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "an exception of unknown type";
    }
}

}  // namespace

void CheckBlas(int num_workers, int openblas_parallel)
{
    if (num_workers > 1 && openblas_parallel == BLAS_SEQUENTIAL) {
        throw InputError(fmt::format(
            "{} workers need a BLAS that several threads may call, but the serial build of OpenBLAS is loaded, which "
            "gives wrong products then; install libopenblas0-pthread and select it with "
            "'update-alternatives --config libopenblas.so.0-x86_64-linux-gnu', or use one worker",
            num_workers));
    }
}

std::string DescribeBlas()
{
    static constexpr const char* BUILDS[] = {"serial", "pthread", "OpenMP"};
    const int parallel = openblas_get_parallel();
    const char* build = parallel >= 0 && parallel <= 2 ? BUILDS[parallel] : "unknown";
    const std::string config = openblas_get_config();  // "OpenBLAS 0.3.21 NO_LAPACKE ..."
    const auto end = config.find(' ', config.find(' ') + 1);
    return fmt::format("{} ({} build, {} kernel)", config.substr(0, end), build, openblas_get_corename());
}

WorkerGroup::WorkerGroup(const std::vector<ravelcore::Task*>& tasks, const std::vector<Placement>& placements,
                         const Timeouts& timeouts, const log4cplus::Logger& logger)
    : m_ready_timeout(timeouts.ready)
{
    const ravelcore::ActivityWorkerControl control{this,           &m_ready_mutex, &m_ready_cond,   &m_ready_counter,
                                                   &m_start_mutex, &m_start_cond,  &m_start_counter};
    for (std::size_t i = 0; i < tasks.size(); ++i) {
        const Placement& placement = placements.at(i);
        const ravelcore::ActivityWorkerConfig config{fmt::format("worker{}", i),
                                                     static_cast<int>(tasks.size()),
                                                     static_cast<int>(i),
                                                     placement.cpu,
                                                     placement.priority,
                                                     placement.numa_node,
                                                     timeouts.start,
                                                     logger};
        m_workers.push_back(std::make_unique<ravelcore::ActivityWorker>(config, control, *tasks[i]));
    }
}

WorkerGroup::WorkerGroup(const std::vector<ravelcore::Task*>& tasks, const std::vector<Placement>& placements,
                         std::chrono::milliseconds timeout, const log4cplus::Logger& logger)
    : WorkerGroup(tasks, placements, Timeouts{timeout, timeout}, logger)
{
}

WorkerGroup::~WorkerGroup()
{
    Stop(false);
}

void WorkerGroup::Start()
{
    CheckBlas(GetNumWorkers(), openblas_get_parallel());
    m_running = true;
    for (const auto& worker : m_workers) {
        worker->StartThread();
    }
    AwaitReady();
}

void WorkerGroup::GiveStart()
{
    {
        // Everybody waits or is about to; nobody announces itself again before the start below.
        const std::lock_guard<std::mutex> lock(m_ready_mutex);
        m_ready_counter = 0;
    }
    {
        const std::lock_guard<std::mutex> lock(m_start_mutex);
        m_start_counter = 1;
    }
    m_start_cond.notify_all();
}

void WorkerGroup::AwaitReady()
{
    constexpr std::chrono::milliseconds LOOK_AROUND{100};
    const auto deadline = std::chrono::steady_clock::now() + m_ready_timeout;
    std::unique_lock<std::mutex> lock(m_ready_mutex);
    while (!m_ready_cond.wait_for(lock, LOOK_AROUND, [this] { return IsReady(); })) {
        bool lost = std::chrono::steady_clock::now() >= deadline;
        for (const auto& worker : m_workers) {
            lost = lost || worker->GetThreadException() != nullptr;
        }
        if (lost) {
            const int num_ready = m_ready_counter;
            lock.unlock();
            ThrowLostWorker(num_ready);
        }
    }
}

void WorkerGroup::ThrowLostWorker(int num_ready) const
{
    for (const auto& worker : m_workers) {
        if (const std::exception_ptr exception = worker->GetThreadException()) {
            throw RunError(fmt::format("{} ended: {}", worker->getId(), Describe(exception)));
        }
    }
    throw RunError(
        fmt::format("only {} of {} workers were ready {} ms after their start; one may have timed out, see "
                    "the warnings of the log",
                    num_ready, GetNumWorkers(), m_ready_timeout.count()));
}

void WorkerGroup::Stop(bool last_start)
{
    if (!m_running) {
        return;
    }
    m_running = false;
    for (const auto& worker : m_workers) {
        worker->stop(nullptr);
    }
    if (last_start) {
        GiveStart();
    } else {
        const std::lock_guard<std::mutex> lock(m_start_mutex);
        m_start_counter = -1;
    }
    for (const auto& worker : m_workers) {
        worker->JoinThread();
    }
}

}  // namespace lumo::ravelctl
