#include "modeDisturbance.hpp"
#include "support/whiteNoise.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace lumo::ravelctl {
namespace {

using test::WhiteNoise;
constexpr double PERIOD_S = 0.002;

std::vector<double> Sum(std::vector<double> left, const std::vector<double>& right)
{
    for (std::size_t i = 0; i < left.size(); ++i) {
        left[i] += right[i];
    }
    return left;
}

/// Where the plant stands in each cycle, from `position` on.
std::vector<double> Positions(const std::vector<double>& command, double position, const Plant& plant)
{
    std::vector<double> positions;
    positions.reserve(command.size());
    for (std::size_t k = 0; k < command.size(); ++k) {
        positions.push_back(position);
        const auto delay = static_cast<std::size_t>(plant.delay_cycles);
        if (k >= delay) {
            position += plant.lag_coefficient * (command[k - delay] - position);
        }
    }
    return positions;
}

TEST(ModeDisturbanceTest, WhatTheCommandsDidIsTakenAwayWhateverTheyWereAndWhereverTheActuatorsStood)
{
    const std::vector<double> disturbance = WhiteNoise(300, 2.0, 1);
    const std::vector<double> command = WhiteNoise(300, 5.0, 2);
    for (const Plant& plant : {Plant{0.49, 1, PERIOD_S}, Plant{0.2, 0, PERIOD_S}, Plant{1.0, 3, PERIOD_S}}) {
        const std::vector<double> measured = Sum(disturbance, Positions(command, 7.0, plant));
        const std::vector<double> derived = DeriveDisturbance(measured, command, plant);
        const auto forgotten = static_cast<std::size_t>(CyclesToForget(plant));
        ASSERT_EQ(derived.size(), disturbance.size() - forgotten);
        for (std::size_t i = 0; i < derived.size(); ++i) {
            ASSERT_NEAR(derived[i], disturbance[i + forgotten], 1e-5)
                << "cycle " << i << ", delay " << plant.delay_cycles;
        }
    }
}

TEST(ModeDisturbanceTest, WithAnotherPlantTheCommandsStayInIt)
{
    const Plant plant{0.49, 1, PERIOD_S};
    const std::vector<double> command = WhiteNoise(300, 1.0, 2);
    const std::vector<double> measured = Positions(command, 0.0, plant);
    double largest = 0.0;
    for (const double value : DeriveDisturbance(measured, command, {0.49, 2, PERIOD_S})) {
        largest = std::max(largest, std::abs(value));
    }
    EXPECT_GT(largest, 0.1);
}

TEST(ModeDisturbanceTest, NothingIsLeftOfFewerCyclesThanItTakesToForget)
{
    const Plant plant{0.49, 1, PERIOD_S};
    const auto forgotten = static_cast<std::size_t>(CyclesToForget(plant));
    const std::vector<double> values(forgotten, 1.0);
    EXPECT_TRUE(DeriveDisturbance(values, values, plant).empty());
    const std::vector<double> one_more(forgotten + 1, 1.0);
    EXPECT_EQ(DeriveDisturbance(one_more, one_more, plant).size(), 1U);
}

TEST(ModeDisturbanceTest, TheNoiseOfAWhiteSeriesIsAllOfIt)
{
    for (const unsigned seed : {1U, 2U, 3U}) {
        EXPECT_NEAR(EstimateNoiseVariance(WhiteNoise(9000, 0.3, seed)), 0.09, 0.05 * 0.09) << "seed " << seed;
    }
}

TEST(ModeDisturbanceTest, SlowDisturbancesDriftAndALineAreNotTakenForNoise)
{
    std::vector<double> series = WhiteNoise(9000, 0.01, 4);
    const std::vector<double> steps = WhiteNoise(series.size(), 0.01, 5);
    double speed = 0.0;
    double slow = 0.0;
    for (std::size_t k = 0; k < series.size(); ++k) {  // falls with f^-4, as wind does
        speed += 0.02 * (steps[k] - speed);
        slow += 0.02 * (speed - slow);
        series[k] += 100.0 * slow + 1e-3 * static_cast<double>(k) +
                     0.5 * std::sin(2.0 * std::numbers::pi * 0.4 * static_cast<double>(k));
    }
    EXPECT_NEAR(EstimateNoiseVariance(series), 1e-4, 0.1 * 1e-4);
}

TEST(ModeDisturbanceTest, ASeriesThatDoesNotMoveHasNoNoiseAndAShortOneTellsNone)
{
    EXPECT_EQ(EstimateNoiseVariance(std::vector<double>(2000, 3.0)), 0.0);
    EXPECT_EQ(EstimateNoiseVariance(WhiteNoise(40, 1.0, 1)), 0.0);
}

}  // namespace
}  // namespace lumo::ravelctl
