#include "error.hpp"
#include "gains.hpp"
#include "support/thrown.hpp"

#include <lumo/mirrorsim/geometry.hpp>
#include <lumo/mirrorsim/mirror.hpp>
#include <lumo/ravelcore/recorder.hpp>
#include <lumo/ravelcore/taskEdc.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace lumo::ravelctl {
namespace {

constexpr int NUM_MODES = 3;
constexpr double STROKE_UM = 500.0;

/// Modes of which only MODES2PACT is filled: largest elements 0.5, 0.25 and 0.1.
mirrorsim::ControlModes MakeModes()
{
    mirrorsim::ControlModes modes;
    modes.num_modes = NUM_MODES;
    modes.modes2pact.assign(static_cast<std::size_t>(mirrorsim::NUM_PACT) * NUM_MODES, 0.01F);
    modes.modes2pact[7 * NUM_MODES + 0] = -0.5F;
    modes.modes2pact[9 * NUM_MODES + 1] = 0.25F;
    modes.modes2pact[2000 * NUM_MODES + 2] = 0.1F;
    return modes;
}

/// The plant as the simulated mirror really has it at this rate.
Plant PlantAt(double rate_hz)
{
    mirrorsim::MirrorConfig config;
    config.period_s = 1.0 / rate_hz;
    const mirrorsim::Mirror mirror(mirrorsim::Geometry(), config);
    return {mirror.GetLagCoefficient(), mirrorsim::Mirror::COMMAND_DELAY_CYCLES, config.period_s};
}

/// The channels as the control task derives them from the parameters.
std::vector<ravelcore::PidFilterContext> DeriveChannels(double rate_hz)
{
    const Plant plant = PlantAt(rate_hz);
    ravelcore::Recorder in("in");
    ravelcore::Recorder out("out");
    ravelcore::TaskEdc task(0, mirrorsim::NUM_PACT, mirrorsim::NUM_ES, NUM_MODES, in, out, 1);
    task.Initialize();
    for (ravelcore::PidFilterContext& channel : task.m_pid_filters) {
        channel.sampling_period = static_cast<float>(plant.period_s);
    }
    task.SetPidFilters(DesignGains(DesignFor(rate_hz), plant, MakeModes(), STROKE_UM));
    return task.m_pid_filters;
}

TEST(GainsTest, AtFullRateTheLoopCrossesOverAtTwentyHertzWithItsMargins)
{
    const ravelcore::PidFilterContext channel = DeriveChannels(500.0).front();
    const Margins margins = ComputeMargins(channel, PlantAt(500.0));
    RecordProperty("phase_margin_deg", std::to_string(margins.phase_margin_deg));
    RecordProperty("gain_margin_db", std::to_string(margins.gain_margin_db));
    EXPECT_FLOAT_EQ(channel.sampling_period, 0.002F);
    EXPECT_NEAR(margins.crossover_hz, 20.0, 0.1);
    EXPECT_GE(margins.phase_margin_deg, 45.0);
    EXPECT_GE(margins.gain_margin_db, 6.0);
}

TEST(GainsTest, TheMarginsHoldAtEveryRate)
{
    for (const double rate_hz : {1.0, 10.0, 100.0, 250.0, 500.0, 1000.0, 5000.0}) {
        const Margins margins = ComputeMargins(DeriveChannels(rate_hz).front(), PlantAt(rate_hz));
        EXPECT_GE(margins.phase_margin_deg, 45.0) << rate_hz << " Hz";
        EXPECT_GE(margins.gain_margin_db, 6.0) << rate_hz << " Hz";
        EXPECT_NEAR(margins.crossover_hz, 20.0 * std::min(1.0, rate_hz / 500.0), 0.005 * margins.crossover_hz);
    }
}

TEST(GainsTest, TheLoopIsAnIntegratorBehindItsDelay)
{
    // The zero cancels the lag: one cycle's fraction is (1 - z^-1) L / z^-2, the same at all frequencies.
    const Plant plant = PlantAt(500.0);
    const ravelcore::PidFilterContext channel = DeriveChannels(500.0).front();
    const double expected = 2.0 * std::sin(std::numbers::pi * 20.0 * 0.002);
    for (const double frequency_hz : {0.1, 1.0, 10.0, 100.0, 240.0}) {
        const std::complex<double> delay = std::polar(1.0, -2.0 * std::numbers::pi * frequency_hz * 0.002);
        const std::complex<double> fraction =
            OpenLoopResponse(channel, plant, frequency_hz) * (1.0 - delay) / (delay * delay);
        EXPECT_LT(std::abs(fraction - expected), 1.0e-3) << frequency_hz << " Hz: " << fraction;
    }
}

TEST(GainsTest, AModeAtItsLimitTakesItsMostLoadedActuatorToTheStroke)
{
    const mirrorsim::ControlModes modes = MakeModes();
    const std::vector<ravelcore::PidFilterContext> channels = DeriveChannels(500.0);
    for (std::size_t mode = 0; mode < NUM_MODES; ++mode) {
        double largest_um = 0.0;
        for (std::size_t i = mode; i < modes.modes2pact.size(); i += NUM_MODES) {
            largest_um =
                std::max(largest_um, static_cast<double>(std::abs(modes.modes2pact[i] * channels[mode].uhigh)));
        }
        EXPECT_NEAR(largest_um, STROKE_UM, 0.01) << mode;
        EXPECT_EQ(channels[mode].ulow, -channels[mode].uhigh) << mode;
    }
}

TEST(GainsTest, BothAntiWindupPathsActWithTheTrackingTime)
{
    const ravelcore::PidFilterContext channel = DeriveChannels(500.0).front();
    EXPECT_NEAR(channel.a0, 0.002 / 0.02, 1e-6);
    EXPECT_NEAR(channel.ci, 0.002 / 0.02, 1e-6);
}

TEST(GainsTest, ChangedGainsAreThoseOfAnInitialisedChannelAndTheStateStays)
{
    constexpr float PARAMS[] = {0.7F, 11.0F, 0.003F, 4.0F, 0.9F, 0.05F, 8.0F, -3.0F, 2.0F, 25.0F};
    std::vector<ravelcore::PidFilterContext> fresh;
    ravelcore::PidFilterCopy(0.002F, 0.25F, std::vector<float>(std::begin(PARAMS), std::end(PARAMS)), fresh);
    ravelcore::PidFilterContext channel = DeriveChannels(500.0).front();
    channel.feed_forward_offset = 0.25F;
    channel.ui = 1.0F;
    channel.ud = 2.0F;
    channel.last_meas = 3.0F;
    channel.internal1 = 4.0F;
    channel.internal2 = 5.0F;
    ChangeGains(PARAMS, channel);
    ravelcore::PidFilterContext expected = fresh.front();
    expected.ui = 1.0F;
    expected.ud = 2.0F;
    expected.last_meas = 3.0F;
    expected.internal1 = 4.0F;
    expected.internal2 = 5.0F;
    EXPECT_EQ(ravelcore::PidFilterPrint(channel), ravelcore::PidFilterPrint(expected));
}

/// The largest position on the way to 100 um, with the commands held to `rate_um` per cycle.
double LargestOnTheWay(double rate_um, bool feed_shortfall)
{
    ravelcore::PidFilterContext channel = DeriveChannels(500.0).front();
    const double lag = PlantAt(500.0).lag_coefficient;
    double position = 0.0;
    double command = 0.0;
    double acting = 0.0;
    double shortfall = 0.0;
    double largest = 0.0;
    for (int cycle = 0; cycle < 1000; ++cycle) {
        const float arw_input = feed_shortfall ? static_cast<float>(shortfall) : 0.0F;
        const double wanted =
            ravelcore::PidCompute(channel, static_cast<float>(position), 100.0F, arw_input, cycle == 0);
        position += lag * (acting - position);
        acting = command;
        command = std::clamp(wanted, command - rate_um, command + rate_um);
        shortfall = command - wanted;
        largest = std::max(largest, position);
    }
    return largest;
}

TEST(GainsTest, WhatActuatorsFellShortOfKeepsALongWayFromOvershootingMoreThanAFreeOne)
{
    const double free = LargestOnTheWay(1.0e6, true);
    EXPECT_LT(free, 120.0);
    EXPECT_LE(LargestOnTheWay(2.0, true), free);
    EXPECT_GT(LargestOnTheWay(2.0, false), 150.0) << "without the anti-windup input";
}

std::vector<float> TwoChannels()
{
    const std::vector<float> one = {1.0F, 30.0F, 0.0F, 50.0F, 1.0F, 0.02F, 10.0F, -5.0F, 5.0F, 30.0F};
    std::vector<float> two = one;
    two.insert(two.end(), one.begin(), one.end());
    return two;
}

std::string GainsRefusal(std::size_t param, float value)
{
    std::vector<float> params = TwoChannels();
    params.at(10 + param) = value;
    return test::ThrownLine<InputError>([&params] { CheckGains(params); });
}

TEST(GainsTest, ALoopWithoutMarginsIsRefusedWithItsModeAndOneThatNeverCrossesIsNot)
{
    const Plant plant = PlantAt(500.0);
    std::vector<float> params = DesignGains(DesignFor(500.0), plant, MakeModes(), STROKE_UM);
    const auto channels = [&params, &plant] {
        std::vector<ravelcore::PidFilterContext> all;
        ravelcore::PidFilterCopy(static_cast<float>(plant.period_s), 0.0F, params, all);
        return all;
    };
    EXPECT_NO_THROW(CheckStable(channels(), plant));
    params[10] = 0.0F;  // kp of mode 1
    EXPECT_NO_THROW(CheckStable(channels(), plant));
    params[20] *= 10.0F;  // kp of mode 2
    EXPECT_EQ(test::ThrownLine<InputError>([&] { CheckStable(channels(), plant); }).substr(0, 7), "mode 2:");
}

TEST(GainsTest, GainsWithWhichNoChannelCanWorkAreRefusedWithModeAndParameter)
{
    EXPECT_NO_THROW(CheckGains(TwoChannels()));
    EXPECT_EQ(GainsRefusal(2, -1.0F), "mode 1: kd: expected 0 or above but got -1");
    EXPECT_EQ(GainsRefusal(5, -0.5F), "mode 1: tt: expected 0 or above but got -0.5");
    EXPECT_EQ(GainsRefusal(6, 0.0F), "mode 1: n: expected more than 0 but got 0");
    EXPECT_EQ(GainsRefusal(9, 0.0F), "mode 1: freq: expected more than 0 but got 0");
    EXPECT_EQ(GainsRefusal(7, 6.0F), "mode 1: ulow: expected at most uhigh = 5 but got 6");
    EXPECT_EQ(GainsRefusal(8, -6.0F), "mode 1: ulow: expected at most uhigh = -6 but got -5");
}

}  // namespace
}  // namespace lumo::ravelctl
