#include "cycleThread.hpp"
#include "support/quietLog.hpp"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <thread>

namespace lumo::ravelctl {
namespace {

TEST(CycleThreadTest, ItWorksInAThreadOfItsOwnAndEndsWithItsWork)
{
    test::QuietLog();
    std::promise<void> may_end;
    std::thread::id worked_in;
    CycleThread sut({}, [&](const std::function<bool()>& /*is_stopped*/) {
        worked_in = std::this_thread::get_id();
        may_end.get_future().wait();
    });
    sut.StartThread();
    EXPECT_FALSE(sut.HasEnded());
    may_end.set_value();
    sut.JoinThread();
    EXPECT_TRUE(sut.HasEnded());
    EXPECT_EQ(sut.GetThreadException(), nullptr);
    EXPECT_NE(worked_in, std::this_thread::get_id());
    EXPECT_NE(worked_in, std::thread::id());
    EXPECT_EQ(sut.GetPlace().priority, 0);
    EXPECT_GE(sut.GetPageFaults(), 0);
}

TEST(CycleThreadTest, AnExceptionIsKeptAndIsAnEndToo)
{
    test::QuietLog();
    CycleThread sut({}, [](const std::function<bool()>& /*is_stopped*/) { throw std::runtime_error("lost"); });
    sut.StartThread();
    while (!sut.HasEnded()) {  // as those do who wait for it
        std::this_thread::yield();
    }
    sut.JoinThread();
    EXPECT_NE(sut.GetThreadException(), nullptr);
    EXPECT_EQ(sut.GetPageFaults(), -1);
}

TEST(CycleThreadTest, TheWorkIsToldThatItIsToStop)
{
    test::QuietLog();
    CycleThread sut({}, [](const std::function<bool()>& is_stopped) {
        while (!is_stopped()) {
            std::this_thread::yield();
        }
    });
    sut.StartThread();
    EXPECT_FALSE(sut.HasEnded());
    sut.stop(nullptr);
    sut.JoinThread();
    EXPECT_TRUE(sut.HasEnded());
}

TEST(CycleThreadTest, ItMayGoBeforeItsWorkIsDone)
{
    test::QuietLog();
    std::atomic<bool> was_stopped{false};
    {
        CycleThread sut({}, [&](const std::function<bool()>& is_stopped) {
            while (!is_stopped()) {
                std::this_thread::yield();
            }
            was_stopped = true;
        });
        sut.StartThread();
    }
    EXPECT_TRUE(was_stopped);
}

}  // namespace
}  // namespace lumo::ravelctl
