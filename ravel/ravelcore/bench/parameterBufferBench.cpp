#include "support/cycleTimes.hpp"

#include <lumo/ravelcore/doubleBuffer.hpp>
#include <lumo/ravelcore/doubleMap.hpp>
#include <lumo/ravelcore/lazyBuffer.hpp>
#include <lumo/ravelcore/logger.hpp>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

/// New parameters into the cycle and out of the slow thread, beside plain copies of as many bytes. The argument is the
/// number of floats: 6000 parameters of the controllers of 600 modes, and a matrix of 600 x 4788. Each cycle is timed
/// by itself, because what makes its data new must not count; reading the clock does.
namespace {

using lumo::ravelcore::DoubleBuffer;
using lumo::ravelcore::DoubleMap;
using lumo::ravelcore::LazyBuffer;
using lumo::ravelcore::bench::CycleTimes;

constexpr int NUM_PARAMETERS = 6000;
constexpr int NUM_MATRIX_ELEMENTS = 600 * 4788;

void ForBothSizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->Arg(NUM_PARAMETERS)->Arg(NUM_MATRIX_ELEMENTS)->UseManualTime();
}

double BytesOf(const benchmark::State& state)
{
    return static_cast<double>(state.range(0)) * sizeof(float);
}

void PlainCopy(benchmark::State& state)
{
    const auto size = static_cast<std::size_t>(state.range(0));
    const std::vector<float> from(size, 1.0F);
    std::vector<float> to(size);
    CycleTimes times(state);
    for (auto _ : state) {
        times.Measure([&] {
            std::memcpy(to.data(), from.data(), size * sizeof(float));
            benchmark::ClobberMemory();
        });
    }
    times.Report(BytesOf(state));
}
BENCHMARK(PlainCopy)->Apply(ForBothSizes);

void DoubleBufferTryRead(benchmark::State& state)
{
    DoubleBuffer buffer("bench", static_cast<int>(state.range(0)));
    const std::vector<float> from(static_cast<std::size_t>(state.range(0)), 1.0F);
    std::vector<float> to(from.size());
    CycleTimes times(state);
    for (auto _ : state) {
        buffer.Set(from);
        times.Measure([&] { benchmark::DoNotOptimize(buffer.TryRead(to)); });
    }
    times.Report(BytesOf(state));
}
BENCHMARK(DoubleBufferTryRead)->Apply(ForBothSizes);

/// What a cycle pays that finds nothing new.
void DoubleBufferTryReadOfNothing(benchmark::State& state)
{
    DoubleBuffer buffer("bench", NUM_PARAMETERS);
    std::vector<float> to(NUM_PARAMETERS);
    for (auto _ : state) {
        benchmark::DoNotOptimize(buffer.TryRead(to));
    }
}
BENCHMARK(DoubleBufferTryReadOfNothing);

void DoubleBufferSet(benchmark::State& state)
{
    DoubleBuffer buffer("bench", static_cast<int>(state.range(0)));
    const std::vector<float> from(static_cast<std::size_t>(state.range(0)), 1.0F);
    CycleTimes times(state);
    for (auto _ : state) {
        times.Measure([&] { buffer.Set(from); });
    }
    times.Report(BytesOf(state));
}
BENCHMARK(DoubleBufferSet)->Apply(ForBothSizes);

void LazyBufferTryRead(benchmark::State& state)
{
    LazyBuffer buffer("bench", static_cast<int>(state.range(0)));
    const std::vector<float> from(static_cast<std::size_t>(state.range(0)), 1.0F);
    std::vector<float> to(from.size());
    CycleTimes times(state);
    for (auto _ : state) {
        buffer.Write(from);
        times.Measure([&] { benchmark::DoNotOptimize(buffer.TryRead(to)); });
    }
    times.Report(BytesOf(state));
}
BENCHMARK(LazyBufferTryRead)->Apply(ForBothSizes);

void LazyBufferWrite(benchmark::State& state)
{
    LazyBuffer buffer("bench", static_cast<int>(state.range(0)));
    const std::vector<float> from(static_cast<std::size_t>(state.range(0)), 1.0F);
    CycleTimes times(state);
    for (auto _ : state) {
        times.Measure([&] { buffer.Write(from); });
    }
    times.Report(BytesOf(state));
}
BENCHMARK(LazyBufferWrite)->Apply(ForBothSizes);

/// Keys spread over the whole vector.
std::map<int, float> MakeMap(int num_keys)
{
    std::map<int, float> map;
    for (int key = 0; key < num_keys; ++key) {
        map[key * (NUM_PARAMETERS / num_keys)] = 1.0F;
    }
    return map;
}

/// The argument is the number of keys.
void DoubleMapTryRead(benchmark::State& state)
{
    DoubleMap sparse("bench");
    const std::map<int, float> from = MakeMap(static_cast<int>(state.range(0)));
    std::vector<float> to(NUM_PARAMETERS);
    CycleTimes times(state);
    for (auto _ : state) {
        sparse.Set(from);
        times.Measure([&] { benchmark::DoNotOptimize(sparse.TryRead(to)); });
    }
    times.Report(BytesOf(state));
}
BENCHMARK(DoubleMapTryRead)->Arg(10)->Arg(NUM_PARAMETERS)->UseManualTime();

void DoubleMapSet(benchmark::State& state)
{
    DoubleMap sparse("bench");
    const std::map<int, float> from = MakeMap(static_cast<int>(state.range(0)));
    CycleTimes times(state);
    for (auto _ : state) {
        times.Measure([&] { sparse.Set(from); });
    }
    times.Report(BytesOf(state));
}
BENCHMARK(DoubleMapSet)->Arg(10)->Arg(NUM_PARAMETERS)->UseManualTime();

}  // namespace

int main(int argc, char** argv)
{
    lumo::ravelcore::GetLogger().setLogLevel(log4cplus::INFO_LOG_LEVEL);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return EXIT_FAILURE;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
