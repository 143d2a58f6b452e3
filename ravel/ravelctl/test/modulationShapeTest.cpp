#include "error.hpp"
#include "modulationShape.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace lumo::ravelctl {
namespace {

using testing::Each;

constexpr double TWO_PI = 2.0 * std::numbers::pi;
constexpr double ROUNDING_UM = 1.0e-8;  // of a float below 0.1

/// 4 modes, of which the second and the last move, for 2 s at 100 Hz, the first 50 samples being 0.
ModulationOptions Small(ModulationShape shape)
{
    ModulationOptions options;
    options.shape = shape;
    options.modes = 4;
    options.on = "1,3";
    options.rate_hz = 100.0;
    options.duration_s = 2.0;
    options.start_s = 0.5;
    return options;
}

std::vector<float> Column(const std::vector<float>& values, int modes, int mode)
{
    std::vector<float> column;
    for (auto i = static_cast<std::size_t>(mode); i < values.size(); i += static_cast<std::size_t>(modes)) {
        column.push_back(values[i]);
    }
    return column;
}

double Mean(const std::vector<float>& values)
{
    double sum = 0.0;
    for (const float value : values) {
        sum += static_cast<double>(value);
    }
    return sum / static_cast<double>(values.size());
}

/// Mean of the products of each value and the one `shift` later in the other series.
double Correlate(const std::vector<float>& a, const std::vector<float>& b, std::size_t shift)
{
    double sum = 0.0;
    for (std::size_t i = 0; i + shift < b.size(); ++i) {
        sum += static_cast<double>(a[i]) * static_cast<double>(b[i + shift]);
    }
    return sum / static_cast<double>(b.size() - shift);
}

class EveryShapeTest : public testing::TestWithParam<ModulationShape>
{
};

TEST_P(EveryShapeTest, NothingMovesBeforeTheStartNorOnOtherModes)
{
    const std::vector<float> values = MakeModulation(Small(GetParam()));
    ASSERT_EQ(values.size(), 200U * 4U);
    EXPECT_THAT(std::vector<float>(values.begin(), values.begin() + 50L * 4L), Each(0.0F));
    EXPECT_THAT(Column(values, 4, 0), Each(0.0F));
    EXPECT_THAT(Column(values, 4, 2), Each(0.0F));
    for (const int mode : {1, 3}) {
        const std::vector<float> column = Column(values, 4, mode);
        EXPECT_NE(column.at(51), 0.0F) << mode;
        EXPECT_NE(column.at(199), 0.0F) << mode;
    }
}

TEST_P(EveryShapeTest, AllScaleWithTheAmplitude)
{
    ModulationOptions options = Small(GetParam());
    const std::vector<float> values = MakeModulation(options);
    options.amplitude_um *= 4.0;
    const std::vector<float> four_times = MakeModulation(options);
    ASSERT_EQ(four_times.size(), values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        ASSERT_EQ(four_times[i], 4.0F * values[i]) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(All, EveryShapeTest,
                         testing::Values(ModulationShape::Sine, ModulationShape::Step, ModulationShape::Chirp,
                                         ModulationShape::Noise));

TEST(ModulationShapeTest, ASineHasItsFrequencyAndBeginsAtPhaseZero)
{
    ModulationOptions options = Small(ModulationShape::Sine);
    options.frequency_hz = 3.7;
    const std::vector<float> values = MakeModulation(options);
    for (const int mode : {1, 3}) {
        const std::vector<float> column = Column(values, 4, mode);
        EXPECT_EQ(column.at(50), 0.0F);
        for (std::size_t sample = 50; sample < column.size(); ++sample) {
            const double time_s = static_cast<double>(sample) / 100.0 - 0.5;
            ASSERT_NEAR(column[sample], 0.1 * std::sin(TWO_PI * 3.7 * time_s), ROUNDING_UM) << sample;
        }
    }
}

TEST(ModulationShapeTest, ASineIsAsGoodAfterADayAsAtTheBeginning)
{
    ModulationOptions options;
    options.modes = 1;
    options.rate_hz = 10.0;
    options.duration_s = 86400.0;
    options.frequency_hz = 1.25;
    const std::vector<float> values = MakeModulation(options);
    ASSERT_EQ(values.size(), 864000U);
    for (std::size_t i = 0; i < 8; ++i) {  // one period
        EXPECT_FLOAT_EQ(values[864000 - 8 + i], values[i]) << i;
    }
}

TEST(ModulationShapeTest, AStepIsTheAmplitudeFromItsInstantToTheEnd)
{
    ModulationOptions options = Small(ModulationShape::Step);
    options.amplitude_um = -0.3;
    for (const int mode : {1, 3}) {
        const std::vector<float> column = Column(MakeModulation(options), 4, mode);
        EXPECT_THAT(std::vector<float>(column.begin(), column.begin() + 50), Each(0.0F));
        EXPECT_THAT(std::vector<float>(column.begin() + 50, column.end()), Each(-0.3F));
    }
}

TEST(ModulationShapeTest, AChirpsFrequencyChangesEvenlyFromItsStartToTheEnd)
{
    for (const auto& [from_hz, to_hz] : {std::pair(2.0, 20.0), std::pair(30.0, 0.0), std::pair(5.0, 5.0)}) {
        ModulationOptions options = Small(ModulationShape::Chirp);
        options.frequency_hz = from_hz;
        options.to_hz = to_hz;
        const std::vector<float> values = MakeModulation(options);
        for (const int mode : {1, 3}) {
            const std::vector<float> column = Column(values, 4, mode);
            for (std::size_t sample = 50; sample < column.size(); ++sample) {
                const double time_s = static_cast<double>(sample) / 100.0 - 0.5;
                const double turns = from_hz * time_s + (to_hz - from_hz) * time_s * time_s / (2.0 * 1.5);
                ASSERT_NEAR(column[sample], 0.1 * std::sin(TWO_PI * turns), ROUNDING_UM) << sample;
            }
        }
    }
}

/// 60 s of noise of 0.5 um on both of two modes at 500 Hz.
ModulationOptions LongNoise(std::uint64_t seed)
{
    ModulationOptions options;
    options.shape = ModulationShape::Noise;
    options.modes = 2;
    options.on = "0-1";
    options.duration_s = 60.0;
    options.amplitude_um = 0.5;
    options.seed = seed;
    return options;
}

// The bounds below are 5 standard deviations of what 30000 independent values give.

TEST(ModulationShapeTest, NoiseHasMeanZeroTheGivenRmsAndTheTailsOfAGaussian)
{
    const std::vector<float> values = MakeModulation(LongNoise(1));
    for (const int mode : {0, 1}) {
        const std::vector<float> column = Column(values, 2, mode);
        ASSERT_EQ(column.size(), 30000U);
        const double size = 30000.0;
        EXPECT_NEAR(Mean(column), 0.0, 5.0 * 0.5 / std::sqrt(size));
        EXPECT_NEAR(std::sqrt(Correlate(column, column, 0)), 0.5, 5.0 * 0.5 / std::sqrt(2.0 * size));
        for (const double sigmas : {1.0, 2.0, 3.0}) {
            const double expected = std::erfc(sigmas / std::numbers::sqrt2);
            const auto beyond = std::count_if(column.begin(), column.end(),
                                              [&](float value) { return std::abs(value) > 0.5 * sigmas; });
            EXPECT_NEAR(static_cast<double>(beyond) / size, expected,
                        5.0 * std::sqrt(expected * (1.0 - expected) / size))
                << sigmas;
        }
    }
}

TEST(ModulationShapeTest, NoiseOfOneModeAndCycleTellsNothingAboutAnother)
{
    const std::vector<float> values = MakeModulation(LongNoise(1));
    const std::vector<float> first = Column(values, 2, 0);
    const std::vector<float> second = Column(values, 2, 1);
    const std::vector<float> other_seed = Column(MakeModulation(LongNoise(2)), 2, 0);
    const double bound = 5.0 * 0.5 * 0.5 / std::sqrt(30000.0);
    for (const std::size_t shift : {1U, 2U, 3U}) {
        EXPECT_NEAR(Correlate(first, first, shift), 0.0, bound) << shift;
        EXPECT_NEAR(Correlate(first, second, shift), 0.0, bound) << shift;
        EXPECT_NEAR(Correlate(second, first, shift), 0.0, bound) << shift;
    }
    EXPECT_NEAR(Correlate(first, second, 0), 0.0, bound);
    EXPECT_NEAR(Correlate(first, other_seed, 0), 0.0, bound);
    // Nor about its size, which products of signs would not show.
    std::vector<float> first_squared;
    std::vector<float> second_squared;
    for (std::size_t i = 0; i < first.size(); ++i) {
        first_squared.push_back(first[i] * first[i] - 0.25F);
        second_squared.push_back(second[i] * second[i] - 0.25F);
    }
    const double spread = std::numbers::sqrt2 * 0.25;  // of a square
    EXPECT_NEAR(Correlate(first_squared, second_squared, 0), 0.0, 5.0 * spread * spread / std::sqrt(30000.0));
}

TEST(ModulationShapeTest, EqualSeedsGiveEqualBitsAndOthersGiveOthers)
{
    ModulationOptions options = Small(ModulationShape::Noise);
    const std::vector<float> unseeded = MakeModulation(options);
    options.seed = 1;
    EXPECT_EQ(MakeModulation(options), unseeded);
    EXPECT_EQ(MakeModulation(options), MakeModulation(options));
    options.seed = 2;
    const std::vector<float> second = MakeModulation(options);
    EXPECT_NE(second, unseeded);
    options.seed = (std::uint64_t{1} << 32U) + 2;
    EXPECT_NE(MakeModulation(options), second) << "the upper half of a seed counts as well";
}

TEST(ModulationShapeTest, OptionsThatCannotWorkAreRefused)
{
    ModulationOptions options;
    options.on = "600";
    EXPECT_THROW(MakeModulation(options), InputError);
}

}  // namespace
}  // namespace lumo::ravelctl
