#include "reportData.hpp"
#include "support/quietLog.hpp"
#include "surfaceLog.hpp"

#include <lumo/mirrorsim/geometry.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <numeric>

namespace lumo::ravelctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Modal coordinates of 1 um are this much surface.
const double NM_PER_UM_OF_MODE = 1000.0 / std::sqrt(static_cast<double>(mirrorsim::NUM_PACT));

/// Two recorders side by side, of 2 modes and of 1, with a sample every 10 ms: mode m of sample k is 10 k + m.
struct TwoRecorders
{
    TwoRecorders(int num_samples, int capacity, bool loopback) : first("first"), second("second")
    {
        test::QuietLog();
        first.Init(capacity, 2);
        second.Init(capacity, 1);
        first.Start(loopback, 0);
        second.Start(loopback, 0);
        for (int k = 0; k < num_samples; ++k) {
            const std::vector<float> values = {10.0F * static_cast<float>(k), 10.0F * static_cast<float>(k) + 1.0F,
                                               10.0F * static_cast<float>(k) + 2.0F};
            first.AddSample(0.01 * k, values.data());
            second.AddSample(0.01 * k, values.data() + 2);
        }
    }

    ravelcore::Recorder first;
    ravelcore::Recorder second;
};

std::vector<double> ValuesOf(const RecordedModes& modes, std::int64_t sample, std::size_t first, std::size_t end)
{
    std::vector<double> values;
    modes.ForModes(sample, first, end, [&](std::size_t mode, double value) {
        EXPECT_EQ(mode, first + values.size());
        values.push_back(value);
    });
    return values;
}

TEST(ReportDataTest, RecordersOfSeveralSlicesAreReadAsOne)
{
    const TwoRecorders recorders(5, 8, false);
    const RecordedModes sut({&recorders.first, &recorders.second}, 5, false);
    EXPECT_EQ(sut.GetNumModes(), 3U);
    EXPECT_EQ(sut.GetNumSamples(), 5);
    EXPECT_THAT(ValuesOf(sut, 4, 0, 3), ElementsAre(40.0, 41.0, 42.0));
    EXPECT_THAT(ValuesOf(sut, 3, 1, 3), ElementsAre(31.0, 32.0));
    EXPECT_THAT(ValuesOf(sut, 3, 2, 3), ElementsAre(32.0));
    EXPECT_EQ(sut.FirstAt(0.0), 0);
    EXPECT_EQ(sut.FirstAt(0.03), 3);
    EXPECT_EQ(sut.FirstAt(0.031), 4);
    EXPECT_EQ(sut.FirstAt(1.0), 5);
}

TEST(ReportDataTest, ARecorderThatWentRoundIsReadInTheOrderOfTime)
{
    const TwoRecorders recorders(11, 4, true);
    const RecordedModes sut({&recorders.first, &recorders.second}, 11, true);
    ASSERT_EQ(sut.GetNumSamples(), 4);
    for (int sample = 0; sample < 4; ++sample) {
        EXPECT_NEAR(sut.TimeOf(sample), 0.01 * (7 + sample), 1.0e-12);
        EXPECT_THAT(ValuesOf(sut, sample, 0, 1), ElementsAre(10.0 * (7 + sample)));
    }
    EXPECT_EQ(sut.FirstAt(0.08), 1);
}

TEST(ReportDataTest, TheRmsOfAModeIsInNanometresOfSurface)
{
    const TwoRecorders recorders(5, 8, false);
    const RecordedModes modes({&recorders.first, &recorders.second}, 5, false);
    const std::vector<double> rms = ComputeModeRms(modes, {1, 3});
    ASSERT_EQ(rms.size(), 3U);
    EXPECT_NEAR(rms[0], std::sqrt((10.0 * 10.0 + 20.0 * 20.0) / 2.0) * NM_PER_UM_OF_MODE, 1.0e-9);
    EXPECT_NEAR(rms[2], std::sqrt((12.0 * 12.0 + 22.0 * 22.0) / 2.0) * NM_PER_UM_OF_MODE, 1.0e-9);
    EXPECT_THAT(ComputeModeRms(modes, {3, 3}), IsEmpty());
}

TEST(ReportDataTest, TheModesDensityHoldsTheVarianceOfAllModes)
{
    constexpr int MODES = 37;  // not a whole number of those that are taken at once
    constexpr int SAMPLES = 2048;
    constexpr int LENGTH = 256;
    constexpr double RATE_HZ = 200.0;
    ravelcore::Recorder recorder("modes");
    recorder.Init(SAMPLES, MODES);
    recorder.Start(false, 0);
    std::vector<float> values(MODES);
    for (int k = 0; k < SAMPLES; ++k) {
        for (int mode = 0; mode < MODES; ++mode) {
            // Whole periods in every segment, each mode at a frequency of its own.
            const double phase = 2.0 * std::numbers::pi * (mode + 10) * k / LENGTH;
            values[static_cast<std::size_t>(mode)] = static_cast<float>(5.0 + (mode + 1) * std::sin(phase));
        }
        recorder.AddSample(k / RATE_HZ, values.data());
    }
    const RecordedModes modes({&recorder}, SAMPLES, false);
    const std::vector<double> density = ComputeModeDensity(modes, {100, SAMPLES}, LENGTH, RATE_HZ);
    double expected = 0.0;
    for (int mode = 0; mode < MODES; ++mode) {
        const double power = 0.5 * (mode + 1) * (mode + 1) * NM_PER_UM_OF_MODE * NM_PER_UM_OF_MODE;
        expected += power;
    }
    const double found = std::accumulate(density.begin(), density.end(), 0.0) * RATE_HZ / LENGTH;
    EXPECT_NEAR(found, expected, 1.0e-4 * expected);
}

TEST(ReportDataTest, FramesHoldEachSegmentsMeanAndKnowTheLastOpenOne)
{
    LoopPlan plan;
    plan.cycles = 500;
    plan.open_cycles = 100;
    plan.lead_cycles = 50;
    plan.rate_hz = 100.0;
    SurfaceLog log(plan.cycles);
    std::vector<double> surface_um(mirrorsim::NUM_PACT);
    for (std::int64_t cycle = 0; cycle < plan.cycles; ++cycle) {
        for (std::size_t i = 0; i < surface_um.size(); ++i) {
            // Segment s: s nm, tilted by its own actuators, and the cycle's number.
            const double tilt_nm = static_cast<double>(i % 3) - 1.0;
            surface_um[i] = 1.0e-3 * (static_cast<double>(i / 3) + tilt_nm + static_cast<double>(cycle));
        }
        log.Add(cycle, surface_um);
    }
    const MirrorFrames sut = ChooseFrames(log, plan);
    ASSERT_LE(sut.time_s.size(), 60U);
    ASSERT_GE(sut.time_s.size(), 50U);
    ASSERT_TRUE(sut.before.has_value());
    EXPECT_DOUBLE_EQ(sut.time_s[*sut.before], 0.99);
    EXPECT_DOUBLE_EQ(sut.time_s.back(), 4.99);
    for (std::size_t frame = 0; frame < sut.time_s.size(); ++frame) {
        ASSERT_EQ(sut.piston_nm[frame].size(), static_cast<std::size_t>(mirrorsim::NUM_SEGMENTS));
        EXPECT_NEAR(sut.piston_nm[frame][700], 700.0 + 100.0 * sut.time_s[frame], 1.0e-3);
        EXPECT_TRUE(frame == 0 || sut.time_s[frame] > sut.time_s[frame - 1]);
    }
    double squares = 0.0;
    for (std::size_t i = 0; i < surface_um.size(); ++i) {
        squares += surface_um[i] * surface_um[i] * 1.0e6;
    }
    const double rms_nm = std::sqrt(squares / mirrorsim::NUM_PACT);
    EXPECT_NEAR(sut.rms_nm.back(), rms_nm, 1.0e-3 * rms_nm);
}

TEST(ReportDataTest, ARunThatNeverHadTheLoopOpenHasNoFrameBefore)
{
    LoopPlan plan;
    plan.cycles = 100;
    plan.lead_cycles = 25;
    plan.rate_hz = 100.0;
    SurfaceLog log(plan.cycles);
    const std::vector<double> surface_um(mirrorsim::NUM_PACT);
    for (std::int64_t cycle = 0; cycle < 10; ++cycle) {  // and ended early
        log.Add(cycle, surface_um);
    }
    const MirrorFrames sut = ChooseFrames(log, plan);
    EXPECT_FALSE(sut.before.has_value());
    EXPECT_DOUBLE_EQ(sut.time_s.front(), 0.0);
    EXPECT_DOUBLE_EQ(sut.time_s.back(), 0.09);
}

}  // namespace
}  // namespace lumo::ravelctl
