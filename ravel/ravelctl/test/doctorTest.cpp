#include "doctor.hpp"
#include "error.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <limits>

namespace lumo::ravelctl {
namespace {

MachineFacts GoodMachine()
{
    MachineFacts facts;
    facts.kernel_release = "6.1.0-13-rt-amd64";
    facts.kernel_version = "#1 SMP PREEMPT_RT Debian 6.1.55-1";
    facts.kernel_realtime = "1";
    facts.cpus_online = "0-7";
    facts.cpus_allowed = "0-3";  // as the kernel has it: isolated ones are not among them
    facts.cpus_isolated = "4-7";
    facts.cpus_nohz_full = "4-7";
    facts.governors = {"performance"};
    facts.rt_runtime_us = -1;
    facts.rt_period_us = 1'000'000;
    facts.memory_bytes = 64'000'000'000;
    facts.memory_available_bytes = 60'000'000'000;
    facts.swap_bytes = 0;
    facts.swap_free_bytes = 0;
    facts.huge_pages = 0;
    facts.numa_nodes = "0-1";
    facts.transparent_huge_pages = "madvise";
    facts.clock_source = "tsc";
    facts.clock_sources = "tsc hpet";
    facts.rtprio_limit = 89;
    facts.memlock_limit_bytes = std::numeric_limits<std::uint64_t>::max();
    facts.fifo_granted = true;
    facts.blas = "OpenBLAS 1.2 (pthread build, Wide kernel)";
    facts.blas_parallel = 1;
    facts.wake_up_us = Percentiles{1.0, 3.0, 5.0, 8.0, 12.0, 12.0};
    facts.folder = "/data";
    facts.folder_free_bytes = 500'000'000'000;
    return facts;
}

MachineFacts BadMachine()
{
    MachineFacts facts;
    facts.kernel_release = "6.1.0-13-amd64";
    facts.kernel_version = "#1 SMP PREEMPT_DYNAMIC Debian 6.1.55-1";
    facts.cpus_online = "0-3";
    facts.topology.usable = {0, 1, 2, 3};
    facts.cpus_allowed = "1";
    facts.cpus_isolated = "";
    facts.cpus_nohz_full = "(null)";
    facts.governors = {"powersave", "schedutil"};
    facts.rt_runtime_us = 0;
    facts.rt_period_us = 1'000'000;
    facts.memory_bytes = 1'000'000'000;
    facts.memory_available_bytes = 100'000'000;
    facts.swap_bytes = 3'000'000'000;
    facts.swap_free_bytes = 1'000'000'000;
    facts.huge_pages = 4;
    facts.numa_nodes = "0";
    facts.transparent_huge_pages = "always";
    facts.clock_source = "hpet";
    facts.clock_sources = "hpet acpi_pm";
    facts.rtprio_limit = 0;
    facts.memlock_limit_bytes = 65536;
    facts.fifo_granted = false;
    facts.blas = "OpenBLAS 1.2 (serial build, Wide kernel)";
    facts.blas_parallel = 0;
    facts.wake_up_us = Percentiles{1.0, 60.0, 900.0, 2500.0, 4000.4, 4000.4};
    facts.folder = "/data";
    facts.folder_free_bytes = 1'000'000;
    return facts;
}

Finding Find(const MachineFacts& facts, const std::string& name)
{
    for (const Finding& finding : Examine(facts)) {
        if (finding.name == name) {
            return finding;
        }
    }
    ADD_FAILURE() << "no finding " << name;
    return {};
}

TEST(DoctorTest, AGoodMachineIsOkInEverythingAndNeedsNothing)
{
    const auto findings = Examine(GoodMachine());
    EXPECT_EQ(FormatFindings(findings),
              "kernel               ok               6.1.0-13-rt-amd64, PREEMPT_RT\n"
              "CPUs                 ok               0-7 online, 0-3 allowed\n"
              "isolated CPUs        ok               4-7\n"
              "CPUs without a tick  ok               4-7\n"
              "frequency governor   ok               performance\n"
              "real-time priority   ok               SCHED_FIFO 60 is granted (limit 89)\n"
              "real-time throttling ok               none\n"
              "locked memory        ok               no limit\n"
              "memory               ok               60.0 GB of 64.0 GB available\n"
              "swap                 ok               none\n"
              "NUMA nodes           ok               2; time each with ravelctl qualify --numa-node\n"
              "huge pages           ok               transparent: madvise, 0 reserved\n"
              "BLAS                 ok               OpenBLAS 1.2 (pthread build, Wide kernel)\n"
              "clock source         ok               tsc\n"
              "timer                ok               wakes 3 us late (median), 12 us (max)\n"
              "disk                 ok               500.0 GB free in /data\n"
              "16 ok, 0 could be better, 0 bad\n");
    EXPECT_EQ(GetExitStatus(findings), EXIT_OK);
}

TEST(DoctorTest, ABadMachineIsToldWhatWouldHelp)
{
    const auto findings = Examine(BadMachine());
    EXPECT_EQ(FormatFindings(findings),
              "kernel               could be better  6.1.0-13-amd64, no PREEMPT_RT\n"
              "    sudo apt-get install linux-image-rt-amd64 && sudo reboot\n"
              "CPUs                 could be better  0-3 online, 1 allowed\n"
              "    taskset -c 0-3 ravelctl run\n"
              "isolated CPUs        could be better  none\n"
              "    sudo sed -i -E 's/(isolcpus|nohz_full)=[^ \"]* *//g' /etc/default/grub &&\n"
              "    sudo sed -i 's/^GRUB_CMDLINE_LINUX=\"/&isolcpus=2,3 nohz_full=2,3 /' \\\n"
              "    /etc/default/grub &&\n"
              "    sudo update-grub &&\n"
              "    sudo reboot\n"
              "CPUs without a tick  could be better  none\n"
              "    # the same command\n"
              "frequency governor   could be better  powersave, schedutil\n"
              "    echo performance |\n"
              "    sudo tee /sys/devices/system/cpu/cpu*/cpufreq/scaling_governor\n"
              "real-time priority   bad              SCHED_FIFO 60 is refused (limit 0)\n"
              "    echo \"$USER - rtprio 89\" |\n"
              "    sudo tee -a /etc/security/limits.d/ravel.conf  # then log in again\n"
              "real-time throttling bad              0 of 1000000 us\n"
              "    sudo sysctl -w kernel.sched_rt_runtime_us=-1\n"
              "locked memory        could be better  at most 65.5 kB\n"
              "    echo \"$USER - memlock unlimited\" |\n"
              "    sudo tee -a /etc/security/limits.d/ravel.conf  # then log in again\n"
              "memory               bad              100.0 MB of 1.0 GB available\n"
              "    ps -eo rss,pid,args --sort=-rss | head  # and end what is not needed\n"
              "swap                 could be better  2.0 GB of 3.0 GB in use\n"
              "    sudo swapoff -a\n"
              "NUMA nodes           ok               1\n"
              "huge pages           could be better  transparent: always, 4 reserved\n"
              "    echo madvise | sudo tee /sys/kernel/mm/transparent_hugepage/enabled\n"
              "BLAS                 bad              OpenBLAS 1.2 (serial build, Wide kernel)\n"
              "    sudo apt-get install libopenblas0-pthread &&\n"
              "    sudo update-alternatives --config libopenblas.so.0-x86_64-linux-gnu\n"
              "clock source         could be better  hpet; slow to read\n"
              "timer                bad              wakes 60 us late (median), 4000 us (max)\n"
              "    top -b -n 1 -o %CPU |\n"
              "    head -n 20  # and end what competes; the other remedies help too\n"
              "disk                 bad              1.0 MB free in /data\n"
              "    df -h  # and choose a place with --output\n"
              "1 ok, 9 could be better, 6 bad\n");
    EXPECT_EQ(GetExitStatus(findings), EXIT_FAILED);
}

TEST(DoctorTest, EverythingThatIsBadIsALineWithItsRemedyOnStandardError)
{
    EXPECT_EQ(FormatBadFindings(Examine(GoodMachine())), "");
    MachineFacts facts = GoodMachine();
    facts.fifo_granted = false;
    facts.rtprio_limit = 0;
    facts.rt_runtime_us = 0;
    facts.swap_bytes = 1'000'000;
    EXPECT_EQ(FormatBadFindings(Examine(facts)),
              "ravelctl: real-time priority: SCHED_FIFO 60 is refused (limit 0); try: echo \"$USER - rtprio 89\" | "
              "sudo tee -a /etc/security/limits.d/ravel.conf  # then log in again\n"
              "ravelctl: real-time throttling: 0 of 1000000 us; try: sudo sysctl -w "
              "kernel.sched_rt_runtime_us=-1\n");
}

TEST(DoctorTest, WhatTheSystemDoesNotTellIsSaidAndIsNotOk)
{
    const MachineFacts nothing;
    for (const char* name :
         {"CPUs", "real-time throttling", "locked memory", "memory", "swap", "clock source", "disk"}) {
        const Finding finding = Find(nothing, name);
        EXPECT_EQ(finding.value, "the system does not tell") << name;
        EXPECT_EQ(finding.health, Health::CouldBeBetter) << name;
        EXPECT_EQ(finding.remedy, "") << name;
    }
    EXPECT_EQ(Find(nothing, "kernel").value, "unknown, no PREEMPT_RT");
    EXPECT_EQ(Find(nothing, "isolated CPUs").remedy, "") << "nobody knows which";
    EXPECT_EQ(Find(nothing, "frequency governor").health, Health::Ok);
    EXPECT_EQ(Find(nothing, "NUMA nodes").value, "the kernel knows none");
    EXPECT_EQ(Find(nothing, "huge pages").value, "no transparent ones, 0 reserved");
    EXPECT_EQ(Find(nothing, "timer").value, "could not be tried");
}

TEST(DoctorTest, OneFileSaysEnoughForARealTimeKernel)
{
    MachineFacts facts = BadMachine();
    facts.kernel_realtime = "1";
    EXPECT_EQ(Find(facts, "kernel").health, Health::Ok);
    facts.kernel_realtime = "0";
    EXPECT_EQ(Find(facts, "kernel").health, Health::CouldBeBetter);
    facts.kernel_version = "#1 SMP PREEMPT_RT";
    EXPECT_EQ(Find(facts, "kernel").health, Health::Ok);
}

TEST(DoctorTest, IsolatedCpusAreNotMissedAmongTheAllowedOnes)
{
    MachineFacts facts = GoodMachine();
    EXPECT_EQ(Find(facts, "CPUs").health, Health::Ok);
    facts.cpus_allowed = "0-1";
    EXPECT_EQ(Find(facts, "CPUs").health, Health::CouldBeBetter);
    EXPECT_EQ(Find(facts, "CPUs").remedy, "taskset -c 0-3 ravelctl run") << "no other work for 4 to 7";
}

TEST(DoctorTest, WhoMayLockBeyondTheLimitLacksNothing)
{
    MachineFacts facts = GoodMachine();
    facts.memlock_limit_bytes = 8'000'000;
    EXPECT_EQ(Find(facts, "locked memory").health, Health::CouldBeBetter);
    facts.may_lock_beyond_limit = true;
    EXPECT_EQ(Find(facts, "locked memory").health, Health::Ok);
    EXPECT_EQ(Find(facts, "locked memory").remedy, "");
}

TEST(DoctorTest, WhatTakesOneRestartTogetherIsOneCommandWithoutWhatIsThere)
{
    MachineFacts facts = BadMachine();
    EXPECT_EQ(Find(facts, "isolated CPUs").remedy, Find(facts, "CPUs without a tick").remedy);
    facts.cpus_isolated = "2-3";
    EXPECT_THAT(Find(facts, "CPUs without a tick").remedy, testing::HasSubstr("&nohz_full=2,3 /"));
}

TEST(DoctorTest, WhoIsGrantedAPriorityBeyondTheLimitHasNone)
{
    MachineFacts facts = GoodMachine();
    facts.rtprio_limit = 0;
    EXPECT_EQ(Find(facts, "real-time priority").value, "SCHED_FIFO 60 is granted (no limit for this user; others: 0)");
    facts.rtprio_limit = 60;
    EXPECT_EQ(Find(facts, "real-time priority").value, "SCHED_FIFO 60 is granted (limit 60)");
}

TEST(DoctorTest, OnFewCpusALoopOfOneWorkerIsRecommended)
{
    MachineFacts facts = GoodMachine();
    facts.cpus_online = facts.cpus_allowed = "0-1";
    facts.cpus_isolated = "";
    EXPECT_EQ(Find(facts, "CPUs").value, "0-1 online, 0-1 allowed; better 3 or more");
    EXPECT_EQ(Find(facts, "CPUs").health, Health::CouldBeBetter);
    EXPECT_EQ(Find(facts, "CPUs").remedy,
              "ravelctl run --workers 1  # two workers would leave no CPU to the rest of the system");
}

TEST(DoctorTest, AClockSourceThatIsThereIsRecommended)
{
    MachineFacts facts = BadMachine();
    facts.clock_sources = "hpet tsc acpi_pm";
    EXPECT_EQ(Find(facts, "clock source").remedy,
              "echo tsc | sudo tee /sys/devices/system/clocksource/clocksource0/current_clocksource");
}

TEST(DoctorTest, TheVerdictOnLatenessMemoryAndDiskHasThreeSteps)
{
    MachineFacts facts = GoodMachine();
    facts.wake_up_us->max = 100.0;
    facts.memory_available_bytes = 600'000'000;
    facts.folder_free_bytes = 600'000'000;
    EXPECT_EQ(Find(facts, "timer").health, Health::CouldBeBetter);
    EXPECT_EQ(Find(facts, "memory").health, Health::CouldBeBetter);
    EXPECT_EQ(Find(facts, "disk").health, Health::CouldBeBetter);
    EXPECT_EQ(GetExitStatus(Examine(facts)), EXIT_OK) << "only what is bad counts";
    facts.wake_up_us->max = 2000.0;
    EXPECT_EQ(Find(facts, "timer").health, Health::Bad);
    EXPECT_EQ(GetExitStatus(Examine(facts)), EXIT_FAILED);
}

TEST(DoctorTest, TheJsonSaysWhatTheTextSays)
{
    const auto findings = Examine(BadMachine());
    const auto json = nlohmann::json::parse(FormatFindingsJson(findings));
    ASSERT_EQ(json.at("findings").size(), findings.size());
    for (std::size_t i = 0; i < findings.size(); ++i) {
        const auto& entry = json.at("findings").at(i);
        EXPECT_EQ(entry.at("name"), findings[i].name);
        EXPECT_EQ(entry.at("value"), findings[i].value);
        EXPECT_EQ(entry.at("verdict"), GetName(findings[i].health));
        EXPECT_EQ(entry.at("remedy"),
                  findings[i].remedy.empty() ? nlohmann::json(nullptr) : nlohmann::json(findings[i].remedy));
    }
    EXPECT_EQ(json.at("ok"), 1);
    EXPECT_EQ(json.at("could_be_better"), 9);
    EXPECT_EQ(json.at("bad"), 6);
}

TEST(DoctorTest, AFolderWhoseNameIsNoTextLeavesTheJsonReadable)
{
    MachineFacts facts = GoodMachine();
    facts.folder = "/\xff";
    EXPECT_NO_THROW(nlohmann::json::parse(FormatFindingsJson(Examine(facts))));
}

}  // namespace
}  // namespace lumo::ravelctl
