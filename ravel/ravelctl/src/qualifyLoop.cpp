#include "qualifyLoop.hpp"

namespace lumo::ravelctl {

using Clock = CycleClock::Clock;

QualifyLoop::QualifyLoop(const QualifyPlan& plan, SgemvInput& input, WorkerGroup& workers)
    : m_plan(plan),
      m_input(input),
      m_workers(workers),
      m_clock(plan.rate_hz, plan.paced),
      m_deadline(plan.deadline_us),
      m_cycle_times(static_cast<std::size_t>(plan.most_cycles)),
      m_wake_ups(static_cast<std::size_t>(plan.most_cycles))
{
}

void QualifyLoop::Run(const std::function<bool()>& is_stopped)
{
    WarmUp(is_stopped);
    m_clock.Start();
    const auto longest = std::chrono::duration<double>(m_plan.longest_s.value_or(0.0));
    const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(longest);
    for (std::int64_t cycle = 1; cycle <= m_plan.most_cycles && !is_stopped() && !IsOver(end); ++cycle) {
        RunProduct();
        m_progress.cycles_done.store(cycle, std::memory_order_relaxed);  // a statistic, as all of them: orders nothing
        if (cycle % QualifyPlan::CYCLES_PER_READ == 0) {
            RunRead();
        }
    }
}

bool QualifyLoop::IsOver(Clock::time_point end) const
{
    return m_plan.longest_s && Clock::now() >= end;
}

void QualifyLoop::WarmUp(const std::function<bool()>& is_stopped)
{
    m_clock.Start();
    for (int cycle = 0; cycle < QualifyPlan::WARM_UP_CYCLES && !is_stopped(); ++cycle) {
        m_clock.AwaitNext();
        Execute(SgemvInput::Work::WarmUp);
    }
}

std::chrono::nanoseconds QualifyLoop::Execute(SgemvInput::Work work)
{
    m_input.work = work;
    m_input.given = Clock::now();
    m_workers.GiveStart();
    m_workers.AwaitReady();
    return Clock::now() - m_input.given;
}

void QualifyLoop::RunProduct()
{
    const Clock::time_point instant = AwaitInstant(SgemvInput::Work::Product);
    m_wake_ups.Add(Clock::now() - instant);
    const std::chrono::nanoseconds start_to_ready = Execute(SgemvInput::Work::Product);
    m_cycle_times.Add(start_to_ready);
    m_deadline.Add(start_to_ready);
    m_progress.late.store(m_deadline.GetNumLate(), std::memory_order_relaxed);
    const double us = static_cast<double>(start_to_ready.count()) * 1.0e-3;
    if (us > m_progress.max_us.load(std::memory_order_relaxed)) {
        m_progress.max_us.store(us, std::memory_order_relaxed);
    }
}

void QualifyLoop::RunRead()
{
    AwaitInstant(SgemvInput::Work::Read);
    Execute(SgemvInput::Work::Read);
}

/// What passed meanwhile was missed by the work before.
Clock::time_point QualifyLoop::AwaitInstant(SgemvInput::Work next)
{
    const std::int64_t missed_before = m_clock.GetMissed();
    const Clock::time_point instant = m_clock.AwaitNext();
    if (m_last != SgemvInput::Work::Read) {
        m_missed_instants += m_clock.GetMissed() - missed_before;
    }
    m_last = next;
    return instant;
}

}  // namespace lumo::ravelctl
