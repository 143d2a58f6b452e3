#include "support/allocationGuard.hpp"
#include "support/logCapture.hpp"
#include "support/sameFloat.hpp"

#include <lumo/ravelcore/pidFilter.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

namespace lumo::ravelcore {
namespace {

constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();
constexpr float INFINITE = std::numeric_limits<float>::infinity();

/// The 27 floats of a record, in storage order.
using Fields = std::array<float, 27>;

Fields FieldsOf(const PidFilterContext& ctx)
{
    return std::bit_cast<Fields>(ctx);
}

/// A record whose fields are 1, 2, ... 27 in storage order.
PidFilterContext Numbered()
{
    Fields fields{};
    float number = 0.0F;
    for (float& field : fields) {
        field = ++number;
    }
    return std::bit_cast<PidFilterContext>(fields);
}

PidFilterContext Default()
{
    PidFilterContext ctx{};
    PidFilterDefault(ctx);
    return ctx;
}

/// A purely proportional controller of gain 1 with weight 1: on a first step with a measurement of 0 the output is the
/// set-point, limited.
PidFilterContext Proportional(float ulow, float uhigh)
{
    PidFilterContext ctx = Default();
    ctx.kp = 1.0F;
    ctx.ki = 0.0F;
    ctx.ulow = ulow;
    ctx.uhigh = uhigh;
    PidFilterInit(ctx);
    return ctx;
}

// ---- the record ----------------------------------------------------------------------------------------------------

static_assert(std::is_trivial_v<PidFilterContext> && std::is_standard_layout_v<PidFilterContext>);
static_assert(sizeof(PidFilterContext) == 27 * sizeof(float));

TEST(PidFilterTest, FieldsLieInTheStorageOrder)
{
    const PidFilterContext sut = Numbered();
    const Fields in_order = {sut.feed_forward_offset,
                             sut.sampling_period,
                             sut.kp,
                             sut.ki,
                             sut.kd,
                             sut.karw,
                             sut.ulow,
                             sut.uhigh,
                             sut.n,
                             sut.tt,
                             sut.bp,
                             sut.a0,
                             sut.bi,
                             sut.ci,
                             sut.ad,
                             sut.bd,
                             sut.ui,
                             sut.ud,
                             sut.last_meas,
                             sut.freq,
                             sut.gain,
                             sut.n1,
                             sut.d1,
                             sut.n2,
                             sut.d2,
                             sut.internal1,
                             sut.internal2};
    EXPECT_EQ(in_order, FieldsOf(sut));
}

TEST(PidFilterTest, ValueInitialisedRecordIsAllZeros)
{
    EXPECT_THAT(FieldsOf(PidFilterContext{}), testing::Each(0.0F));
}

// ---- Reset, Init, Default ------------------------------------------------------------------------------------------

TEST(PidFilterTest, ResetClearsTheFiveStatesAndNothingElse)
{
    PidFilterContext sut = Numbered();
    PidFilterReset(sut);
    PidFilterContext expected = Numbered();
    expected.ui = 0.0F;
    expected.ud = 0.0F;
    expected.last_meas = 0.0F;
    expected.internal1 = 0.0F;
    expected.internal2 = 0.0F;
    EXPECT_EQ(FieldsOf(sut), FieldsOf(expected));
}

TEST(PidFilterTest, InitClearsTheStateAndKeepsTheParameters)
{
    PidFilterContext sut = Numbered();
    PidFilterInit(sut);
    const PidFilterContext old = Numbered();
    EXPECT_EQ(sut.ui, 0.0F);
    EXPECT_EQ(sut.ud, 0.0F);
    EXPECT_EQ(sut.last_meas, 0.0F);
    EXPECT_EQ(sut.internal1, 0.0F);
    EXPECT_EQ(sut.internal2, 0.0F);
    for (const auto field :
         {&PidFilterContext::feed_forward_offset, &PidFilterContext::sampling_period, &PidFilterContext::kp,
          &PidFilterContext::ki, &PidFilterContext::kd, &PidFilterContext::karw, &PidFilterContext::ulow,
          &PidFilterContext::uhigh, &PidFilterContext::n, &PidFilterContext::tt, &PidFilterContext::bp,
          &PidFilterContext::freq}) {
        EXPECT_EQ(sut.*field, old.*field);
    }
}

TEST(PidFilterTest, InitTwiceGivesTheSameAsOnce)
{
    PidFilterContext sut = Default();
    const Fields once = FieldsOf(sut);
    PidFilterInit(sut);
    EXPECT_EQ(FieldsOf(sut), once);
}

TEST(PidFilterTest, WritingAParameterChangesNothingDerivedBeforeInit)
{
    PidFilterContext sut = Default();
    const float old_bi = sut.bi;
    const float old_gain = sut.gain;
    sut.ki = 100.0F;
    sut.freq = 60.0F;
    PidCompute(sut, 0.0F, FilterCompute(sut, 0.0F, 1.0F, true), 0.0F, true);
    EXPECT_EQ(sut.bi, old_bi);
    EXPECT_EQ(sut.gain, old_gain);
    PidFilterInit(sut);
    EXPECT_EQ(sut.bi, old_bi / 2.0F);
    EXPECT_NE(sut.gain, old_gain);
}

TEST(PidFilterTest, DefaultWritesTheDefaultParametersOverWhateverWasThere)
{
    PidFilterContext sut = Numbered();
    PidFilterDefault(sut);
    EXPECT_EQ(sut.feed_forward_offset, 0.0F);
    EXPECT_EQ(sut.sampling_period, 0.002F);
    EXPECT_EQ(sut.kp, 0.001F);
    EXPECT_EQ(sut.ki, 200.0F);
    EXPECT_EQ(sut.kd, 0.0F);
    EXPECT_EQ(sut.karw, 0.0F);
    EXPECT_EQ(sut.ulow, -200.0F);
    EXPECT_EQ(sut.uhigh, 200.0F);
    EXPECT_EQ(sut.n, 10.0F);
    EXPECT_EQ(sut.tt, 0.1F);
    EXPECT_EQ(sut.bp, 1.0F);
    EXPECT_EQ(sut.freq, 30.0F);
    EXPECT_EQ(FieldsOf(sut), FieldsOf(Default()));
}

TEST(PidFilterTest, DefaultDerivesTheCoefficients)
{
    const PidFilterContext sut = Default();
    EXPECT_FLOAT_EQ(sut.a0, 0.02F);
    EXPECT_FLOAT_EQ(sut.bi, 0.0004F);
    EXPECT_EQ(sut.ci, 0.0F);
    EXPECT_EQ(sut.ad, 0.0F);
    EXPECT_EQ(sut.bd, 0.0F);
    EXPECT_EQ(sut.n1, 2.0F);
    EXPECT_EQ(sut.n2, 1.0F);
}

TEST(PidFilterTest, ZeroTrackingTimeDisablesTheSaturationFeedback)
{
    PidFilterContext sut = Proportional(-1.0F, 1.0F);
    sut.tt = 0.0F;
    PidFilterInit(sut);
    EXPECT_EQ(sut.a0, 0.0F);
    EXPECT_EQ(PidCompute(sut, 0.0F, 5.0F, 0.0F, true), 1.0F);
    EXPECT_EQ(sut.ui, 0.0F) << "far beyond the limit, and the integral does not hear of it";
}

TEST(PidFilterTest, ZeroGainsLeaveTheirCoefficientsZeroInsteadOfMultiplying)
{
    // With an infinite period a product with 0 would be NaN.
    PidFilterContext sut = Default();
    sut.sampling_period = INFINITE;
    sut.tt = 0.0F;
    sut.ki = 0.0F;
    sut.karw = 0.0F;
    PidFilterInit(sut);
    EXPECT_EQ(sut.a0, 0.0F);
    EXPECT_EQ(sut.bi, 0.0F);
    EXPECT_EQ(sut.ci, 0.0F);
}

TEST(PidFilterTest, NanParametersCountAsNonZero)
{
    PidFilterContext sut = Default();
    sut.tt = NOT_A_NUMBER;
    sut.ki = NOT_A_NUMBER;
    sut.karw = NOT_A_NUMBER;
    PidFilterInit(sut);
    EXPECT_TRUE(std::isnan(sut.a0));
    EXPECT_TRUE(std::isnan(sut.bi));
    EXPECT_TRUE(std::isnan(sut.ci));
}

TEST(PidFilterTest, DerivativeWithoutAnyTimeGivesNanCoefficientsOnPurpose)
{
    for (const bool no_period : {true, false}) {
        PidFilterContext sut = Default();
        sut.kd = 0.0F;
        (no_period ? sut.sampling_period : sut.n) = 0.0F;
        PidFilterInit(sut);
        EXPECT_TRUE(std::isnan(sut.ad));
        EXPECT_TRUE(std::isnan(sut.bd));
    }
}

TEST(PidFilterTest, FilterFrequencyNearHalfTheRateMakesTheFilterLetEverythingThrough)
{
    PidFilterContext sut = Default();
    sut.freq = 249.99F;  // the rate is 500 Hz
    PidFilterInit(sut);
    EXPECT_NEAR(sut.gain, 1.0F, 1e-3F);
    EXPECT_NEAR(sut.d1, 2.0F, 1e-3F);
    EXPECT_NEAR(sut.d2, 1.0F, 1e-3F);
}

// ---- Unpack, Copy --------------------------------------------------------------------------------------------------

std::vector<float> PackedParameters(int channels)
{
    std::vector<float> params;
    for (int channel = 0; channel < channels; ++channel) {
        for (int param = 1; param <= NUM_PID_FILTER_PARAMS; ++param) {
            params.push_back(static_cast<float>(100 * channel + param));
        }
    }
    return params;
}

void ExpectPacked(const PidFilterContext& ctx, float base)
{
    EXPECT_EQ(ctx.kp, base + 1.0F);
    EXPECT_EQ(ctx.ki, base + 2.0F);
    EXPECT_EQ(ctx.kd, base + 3.0F);
    EXPECT_EQ(ctx.karw, base + 4.0F);
    EXPECT_EQ(ctx.bp, base + 5.0F);
    EXPECT_EQ(ctx.tt, base + 6.0F);
    EXPECT_EQ(ctx.n, base + 7.0F);
    EXPECT_EQ(ctx.ulow, base + 8.0F);
    EXPECT_EQ(ctx.uhigh, base + 9.0F);
    EXPECT_EQ(ctx.freq, base + 10.0F);
}

TEST(PidFilterTest, UnpackWritesTheTenParametersInPackedOrderAndNothingElse)
{
    PidFilterContext sut = Numbered();
    const std::vector<float> params = PackedParameters(1);
    PidFilterUnpack(params.data(), sut);
    ExpectPacked(sut, 0.0F);
    EXPECT_EQ(sut.feed_forward_offset, 1.0F);
    EXPECT_EQ(sut.sampling_period, 2.0F);
    for (std::size_t field = 11; field < 27; ++field) {
        if (field != 19) {  // freq, the parameter among the derived fields
            EXPECT_EQ(FieldsOf(sut)[field], FieldsOf(Numbered())[field]) << "field " << field + 1;
        }
    }
}

TEST(PidFilterTest, CopyBuildsOneInitialisedChannelForEachTenParameters)
{
    std::vector<PidFilterContext> sut(7, Numbered());
    ASSERT_TRUE(PidFilterCopy(0.004F, -3.5F, PackedParameters(3), sut));
    ASSERT_EQ(sut.size(), 3U);
    for (std::size_t channel = 0; channel < 3; ++channel) {
        ExpectPacked(sut[channel], 100.0F * static_cast<float>(channel));
        EXPECT_EQ(sut[channel].feed_forward_offset, -3.5F);
        EXPECT_EQ(sut[channel].sampling_period, 0.004F);
        PidFilterContext initialised = sut[channel];
        PidFilterInit(initialised);
        EXPECT_EQ(FieldsOf(sut[channel]), FieldsOf(initialised)) << "coefficients derived, state clear";
    }
}

TEST(PidFilterTest, CopyOfDefaultParametersIsADefaultChannel)
{
    std::vector<PidFilterContext> sut;
    const std::vector<float> params = {0.001F, 200.0F, 0.0F, 0.0F, 1.0F, 0.1F, 10.0F, -200.0F, 200.0F, 30.0F};
    ASSERT_TRUE(PidFilterCopy(0.002F, 0.0F, params, sut));
    ASSERT_EQ(sut.size(), 1U);
    EXPECT_EQ(FieldsOf(sut[0]), FieldsOf(Default()));
}

TEST(PidFilterTest, CopyOfAnIncompleteChannelReturnsFalseAndChangesNothing)
{
    for (const std::size_t count : {1U, 9U, 11U, 25U}) {
        std::vector<PidFilterContext> sut(2, Numbered());
        EXPECT_FALSE(PidFilterCopy(0.002F, 0.0F, std::vector<float>(count, 1.0F), sut)) << count;
        ASSERT_EQ(sut.size(), 2U);
        EXPECT_EQ(FieldsOf(sut[0]), FieldsOf(Numbered()));
        EXPECT_EQ(FieldsOf(sut[1]), FieldsOf(Numbered()));
    }
}

TEST(PidFilterTest, CopyWithAPeriodOfZeroReturnsFalseAndChangesNothing)
{
    for (const float period : {0.0F, -0.0F}) {
        for (const int channels : {0, 1}) {
            std::vector<PidFilterContext> sut(2, Numbered());
            EXPECT_FALSE(PidFilterCopy(period, 0.0F, PackedParameters(channels), sut));
            ASSERT_EQ(sut.size(), 2U);
            EXPECT_EQ(FieldsOf(sut[0]), FieldsOf(Numbered()));
        }
    }
}

TEST(PidFilterTest, CopyOfNoParametersReturnsTrueAndEmptiesTheVector)
{
    std::vector<PidFilterContext> sut(2, Numbered());
    EXPECT_TRUE(PidFilterCopy(0.002F, 0.0F, {}, sut));
    EXPECT_TRUE(sut.empty());
}

TEST(PidFilterTest, CopyLetsAPeriodOfNanPass)
{
    std::vector<PidFilterContext> sut;
    EXPECT_TRUE(PidFilterCopy(NOT_A_NUMBER, 0.0F, PackedParameters(1), sut));
    ASSERT_EQ(sut.size(), 1U);
    EXPECT_TRUE(std::isnan(sut[0].sampling_period));
    EXPECT_TRUE(std::isnan(sut[0].bi));
}

// ---- FilterCompute -------------------------------------------------------------------------------------------------

TEST(PidFilterTest, FilterStartsWithoutABump)
{
    for (const float value : {0.0F, 1.0F, -37.5F, 1e4F}) {
        PidFilterContext sut = Default();
        for (int cycle = 0; cycle < 500; ++cycle) {
            const float output = FilterCompute(sut, value, value, cycle == 0);
            ASSERT_NEAR(output, value, std::abs(value) * 2e-5F) << "cycle " << cycle;
        }
    }
}

TEST(PidFilterTest, FilterStartsAtItsInitialValueAndMovesTowardsAnotherInput)
{
    PidFilterContext sut = Default();
    const float first = FilterCompute(sut, 10.0F, 20.0F, true);
    EXPECT_GT(first, 10.0F);
    EXPECT_LT(first, 11.0F) << "one step of a slow filter";
    EXPECT_FLOAT_EQ(first, 10.0F + 10.0F * sut.gain);
}

TEST(PidFilterTest, FilterUsesItsInitialValueOnTheFirstStepOnly)
{
    PidFilterContext one = Default();
    PidFilterContext other = Default();
    FilterCompute(one, 3.0F, 5.0F, true);
    FilterCompute(other, 3.0F, 5.0F, true);
    for (int cycle = 0; cycle < 10; ++cycle) {
        EXPECT_EQ(FilterCompute(one, 3.0F, 5.0F, false), FilterCompute(other, NOT_A_NUMBER, 5.0F, false));
    }
}

TEST(PidFilterTest, FirstStepOfTheFilterForgetsTheEarlierState)
{
    PidFilterContext sut = Default();
    const float fresh = FilterCompute(sut, 3.0F, 5.0F, true);
    FilterCompute(sut, 0.0F, NOT_A_NUMBER, false);
    EXPECT_EQ(FilterCompute(sut, 3.0F, 5.0F, true), fresh);
}

TEST(PidFilterTest, FilterMovesOnlyItsOwnTwoStates)
{
    PidFilterContext sut = Numbered();
    FilterCompute(sut, 1.0F, 2.0F, false);
    PidFilterContext expected = Numbered();
    expected.internal2 = expected.internal1;
    expected.internal1 = sut.internal1;
    EXPECT_EQ(FieldsOf(sut), FieldsOf(expected));
    EXPECT_NE(sut.internal1, Numbered().internal1);
}

TEST(PidFilterTest, FilterUsesTheNumeratorsOfTheRecord)
{
    // All values and results are small integers or halves, so that no rounding takes part.
    PidFilterContext sut{};
    sut.gain = 0.5F;
    sut.n1 = 3.0F;
    sut.d1 = -1.0F;
    sut.n2 = 5.0F;
    sut.d2 = 2.0F;
    sut.internal1 = 7.0F;
    sut.internal2 = 11.0F;
    // w = 100 + 7 - 22 = 85; 3 * 7 + 85 + 5 * 11 = 161
    EXPECT_EQ(FilterCompute(sut, NOT_A_NUMBER, 100.0F, false), 80.5F);
    // w = 10 + 85 - 14 = 81; 3 * 85 + 81 + 5 * 7 = 371
    EXPECT_EQ(FilterCompute(sut, NOT_A_NUMBER, 10.0F, false), 185.5F);
    EXPECT_EQ(sut.internal1, 81.0F);
    EXPECT_EQ(sut.internal2, 85.0F);
}

TEST(PidFilterTest, FirstStepOfTheFilterUsesTheNumeratorsOfTheRecord)
{
    PidFilterContext sut{};
    sut.gain = 0.5F;
    sut.n1 = 3.0F;
    sut.d1 = -1.0F;
    sut.n2 = 6.0F;
    sut.d2 = 2.0F;
    // start = 0.5 * 16 / ((9 + 1 - 2) * 0.5) = 2; w = 100 + 2 - 4 = 98; 3 * 2 + 98 + 6 * 2 = 116
    EXPECT_EQ(FilterCompute(sut, 16.0F, 100.0F, true), 58.0F);
    EXPECT_EQ(sut.internal1, 98.0F);
    EXPECT_EQ(sut.internal2, 2.0F);
}

TEST(PidFilterTest, FilterDoesNotRecoverFromNanBeforeItIsStartedAgain)
{
    PidFilterContext sut = Default();
    FilterCompute(sut, 0.0F, 1.0F, true);
    FilterCompute(sut, 0.0F, NOT_A_NUMBER, false);
    for (int cycle = 0; cycle < 10; ++cycle) {
        EXPECT_TRUE(std::isnan(FilterCompute(sut, 0.0F, 1.0F, false)));
    }
    PidFilterReset(sut);
    EXPECT_FALSE(std::isnan(FilterCompute(sut, 0.0F, 1.0F, false)));
}

// ---- PidCompute ----------------------------------------------------------------------------------------------------

TEST(PidFilterTest, DefaultChannelAtRestStaysAtRest)
{
    PidFilterContext sut = Default();
    EXPECT_EQ(PidCompute(sut, 0.0F, 0.0F, 0.0F, true), 0.0F);
    EXPECT_EQ(sut.ui, 0.0F);
    EXPECT_EQ(PidFilterCompute(sut, 0.0F, 0.0F, 0.0F, true, true, true, true), 0.0F);
    EXPECT_EQ(sut.ui, 0.0F);
}

TEST(PidFilterTest, IntegralStartsAtTheMeasurementOnPurpose)
{
    PidFilterContext sut = Default();
    sut.ui = NOT_A_NUMBER;
    EXPECT_EQ(PidCompute(sut, 12.0F, 12.0F, 0.0F, true), 12.0F);
    EXPECT_EQ(sut.ui, 12.0F);
}

TEST(PidFilterTest, FirstDerivativeKickIsNotSuppressedOnPurpose)
{
    PidFilterContext sut = Proportional(-1e6F, 1e6F);
    sut.kd = 0.1F;
    PidFilterInit(sut);
    // At the set-point, so that only integral (5) and derivative (-5 bd, as last_meas is 0) are left.
    EXPECT_EQ(PidCompute(sut, 5.0F, 5.0F, 0.0F, true), 5.0F - 5.0F * sut.bd);
    EXPECT_EQ(sut.ud, -5.0F * sut.bd);
    EXPECT_GT(sut.bd, 1.0F);
}

TEST(PidFilterTest, LastMeasurementOfAnEarlierRunStillKicksOnAFirstStep)
{
    PidFilterContext sut = Proportional(-1e6F, 1e6F);
    sut.kd = 0.1F;
    PidFilterInit(sut);
    PidCompute(sut, 5.0F, 5.0F, 0.0F, true);
    const float derivative = sut.ad * sut.ud;
    EXPECT_EQ(PidCompute(sut, 5.0F, 5.0F, 0.0F, true), 5.0F + derivative) << "no change of measurement: it only decays";
}

TEST(PidFilterTest, SetpointWeightActsOnTheProportionalTermOnly)
{
    PidFilterContext sut = Default();
    sut.kp = 2.0F;
    sut.ki = 10.0F;
    sut.bp = 0.5F;
    PidFilterInit(sut);
    EXPECT_EQ(PidCompute(sut, 1.0F, 4.0F, 0.0F, true), 1.0F + 2.0F * (0.5F * 4.0F - 1.0F));
    EXPECT_EQ(sut.ui, (4.0F - 1.0F) * sut.bi + 1.0F) << "the integral sees the whole error";
}

TEST(PidFilterTest, OutputExactlyAtALimitIsNotClipped)
{
    PidFilterContext high = Proportional(-1.0F, 3.0F);
    EXPECT_EQ(PidCompute(high, 0.0F, 3.0F, 0.0F, true), 3.0F);
    EXPECT_EQ(high.ui, 0.0F) << "nothing fed back";
    PidFilterContext low = Proportional(-1.0F, 3.0F);
    EXPECT_EQ(PidCompute(low, 0.0F, -1.0F, 0.0F, true), -1.0F);
    EXPECT_EQ(low.ui, 0.0F);
}

TEST(PidFilterTest, OutputOneStepBeyondALimitIsClipped)
{
    PidFilterContext high = Proportional(-1.0F, 3.0F);
    EXPECT_EQ(PidCompute(high, 0.0F, std::nextafter(3.0F, INFINITE), 0.0F, true), 3.0F);
    EXPECT_LT(high.ui, 0.0F);
    PidFilterContext low = Proportional(-1.0F, 3.0F);
    EXPECT_EQ(PidCompute(low, 0.0F, std::nextafter(-1.0F, -INFINITE), 0.0F, true), -1.0F);
    EXPECT_GT(low.ui, 0.0F);
}

TEST(PidFilterTest, WhatIsClippedFeedsBackIntoTheIntegral)
{
    PidFilterContext sut = Proportional(-1.0F, 3.0F);
    EXPECT_EQ(PidCompute(sut, 0.0F, -5.0F, 0.0F, true), -1.0F);
    EXPECT_EQ(sut.ui, (-1.0F - -5.0F) * sut.a0);
    EXPECT_GT(sut.ui, 0.0F);
}

TEST(PidFilterTest, UpperLimitIsLookedAtFirstWhenTheLimitsAreCrossed)
{
    PidFilterContext sut = Proportional(2.0F, -2.0F);
    EXPECT_EQ(PidCompute(sut, 0.0F, 0.0F, 0.0F, true), -2.0F) << "above the upper limit wins over below the lower";
    sut = Proportional(2.0F, -2.0F);
    EXPECT_EQ(PidCompute(sut, 0.0F, -3.0F, 0.0F, true), 2.0F);
    sut = Proportional(2.0F, -2.0F);
    EXPECT_EQ(PidCompute(sut, 0.0F, -2.0F, 0.0F, true), 2.0F) << "at the upper limit is not above it";
}

TEST(PidFilterTest, NanOutputPassesTheLimits)
{
    PidFilterContext sut = Proportional(-1.0F, 1.0F);
    EXPECT_TRUE(std::isnan(PidCompute(sut, 0.0F, NOT_A_NUMBER, 0.0F, true)));
}

TEST(PidFilterTest, NanLimitsLimitNothing)
{
    PidFilterContext sut = Proportional(NOT_A_NUMBER, NOT_A_NUMBER);
    EXPECT_EQ(PidCompute(sut, 0.0F, 1e30F, 0.0F, true), 1e30F);
}

TEST(PidFilterTest, InfiniteSetpointIsClippedToTheLimit)
{
    PidFilterContext sut = Proportional(-1.0F, 3.0F);
    EXPECT_EQ(PidCompute(sut, 0.0F, INFINITE, 0.0F, true), 3.0F);
    sut = Proportional(-1.0F, 3.0F);
    EXPECT_EQ(PidCompute(sut, 0.0F, -INFINITE, 0.0F, true), -1.0F);
}

TEST(PidFilterTest, ExternalAntiWindupInputGoesIntoTheIntegralAndActsOneStepLater)
{
    PidFilterContext sut = Default();
    sut.karw = 12.5F;
    PidFilterInit(sut);
    EXPECT_EQ(PidCompute(sut, 0.0F, 0.0F, 8.0F, true), 0.0F);
    EXPECT_EQ(sut.ui, (12.5F * 0.002F) * 8.0F);
    EXPECT_EQ(PidCompute(sut, 0.0F, 0.0F, 0.0F, false), (12.5F * 0.002F) * 8.0F);
}

TEST(PidFilterTest, PidMovesOnlyItsOwnThreeStates)
{
    PidFilterContext sut = Numbered();
    PidCompute(sut, 1.5F, 2.0F, 3.0F, false);
    PidFilterContext expected = Numbered();
    expected.ui = sut.ui;
    expected.ud = sut.ud;
    expected.last_meas = 1.5F;
    EXPECT_EQ(FieldsOf(sut), FieldsOf(expected));
}

TEST(PidFilterTest, FeedForwardOffsetIsNotUsedByTheComputeFunctions)
{
    PidFilterContext one = Default();
    PidFilterContext other = Default();
    other.feed_forward_offset = 1000.0F;
    PidFilterInit(other);
    for (int cycle = 0; cycle < 20; ++cycle) {
        const auto value = static_cast<float>(cycle);
        EXPECT_EQ(PidFilterCompute(one, value, 3.0F, 1.0F, true, true, true, cycle == 0),
                  PidFilterCompute(other, value, 3.0F, 1.0F, true, true, true, cycle == 0));
    }
}

// ---- PidFilterCompute ----------------------------------------------------------------------------------------------

TEST(PidFilterTest, CombinedWithoutPidAndFilterAtTheSetpointReturnsTheMeasurement)
{
    PidFilterContext sut = Default();
    EXPECT_EQ(PidFilterCompute(sut, 7.0F, 7.0F, 0.0F, false, false, false, true), 7.0F);
    EXPECT_EQ(PidFilterCompute(sut, 7.0F, 7.0F, 0.0F, false, false, true, true), 7.0F) << "plus 0";
}

TEST(PidFilterTest, CombinedWithoutPidAndFilterKeepsTheSignOfAZeroAtTheSetpoint)
{
    PidFilterContext sut = Default();
    for (const float setpoint : {-0.0F, 0.0F}) {
        for (const float meas : {-0.0F, 0.0F}) {
            EXPECT_PRED2(test::IsSame, PidFilterCompute(sut, meas, setpoint, 0.0F, false, false, false, true), meas);
        }
    }
    EXPECT_PRED2(test::IsSame, PidFilterCompute(sut, -0.0F, -0.0F, 0.0F, false, false, true, true), 0.0F)
        << "the added set-point is a 0 that is not negative";
}

TEST(PidFilterTest, CombinedWithoutPidAndFilterOffTheSetpointAddsIt)
{
    PidFilterContext sut = Default();
    EXPECT_EQ(PidFilterCompute(sut, 7.0F, 3.0F, 0.0F, false, false, false, true), 10.0F);
    EXPECT_EQ(PidFilterCompute(sut, 7.0F, 3.0F, 0.0F, false, false, true, true), 13.0F);
    EXPECT_EQ(FieldsOf(sut), FieldsOf(Default())) << "neither filter nor controller was stepped";
}

TEST(PidFilterTest, CombinedCountsNanAsUnequal)
{
    PidFilterContext sut = Default();
    EXPECT_TRUE(std::isnan(PidFilterCompute(sut, NOT_A_NUMBER, NOT_A_NUMBER, 0.0F, false, false, false, true)));
    EXPECT_TRUE(std::isnan(PidFilterCompute(sut, 1.0F, NOT_A_NUMBER, 0.0F, false, false, false, true)));
}

TEST(PidFilterTest, CombinedWithoutPidComparesTheRawSetpointAlsoWithTheFilterOn)
{
    // The filter is far from its input, but measurement and raw set-point are equal: the measurement alone comes out.
    PidFilterContext sut = Default();
    FilterCompute(sut, 100.0F, 100.0F, true);
    EXPECT_EQ(PidFilterCompute(sut, 7.0F, 7.0F, 0.0F, false, true, false, false), 7.0F);
    // And with a filter that is at 7 while the raw set-point is not, the sum comes out.
    PidFilterContext other = Default();
    const float filtered = FilterCompute(other, 7.0F, 8.0F, true);
    PidFilterContext again = Default();
    EXPECT_EQ(PidFilterCompute(again, 7.0F, 8.0F, 0.0F, false, true, false, true), 7.0F + filtered);
}

TEST(PidFilterTest, CombinedFilterStartsFromTheMeasurement)
{
    PidFilterContext sut = Default();
    PidFilterContext alone = Default();
    const float filtered = FilterCompute(alone, 5.0F, 9.0F, true);
    EXPECT_EQ(PidFilterCompute(sut, 5.0F, 9.0F, 0.0F, false, true, false, true), 5.0F + filtered);
    EXPECT_EQ(sut.internal1, alone.internal1);
    EXPECT_EQ(sut.internal2, alone.internal2);
}

TEST(PidFilterTest, CombinedPidWithoutFilterAtTheSetpointIsGivenZeroOnPurpose)
{
    PidFilterContext sut = Default();
    PidFilterContext alone = Default();
    EXPECT_EQ(PidFilterCompute(sut, 7.0F, 7.0F, 0.0F, true, false, false, true),
              PidCompute(alone, 7.0F, 0.0F, 0.0F, true));
    EXPECT_EQ(FieldsOf(sut), FieldsOf(alone));
}

TEST(PidFilterTest, CombinedIsFilterThenPidThenSum)
{
    PidFilterContext sut = Default();
    PidFilterContext alone = Default();
    for (int cycle = 0; cycle < 50; ++cycle) {
        const auto meas = static_cast<float>(cycle % 7);
        const float filtered = FilterCompute(alone, meas, 3.0F, cycle == 0);
        const float expected = PidCompute(alone, meas, filtered, 0.5F, cycle == 0) + filtered;
        EXPECT_EQ(PidFilterCompute(sut, meas, 3.0F, 0.5F, true, true, true, cycle == 0), expected);
    }
    EXPECT_EQ(FieldsOf(sut), FieldsOf(alone));
}

TEST(PidFilterTest, AddedSetpointMayLeaveTheLimits)
{
    PidFilterContext sut = Proportional(-1.0F, 1.0F);
    EXPECT_EQ(PidFilterCompute(sut, 0.0F, 5.0F, 0.0F, true, false, true, true), 6.0F);
}

// ---- real time, text -----------------------------------------------------------------------------------------------

TEST(PidFilterTest, StepsNeitherAllocateNorLog)
{
    const test::LogCapture log("");
    PidFilterContext sut{};
    const std::vector<float> params = PackedParameters(1);
    const test::AllocationGuard guard;
    PidFilterUnpack(params.data(), sut);
    PidFilterDefault(sut);
    PidFilterReset(sut);
    float sum = 0.0F;
    for (int cycle = 0; cycle < 1000; ++cycle) {
        const float filtered = FilterCompute(sut, 1.0F, 2.0F, cycle == 0);
        sum += PidCompute(sut, 1.0F, filtered, 0.0F, cycle == 0);
        sum += PidFilterCompute(sut, 1.0F, 2.0F, 0.0F, true, true, true, false);
    }
    EXPECT_EQ(guard.GetCount(), 0);
    EXPECT_TRUE(log.Events().empty());
    EXPECT_FALSE(std::isnan(sum));
}

TEST(PidFilterTest, PrintShowsAllFieldsOnePerLineInItsOwnOrder)
{
    PidFilterContext sut = Numbered();
    sut.kp = -0.5F;
    sut.ui = 1e10F;
    sut.internal2 = 1e-9F;
    EXPECT_EQ(PidFilterPrint(sut),
              "feed_forward_offset = 1.000000\n"
              "sampling_period     = 2.000000\n"
              "kp                  = -0.500000\n"
              "ki                  = 4.000000\n"
              "kd                  = 5.000000\n"
              "karw                = 6.000000\n"
              "bp                  = 11.000000\n"
              "tt                  = 10.000000\n"
              "n                   = 9.000000\n"
              "ulow                = 7.000000\n"
              "uhigh               = 8.000000\n"
              "freq                = 20.000000\n"
              "a0                  = 12.000000\n"
              "bi                  = 13.000000\n"
              "ci                  = 14.000000\n"
              "ad                  = 15.000000\n"
              "bd                  = 16.000000\n"
              "ui                  = 10000000000.000000\n"
              "ud                  = 18.000000\n"
              "last_meas           = 19.000000\n"
              "gain                = 21.000000\n"
              "n1                  = 22.000000\n"
              "d1                  = 23.000000\n"
              "n2                  = 24.000000\n"
              "d2                  = 25.000000\n"
              "internal1           = 26.000000\n"
              "internal2           = 0.000000");
}

TEST(PidFilterTest, PrintShowsNanAndInfinityAsText)
{
    PidFilterContext sut{};
    sut.kp = INFINITE;
    sut.ki = -INFINITE;
    sut.kd = NOT_A_NUMBER;
    const std::string text = PidFilterPrint(sut);
    EXPECT_THAT(text, testing::HasSubstr("\nkp                  = inf\n"));
    EXPECT_THAT(text, testing::HasSubstr("\nki                  = -inf\n"));
    EXPECT_THAT(text, testing::HasSubstr("\nkd                  = nan\n"));
}

}  // namespace
}  // namespace lumo::ravelcore
