#include "cpuTopology.hpp"

#include "resources.hpp"
#include "systemFiles.hpp"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <thread>

namespace lumo::ravelctl {

namespace {

namespace fs = std::filesystem;

constexpr const char* CPU_FOLDER = "sys/devices/system/cpu";
constexpr const char* NODE_FOLDER = "sys/devices/system/node";

std::vector<int> ReadCpuList(const fs::path& file)
{
    return ParseCpuList(ReadFirstLine(file).value_or(""));
}

int Find(const std::map<int, int>& values, int cpu, int otherwise)
{
    const auto found = values.find(cpu);
    return found == values.end() ? otherwise : found->second;
}

/// Those of `cpus` on which a thread may run that asks for them by name.
std::vector<int> FindGranted(const std::vector<int>& cpus)
{
    std::vector<int> granted;
    std::thread thread([&cpus, &granted] {
        granted.reserve(cpus.size());
        for (const int cpu : cpus) {
            cpu_set_t set;
            CPU_ZERO(&set);
            CPU_SET(static_cast<std::size_t>(cpu), &set);
            if (pthread_setaffinity_np(pthread_self(), sizeof(set), &set) == 0) {
                granted.push_back(cpu);
            }
        }
    });
    thread.join();
    return granted;
}

}  // namespace

int CpuTopology::CoreOf(int cpu) const
{
    return Find(core_of, cpu, cpu);
}

int CpuTopology::NodeOf(int cpu) const
{
    return Find(node_of, cpu, 0);
}

bool CpuTopology::IsUsable(int cpu) const
{
    return std::binary_search(usable.begin(), usable.end(), cpu);
}

bool CpuTopology::IsIsolated(int cpu) const
{
    return std::binary_search(isolated.begin(), isolated.end(), cpu);
}

CpuTopology ReadCpuTopology(const fs::path& root, const std::vector<int>& usable)
{
    CpuTopology topology;
    topology.usable = usable;
    const std::vector<int> isolated = ReadCpuList(root / CPU_FOLDER / "isolated");
    std::set_intersection(usable.begin(), usable.end(), isolated.begin(), isolated.end(),
                          std::back_inserter(topology.isolated));
    for (const int cpu : usable) {
        const fs::path folder = root / CPU_FOLDER / ("cpu" + std::to_string(cpu)) / "topology";
        const std::vector<int> siblings = ReadCpuList(folder / "thread_siblings_list");
        if (!siblings.empty()) {
            topology.core_of[cpu] = siblings.front();
        }
    }
    topology.nodes = ReadCpuList(root / NODE_FOLDER / "online");
    if (topology.nodes.empty()) {
        topology.nodes = {0};
    }
    for (const int node : topology.nodes) {
        for (const int cpu : ReadCpuList(root / NODE_FOLDER / ("node" + std::to_string(node)) / "cpulist")) {
            topology.node_of[cpu] = node;
        }
    }
    return topology;
}

CpuTopology FindCpuTopology()
{
    const fs::path root = "/";
    const std::vector<int> allowed = AllowedCpus();
    const std::vector<int> online = ReadCpuList(root / CPU_FOLDER / "online");
    const std::vector<int> isolated = ReadCpuList(root / CPU_FOLDER / "isolated");
    std::vector<int> ordinary;
    std::set_difference(online.begin(), online.end(), isolated.begin(), isolated.end(), std::back_inserter(ordinary));
    std::vector<int> usable = allowed;
    if (!isolated.empty() && std::includes(allowed.begin(), allowed.end(), ordinary.begin(), ordinary.end())) {
        const std::vector<int> granted = FindGranted(isolated);
        usable.clear();
        std::set_union(allowed.begin(), allowed.end(), granted.begin(), granted.end(), std::back_inserter(usable));
    }
    return ReadCpuTopology(root, usable);
}

}  // namespace lumo::ravelctl
