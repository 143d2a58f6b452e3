#pragma once

#include "cpuTopology.hpp"
#include "durations.hpp"
#include "systemFiles.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// What there is to know about a machine for real-time work. Missing: the system does not tell.
struct MachineFacts
{
    // From files.
    std::optional<std::string> cpu_model;
    std::optional<std::string> kernel_release;
    std::optional<std::string> kernel_version;   // "#1 SMP PREEMPT_RT ..."
    std::optional<std::string> kernel_realtime;  // "1" on a real-time kernel
    std::optional<std::string> cpus_online;      // lists, as "0-3,6"
    std::optional<std::string> cpus_allowed;
    std::optional<std::string> cpus_isolated;
    std::optional<std::string> cpus_nohz_full;
    CpuTopology topology;                       // of the CPUs that are online
    std::vector<std::string> governors;         // of the CPUs' frequencies; each once, ascending
    std::optional<std::int64_t> rt_runtime_us;  // -1: no limit
    std::optional<std::int64_t> rt_period_us;
    std::optional<std::uint64_t> memory_bytes;
    std::optional<std::uint64_t> memory_available_bytes;
    std::optional<std::uint64_t> swap_bytes;
    std::optional<std::uint64_t> swap_free_bytes;
    std::optional<std::uint64_t> huge_pages;            // reserved
    std::optional<std::string> numa_nodes;              // a list
    std::optional<std::string> transparent_huge_pages;  // "always", "madvise" or "never"
    std::optional<std::string> clock_source;
    std::optional<std::string> clock_sources;  // that there are, with spaces

    // From the system's answers.
    std::optional<std::uint64_t> rtprio_limit;
    std::optional<std::uint64_t> memlock_limit_bytes;  // the largest value: no limit
    std::optional<bool> may_lock_beyond_limit;         // whether more memory than that could be locked all the same
    std::optional<bool> fifo_granted;                  // whether a thread was given SCHED_FIFO
    std::string blas;
    int blas_parallel = -1;                 // what openblas_get_parallel() answers
    std::optional<Percentiles> wake_up_us;  // how late a sleep ends
    std::string folder;                     // the working one
    std::optional<std::uint64_t> folder_free_bytes;
};

/// What the files say; `root` stands for "/".
MachineFacts ReadMachineFiles(const std::filesystem::path& root);

/// All of it. Takes about a second, in which a thread tries how late it wakes, with real-time priority if that is
/// granted.
MachineFacts GatherMachine(const std::filesystem::path& root = "/");

}  // namespace lumo::ravelctl
