#include <lumo/ravelcore/logger.hpp>
#include <lumo/ravelcore/utils.hpp>

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

/// Matrix files at the sizes that are used: the sensor-to-mode matrix and a recording, beside the same bytes written
/// and read plainly.
namespace {

namespace rc = lumo::ravelcore;

std::string FileName()
{
    return (std::filesystem::temp_directory_path() / ("ravelcore-bench-" + std::to_string(::getpid()))).string();
}

std::vector<float> MakeMatrix(const benchmark::State& state)
{
    std::vector<float> values(static_cast<std::size_t>(state.range(0) * state.range(1)));
    for (std::size_t index = 0; index < values.size(); ++index) {
        values[index] = static_cast<float>(index);
    }
    return values;
}

void CountBytes(benchmark::State& state, const std::vector<float>& values)
{
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(values.size() * sizeof(float)));
}

void Save(benchmark::State& state)
{
    const std::vector<float> values = MakeMatrix(state);
    const std::string file = FileName();
    for (auto _ : state) {
        rc::SaveMatrix(file, "M", static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), values);
    }
    CountBytes(state, values);
    std::filesystem::remove(file);
}

void SaveWithTimestamps(benchmark::State& state)
{
    const std::vector<float> values = MakeMatrix(state);
    const std::vector<double> timestamps(static_cast<std::size_t>(state.range(0)), 1.0);
    const std::string file = FileName();
    for (auto _ : state) {
        rc::SaveMatrixWithTimestamps(file, "M", static_cast<int>(state.range(0)), static_cast<int>(state.range(1)),
                                     values, timestamps);
    }
    CountBytes(state, values);
    std::filesystem::remove(file);
}

void Load(benchmark::State& state)
{
    std::vector<float> values = MakeMatrix(state);
    const std::string file = FileName();
    int rows = static_cast<int>(state.range(0));
    int cols = static_cast<int>(state.range(1));
    rc::SaveMatrix(file, "M", rows, cols, values);
    for (auto _ : state) {
        rc::LoadMatrix(file, "M", rows, cols, values);
    }
    CountBytes(state, values);
    std::filesystem::remove(file);
}

/// Writes or reads all of `values`; ends the benchmark with an error when that fails.
void Transfer(benchmark::State& state, const std::string& file, const char* mode, std::vector<float>& values)
{
    std::FILE* const stream = std::fopen(file.c_str(), mode);
    const std::size_t size = values.size();
    const std::size_t done = stream == nullptr ? 0
                             : *mode == 'w'    ? std::fwrite(values.data(), sizeof(float), size, stream)
                                               : std::fread(values.data(), sizeof(float), size, stream);
    if (stream == nullptr || std::fclose(stream) != 0 || done != size) {
        state.SkipWithError("cannot transfer the bytes");
    }
}

void PlainWrite(benchmark::State& state)
{
    std::vector<float> values = MakeMatrix(state);
    const std::string file = FileName();
    for (auto _ : state) {
        std::filesystem::remove(file);
        Transfer(state, file, "wb", values);
    }
    CountBytes(state, values);
    std::filesystem::remove(file);
}

void PlainRead(benchmark::State& state)
{
    std::vector<float> values = MakeMatrix(state);
    const std::string file = FileName();
    Transfer(state, file, "wb", values);
    for (auto _ : state) {
        Transfer(state, file, "rb", values);
    }
    CountBytes(state, values);
    std::filesystem::remove(file);
}

void Sizes(benchmark::internal::Benchmark* bench)
{
    bench->Args({2390, 4788})->Args({10000, 600})->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(Save)->Apply(Sizes);
BENCHMARK(SaveWithTimestamps)->Apply(Sizes);
BENCHMARK(PlainWrite)->Apply(Sizes);
BENCHMARK(Load)->Apply(Sizes);
BENCHMARK(PlainRead)->Apply(Sizes);

}  // namespace

int main(int argc, char** argv)
{
    rc::GetLogger().setLogLevel(log4cplus::OFF_LOG_LEVEL);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return EXIT_FAILURE;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
