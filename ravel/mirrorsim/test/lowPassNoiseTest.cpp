#include "spectrum.hpp"

#include <lumo/mirrorsim/lowPassNoise.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <stdexcept>
#include <vector>

namespace lumo::mirrorsim {
namespace {

constexpr double CORNER_HZ = 0.3;
constexpr double PERIOD_S = 0.002;

/// Mean of PowerDensity over a band.
double ExpectedDensity(const LowPassNoise& noise, double low_hz, double high_hz)
{
    const int num_points = 1000;
    double sum = 0.0;
    for (int i = 0; i < num_points; ++i) {
        sum += noise.PowerDensity(low_hz + (high_hz - low_hz) * (i + 0.5) / num_points);
    }
    return sum / num_points;
}

TEST(LowPassNoiseTest, SpectrumIsFlatBelowTheCornerAndFallsWithTheFourthPowerAbove)
{
    std::mt19937_64 stream(1);
    const LowPassNoise sut(1.0, CORNER_HZ, PERIOD_S, stream);
    const double flat = sut.PowerDensity(0.0);
    EXPECT_NEAR(sut.PowerDensity(0.03) / flat, 1.0, 2e-4);
    EXPECT_NEAR(sut.PowerDensity(0.1) / flat, 1.0, 0.02);
    EXPECT_NEAR(sut.PowerDensity(CORNER_HZ) / flat, 0.5, 1e-4);
    EXPECT_NEAR(sut.PowerDensity(30.0) / sut.PowerDensity(3.0), 1e-4, 0.05e-4);
}

TEST(LowPassNoiseTest, MeasuredSpectrumIsThePowerDensityThatIsPromised)
{
    const double period_s = 0.02;
    std::mt19937_64 stream(2);
    LowPassNoise sut(1.5, CORNER_HZ, period_s, stream);
    std::vector<double> series(std::size_t{1} << 19U);  // 10486 s
    for (double& value : series) {
        value = sut.Step(stream);
    }
    // Narrow enough that the density is much the same across each: every bin counts.
    const double bands_hz[][2] = {{0.01, 0.1}, {0.1, 0.2}, {0.3, 0.4}, {1.0, 1.2}, {3.0, 3.4}, {10.0, 11.0}};
    for (const auto& [low_hz, high_hz] : bands_hz) {
        const BandDensity measured = MeasureBandDensity(series, period_s, low_hz, high_hz);
        const double bound = 5.0 * RelativeDeviation(measured);
        EXPECT_LT(bound, 0.25) << "a bound that would say little";
        EXPECT_NEAR(measured.mean / ExpectedDensity(sut, low_hz, high_hz), 1.0, bound)
            << low_hz << " to " << high_hz << " Hz, " << measured.num_bins << " bins";
    }
}

TEST(LowPassNoiseTest, PowerDensityAddsUpToTheVariance)
{
    std::mt19937_64 stream(3);
    const LowPassNoise sut(1.5, CORNER_HZ, PERIOD_S, stream);
    // 0 to 30 Hz in steps that are fine at the corner, then to half the cycle rate.
    const double variance = 30.0 * ExpectedDensity(sut, 0.0, 30.0) + 220.0 * ExpectedDensity(sut, 30.0, 250.0);
    EXPECT_NEAR(variance, 1.5 * 1.5, 1e-4);
}

TEST(LowPassNoiseTest, NoiseIsStationaryFromTheFirstSampleOn)
{
    const int num_objects = 20000;
    const double rms = 2.0;
    const double period_s = 0.02;
    std::mt19937_64 stream(4);
    std::vector<double> mean_squares(201);  // by cycle, up to 4 s: past the time that the filter remembers
    double mean_square_change = 0.0;        // over the first period
    for (int i = 0; i < num_objects; ++i) {
        LowPassNoise sut(rms, CORNER_HZ, period_s, stream);
        const double first = sut.GetValue();
        mean_squares[0] += first * first / num_objects;
        for (std::size_t cycle = 1; cycle < mean_squares.size(); ++cycle) {
            const double value = sut.Step(stream);
            mean_squares[cycle] += value * value / num_objects;
            mean_square_change += cycle == 1 ? (value - first) * (value - first) / num_objects : 0.0;
        }
    }
    // The mean of n squares of Gaussian values has a relative standard deviation of sqrt(2 / n) = 0.01.
    for (std::size_t cycle = 0; cycle < mean_squares.size(); ++cycle) {
        ASSERT_NEAR(mean_squares[cycle] / (rms * rms), 1.0, 0.05) << "cycle " << cycle;
    }
    // Poles exp(-x +- i x) correlate a sample with the next by cos(x) / cosh(x).
    const double x = std::numbers::sqrt2 * std::numbers::pi * CORNER_HZ * period_s;
    const double correlation = std::cos(x) / std::cosh(x);
    EXPECT_NEAR(mean_square_change / (2.0 * rms * rms * (1.0 - correlation)), 1.0, 0.05);
}

TEST(LowPassNoiseTest, CornersThatTheCycleCannotShowAreRefused)
{
    std::mt19937_64 stream(5);
    EXPECT_THROW(LowPassNoise(1.0, 0.0, PERIOD_S, stream), std::invalid_argument);
    EXPECT_THROW(LowPassNoise(1.0, -0.3, PERIOD_S, stream), std::invalid_argument);
    EXPECT_THROW(LowPassNoise(1.0, 250.0, PERIOD_S, stream), std::invalid_argument);
    EXPECT_THROW(LowPassNoise(1.0, std::nan(""), PERIOD_S, stream), std::invalid_argument);
}

}  // namespace
}  // namespace lumo::mirrorsim
