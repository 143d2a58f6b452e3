#include "commandLimiter.hpp"
#include "gains.hpp"
#include "sliceSet.hpp"
#include "workerGroup.hpp"

#include <benchmark/benchmark.h>
#include <log4cplus/logger.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <random>

namespace {

using namespace lumo::ravelctl;
namespace mirrorsim = lumo::mirrorsim;
using Clock = std::chrono::steady_clock;

std::vector<float> SmallNumbers(std::size_t count, std::mt19937& stream)
{
    std::uniform_real_distribution<float> small(-1.0e-3F, 1.0e-3F);
    std::vector<float> values(count);
    std::generate(values.begin(), values.end(), [&] { return small(stream); });
    return values;
}

/// Matrices of the real size; what is in them does not matter to the time, as long as nothing overflows.
mirrorsim::ControlModes MakeModes(int num_modes, std::mt19937& stream)
{
    const auto modes = static_cast<std::size_t>(num_modes);
    mirrorsim::ControlModes made;
    made.num_modes = num_modes;
    made.p2edc = SmallNumbers(modes * mirrorsim::NUM_ES, stream);
    made.pact2modes = SmallNumbers(modes * mirrorsim::NUM_PACT, stream);
    made.modes2pact = SmallNumbers(modes * mirrorsim::NUM_PACT, stream);
    return made;
}

/// From the start of a closed cycle to its limited commands: workers, sum of the slices, limits. The mirror and the
/// pacing are left out. Arguments: modes, workers; more workers than processors wait for one.
void CycleToCommand(benchmark::State& state)
{
    const auto num_modes = static_cast<int>(state.range(0));
    const auto num_workers = static_cast<std::size_t>(state.range(1));
    constexpr double PERIOD_S = 0.002;
    constexpr float RATE_UM = 2.0F;
    constexpr double STROKE_UM = 500.0;
    std::mt19937 stream(1);
    const mirrorsim::ControlModes modes = MakeModes(num_modes, stream);
    const std::vector<float> es_meas = SmallNumbers(mirrorsim::NUM_ES, stream);
    const std::vector<float> params = DesignGains(DesignFor(1.0 / PERIOD_S), {0.5, 1, PERIOD_S}, modes, STROKE_UM);
    SliceSet slices(modes, static_cast<int>(num_workers), params, PERIOD_S, es_meas.data(), 1000);
    WorkerGroup workers(slices.GetTasks(), std::vector<Placement>(num_workers), std::chrono::minutes(1),
                        log4cplus::Logger::getInstance("cycleBench"));
    const std::vector<float> held(static_cast<std::size_t>(mirrorsim::NUM_PACT), 0.0F);
    std::vector<float> wanted = held;
    CommandLimiter limiter(held, static_cast<float>(STROKE_UM), RATE_UM);
    workers.Start();
    slices.SetClosed(true);

    Clock::duration longest{0};
    std::int64_t cycle = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        slices.PrepareCycle(static_cast<double>(cycle) * PERIOD_S, cycle == 0);
        workers.GiveStart();
        workers.AwaitReady();
        std::copy(held.begin(), held.end(), wanted.begin());
        slices.AddPactRef(wanted);
        limiter.Limit(wanted);
        slices.SetShortfall(limiter.GetShortfall());
        longest = std::max(longest, Clock::now() - start);
        ++cycle;
    }
    state.counters["max_us"] = std::chrono::duration<double, std::micro>(longest).count();
    slices.PrepareStop();
    workers.Stop(true);
}
BENCHMARK(CycleToCommand)
    ->ArgNames({"modes", "workers"})
    ->Args({600, 1})
    ->Args({600, 2})
    ->Args({2390, 1})
    ->Args({2390, 2})
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

/// Every actuator limited by its rate: the limiter's bad case.
void LimitEveryCommand(benchmark::State& state)
{
    const std::vector<float> start(static_cast<std::size_t>(mirrorsim::NUM_PACT), 0.0F);
    std::vector<float> wanted(start.size(), 1000.0F);
    CommandLimiter limiter(start, 500.0F, 2.0F);
    for (auto _ : state) {
        limiter.Limit(wanted);
        for (float& command : wanted) {
            command = -command;
        }
        benchmark::DoNotOptimize(limiter.GetCommand().data());
    }
}
BENCHMARK(LimitEveryCommand);

}  // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return EXIT_FAILURE;
    }
    log4cplus::Logger::getRoot().setLogLevel(log4cplus::WARN_LOG_LEVEL);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
