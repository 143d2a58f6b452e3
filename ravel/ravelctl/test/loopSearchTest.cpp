#include "error.hpp"
#include "loopSearch.hpp"
#include "support/thrown.hpp"
#include "support/whiteNoise.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace lumo::ravelctl {
namespace {

using test::WhiteNoise;
constexpr Plant PLANT{0.4866, 1, 0.002};
constexpr double LAG_KI = PLANT.lag_coefficient / PLANT.period_s;  // puts the zero on the pole
constexpr std::int64_t SKIPPED = 500;

ravelcore::PidFilterContext MakeChannel(double kp, double ki, double kd = 0.0)
{
    const std::vector<float> params = {static_cast<float>(kp),
                                       static_cast<float>(ki),
                                       static_cast<float>(kd),
                                       0.0F,
                                       1.0F,
                                       0.1F,
                                       10.0F,
                                       -1.0e6F,
                                       1.0e6F,
                                       30.0F};
    std::vector<ravelcore::PidFilterContext> channels;
    EXPECT_TRUE(ravelcore::PidFilterCopy(static_cast<float>(PLANT.period_s), 0.0F, params, channels));
    return channels.front();
}

/// Falls with f^-4 above 0.3 Hz, as wind does.
std::vector<double> Wind(std::size_t count, double scale, unsigned seed)
{
    std::vector<double> wind = WhiteNoise(count, scale, seed);
    const double share = 2.0 * std::numbers::pi * 0.3 * PLANT.period_s;
    double first = 0.0;
    double second = 0.0;
    for (double& value : wind) {
        first += share * (value - first);
        second += share * (first - second);
        value = second;
    }
    return wind;
}

std::vector<double> Sum(std::vector<double> left, const std::vector<double>& right)
{
    for (std::size_t i = 0; i < left.size(); ++i) {
        left[i] += right[i];
    }
    return left;
}

/// What is measured in a loop of the core's own channel, mean square.
double ResidualOfTheChannelItself(const std::vector<double>& disturbance, ravelcore::PidFilterContext channel)
{
    double position = -disturbance.front();
    double late = position;
    double squares = 0.0;
    channel.ui = static_cast<float>(position);
    for (std::size_t k = 0; k < disturbance.size(); ++k) {
        const double measured = disturbance[k] + position;
        squares += k < static_cast<std::size_t>(SKIPPED) ? 0.0 : measured * measured;
        const float command = ravelcore::PidCompute(channel, static_cast<float>(measured), 0.0F, 0.0F, false);
        position += PLANT.lag_coefficient * (late - position);
        late = static_cast<double>(command);
    }
    return squares / static_cast<double>(disturbance.size() - SKIPPED);
}

TEST(LoopSearchTest, TheResidualIsTheOneOfALoopWithTheCoresChannel)
{
    const std::vector<double> disturbance = Sum(Wind(4000, 30.0, 1), WhiteNoise(4000, 0.02, 2));
    for (const auto& channel : {MakeChannel(0.5, 200.0), MakeChannel(0.8, 250.0), MakeChannel(0.3, 150.0, 0.002)}) {
        const double expected = ResidualOfTheChannelItself(disturbance, channel);
        EXPECT_NEAR(ComputeResidual(disturbance, SKIPPED, channel, PLANT), expected, 1e-3 * expected);
    }
}

TEST(LoopSearchTest, EveryLoopOfABatchIsTheOneOfItsChannel)
{
    const std::vector<double> disturbance = Sum(Wind(2000, 30.0, 1), WhiteNoise(2000, 0.02, 2));
    LoopBatch batch;
    for (std::size_t i = 0; i < batch.size(); ++i) {
        batch[i] = MakeChannel(0.1 * static_cast<double>(i + 1), 150.0 + 10.0 * static_cast<double>(i));
    }
    const ResidualBatch residuals = ComputeResiduals(disturbance, SKIPPED, batch, PLANT);
    for (std::size_t i = 0; i < batch.size(); ++i) {
        EXPECT_EQ(residuals[i], ComputeResidual(disturbance, SKIPPED, batch[i], PLANT)) << i;
    }
}

TEST(LoopSearchTest, TheResidualOfWhiteNoiseIsTheMeanOfTheRejectionSquaredOverAllFrequencies)
{
    const ravelcore::PidFilterContext channel = MakeChannel(0.8, LAG_KI);
    double mean = 0.0;
    constexpr int POINTS = 20000;
    for (int i = 0; i < POINTS; ++i) {
        const double frequency_hz = (i + 0.5) / POINTS * 0.5 / PLANT.period_s;
        mean += std::norm(RejectionResponse(channel, PLANT, frequency_hz)) / POINTS;
    }
    const std::vector<double> noise = WhiteNoise(200'000, 0.1, 7);
    EXPECT_NEAR(ComputeResidual(noise, SKIPPED, channel, PLANT), 0.01 * mean, 0.02 * 0.01 * mean);
}

TEST(LoopSearchTest, WhatIsMeasuredIsTheSurfaceAndTheNoiseOfTheMomentWhichDoNotDependOnEachOther)
{
    // The surface alone: the disturbance through the loop, and the noise through it less the noise of the moment.
    const std::vector<double> wind = Wind(200'000, 30.0, 1);
    const std::vector<double> noise = WhiteNoise(wind.size(), 0.02, 2);
    const ravelcore::PidFilterContext channel = MakeChannel(0.8, LAG_KI);
    const double measured = ComputeResidual(Sum(wind, noise), SKIPPED, channel, PLANT);
    const double through_noise = ComputeResidual(noise, SKIPPED, channel, PLANT);
    const double surface = ComputeResidual(wind, SKIPPED, channel, PLANT) + through_noise - 0.02 * 0.02;
    EXPECT_NEAR(measured - 0.02 * 0.02, surface, 0.02 * surface);
    EXPECT_GT(through_noise, 1.2 * 0.02 * 0.02) << "the loop adds to the noise";
}

TEST(LoopSearchTest, ALoopThatRunsAwayLeavesInfinitelyMuch)
{
    const std::vector<double> noise = WhiteNoise(20'000, 0.1, 7);
    EXPECT_TRUE(std::isinf(ComputeResidual(noise, SKIPPED, MakeChannel(6.0, LAG_KI), PLANT)));
}

TEST(LoopSearchTest, NoiseAloneGetsTheLowestGains)
{
    const LoopSearch sut(MakeChannel(0.5, LAG_KI), PLANT, {});
    const Margins margins = ComputeMargins(sut.FindBest(WhiteNoise(20'000, 0.1, 3), SKIPPED), PLANT);
    EXPECT_LT(margins.crossover_hz, 1.5 * LoopSearch::LowestCrossover(PLANT));
}

TEST(LoopSearchTest, DriftAloneGetsTheHighestGainsThatTheDemandsAllow)
{
    std::vector<double> drift(5000);
    for (std::size_t k = 0; k < drift.size(); ++k) {
        drift[k] = 1e-3 * static_cast<double>(k);
    }
    for (const LoopDemands& demands : {LoopDemands{}, LoopDemands{60.0, 6.0, 2.0, {}}, LoopDemands{30.0, 12.0, 3.0, {}},
                                       LoopDemands{30.0, 3.0, 1.4, {}}, LoopDemands{45.0, 6.0, 2.0, 8.0}}) {
        const LoopSearch sut(MakeChannel(0.5, LAG_KI), PLANT, demands);
        const ravelcore::PidFilterContext best = sut.FindBest(drift, SKIPPED);
        EXPECT_TRUE(MeetsDemands(best, PLANT, demands));
        const double kp = static_cast<double>(best.kp);
        EXPECT_FALSE(MeetsDemands(WithGains(best, 1.01 * kp, static_cast<double>(best.ki)), PLANT, demands));
        const double least = ComputeResidual(drift, SKIPPED, best, PLANT);
        const double slower =
            ComputeResidual(drift, SKIPPED, WithGains(best, 0.9 * kp, static_cast<double>(best.ki)), PLANT);
        EXPECT_LT(least, slower);
    }
}

TEST(LoopSearchTest, BetweenTheTwoTheBestGainsAreFoundAmongAllThatMeetTheDemands)
{
    const std::vector<double> disturbance = Sum(Wind(9000, 30.0, 1), WhiteNoise(9000, 0.2, 2));
    const LoopSearch sut(MakeChannel(0.5, LAG_KI), PLANT, {});
    const ravelcore::PidFilterContext best = sut.FindBest(disturbance, SKIPPED);
    const double crossover_hz = ComputeMargins(best, PLANT).crossover_hz;
    EXPECT_GT(crossover_hz, 2.0 * LoopSearch::LowestCrossover(PLANT));
    EXPECT_LT(crossover_hz, 20.0);
    const double least = ComputeResidual(disturbance, SKIPPED, best, PLANT);
    for (double kp = 0.02; kp < 1.0; kp *= 1.1) {
        for (const double place : {0.5, 0.7, 1.0, 1.4}) {
            const ravelcore::PidFilterContext other = MakeChannel(kp, place * LAG_KI);
            if (MeetsDemands(other, PLANT, {})) {
                EXPECT_LE(least, 1.005 * ComputeResidual(disturbance, SKIPPED, other, PLANT)) << kp << ", " << place;
            }
        }
    }
}

TEST(LoopSearchTest, WhatElseAChannelHasIsKept)
{
    const ravelcore::PidFilterContext channel = MakeChannel(0.2, LAG_KI, 0.001);
    const ravelcore::PidFilterContext best = LoopSearch(channel, PLANT, {}).FindBest(Wind(5000, 30.0, 1), SKIPPED);
    EXPECT_EQ(best.kd, channel.kd);
    EXPECT_EQ(best.freq, channel.freq);
    EXPECT_EQ(best.uhigh, channel.uhigh);
    EXPECT_NE(best.kp, channel.kp);
    EXPECT_TRUE(MeetsDemands(best, PLANT, {}));
}

TEST(LoopSearchTest, DemandsThatNoGainsMeetAreRefused)
{
    EXPECT_EQ(
        test::ThrownLine<InputError>([] {
            LoopSearch(MakeChannel(0.5, LAG_KI), PLANT, {45.0, 6.0, 2.0, 0.5});
        }),
        "--max-crossover: expected more than 1 Hz, the lowest crossover that is proposed at this rate, but got 0.5 "
        "Hz");
    EXPECT_EQ(test::ThrownLine<InputError>([] {
                  LoopSearch(MakeChannel(0.5, LAG_KI), PLANT, {45.0, 60.0, 2.0, {}});
              }),
              "no gains leave a phase margin of 45 deg, a gain margin of 60 dB and a sensitivity peak of 2 with a "
              "crossover of 1 Hz, the lowest that is proposed; demand less");
}

}  // namespace
}  // namespace lumo::ravelctl
