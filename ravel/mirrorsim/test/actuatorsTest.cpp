#include <lumo/mirrorsim/actuators.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

namespace lumo::mirrorsim {
namespace {

/// Limits that nothing here reaches.
MirrorConfig Unlimited()
{
    MirrorConfig config;
    config.stroke_limit_um = 1e6;
    config.rate_limit_um_per_s = 1e9;
    return config;
}

TEST(ActuatorsTest, LagCoefficientIsOneMinusTheExponentialOfPeriodOverTimeConstant)
{
    EXPECT_NEAR(Actuators(MirrorConfig{}, std::vector<double>{0.0}).GetLagCoefficient(), 0.486582880967408, 1e-14);
    MirrorConfig config;
    config.actuator_time_constant_s = 0.0;
    EXPECT_EQ(Actuators(config, std::vector<double>{0.0}).GetLagCoefficient(), 1.0);
}

TEST(ActuatorsTest, ImpulseResponseIsThatOfTheTransferFunction)
{
    Actuators sut(Unlimited(), std::vector<double>{0.0});
    const double a = sut.GetLagCoefficient();
    // P(z) = a z^-2 / (1 - (1 - a) z^-1) = a z^-2 + a (1 - a) z^-3 + a (1 - a)^2 z^-4 + ...
    for (int cycle = 0; cycle < 40; ++cycle) {
        const double expected = cycle < 2 ? 0.0 : a * std::pow(1.0 - a, cycle - 2);
        ASSERT_NEAR(sut.GetPositions()[0], expected, 1e-15) << "cycle " << cycle;
        sut.Step(std::vector<float>{cycle == 0 ? 1.0F : 0.0F});
    }
}

TEST(ActuatorsTest, PositionFollowsTheDifferenceEquationBitForBit)
{
    Actuators sut(Unlimited(), std::vector<double>{0.5});
    const double a = sut.GetLagCoefficient();
    double position = 0.5;
    double previous_command = 0.5;
    for (int cycle = 0; cycle < 200; ++cycle) {
        const float command = std::sin(static_cast<float>(cycle) * 0.7F);
        sut.Step(std::vector<float>{command});
        position = position + a * (previous_command - position);
        previous_command = static_cast<double>(command);
        ASSERT_EQ(sut.GetPositions()[0], position) << "cycle " << cycle;
        ASSERT_EQ(sut.GetReferences()[0], previous_command) << "cycle " << cycle;
    }
}

TEST(ActuatorsTest, EachActuatorFollowsItsOwnCommand)
{
    Actuators sut(Unlimited(), std::vector<double>{0.0, 1.0, 2.0});
    const std::vector<float> command{5.0F, 1.0F, -3.0F};
    for (int cycle = 0; cycle < 100; ++cycle) {
        sut.Step(command);
    }
    EXPECT_NEAR(sut.GetPositions()[0], 5.0, 1e-12);
    EXPECT_EQ(sut.GetPositions()[1], 1.0);
    EXPECT_NEAR(sut.GetPositions()[2], -3.0, 1e-12);
}

TEST(ActuatorsTest, PositionChangesByNoMoreThanTheRateLimitAllowsInACycle)
{
    MirrorConfig config = Unlimited();
    config.rate_limit_um_per_s = 100.0;  // 0.2 um a cycle
    Actuators sut(config, std::vector<double>{0.0, 0.0});
    const std::vector<float> command{10.0F, -10.0F};
    sut.Step(command);
    for (int cycle = 0; cycle < 40; ++cycle) {
        const double before = sut.GetPositions()[0];
        sut.Step(command);
        ASSERT_NEAR(sut.GetPositions()[0] - before, 0.2, 1e-12) << "slower than the limit allows, or faster";
        ASSERT_EQ(sut.GetPositions()[1], -sut.GetPositions()[0]);
    }
    for (int cycle = 0; cycle < 200; ++cycle) {
        sut.Step(command);
    }
    EXPECT_NEAR(sut.GetPositions()[0], 10.0, 1e-12);
}

TEST(ActuatorsTest, ReferencesAndPositionsStayWithinTheStroke)
{
    MirrorConfig config;
    config.stroke_limit_um = 5.0;
    config.rate_limit_um_per_s = 1e9;
    Actuators sut(config, std::vector<double>{0.0, 0.0});
    const std::vector<float> command{1e30F, -7.0F};
    for (int cycle = 0; cycle < 100; ++cycle) {
        sut.Step(command);
        ASSERT_EQ(sut.GetReferences()[0], 5.0);
        ASSERT_EQ(sut.GetReferences()[1], -5.0);
        ASSERT_LE(sut.GetPositions()[0], 5.0);
        ASSERT_GE(sut.GetPositions()[1], -5.0);
    }
    EXPECT_NEAR(sut.GetPositions()[0], 5.0, 1e-12);
    // No wind-up inside: the way back begins as late as any, one cycle.
    sut.Step(std::vector<float>{0.0F, 0.0F});
    sut.Step(std::vector<float>{0.0F, 0.0F});
    EXPECT_NEAR(sut.GetPositions()[0], 5.0 * (1.0 - sut.GetLagCoefficient()), 1e-12);
}

TEST(ActuatorsTest, CommandsThatAreNotFiniteAreCountedAndLeaveTheReference)
{
    Actuators sut(Unlimited(), std::vector<double>{1.0, 2.0, 3.0});
    const float infinity = std::numeric_limits<float>::infinity();
    sut.Step(std::vector<float>{std::nanf(""), infinity, 4.0F});
    sut.Step(std::vector<float>{1.0F, -infinity, 4.0F});
    EXPECT_EQ(sut.GetNumRejected(), 3);
    EXPECT_EQ(sut.GetPositions()[0], 1.0);
    EXPECT_EQ(sut.GetPositions()[1], 2.0);
    EXPECT_GT(sut.GetPositions()[2], 3.0);
}

TEST(ActuatorsTest, CommandOfAnotherSizeIsRefusedAndChangesNothing)
{
    Actuators sut(Unlimited(), std::vector<double>{1.0, 2.0});
    sut.Step(std::vector<float>{5.0F, 5.0F});
    try {
        sut.Step(std::vector<float>{7.0F});
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "Expected a command of 2 actuators but received one of 1.");
    }
    EXPECT_EQ(sut.GetPositions()[0], 1.0);
    EXPECT_EQ(sut.GetReferences()[0], 5.0);
}

TEST(ActuatorsTest, InitialPositionsBeyondTheStrokeAreRefused)
{
    MirrorConfig config;
    config.stroke_limit_um = 5.0;
    EXPECT_THROW(Actuators(config, std::vector<double>{0.0, 5.1}), std::invalid_argument);
    EXPECT_THROW(Actuators(config, std::vector<double>{std::nan("")}), std::invalid_argument);
}

TEST(ActuatorsTest, AStrokeThatIsSmallIsNamedAsItIs)
{
    MirrorConfig config;
    config.stroke_limit_um = 1e-7;
    try {
        const Actuators sut(config, std::vector<double>{0.0, 2.5e-7});
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "Expected initial positions within the stroke of +-1e-07 um but found 2.5e-07 um.");
    }
}

}  // namespace
}  // namespace lumo::mirrorsim
