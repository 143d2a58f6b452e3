#include "surfaceLog.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace lumo::ravelctl {
namespace {

constexpr auto NUM_PACT = static_cast<std::size_t>(mirrorsim::NUM_PACT);

/// One mode: the first actuator alone.
mirrorsim::ControlModes OneMode()
{
    mirrorsim::ControlModes modes;
    modes.num_modes = 1;
    modes.pact2modes.assign(NUM_PACT, 0.0F);
    modes.pact2modes[0] = 1.0F;
    return modes;
}

TEST(SurfaceLogTest, ShortRunsAreKeptWhole)
{
    SurfaceLog sut(100);
    const std::vector<double> surface(NUM_PACT, 0.0);
    for (std::int64_t cycle = 0; cycle < 100; ++cycle) {
        sut.Add(cycle, surface);
    }
    EXPECT_EQ(sut.GetNumSamples(), 100);
}

TEST(SurfaceLogTest, LongRunsAreSpreadEvenlyOverTheSamplesThereAre)
{
    constexpr std::int64_t CYCLES = 10'001;
    SurfaceLog sut(CYCLES);
    const std::vector<double> surface(NUM_PACT, 0.0);
    for (std::int64_t cycle = 0; cycle < CYCLES; ++cycle) {
        sut.Add(cycle, surface);
    }
    ASSERT_LE(sut.GetNumSamples(), static_cast<int>(SurfaceLog::MAX_SAMPLES));
    ASSERT_GT(sut.GetNumSamples(), 1);
    const std::vector<std::int64_t>& cycles = sut.GetCycles();
    const std::int64_t step = cycles[1] - cycles[0];
    for (std::size_t i = 0; i < cycles.size(); ++i) {
        EXPECT_EQ(cycles[i], static_cast<std::int64_t>(i) * step);
    }
    EXPECT_GT(cycles.back() + step, CYCLES - 1);
}

TEST(SurfaceLogTest, TotalIsOverAllPointsAndControlledOverWhatTheModesDescribe)
{
    SurfaceLog sut(10);
    std::vector<double> surface(NUM_PACT, 1.0);
    surface[0] = 3.0;
    for (std::int64_t cycle = 0; cycle < 10; ++cycle) {
        sut.Add(cycle, surface);
    }
    const auto rms = sut.ComputeRms(0, 10, OneMode());
    ASSERT_TRUE(rms);
    EXPECT_NEAR(rms->total, std::sqrt((mirrorsim::NUM_PACT - 1 + 9.0) / mirrorsim::NUM_PACT), 1e-6);
    EXPECT_NEAR(rms->controlled, std::sqrt(9.0 / mirrorsim::NUM_PACT), 1e-6);
}

TEST(SurfaceLogTest, OnlyTheCyclesAskedForCount)
{
    SurfaceLog sut(10);
    for (std::int64_t cycle = 0; cycle < 10; ++cycle) {
        sut.Add(cycle, std::vector<double>(NUM_PACT, cycle < 5 ? 2.0 : 7.0));
    }
    EXPECT_NEAR(sut.ComputeRms(0, 5, OneMode())->total, 2.0, 1e-6);
    EXPECT_NEAR(sut.ComputeRms(5, 10, OneMode())->total, 7.0, 1e-6);
}

TEST(SurfaceLogTest, WithoutASampleThereIsNoFigure)
{
    SurfaceLog sut(10);
    EXPECT_FALSE(sut.ComputeRms(0, 10, OneMode()));
    sut.Add(0, std::vector<double>(NUM_PACT, 1.0));
    EXPECT_FALSE(sut.ComputeRms(5, 10, OneMode()));
    EXPECT_FALSE(sut.ComputeRms(0, 0, OneMode()));
}

}  // namespace
}  // namespace lumo::ravelctl
