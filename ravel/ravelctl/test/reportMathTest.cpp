#include "reportMath.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <random>

namespace lumo::ravelctl {
namespace {

using testing::DoubleEq;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr double RATE_HZ = 500.0;
constexpr int LENGTH = 1024;

/// A sine in white noise about a mean that a spectrum must not show.
std::vector<double> SineInNoise(double amplitude, double frequency_hz, double noise_rms, std::size_t count)
{
    std::mt19937_64 stream(20);
    std::normal_distribution<double> normal(0.0, 1.0);
    std::vector<double> series(count);
    for (std::size_t i = 0; i < count; ++i) {
        const double phase = 2.0 * std::numbers::pi * frequency_hz * static_cast<double>(i) / RATE_HZ;
        series[i] = 1000.0 + amplitude * std::sin(phase) + noise_rms * normal(stream);
    }
    return series;
}

std::vector<double> MeanDensity(const std::vector<double>& series)
{
    Welch welch(LENGTH, RATE_HZ);
    const auto starts = SegmentStarts(static_cast<std::int64_t>(series.size()), LENGTH, 1000);
    for (const std::int64_t start : starts) {
        welch.Add(std::span(series).subspan(static_cast<std::size_t>(start), LENGTH));
    }
    std::vector<double> density = welch.GetSum();
    for (double& value : density) {
        value /= static_cast<double>(starts.size());
    }
    return density;
}

double Integrate(const std::vector<double>& density, std::size_t begin, std::size_t end)
{
    return std::accumulate(density.begin() + static_cast<std::ptrdiff_t>(begin),
                           density.begin() + static_cast<std::ptrdiff_t>(end), 0.0) *
           RATE_HZ / LENGTH;
}

TEST(ReportMathTest, ADensityIntegratesToTheVarianceOfSineAndNoise)
{
    constexpr double AMPLITUDE = 3.0;
    constexpr double NOISE_RMS = 0.5;
    const std::vector<double> density = MeanDensity(SineInNoise(AMPLITUDE, 40.3, NOISE_RMS, 65'536));
    ASSERT_EQ(density.size(), LENGTH / 2 + 1U);
    constexpr double EXPECTED = AMPLITUDE * AMPLITUDE / 2.0 + NOISE_RMS * NOISE_RMS;
    EXPECT_NEAR(Integrate(density, 0, density.size()), EXPECTED, 0.01 * EXPECTED);

    // The sine's power is where the sine is; elsewhere there is the noise, flat, at its one-sided level.
    const auto sine_bin = static_cast<std::size_t>(std::lround(40.3 * LENGTH / RATE_HZ));
    EXPECT_EQ(static_cast<std::size_t>(std::max_element(density.begin(), density.end()) - density.begin()), sine_bin);
    const double sine_power = Integrate(density, sine_bin - 3, sine_bin + 4);
    EXPECT_NEAR(sine_power, AMPLITUDE * AMPLITUDE / 2.0, 0.01 * AMPLITUDE * AMPLITUDE / 2.0);
    constexpr double LEVEL = NOISE_RMS * NOISE_RMS / (RATE_HZ / 2.0);
    const double mean_level = Integrate(density, 200, 500) / (300.0 * RATE_HZ / LENGTH);
    EXPECT_NEAR(mean_level, LEVEL, 0.05 * LEVEL);
    EXPECT_LT(density.front(), 3.0 * LEVEL) << "the mean of 1000 is not in the density";
}

TEST(ReportMathTest, ASineAtHalfTheRateCountsOnce)
{
    std::vector<double> series(LENGTH);
    for (std::size_t i = 0; i < series.size(); ++i) {
        series[i] = i % 2 == 0 ? 1.0 : -1.0;
    }
    const std::vector<double> density = MeanDensity(series);
    EXPECT_NEAR(Integrate(density, 0, density.size()), 1.0, 1.0e-3);
}

TEST(ReportMathTest, DensitiesOfSeveralSeriesAddUp)
{
    const std::vector<double> series = SineInNoise(1.0, 100.0, 0.1, LENGTH);
    Welch once(LENGTH, RATE_HZ);
    once.Add(series);
    Welch twice(LENGTH, RATE_HZ);
    twice.Add(series);
    twice.Add(series);
    for (std::size_t bin = 0; bin < once.GetSum().size(); ++bin) {
        EXPECT_DOUBLE_EQ(twice.GetSum()[bin], 2.0 * once.GetSum()[bin]);
    }
    EXPECT_DOUBLE_EQ(once.GetStepHz(), RATE_HZ / LENGTH);
}

TEST(ReportMathTest, SegmentsOverlapByHalfAndStayWithinTheSeries)
{
    EXPECT_THAT(SegmentStarts(1024, 512, 100), ElementsAre(0, 256, 512));
    EXPECT_THAT(SegmentStarts(1023, 512, 100), ElementsAre(0, 256));
    EXPECT_THAT(SegmentStarts(512, 512, 100), ElementsAre(0));
    EXPECT_THAT(SegmentStarts(511, 512, 100), IsEmpty());
    EXPECT_THAT(SegmentStarts(100'512, 512, 3), ElementsAre(0, 50'000, 100'000)) << "spread where there are too many";
}

TEST(ReportMathTest, ASegmentIsTheLongestPowerOfTwoThatFitsTwice)
{
    EXPECT_EQ(SegmentLength(95, 64, 4096), 0);
    EXPECT_EQ(SegmentLength(96, 64, 4096), 64);
    EXPECT_EQ(SegmentLength(1000, 64, 4096), 512);
    EXPECT_EQ(SegmentLength(1'000'000, 64, 4096), 4096);
}

TEST(ReportMathTest, ShortSeriesAreKeptSampleBySample)
{
    const std::vector<float> samples = {3.0F, -4.0F};
    const ThinnedSeries thinned = Thin(samples, 0.5, 2);
    EXPECT_THAT(thinned.rms, ElementsAre(3.0, 4.0));
    EXPECT_THAT(thinned.low, IsEmpty());
    EXPECT_DOUBLE_EQ(thinned.first_s, 0.0);
    EXPECT_DOUBLE_EQ(thinned.step_s, 0.5);
}

TEST(ReportMathTest, ThinnedSeriesKeepRmsAndExtremesOfEachPart)
{
    const std::vector<float> samples = {3.0F, 4.0F, 1.0F, 7.0F, 5.0F};
    const ThinnedSeries thinned = Thin(samples, 0.5, 3);
    EXPECT_THAT(thinned.rms, ElementsAre(DoubleEq(std::sqrt(12.5)), DoubleEq(5.0), DoubleEq(5.0)));
    EXPECT_THAT(thinned.low, ElementsAre(3.0, 1.0, 5.0));
    EXPECT_THAT(thinned.high, ElementsAre(4.0, 7.0, 5.0));
    EXPECT_DOUBLE_EQ(thinned.first_s, 0.25);
    EXPECT_DOUBLE_EQ(thinned.step_s, 1.0);
}

TEST(ReportMathTest, LogSpacedBinsHoldEveryBinOnceAndNoMorePointsThanAskedFor)
{
    const std::vector<std::size_t> bins = LogSpacedBins(2, 2048, 500);
    EXPECT_EQ(bins.front(), 2U);
    EXPECT_EQ(bins.back(), 2048U);
    EXPECT_TRUE(std::is_sorted(bins.begin(), bins.end()));
    EXPECT_LE(bins.size(), 501U);
    EXPECT_EQ(bins[1], 3U) << "the lowest ones stay alone";
    EXPECT_GT(bins.back() - bins[bins.size() - 2], 1U) << "the highest ones are put together";
    EXPECT_THAT(LogSpacedBins(5, 5, 500), IsEmpty());
    const std::vector<double> values = {9.0, 9.0, 1.0, 2.0, 6.0};
    EXPECT_THAT(MeanOfBins(values, std::vector<std::size_t>{2, 3, 5}), ElementsAre(1.0, 4.0));
}

TEST(ReportMathTest, AHistogramCountsEveryDurationBetweenItsEdges)
{
    std::vector<float> durations;
    for (int i = 0; i < 1000; ++i) {
        durations.push_back(90.0F + static_cast<float>(i));
    }
    durations.push_back(0.0F);  // as the shortest
    const DurationHistogram histogram = CountDurations(durations, {});
    ASSERT_EQ(histogram.edges_us.size(), histogram.counts.size() + 1);
    EXPECT_EQ(std::accumulate(histogram.counts.begin(), histogram.counts.end(), std::int64_t{0}), 1001);
    for (std::size_t bin = 0; bin < histogram.counts.size(); ++bin) {
        const auto expected = std::count_if(durations.begin(), durations.end(), [&](float duration) {
            const double us = static_cast<double>(std::max(duration, 90.0F));
            return us >= histogram.edges_us[bin] && us < histogram.edges_us[bin + 1];
        });
        EXPECT_EQ(histogram.counts[bin], expected) << "from " << histogram.edges_us[bin];
        EXPECT_EQ(histogram.late[bin], 0);
    }
    EXPECT_THAT(CountDurations({}, {}).counts, IsEmpty());
}

TEST(ReportMathTest, DurationsBeforeMissedInstantsAreCountedOnceEach)
{
    const std::vector<float> durations = {100.0F, 5000.0F, 100.0F, 100.0F, 300.0F};
    const std::vector<std::int64_t> missed_before = {2, 2, 2, 4};  // three instants at once, and one
    const DurationHistogram histogram = CountDurations(durations, missed_before);
    EXPECT_EQ(histogram.late.back(), 1) << "5000 us";
    EXPECT_EQ(histogram.late.front(), 1) << "the last one of 100 us";
    EXPECT_EQ(std::accumulate(histogram.late.begin(), histogram.late.end(), std::int64_t{0}), 2);
}

TEST(ReportMathTest, DurationsBeyondTheDeadlineAreLate)
{
    const std::vector<float> durations = {100.0F, 1000.0F, 1000.5F, 5000.0F, 5000.0F};
    const DurationHistogram histogram = CountAgainstDeadline(durations, 1000.0);
    EXPECT_EQ(histogram.late.front(), 0);
    EXPECT_EQ(histogram.late.back(), 2);
    EXPECT_EQ(std::accumulate(histogram.late.begin(), histogram.late.end(), std::int64_t{0}), 3);
    EXPECT_EQ(histogram.counts, CountDurations(durations, {}).counts);
    EXPECT_EQ(CountAgainstDeadline(durations, {}).late, CountDurations(durations, {}).late);
}

TEST(ReportMathTest, NumbersAreRoundedToFourDigits)
{
    EXPECT_DOUBLE_EQ(RoundToDigits(123'456.0), 123'500.0);
    EXPECT_DOUBLE_EQ(RoundToDigits(-0.00123456), -0.001235);
    EXPECT_DOUBLE_EQ(RoundToDigits(9.9999), 10.0);
    EXPECT_DOUBLE_EQ(RoundToDigits(0.0), 0.0);
    EXPECT_TRUE(std::isnan(RoundToDigits(std::numeric_limits<double>::quiet_NaN())));
}

}  // namespace
}  // namespace lumo::ravelctl
