#pragma once

#include "machineFacts.hpp"
#include "placementReport.hpp"
#include "systemCalls.hpp"

#include <functional>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// The process around a loop: places its threads and takes what a real-time process needs. What the system refuses is
/// kept for the report; the loop then runs without it.
///
/// Where cycles are not paced, neither priorities nor locked memory are asked for; CPUs and huge pages are.
/// Calling order: construct, Enter before the threads start, AddThreads when they have started, Leave when they have
/// been joined. Thread: always the same slow one.
class RealTimeProcess
{
public:
    /// Plans the placement and tries the priorities; those that are refused are not in the plan. `calls` must outlive
    /// the process. Failure: InputError, as PlanPlacement.
    RealTimeProcess(const PlacementOptions& options, const PlacementNeeds& needs, const CpuTopology& topology,
                    const MachineFacts& facts, SystemCalls& calls);

    /// Leaves.
    ~RealTimeProcess();

    RealTimeProcess(const RealTimeProcess&) = delete;
    RealTimeProcess& operator=(const RealTimeProcess&) = delete;

    const PlacementPlan& GetPlan() const { return m_report.plan; }
    bool UsesHugePages() const { return m_options.huge_pages; }

    /// From here on the memory is locked, and the calling thread with those that it starts is kept to the rest of the
    /// CPUs.
    void Enter();

    /// What the threads were given. Compares it with the plan.
    void SetWorkers(const std::vector<GrantedPlace>& workers, const HugePages& huge_pages);
    void SetCycle(const GrantedPlace& cycle);

    /// As before Enter.
    void Leave();

    const PlacementReport& GetReport() const { return m_report; }

    /// One line each: the placement, where cycles are paced, and what was refused.
    void Say(const std::function<void(const std::string&)>& say) const;

private:
    void TryPriorities();
    void ExplainLackOfCores(const PlacementNeeds& needs, const CpuTopology& topology);
    void LookAtMachine(const MachineFacts& facts, const CpuTopology& topology);
    void LockMemory();
    void Compare(const std::string& who, const Placement& asked, const GrantedPlace& granted);

    const PlacementOptions m_options;
    const bool m_is_paced;
    SystemCalls& m_calls;
    PlacementReport m_report;
    bool m_is_locked = false;
    std::vector<int> m_cpus_before;  // of the calling thread; none where it was not moved
};

}  // namespace lumo::ravelctl
