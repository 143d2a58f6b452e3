#include "support/workerGroup.hpp"

#include <benchmark/benchmark.h>
#include <log4cplus/logger.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>

/// One round of the handshake: from the start given by the controller until all workers are ready again, their tasks
/// empty but for the gate that they pass. The argument is the number of workers; with more threads than processors the
/// waits are those for a processor.
namespace {

using lumo::ravelcore::test::WorkerGroup;

void Handshake(benchmark::State& state)
{
    using Clock = std::chrono::steady_clock;
    log4cplus::Logger logger = log4cplus::Logger::getInstance("activityWorkerBench");
    logger.setLogLevel(log4cplus::WARN_LOG_LEVEL);
    WorkerGroup group(static_cast<int>(state.range(0)), logger);
    group.Start();
    bool ready = group.AwaitReady();
    std::int64_t longest = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        group.GiveStart();
        ready = group.AwaitReady();
        longest = std::max<std::int64_t>(longest, (Clock::now() - start) / std::chrono::nanoseconds(1));
        if (!ready) {
            state.SkipWithError("a worker did not come back");
            break;
        }
    }
    state.counters["max_ns"] = static_cast<double>(longest);
}
BENCHMARK(Handshake)->Arg(1)->Arg(2)->UseRealTime();

}  // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return EXIT_FAILURE;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
