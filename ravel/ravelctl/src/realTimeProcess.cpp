#include "realTimeProcess.hpp"

#include "remedies.hpp"
#include "resources.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <set>
#include <system_error>

namespace lumo::ravelctl {

namespace {

std::string Describe(int error)
{
    return std::generic_category().message(error);
}

/// EAGAIN: the memory of now could be locked, but more than the limit could not be had later.
std::string DescribeLockError(int error, std::optional<std::uint64_t> limit)
{
    if (error == EAGAIN && limit) {
        return fmt::format("with a limit of {} the process could not get more later", FormatBytes(*limit));
    }
    return Describe(error) + (limit ? fmt::format(", limit {}", FormatBytes(*limit)) : "");
}

/// What was asked for, with the priorities that there will be: the choice of CPUs depends on them.
PlacementOptions WithPriorities(PlacementOptions options, const PlacementPlan& plan)
{
    options.priority = plan.workers.front().priority;
    options.cycle_priority = plan.cycle.priority;
    return options;
}

}  // namespace

RealTimeProcess::RealTimeProcess(const PlacementOptions& options, const PlacementNeeds& needs,
                                 const CpuTopology& topology, const MachineFacts& facts, SystemCalls& calls)
    : m_options(options), m_is_paced(needs.IsPaced()), m_calls(calls)
{
    m_report.plan = PlanPlacement(options, needs, topology);
    if (m_is_paced) {
        m_calls.KeepFreedMemory();
        TryPriorities();
        const bool was_pinned = m_report.plan.workers.front().cpu >= 0;
        m_report.plan = PlanPlacement(WithPriorities(options, m_report.plan), needs, topology);
        if (was_pinned && m_report.plan.workers.front().cpu < 0) {  // the refused priority is the last thing said
            m_report.refused.back().why += "; without it no CPU is chosen, unless --cpus names them";
        }
        ExplainLackOfCores(needs, topology);
        LookAtMachine(facts, topology);
    }
}

RealTimeProcess::~RealTimeProcess()
{
    Leave();
}

/// Beforehand, so that it is said once and not by every thread. The cycle must not be below its workers.
void RealTimeProcess::TryPriorities()
{
    PlacementPlan& plan = m_report.plan;
    const int wanted = std::max(plan.cycle.priority, plan.workers.front().priority);
    const auto refuses = [this](int priority) {
        return priority > 0 ? m_calls.TryPriority(priority) : 0;
    };
    const int error = refuses(wanted);
    if (error == 0) {
        return;
    }
    m_report.refused.push_back({fmt::format("real-time priority {}", wanted), Describe(error),
                                error == EPERM ? remedies::RealTimePriority(wanted) : ""});
    const int lower = std::min(plan.cycle.priority, plan.workers.front().priority);
    const int granted = refuses(lower) == 0 ? lower : 0;
    plan.cycle.priority = std::min(plan.cycle.priority, granted);
    for (Placement& worker : plan.workers) {
        worker.priority = std::min(worker.priority, granted);
    }
}

/// Where workers were to have a core each, but there are not enough.
void RealTimeProcess::ExplainLackOfCores(const PlacementNeeds& needs, const CpuTopology& topology)
{
    std::set<int> cores;
    for (const int cpu : topology.usable) {
        cores.insert(topology.CoreOf(cpu));
    }
    const int num_cores = static_cast<int>(cores.size());
    const bool are_wanted = m_options.cpus.kind == PlaceChoice::Kind::Auto && m_options.priority != 0;
    if (are_wanted && needs.num_workers > num_cores) {
        const bool are_cpus_enough = topology.usable.size() >= static_cast<std::size_t>(needs.num_workers);
        m_report.refused.push_back({fmt::format("a core for each of {} workers", needs.num_workers),
                                    fmt::format("there {} {}; no CPU is chosen{}", num_cores == 1 ? "is" : "are",
                                                num_cores, are_cpus_enough ? ", unless --cpus names them" : ""),
                                    fmt::format("--workers {}", num_cores)});
    } else if (are_wanted && m_report.plan.workers.front().priority > 0 && m_report.plan.workers.front().cpu < 0) {
        m_report.refused.push_back({fmt::format("a core for each of {} workers", needs.num_workers),
                                    fmt::format("of {} there are too few beside that of --cycle-cpu or on that "
                                                "--numa-node; no CPU is chosen, unless --cpus names them",
                                                num_cores),
                                    "fewer --workers"});
    }
}

/// What a person must have set up beforehand.
void RealTimeProcess::LookAtMachine(const MachineFacts& facts, const CpuTopology& topology)
{
    const bool is_slow = std::any_of(facts.governors.begin(), facts.governors.end(),
                                     [](const std::string& governor) { return governor != "performance"; });
    if (is_slow) {
        m_report.refused.push_back({"the CPUs' highest frequency",
                                    fmt::format("frequency governor {}", fmt::join(facts.governors, ", ")),
                                    remedies::Governor()});
    }
    if (!m_report.plan.rest.empty() && topology.isolated.empty()) {  // there are CPUs enough
        const std::string cpus = remedies::CpusToSetAside(topology);
        m_report.refused.push_back({"CPUs without other work", "none are isolated",
                                    cpus.empty() ? "" : remedies::KernelArguments("isolcpus=" + cpus)});
    }
}

void RealTimeProcess::LockMemory()
{
    const int error = m_calls.LockMemory();
    m_is_locked = error == 0;
    m_report.memory_locked = m_is_locked;
    if (error != 0) {
        const auto limit = m_calls.GetLockLimit();
        m_report.refused.push_back(
            {"locked memory", DescribeLockError(error, limit), limit ? remedies::LockedMemory() : ""});
    }
}

void RealTimeProcess::Enter()
{
    if (m_is_paced) {
        m_calls.TouchProgram();
        if (m_options.lock_memory) {
            LockMemory();
        }
    }
    if (!m_report.plan.rest.empty()) {
        m_cpus_before = m_calls.GetCpus();
        if (const int error = m_calls.SetCpus(m_report.plan.rest); error != 0) {
            m_cpus_before.clear();
            m_report.plan.rest.clear();
            m_report.refused.push_back({"CPUs of their own for the other threads", Describe(error), ""});
        }
    }
}

void RealTimeProcess::Compare(const std::string& who, const Placement& asked, const GrantedPlace& granted)
{
    if (asked.cpu >= 0 && granted.cpu != asked.cpu) {
        m_report.refused.push_back({fmt::format("CPU {} for {}", asked.cpu, who), "the thread may run elsewhere",
                                    "taskset --cpu-list --pid $$  # shows which CPUs may be used"});
    }
    if (granted.priority < asked.priority) {
        m_report.refused.push_back({fmt::format("real-time priority {} for {}", asked.priority, who),
                                    "the thread has a lower one", remedies::RealTimePriority(asked.priority)});
    }
}

void RealTimeProcess::SetWorkers(const std::vector<GrantedPlace>& workers, const HugePages& huge_pages)
{
    m_report.workers = workers;
    for (std::size_t i = 0; i < workers.size(); ++i) {
        Compare(fmt::format("worker{}", i), m_report.plan.workers.at(i), workers[i]);
    }
    m_report.huge_pages = huge_pages;
    if (huge_pages.wanted_bytes > 0 && huge_pages.granted_bytes == 0) {
        // EINVAL: a kernel without huge pages, or before 6.1; its settings do not matter for this call.
        m_report.refused.push_back(
            {"huge pages",
             huge_pages.error == EINVAL ? "the kernel cannot, which Linux 6.1 can" : Describe(huge_pages.error),
             huge_pages.error == EINVAL ? "" : "echo 1 | sudo tee /proc/sys/vm/compact_memory"});
    }
}

void RealTimeProcess::SetCycle(const GrantedPlace& cycle)
{
    m_report.cycle = cycle;
    Compare("the cycle", m_report.plan.cycle, cycle);
}

void RealTimeProcess::Leave()
{
    if (m_is_locked) {
        m_calls.UnlockMemory();
        m_is_locked = false;
    }
    if (!m_cpus_before.empty()) {
        m_calls.SetCpus(m_cpus_before);  // refused only where they were taken from the process meanwhile
        m_cpus_before.clear();
    }
}

void RealTimeProcess::Say(const std::function<void(const std::string&)>& say) const
{
    if (m_is_paced) {
        say(FormatPlacement(m_report));
    }
    for (const Refusal& refusal : m_report.refused) {
        say(FormatRefusal(refusal));
    }
}

}  // namespace lumo::ravelctl
