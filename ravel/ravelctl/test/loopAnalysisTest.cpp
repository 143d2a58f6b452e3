#include "loopAnalysis.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <numbers>

// The analysis against what it speaks about: a channel of the core in a loop with a plant of one line, simulated.

namespace lumo::ravelctl {
namespace {

constexpr double PERIOD_S = 0.002;
constexpr double LAG = 0.45;
constexpr int DELAY_CYCLES = 1;
constexpr Plant PLANT{LAG, DELAY_CYCLES, PERIOD_S};
constexpr int SETTLE_CYCLES = 5000;
constexpr int MEASURED_CYCLES = 5000;  // 10 s: multiples of 0.1 Hz are whole periods

ravelcore::PidFilterContext MakeChannel(double kp, double ki, double kd = 0.0, double bp = 1.0)
{
    const std::vector<float> params = {static_cast<float>(kp),
                                       static_cast<float>(ki),
                                       static_cast<float>(kd),
                                       0.0F,
                                       static_cast<float>(bp),
                                       0.1F,
                                       10.0F,
                                       -1.0e6F,
                                       1.0e6F,
                                       30.0F};
    std::vector<ravelcore::PidFilterContext> channels;
    EXPECT_TRUE(ravelcore::PidFilterCopy(static_cast<float>(PERIOD_S), 0.0F, params, channels));
    return channels.front();
}

/// A plain PI loop of a sane bandwidth, one with all terms, and one with the set-point weighted down.
std::vector<ravelcore::PidFilterContext> Channels()
{
    return {MakeChannel(0.5, 200.0), MakeChannel(0.3, 150.0, 0.002), MakeChannel(0.4, 120.0, 0.001, 0.3)};
}

/// The loop in the time domain; `disturbance` is added to the plant's output.
class SimulatedLoop
{
public:
    SimulatedLoop(const ravelcore::PidFilterContext& channel, int delay_cycles)
        : m_channel(channel), m_pending(static_cast<std::size_t>(delay_cycles), 0.0)
    {
    }

    /// One cycle; returns the measurement.
    double Step(double reference, double disturbance)
    {
        const double measured = m_position + disturbance;
        m_pending.push_back(
            ravelcore::PidCompute(m_channel, static_cast<float>(measured), static_cast<float>(reference), 0.0F, false));
        m_position += LAG * (m_pending.front() - m_position);  // the whole plant
        m_pending.pop_front();
        return measured;
    }

private:
    ravelcore::PidFilterContext m_channel;
    std::deque<double> m_pending;
    double m_position = 0.0;
};

double Sine(int cycle, double frequency_hz)
{
    return std::sin(2.0 * std::numbers::pi * frequency_hz * PERIOD_S * cycle);
}

/// Response of `step` (input of a cycle to output) to a unit sine, once settled.
template <typename StepFunction>
std::complex<double> Measure(const StepFunction& step, double frequency_hz)
{
    std::complex<double> sum = 0.0;
    for (int cycle = 0; cycle < SETTLE_CYCLES + MEASURED_CYCLES; ++cycle) {
        const double output = step(Sine(cycle, frequency_hz));
        if (cycle >= SETTLE_CYCLES) {
            sum += output * std::polar(1.0, -2.0 * std::numbers::pi * frequency_hz * PERIOD_S * cycle);
        }
    }
    return 2.0 * sum / std::complex<double>(0.0, -1.0) / static_cast<double>(MEASURED_CYCLES);
}

void ExpectNear(std::complex<double> measured, std::complex<double> computed, double frequency_hz)
{
    EXPECT_LT(std::abs(measured - computed), 1.0e-3 * std::abs(computed) + 1.0e-6)
        << frequency_hz << " Hz: measured " << measured << ", computed " << computed;
}

TEST(LoopAnalysisTest, RejectionIsWhatASimulatedLoopLeavesOfADisturbance)
{
    for (const ravelcore::PidFilterContext& channel : Channels()) {
        for (const double frequency_hz : {0.5, 3.0, 10.0, 20.0, 60.0, 150.0}) {
            SimulatedLoop loop(channel, DELAY_CYCLES);
            const auto step = [&loop](double input) {
                return loop.Step(0.0, input);
            };
            ExpectNear(Measure(step, frequency_hz), RejectionResponse(channel, PLANT, frequency_hz), frequency_hz);
        }
    }
}

TEST(LoopAnalysisTest, ReferenceResponseIsHowASimulatedLoopFollowsTheReference)
{
    for (const ravelcore::PidFilterContext& channel : Channels()) {
        for (const double frequency_hz : {0.5, 3.0, 10.0, 20.0, 60.0}) {
            SimulatedLoop loop(channel, DELAY_CYCLES);
            const auto step = [&loop](double input) {
                return loop.Step(input, 0.0);
            };
            ExpectNear(Measure(step, frequency_hz), ReferenceResponse(channel, PLANT, frequency_hz), frequency_hz);
        }
    }
}

TEST(LoopAnalysisTest, SetpointFilterResponseIsThatOfTheFilter)
{
    for (const double frequency_hz : {0.5, 3.0, 30.0, 60.0, 200.0}) {
        ravelcore::PidFilterContext channel = MakeChannel(0.5, 200.0);
        const auto step = [&channel](double input) {
            return static_cast<double>(ravelcore::FilterCompute(channel, 0.0F, static_cast<float>(input), false));
        };
        ExpectNear(Measure(step, frequency_hz), SetpointFilterResponse(channel, PERIOD_S, frequency_hz), frequency_hz);
    }
}

TEST(LoopAnalysisTest, ControllerResponseIsThatOfTheChannelWithoutPlant)
{
    for (const double frequency_hz : {3.0, 10.0, 60.0, 150.0}) {
        // The integral would wander off on its start-up offset: the other terms alone, and in the loop above all.
        ravelcore::PidFilterContext channel = MakeChannel(0.7, 0.0, 0.003);
        const auto step = [&channel](double input) {
            return static_cast<double>(ravelcore::PidCompute(channel, static_cast<float>(-input), 0.0F, 0.0F, false));
        };
        ExpectNear(Measure(step, frequency_hz), ControllerResponse(channel, PERIOD_S, frequency_hz), frequency_hz);
    }
}

TEST(LoopAnalysisTest, PlantResponseIsThatOfTheLagBehindTheDelay)
{
    for (const int delay_cycles : {0, 1, 3}) {
        for (const double frequency_hz : {1.0, 20.0, 150.0}) {
            double position = 0.0;
            std::deque<double> pending(static_cast<std::size_t>(delay_cycles), 0.0);
            const auto step = [&](double input) {
                const double output = position;
                pending.push_back(input);
                position += LAG * (pending.front() - position);
                pending.pop_front();
                return output;
            };
            ExpectNear(Measure(step, frequency_hz), PlantResponse({LAG, delay_cycles, PERIOD_S}, frequency_hz),
                       frequency_hz);
        }
    }
}

/// By how much the ringing of a loop that was kicked grows in the long run: below 1 it comes to rest.
double MeasureGrowth(const ravelcore::PidFilterContext& channel, int delay_cycles)
{
    constexpr int CYCLES = 20'000;
    constexpr int WINDOW = 500;
    constexpr double FAR_GONE = 1.0e4;
    SimulatedLoop loop(channel, delay_cycles);
    double early = 0.0;
    double late = 0.0;
    for (int cycle = 0; cycle < CYCLES; ++cycle) {
        const double measured = std::abs(loop.Step(0.0, cycle < 5 ? 1.0 : 0.0));
        if (measured > FAR_GONE) {
            return FAR_GONE;
        }
        if (cycle < WINDOW) {
            early = std::max(early, measured);
        } else if (cycle >= CYCLES - WINDOW) {
            late = std::max(late, measured);
        }
    }
    return late / early;
}

TEST(LoopAnalysisTest, TheGainMarginIsTheFactorAtWhichASimulatedLoopBeginsToRing)
{
    const ravelcore::PidFilterContext channel = MakeChannel(0.3, 200.0);
    const double factor = std::pow(10.0, ComputeMargins(channel, PLANT).gain_margin_db / 20.0);
    EXPECT_GT(factor, 1.5);
    EXPECT_LT(MeasureGrowth(MakeChannel(0.3 * factor * 0.97, 200.0), DELAY_CYCLES), 0.1);
    EXPECT_GT(MeasureGrowth(MakeChannel(0.3 * factor * 1.03, 200.0), DELAY_CYCLES), 10.0);
}

TEST(LoopAnalysisTest, ThePhaseMarginIsTheFurtherDelayThatASimulatedLoopBears)
{
    const ravelcore::PidFilterContext channel = MakeChannel(0.3, 200.0);
    const Margins margins = ComputeMargins(channel, PLANT);
    const double bearable_cycles = margins.phase_margin_deg / 360.0 / (margins.crossover_hz * PERIOD_S);
    const int whole = static_cast<int>(bearable_cycles);
    EXPECT_GT(whole, 0);
    EXPECT_LT(MeasureGrowth(channel, DELAY_CYCLES + whole), 0.1) << bearable_cycles;
    EXPECT_GT(MeasureGrowth(channel, DELAY_CYCLES + whole + 1), 10.0) << bearable_cycles;
}

TEST(LoopAnalysisTest, AtTheCrossoverTheOpenLoopHasUnitGain)
{
    const ravelcore::PidFilterContext channel = MakeChannel(0.3, 200.0);
    const Margins margins = ComputeMargins(channel, PLANT);
    EXPECT_NEAR(std::abs(OpenLoopResponse(channel, PLANT, margins.crossover_hz)), 1.0, 1e-6);
}

TEST(LoopAnalysisTest, AnOpenLoopWithoutGainHasNoCrossoverAndAnInfiniteMargin)
{
    const Margins margins = ComputeMargins(MakeChannel(0.0, 0.0), PLANT);
    EXPECT_EQ(margins.crossover_hz, 0.0);
    EXPECT_TRUE(std::isinf(margins.gain_margin_db));
}

TEST(LoopAnalysisTest, TheSensitivityPeakIsTheLargestRejectionFactorOfAllFrequencies)
{
    for (const ravelcore::PidFilterContext& channel : Channels()) {
        const double peak = ComputeSensitivityPeak(channel, PLANT);
        double largest = 0.0;
        for (double frequency_hz = 0.05; frequency_hz <= 250.0; frequency_hz += 0.05) {
            largest = std::max(largest, std::abs(RejectionResponse(channel, PLANT, frequency_hz)));
        }
        EXPECT_NEAR(peak, largest, 1e-3 * largest);
        EXPECT_GT(peak, 1.0);
    }
    EXPECT_EQ(ComputeSensitivityPeak(MakeChannel(0.0, 0.0), PLANT), 1.0) << "an open loop amplifies nothing";
}

TEST(LoopAnalysisTest, OfManyLoopsEachFigureIsTheLowest)
{
    const std::vector<ravelcore::PidFilterContext> channels = {MakeChannel(0.5, 200.0), MakeChannel(0.05, 400.0),
                                                               MakeChannel(0.3, 200.0)};
    const Margins fast = ComputeMargins(channels[0], PLANT);
    const Margins slow = ComputeMargins(channels[1], PLANT);
    const MarginRange range = ComputeMarginRange(channels, PLANT);
    EXPECT_EQ(range.highest_crossover_hz, fast.crossover_hz);
    EXPECT_EQ(range.lowest.crossover_hz, slow.crossover_hz);
    EXPECT_EQ(range.lowest.gain_margin_db, std::min(fast.gain_margin_db, slow.gain_margin_db));
    EXPECT_EQ(range.lowest.phase_margin_deg, std::min(fast.phase_margin_deg, slow.phase_margin_deg));
}

TEST(LoopAnalysisTest, AmongManyLoopsOneWithoutACrossoverHasNoPhaseMarginToCount)
{
    const std::vector<ravelcore::PidFilterContext> channels = {MakeChannel(0.5, 200.0), MakeChannel(0.0, 0.0)};
    const MarginRange range = ComputeMarginRange(channels, PLANT);
    EXPECT_EQ(range.lowest.crossover_hz, 0.0);
    EXPECT_EQ(range.lowest.phase_margin_deg, ComputeMargins(channels[0], PLANT).phase_margin_deg);
}

}  // namespace
}  // namespace lumo::ravelctl
