#include "logCapture.hpp"
#include "testActivity.hpp"

#include <brisk/exception.hpp>
#include <brisk/pthreadActivity.hpp>

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace brisk {

using test::LogCapture;
using test::RunUntilStopped;
using test::TestActivity;

namespace {

std::string GetMessage(const std::exception_ptr& exception)
{
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception& caught) {
        return caught.what();
    }
}

/// Asks the system for impossibly large stacks while it lives: no thread can be created.
class NoThreads
{
public:
    NoThreads()
    {
        pthread_getattr_default_np(&m_old);
        pthread_attr_t impossible;
        pthread_getattr_default_np(&impossible);
        pthread_attr_setstacksize(&impossible, std::size_t{1} << 47U);  // all of a process's address space
        EXPECT_EQ(pthread_setattr_default_np(&impossible), 0);
        pthread_attr_destroy(&impossible);
    }
    ~NoThreads()
    {
        pthread_setattr_default_np(&m_old);
        pthread_attr_destroy(&m_old);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

private:
    pthread_attr_t m_old{};
};

/// Is not joined before its destruction. Its Run() uses nothing of its own once it has said that it runs.
class ForgottenActivity : public PthreadActivity
{
public:
    struct Signs
    {
        std::promise<void> started;
        std::atomic<bool> ended{false};
    };

    explicit ForgottenActivity(std::shared_ptr<Signs> signs) : PthreadActivity("forgotten"), m_signs(std::move(signs))
    {
    }

    void Run() override
    {
        const std::shared_ptr<Signs> signs = m_signs;
        signs->started.set_value();
        RunUntilStopped(*this);
        signs->ended = true;
    }

private:
    std::shared_ptr<Signs> m_signs;
};

}  // namespace

TEST(PthreadActivityTest, NewOneHasNoThread)
{
    TestActivity sut([](TestActivity&) { FAIL() << "nobody started it"; });
    EXPECT_TRUE(sut.IsThreadJoined());
    EXPECT_EQ(sut.GetNativeHandle(), pthread_t{});
    EXPECT_FALSE(sut.IsStopRequested());
    EXPECT_EQ(sut.GetThreadException(), nullptr);
}

TEST(PthreadActivityTest, StartRunsTheBodyOnAThreadOfItsOwn)
{
    std::thread::id seen;
    pthread_t seen_handle{};
    TestActivity sut([&](TestActivity& activity) {
        seen = std::this_thread::get_id();
        seen_handle = activity.GetNativeHandle();
        EXPECT_TRUE(pthread_equal(seen_handle, pthread_self()));
    });
    chartkit::Context context;
    sut.start(&context);
    const pthread_t handle = sut.GetNativeHandle();
    sut.JoinThread();

    EXPECT_NE(seen, std::thread::id());
    EXPECT_NE(seen, std::this_thread::get_id());
    EXPECT_TRUE(pthread_equal(seen_handle, handle));
}

TEST(PthreadActivityTest, StopSetsTheRequestAndDoesNotJoin)
{
    std::promise<void> released;
    TestActivity sut([&released](TestActivity& activity) {
        RunUntilStopped(activity);
        released.get_future().wait();
    });
    sut.start(nullptr);
    EXPECT_FALSE(sut.IsStopRequested());
    sut.stop(nullptr);  // would never return if it waited for the thread

    EXPECT_TRUE(sut.IsStopRequested());
    EXPECT_FALSE(sut.IsThreadJoined());
    released.set_value();
}

TEST(PthreadActivityTest, JoinWaitsForTheEndOfTheThread)
{
    bool ended = false;  // plain: the join orders it
    TestActivity sut([&ended](TestActivity& activity) {
        RunUntilStopped(activity);
        ended = true;
    });
    sut.StartThread();
    sut.stop(nullptr);
    sut.JoinThread();

    EXPECT_TRUE(ended);
    EXPECT_TRUE(sut.IsThreadJoined());
    EXPECT_EQ(sut.GetNativeHandle(), pthread_t{});
    EXPECT_TRUE(sut.IsStopRequested());
}

TEST(PthreadActivityTest, JoinWithoutAThreadAndJoinTwiceAreHarmless)
{
    TestActivity sut([](TestActivity&) {});
    sut.JoinThread();
    sut.StartThread();
    sut.JoinThread();
    sut.JoinThread();
    EXPECT_TRUE(sut.IsThreadJoined());
}

TEST(PthreadActivityTest, SeveralThreadsMayJoinAtTheSameTime)
{
    TestActivity sut(&RunUntilStopped);
    sut.StartThread();
    {
        std::vector<std::jthread> joiners;
        for (int i = 0; i < 4; ++i) {
            joiners.emplace_back([&sut] {
                sut.JoinThread();
                EXPECT_TRUE(sut.IsThreadJoined());
            });
        }
        sut.stop(nullptr);
    }
    EXPECT_TRUE(sut.IsThreadJoined());
}

TEST(PthreadActivityTest, StartOfARunningThreadDoesNothing)
{
    std::atomic<int> runs{0};
    TestActivity sut([&runs](TestActivity& activity) {
        ++runs;
        activity.StartThread();  // nor does it from within, even while somebody waits for the end
        RunUntilStopped(activity);
    });
    sut.StartThread();
    const pthread_t handle = sut.GetNativeHandle();
    sut.StartThread();
    sut.start(nullptr);
    EXPECT_TRUE(pthread_equal(sut.GetNativeHandle(), handle));
    sut.stop(nullptr);
    sut.JoinThread();
    EXPECT_EQ(runs, 1);
}

TEST(PthreadActivityTest, StartAfterAJoinForgetsTheStopRequestAndTheException)
{
    const LogCapture log;  // the ERROR line of the first run
    int runs = 0;
    TestActivity sut([&runs](TestActivity& activity) {
        EXPECT_EQ(activity.GetThreadException(), nullptr);
        RunUntilStopped(activity);
        if (++runs == 1) {
            throw std::runtime_error("first run");
        }
    });
    for (int run = 1; run <= 3; ++run) {
        sut.start(nullptr);
        EXPECT_FALSE(sut.IsStopRequested());
        sut.stop(nullptr);
        sut.JoinThread();
        EXPECT_EQ(runs, run);
        EXPECT_EQ(sut.GetThreadException() != nullptr, run == 1);
    }
}

TEST(PthreadActivityTest, ThreadThatHasEndedUnjoinedIsStartedAgain)
{
    std::atomic<int> runs{0};
    TestActivity sut([&runs](TestActivity&) { ++runs; });
    while (runs < 3) {
        sut.StartThread();
        std::this_thread::yield();
    }
    sut.JoinThread();
    EXPECT_TRUE(sut.IsThreadJoined());
}

TEST(PthreadActivityTest, StopBeforeTheStartHoldsForTheRunThatFollows)
{
    bool requested = false;
    TestActivity sut([&requested](TestActivity& activity) { requested = activity.IsStopRequested(); });
    sut.stop(nullptr);
    EXPECT_TRUE(sut.IsStopRequested());
    sut.StartThread();
    sut.JoinThread();
    EXPECT_TRUE(requested);

    sut.StartThread();
    sut.JoinThread();
    EXPECT_FALSE(requested) << "an old request was taken for a new one";

    sut.stop(nullptr);
    sut.StartThread();
    sut.JoinThread();
    EXPECT_TRUE(requested) << "a request between a join and the next start was lost";
}

TEST(PthreadActivityTest, ThreadCannotJoinItself)
{
    std::string message;
    TestActivity sut([&message](TestActivity& activity) {
        try {
            activity.JoinThread();
        } catch (const Exception& exception) {
            message = exception.GetMessage();
        }
    });
    sut.StartThread();
    sut.JoinThread();
    EXPECT_NE(message.find("Activity sut was told to join its own thread"), std::string::npos) << message;
}

TEST(PthreadActivityTest, ExceptionThatLeavesRunIsLoggedAndKept)
{
    const LogCapture log;
    TestActivity sut([](TestActivity&) { throw std::out_of_range("segment 799"); });
    sut.StartThread();
    sut.JoinThread();

    ASSERT_NE(sut.GetThreadException(), nullptr);
    EXPECT_THROW(std::rethrow_exception(sut.GetThreadException()), std::out_of_range);
    EXPECT_EQ(GetMessage(sut.GetThreadException()), "segment 799");
    const auto lines = log.GetLines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, log4cplus::ERROR_LOG_LEVEL);
    EXPECT_NE(lines[0].message.find("activity sut was ended by std::out_of_range \"segment 799\""), std::string::npos)
        << lines[0].message;
}

TEST(PthreadActivityTest, LineOfAFrameworkExceptionSaysWhereItComesFrom)
{
    const LogCapture log;
    TestActivity sut([](TestActivity&) {
        Exception exception("no mirror");
        exception.SetFileName("mirror.cpp");
        exception.SetFunctionName("Find");
        exception.SetLineNumber(42);
        throw exception;
    });
    sut.StartThread();
    sut.JoinThread();

    const auto lines = log.GetLines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].message.find("brisk::Exception \"no mirror\" from Find at mirror.cpp:42."), std::string::npos)
        << lines[0].message;
}

TEST(PthreadActivityTest, ExceptionOfAnyTypeIsKept)
{
    const LogCapture log;
    TestActivity sut([](TestActivity&) { throw 42; });
    sut.StartThread();
    sut.JoinThread();
    EXPECT_THROW(std::rethrow_exception(sut.GetThreadException()), int);
    ASSERT_EQ(log.GetLines().size(), 1U);
    EXPECT_EQ(log.GetLines()[0].level, log4cplus::ERROR_LOG_LEVEL);
}

TEST(PthreadActivityTest, ThreadMayEndByPthreadExit)
{
    const LogCapture log;
    TestActivity sut([](TestActivity&) { pthread_exit(nullptr); });
    for (int run = 0; run < 2; ++run) {
        sut.StartThread();
        sut.JoinThread();
        EXPECT_TRUE(sut.IsThreadJoined());
        EXPECT_EQ(sut.GetThreadException(), nullptr);
    }
    EXPECT_TRUE(log.GetLines().empty());
}

TEST(PthreadActivityTest, StartThrowsWhenTheSystemGivesNoThreadAndMayBeTriedAgain)
{
    bool has_run = false;
    TestActivity sut([&has_run](TestActivity&) { has_run = true; });
    {
        const NoThreads no_threads;
        EXPECT_THROW(sut.StartThread(), Exception);
        EXPECT_TRUE(sut.IsThreadJoined());
        sut.JoinThread();
    }
    EXPECT_FALSE(has_run);
    sut.StartThread();
    sut.JoinThread();
    EXPECT_TRUE(has_run);
}

TEST(PthreadActivityTest, DestructionOfARunningActivitySaysSoAndWaitsForTheThread)
{
    const LogCapture log;
    const auto signs = std::make_shared<ForgottenActivity::Signs>();
    auto sut = std::make_unique<ForgottenActivity>(signs);
    sut->StartThread();
    signs->started.get_future().wait();
    sut.reset();

    EXPECT_TRUE(signs->ended);
    const auto lines = log.GetLines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, log4cplus::ERROR_LOG_LEVEL);
    EXPECT_NE(lines[0].message.find("Activity forgotten is being destroyed while its thread is still running"),
              std::string::npos)
        << lines[0].message;
}

}  // namespace brisk
