#include "logCapture.hpp"
#include "testActivity.hpp"

#include <brisk/configurablePthreadActivity.hpp>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <string>

namespace brisk {

using test::LogCapture;
using test::TestActivity;

namespace {

/// How the system places a thread.
struct Placement
{
    cpu_set_t cpus{};
    int policy = -1;
    int priority = -1;
};

Placement GetOwnPlacement()
{
    Placement placement;
    EXPECT_EQ(pthread_getaffinity_np(pthread_self(), sizeof(placement.cpus), &placement.cpus), 0);
    sched_param parameters{};
    EXPECT_EQ(pthread_getschedparam(pthread_self(), &placement.policy, &parameters), 0);
    placement.priority = parameters.sched_priority;
    return placement;
}

/// The placement that Run() of an activity of this CPU and priority finds.
Placement RunWith(int cpu, int priority)
{
    Placement placement;
    TestActivity sut("sut", cpu, priority, [&placement](TestActivity&) { placement = GetOwnPlacement(); });
    sut.StartThread();
    sut.JoinThread();
    return placement;
}

int FindPermittedCpu()
{
    const Placement own = GetOwnPlacement();
    int cpu = CPU_SETSIZE - 1;
    while (cpu >= 0 && !CPU_ISSET(static_cast<std::size_t>(cpu), &own.cpus)) {
        --cpu;
    }
    return cpu;
}

void ExpectOneWarning(const LogCapture& log, const std::string& wish)
{
    const auto lines = log.GetLines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, log4cplus::WARN_LOG_LEVEL);
    EXPECT_NE(lines[0].message.find("Activity sut asked for " + wish + " and the system answered"), std::string::npos)
        << lines[0].message;
}

}  // namespace

TEST(ConfigurablePthreadActivityTest, GettersReturnTheArgumentsOfTheConstruction)
{
    const TestActivity sut("sut", 3, 40, [](TestActivity&) {});
    EXPECT_EQ(sut.GetCPU(), 3);
    EXPECT_EQ(sut.GetPriority(), 40);
}

TEST(ConfigurablePthreadActivityTest, NegativeCpuAndZeroPriorityLeaveTheThreadAlone)
{
    const LogCapture log;
    const Placement own = GetOwnPlacement();
    const Placement seen = RunWith(-1, 0);
    EXPECT_TRUE(CPU_EQUAL(&seen.cpus, &own.cpus));
    EXPECT_EQ(seen.policy, own.policy);
    EXPECT_EQ(seen.priority, own.priority);
    EXPECT_TRUE(log.GetLines().empty());
}

TEST(ConfigurablePthreadActivityTest, RunFindsItselfOnTheCpuThatWasAskedFor)
{
    const LogCapture log;
    const int cpu = FindPermittedCpu();
    ASSERT_GE(cpu, 0);
    const Placement seen = RunWith(cpu, 0);
    EXPECT_EQ(CPU_COUNT(&seen.cpus), 1);
    EXPECT_TRUE(CPU_ISSET(static_cast<std::size_t>(cpu), &seen.cpus));
    EXPECT_TRUE(log.GetLines().empty());
}

TEST(ConfigurablePthreadActivityTest, RefusedCpuIsOneWarningAndTheThreadRunsOnWithoutIt)
{
    const Placement own = GetOwnPlacement();
    for (const int cpu : {CPU_SETSIZE - 1, CPU_SETSIZE, 100000}) {  // the last two do not even fit into a set
        const LogCapture log;
        const Placement seen = RunWith(cpu, 0);
        EXPECT_TRUE(CPU_EQUAL(&seen.cpus, &own.cpus));
        ExpectOneWarning(log, "CPU " + std::to_string(cpu));
    }
}

TEST(ConfigurablePthreadActivityTest, RefusedPriorityIsOneWarningAndTheThreadRunsOnWithoutIt)
{
    const LogCapture log;
    const Placement own = GetOwnPlacement();
    const Placement seen = RunWith(-1, 1000);  // out of range: refused whoever asks
    EXPECT_EQ(seen.policy, own.policy);
    EXPECT_EQ(seen.priority, own.priority);
    ExpectOneWarning(log, "SCHED_FIFO priority 1000");
}

TEST(ConfigurablePthreadActivityTest, RefusedCpuAndPriorityAreOneWarningEach)
{
    const LogCapture log;
    RunWith(100000, 1000);
    const auto lines = log.GetLines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_NE(lines[0].message.find("CPU 100000"), std::string::npos);
    EXPECT_NE(lines[1].message.find("priority 1000"), std::string::npos);
}

TEST(ConfigurablePthreadActivityTest, PriorityIsEitherGrantedSilentlyOrRefusedWithOneWarning)
{
    const LogCapture log;
    const Placement own = GetOwnPlacement();
    const Placement seen = RunWith(-1, 1);
    if (log.GetLines().empty()) {
        EXPECT_EQ(seen.policy, SCHED_FIFO);
        EXPECT_EQ(seen.priority, 1);
    } else {  // this user may not ask for it
        EXPECT_EQ(seen.policy, own.policy);
        EXPECT_EQ(seen.priority, own.priority);
        ExpectOneWarning(log, "SCHED_FIFO priority 1");
    }
}

}  // namespace brisk
