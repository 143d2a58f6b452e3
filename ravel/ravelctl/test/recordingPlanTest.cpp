#include "error.hpp"
#include "recordingPlan.hpp"
#include "support/thrown.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <utility>

namespace lumo::ravelctl {
namespace {

constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();
constexpr double ENDLESS = std::numeric_limits<double>::infinity();

/// Options of a run of `cycles` cycles, 500 a second.
RunOptions OptionsOf(std::int64_t cycles)
{
    RunOptions options;
    options.modes = 20;
    options.duration_s = static_cast<double>(cycles) / options.rate_hz;
    return options;
}

RecordingPlan Plan(const RunOptions& options)
{
    return PlanRecording(options, PlanRun(options));
}

std::string Refusal(const RunOptions& options)
{
    return test::ThrownLine<InputError>([&] { Plan(options); });
}

TEST(RecordingPlanTest, TheDefaultIsTheModesOfEveryCycle)
{
    const RecordingPlan plan = Plan(OptionsOf(1000));
    EXPECT_TRUE(plan.modes);
    EXPECT_FALSE(plan.es || plan.pact || plan.loopback);
    EXPECT_EQ(plan.decimation, 1);
    EXPECT_EQ(plan.capacity, 1000);
}

TEST(RecordingPlanTest, WhatIsToBeRecordedReachesThePlan)
{
    for (int kinds = 0; kinds < 8; ++kinds) {
        RunOptions options = OptionsOf(100);
        options.record.modes = (kinds & 1) != 0;
        options.record.es = (kinds & 2) != 0;
        options.record.pact = (kinds & 4) != 0;
        const RecordingPlan plan = Plan(options);
        EXPECT_EQ(plan.modes, options.record.modes) << kinds;
        EXPECT_EQ(plan.es, options.record.es) << kinds;
        EXPECT_EQ(plan.pact, options.record.pact) << kinds;
    }
}

TEST(RecordingPlanTest, DecimationTakesOneSampleOfAsManyWholeCycles)
{
    for (const auto& [decimation, capacity] : {std::pair(2, 500), std::pair(3, 333), std::pair(7, 142),
                                               std::pair(501, 1), std::pair(999, 1), std::pair(1000, 1)}) {
        RunOptions options = OptionsOf(1000);
        options.record.decimation = decimation;
        const RecordingPlan plan = Plan(options);
        EXPECT_EQ(plan.decimation, decimation);
        EXPECT_EQ(plan.capacity, capacity) << decimation;
        EXPECT_FALSE(plan.loopback);
    }
}

TEST(RecordingPlanTest, ADecimationThatRecordsNothingIsRefused)
{
    for (const int decimation : {0, -1, 1001, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        RunOptions options = OptionsOf(1000);
        options.record.decimation = decimation;
        EXPECT_EQ(Refusal(options),
                  "--record-decimation: expected 1 to the run's 1000 cycles but got " + std::to_string(decimation));
    }
}

TEST(RecordingPlanTest, TheLastSecondsAreKeptByARecorderThatGoesRound)
{
    struct Case
    {
        double last_s;
        int decimation;
        int capacity;
    };
    for (const Case& c : {Case{1.0, 1, 500}, Case{1.0, 2, 250}, Case{0.25, 3, 42}, Case{0.003, 1, 2},
                          Case{1.0e-9, 1, 1}, Case{0.002, 100, 1}}) {
        RunOptions options = OptionsOf(1000);
        options.record.last_s = c.last_s;
        options.record.decimation = c.decimation;
        const RecordingPlan plan = Plan(options);
        EXPECT_EQ(plan.capacity, c.capacity) << c.last_s << " s, one in " << c.decimation;
        EXPECT_TRUE(plan.loopback);
    }
}

TEST(RecordingPlanTest, MoreSecondsThanTheRunHasAreTheWholeRun)
{
    for (const double last_s : {2.0, 2.1, 1.0e300, ENDLESS}) {
        RunOptions options = OptionsOf(1000);
        options.record.last_s = last_s;
        EXPECT_EQ(Plan(options).capacity, 1000) << last_s;
        options.record.decimation = 3;
        EXPECT_EQ(Plan(options).capacity, 333) << last_s;
        options.record.decimation = 600;  // 1.67 rounds to 2, but only one is ever taken
        EXPECT_EQ(Plan(options).capacity, 1) << last_s;
    }
}

TEST(RecordingPlanTest, SecondsThatAreNoneAreRefused)
{
    for (const auto& [last_s, text] :
         {std::pair(0.0, "0"), std::pair(-1.5, "-1.5"), std::pair(NOT_A_NUMBER, "nan"), std::pair(-ENDLESS, "-inf")}) {
        RunOptions options = OptionsOf(1000);
        options.record.last_s = last_s;
        EXPECT_EQ(Refusal(options), std::string("--record-last: expected seconds above 0 but got ") + text);
    }
}

/// As many samples as the limit lets pass, and one more; the limit is 2^31 - 1 values.
struct Limit
{
    const char* name;
    bool RecordOptions::*what;
    int modes;
    std::int64_t most_samples;
    const char* refusal;
};

class RecordingLimitTest : public testing::TestWithParam<Limit>
{
protected:
    static RunOptions OptionsFor(std::int64_t cycles)
    {
        RunOptions options;
        options.rate_hz = 5000.0;
        options.modes = GetParam().modes;
        options.record.modes = false;
        options.record.*GetParam().what = true;
        options.duration_s = static_cast<double>(cycles) / options.rate_hz;
        return options;
    }
};

TEST_P(RecordingLimitTest, IsMetByTheLargestRecordingThatFitsAndBrokenByOneSampleMore)
{
    RunOptions options = OptionsFor(GetParam().most_samples);
    EXPECT_EQ(Plan(options).capacity, GetParam().most_samples);
    options = OptionsFor(GetParam().most_samples + 1);
    EXPECT_EQ(Refusal(options), std::string("--duration: ") + GetParam().refusal +
                                    " are more than the 2147483647 values that a recording holds; run for a shorter "
                                    "time, or record with --record-decimation or --record-last");
}

TEST_P(RecordingLimitTest, IsOfTheSamplesThatAreKeptAndNotOfTheCycles)
{
    RunOptions options = OptionsFor(2 * GetParam().most_samples);
    options.record.decimation = 2;
    EXPECT_EQ(Plan(options).capacity, GetParam().most_samples);
    options.record.decimation = 1;
    options.record.last_s = 1.0;
    EXPECT_EQ(Plan(options).capacity, 5000);
}

INSTANTIATE_TEST_SUITE_P(
    All, RecordingLimitTest,
    testing::Values(Limit{"modes", &RecordOptions::modes, 2390, 898528, "898529 samples of 2390 modes"},
                    Limit{"es", &RecordOptions::es, 20, 149504, "149505 samples of 14364 edge-sensor values"},
                    Limit{"pact", &RecordOptions::pact, 20, 448513, "448514 samples of 4788 actuator values"}),
    [](const testing::TestParamInfo<Limit>& limit) { return limit.param.name; });

TEST(RecordingPlanTest, SlicesThatFitTheirRecordersButNotOneFileSideBySideAreRefused)
{
    RunOptions options;
    options.rate_hz = 5000.0;
    options.modes = 2390;
    options.workers = 2;
    options.duration_s = 898529.0 / options.rate_hz;
    EXPECT_EQ(
        Refusal(options),
        "--duration: 898529 samples of 2390 modes are more than the 2147483647 values that a recording holds; run "
        "for a shorter time, or record with --record-decimation or --record-last");
}

/// A sample of 20 modes by 2 workers is four files of 20 floats and two stamps each.
constexpr std::uint64_t MODES_BYTES = 4 * 20 * 4 + 4 * 2 * 8;
constexpr std::uint64_t ES_BYTES = 14364 * 4 + 8;
constexpr std::uint64_t PACT_BYTES = 4788 * 4 + 8;

TEST(RecordingPlanTest, TheMemoryOfTheRecordersIsThatOfTheirSamplesAndStamps)
{
    RecordingPlan plan;
    plan.capacity = 100;
    EXPECT_EQ(plan.BytesToRecord(20, 2), 100 * MODES_BYTES);
    EXPECT_EQ(plan.BytesToRecord(20, 1), 100 * (4 * 20 * 4 + 4 * 8));
    plan.es = true;
    EXPECT_EQ(plan.BytesToRecord(20, 2), 100 * (MODES_BYTES + ES_BYTES));
    plan.pact = true;
    EXPECT_EQ(plan.BytesToRecord(20, 2), 100 * (MODES_BYTES + ES_BYTES + PACT_BYTES));
    plan.modes = false;
    EXPECT_EQ(plan.BytesToRecord(20, 2), 100 * (ES_BYTES + PACT_BYTES));
    plan.es = plan.pact = false;
    EXPECT_EQ(plan.BytesToRecord(20, 2), 0U);
}

TEST(RecordingPlanTest, TheMemoryOfRecordersBeyondFourGigabytesIsNotCutOff)
{
    RecordingPlan plan;
    plan.capacity = 898528;
    EXPECT_EQ(plan.BytesToRecord(2390, 1), 34'388'463'616U);  // 898528 * (4 * 2390 * 4 + 4 * 8)
    EXPECT_EQ(plan.BytesToSave(2390, 1), 25'769'783'040U);    // 898528 * 2390 * 4 * 3
}

TEST(RecordingPlanTest, SavingTakesTheCopiesOfTheLargestFile)
{
    RecordingPlan plan;
    plan.capacity = 100;
    EXPECT_EQ(plan.BytesToSave(20, 1), 100 * 20 * 4 * 3U);
    EXPECT_EQ(plan.BytesToSave(20, 2), 100 * 20 * 4 * 5U);
    plan.pact = true;
    EXPECT_EQ(plan.BytesToSave(20, 2), 100 * 4788 * 4 * 3U);
    plan.es = true;
    EXPECT_EQ(plan.BytesToSave(20, 2), 100 * 14364 * 4 * 3U);
    plan.loopback = true;
    EXPECT_EQ(plan.BytesToSave(20, 2), 100 * 14364 * 4 * 4U);
    plan.es = plan.pact = false;
    EXPECT_EQ(plan.BytesToSave(20, 1), 100 * 20 * 4 * 4U);
    EXPECT_EQ(plan.BytesToSave(20, 2), 100 * 20 * 4 * 5U);
    plan.modes = false;
    EXPECT_EQ(plan.BytesToSave(20, 2), 0U);
}

}  // namespace
}  // namespace lumo::ravelctl
