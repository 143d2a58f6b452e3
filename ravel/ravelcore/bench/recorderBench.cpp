#include "support/longestCall.hpp"

#include <lumo/ravelcore/logger.hpp>
#include <lumo/ravelcore/recorder.hpp>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <vector>

/// One sample of the segment control, 600 modes, into the recorder, beside the plain copy of as many bytes.
/// The argument is the capacity: 100 samples stay in the processor's cache, 30000 (a minute at 500 Hz, 72 MB) do not.
namespace {

using lumo::ravelcore::Recorder;
using lumo::ravelcore::bench::MeasureWithLongest;

constexpr std::size_t SAMPLE_SIZE = 600;

void PlainCopy(benchmark::State& state)
{
    const auto capacity = static_cast<std::size_t>(state.range(0));
    const std::vector<float> sample(SAMPLE_SIZE, 1.0F);
    std::vector<float> samples(capacity * SAMPLE_SIZE);
    std::size_t slot = 0;
    MeasureWithLongest(state, [&] {
        std::memcpy(&samples[slot * SAMPLE_SIZE], sample.data(), SAMPLE_SIZE * sizeof(float));
        benchmark::ClobberMemory();
        slot = slot + 1 == capacity ? 0 : slot + 1;
    });
}
BENCHMARK(PlainCopy)->Arg(100)->Arg(30000);

void MeasureAddSample(benchmark::State& state, bool loopback, int decimation)
{
    const std::vector<float> sample(SAMPLE_SIZE, 1.0F);
    Recorder recorder("bench");
    recorder.Init(static_cast<int>(state.range(0)), static_cast<int>(SAMPLE_SIZE));
    recorder.Start(loopback, decimation);
    double timestamp = 0.0;
    MeasureWithLongest(state, [&] { recorder.AddSample(timestamp += 0.002, sample.data()); });
}

void AddSampleLoopback(benchmark::State& state)
{
    MeasureAddSample(state, true, 0);
}
BENCHMARK(AddSampleLoopback)->Arg(100)->Arg(30000);

void AddSampleDecimation10(benchmark::State& state)
{
    MeasureAddSample(state, true, 10);
}
BENCHMARK(AddSampleDecimation10)->Arg(100)->Arg(30000);

/// Without loopback a recorder fills up once: it is started again whenever it is full, which is part of the time.
void AddSampleUntilFull(benchmark::State& state)
{
    const std::vector<float> sample(SAMPLE_SIZE, 1.0F);
    const int capacity = static_cast<int>(state.range(0));
    Recorder recorder("bench");
    recorder.Init(capacity, static_cast<int>(SAMPLE_SIZE));
    recorder.Start(false, 0);
    int num_samples = 0;
    MeasureWithLongest(state, [&] {
        if (num_samples == capacity) {
            recorder.Start(false, 0);
            num_samples = 0;
        }
        ++num_samples;
        recorder.AddSample(static_cast<double>(num_samples), sample.data());
    });
}
BENCHMARK(AddSampleUntilFull)->Arg(100)->Arg(30000);

/// What a task pays for a recorder that nobody has started.
void AddSampleWhileStopped(benchmark::State& state)
{
    const std::vector<float> sample(SAMPLE_SIZE, 1.0F);
    Recorder recorder("bench");
    recorder.Init(100, static_cast<int>(SAMPLE_SIZE));
    MeasureWithLongest(state, [&] { recorder.AddSample(1.0, sample.data()); });
}
BENCHMARK(AddSampleWhileStopped);

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
