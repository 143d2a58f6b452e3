#pragma once

#include "cycleGate.hpp"
#include "deadlineCounter.hpp"
#include "durations.hpp"
#include "hugePages.hpp"
#include "ownThread.hpp"

#include <lumo/ravelcore/task.hpp>
#include <lumo/ravelcore/taskSgemv.hpp>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace lumo::ravelctl {

/// What the cycle thread tells every worker of a qualification for the coming start; written between cycles only, but
/// for `idle`.
struct SgemvInput
{
    enum class Work
    {
        WarmUp,   // the product, not recorded
        Product,  // the product
        Read      // the product's matrix is read once, without a product
    };

    Work work = Work::WarmUp;
    std::chrono::steady_clock::time_point given;  // when the start was given
    std::atomic<bool> idle{false};                // do nothing: the group is being stopped
};

/// Times one TaskSgemv: when each of its executions begins after the start and how long it takes, and how long it takes
/// to read the matrix alone. The gate makes every start execute every task exactly once.
class SgemvTask : public ravelcore::Task
{
public:
    /// The references must outlive the task. Takes memory for `cycles` products and `reads` reads when it is
    /// initialised. `deadline_us`: of a product, from giving the start on.
    SgemvTask(CycleGate& gate, const SgemvInput& input, std::size_t cycles, std::size_t reads,
              std::optional<double> deadline_us = std::nullopt);

    /// Fills the matrix and takes the memory, in the worker's thread: it is on the worker's NUMA node.
    void Initialize() override;

    /// The matrix goes into huge pages when the task is initialised.
    void UseHugePages() { m_uses_huge_pages = true; }

    /// The keys of TaskSgemv.
    void Configure(const std::map<std::string, std::string>& cfg) override;

    void Execute(double time_stamp, bool first) override;

    // Thread: a slow one, after the run.

    const ravelcore::TaskSgemv& GetSgemv() const { return m_sgemv; }
    const Durations& GetExecutions() const { return m_executions; }
    const Durations& GetLatencies() const { return m_latencies; }
    const Durations& GetReads() const { return m_reads; }

    /// Products that were done after the deadline; 0 without one.
    std::int64_t GetMissedDeadlines() const { return m_deadline.GetNumLate(); }

    const GrantedPlace& GetPlace() const { return m_place; }
    const HugePages& GetHugePages() const { return m_huge_pages; }

    /// Page faults of the worker's thread in its cycles; -1 where it was lost before their end.
    std::int64_t GetPageFaults() const { return m_page_faults; }

private:
    void Work();

    CycleGate& m_gate;
    const SgemvInput& m_input;
    const std::size_t m_num_cycles;
    const std::size_t m_num_reads;
    ravelcore::TaskSgemv m_sgemv{0, 0};
    Durations m_executions{0};
    Durations m_latencies{0};
    Durations m_reads{0};
    DeadlineCounter m_deadline;
    std::uint64_t m_read_sum = 0;  // so that no read is left out
    GrantedPlace m_place;
    bool m_uses_huge_pages = false;
    HugePages m_huge_pages;
    std::int64_t m_faults_before = 0;
    std::int64_t m_page_faults = -1;
    std::uint32_t m_cycle = 0;
};

}  // namespace lumo::ravelctl
