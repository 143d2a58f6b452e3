#include "support/cycleTimes.hpp"

#include <lumo/ravelcore/names.hpp>
#include <lumo/ravelcore/taskEdc.hpp>

#include <benchmark/benchmark.h>
#include <cblas.h>

#include <cstddef>
#include <vector>

/// One cycle of TaskEdc at the sizes of the instrument, beside one plain product that reads as many bytes: a slice of
/// 300 and of 600 modes, and all modes in one task. Arguments: modes, edge-sensor slots, actuators.
namespace {

using lumo::ravelcore::Recorder;
using lumo::ravelcore::TaskEdc;
using lumo::ravelcore::bench::CycleTimes;

std::vector<float> Waves(std::size_t size)
{
    std::vector<float> values(size);
    for (std::size_t i = 0; i < size; ++i) {
        values[i] = (static_cast<float>(i % 1013) - 506.0F) / 1013.0F;
    }
    return values;
}

/// A task that is set up and has made its first cycle; both recorders run, as a loop that is watched has them.
struct Loop
{
    explicit Loop(const benchmark::State& state)
        : es(Waves(static_cast<std::size_t>(state.range(1)))),
          sut(1, static_cast<int>(state.range(2)), static_cast<int>(state.range(1)), static_cast<int>(state.range(0)),
              rec_in, rec_out, 500)
    {
        log4cplus::Logger::getInstance(lumo::ravelcore::LOGGER_RAVELCORE).setLogLevel(log4cplus::INFO_LOG_LEVEL);
        sut.Initialize();
        sut.SetP2EdcMatrix(Waves(sut.m_p2edc.size()));
        sut.SetPact2ModesMatrix(Waves(sut.m_pact2modes.size()));
        sut.SetModes2PactMatrix(Waves(sut.m_modes2pact.size()));
        sut.m_pact_in = Waves(sut.m_pact_in.size());
        sut.m_es_meas = es.data();
        rec_in.Start(true, 0);
        rec_out.Start(true, 0);
        sut.Execute(0.0, true);
    }

    /// What one cycle reads of the three matrices.
    double Bytes() const
    {
        return 4.0 * static_cast<double>(sut.m_p2edc.size() + sut.m_pact2modes.size() + sut.m_modes2pact.size());
    }

    Recorder rec_in{"in"};
    Recorder rec_out{"out"};
    std::vector<float> es;
    TaskEdc sut;
};

void PlainProductOfTheSameBytes(benchmark::State& state)
{
    openblas_set_num_threads(1);
    const auto rows = static_cast<int>(state.range(0));
    const auto cols = static_cast<int>(state.range(1) + 2 * state.range(2));
    const std::vector<float> a = Waves(static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols));
    const std::vector<float> x = Waves(static_cast<std::size_t>(cols));
    std::vector<float> y(static_cast<std::size_t>(rows));
    CycleTimes times(state);
    for (auto _ : state) {
        times.Measure([&] {
            cblas_sgemv(CblasRowMajor, CblasNoTrans, rows, cols, 1.0F, a.data(), cols, x.data(), 1, 0.0F, y.data(), 1);
        });
    }
    times.Report(4.0 * static_cast<double>(a.size()));
}

void ExecuteWithDebugOff(benchmark::State& state)
{
    Loop loop(state);
    double time = 0.0;
    CycleTimes times(state);
    for (auto _ : state) {
        times.Measure([&] { loop.sut.Execute(time, false); });
        time += 0.002;
    }
    times.Report(loop.Bytes());
}

/// The bad case: between two cycles another thread's work has been through the caches and every channel is new.
void ExecuteWhileParametersChange(benchmark::State& state)
{
    Loop loop(state);
    const std::vector<float> matrix = loop.sut.m_p2edc;
    std::vector<float> params;
    const std::vector<float> one = {0.1F, 200.0F, 0.01F, 1.0F, 1.0F, 0.1F, 10.0F, -200.0F, 200.0F, 30.0F};
    for (int mode = 0; mode < loop.sut.m_num_modes; ++mode) {
        params.insert(params.end(), one.begin(), one.end());
    }
    CycleTimes times(state);
    for (auto _ : state) {
        loop.sut.SetPidFilters(params);
        loop.sut.SetPidFiltersParam(loop.sut.m_num_modes - 1, 1, 0.2F);
        loop.sut.SetP2EdcMatrix(matrix);
        loop.sut.SetModes2PactValue(0, 0.5F);
        times.Measure([&] { loop.sut.Execute(0.0, false); });
    }
    times.Report(loop.Bytes());
}

/// Another bad case: the set-point filters of a mirror that has come to rest at 0 hold numbers too small to be normal,
/// which processors may be slow with.
void ExecuteAtRestAfterLongTime(benchmark::State& state)
{
    Loop loop(state);
    loop.es.assign(loop.es.size(), 0.0F);
    loop.sut.m_modes_ref.assign(loop.sut.m_modes_ref.size(), 0.0F);
    for (int cycle = 0; cycle < 1000; ++cycle) {
        for (lumo::ravelcore::PidFilterContext& channel : loop.sut.m_pid_filters) {
            lumo::ravelcore::FilterCompute(channel, 0.0F, 0.0F, false);
        }
    }
    CycleTimes times(state);
    for (auto _ : state) {
        times.Measure([&] { loop.sut.Execute(0.0, false); });
    }
    times.Report(loop.Bytes());
}

void Sizes(benchmark::internal::Benchmark* bench)
{
    bench->ArgNames({"modes", "es", "pact"})->UseManualTime()->Unit(benchmark::kMicrosecond);
    for (const int modes : {300, 600, 2390}) {
        bench->Args({modes, 4788, 2394});
    }
}

BENCHMARK(PlainProductOfTheSameBytes)->Apply(Sizes);
BENCHMARK(ExecuteWithDebugOff)->Apply(Sizes);
BENCHMARK(ExecuteWhileParametersChange)->Apply(Sizes);
BENCHMARK(ExecuteAtRestAfterLongTime)->Apply(Sizes);

}  // namespace

BENCHMARK_MAIN();
