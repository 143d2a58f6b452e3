#include "machineFacts.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A file of a made-up machine.
void Write(const test::TestFolder& root, const std::string& name, const std::string& text)
{
    std::filesystem::create_directories((root / name).parent_path());
    test::WriteBytes(root / name, text);
}

TEST(MachineFactsTest, EveryFileReachesItsPlace)
{
    const test::TestFolder root;
    Write(root, "proc/cpuinfo",
          "processor\t: 0\nmodel\t\t: 85\nmodel name\t: Some CPU @ 3.00GHz\n\nmodel name\t: Another\n");
    Write(root, "proc/sys/kernel/osrelease", "6.1.0-13-rt-amd64\n");
    Write(root, "proc/sys/kernel/version", "#1 SMP PREEMPT_RT Debian 6.1.55-1\n");
    Write(root, "sys/kernel/realtime", "1\n");
    Write(root, "sys/devices/system/cpu/online", "0-2\n");
    Write(root, "proc/self/status", "Name:\tdoctor\nCpus_allowed:\t7\nCpus_allowed_list:\t0-1\n");
    Write(root, "sys/devices/system/cpu/isolated", "2\n");
    Write(root, "sys/devices/system/cpu/nohz_full", "1-2\n");
    Write(root, "sys/devices/system/cpu/cpu0/cpufreq/scaling_governor", "schedutil\n");
    Write(root, "sys/devices/system/cpu/cpu1/cpufreq/scaling_governor", "performance\n");
    Write(root, "sys/devices/system/cpu/cpu2/cpufreq/scaling_governor", "schedutil\n");
    Write(root, "proc/sys/kernel/sched_rt_runtime_us", "-1\n");
    Write(root, "proc/sys/kernel/sched_rt_period_us", "1000000\n");
    Write(root, "proc/meminfo",
          "MemTotal:       1000 kB\nMemFree: 10 kB\nMemAvailable:    900 kB\nSwapTotal:  20 kB\nSwapFree:   5 kB\n"
          "HugePages_Total:       3\n");
    Write(root, "sys/devices/system/node/online", "0-1\n");
    Write(root, "sys/kernel/mm/transparent_hugepage/enabled", "always [madvise] never\n");
    Write(root, "sys/devices/system/clocksource/clocksource0/current_clocksource", "hpet\n");
    Write(root, "sys/devices/system/clocksource/clocksource0/available_clocksource", "hpet tsc \n");
    const MachineFacts facts = ReadMachineFiles(root.GetPath());
    EXPECT_EQ(facts.cpu_model, "Some CPU @ 3.00GHz");
    EXPECT_EQ(facts.kernel_release, "6.1.0-13-rt-amd64");
    EXPECT_EQ(facts.kernel_version, "#1 SMP PREEMPT_RT Debian 6.1.55-1");
    EXPECT_EQ(facts.kernel_realtime, "1");
    EXPECT_EQ(facts.cpus_online, "0-2");
    EXPECT_EQ(facts.cpus_allowed, "0-1");
    EXPECT_EQ(facts.cpus_isolated, "2");
    EXPECT_EQ(facts.cpus_nohz_full, "1-2");
    EXPECT_THAT(facts.governors, ElementsAre("performance", "schedutil"));
    EXPECT_EQ(facts.rt_runtime_us, -1);
    EXPECT_EQ(facts.rt_period_us, 1'000'000);
    EXPECT_EQ(facts.memory_bytes, 1000U * 1024U);
    EXPECT_EQ(facts.memory_available_bytes, 900U * 1024U);
    EXPECT_EQ(facts.swap_bytes, 20U * 1024U);
    EXPECT_EQ(facts.swap_free_bytes, 5U * 1024U);
    EXPECT_EQ(facts.huge_pages, 3U);
    EXPECT_EQ(facts.numa_nodes, "0-1");
    EXPECT_EQ(facts.transparent_huge_pages, "madvise");
    EXPECT_EQ(facts.clock_source, "hpet");
    EXPECT_EQ(facts.clock_sources, "hpet tsc");
}

TEST(MachineFactsTest, WhatHasNoFileIsMissing)
{
    const test::TestFolder root;
    const MachineFacts facts = ReadMachineFiles(root.GetPath());
    EXPECT_FALSE(facts.cpu_model);
    EXPECT_FALSE(facts.kernel_release || facts.kernel_version || facts.kernel_realtime);
    EXPECT_FALSE(facts.cpus_online || facts.cpus_allowed || facts.cpus_isolated || facts.cpus_nohz_full);
    EXPECT_THAT(facts.governors, IsEmpty());
    EXPECT_FALSE(facts.rt_runtime_us || facts.rt_period_us);
    EXPECT_FALSE(facts.memory_bytes || facts.memory_available_bytes || facts.swap_bytes || facts.swap_free_bytes);
    EXPECT_FALSE(facts.huge_pages || facts.numa_nodes || facts.transparent_huge_pages);
    EXPECT_FALSE(facts.clock_source || facts.clock_sources);
}

TEST(MachineFactsTest, OfTheMemoryNoMoreIsAvailableThanTheControlGroupsLeave)
{
    const test::TestFolder root;
    Write(root, "proc/meminfo", "MemTotal: 9000 kB\nMemAvailable: 8000 kB\n");
    Write(root, "proc/self/cgroup", "0::/\n");
    Write(root, "sys/fs/cgroup/memory.max", "3000\n");
    Write(root, "sys/fs/cgroup/memory.current", "1000\n");
    EXPECT_EQ(ReadMachineFiles(root.GetPath()).memory_available_bytes, 2000U);
    Write(root, "sys/fs/cgroup/memory.max", "90000000\n");
    EXPECT_EQ(ReadMachineFiles(root.GetPath()).memory_available_bytes, 8'192'000U);
}

TEST(MachineFactsTest, WhatIsNoNumberIsMissing)
{
    const test::TestFolder root;
    Write(root, "proc/sys/kernel/sched_rt_runtime_us", "950000 or so\n");
    Write(root, "proc/meminfo", "MemTotal: much kB\nMemAvailable:\n");
    Write(root, "sys/kernel/mm/transparent_hugepage/enabled", "]always[\n");
    const MachineFacts facts = ReadMachineFiles(root.GetPath());
    EXPECT_FALSE(facts.rt_runtime_us);
    EXPECT_FALSE(facts.memory_bytes || facts.memory_available_bytes);
    EXPECT_FALSE(facts.transparent_huge_pages);
}

TEST(MachineFactsTest, ListsAreReadAsTheKernelWritesThem)
{
    EXPECT_THAT(ParseCpuList("0-3,6,8-9"), ElementsAre(0, 1, 2, 3, 6, 8, 9));
    EXPECT_THAT(ParseCpuList("5"), ElementsAre(5));
    EXPECT_THAT(ParseCpuList(""), IsEmpty());
    EXPECT_THAT(ParseCpuList("(null)"), IsEmpty()) << "what the kernel writes for none";
    EXPECT_THAT(ParseCpuList("0-"), IsEmpty());
    EXPECT_THAT(ParseCpuList("1,0-99999999"), ElementsAre(1));
}

TEST(MachineFactsTest, TheSystemsOwnAnswersAreThereForThisMachine)
{
    const MachineFacts facts = GatherMachine();
    EXPECT_TRUE(facts.rtprio_limit && facts.memlock_limit_bytes && facts.fifo_granted);
    EXPECT_FALSE(facts.blas.empty());
    EXPECT_GE(facts.blas_parallel, 0);
    ASSERT_TRUE(facts.wake_up_us);
    EXPECT_GE(facts.wake_up_us->min, 0.0) << "nothing wakes early";
    EXPECT_EQ(facts.folder, std::filesystem::current_path().string());
    EXPECT_TRUE(facts.folder_free_bytes);
    EXPECT_TRUE(facts.cpus_allowed && facts.memory_bytes);
}

}  // namespace
}  // namespace lumo::ravelctl
