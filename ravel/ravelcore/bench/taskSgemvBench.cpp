#include "support/cycleTimes.hpp"

#include <lumo/ravelcore/names.hpp>
#include <lumo/ravelcore/taskSgemv.hpp>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstddef>
#include <limits>
#include <thread>
#include <vector>

/// One cycle of TaskSgemv: a small slice, slices of 300 and 600 modes and all modes, each against 4788 edge-sensor
/// slots.
namespace {

using lumo::ravelcore::TaskSgemv;
using lumo::ravelcore::bench::CycleTimes;

std::vector<float> Waves(std::size_t size, float scale = 1.0F)
{
    std::vector<float> values(size);
    for (std::size_t i = 0; i < size; ++i) {
        values[i] = scale * (static_cast<float>(i % 1013) - 506.0F) / 1013.0F;
    }
    return values;
}

/// A task with data in it, at the log level of operation.
struct Load
{
    explicit Load(const benchmark::State& state)
        : sut(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)))
    {
        log4cplus::Logger::getInstance(lumo::ravelcore::LOGGER_RAVELCORE).setLogLevel(log4cplus::INFO_LOG_LEVEL);
        sut.Initialize();
        sut.SetMatrix(Waves(sut.GetMatrix().size()));
        sut.SetInputVector(Waves(sut.GetInputVector().size()));
    }

    double Bytes() const { return 4.0 * static_cast<double>(sut.GetMatrix().size()); }

    TaskSgemv sut;
};

void Execute(benchmark::State& state)
{
    Load load(state);
    CycleTimes times(state);
    for (auto _ : state) {
        times.Measure([&] { load.sut.Execute(0.0, false); });
    }
    times.Report(load.Bytes());
}

/// Other work has been through the caches since the last cycle: the matrix comes from memory.
void ExecuteWithColdCaches(benchmark::State& state)
{
    Load load(state);
    std::vector<float> other(std::size_t{16} * 1024 * 1024);
    CycleTimes times(state);
    for (auto _ : state) {
        for (float& value : other) {
            value += 1.0F;
        }
        benchmark::DoNotOptimize(other.data());
        times.Measure([&] { load.sut.Execute(0.0, false); });
    }
    times.Report(load.Bytes());
}

/// A second worker multiplies without a pause: what two of them cost each other in memory bandwidth and in the BLAS.
void ExecuteBesideAnotherWorker(benchmark::State& state)
{
    Load load(state);
    Load other(state);
    std::atomic<bool> stop = false;
    std::thread worker([&] {
        while (!stop.load()) {
            other.sut.Execute(0.0, false);
        }
    });
    CycleTimes times(state);
    for (auto _ : state) {
        times.Measure([&] { load.sut.Execute(0.0, false); });
    }
    stop.store(true);
    worker.join();
    times.Report(load.Bytes());
}

/// An input of numbers too small to be normal, which processors may be slow with.
void ExecuteOfSubnormalInput(benchmark::State& state)
{
    Load load(state);
    load.sut.SetInputVector(Waves(load.sut.GetInputVector().size(), std::numeric_limits<float>::min()));
    CycleTimes times(state);
    for (auto _ : state) {
        times.Measure([&] { load.sut.Execute(0.0, false); });
    }
    times.Report(load.Bytes());
}

void Sizes(benchmark::internal::Benchmark* bench)
{
    bench->ArgNames({"rows", "cols"})->UseManualTime()->Unit(benchmark::kMicrosecond);
    for (const int rows : {20, 300, 600, 2390}) {
        bench->Args({rows, 4788});
    }
}

BENCHMARK(Execute)->Apply(Sizes);
BENCHMARK(ExecuteWithColdCaches)->Apply(Sizes);
BENCHMARK(ExecuteBesideAnotherWorker)->Apply(Sizes);
BENCHMARK(ExecuteOfSubnormalInput)->Apply(Sizes);

}  // namespace

BENCHMARK_MAIN();
