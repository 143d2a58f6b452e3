#include "commandLimiter.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace lumo::ravelctl {
namespace {

using testing::Each;
using testing::ElementsAre;

constexpr float STROKE_UM = 10.0F;
constexpr float RATE_UM = 2.0F;
constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();
constexpr float INFINITE = std::numeric_limits<float>::infinity();

TEST(CommandLimiterTest, CommandsWithinStrokeAndRatePassUnchanged)
{
    CommandLimiter sut(std::vector<float>{1.0F, -1.0F}, STROKE_UM, RATE_UM);
    sut.Limit(std::vector<float>{2.5F, -2.5F});
    EXPECT_THAT(sut.GetCommand(), ElementsAre(2.5F, -2.5F));
    EXPECT_THAT(sut.GetShortfall(), Each(0.0F));
    EXPECT_EQ(sut.GetNumLimited(), 0);
}

TEST(CommandLimiterTest, AStepIsFollowedAtTheRateInBothDirections)
{
    CommandLimiter sut(std::vector<float>{0.0F, 0.0F}, STROKE_UM, RATE_UM);
    const std::vector<float> wanted = {5.0F, -5.0F};
    sut.Limit(wanted);
    EXPECT_THAT(sut.GetCommand(), ElementsAre(2.0F, -2.0F));
    EXPECT_THAT(sut.GetShortfall(), ElementsAre(-3.0F, 3.0F));
    sut.Limit(wanted);
    EXPECT_THAT(sut.GetCommand(), ElementsAre(4.0F, -4.0F));
    sut.Limit(wanted);
    EXPECT_THAT(sut.GetCommand(), ElementsAre(5.0F, -5.0F));
    EXPECT_THAT(sut.GetShortfall(), Each(0.0F));
    EXPECT_EQ(sut.GetNumLimited(), 4);
}

TEST(CommandLimiterTest, NoCommandIsBeyondTheStroke)
{
    CommandLimiter sut(std::vector<float>{9.0F, -9.0F}, STROKE_UM, RATE_UM);
    sut.Limit(std::vector<float>{10.5F, -10.5F});
    EXPECT_THAT(sut.GetCommand(), ElementsAre(STROKE_UM, -STROKE_UM));
    EXPECT_THAT(sut.GetShortfall(), ElementsAre(-0.5F, 0.5F));
}

TEST(CommandLimiterTest, ACommandThatIsNotFiniteIsReplacedByTheOneInForceAndCounted)
{
    CommandLimiter sut(std::vector<float>{1.0F, 2.0F, 3.0F, 4.0F}, STROKE_UM, RATE_UM);
    sut.Limit(std::vector<float>{NOT_A_NUMBER, INFINITE, -INFINITE, 4.5F});
    EXPECT_THAT(sut.GetCommand(), ElementsAre(1.0F, 2.0F, 3.0F, 4.5F));
    EXPECT_THAT(sut.GetShortfall(), Each(0.0F));
    EXPECT_EQ(sut.GetNumNotFinite(), 3);
    EXPECT_EQ(sut.GetNumLimited(), 0);
}

TEST(CommandLimiterTest, HoldForgetsTheRateAndTheShortfall)
{
    CommandLimiter sut(std::vector<float>{0.0F}, STROKE_UM, RATE_UM);
    sut.Limit(std::vector<float>{9.0F});
    sut.Hold(std::vector<float>{-7.0F});
    EXPECT_THAT(sut.GetCommand(), ElementsAre(-7.0F));
    EXPECT_THAT(sut.GetShortfall(), ElementsAre(0.0F));
}

}  // namespace
}  // namespace lumo::ravelctl
