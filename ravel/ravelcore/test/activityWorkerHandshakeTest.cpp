#include "support/handshakeController.hpp"
#include "support/scriptedTask.hpp"
#include "support/startGate.hpp"
#include "support/workerGroup.hpp"

#include <lumo/ravelcore/activityWorker.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>

namespace lumo::ravelcore {
namespace {

using test::HandshakeController;
using test::ScriptedTask;
using test::StartGate;
using test::WorkerGroup;

constexpr int LONG_RUN = 200'000;  // cycles; a few hundred thousand are some ten seconds of processor time
#if defined(__SANITIZE_THREAD__)
constexpr int RUN = 100'000;  // where a mistake in the order of accesses would be seen
#else
constexpr int RUN = 20'000;
#endif

log4cplus::Logger QuietLogger()
{
    log4cplus::Logger logger = log4cplus::Logger::getInstance("activityWorkerHandshakeTest");
    logger.setLogLevel(log4cplus::OFF_LOG_LEVEL);
    return logger;
}

ActivityWorkerConfig ConfigOf(const std::string& name, int num_threads)
{
    return {name, num_threads, 0, -1, 0, -1, std::chrono::minutes(5), QuietLogger()};
}

/// Runs the group for `num_cycles` cycles and holds it to exactly one execution per task and start.
void DriveInLockStep(WorkerGroup& group, int num_cycles)
{
    group.Start();
    ASSERT_TRUE(group.AwaitReady());
    for (int cycle = 1; cycle <= num_cycles; ++cycle) {
        group.GiveStart();
        ASSERT_TRUE(group.AwaitReady()) << "in cycle " << cycle;
        for (int i = 0; i < group.GetNumWorkers(); ++i) {
            ASSERT_EQ(group.GetCount(i), cycle) << "of worker " << i;
        }
        ASSERT_EQ(group.Controller().GetReadyCounter(), group.GetNumWorkers()) << "in cycle " << cycle;
        ASSERT_EQ(group.Controller().GetStartCounter(), 0) << "in cycle " << cycle;
    }
    group.Stop();
    for (int i = 0; i < group.GetNumWorkers(); ++i) {
        ASSERT_EQ(group.GetCount(i), num_cycles + 1) << "of worker " << i << ", the last start included";
    }
}

class ActivityWorkerGroupTest : public ::testing::TestWithParam<int>
{
};

TEST_P(ActivityWorkerGroupTest, EmptyTasksRunExactlyOncePerStart)
{
    WorkerGroup sut(GetParam(), QuietLogger());
    DriveInLockStep(sut, RUN);
}

TEST_P(ActivityWorkerGroupTest, TasksOfDifferentLengthRunExactlyOncePerStart)
{
    // Worker 0 is back at once, the last one late: the quick one is where it could take a second start.
    WorkerGroup sut(GetParam(), QuietLogger(), [](int i) {
        volatile float sum = 0.0F;
        for (int k = 0; k < 2000 * i; ++k) {
            sum = sum + 1.0F;
        }
    });
    DriveInLockStep(sut, 10'000);
}

INSTANTIATE_TEST_SUITE_P(Workers, ActivityWorkerGroupTest, ::testing::Range(1, 5), ::testing::PrintToStringParamName());

TEST(ActivityWorkerHandshakeTest, ThreeWorkersStayInLockStepOverALongRun)
{
    WorkerGroup sut(3, QuietLogger());
    DriveInLockStep(sut, LONG_RUN);
}

/// Two workers, of which the second can be held back between its announcement and its start, where the system may
/// suspend any thread for as long as it likes: it waits for its start behind a mutex of its own, which the test holds.
class HeldBackWorkerTest : public ::testing::Test
{
protected:
    HeldBackWorkerTest() : m_held(m_slow_start_mutex) {}

    ActivityWorkerControl SlowControl()
    {
        ActivityWorkerControl control = m_controller.Control();
        control.start_mutex = &m_slow_start_mutex;
        control.start_cond = &m_slow_start_cond;
        return control;
    }

    std::mutex m_slow_start_mutex;
    std::condition_variable m_slow_start_cond;
    std::unique_lock<std::mutex> m_held;
    HandshakeController m_controller;
    ScriptedTask m_quick_task{"Quick"};
    ScriptedTask m_slow_task{"Slow"};
};

TEST_F(HeldBackWorkerTest, WithoutAGateAQuickWorkerTakesTheStartOfASlowOne)
{
    ActivityWorker quick(ConfigOf("quick", 2), m_controller.Control(), m_quick_task);
    int quick_count = 0;
    m_quick_task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
        if (++quick_count == 2) {
            quick.stop(nullptr);
        }
    };
    ActivityWorkerConfig slow_config = ConfigOf("slow", 2);
    slow_config.start_timeout = std::chrono::milliseconds(1);  // it waits in vain: the test need not
    ActivityWorker slow(slow_config, SlowControl(), m_slow_task);
    int slow_count = 0;
    m_slow_task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
        ++slow_count;
    };
    quick.StartThread();
    slow.StartThread();
    ASSERT_TRUE(m_controller.AwaitReady(2));

    m_controller.GiveStart();
    quick.JoinThread();
    EXPECT_EQ(quick_count, 2) << "of one start";
    EXPECT_EQ(m_controller.GetStartCounter(), 0);

    m_held.unlock();
    slow.JoinThread();
    EXPECT_EQ(slow_count, 0) << "its start is gone";
}

TEST_F(HeldBackWorkerTest, WithAGateTheQuickWorkerLeavesTheSlowOneItsStart)
{
    StartGate gate(2);
    ActivityWorker quick(ConfigOf("quick", 2), m_controller.Control(), m_quick_task);
    int quick_count = 0;
    m_quick_task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
        gate.Pass();
        ++quick_count;
        quick.stop(nullptr);
    };
    ActivityWorker slow(ConfigOf("slow", 2), SlowControl(), m_slow_task);
    int slow_count = 0;
    m_slow_task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
        gate.Pass();
        ++slow_count;
        slow.stop(nullptr);
    };
    quick.StartThread();
    slow.StartThread();
    ASSERT_TRUE(m_controller.AwaitReady(2));

    m_controller.GiveStart();
    gate.AwaitInside();
    EXPECT_EQ(m_controller.GetStartCounter(), 2) << "the quick worker has taken its start and waits in the gate";
    m_held.unlock();
    quick.JoinThread();
    slow.JoinThread();
    EXPECT_EQ(quick_count, 1);
    EXPECT_EQ(slow_count, 1);
    EXPECT_EQ(m_controller.GetStartCounter(), 0);
}

TEST(ActivityWorkerHandshakeTest, StopRequestIsSeenOnlyAfterTheWaitForAStartHasEnded)
{
    HandshakeController controller;
    ScriptedTask task;
    int num_executed = 0;
    task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
        ++num_executed;
    };
    ActivityWorker sut(ConfigOf("worker", 1), controller.Control(), task);
    sut.StartThread();
    ASSERT_TRUE(controller.AwaitReady(1));
    sut.stop(nullptr);
    controller.GiveStart();
    sut.JoinThread();
    EXPECT_EQ(num_executed, 1);
    EXPECT_EQ(controller.GetReadyCounter(), 0) << "no announcement after the stop";
}

TEST(ActivityWorkerHandshakeTest, NotificationsWithoutAStartAreNotTakenForOne)
{
    HandshakeController controller;
    ScriptedTask task;
    int num_executed = 0;
    task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
        ++num_executed;
    };
    ActivityWorker sut(ConfigOf("worker", 1), controller.Control(), task);
    sut.StartThread();
    ASSERT_TRUE(controller.AwaitReady(1));
    for (int i = 0; i < 1000; ++i) {
        controller.SetStartCounter(-(i % 3));
        controller.NotifyWaiting();
    }
    sut.stop(nullptr);
    controller.GiveStart();
    sut.JoinThread();
    EXPECT_EQ(num_executed, 1);
}

TEST(ActivityWorkerHandshakeTest, NotificationsWithoutAStartDoNotPutTheDeadlineOff)
{
    HandshakeController controller;
    ScriptedTask task;
    ActivityWorkerConfig config = ConfigOf("worker", 1);
    config.start_timeout = std::chrono::milliseconds(20);
    ActivityWorker sut(config, controller.Control(), task);
    sut.StartThread();
    std::atomic<bool> ended{false};
    std::thread joiner([&] {
        sut.JoinThread();
        ended = true;
    });
    while (!ended) {  // for ever, if each notification began the wait anew: the test program's time limit ends it then
        controller.NotifyWaiting();
        std::this_thread::yield();
    }
    joiner.join();
    EXPECT_EQ(controller.GetReadyCounter(), 1);
    EXPECT_EQ(sut.GetThreadException(), nullptr);
}

TEST(ActivityWorkerHandshakeTest, LongestTimeOutWaitsInsteadOfWrappingAround)
{
    HandshakeController controller;
    ScriptedTask task;
    int num_executed = 0;
    task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
        ++num_executed;
    };
    ActivityWorkerConfig config = ConfigOf("worker", 1);
    config.start_timeout = std::chrono::milliseconds::max();
    ActivityWorker sut(config, controller.Control(), task);
    sut.StartThread();
    for (int cycle = 0; cycle < 100; ++cycle) {
        ASSERT_TRUE(controller.AwaitReady(1));
        if (cycle == 99) {
            sut.stop(nullptr);
        }
        controller.GiveStart();
    }
    sut.JoinThread();
    EXPECT_EQ(num_executed, 100);
}

}  // namespace
}  // namespace lumo::ravelcore
