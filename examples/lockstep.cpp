// A task of one's own, run by one worker in lock-step with a controller: the smallest real use of the library.

#include <lumo/ravelcore/activityWorker.hpp>
#include <lumo/ravelcore/logger.hpp>
#include <lumo/ravelcore/task.hpp>

#include <cstdio>

namespace {

using namespace lumo::ravelcore;

/// Counts its cycles.
class CountingTask : public Task
{
public:
    CountingTask() : Task("CountingTask") {}

    void Initialize() override { m_cycles = 0; }
    void Configure(const std::map<std::string, std::string>& /*cfg*/) override {}

    void Execute(double /*time_stamp*/, bool /*first*/) override
    {
        const auto start = std::chrono::steady_clock::now();
        ++m_cycles;
        UpdateExecTime(start);
    }

    int GetCycles() const { return m_cycles; }

private:
    int m_cycles = 0;
};

}  // namespace

int main()
{
    constexpr int CYCLES = 1000;
    std::mutex ready_mutex;
    std::mutex start_mutex;
    std::condition_variable ready_cond;
    std::condition_variable start_cond;
    int ready_counter = 0;
    int start_counter = 0;
    const ActivityWorkerControl control{nullptr,      &ready_mutex, &ready_cond,   &ready_counter,
                                        &start_mutex, &start_cond,  &start_counter};
    // One worker, on any CPU, with ordinary priority and no NUMA preference; it ends 200 ms after the last start.
    const ActivityWorkerConfig config{"worker", 1, 0, -1, 0, -1, std::chrono::milliseconds(200), GetLogger()};

    log4cplus::Logger::getRoot().setLogLevel(log4cplus::OFF_LOG_LEVEL);  // no appender is set up here
    CountingTask task;
    ActivityWorker worker(config, control, task);
    worker.StartThread();
    for (int cycle = 0; cycle <= CYCLES; ++cycle) {
        {
            std::unique_lock<std::mutex> lock(ready_mutex);
            ready_cond.wait(lock, [&] { return ready_counter == 1; });
            ready_counter = 0;
        }
        if (cycle < CYCLES) {
            const std::lock_guard<std::mutex> lock(start_mutex);
            start_counter = 1;
            start_cond.notify_all();
        }
    }
    worker.stop(nullptr);
    worker.JoinThread();
    std::printf("%d cycles, the longest took %lld ns\n", task.GetCycles(),
                static_cast<long long>(task.GetMaxExecTime().count()));
    return task.GetCycles() == CYCLES ? 0 : 1;
}
