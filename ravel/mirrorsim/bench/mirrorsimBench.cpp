// What the simulated mirror costs: a cycle must leave most of its 2 ms to the controller.

#include "support/longestCall.hpp"

#include <lumo/mirrorsim/controlModes.hpp>
#include <lumo/mirrorsim/mirror.hpp>

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace lumo::mirrorsim {
namespace {

using ravelcore::bench::MeasureWithLongest;

/// Cycles that are timed one by one for the longest: a tenth of a second or so.
constexpr int NUM_TIMED = 1000;

/// Everything is on, and the command moves every actuator in every cycle.
void MirrorStep(benchmark::State& state)
{
    const Geometry geometry;
    MirrorConfig config;
    const std::vector<float> shape(NUM_PACT, 0.02F);
    config.tones = {{0, 10.0, 1.0}};
    Mirror sut(geometry, config, shape, 1);
    std::vector<float> command(NUM_PACT, 1.0F);
    MeasureWithLongest<NUM_TIMED>(state, [&]() {
        for (float& value : command) {
            value = -value;
        }
        sut.Step(command);
        benchmark::DoNotOptimize(sut.GetSurface().data());
    });
}
BENCHMARK(MirrorStep)->Unit(benchmark::kMicrosecond);

void FillEsMeas(benchmark::State& state)
{
    const Mirror sut(Geometry{}, MirrorConfig{});
    const auto record = std::make_unique<EsRecord>();
    MeasureWithLongest<NUM_TIMED>(state, [&]() {
        sut.FillEsMeas(0.0, 0, *record);
        benchmark::ClobberMemory();
    });
}
BENCHMARK(FillEsMeas)->Unit(benchmark::kMicrosecond);

void FillPactMeas(benchmark::State& state)
{
    const Mirror sut(Geometry{}, MirrorConfig{});
    const auto record = std::make_unique<PactRecord>();
    MeasureWithLongest<NUM_TIMED>(state, [&]() {
        sut.FillPactMeas(0.0, 0, *record);
        benchmark::ClobberMemory();
    });
}
BENCHMARK(FillPactMeas)->Unit(benchmark::kMicrosecond);

/// The whole plant: what a simulated cycle pays beside the controller.
void WholeCycle(benchmark::State& state)
{
    Mirror sut(Geometry{}, MirrorConfig{});
    const auto es_record = std::make_unique<EsRecord>();
    const auto pact_record = std::make_unique<PactRecord>();
    const std::vector<float> command(NUM_PACT, 1.0F);
    MeasureWithLongest<NUM_TIMED>(state, [&]() {
        sut.FillEsMeas(0.0, 0, *es_record);
        sut.FillPactMeas(0.0, 0, *pact_record);
        sut.Step(command);
        benchmark::ClobberMemory();
    });
}
BENCHMARK(WholeCycle)->Unit(benchmark::kMicrosecond);

void ComputeControlModesAll(benchmark::State& state)
{
    const Geometry geometry;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ComputeControlModes(geometry));
    }
}
BENCHMARK(ComputeControlModesAll)->Unit(benchmark::kSecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace
}  // namespace lumo::mirrorsim

BENCHMARK_MAIN();
