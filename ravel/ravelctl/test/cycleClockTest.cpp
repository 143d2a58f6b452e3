#include "cycleClock.hpp"

#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

using Clock = CycleClock::Clock;
using std::chrono::nanoseconds;

constexpr double RATE_HZ = 5000.0;
constexpr nanoseconds PERIOD{200'000};

/// Not a wait for luck: what follows is about an instant that has passed, whenever that is.
void LetPass(Clock::time_point instant)
{
    while (Clock::now() <= instant) {
    }
}

TEST(CycleClockTest, NoInstantIsReturnedBeforeItHasCome)
{
    CycleClock sut(RATE_HZ, true);
    sut.Start();
    for (int cycle = 0; cycle < 50; ++cycle) {
        const Clock::time_point instant = sut.AwaitNext();
        ASSERT_GE(Clock::now(), instant);
    }
}

TEST(CycleClockTest, TheFirstInstantIsAtLeastOnePeriodAfterTheStart)
{
    CycleClock sut(RATE_HZ, true);
    const Clock::time_point before = Clock::now();
    sut.Start();
    EXPECT_GE(sut.AwaitNext() - before, PERIOD);
}

TEST(CycleClockTest, InstantsStayOnOneGridHoweverManyAreMissed)
{
    CycleClock sut(RATE_HZ, true);
    sut.Start();
    const Clock::time_point first = sut.AwaitNext();
    const std::int64_t missed_at_first = sut.GetMissed();
    for (int cycle = 1; cycle <= 50; ++cycle) {
        const Clock::time_point instant = sut.AwaitNext();
        const std::int64_t ticks = cycle + sut.GetMissed() - missed_at_first;
        ASSERT_EQ(instant - first, ticks * PERIOD) << "cycle " << cycle;
        if (cycle % 10 == 0) {
            LetPass(instant + 3 * PERIOD);
        }
    }
}

TEST(CycleClockTest, InstantsThatHavePassedAreLeftOutAndCounted)
{
    CycleClock sut(RATE_HZ, true);
    sut.Start();
    const Clock::time_point before = sut.AwaitNext();
    const std::int64_t missed_before = sut.GetMissed();
    LetPass(before + 7 * PERIOD);
    const Clock::time_point after = sut.AwaitNext();
    EXPECT_GE(after, before + 8 * PERIOD);
    EXPECT_GE(sut.GetMissed() - missed_before, 7);
}

TEST(CycleClockTest, ARateWithoutAWholeNumberOfNanosecondsDoesNotDrift)
{
    constexpr double THIRDS_HZ = 3000.0;  // 333333.33 ns
    CycleClock sut(THIRDS_HZ, true);
    sut.Start();
    const Clock::time_point first = sut.AwaitNext();
    const std::int64_t missed_at_first = sut.GetMissed();
    for (int cycle = 1; cycle <= 60; ++cycle) {
        const Clock::time_point instant = sut.AwaitNext();
        const auto ticks = static_cast<double>(cycle + sut.GetMissed() - missed_at_first);
        // Each of the two instants is rounded to a nanosecond; a sum of rounded periods would be 20 ns off at the end.
        ASSERT_NEAR(static_cast<double>(nanoseconds(instant - first).count()), ticks * 1.0e9 / THIRDS_HZ, 1.0);
    }
}

TEST(CycleClockTest, WithoutPacingEveryInstantIsNowAndNoneIsMissed)
{
    CycleClock sut(1.0, false);
    sut.Start();
    Clock::time_point previous = Clock::now();
    for (int cycle = 0; cycle < 1000; ++cycle) {  // paced, they would take a quarter of an hour
        const Clock::time_point instant = sut.AwaitNext();
        ASSERT_GE(instant, previous);
        previous = instant;
    }
    EXPECT_LE(previous, Clock::now());
    EXPECT_EQ(sut.GetMissed(), 0);
}

TEST(CycleClockTest, StartForgetsWhatWasMissed)
{
    CycleClock sut(RATE_HZ, true);
    sut.Start();
    LetPass(Clock::now() + 5 * PERIOD);
    sut.AwaitNext();
    ASSERT_GT(sut.GetMissed(), 0);
    sut.Start();
    EXPECT_EQ(sut.GetMissed(), 0);
}

}  // namespace
}  // namespace lumo::ravelctl
