#include "fileFacts.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace lumo::ravelctl {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr float NAN_VALUE = std::numeric_limits<float>::quiet_NaN();
constexpr float INF_VALUE = std::numeric_limits<float>::infinity();

void ExpectStep(const TimeStep& step, std::int64_t row, double time_s, double length_s)
{
    EXPECT_EQ(step.row, row);
    EXPECT_EQ(step.time_s, time_s);
    EXPECT_EQ(step.length_s, length_s);
}

TEST(FileFactsTest, EvenTimeStampsHaveAPeriodAndNeitherJitterNorGaps)
{
    const std::vector<double> stamps = {1.0, 1.25, 1.5, 1.75};
    const TimeFacts facts = FindTimeFacts(stamps);
    EXPECT_EQ(facts.samples, 4);
    EXPECT_EQ(facts.first_s, 1.0);
    EXPECT_EQ(facts.last_s, 1.75);
    EXPECT_EQ(facts.period_s, 0.25);
    EXPECT_EQ(facts.jitter_rms_s, 0.0);
    EXPECT_EQ(facts.jitter_max_s, 0.0);
    EXPECT_EQ(facts.not_finite, 0);
    EXPECT_FALSE(facts.first_bad_row);
    EXPECT_THAT(facts.gaps, IsEmpty());
    EXPECT_THAT(facts.back, IsEmpty());
}

TEST(FileFactsTest, ThePeriodIsTheMedianStepWhateverTheOrderOfTheSteps)
{
    EXPECT_EQ(FindTimeFacts(std::vector<double>{0, 8, 9, 11}).period_s, 2.0) << "of steps 8, 1 and 2";
    EXPECT_EQ(FindTimeFacts(std::vector<double>{0, 8, 9, 13, 15}).period_s, 3.0) << "of steps 8, 1, 4 and 2";
    EXPECT_EQ(FindTimeFacts(std::vector<double>{3, 7}).period_s, 4.0);
}

TEST(FileFactsTest, JitterIsMeasuredFromThePeriodAndLeavesGapsAside)
{
    // Steps of 4, 4, 4, 5, 2, 4, and a gap.
    const TimeFacts facts = FindTimeFacts(std::vector<double>{0, 4, 8, 12, 17, 19, 23, 123});
    EXPECT_EQ(facts.period_s, 4.0);
    EXPECT_EQ(facts.jitter_max_s, 2.0);
    EXPECT_DOUBLE_EQ(facts.jitter_rms_s, std::sqrt((1.0 + 4.0) / 6.0));
    ASSERT_THAT(facts.gaps, SizeIs(1));
    ExpectStep(facts.gaps[0], 6, 23.0, 100.0);
}

TEST(FileFactsTest, AStepOfOneAndAHalfPeriodsIsNoGapAndALongerOneIs)
{
    const TimeFacts facts = FindTimeFacts(std::vector<double>{0, 2, 4, 6, 9, 11, 14.5});
    EXPECT_EQ(facts.period_s, 2.0);
    ASSERT_THAT(facts.gaps, SizeIs(1));
    ExpectStep(facts.gaps[0], 5, 11.0, 3.5);
    EXPECT_EQ(facts.jitter_max_s, 1.0);
}

TEST(FileFactsTest, TimeStampsThatGoBackOrStandStillAreTold)
{
    const TimeFacts facts = FindTimeFacts(std::vector<double>{0, 1, 2, 2, 3, 1, 2, 3});
    EXPECT_EQ(facts.period_s, 1.0);
    ASSERT_THAT(facts.back, SizeIs(2));
    ExpectStep(facts.back[0], 2, 2.0, 0.0);
    ExpectStep(facts.back[1], 4, 3.0, -2.0);
    EXPECT_THAT(facts.gaps, IsEmpty());
    EXPECT_EQ(facts.jitter_max_s, 0.0) << "a step back is no jitter";
}

TEST(FileFactsTest, TimeStampsThatMostlyGoBackHaveNoPeriodAndSoNoGaps)
{
    const TimeFacts facts = FindTimeFacts(std::vector<double>{9, 8, 7, 60});
    EXPECT_FALSE(facts.period_s);
    EXPECT_THAT(facts.back, SizeIs(2));
    EXPECT_THAT(facts.gaps, IsEmpty());
    EXPECT_EQ(facts.jitter_rms_s, 0.0);
}

TEST(FileFactsTest, TimeStampsThatAreNoNumbersAreCountedAndLeftAside)
{
    const TimeFacts facts = FindTimeFacts(std::vector<double>{0, 1, NOT_A_NUMBER, 3, 4, 5, INFINITY, 7, 8});
    EXPECT_EQ(facts.not_finite, 2);
    EXPECT_EQ(facts.first_bad_row, 2);
    EXPECT_EQ(facts.period_s, 1.0);
    EXPECT_EQ(facts.jitter_max_s, 0.0);
    EXPECT_THAT(facts.gaps, IsEmpty());
    EXPECT_THAT(facts.back, IsEmpty());
}

TEST(FileFactsTest, OneTimeStampHasNoPeriodAndNoneHasNothing)
{
    const TimeFacts one = FindTimeFacts(std::vector<double>{5.0});
    EXPECT_EQ(one.samples, 1);
    EXPECT_EQ(one.first_s, 5.0);
    EXPECT_EQ(one.last_s, 5.0);
    EXPECT_FALSE(one.period_s);
    const TimeFacts none = FindTimeFacts({});
    EXPECT_EQ(none.samples, 0);
    EXPECT_FALSE(none.period_s);
}

TEST(FileFactsTest, ValuesThatAreNotFiniteAreCountedAndTheFirstIsFound)
{
    const std::vector<float> values = {1, 2, 3, 4, 5, INF_VALUE, NAN_VALUE, 8, -INF_VALUE};
    const ValueFacts facts = FindValueFacts({values, 3, 3});
    EXPECT_EQ(facts.not_finite, 3);
    EXPECT_EQ(facts.first_row, 1);
    EXPECT_EQ(facts.first_col, 2);
    EXPECT_EQ(facts.first_value, INF_VALUE);
    EXPECT_EQ(FindValueFacts({std::span(values).first(5), 1, 5}).not_finite, 0);
}

TEST(FileFactsTest, StatisticsAreThoseOfTheColumnsThatWereAskedFor)
{
    const std::vector<float> values = {1, 10, -3,  //
                                       2, 10, -4,  //
                                       3, 10, -8,  //
                                       6, 10, 3};
    const std::vector<ColumnFacts> facts = FindColumnFacts({values, 4, 3}, {2, 0});
    ASSERT_THAT(facts, SizeIs(2));
    EXPECT_EQ(facts[0].column, 2);
    EXPECT_EQ(facts[0].min, -8.0);
    EXPECT_EQ(facts[0].max, 3.0);
    EXPECT_EQ(facts[0].mean, -3.0);
    EXPECT_DOUBLE_EQ(facts[0].rms, std::sqrt(98.0 / 4.0));
    EXPECT_DOUBLE_EQ(facts[0].deviation, std::sqrt(62.0 / 4.0));
    EXPECT_EQ(facts[1].column, 0);
    EXPECT_EQ(facts[1].min, 1.0);
    EXPECT_EQ(facts[1].max, 6.0);
    EXPECT_EQ(facts[1].mean, 3.0);
    EXPECT_DOUBLE_EQ(facts[1].rms, std::sqrt(50.0 / 4.0));
    EXPECT_DOUBLE_EQ(facts[1].deviation, std::sqrt(14.0 / 4.0));
    EXPECT_EQ(facts[0].not_finite + facts[1].not_finite, 0);
}

TEST(FileFactsTest, ASmallDeviationFromALargeMeanIsNotLost)
{
    std::vector<float> values;
    for (int i = 0; i < 100'000; ++i) {
        values.push_back(i % 2 == 0 ? 8'000'000.0F : 8'000'001.0F);
    }
    const ColumnFacts facts = FindColumnFacts({values, 100'000, 1}, {0}).front();
    EXPECT_DOUBLE_EQ(facts.mean, 8'000'000.5);
    EXPECT_DOUBLE_EQ(facts.deviation, 0.5);
}

TEST(FileFactsTest, StatisticsLeaveAsideWhatIsNotFinite)
{
    const std::vector<float> values = {INF_VALUE, NAN_VALUE, 4, NAN_VALUE, 2, -INF_VALUE};
    const std::vector<ColumnFacts> facts = FindColumnFacts({values, 3, 2}, {0, 1});
    EXPECT_EQ(facts[0].not_finite, 1);
    EXPECT_EQ(facts[0].min, 2.0);
    EXPECT_EQ(facts[0].max, 4.0);
    EXPECT_EQ(facts[0].mean, 3.0);
    EXPECT_EQ(facts[0].deviation, 1.0);
    EXPECT_EQ(facts[1].not_finite, 3);
    for (const double none : {facts[1].min, facts[1].max, facts[1].mean, facts[1].rms, facts[1].deviation}) {
        EXPECT_TRUE(std::isnan(none));
    }
}

}  // namespace
}  // namespace lumo::ravelctl
