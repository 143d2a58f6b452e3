#include "support/cycleTimes.hpp"

#include <lumo/ravelcore/pidFilter.hpp>

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

/// The channels of one cycle, set-point filter and controller of each mode: slices of 300 and 600 modes and all modes.
namespace {

using lumo::ravelcore::PidFilterContext;
using lumo::ravelcore::bench::CycleTimes;

constexpr std::size_t NUM_INPUTS = 1009;  // a prime: each channel sees other values in each cycle

struct Channels
{
    explicit Channels(const benchmark::State& state, float scale) : inputs(NUM_INPUTS)
    {
        const std::vector<float> one = {0.4F, 35.0F, 0.02F, 12.5F, 0.7F, 0.05F, 8.0F, -50.0F, 50.0F, 20.0F};
        for (std::int64_t mode = 0; mode < state.range(0); ++mode) {
            params.insert(params.end(), one.begin(), one.end());
        }
        lumo::ravelcore::PidFilterCopy(0.002F, 0.0F, params, sut);
        for (std::size_t index = 0; index < NUM_INPUTS; ++index) {
            inputs[index] = scale * static_cast<float>(std::sin(0.7 * static_cast<double>(index)));
        }
        outputs.resize(sut.size());
    }

    void Step(bool first)
    {
        for (std::size_t mode = 0; mode < sut.size(); ++mode) {
            const float meas = inputs[(cycle + mode) % NUM_INPUTS];
            const float filtered =
                lumo::ravelcore::FilterCompute(sut[mode], meas, inputs[(cycle + 2 * mode) % NUM_INPUTS], first);
            outputs[mode] = lumo::ravelcore::PidCompute(sut[mode], meas, filtered, 0.0F, first);
        }
        ++cycle;
        benchmark::DoNotOptimize(outputs.data());
    }

    double Bytes() const { return static_cast<double>(sut.size() * sizeof(PidFilterContext)); }

    std::vector<float> params;
    std::vector<PidFilterContext> sut;
    std::vector<float> inputs;
    std::vector<float> outputs;
    std::size_t cycle = 0;
};

void Measure(benchmark::State& state, Channels& channels)
{
    channels.Step(true);
    CycleTimes times(state);
    for (auto _ : state) {
        times.Measure([&] { channels.Step(false); });
    }
    times.Report(channels.Bytes());
}

void Step(benchmark::State& state)
{
    Channels channels(state, 10.0F);
    Measure(state, channels);
}

/// The signals swing far beyond both limits, so that the comparisons are hard to predict.
void StepAtTheLimits(benchmark::State& state)
{
    Channels channels(state, 1000.0F);
    Measure(state, channels);
}

/// Bad case: signals and states are numbers too small to be normal, as after a long time at rest.
void StepOfSubnormalNumbers(benchmark::State& state)
{
    Channels channels(state, std::numeric_limits<float>::min() / 4.0F);
    Measure(state, channels);
}

/// A measurement that failed: every number is NaN from then on.
void StepOfNan(benchmark::State& state)
{
    Channels channels(state, std::numeric_limits<float>::quiet_NaN());
    Measure(state, channels);
}

/// All coefficients anew between two cycles; the slow side's work.
void CopyParameters(benchmark::State& state)
{
    Channels channels(state, 10.0F);
    CycleTimes times(state);
    for (auto _ : state) {
        times.Measure([&] { lumo::ravelcore::PidFilterCopy(0.002F, 0.0F, channels.params, channels.sut); });
        benchmark::DoNotOptimize(channels.sut.data());
    }
    times.Report(channels.Bytes());
}

void Sizes(benchmark::internal::Benchmark* bench)
{
    bench->ArgName("modes")->UseManualTime()->Unit(benchmark::kMicrosecond);
    for (const int modes : {300, 600, 2390}) {
        bench->Arg(modes);
    }
}

BENCHMARK(Step)->Apply(Sizes);
BENCHMARK(StepAtTheLimits)->Apply(Sizes);
BENCHMARK(StepOfSubnormalNumbers)->Apply(Sizes);
BENCHMARK(StepOfNan)->Apply(Sizes);
BENCHMARK(CopyParameters)->Apply(Sizes);

}  // namespace

BENCHMARK_MAIN();
