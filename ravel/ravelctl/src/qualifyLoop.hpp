#pragma once

#include "cycleClock.hpp"
#include "deadlineCounter.hpp"
#include "durations.hpp"
#include "qualifyOptions.hpp"
#include "sgemvTask.hpp"
#include "workerGroup.hpp"

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>

namespace lumo::ravelctl {

/// What other threads may look at while a qualification runs.
struct QualifyProgress
{
    std::atomic<std::int64_t> cycles_done{0};
    std::atomic<std::int64_t> late{0};
    std::atomic<double> max_us{0.0};  // start to ready, of all cycles
};

/// The cycle thread's work in a qualification: gives the starts on the clock's instants and books when all workers are
/// ready. After every CYCLES_PER_READ-th product one instant is given to a read.
class QualifyLoop
{
public:
    /// The references must outlive the loop. Takes all memory that the cycles need.
    QualifyLoop(const QualifyPlan& plan, SgemvInput& input, WorkerGroup& workers);

    /// Runs the planned cycles, or until `is_stopped` says so. The workers must be ready.
    /// Thread:    the cycle's.
    /// Real time: yes: no allocation, no lock but the handshake's.
    /// Failure:   RunError for a lost worker.
    void Run(const std::function<bool()>& is_stopped);

    const QualifyProgress& GetProgress() const { return m_progress; }

    // Thread: a slow one, after Run.

    const Durations& GetCycleTimes() const { return m_cycle_times; }
    const Durations& GetWakeUps() const { return m_wake_ups; }

    /// Instants that passed while a product was under way or the thread slept; not those that a read has cost.
    std::int64_t GetMissedInstants() const { return m_missed_instants; }

private:
    void WarmUp(const std::function<bool()>& is_stopped);
    void RunProduct();
    void RunRead();
    CycleClock::Clock::time_point AwaitInstant(SgemvInput::Work next);
    std::chrono::nanoseconds Execute(SgemvInput::Work work);
    bool IsOver(CycleClock::Clock::time_point end) const;

    const QualifyPlan m_plan;
    SgemvInput& m_input;
    WorkerGroup& m_workers;
    CycleClock m_clock;
    DeadlineCounter m_deadline;
    Durations m_cycle_times;
    Durations m_wake_ups;
    SgemvInput::Work m_last = SgemvInput::Work::WarmUp;
    std::int64_t m_missed_instants = 0;
    QualifyProgress m_progress;
};

}  // namespace lumo::ravelctl
