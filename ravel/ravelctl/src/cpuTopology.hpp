#pragma once

#include <filesystem>
#include <map>
#include <vector>

namespace lumo::ravelctl {

/// Which CPUs there are for the threads of a loop, and how they belong together.
struct CpuTopology
{
    std::vector<int> usable;     // ascending: a thread of this process may run there, isolated ones included
    std::vector<int> isolated;   // those of them that the kernel keeps other work from
    std::map<int, int> core_of;  // the lowest CPU of the core, for CPUs that share one
    std::map<int, int> node_of;  // NUMA node
    std::vector<int> nodes;      // ascending; {0} where the kernel knows none

    /// A CPU that nothing is known of is a core of its own, on node 0.
    int CoreOf(int cpu) const;
    int NodeOf(int cpu) const;
    bool IsUsable(int cpu) const;
    bool IsIsolated(int cpu) const;
};

/// What the files say about the `usable` CPUs; `root` stands for "/".
CpuTopology ReadCpuTopology(const std::filesystem::path& root, const std::vector<int>& usable);

/// Of this machine. The kernel leaves the CPUs that were isolated when it was booted out of what processes may use, but
/// lets them in who asks for them by name; so it is asked, in a thread of its own. Whoever was restricted to some CPUs
/// beforehand stays there.
CpuTopology FindCpuTopology();

}  // namespace lumo::ravelctl
