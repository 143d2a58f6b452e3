#include "realTimeProcess.hpp"
#include "support/sanitizer.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <limits>
#include <numeric>

namespace lumo::ravelctl {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// A system that grants or refuses as it is told.
class FakeSystem : public SystemCalls
{
public:
    int TryPriority(int priority) override
    {
        calls.push_back("try " + std::to_string(priority));
        return priority > highest_priority ? EPERM : 0;
    }

    int LockMemory() override
    {
        calls.emplace_back("lock");
        return lock_error;
    }

    void UnlockMemory() override { calls.emplace_back("unlock"); }
    std::optional<std::uint64_t> GetLockLimit() override { return lock_limit; }
    void TouchProgram() override { calls.emplace_back("touch"); }
    void KeepFreedMemory() override { calls.emplace_back("keep"); }
    std::vector<int> GetCpus() override { return cpus; }

    int SetCpus(const std::vector<int>& wanted) override
    {
        if (cpus_error == 0) {
            cpus = wanted;
        }
        return cpus_error;
    }

    std::vector<std::string> calls;
    int highest_priority = 99;
    int lock_error = 0;
    std::optional<std::uint64_t> lock_limit;
    std::vector<int> cpus = {0, 1, 2, 3, 4, 5, 6, 7};
    int cpus_error = 0;
};

CpuTopology EightCpus()
{
    return {{0, 1, 2, 3, 4, 5, 6, 7}, {}, {}, {}, {0}};
}

class RealTimeProcessTest : public testing::Test
{
protected:
    /// What the user reads of a process with two workers that get what the plan says.
    std::vector<std::string> Run(const PlacementOptions& options, const PlacementNeeds& needs = {2})
    {
        std::vector<std::string> lines;
        RealTimeProcess sut(options, needs, m_topology, m_facts, m_system);
        sut.Enter();
        std::vector<GrantedPlace> places;
        for (const Placement& worker : sut.GetPlan().workers) {
            places.push_back({worker.cpu, worker.priority});
        }
        sut.SetWorkers(places, m_huge_pages);
        sut.Say([&lines](const std::string& line) { lines.push_back(line); });
        sut.SetCycle({sut.GetPlan().cycle.cpu, sut.GetPlan().cycle.priority});
        m_report = sut.GetReport();
        return lines;
    }

    FakeSystem m_system;
    CpuTopology m_topology = EightCpus();
    MachineFacts m_facts;
    HugePages m_huge_pages{10'000'000, 10'000'000, 0};
    PlacementReport m_report;
};

TEST_F(RealTimeProcessTest, OnAMachineThatGrantsEverythingOneLineSaysWhereEverythingRuns)
{
    m_topology.isolated = {4, 5, 6, 7};
    m_facts.governors = {"performance"};
    EXPECT_THAT(Run({}), ElementsAre("workers on CPU 7, CPU 6, priority 50; cycle on CPU 5, priority 60; the rest on "
                                     "CPU 0-3; memory locked; 10.0 MB of 10.0 MB of matrices in huge pages"));
    EXPECT_THAT(m_report.refused, IsEmpty());
    EXPECT_TRUE(m_report.memory_locked);
}

TEST_F(RealTimeProcessTest, APriorityThatIsRefusedIsSaidOnceAndNotAskedForByTheThreads)
{
    m_system.highest_priority = 0;
    const std::vector<std::string> lines = Run({});
    EXPECT_THAT(lines, Contains("not granted: real-time priority 60 (Operation not permitted; without it no CPU is "
                                "chosen, unless --cpus names them); what would allow it: "
                                "echo \"$USER - rtprio 89\" | sudo tee -a /etc/security/limits.d/ravel.conf  "
                                "# then log in again"));
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.find("priority 60") != std::string::npos; }),
              1);
    EXPECT_THAT(lines.front(), HasSubstr("workers on any CPU, ordinary scheduling; cycle on any CPU, ordinary"));
    EXPECT_EQ(m_report.plan.workers[0].priority, 0);
    EXPECT_EQ(m_report.plan.cycle.priority, 0);
}

TEST_F(RealTimeProcessTest, MoreWorkersThanCoresIsTheReasonForWhichNoCpuIsChosen)
{
    m_topology.usable = {0, 1};
    const std::vector<std::string> lines = Run({}, {3});
    EXPECT_THAT(lines.front(), HasSubstr("workers on any CPU, priority 50"));
    EXPECT_THAT(lines, Contains("not granted: a core for each of 3 workers (there are 2; no CPU is chosen); what would "
                                "allow it: --workers 2"));
    const auto say_of_cores = Contains(HasSubstr("a core for each"));
    EXPECT_THAT(Run({}, {2}), Not(say_of_cores));
    PlacementOptions options;
    options.cycle_cpu.kind = PlaceChoice::Kind::Given;
    options.cycle_cpu.numbers = {0};
    EXPECT_THAT(Run(options, {2}), Contains("not granted: a core for each of 2 workers (of 2 there are too few beside "
                                            "that of --cycle-cpu or on that --numa-node; no CPU is chosen, unless "
                                            "--cpus names them); what would allow it: fewer --workers"));
    EXPECT_THAT(Run(options, {1}), Not(say_of_cores));
    options = {};
    options.cpus.kind = PlaceChoice::Kind::None;
    EXPECT_THAT(Run(options, {3}), Not(say_of_cores)) << "nobody wanted one";
    options = {};
    options.priority = 0;
    EXPECT_THAT(Run(options, {3}), Not(say_of_cores)) << "it would not help";

    m_topology.usable = {0, 1, 2};
    m_topology.core_of = {{0, 0}, {1, 0}, {2, 2}};
    EXPECT_THAT(Run({}, {3}), Contains(HasSubstr("(there are 2; no CPU is chosen, unless --cpus names them)")));
}

TEST_F(RealTimeProcessTest, ALimitBetweenThePrioritiesLeavesTheCycleTheWorkersOne)
{
    m_system.highest_priority = 55;
    Run({});
    EXPECT_EQ(m_report.plan.workers[0].priority, 50);
    EXPECT_EQ(m_report.plan.cycle.priority, 50);
    ASSERT_EQ(m_report.refused.size(), 2U);
    EXPECT_EQ(m_report.refused[0].what, "real-time priority 60");
}

TEST_F(RealTimeProcessTest, APriorityAboveTheUsualLimitNeedsAHigherOne)
{
    m_system.highest_priority = 0;
    PlacementOptions options;
    options.cycle_priority = 95;
    Run(options);
    EXPECT_THAT(m_report.refused[0].remedy, HasSubstr("rtprio 95"));
}

TEST_F(RealTimeProcessTest, MemoryThatIsNotLockedIsSaidWithTheLimitAndTheCommand)
{
    m_system.lock_error = ENOMEM;
    m_system.lock_limit = 8'000'000;
    EXPECT_THAT(Run({}), Contains("not granted: locked memory (Cannot allocate memory, limit 8.0 MB); what would allow "
                                  "it: echo \"$USER - memlock unlimited\" | sudo tee -a "
                                  "/etc/security/limits.d/ravel.conf  # then log in again"));
    EXPECT_FALSE(m_report.memory_locked);
    EXPECT_THAT(m_system.calls, Not(Contains("unlock"))) << "it was never locked";
}

TEST_F(RealTimeProcessTest, TheGovernorAndCpusThatAreNotIsolatedAreSaidWithTheirCommands)
{
    m_facts.governors = {"powersave", "schedutil"};
    const std::vector<std::string> lines = Run({});
    EXPECT_THAT(lines, Contains("not granted: the CPUs' highest frequency (frequency governor powersave, schedutil); "
                                "what would allow it: echo performance | sudo tee "
                                "/sys/devices/system/cpu/cpu*/cpufreq/scaling_governor"));
    EXPECT_THAT(lines, Contains("not granted: CPUs without other work (none are isolated); what would allow it: sudo "
                                "sed -i -E 's/(isolcpus)=[^ \"]* *//g' /etc/default/grub && sudo "
                                "sed -i 's/^GRUB_CMDLINE_LINUX=\"/&isolcpus=4-7 /' /etc/default/grub && sudo "
                                "update-grub && sudo reboot"));
}

TEST_F(RealTimeProcessTest, WithTooFewCpusNobodyIsToldToIsolateSome)
{
    m_topology.usable = {0, 1};
    EXPECT_THAT(Run({}),
                ElementsAre(HasSubstr("workers on CPU 1, CPU 0, priority 50; cycle on any CPU, priority 60; memory")));
}

TEST_F(RealTimeProcessTest, HugePagesThatAreRefusedAreSaidAndAPartIsNot)
{
    m_huge_pages = {10'000'000, 0, EINVAL};
    EXPECT_THAT(Run({}), Contains("not granted: huge pages (the kernel cannot, which Linux 6.1 can)"));
    m_huge_pages = {10'000'000, 0, ENOMEM};
    EXPECT_THAT(Run({}), Contains(HasSubstr("echo 1 | sudo tee /proc/sys/vm/compact_memory")));
    m_huge_pages = {10'000'000, 4'000'000, EINVAL};
    EXPECT_THAT(Run({}), Not(Contains(HasSubstr("not granted: huge pages"))));
}

TEST_F(RealTimeProcessTest, WhatIsSwitchedOffIsNeitherAskedForNorMissed)
{
    m_system.lock_error = ENOMEM;
    PlacementOptions options;
    options.lock_memory = false;
    options.priority = 0;
    options.cpus.kind = PlaceChoice::Kind::None;
    EXPECT_THAT(Run(options), ElementsAre(HasSubstr("workers on any CPU, ordinary scheduling; cycle on any CPU")));
    EXPECT_THAT(m_system.calls, ElementsAre("keep", "touch"));
}

TEST_F(RealTimeProcessTest, WithoutPacingNothingIsAskedForAndNothingSaid)
{
    PlacementOptions options;
    options.cpus.kind = PlaceChoice::Kind::None;
    EXPECT_THAT(Run(options, {2, "--as-fast-as-possible"}), IsEmpty());
    EXPECT_THAT(m_system.calls, IsEmpty());
}

TEST_F(RealTimeProcessTest, WithoutPacingWhatIsRefusedIsSaidAllTheSame)
{
    m_system.cpus_error = EPERM;
    m_huge_pages = {10'000'000, 0, EINVAL};
    PlacementOptions options;
    options.cpus = ParsePlaceChoice("--cpus", "2,3");
    EXPECT_THAT(Run(options, {2, "--flat-out"}),
                ElementsAre("not granted: CPUs of their own for the other threads (Operation not permitted)",
                            "not granted: huge pages (the kernel cannot, which Linux 6.1 can)"));
}

TEST_F(RealTimeProcessTest, TheStarterIsKeptToTheRestUntilItLeaves)
{
    {
        RealTimeProcess sut({}, {2}, m_topology, m_facts, m_system);
        sut.Enter();
        EXPECT_THAT(m_system.cpus, ElementsAre(0, 1, 2, 3, 4));
        EXPECT_THAT(m_system.calls, Contains("lock"));
        EXPECT_THAT(m_system.calls, Not(Contains("unlock")));
        sut.Leave();
        EXPECT_THAT(m_system.cpus, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
        EXPECT_EQ(m_system.calls.back(), "unlock");
        EXPECT_TRUE(sut.GetReport().memory_locked) << "it was, while the loop ran";
    }
    EXPECT_EQ(std::count(m_system.calls.begin(), m_system.calls.end(), "unlock"), 1);
}

TEST_F(RealTimeProcessTest, AStarterThatCannotBeMovedIsSaid)
{
    m_system.cpus_error = EPERM;
    EXPECT_THAT(Run({}), Contains("not granted: CPUs of their own for the other threads (Operation not permitted)"));
    EXPECT_THAT(m_report.plan.rest, IsEmpty());
}

TEST_F(RealTimeProcessTest, AThreadThatGotLessThanTheTrialPromisedIsReported)
{
    RealTimeProcess sut({}, {2}, m_topology, m_facts, m_system);
    sut.SetWorkers({{7, 50}, {-1, 0}}, {});
    sut.SetCycle({5, 60});
    std::vector<std::string> whats;
    for (const Refusal& refusal : sut.GetReport().refused) {
        whats.push_back(refusal.what);
    }
    EXPECT_THAT(whats,
                ElementsAre("CPUs without other work", "CPU 6 for worker1", "real-time priority 50 for worker1"));
}

TEST(SystemCallsTest, ThisSystemAnswersAboutPrioritiesAndLeavesTheCallerAlone)
{
    const GrantedPlace before = FindOwnPlace();
    EXPECT_EQ(ThisSystem().TryPriority(1000), EINVAL) << "there is no such priority";
    ThisSystem().TryPriority(10);
    EXPECT_EQ(FindOwnPlace().priority, before.priority);
}

TEST(SystemCallsTest, AThreadThatIsMovedToOneCpuKnowsIt)
{
    SystemCalls& system = ThisSystem();
    const std::vector<int> before = system.GetCpus();
    ASSERT_FALSE(before.empty());
    EXPECT_EQ(system.SetCpus({before.back()}), 0);
    EXPECT_EQ(FindOwnPlace().cpu, before.back());
    EXPECT_EQ(system.SetCpus(before), 0);
    EXPECT_EQ(system.GetCpus(), before);
    EXPECT_EQ(system.SetCpus({}), EINVAL);
}

TEST(SystemCallsTest, LockedMemoryIsLockedAndLaterAllocationsSucceed)
{
    if (test::SANITIZED) {
        GTEST_SKIP() << "a sanitizer does not let anything be locked";
    }
    SystemCalls& system = ThisSystem();
    const std::string status = "/proc/self/status";
    if (const int error = system.LockMemory(); error != 0) {
        EXPECT_TRUE(system.GetLockLimit()) << "without a limit nothing is refused";
        EXPECT_EQ(FindField(status, "VmLck:"), "0") << "what is refused is not done by half";
        return;
    }
    EXPECT_NE(FindField(status, "VmLck:"), "0");
    const std::vector<char> large(100'000'000, 'a');
    EXPECT_EQ(large.back(), 'a');
    system.UnlockMemory();
    EXPECT_EQ(FindField(status, "VmLck:"), "0");
}

TEST(SystemCallsTest, ThePagesOfTheProgramAreThereOnceTheyWereTouched)
{
    if (test::SANITIZED) {
        GTEST_SKIP() << "a sanitizer finds pages of its own";
    }
    ThisSystem().TouchProgram();
    const std::int64_t before = CountOwnPageFaults();
    ThisSystem().TouchProgram();
    EXPECT_LE(CountOwnPageFaults() - before, 10) << "a second time there is hardly anything to find";
}

}  // namespace
}  // namespace lumo::ravelctl
