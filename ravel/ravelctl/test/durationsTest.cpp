#include "durations.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

using std::chrono::microseconds;
using std::chrono::nanoseconds;

/// `count` durations of 1, 2, 3 ... us, in an order that is not the ascending one.
Durations Shuffled(int count)
{
    constexpr int STEP = 7919;  // prime: visits every value once
    Durations durations(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        durations.Add(microseconds(1 + (i * STEP) % count));
    }
    return durations;
}

TEST(DurationsTest, PercentilesAreValuesOfTheSeriesByNearestRank)
{
    const auto percentiles = Shuffled(1000).ComputePercentiles();
    ASSERT_TRUE(percentiles);
    EXPECT_EQ(percentiles->min, 1.0);
    EXPECT_EQ(percentiles->p50, 500.0);
    EXPECT_EQ(percentiles->p99, 990.0);
    EXPECT_EQ(percentiles->p999, 999.0);
    EXPECT_EQ(percentiles->max, 1000.0);
}

TEST(DurationsTest, TheOneInTenThousandIsAPercentileOfItsOwn)
{
    const auto percentiles = Shuffled(20000).ComputePercentiles();
    ASSERT_TRUE(percentiles);
    EXPECT_EQ(percentiles->p999, 19980.0);
    EXPECT_EQ(percentiles->p9999, 19998.0);
    EXPECT_EQ(percentiles->max, 20000.0);
}

TEST(DurationsTest, RanksAreRoundedUp)
{
    const auto percentiles = Shuffled(11).ComputePercentiles();
    ASSERT_TRUE(percentiles);
    EXPECT_EQ(percentiles->p50, 6.0);
    EXPECT_EQ(percentiles->p99, 11.0);
    EXPECT_EQ(percentiles->p999, 11.0);
}

TEST(DurationsTest, OneDurationIsEveryPercentile)
{
    Durations sut(1);
    sut.Add(nanoseconds(1500));
    const auto percentiles = sut.ComputePercentiles();
    ASSERT_TRUE(percentiles);
    EXPECT_EQ(percentiles->min, 1.5);
    EXPECT_EQ(percentiles->p50, 1.5);
    EXPECT_EQ(percentiles->p999, 1.5);
    EXPECT_EQ(percentiles->max, 1.5);
}

TEST(DurationsTest, AnEmptySeriesHasNoPercentiles)
{
    EXPECT_FALSE(Durations(10).ComputePercentiles());
}

TEST(DurationsTest, WhatIsBeyondTheCapacityIsDropped)
{
    Durations sut(2);
    for (int i = 1; i <= 5; ++i) {
        sut.Add(microseconds(i));
    }
    EXPECT_THAT(sut.GetValuesUs(), testing::ElementsAre(1.0F, 2.0F));
    EXPECT_TRUE(sut.IsFull());
    EXPECT_FALSE(Durations(1).IsFull());
}

}  // namespace
}  // namespace lumo::ravelctl
