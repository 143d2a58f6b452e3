#include "spectrum.hpp"

#include <lumo/mirrorsim/disturbance.hpp>
#include <lumo/mirrorsim/sensorMatrix.hpp>
#include <lumo/mirrorsim/smoothShapes.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <stdexcept>
#include <vector>

namespace lumo::mirrorsim {
namespace {

MirrorConfig Calm()
{
    MirrorConfig config;
    config.wind_rms_um = 0.0;
    config.drift_um_per_s = 0.0;
    return config;
}

Eigen::Map<const Eigen::VectorXd> Heights(const Disturbance& disturbance)
{
    return {disturbance.GetHeights().data(), NUM_PACT};
}

double MeanSquare(const Disturbance& disturbance)
{
    return Heights(disturbance).squaredNorm() / NUM_PACT;
}

/// Two columns of unit norm, orthogonal to each other, row-major.
std::vector<float> TwoModes()
{
    std::vector<float> modes(std::size_t{2} * NUM_PACT);
    for (std::size_t i = 0; i < NUM_PACT; ++i) {
        modes[2 * i] = static_cast<float>(1.0 / std::sqrt(NUM_PACT));
        modes[2 * i + 1] = i % 2 == 0 ? modes[2 * i] : -modes[2 * i];
    }
    return modes;
}

double ModalCoordinate(const Disturbance& disturbance, const std::vector<float>& modes, int mode)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < NUM_PACT; ++i) {
        sum += static_cast<double>(modes[2 * i + static_cast<std::size_t>(mode)]) * disturbance.GetHeights()[i];
    }
    return sum;
}

/// Standard deviation of the mean square over a time T, relative: sum over pairs of shapes of
/// 2 variance_i variance_j (their mean product)^2, times the integral of the squared correlation, 3 / (sqrt(2) omega)
/// over both sides, divided by T.
double WindMeanSquareDeviation(const Geometry& geometry, double corner_hz, double duration_s)
{
    const SmoothShapes shapes = ComputeSmoothShapes(geometry);
    const Eigen::MatrixXd products = shapes.heights.transpose() * shapes.heights / NUM_PACT;
    const Eigen::Map<const Eigen::VectorXd> weights(shapes.weights.data(), NUM_SHAPES);
    const Eigen::VectorXd variances = weights.cwiseAbs2();
    const double pairs = variances.dot(products.cwiseAbs2() * variances);
    const double memory_s = 3.0 / (std::numbers::sqrt2 * 2.0 * std::numbers::pi * corner_hz);
    return std::sqrt(2.0 * pairs * memory_s / duration_s);
}

TEST(DisturbanceTest, WindMovesTheSurfaceByItsConfiguredRmsInTheMean)
{
    const Geometry geometry;
    MirrorConfig config = Calm();
    config.wind_rms_um = 1.7;
    config.period_s = 0.2;  // slow cycles make the series long; the corner is still well below their rate
    Disturbance sut(geometry, config, {}, 0);
    const int num_cycles = 10000;
    double mean_square = 0.0;
    for (int cycle = 0; cycle < num_cycles; ++cycle) {
        sut.Step();
        mean_square += MeanSquare(sut) / num_cycles;
    }
    const double deviation = WindMeanSquareDeviation(geometry, config.wind_corner_hz, num_cycles * config.period_s);
    EXPECT_LT(deviation, 0.03) << "a bound that would say little";
    EXPECT_NEAR(mean_square / (1.7 * 1.7), 1.0, 4.0 * deviation);
}

TEST(DisturbanceTest, ByDefaultThereAreAMicrometreOfWindAndAnHoursDriftOfSevenMicrometres)
{
    const Geometry geometry;
    MirrorConfig config;
    config.period_s = 0.2;  // slow cycles make the series long
    Disturbance sut(geometry, config, {}, 0);
    MirrorConfig without_drift = config;
    without_drift.drift_um_per_s = 0.0;
    Disturbance wind(geometry, without_drift, {}, 0);
    const int num_cycles = 10000;
    double mean_square = 0.0;
    for (int cycle = 0; cycle < num_cycles; ++cycle) {
        sut.Step();
        wind.Step();
        mean_square += MeanSquare(wind) / num_cycles;
    }
    const double duration_s = num_cycles * config.period_s;
    EXPECT_NEAR(mean_square, 1.0, 4.0 * WindMeanSquareDeviation(geometry, 0.3, duration_s));
    const double drift_rms_um = (Heights(sut) - Heights(wind)).norm() / std::sqrt(NUM_PACT);
    EXPECT_NEAR(drift_rms_um, 7.2 * duration_s / 3600.0, 1e-9);
}

TEST(DisturbanceTest, WindOnTheSurfaceIsFlatBelowTheCornerAndFallsSteeplyAbove)
{
    MirrorConfig config = Calm();
    config.wind_rms_um = 1.0;
    config.period_s = 0.1;
    Disturbance sut(Geometry(), config, {}, 0);
    std::vector<double> series(std::size_t{1} << 15U);  // 3277 s
    for (double& value : series) {
        sut.Step();
        value = sut.GetHeights()[1000];
    }
    const BandDensity low = MeasureBandDensity(series, config.period_s, 0.01, 0.07);
    const BandDensity below_corner = MeasureBandDensity(series, config.period_s, 0.07, 0.15);
    const BandDensity at_1_hz = MeasureBandDensity(series, config.period_s, 0.95, 1.05);
    const BandDensity at_2_hz = MeasureBandDensity(series, config.period_s, 1.9, 2.1);
    const auto bound = [](const BandDensity& a, const BandDensity& b) {
        return 5.0 * std::hypot(RelativeDeviation(a), RelativeDeviation(b));
    };
    EXPECT_NEAR(std::log(below_corner.mean / low.mean), 0.0, bound(below_corner, low));
    // f^-4 but for what these slow cycles fold down at 1 and 2 Hz: factors of 1.07 and 1.3.
    EXPECT_NEAR(std::log(at_1_hz.mean / below_corner.mean), std::log(1.07) + 4.0 * std::log(0.3 / 1.0),
                bound(at_1_hz, below_corner));
    EXPECT_NEAR(std::log(at_2_hz.mean / at_1_hz.mean), std::log(1.3 / 1.07) - 4.0 * std::log(2.0),
                bound(at_2_hz, at_1_hz));
}

TEST(DisturbanceTest, WindAndDriftHoldNothingUnobservable)
{
    const Geometry geometry;
    MirrorConfig config;
    config.drift_um_per_s = 1.0;
    Disturbance sut(geometry, config, {}, 0);
    const Eigen::MatrixXd directions = UnobservableDirections(geometry);
    for (int cycle = 0; cycle < 500; ++cycle) {
        sut.Step();
        ASSERT_LT((directions.transpose() * Heights(sut)).cwiseAbs().maxCoeff(), 1e-10);
    }
}

TEST(DisturbanceTest, DriftGrowsLinearlyFromZeroWithOneShape)
{
    MirrorConfig config = Calm();
    config.drift_um_per_s = 0.5;
    Disturbance sut(Geometry(), config, {}, 0);
    EXPECT_EQ(MeanSquare(sut), 0.0);
    sut.Step();
    const Eigen::VectorXd first = Heights(sut);
    for (int cycle = 1; cycle <= 1000; ++cycle) {
        ASSERT_NEAR(std::sqrt(MeanSquare(sut)), 0.5 * 0.002 * cycle, 1e-12);
        ASSERT_LT((Heights(sut) - cycle * first).cwiseAbs().maxCoeff(), 1e-12);
        sut.Step();
    }
}

TEST(DisturbanceTest, CalmDisturbanceIsExactlyZero)
{
    Disturbance sut(Geometry(), Calm(), {}, 0);
    for (int cycle = 0; cycle < 10; ++cycle) {
        ASSERT_EQ(Heights(sut).cwiseAbs().maxCoeff(), 0.0);
        sut.Step();
    }
}

TEST(DisturbanceTest, ToneIsASineOfItsAmplitudeOnItsModeAlone)
{
    const std::vector<float> modes = TwoModes();
    MirrorConfig config = Calm();
    config.tones = {{1, 7.0, 0.3}, {1, 20.0, 0.1}};
    Disturbance sut(Geometry(), config, modes, 2);
    for (int cycle = 0; cycle < 1000; ++cycle) {
        const double t = 0.002 * cycle;
        const double expected =
            0.3 * std::sin(2.0 * std::numbers::pi * 7.0 * t) + 0.1 * std::sin(2.0 * std::numbers::pi * 20.0 * t);
        ASSERT_NEAR(ModalCoordinate(sut, modes, 1), expected, 1e-7) << "cycle " << cycle;
        ASSERT_NEAR(ModalCoordinate(sut, modes, 0), 0.0, 1e-12);
        sut.Step();
    }
}

TEST(DisturbanceTest, ToneAddsToTheWindWithoutChangingIt)
{
    const std::vector<float> modes = TwoModes();
    MirrorConfig config;
    Disturbance wind_alone(Geometry(), config, modes, 2);
    config.tones = {{0, 7.0, 0.3}};
    Disturbance sut(Geometry(), config, modes, 2);
    for (int cycle = 0; cycle < 100; ++cycle) {
        const double tone = 0.3 * std::sin(2.0 * std::numbers::pi * 7.0 * 0.002 * cycle) / std::sqrt(NUM_PACT);
        ASSERT_LT(((Heights(sut) - Heights(wind_alone)).array() - tone).abs().maxCoeff(), 1e-8);
        sut.Step();
        wind_alone.Step();
    }
}

TEST(DisturbanceTest, TonesWhoseModesHaveNoShapeAreRefused)
{
    const Geometry geometry;
    const std::vector<float> modes = TwoModes();
    MirrorConfig config = Calm();
    config.tones = {{2, 7.0, 0.3}};
    EXPECT_THROW(Disturbance(geometry, config, modes, 2), std::invalid_argument);
    EXPECT_THROW(Disturbance(geometry, config, {}, 0), std::invalid_argument);
}

TEST(DisturbanceTest, MatrixOfAnotherSizeThanItsNumberOfModesIsRefusedWithBothNumbers)
{
    const Geometry geometry;
    const std::vector<float> modes = TwoModes();
    EXPECT_THROW(Disturbance(geometry, Calm(), modes, -1), std::invalid_argument);
    try {
        const Disturbance sut(geometry, Calm(), modes, 3);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "Expected MODES2PACT of 7182 elements for 3 modes but received one of 4788.");
    }
}

}  // namespace
}  // namespace lumo::mirrorsim
