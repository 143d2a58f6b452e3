#include "error.hpp"
#include "runOptions.hpp"
#include "support/thrown.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace lumo::ravelctl {
namespace {

using test::ThrownLine;
using testing::HasSubstr;

std::string Refusal(const RunOptions& options)
{
    return ThrownLine<InputError>([&] { PlanRun(options); });
}

TEST(RunOptionsTest, TheDefaultsAreTenThousandCyclesWithTheLoopOpenForATenth)
{
    const LoopPlan plan = PlanRun(RunOptions{});
    EXPECT_EQ(plan.cycles, 10000);
    EXPECT_EQ(plan.open_cycles, 1000);
    EXPECT_EQ(plan.lead_cycles, 250);
    EXPECT_EQ(plan.FirstJudgedCycle(), 5500);
    EXPECT_TRUE(plan.paced);
    EXPECT_DOUBLE_EQ(plan.TimeOf(500), 1.0);
}

TEST(RunOptionsTest, ADurationThatIsGivenTakesThePlaceOfTheDefault)
{
    RunOptions options;
    EXPECT_FALSE(options.duration_s);
    EXPECT_EQ(RunOptions::DEFAULT_DURATION_S, 20.0);
    options.duration_s = RunOptions::DEFAULT_DURATION_S;
    EXPECT_EQ(PlanRun(options).cycles, PlanRun(RunOptions{}).cycles);
    options.duration_s = 3.0;
    EXPECT_EQ(PlanRun(options).cycles, 1500);
    EXPECT_EQ(PlanRun(options).open_cycles, 150) << "a tenth of what is given";
}

TEST(RunOptionsTest, TheReferencesAreAtZeroBeforeTheResultIsJudged)
{
    for (const double duration_s : {0.1, 0.5, 1.0, 2.0, 100.0}) {
        for (const double open_s : {0.0, 0.1 * duration_s, 0.9 * duration_s}) {
            RunOptions options;
            options.duration_s = duration_s;
            options.open_loop_s = open_s;
            const LoopPlan plan = PlanRun(options);
            EXPECT_LE(plan.open_cycles + plan.lead_cycles, plan.FirstJudgedCycle()) << duration_s << " " << open_s;
            EXPECT_LT(plan.FirstJudgedCycle(), plan.cycles);
        }
    }
}

TEST(RunOptionsTest, ModesOutOfRangeAreRefusedWithTheRangeAndTheValue)
{
    for (const int modes : {0, -1, 2391}) {
        RunOptions options;
        options.modes = modes;
        EXPECT_EQ(Refusal(options), "--modes: expected 1 to 2390 but got " + std::to_string(modes));
    }
    for (const int modes : {1, 2390}) {
        RunOptions options;
        options.modes = modes;
        EXPECT_NO_THROW(PlanRun(options));
    }
}

TEST(RunOptionsTest, RatesThatCannotBeRunAreRefused)
{
    for (const double rate_hz : {0.0, -500.0, 0.99, 5001.0, std::numeric_limits<double>::quiet_NaN(),
                                 std::numeric_limits<double>::infinity()}) {
        RunOptions options;
        options.rate_hz = rate_hz;
        EXPECT_THAT(Refusal(options), HasSubstr("--rate: expected 1 to 5000 Hz but got ")) << rate_hz;
    }
}

TEST(RunOptionsTest, DurationsOfTooFewOrTooManyCyclesAreRefused)
{
    for (const double duration_s : {0.0, -1.0, 0.0098, 1.0e6, 1.0e7, std::numeric_limits<double>::quiet_NaN()}) {
        RunOptions options;
        options.rate_hz = 5000.0;
        options.duration_s = duration_s;
        EXPECT_THAT(Refusal(options), HasSubstr("--duration: expected ")) << duration_s;
    }
    RunOptions fewest;
    fewest.duration_s = 0.1;
    EXPECT_EQ(PlanRun(fewest).cycles, 50);
}

TEST(RunOptionsTest, AnOpenLoopThatLeavesNoTimeToCloseItIsRefused)
{
    for (const double open_s : {-0.1, 18.1, 20.0, std::numeric_limits<double>::quiet_NaN()}) {
        RunOptions options;
        options.open_loop_s = open_s;
        EXPECT_THAT(Refusal(options), HasSubstr("--open-loop: expected 0 to 18 s but got ")) << open_s;
    }
}

TEST(RunOptionsTest, WorkersWithoutWorkAreRefusedWithANumberThatFits)
{
    RunOptions options;
    options.modes = 5;
    options.workers = 4;  // slices of 2: three of them
    EXPECT_EQ(Refusal(options), "--workers: 5 modes in slices of 2 leave 1 of 4 workers without work; use 3");
    options.workers = 3;
    EXPECT_NO_THROW(PlanRun(options));
    options.workers = 0;
    EXPECT_THAT(Refusal(options), HasSubstr("--workers: expected 1 to 256 but got 0"));
}

TEST(RunOptionsTest, PlacementsThatNoMachineCanGiveAreRefused)
{
    RunOptions options;
    options.workers = 2;
    options.placement.cpus = ParsePlaceChoice("night.toml:9:8: cpus", "1");
    EXPECT_EQ(Refusal(options), "night.toml:9:8: cpus: expected 2 CPUs, one per worker, but got 1 (1)");
    options.placement.cpus = ParsePlaceChoice("--cpus", "1,65000");
    EXPECT_NO_THROW(PlanRun(options)) << "another machine may have it";
    options.placement.priority = 50;
    EXPECT_NO_THROW(PlanRun(options));
    options.as_fast_as_possible = true;
    EXPECT_EQ(Refusal(options),
              "--priority: expected 0 with --as-fast-as-possible but got 50; what never sleeps would let nothing else "
              "run");
}

TEST(RunOptionsTest, TonesThatTheRunCannotMakeAreRefused)
{
    const std::vector<mirrorsim::Tone> bad = {
        {600, 1.0, 0.1}, {-1, 1.0, 0.1},   {0, 251.0, 0.1},
        {0, -1.0, 0.1},  {0, 1.0, 1001.0}, {0, std::numeric_limits<double>::quiet_NaN(), 0.1},
    };
    for (const mirrorsim::Tone& tone : bad) {
        RunOptions options;
        options.tones = {tone};
        EXPECT_THAT(Refusal(options), HasSubstr("--tone: "));
    }
    RunOptions options;
    options.tones = {{599, 250.0, 1000.0}};
    EXPECT_NO_THROW(PlanRun(options));
    options.tones = {{1, 2.0, 2000.0}};
    EXPECT_EQ(Refusal(options), "--tone: amplitude: expected 0 to 1000000 nm but got 2000000") << "as they are typed";
}

}  // namespace
}  // namespace lumo::ravelctl
