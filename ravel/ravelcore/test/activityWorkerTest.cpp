#include "support/allocationGuard.hpp"
#include "support/handshakeController.hpp"
#include "support/logCapture.hpp"
#include "support/scriptedTask.hpp"
#include "support/slotOf.hpp"

#include <lumo/ravelcore/activityWorker.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace lumo::ravelcore {
namespace {

using test::AllocationGuard;
using test::HandshakeController;
using test::LogCapture;
using test::LogEvent;
using test::ScriptedTask;
using test::SlotOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

const std::string LOGGER = "activityWorkerTest";

/// Most tests call Run() in their own thread: with the start given beforehand nothing waits for anybody.
class ActivityWorkerTest : public ::testing::Test
{
protected:
    ActivityWorkerTest()
        : m_config{"worker7", 1, 7, -1, 0, -1, std::chrono::minutes(5), log4cplus::Logger::getInstance(LOGGER)}
    {
    }

    /// Lets the worker run for `num_cycles` cycles with a start given in each, then stops it.
    void RunCycles(ActivityWorker& sut, int num_cycles)
    {
        int cycle = 0;
        m_task.on_execute = [&, num_cycles](double time_stamp, bool first) {
            m_calls.emplace_back(time_stamp, first);
            if (++cycle == num_cycles) {
                sut.stop(nullptr);
            } else {
                m_controller.SetStartCounter(1);
            }
        };
        m_controller.SetStartCounter(1);
        sut.Run();
    }

    /// What the worker logs at one level while it runs a single cycle that finds the counter as given.
    std::vector<std::string> MessagesOfOneCycle(int num_threads, int start_counter)
    {
        m_config.num_threads = num_threads;
        ActivityWorker sut(m_config, m_controller.Control(), m_task);
        m_task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
            sut.stop(nullptr);
        };
        m_controller.SetStartCounter(start_counter);
        sut.Run();
        return m_log.Messages(log4cplus::DEBUG_LOG_LEVEL);
    }

    /// Lets the worker wait in vain for a start with the counter as given; what it logs at DEBUG and above, but for the
    /// line that says it runs.
    std::vector<std::pair<log4cplus::LogLevel, std::string>> LinesOfATimeOut(int start_counter)
    {
        m_config.start_timeout = std::chrono::milliseconds(20);
        ActivityWorker sut(m_config, m_controller.Control(), m_task);
        m_controller.SetStartCounter(start_counter);
        const auto before = std::chrono::system_clock::now();
        sut.Run();
        EXPECT_GE(std::chrono::system_clock::now() - before, m_config.start_timeout);
        std::vector<std::pair<log4cplus::LogLevel, std::string>> lines;
        for (const LogEvent& event : m_log.Events()) {
            if (event.level != log4cplus::TRACE_LOG_LEVEL && event.level != log4cplus::INFO_LOG_LEVEL) {
                lines.emplace_back(event.level, event.message);
            }
        }
        return lines;
    }

    LogCapture m_log{LOGGER};
    HandshakeController m_controller;
    ScriptedTask m_task{"Task3"};
    ActivityWorkerConfig m_config;
    std::vector<std::pair<double, bool>> m_calls;  // what the task was executed with
};

/// The error code with which Run() of a worker with this control ends.
std::error_code CodeOfFailedRun(ActivityWorker& sut)
{
    try {
        sut.Run();
    } catch (const std::system_error& seen) {
        return seen.code();
    }
    return {};
}

/// A mutex that nobody can lock any more: its holder ended without unlocking it, and nobody made good for that.
class LostMutex
{
public:
    LostMutex()
    {
        pthread_mutex_t* const handle = m_mutex.native_handle();
        pthread_mutexattr_t robust{};
        pthread_mutexattr_init(&robust);
        pthread_mutexattr_setrobust(&robust, PTHREAD_MUTEX_ROBUST);
        pthread_mutex_destroy(handle);
        pthread_mutex_init(handle, &robust);
        pthread_mutexattr_destroy(&robust);
        std::thread([handle] { pthread_mutex_lock(handle); }).join();
        EXPECT_EQ(pthread_mutex_lock(handle), EOWNERDEAD);
        pthread_mutex_unlock(handle);
    }

    std::mutex* Get() { return &m_mutex; }

private:
    std::mutex m_mutex;
};

// ---- what it is --------------------------------------------------------------------------------------------------

static_assert(std::is_base_of_v<vigil::app::Activity, ActivityWorker>);
static_assert(std::is_base_of_v<brisk::ConfigurablePthreadActivity, vigil::app::Activity>);
static_assert(std::is_base_of_v<brisk::PthreadActivity, brisk::ConfigurablePthreadActivity>);
static_assert(std::is_base_of_v<brisk::ThreadBaseActivity, brisk::PthreadActivity>);
static_assert(std::is_base_of_v<chartkit::Activity, brisk::ThreadBaseActivity>);
static_assert(std::is_nothrow_destructible_v<ActivityWorker>);
static_assert(!std::is_copy_constructible_v<ActivityWorker> && !std::is_copy_assignable_v<ActivityWorker>);

TEST_F(ActivityWorkerTest, VirtualOperationsFollowTheTwoDestructorEntriesInTheirFixedOrder)
{
    const std::vector<std::size_t> slots{SlotOf(&ActivityWorker::start),
                                         SlotOf(&ActivityWorker::stop),
                                         SlotOf(&ActivityWorker::GetNativeHandle),
                                         SlotOf(&ActivityWorker::IsThreadJoined),
                                         SlotOf(&ActivityWorker::StartThread),
                                         SlotOf(&ActivityWorker::JoinThread),
                                         SlotOf(&ActivityWorker::Run),
                                         SlotOf(&ActivityWorker::Initialize),
                                         SlotOf(&ActivityWorker::Configure)};
    EXPECT_THAT(slots, ElementsAre(2, 3, 4, 5, 6, 7, 8, 9, 10));
}

TEST_F(ActivityWorkerTest, ConstructorTouchesNothingAndStartsNoThread)
{
    bool initialised = false;
    m_task.on_initialize = [&] {
        initialised = true;
    };
    const ActivityWorker sut(m_config, m_controller.Control(), m_task);
    EXPECT_TRUE(sut.IsThreadJoined());
    EXPECT_FALSE(initialised);
    EXPECT_EQ(m_controller.GetReadyCounter(), 0);
}

TEST_F(ActivityWorkerTest, HandsNameThenCpuThenPriorityToTheThread)
{
    m_config.cpu = 3;
    m_config.priority = 5;
    const ActivityWorker sut(m_config, m_controller.Control(), m_task);
    EXPECT_EQ(sut.getId(), "worker7");
    EXPECT_EQ(sut.GetName(), "worker7");
    EXPECT_EQ(sut.GetCPU(), 3);
    EXPECT_EQ(sut.GetPriority(), 5);
}

TEST_F(ActivityWorkerTest, WorksWithCopiesOfConfigurationAndControl)
{
    auto config = std::make_unique<ActivityWorkerConfig>(m_config);
    auto control = std::make_unique<ActivityWorkerControl>(m_controller.Control());
    ActivityWorker sut(*config, *control, m_task);
    config.reset();
    control.reset();
    RunCycles(sut, 2);
    EXPECT_THAT(m_calls, SizeIs(2));
}

TEST_F(ActivityWorkerTest, EveryOperationBeginsWithItsTraceLine)
{
    {
        ActivityWorker sut(m_config, m_controller.Control(), m_task);
        sut.Initialize();
        sut.Configure({"one", "two"});
        sut.stop(nullptr);
        sut.Run();
    }
    const std::string place = "ravel/ravelcore/src/activityWorker\\.cpp ";
    EXPECT_THAT(m_log.Messages(log4cplus::TRACE_LOG_LEVEL),
                ElementsAre(MatchesRegex(place + "ActivityWorker [0-9]+"), MatchesRegex(place + "Initialize [0-9]+"),
                            MatchesRegex(place + "Configure [0-9]+"), MatchesRegex(place + "Run [0-9]+"),
                            MatchesRegex(place + "~ActivityWorker [0-9]+")));
}

TEST_F(ActivityWorkerTest, InitializeAndConfigureDoNothingElse)
{
    bool touched = false;
    m_task.on_initialize = [&] {
        touched = true;
    };
    m_task.on_configure = [&] {
        touched = true;
    };
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    m_log.Clear();
    sut.Initialize();
    sut.Configure({"cfg.task_sgemv.num_rows", "12"});
    EXPECT_FALSE(touched);
    EXPECT_THAT(m_log.Events(), SizeIs(2));  // the TRACE lines
    EXPECT_EQ(m_controller.GetReadyCounter(), 0);
}

// ---- set-up ------------------------------------------------------------------------------------------------------

TEST_F(ActivityWorkerTest, SaysWhereItRuns)
{
    m_config.cpu = 3;
    m_config.priority = 5;
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    sut.stop(nullptr);
    sut.Run();
    EXPECT_THAT(m_log.Messages(log4cplus::INFO_LOG_LEVEL),
                ElementsAre("Activity worker7 running (Thread name worker7, CPU 3, NUMA -1, Priority 5)."));
}

TEST_F(ActivityWorkerTest, GivesItsThreadTheNameOfTheActivity)
{
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    sut.SetName("another");
    std::string name_at_initialize;
    m_task.on_initialize = [&] {
        name_at_initialize = sut.GetName();
    };
    sut.stop(nullptr);
    sut.Run();
    EXPECT_EQ(name_at_initialize, "worker7");
    EXPECT_THAT(m_log.Messages(log4cplus::INFO_LOG_LEVEL),
                ElementsAre("Activity worker7 running (Thread name worker7, CPU -1, NUMA -1, Priority 0)."));
}

TEST_F(ActivityWorkerTest, InitialisesTheTaskOnItsOwnThreadAfterItHasSaidWhereItRuns)
{
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    std::thread::id thread;
    std::vector<std::string> said;
    m_task.on_initialize = [&] {
        thread = std::this_thread::get_id();
        said = m_log.Messages(log4cplus::INFO_LOG_LEVEL);
    };
    sut.stop(nullptr);
    sut.StartThread();
    sut.JoinThread();
    EXPECT_NE(thread, std::thread::id());
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_THAT(said, SizeIs(1));
}

TEST_F(ActivityWorkerTest, StopBeforeTheLoopInitialisesButNeverExecutesTheTask)
{
    int num_initialised = 0;
    m_task.on_initialize = [&] {
        ++num_initialised;
    };
    m_task.on_execute = [&](double time_stamp, bool first) {
        m_calls.emplace_back(time_stamp, first);
    };
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    m_controller.SetStartCounter(1);
    sut.stop(nullptr);
    sut.StartThread();
    sut.JoinThread();
    EXPECT_EQ(num_initialised, 1);
    EXPECT_THAT(m_calls, IsEmpty());
    EXPECT_EQ(m_controller.GetReadyCounter(), 0);
    EXPECT_EQ(m_controller.GetStartCounter(), 1);
    EXPECT_THAT(m_log.Messages(log4cplus::DEBUG_LOG_LEVEL), ElementsAre("Activity worker7 terminated."));
}

TEST_F(ActivityWorkerTest, StopDuringInitialiseEndsItBeforeItAnnouncesItself)
{
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    m_task.on_initialize = [&] {
        sut.stop(nullptr);
    };
    m_controller.SetStartCounter(1);
    sut.Run();
    EXPECT_EQ(m_controller.GetReadyCounter(), 0);
    EXPECT_EQ(m_controller.GetStartCounter(), 1);
}

// ---- the cycle ---------------------------------------------------------------------------------------------------

TEST_F(ActivityWorkerTest, EveryCycleGetsTimeStampZeroAndOnlyTheFirstIsFirst)
{
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    RunCycles(sut, 4);
    EXPECT_THAT(m_calls,
                ElementsAre(std::pair(0.0, true), std::pair(0.0, false), std::pair(0.0, false), std::pair(0.0, false)));
}

TEST_F(ActivityWorkerTest, WritesExactlyTheseLinesInTwoCyclesOfASingleWorker)
{
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    RunCycles(sut, 2);
    EXPECT_THAT(
        m_log.Messages(log4cplus::DEBUG_LOG_LEVEL),
        ElementsAre("Activity worker7 ready to start (readyCounter = 1)",
                    "Activity worker7 all threads received signal to start, reset start_counter = 0",
                    "Activity worker7 working on task Task3", "Activity worker7 ready to start (readyCounter = 2)",
                    "Activity worker7 all threads received signal to start, reset start_counter = 0",
                    "Activity worker7 working on task Task3", "Activity worker7 terminated."));
    EXPECT_THAT(m_log.Events(log4cplus::WARN_LOG_LEVEL), IsEmpty());
    for (const LogEvent& event : m_log.Events()) {
        EXPECT_EQ(event.logger, LOGGER);
    }
}

TEST_F(ActivityWorkerTest, LinesCarryTheirPlaceAndFullSignature)
{
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    RunCycles(sut, 1);
    const LogEvent last = m_log.Events().back();
    EXPECT_EQ(last.message, "Activity worker7 terminated.");
    EXPECT_EQ(last.file, "ravel/ravelcore/src/activityWorker.cpp");
    EXPECT_GT(last.line, 0);
    EXPECT_THAT(last.function, MatchesRegex("virtual void .*ActivityWorker::Run\\(\\)"));
}

TEST_F(ActivityWorkerTest, SingleWorkerResetsTheStartCounterAtOnce)
{
    MessagesOfOneCycle(1, 1);
    EXPECT_EQ(m_controller.GetStartCounter(), 0);
}

TEST_F(ActivityWorkerTest, RaisesTheStartCounterWhileOthersHaveNotTakenTheStart)
{
    EXPECT_THAT(MessagesOfOneCycle(3, 1),
                ElementsAre("Activity worker7 ready to start (readyCounter = 1)",
                            "Activity worker7 received signal to start, increase start_counter = 2",
                            "Activity worker7 working on task Task3", "Activity worker7 terminated."));
    EXPECT_EQ(m_controller.GetStartCounter(), 2);
}

TEST_F(ActivityWorkerTest, ResetsTheStartCounterWhenItIsTheLastToTakeTheStart)
{
    EXPECT_THAT(MessagesOfOneCycle(3, 3),
                ElementsAre("Activity worker7 ready to start (readyCounter = 1)",
                            "Activity worker7 all threads received signal to start, reset start_counter = 0",
                            "Activity worker7 working on task Task3", "Activity worker7 terminated."));
    EXPECT_EQ(m_controller.GetStartCounter(), 0);
}

TEST_F(ActivityWorkerTest, LeavesAStartCounterAboveTheNumberOfWorkersAloneAndSaysNothing)
{
    EXPECT_THAT(MessagesOfOneCycle(3, 4),
                ElementsAre("Activity worker7 ready to start (readyCounter = 1)",
                            "Activity worker7 working on task Task3", "Activity worker7 terminated."));
    EXPECT_EQ(m_controller.GetStartCounter(), 4);
}

TEST_F(ActivityWorkerTest, AddsToTheReadyCounterInEveryCycleAndNeverResetsIt)
{
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    RunCycles(sut, 5);
    EXPECT_EQ(m_controller.GetReadyCounter(), 5);
}

TEST_F(ActivityWorkerTest, StopDuringExecuteEndsItBeforeItAnnouncesItselfAgain)
{
    MessagesOfOneCycle(1, 1);
    EXPECT_EQ(m_controller.GetReadyCounter(), 1);
}

TEST_F(ActivityWorkerTest, HoldsNeitherMutexWhileTheTaskExecutes)
{
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    const ActivityWorkerControl control = m_controller.Control();
    bool ready_is_free = false;
    bool start_is_free = false;
    m_task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
        sut.stop(nullptr);
        std::thread([&] {  // another thread: the holder itself must not try
            const std::unique_lock<std::mutex> ready(*control.ready_mutex, std::try_to_lock);
            const std::unique_lock<std::mutex> start(*control.start_mutex, std::try_to_lock);
            ready_is_free = ready.owns_lock();
            start_is_free = start.owns_lock();
        })
            .join();
    };
    m_controller.SetStartCounter(1);
    sut.Run();
    EXPECT_TRUE(ready_is_free);
    EXPECT_TRUE(start_is_free);
}

TEST_F(ActivityWorkerTest, NeverAllocatesInACycleWhileDebugIsOff)
{
    m_log.SetLevel(log4cplus::INFO_LOG_LEVEL);
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    std::optional<AllocationGuard> guard;
    std::int64_t count = -1;
    int cycle = 0;
    m_task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
        ++cycle;
        if (cycle == 1) {
            guard.emplace();
        }
        if (cycle == 1000) {
            count = guard->GetCount();
            sut.stop(nullptr);
        }
        m_controller.SetStartCounter(1);
    };
    m_controller.SetStartCounter(1);
    sut.Run();
    EXPECT_EQ(count, 0);
}

TEST_F(ActivityWorkerTest, NeverAllocatesWhileItWaitsForAStart)
{
    m_log.SetLevel(log4cplus::INFO_LOG_LEVEL);
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    std::optional<AllocationGuard> guard;
    std::int64_t count = -1;
    m_task.on_execute = [&](double /*time_stamp*/, bool first) {
        if (first) {
            guard.emplace();
        }
        count = guard->GetCount();
    };
    sut.StartThread();
    for (int cycle = 0; cycle < 1000; ++cycle) {
        ASSERT_TRUE(m_controller.AwaitReady(1));
        m_controller.GiveStart();
    }
    ASSERT_TRUE(m_controller.AwaitReady(1));
    sut.stop(nullptr);
    m_controller.GiveStart();
    sut.JoinThread();
    EXPECT_EQ(count, 0);
}

// ---- the start that does not come --------------------------------------------------------------------------------

TEST_F(ActivityWorkerTest, StartCounterZeroAtTheTimeOutIsAWarning)
{
    EXPECT_THAT(LinesOfATimeOut(0),
                ElementsAre(std::pair(log4cplus::DEBUG_LOG_LEVEL, "Activity worker7 ready to start (readyCounter = 1)"),
                            std::pair(log4cplus::WARN_LOG_LEVEL,
                                      "Activity worker7 timed-out waiting signal to start (startCounter = 0)"),
                            std::pair(log4cplus::DEBUG_LOG_LEVEL, "Activity worker7 terminated.")));
    EXPECT_EQ(m_controller.GetStartCounter(), 0);
}

TEST_F(ActivityWorkerTest, StartCounterMinusOneWaitsTheFullTimeOutAndIsAStop)
{
    EXPECT_THAT(
        LinesOfATimeOut(-1),
        ElementsAre(std::pair(log4cplus::DEBUG_LOG_LEVEL, "Activity worker7 ready to start (readyCounter = 1)"),
                    std::pair(log4cplus::DEBUG_LOG_LEVEL,
                              "Activity worker7 stopped while waiting for start notification (startCounter = -1)"),
                    std::pair(log4cplus::DEBUG_LOG_LEVEL, "Activity worker7 terminated.")));
    EXPECT_EQ(m_controller.GetStartCounter(), -1);
}

TEST_F(ActivityWorkerTest, StartCounterMinusTwoAtTheTimeOutIsAWarning)
{
    EXPECT_THAT(LinesOfATimeOut(-2),
                ElementsAre(std::pair(log4cplus::DEBUG_LOG_LEVEL, "Activity worker7 ready to start (readyCounter = 1)"),
                            std::pair(log4cplus::WARN_LOG_LEVEL,
                                      "Activity worker7 timed-out waiting signal to start (startCounter = -2)"),
                            std::pair(log4cplus::DEBUG_LOG_LEVEL, "Activity worker7 terminated.")));
    EXPECT_EQ(m_controller.GetStartCounter(), -2);
}

TEST_F(ActivityWorkerTest, TimedOutThreadEndsWithoutAnError)
{
    m_config.start_timeout = std::chrono::milliseconds(1);
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    sut.StartThread();
    sut.JoinThread();
    EXPECT_EQ(sut.GetThreadException(), nullptr);
    EXPECT_EQ(m_controller.GetReadyCounter(), 1);
}

TEST_F(ActivityWorkerTest, StartThatIsThereIsTakenEvenWithNoTimeToWait)
{
    for (const std::chrono::milliseconds timeout :
         {std::chrono::milliseconds(0), std::chrono::milliseconds(-5), std::chrono::milliseconds::min()}) {
        m_config.start_timeout = timeout;
        m_calls.clear();
        ActivityWorker sut(m_config, m_controller.Control(), m_task);
        RunCycles(sut, 1);
        EXPECT_THAT(m_calls, SizeIs(1)) << "with a time-out of " << timeout.count() << " ms";
    }
}

TEST_F(ActivityWorkerTest, NewRunAfterATimeOutInitialisesTheTaskAgainAndBeginsWithAFirstCycle)
{
    int num_initialised = 0;
    m_task.on_initialize = [&] {
        ++num_initialised;
    };
    m_task.on_execute = [&](double time_stamp, bool first) {
        m_calls.emplace_back(time_stamp, first);
    };
    m_config.start_timeout = std::chrono::milliseconds(1);
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    for (int run = 0; run < 2; ++run) {
        m_controller.SetStartCounter(1);
        sut.StartThread();
        sut.JoinThread();
    }
    EXPECT_EQ(num_initialised, 2);
    EXPECT_THAT(m_calls, ElementsAre(std::pair(0.0, true), std::pair(0.0, true)));
}

// ---- what goes wrong ---------------------------------------------------------------------------------------------

TEST_F(ActivityWorkerTest, NullStartMutexEndsTheThreadWithOperationNotPermitted)
{
    ActivityWorkerControl control = m_controller.Control();
    control.start_mutex = nullptr;
    ActivityWorker sut(m_config, control, m_task);
    const LogCapture brisk("brisk");  // where the thread's end is reported
    sut.StartThread();
    sut.JoinThread();
    ASSERT_NE(sut.GetThreadException(), nullptr);
    try {
        std::rethrow_exception(sut.GetThreadException());
    } catch (const std::system_error& seen) {
        EXPECT_EQ(seen.code(), std::error_code(EPERM, std::generic_category()));
    }
    EXPECT_EQ(m_controller.GetReadyCounter(), 1) << "it fails at the start, after the announcement";
    EXPECT_THAT(brisk.Events(log4cplus::ERROR_LOG_LEVEL), SizeIs(1));
}

TEST_F(ActivityWorkerTest, NullReadyMutexEndsItTheSameWayBeforeItAnnouncesItself)
{
    ActivityWorkerControl control = m_controller.Control();
    control.ready_mutex = nullptr;
    ActivityWorker sut(m_config, control, m_task);
    EXPECT_EQ(CodeOfFailedRun(sut), std::error_code(EPERM, std::generic_category()));
    EXPECT_EQ(m_controller.GetReadyCounter(), 0);
}

TEST_F(ActivityWorkerTest, StartMutexThatCannotBeLockedEndsItWithTheErrorOfTheLock)
{
    LostMutex lost;
    ActivityWorkerControl control = m_controller.Control();
    control.start_mutex = lost.Get();
    ActivityWorker sut(m_config, control, m_task);
    EXPECT_EQ(CodeOfFailedRun(sut), std::error_code(ENOTRECOVERABLE, std::generic_category()));
    EXPECT_EQ(m_controller.GetReadyCounter(), 1);
}

TEST_F(ActivityWorkerTest, ReadyMutexThatCannotBeLockedEndsItWithTheErrorOfTheLock)
{
    LostMutex lost;
    ActivityWorkerControl control = m_controller.Control();
    control.ready_mutex = lost.Get();
    ActivityWorker sut(m_config, control, m_task);
    EXPECT_EQ(CodeOfFailedRun(sut), std::error_code(ENOTRECOVERABLE, std::generic_category()));
    EXPECT_EQ(m_controller.GetReadyCounter(), 0);
}

TEST_F(ActivityWorkerTest, ExceptionOfInitializeLeavesRunAndIsKept)
{
    m_task.on_initialize = [] {
        throw std::runtime_error("no storage");
    };
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    const LogCapture brisk("brisk");
    sut.StartThread();
    sut.JoinThread();
    ASSERT_NE(sut.GetThreadException(), nullptr);
    try {
        std::rethrow_exception(sut.GetThreadException());
    } catch (const std::runtime_error& seen) {
        EXPECT_STREQ(seen.what(), "no storage");
    }
    EXPECT_EQ(m_controller.GetReadyCounter(), 0);
    EXPECT_THAT(m_log.Messages(log4cplus::DEBUG_LOG_LEVEL), IsEmpty()) << "it did not reach its end";
}

TEST_F(ActivityWorkerTest, ExceptionOfExecuteLeavesRunAndIsKept)
{
    int cycle = 0;
    m_task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
        if (++cycle == 2) {
            throw std::out_of_range("cycle 2");
        }
        m_controller.SetStartCounter(1);
    };
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    const LogCapture brisk("brisk");
    m_controller.SetStartCounter(1);
    sut.StartThread();
    sut.JoinThread();
    ASSERT_NE(sut.GetThreadException(), nullptr);
    EXPECT_THROW(std::rethrow_exception(sut.GetThreadException()), std::out_of_range);
    EXPECT_EQ(m_controller.GetReadyCounter(), 2);
    EXPECT_EQ(m_log.Messages(log4cplus::DEBUG_LOG_LEVEL).back(), "Activity worker7 working on task Task3");
}

TEST_F(ActivityWorkerTest, FailedRunLeavesBothMutexesFree)
{
    m_task.on_execute = [](double /*time_stamp*/, bool /*first*/) {
        throw std::runtime_error("in the cycle");
    };
    ActivityWorker sut(m_config, m_controller.Control(), m_task);
    m_controller.SetStartCounter(1);
    EXPECT_THROW(sut.Run(), std::runtime_error);
    EXPECT_EQ(m_controller.GetReadyCounter(), 1);  // locks one
    EXPECT_EQ(m_controller.GetStartCounter(), 0);  // and the other
}

TEST_F(ActivityWorkerTest, DestroyingARunningWorkerWarnsAndWaitsForItsEnd)
{
    std::promise<void> begun;
    bool ended = false;
    m_task.on_execute = [&](double /*time_stamp*/, bool /*first*/) {
        begun.set_value();
        while (m_log.Messages(log4cplus::WARN_LOG_LEVEL).empty()) {  // its destruction has not begun
            std::this_thread::yield();
        }
        ended = true;
    };
    auto sut = std::make_unique<ActivityWorker>(m_config, m_controller.Control(), m_task);
    m_controller.SetStartCounter(1);
    sut->StartThread();
    begun.get_future().wait();
    sut.reset();
    EXPECT_TRUE(ended);
    EXPECT_THAT(
        m_log.Messages(log4cplus::WARN_LOG_LEVEL),
        ElementsAre("Activity worker7 is destroyed before it was joined, waiting for its end; stop and join it first"));
}

}  // namespace
}  // namespace lumo::ravelcore
