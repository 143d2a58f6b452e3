#include "argumentChecks.hpp"
#include "figureText.hpp"
#include "support/thrown.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace lumo::ravelctl {
namespace {

TEST(FigureTextTest, FiguresHaveSixDigitsThatMeanSomething)
{
    EXPECT_EQ(FormatFigure(0.9 * 0.1), "0.09");
    EXPECT_EQ(FormatFigure(1.0 / 3.0), "0.333333");
    EXPECT_EQ(FormatFigure(-123456.7), "-123457");
    EXPECT_EQ(FormatFigure(1.0e6), "1000000");
    EXPECT_EQ(FormatFigure(0.0), "0");
    EXPECT_EQ(FormatFigure(std::numeric_limits<double>::infinity()), "inf");
    EXPECT_EQ(FormatFigure(std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(FigureTextTest, AValueThatIsHardlyBeyondItsLimitIsToldFromIt)
{
    const auto refusal = [](double value) {
        return test::ThrownLine<InputError>([value] { CheckRange("--open-loop", value, 0.0, 0.9 * 0.1, " s"); });
    };
    EXPECT_EQ(refusal(0.1), "--open-loop: expected 0 to 0.09 s but got 0.1");
    EXPECT_EQ(refusal(0.09000001), "--open-loop: expected 0 to 0.09 s but got 0.09000001");
    EXPECT_EQ(refusal(-1.0 / 3.0), "--open-loop: expected 0 to 0.09 s but got -0.333333");
}

}  // namespace
}  // namespace lumo::ravelctl
