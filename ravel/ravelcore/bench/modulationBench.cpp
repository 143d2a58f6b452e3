#include "support/longestCall.hpp"

#include <lumo/ravelcore/logger.hpp>
#include <lumo/ravelcore/modulation.hpp>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <vector>

/// The modulation's sample of one cycle, beside the copy of one sample that the cycle makes of it. The argument is the
/// number of samples: 100 stay in the processor's cache, 5000 of all edge sensors (ten seconds at 500 Hz) do not.
namespace {

using lumo::ravelcore::Modulation;
using lumo::ravelcore::bench::MeasureWithLongest;

constexpr std::size_t SAMPLE_SIZE = 4788;

void PlainCopyOfOneSample(benchmark::State& state)
{
    const auto num_samples = static_cast<std::size_t>(state.range(0));
    const std::vector<float> samples(num_samples * SAMPLE_SIZE, 1.0F);
    std::vector<float> to(SAMPLE_SIZE);
    std::size_t index = 0;
    MeasureWithLongest(state, [&] {
        std::memcpy(to.data(), &samples[index * SAMPLE_SIZE], SAMPLE_SIZE * sizeof(float));
        benchmark::ClobberMemory();
        index = index + 1 == num_samples ? 0 : index + 1;
    });
}
BENCHMARK(PlainCopyOfOneSample)->Arg(100)->Arg(5000);

void MeasureGetNextSample(benchmark::State& state, bool play, int decimation)
{
    Modulation modulation("bench", static_cast<int>(SAMPLE_SIZE), 0.0F);
    modulation.Set(std::vector<float>(static_cast<std::size_t>(state.range(0)) * SAMPLE_SIZE, 1.0F));
    if (play) {
        modulation.Start(true, decimation);
    }
    int number = 0;
    MeasureWithLongest(state, [&] {
        benchmark::DoNotOptimize(modulation.GetNextSample(number));
        benchmark::DoNotOptimize(number);
    });
}

void GetNextSampleLoopback(benchmark::State& state)
{
    MeasureGetNextSample(state, true, 0);
}
BENCHMARK(GetNextSampleLoopback)->Arg(100)->Arg(5000);

void GetNextSampleDecimation10(benchmark::State& state)
{
    MeasureGetNextSample(state, true, 10);
}
BENCHMARK(GetNextSampleDecimation10)->Arg(100)->Arg(5000);

void GetNextSampleWhileStopped(benchmark::State& state)
{
    MeasureGetNextSample(state, false, 0);
}
BENCHMARK(GetNextSampleWhileStopped)->Arg(100);

/// What the cycle does with it.
void GetNextSampleAndCopyIt(benchmark::State& state)
{
    Modulation modulation("bench", static_cast<int>(SAMPLE_SIZE), 0.0F);
    modulation.Set(std::vector<float>(static_cast<std::size_t>(state.range(0)) * SAMPLE_SIZE, 1.0F));
    modulation.Start(true, 0);
    std::vector<float> to(SAMPLE_SIZE);
    int number = 0;
    MeasureWithLongest(state, [&] {
        std::memcpy(to.data(), modulation.GetNextSample(number), SAMPLE_SIZE * sizeof(float));
        benchmark::ClobberMemory();
    });
}
BENCHMARK(GetNextSampleAndCopyIt)->Arg(100)->Arg(5000);

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
