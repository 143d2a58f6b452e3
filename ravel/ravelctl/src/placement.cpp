#include "placement.hpp"

#include "error.hpp"
#include "modeList.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace lumo::ravelctl {

namespace {

void CheckUsable(const PlaceChoice& choice, const CpuTopology& topology)
{
    for (const int cpu : choice.numbers) {
        if (!topology.IsUsable(cpu)) {
            throw InputError(fmt::format("{}: expected CPUs on which this process may run ({}) but got {}", choice.name,
                                         FormatModeList(topology.usable), cpu));
        }
    }
}

void CheckNode(const PlaceChoice& choice, const CpuTopology& topology)
{
    if (choice.IsGiven() &&
        std::find(topology.nodes.begin(), topology.nodes.end(), choice.numbers.front()) == topology.nodes.end()) {
        throw InputError(fmt::format("{}: expected a node of this machine ({}) but got {}", choice.name,
                                     FormatModeList(topology.nodes), choice.numbers.front()));
    }
}

/// One CPU of each core that has a usable one, in the order in which they are given away. An isolated one stands for
/// its core, or else the first one.
std::vector<int> OrderCores(const CpuTopology& topology, int num_threads)
{
    std::map<int, int> cpu_of;
    for (const int cpu : topology.usable) {
        const auto [found, is_new] = cpu_of.try_emplace(topology.CoreOf(cpu), cpu);
        if (!is_new && topology.IsIsolated(cpu) && !topology.IsIsolated(found->second)) {
            found->second = cpu;
        }
    }
    std::map<int, std::pair<int, int>> cores_of;  // of each node: isolated ones, all; as far as they are needed
    for (const auto& [core, cpu] : cpu_of) {
        auto& [isolated, all] = cores_of[topology.NodeOf(cpu)];
        isolated = std::min(isolated + (topology.IsIsolated(cpu) ? 1 : 0), num_threads);
        all = std::min(all + 1, num_threads);
    }
    std::vector<int> order;
    order.reserve(cpu_of.size());
    for (const auto& [core, cpu] : cpu_of) {
        order.push_back(cpu);
    }
    const auto rank = [&](int cpu) {
        const int node = topology.NodeOf(cpu);
        return std::tuple(topology.IsIsolated(cpu), cores_of.at(node), node, cpu);
    };
    std::sort(order.begin(), order.end(), [&rank](int left, int right) { return rank(left) > rank(right); });
    return order;
}

/// Gives away the cores of a machine, one by one.
class Cores
{
public:
    Cores(const CpuTopology& topology, int num_threads)
        : m_topology(topology), m_free(OrderCores(topology, num_threads))
    {
    }

    std::size_t CountFree() const { return m_free.size(); }

    /// Somebody has a CPU of this core.
    void Take(int cpu)
    {
        std::erase_if(m_free, [this, cpu](int other) { return m_topology.CoreOf(other) == m_topology.CoreOf(cpu); });
    }

    /// The next `count` CPUs, of one node where one is given; none where there are not enough.
    std::vector<int> TakeNext(std::size_t count, const PlaceChoice& node)
    {
        std::vector<int> cpus;
        cpus.reserve(count);
        for (const int cpu : m_free) {
            if (cpus.size() < count && (!node.IsGiven() || m_topology.NodeOf(cpu) == node.numbers.front())) {
                cpus.push_back(cpu);
            }
        }
        if (cpus.size() < count) {
            return {};
        }
        for (const int cpu : cpus) {
            Take(cpu);
        }
        return cpus;
    }

private:
    const CpuTopology& m_topology;
    std::vector<int> m_free;
};

/// Of the workers; none where they run anywhere.
std::vector<int> ChooseWorkerCpus(const PlacementOptions& options, std::size_t num_workers, Cores& cores)
{
    if (options.cpus.kind == PlaceChoice::Kind::None) {
        return {};
    }
    if (options.cpus.IsGiven()) {
        for (const int cpu : options.cpus.numbers) {
            cores.Take(cpu);
        }
        return options.cpus.numbers;
    }
    return cores.TakeNext(num_workers, options.numa_node);
}

/// Of the cycle's thread, which must leave a core for the rest, unless that `has_own`; -1: anywhere.
int ChooseCycleCpu(const PlacementOptions& options, bool are_workers_pinned, bool has_own, Cores& cores)
{
    if (options.cycle_cpu.IsGiven()) {
        return options.cycle_cpu.numbers.front();
    }
    const std::size_t needed = has_own ? 1 : 2;
    if (options.cycle_cpu.kind == PlaceChoice::Kind::None || !are_workers_pinned || cores.CountFree() < needed) {
        return -1;
    }
    return cores.TakeNext(1, PlaceChoice{}).front();
}

/// The CPUs of other cores; none where a thread without a CPU of its own would be kept there too.
std::vector<int> FindRest(const PlacementPlan& plan, const CpuTopology& topology)
{
    std::vector<int> taken = {plan.cycle.cpu};
    for (const Placement& worker : plan.workers) {
        taken.push_back(worker.cpu);
    }
    if (std::find(taken.begin(), taken.end(), -1) != taken.end()) {
        return {};
    }
    std::vector<int> rest;
    for (const int cpu : topology.usable) {
        const bool is_free = std::none_of(taken.begin(), taken.end(), [&topology, cpu](int other) {
            return topology.CoreOf(other) == topology.CoreOf(cpu);
        });
        if (is_free && !topology.IsIsolated(cpu)) {
            rest.push_back(cpu);
        }
    }
    return rest;
}

int ChooseNode(const PlaceChoice& node, int cpu, const CpuTopology& topology)
{
    if (node.IsGiven()) {
        return node.numbers.front();
    }
    const bool matters = node.kind == PlaceChoice::Kind::Auto && cpu >= 0 && topology.nodes.size() > 1;
    return matters ? topology.NodeOf(cpu) : -1;
}

}  // namespace

PlacementPlan PlanPlacement(const PlacementOptions& options, const PlacementNeeds& needs, const CpuTopology& topology)
{
    CheckPlacementOptions(options, needs);
    CheckUsable(options.cpus, topology);
    CheckUsable(options.cycle_cpu, topology);
    CheckNode(options.numa_node, topology);

    const auto num_workers = static_cast<std::size_t>(needs.num_workers);
    const int priority = PriorityOf(options, needs.IsPaced());
    CpuTopology candidates = topology;
    if (needs.IsPaced() && priority == 0) {
        candidates.usable = topology.isolated;
    }
    Cores cores(candidates, needs.num_workers + 1);
    if (options.cycle_cpu.IsGiven()) {
        cores.Take(options.cycle_cpu.numbers.front());
    }
    const std::vector<int> cpus = ChooseWorkerCpus(options, num_workers, cores);
    PlacementPlan plan;
    plan.workers.resize(num_workers);
    for (std::size_t i = 0; i < num_workers; ++i) {
        Placement& worker = plan.workers[i];
        worker.cpu = cpus.empty() ? -1 : cpus[i];
        worker.priority = priority;
        worker.numa_node = ChooseNode(options.numa_node, worker.cpu, topology);
    }
    const bool has_rest_own_cores = candidates.usable.size() < topology.usable.size();  // those not isolated
    plan.cycle.cpu = ChooseCycleCpu(options, !cpus.empty(), has_rest_own_cores, cores);
    plan.cycle.priority = CyclePriorityOf(options, needs.IsPaced());
    plan.rest = FindRest(plan, topology);
    return plan;
}

}  // namespace lumo::ravelctl
