#include "support/longestCall.hpp"

#include <lumo/ravelcore/feMeas.hpp>

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <vector>

/// The front end's records to samples and back, beside plain copies of as many bytes.
namespace {

using lumo::ravelcore::AddFeMeasToSamples;
using lumo::ravelcore::CopySampleToFeMeas;
using lumo::ravelcore::ES_SAMPLE_SIZE;
using lumo::ravelcore::InitFeMeas;
using lumo::ravelcore::PACT_SAMPLE_SIZE;
using lumo::ravelcore::bench::MeasureWithLongest;
using nodeio::EsMeas;
using nodeio::PactMeas;

template <std::size_t SIZE>
void PlainCopy(benchmark::State& state)
{
    const std::vector<float> from(SIZE, 1.0F);
    std::vector<float> to(SIZE);
    MeasureWithLongest(state, [&] {
        std::memcpy(to.data(), from.data(), SIZE * sizeof(float));
        benchmark::ClobberMemory();
    });
}
BENCHMARK(PlainCopy<ES_SAMPLE_SIZE>)->Name("PlainCopyEs");
BENCHMARK(PlainCopy<PACT_SAMPLE_SIZE>)->Name("PlainCopyPact");

/// Into a vector that has the room, as the cycle does it.
template <typename Record>
void Add(benchmark::State& state)
{
    const auto record = std::make_unique<Record>();
    InitFeMeas(*record, 1, 0.5, 1.0F);
    std::vector<float> samples;
    samples.reserve(ES_SAMPLE_SIZE);
    MeasureWithLongest(state, [&] {
        samples.clear();
        AddFeMeasToSamples(*record, samples);
        benchmark::ClobberMemory();
    });
}
BENCHMARK(Add<EsMeas>)->Name("AddFeMeasToSamplesEs");
BENCHMARK(Add<PactMeas>)->Name("AddFeMeasToSamplesPact");

template <typename Record>
void Copy(benchmark::State& state)
{
    const auto record = std::make_unique<Record>();
    const std::vector<float> samples(ES_SAMPLE_SIZE, 1.0F);
    MeasureWithLongest(state, [&] {
        CopySampleToFeMeas(0, samples, *record);
        benchmark::ClobberMemory();
    });
}
BENCHMARK(Copy<EsMeas>)->Name("CopySampleToFeMeasEs");
BENCHMARK(Copy<PactMeas>)->Name("CopySampleToFeMeasPact");

}  // namespace

BENCHMARK_MAIN();
