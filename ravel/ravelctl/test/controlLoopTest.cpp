#include "controlLoop.hpp"
#include "error.hpp"
#include "support/allocationGuard.hpp"
#include "support/recording.hpp"
#include "support/smallLoop.hpp"
#include "support/testFolder.hpp"
#include "support/thrown.hpp"

#include <cblas.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <optional>

namespace lumo::ravelctl {
namespace {

using ravelcore::test::AllocationGuard;
using testing::HasSubstr;

RunOptions MakeOptions()
{
    RunOptions options;
    options.modes = 20;
    options.duration_s = 0.6;
    options.open_loop_s = 0.1;
    options.as_fast_as_possible = true;
    return options;
}

bool Never()
{
    return false;
}

class ControlLoopWorkersTest : public testing::TestWithParam<int>
{
};

TEST_P(ControlLoopWorkersTest, TheCycleThreadNeverAllocatesOpenOrClosed)
{
    RunOptions options = MakeOptions();
    options.workers = GetParam();
    options.as_fast_as_possible = false;  // the wait for the instant is part of the cycle
    test::SmallLoop loop(options);
    loop.Start();
    std::optional<AllocationGuard> guard;
    std::int64_t asked = 0;
    std::int64_t guarded = 0;
    const std::function<bool()> is_stopped = [&] {
        if (asked == 3) {  // what the first cycles need in libraries is theirs to take once
            guard.emplace();
        }
        guarded += guard ? 1 : 0;
        ++asked;
        return false;
    };
    loop.loop.Run(is_stopped);
    const std::int64_t allocations = guard->GetCount();
    EXPECT_EQ(guarded, loop.plan.cycles - 3);
    EXPECT_EQ(allocations, 0);
    EXPECT_GT(loop.plan.open_cycles, 3);
}

INSTANTIATE_TEST_SUITE_P(All, ControlLoopWorkersTest, testing::Values(1, 3));

TEST(ControlLoopTest, WithTheLoopOpenTheActuatorsStayWhereTheyWere)
{
    RunOptions options = MakeOptions();
    test::SmallLoop loop(options);
    loop.Start();
    const auto start = loop.front_end.GetMirror().GetActuatorPositions();
    const std::vector<double> before(start.begin(), start.end());
    std::int64_t cycle = 0;
    loop.loop.Run([&] { return cycle++ == loop.plan.open_cycles; });
    EXPECT_FALSE(loop.loop.GetProgress().closed.load());
    const auto after = loop.front_end.GetMirror().GetActuatorPositions();
    for (std::size_t i = 0; i < before.size(); ++i) {
        ASSERT_NEAR(after[i], before[i], 1.0e-5) << i;  // commands are floats
    }
}

TEST(ControlLoopTest, WhatNoControlledModeDescribesIsHeldForTheWholeRun)
{
    RunOptions options = MakeOptions();
    test::SmallLoop loop(options);
    loop.Start();
    const auto modal = [&loop](std::span<const double> positions, bool controlled) {
        std::vector<double> rest(positions.begin(), positions.end());
        std::vector<double> described(rest.size(), 0.0);
        for (int mode = 0; mode < loop.modes.num_modes; ++mode) {
            double coordinate = 0.0;
            for (std::size_t i = 0; i < rest.size(); ++i) {
                coordinate +=
                    positions[i] *
                    static_cast<double>(loop.modes.pact2modes[static_cast<std::size_t>(mode) * rest.size() + i]);
            }
            for (std::size_t i = 0; i < rest.size(); ++i) {
                described[i] +=
                    coordinate *
                    static_cast<double>(loop.modes.modes2pact[i * static_cast<std::size_t>(loop.modes.num_modes) +
                                                              static_cast<std::size_t>(mode)]);
            }
        }
        for (std::size_t i = 0; i < rest.size(); ++i) {
            rest[i] -= described[i];
        }
        return controlled ? described : rest;
    };
    const std::vector<double> before = modal(loop.front_end.GetMirror().GetActuatorPositions(), false);
    loop.loop.Run(Never);
    const std::vector<double> after = modal(loop.front_end.GetMirror().GetActuatorPositions(), false);
    for (std::size_t i = 0; i < before.size(); ++i) {
        ASSERT_NEAR(after[i], before[i], 2.0e-3) << i;  // float sums, and the rate limit's memory
    }
}

TEST(ControlLoopTest, TheFirstClosedCycleTakesTheMeasuredModesAsReferencesAndThenLeadsThemToZero)
{
    test::SmallLoop loop(MakeOptions());
    loop.Start();
    const test::TestFolder folder;
    loop.loop.Run(Never);
    loop.slices.GetModesInRecorders().at(0)->Save((folder / "modes_in.fits").string());
    const test::Recording modes = test::LoadRecording(folder / "modes_in.fits");
    ASSERT_EQ(modes.rows, loop.plan.cycles);
    const auto rms = [&modes](std::int64_t row) {
        double sum = 0.0;
        for (int mode = 0; mode < modes.cols; ++mode) {
            sum += std::pow(static_cast<double>(modes.At(static_cast<int>(row), mode)), 2);
        }
        return std::sqrt(sum);
    };
    const double at_closing = rms(loop.plan.open_cycles);
    const std::int64_t lead_end = loop.plan.open_cycles + loop.plan.lead_cycles;
    EXPECT_GT(rms(loop.plan.open_cycles + loop.plan.lead_cycles / 8), 0.7 * at_closing) << "led, not dropped";
    EXPECT_LT(rms(lead_end + 50), 0.1 * at_closing);
}

TEST(ControlLoopTest, ARunHasTheSameBitsHoweverManyThreadsTheBlasHadBeforeIt)
{
    std::vector<std::vector<float>> recorded;
    for (const int threads : {1, 2, 4}) {
        openblas_set_num_threads(threads);
        test::SmallLoop loop(MakeOptions());
        loop.Start();
        loop.loop.Run(Never);
        recorded.push_back(loop.slices.GetModesInRecorders().at(0)->GetSamples());
    }
    EXPECT_TRUE(recorded[0] == recorded[1]);
    EXPECT_TRUE(recorded[0] == recorded[2]);
}

TEST(ControlLoopTest, TimeStampsAreTheCyclesSynchronisationTimes)
{
    test::SmallLoop loop(MakeOptions());
    loop.Start();
    const test::TestFolder folder;
    loop.loop.Run(Never);
    loop.slices.GetModesOutRecorders().at(0)->Save((folder / "modes_out.fits").string());
    const test::Recording modes = test::LoadRecording(folder / "modes_out.fits");
    ASSERT_EQ(modes.timestamps.size(), static_cast<std::size_t>(loop.plan.cycles));
    for (std::size_t cycle = 0; cycle < modes.timestamps.size(); ++cycle) {
        ASSERT_EQ(modes.timestamps[cycle], static_cast<double>(cycle) / 500.0);
    }
}

TEST(ControlLoopTest, ItStopsWhenItIsToldToAndBooksWhatWasDone)
{
    test::SmallLoop loop(MakeOptions());
    loop.Start();
    int asked = 0;
    loop.loop.Run([&asked] { return asked++ == 120; });
    EXPECT_EQ(loop.loop.GetProgress().cycles_done.load(), 120);
    EXPECT_EQ(loop.loop.GetCycleTimes().GetValuesUs().size(), 120U);
    EXPECT_EQ(loop.loop.GetExecTimes().GetValuesUs().size(), 120U);
    EXPECT_EQ(loop.loop.GetSurfaceLog().GetNumSamples(), 120);
    EXPECT_TRUE(loop.loop.GetProgress().closed.load());
    EXPECT_GT(loop.loop.GetOpenEsRms(), 0.0);
}

TEST(ControlLoopTest, ALostWorkerEndsTheLoopWithItsReason)
{
    RunOptions options = MakeOptions();
    options.workers = 2;
    test::SmallLoop loop(options);
    // The second slice's task never executes: as a worker that has ended.
    class Failing : public ravelcore::Task
    {
    public:
        Failing() : Task("failing") {}
        void Initialize() override {}
        void Configure(const std::map<std::string, std::string>& /*cfg*/) override {}
        void Execute(double /*time_stamp*/, bool /*first*/) override { throw std::runtime_error("it broke"); }
    };
    Failing failing;
    WorkerGroup workers({loop.slices.GetTasks()[0], &failing}, std::vector<Placement>(2), std::chrono::minutes(1),
                        log4cplus::Logger::getInstance("controlLoopTest"));
    ControlLoop sut(loop.plan, loop.modes, loop.front_end, loop.slices, workers);
    test::QuietLog();
    workers.Start();
    const std::string line = test::ThrownLine<RunError>([&] { sut.Run(Never); });
    EXPECT_THAT(line, HasSubstr("worker1 ended: it broke"));
    // The first worker waits at the gate for one that never comes; the stop must free and join it.
    loop.slices.PrepareStop();
    workers.Stop(true);
}

}  // namespace
}  // namespace lumo::ravelctl
