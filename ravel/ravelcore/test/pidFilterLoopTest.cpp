#include <lumo/ravelcore/pidFilter.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>

// Claims about whole responses: of the set-point filter over frequency, and of the channel in a closed loop.

namespace lumo::ravelcore {
namespace {

constexpr double RATE = 500.0;  // Hz

PidFilterContext Default()
{
    PidFilterContext ctx{};
    PidFilterDefault(ctx);
    return ctx;
}

PidFilterContext FilterOf(float freq)
{
    PidFilterContext ctx = Default();
    ctx.freq = freq;
    PidFilterInit(ctx);
    return ctx;
}

/// A controller that acts through its integral alone: what the mirror's modes have.
PidFilterContext Integrating(float integral_per_cycle)
{
    PidFilterContext ctx = Default();
    ctx.kp = 1e-6F;
    ctx.ki = integral_per_cycle / (ctx.kp * ctx.sampling_period);
    PidFilterInit(ctx);
    return ctx;
}

/// Response to a sine of `frequency` (Hz) once the start has died away: output over input, amplitude and phase.
std::complex<double> MeasuredResponse(PidFilterContext ctx, double frequency)
{
    constexpr int SETTLING = 5000;
    constexpr int MEASURED = 5000;  // 10 s: a whole number of periods for every multiple of 0.1 Hz
    std::complex<double> in = 0.0;
    std::complex<double> out = 0.0;
    for (int cycle = 0; cycle < SETTLING + MEASURED; ++cycle) {
        const double phase = 2.0 * std::numbers::pi * std::fmod(frequency * cycle / RATE, 1.0);
        const auto input = static_cast<float>(std::cos(phase));
        const float output = FilterCompute(ctx, 0.0F, input, cycle == 0);
        if (cycle >= SETTLING) {
            in += static_cast<double>(input) * std::polar(1.0, -phase);
            out += static_cast<double>(output) * std::polar(1.0, -phase);
        }
    }
    return out / in;
}

/// Response that the coefficients promise: g (1 + n1 z^-1 + n2 z^-2) / (1 + d1 z^-1 + d2 z^-2).
std::complex<double> PromisedResponse(const PidFilterContext& ctx, double frequency)
{
    const std::complex<double> z1 = std::polar(1.0, -2.0 * std::numbers::pi * frequency / RATE);
    const std::complex<double> z2 = z1 * z1;
    const std::complex<double> numerator = 1.0 + static_cast<double>(ctx.n1) * z1 + static_cast<double>(ctx.n2) * z2;
    const std::complex<double> denominator = 1.0 + static_cast<double>(ctx.d1) * z1 + static_cast<double>(ctx.d2) * z2;
    return static_cast<double>(ctx.gain) * numerator / denominator;
}

// ---- set-point filter ----------------------------------------------------------------------------------------------

TEST(PidFilterLoopTest, FilterRespondsToEachFrequencyAsItsCoefficientsSay)
{
    for (const float freq : {5.0F, 30.0F, 100.0F, 200.0F}) {
        const PidFilterContext sut = FilterOf(freq);
        for (const double frequency : {0.5, 1.0, 5.0, 17.3, 30.0, 62.5, 100.0, 150.0, 200.0, 240.0}) {
            const std::complex<double> seen = MeasuredResponse(sut, frequency);
            const std::complex<double> promised = PromisedResponse(sut, frequency);
            EXPECT_NEAR(std::abs(seen - promised), 0.0, 2e-5)
                << frequency << " Hz through a filter of " << freq << " Hz";
        }
    }
}

TEST(PidFilterLoopTest, FilterAtItsCutOffHasTheResponseOfItsAnaloguePrototype)
{
    // 1 / (s^2 + sqrt(3) s + 1) at s = j is -j / sqrt(3); pre-warping puts it exactly at the cut-off frequency.
    for (const float freq : {1.0F, 5.0F, 30.0F, 100.0F, 200.0F}) {
        const std::complex<double> seen = MeasuredResponse(FilterOf(freq), static_cast<double>(freq));
        EXPECT_NEAR(seen.real(), 0.0, 2e-4) << freq << " Hz";
        EXPECT_NEAR(seen.imag(), -1.0 / std::numbers::sqrt3, 2e-4) << freq << " Hz";
    }
}

TEST(PidFilterLoopTest, FilterFollowsThePrototypeAtEveryWarpedFrequency)
{
    const double freq = 30.0;
    const PidFilterContext sut = FilterOf(static_cast<float>(freq));
    for (const double frequency : {1.0, 10.0, 20.0, 60.0, 120.0, 200.0}) {
        const std::complex<double> s(
            0.0, std::tan(std::numbers::pi * frequency / RATE) / std::tan(std::numbers::pi * freq / RATE));
        const std::complex<double> prototype = 1.0 / (s * s + std::numbers::sqrt3 * s + 1.0);
        EXPECT_NEAR(std::abs(MeasuredResponse(sut, frequency) - prototype), 0.0, 2e-4) << frequency << " Hz";
    }
}

TEST(PidFilterLoopTest, FilterLetsAConstantThroughAndStopsHalfTheRate)
{
    for (const float freq : {5.0F, 30.0F, 200.0F}) {
        const PidFilterContext sut = FilterOf(freq);
        EXPECT_NEAR(std::abs(PromisedResponse(sut, 0.0)), 1.0, 1e-4);
        EXPECT_NEAR(std::abs(PromisedResponse(sut, RATE / 2.0)), 0.0, 1e-9);
    }
}

TEST(PidFilterLoopTest, StepThroughTheFilterArrivesWithHardlyAnOvershoot)
{
    PidFilterContext sut = Default();
    float output = 0.0F;
    for (int cycle = 0; cycle < 100; ++cycle) {
        output = FilterCompute(sut, 0.0F, 1.0F, cycle == 0);
        ASSERT_GE(output, 0.0F) << "cycle " << cycle;
        ASSERT_LE(output, 1.005F) << "overshoot in cycle " << cycle;  // the prototype's own is 0.43 %
    }
    EXPECT_NEAR(output, 1.0F, 1e-4F);
}

TEST(PidFilterLoopTest, FilterIsStableBelowHalfTheRate)
{
    // Both poles lie inside the unit circle exactly if |d2| < 1 and |d1| < 1 + d2.
    for (int half_hertz = 1; half_hertz < 498; ++half_hertz) {
        const float freq = 0.5F * static_cast<float>(half_hertz);
        const PidFilterContext sut = FilterOf(freq);
        EXPECT_LT(std::abs(sut.d2), 1.0F) << freq << " Hz";
        EXPECT_LT(std::abs(sut.d1), 1.0F + sut.d2) << freq << " Hz";
    }
}

// ---- closed loop ---------------------------------------------------------------------------------------------------

TEST(PidFilterLoopTest, DefaultChannelBringsTheErrorDownEveryCycleWithoutOvershoot)
{
    PidFilterContext sut = Default();
    float position = 0.0F;
    float error = 1.0F;
    for (int cycle = 0; cycle < 30000; ++cycle) {
        position =
            PidCompute(sut, position, 1.0F, 0.0F, cycle == 0);  // the whole plant: it does as told, one cycle later
        ASSERT_LE(1.0F - position, error) << "cycle " << cycle;
        ASSERT_LE(position, 1.0F + 1e-5F) << "overshoot in cycle " << cycle;
        error = 1.0F - position;
    }
    EXPECT_NEAR(position, 1.0F, 1e-4F);
}

TEST(PidFilterLoopTest, IntegralControllerFollowsItsDifferenceEquation)
{
    // An error acts on the integral of the next cycle, and the plant takes one more: e[k+1] = e[k] - gain e[k-1].
    constexpr double GAIN = 0.3;
    PidFilterContext sut = Integrating(static_cast<float>(GAIN));
    float position = 0.0F;
    double error = 1.0;
    double last_error = 1.0;
    for (int cycle = 0; cycle < 100; ++cycle) {
        ASSERT_NEAR(1.0 - static_cast<double>(position), error, 1e-5) << "cycle " << cycle;
        position = PidCompute(sut, position, 1.0F, 0.0F, cycle == 0);
        const double next = cycle == 0 ? 1.0 : error - GAIN * last_error;
        last_error = error;
        error = next;
    }
    EXPECT_NEAR(position, 1.0F, 1e-5F);
}

TEST(PidFilterLoopTest, ConstantDisturbanceIsTakenAwayWhole)
{
    PidFilterContext sut = Integrating(0.2F);
    float command = 0.0F;
    for (int cycle = 0; cycle < 300; ++cycle) {
        const float disturbance = cycle < 50 ? 0.0F : 7.0F;
        command = PidCompute(sut, command + disturbance, 0.0F, 0.0F, cycle == 0);
    }
    EXPECT_NEAR(command, -7.0F, 1e-4F);
}

TEST(PidFilterLoopTest, StartOnAStandingMirrorIsBumpless)
{
    // The measurement at the start is the set-point: the first command and all that follow are that same value.
    PidFilterContext sut = Default();
    float position = 42.0F;
    for (int cycle = 0; cycle < 500; ++cycle) {
        const float setpoint = FilterCompute(sut, position, 42.0F, cycle == 0);
        position = PidCompute(sut, position, setpoint, 0.0F, cycle == 0);
        ASSERT_NEAR(position, 42.0F, 1e-3F) << "cycle " << cycle;
    }
}

TEST(PidFilterLoopTest, LoopIsStableUpToTheGainThatTheoryAllows)
{
    // The poles of that difference equation, z^2 - z + gain, leave the unit circle at a gain of 1.
    for (const float gain : {0.98F, 1.02F}) {
        PidFilterContext sut = Integrating(gain);
        sut.ulow = -1e30F;
        sut.uhigh = 1e30F;
        float position = 0.0F;
        float largest_late = 0.0F;
        for (int cycle = 0; cycle < 2000; ++cycle) {
            position = PidCompute(sut, position, 1.0F, 0.0F, cycle == 0);
            if (cycle >= 1900) {
                largest_late = std::max(largest_late, std::abs(position - 1.0F));
            }
        }
        if (gain < 1.0F) {
            EXPECT_LT(largest_late, 1e-4F) << gain;
        } else {
            EXPECT_GT(largest_late, 1e4F) << gain;
        }
    }
}

/// Cycles that the output stays at its limit after a far set-point has come back, having been away for 500 cycles.
int CyclesToLeaveTheLimit(float tt)
{
    PidFilterContext sut = Integrating(0.05F);
    sut.tt = tt;
    sut.ulow = -1.0F;
    sut.uhigh = 1.0F;
    PidFilterInit(sut);
    float position = 0.0F;
    for (int cycle = 0; cycle < 500; ++cycle) {
        position = PidCompute(sut, position, 3.0F, 0.0F, cycle == 0);
        EXPECT_LE(position, 1.0F);
    }
    EXPECT_EQ(position, 1.0F);
    int cycles = 0;
    while (position == 1.0F && cycles < 10000) {
        position = PidCompute(sut, position, 0.0F, 0.0F, false);
        ++cycles;
    }
    return cycles;
}

TEST(PidFilterLoopTest, TrackingKeepsTheIntegralFromWindingUp)
{
    // Wound up, the integral stands at 1 + 0.05 x 2 x 500 = 51 and comes back by 0.05 each cycle: 1000 cycles.
    EXPECT_GT(CyclesToLeaveTheLimit(0.0F), 900);
    EXPECT_LT(CyclesToLeaveTheLimit(0.02F), 20);
}

TEST(PidFilterLoopTest, ExternalAntiWindupKeepsTheIntegralAtWhatTheActuatorCouldDo)
{
    // An actuator that goes no further than 1 while the channel's own limits are far away; what it fell short of the
    // command comes back as anti-windup input.
    int cycles_to_leave[2] = {0, 0};
    for (const bool told : {false, true}) {
        PidFilterContext sut = Integrating(0.05F);
        sut.karw = 50.0F;  // a tenth of the shortfall each cycle
        PidFilterInit(sut);
        float position = 0.0F;
        float shortfall = 0.0F;
        int& cycles = cycles_to_leave[told ? 1 : 0];
        for (int cycle = 0; cycle < 5000 && (cycle < 500 || position == 1.0F); ++cycle) {
            const float setpoint = cycle < 500 ? 3.0F : 0.0F;
            const float command = PidCompute(sut, position, setpoint, told ? shortfall : 0.0F, cycle == 0);
            position = std::min(command, 1.0F);
            shortfall = position - command;
            cycles += cycle < 500 ? 0 : 1;
        }
    }
    EXPECT_GT(cycles_to_leave[0], 900);
    EXPECT_LT(cycles_to_leave[1], 40);
}

TEST(PidFilterLoopTest, DerivativeOfARampSettlesAtGainTimesTimeTimesSlope)
{
    PidFilterContext sut = Default();
    sut.kp = 2.0F;
    sut.ki = 0.0F;
    sut.kd = 0.05F;
    PidFilterInit(sut);
    constexpr float SLOPE = 4.0F;  // per second
    for (int cycle = 0; cycle < 500; ++cycle) {
        const float meas = SLOPE * 0.002F * static_cast<float>(cycle);
        PidCompute(sut, meas, 0.0F, 0.0F, cycle == 0);
    }
    EXPECT_NEAR(sut.ud, -2.0F * 0.05F * SLOPE, 1e-4F);
}

TEST(PidFilterLoopTest, DerivativeDampsWhatProportionalControlAloneLeavesRinging)
{
    // A mass: the command is its acceleration.
    float largest_late[2] = {0.0F, 0.0F};
    for (const bool with_derivative : {false, true}) {
        PidFilterContext sut = Default();
        sut.kp = 100.0F;
        sut.ki = 0.0F;
        sut.kd = with_derivative ? 0.2F : 0.0F;
        sut.ulow = -1e6F;
        sut.uhigh = 1e6F;
        PidFilterInit(sut);
        float position = 0.0F;
        float velocity = 0.0F;
        for (int cycle = 0; cycle < 5000; ++cycle) {
            velocity += 0.002F * PidCompute(sut, position, 1.0F, 0.0F, cycle == 0);
            position += 0.002F * velocity;
            if (cycle >= 4000) {
                float& largest = largest_late[with_derivative ? 1 : 0];
                largest = std::max(largest, std::abs(position - 1.0F));
            }
        }
    }
    EXPECT_GT(largest_late[0], 0.5F);
    EXPECT_LT(largest_late[1], 1e-3F);
}

}  // namespace
}  // namespace lumo::ravelcore
