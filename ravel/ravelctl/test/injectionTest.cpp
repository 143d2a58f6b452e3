#include "loopAnalysis.hpp"
#include "makeModulation.hpp"
#include "support/describedLoop.hpp"
#include "support/recording.hpp"
#include "support/runInProcess.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <functional>
#include <iostream>
#include <numbers>
#include <sstream>

// What a signal in the references does to the modes, against what the loop's transfer function says.

namespace lumo::ravelctl {
namespace {

using Complex = std::complex<double>;

constexpr int NUM_MODES = 30;
constexpr int MODE = 12;
constexpr double RATE_HZ = 500.0;

/// Content of one column at a frequency, over `count` rows from `begin` on.
Complex Transform(const test::Recording& series, int col, int begin, int count, double frequency_hz)
{
    Complex sum = 0.0;
    for (int k = 0; k < count; ++k) {
        const double phase = -2.0 * std::numbers::pi * frequency_hz * k / RATE_HZ;
        sum += static_cast<double>(series.At(begin + k, col)) * std::polar(1.0, phase);
    }
    return sum;
}

/// What the injection did: equal seeds give the same wind and noise, so the rest of the two runs cancels.
test::Recording Subtract(test::Recording with, const test::Recording& without)
{
    std::transform(with.values.begin(), with.values.end(), without.values.begin(), with.values.begin(), std::minus<>());
    return with;
}

/// Response of the mode to its reference, averaged over a band that is narrow against what the loop resolves.
Complex Measure(const test::Recording& injected, const test::Recording& modes, int begin, double frequency_hz)
{
    constexpr double STEP_HZ = 0.05;
    constexpr int HALF_BAND = 8;
    Complex cross = 0.0;
    double power = 0.0;
    for (int i = -HALF_BAND; i <= HALF_BAND; ++i) {
        const double f = frequency_hz + i * STEP_HZ;
        const Complex in = Transform(injected, MODE, 0, injected.rows, f);
        cross += Transform(modes, MODE, begin, modes.rows - begin, f) * std::conj(in);
        power += std::norm(in);
    }
    return cross / power;
}

TEST(InjectionTest, AChirpMeasuresTheTransferFunctionThatIsComputed)
{
    const test::TestFolder folder;
    ModulationOptions chirp;
    chirp.shape = ModulationShape::Chirp;
    chirp.output = folder / "chirp.fits";
    chirp.modes = NUM_MODES;
    chirp.on = std::to_string(MODE);
    chirp.amplitude_um = 1.0;
    chirp.duration_s = 12.0;
    chirp.frequency_hz = 0.5;
    chirp.to_hz = 120.0;
    std::ostringstream out;
    MakeModulationFile(chirp, out);

    RunOptions options = test::ShortRun(folder, "run");
    options.modes = NUM_MODES;
    options.duration_s = 14.0;
    options.open_loop_s = 0.5;
    test::RunInProcess(options);
    const test::Recording without = test::LoadRecording(options.output / "modes_in.fits");
    options.output = folder / "with";
    options.inject.file = chirp.output;
    const test::FinishedRun run = test::RunInProcess(options);
    const test::Recording injected = test::LoadRecording(chirp.output);
    const test::Recording modes = Subtract(test::LoadRecording(options.output / "modes_in.fits"), without);
    const int begin = static_cast<int>(run.report.plan.FirstInjectedCycle());

    const test::DescribedLoop loop = test::DescribeLoop(RATE_HZ);
    for (const double frequency_hz : {2.0, 5.0, 10.0, 20.0, 40.0, 80.0}) {
        const Complex measured = Measure(injected, modes, begin, frequency_hz);
        const Complex computed = SetpointFilterResponse(loop.channel, loop.plant.period_s, frequency_hz) *
                                 ReferenceResponse(loop.channel, loop.plant, frequency_hz);
        std::cout << "from reference to mode at " << frequency_hz << " Hz: measured " << std::abs(measured) << " at "
                  << std::arg(measured) * 180.0 / std::numbers::pi << " deg, computed " << std::abs(computed) << " at "
                  << std::arg(computed) * 180.0 / std::numbers::pi << " deg\n";
        EXPECT_LT(std::abs(measured - computed), 0.01 * std::abs(computed)) << frequency_hz << " Hz";
    }
}

TEST(InjectionTest, ModesThatAreNotInTheFileAreLeftAlone)
{
    const test::TestFolder folder;
    ModulationOptions step;
    step.shape = ModulationShape::Step;
    step.output = folder / "step.fits";
    step.modes = 20;
    step.on = "3";
    step.duration_s = 0.2;
    std::ostringstream out;
    MakeModulationFile(step, out);
    RunOptions options = test::ShortRun(folder, "without");
    test::RunInProcess(options);
    options.output = folder / "with";
    options.inject.file = step.output;
    test::RunInProcess(options);
    const test::Recording without = test::LoadRecording(folder / "without" / "modes_out.fits");
    const test::Recording with = test::LoadRecording(folder / "with" / "modes_out.fits");
    const int begin = 30 + 67 + 1;  // open, led, and the cycle after: a tenth of 300, a quarter of 270
    for (int row = 0; row < begin; ++row) {
        ASSERT_EQ(with.At(row, 3), without.At(row, 3)) << row;
    }
    EXPECT_NE(with.At(begin, 3), without.At(begin, 3))
        << "the first sample, the cycle after the references are led to 0";
    // The others see it only through the commands' rounding to float.
    for (int row = 0; row < without.rows; ++row) {
        ASSERT_NEAR(with.At(row, 4), without.At(row, 4), 1.0e-3) << row;
    }
}

}  // namespace
}  // namespace lumo::ravelctl
