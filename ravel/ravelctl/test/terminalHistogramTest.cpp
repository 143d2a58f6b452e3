#include "terminalHistogram.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <sstream>

namespace lumo::ravelctl {
namespace {

std::int64_t CountAll(const std::vector<HistogramBin>& bins)
{
    std::int64_t count = 0;
    for (const HistogramBin& bin : bins) {
        count += bin.count;
    }
    return count;
}

TEST(TerminalHistogramTest, NoValuesHaveNoBinsAndNoText)
{
    EXPECT_TRUE(MakeHistogram({}).empty());
    EXPECT_EQ(FormatHistogram({}), "");
}

TEST(TerminalHistogramTest, EqualValuesShareOneBinThatHoldsThem)
{
    const auto bins = MakeHistogram({57.5F, 57.5F, 57.5F});
    ASSERT_EQ(bins.size(), 1U);
    EXPECT_EQ(bins[0].count, 3);
    EXPECT_LE(bins[0].low, 57.5);
    EXPECT_GT(bins[0].high, 57.5);
}

TEST(TerminalHistogramTest, BinsAreEvenlySpacedOnALogarithmicScaleWithoutGaps)
{
    const auto bins = MakeHistogram({1.0F, 10.0F, 100.0F, 999.0F});
    ASSERT_EQ(bins.size(), 15U) << "five a decade; ten would be too many";
    for (std::size_t i = 0; i < bins.size(); ++i) {
        EXPECT_NEAR(bins[i].high / bins[i].low, std::pow(10.0, 0.2), 1e-9);
        EXPECT_EQ(i == 0 ? 1.0 : bins[i - 1].high, bins[i].low);
    }
    EXPECT_EQ(bins[0].count, 1);
    EXPECT_EQ(bins[5].count, 1);
    EXPECT_EQ(bins[10].count, 1);
    EXPECT_EQ(bins[14].count, 1);
    EXPECT_EQ(CountAll(bins), 4);
}

TEST(TerminalHistogramTest, EveryValueIsInTheBinWhoseRangeHoldsIt)
{
    std::vector<float> values;
    for (int i = 1; i <= 2000; ++i) {
        values.push_back(0.37F * static_cast<float>(i));
    }
    const auto bins = MakeHistogram(values);
    EXPECT_LE(bins.size(), 16U);
    for (const HistogramBin& bin : bins) {
        EXPECT_EQ(bin.count, std::count_if(values.begin(), values.end(),
                                           [&bin](float value) { return value >= bin.low && value < bin.high; }));
    }
    EXPECT_EQ(CountAll(bins), 2000);
}

TEST(TerminalHistogramTest, ValuesOfManyDecadesStillFitSixteenLines)
{
    const auto bins = MakeHistogram({0.0F, -1.0F, 1.0F, std::numeric_limits<float>::max()});
    EXPECT_LE(bins.size(), 16U);
    EXPECT_EQ(CountAll(bins), 4);
    EXPECT_LE(bins.front().low, 1e-3) << "what is 0 or less counts as the smallest";
}

TEST(TerminalHistogramTest, TheTextShowsRangeCountAndABarForEveryCount)
{
    const std::string text =
        FormatHistogram({{63.1, 79.43, 10}, {79.43, 100.0, 400}, {100.0, 125.9, 0}, {125.9, 158.5, 1}});
    EXPECT_EQ(text,
              "      63.1 to 79.4               10  #\n"
              "      79.4 to 100               400  ########################################\n"
              "       100 to 126                 0\n"
              "       126 to 158                 1  .\n");
}

TEST(TerminalHistogramTest, NoLineIsWiderThanATerminal)
{
    std::istringstream lines(FormatHistogram({{0.001, 1e9, 10'000'000'000}, {1e9, 1e12, 1}}));
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 80U) << line;
    }
}

}  // namespace
}  // namespace lumo::ravelctl
