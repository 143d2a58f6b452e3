#include "gains.hpp"
#include "liveParameters.hpp"
#include "sliceSet.hpp"

#include <lumo/mirrorsim/geometry.hpp>

#include <benchmark/benchmark.h>
#include <log4cplus/logger.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <vector>

/// What the cycle thread pays, between two cycles, for a change of the running loop: 600 modes in two slices. The
/// maximum is what can cost a cycle; the whole matrix copied at once is what the pieces avoid.
namespace {

using namespace lumo::ravelctl;
namespace mirrorsim = lumo::mirrorsim;
using Clock = std::chrono::steady_clock;

constexpr int NUM_MODES = 600;
constexpr double PERIOD_S = 0.002;

mirrorsim::ControlModes MakeModes()
{
    constexpr auto MODES = static_cast<std::size_t>(NUM_MODES);
    mirrorsim::ControlModes modes;
    modes.num_modes = NUM_MODES;
    modes.p2edc.assign(MODES * mirrorsim::NUM_ES, 1.0e-3F);
    modes.pact2modes.assign(MODES * mirrorsim::NUM_PACT, 1.0e-3F);
    modes.modes2pact.assign(MODES * mirrorsim::NUM_PACT, 1.0e-3F);
    return modes;
}

/// The slices of a loop that is ready to run, with the parameters' two sides.
struct Rig
{
    Rig()
        : modes(MakeModes()),
          gains(DesignGains(DesignFor(1.0 / PERIOD_S), {0.5, 1, PERIOD_S}, modes, 500.0)),
          es_meas(mirrorsim::NUM_ES),
          slices(modes, 2, gains, PERIOD_S, es_meas.data(), 1),
          parameters(slices, NUM_MODES, gains, {true, false, false})
    {
        for (lumo::ravelcore::Task* task : slices.GetTasks()) {
            task->Initialize();
        }
    }

    mirrorsim::ControlModes modes;
    std::vector<float> gains;
    std::vector<float> es_meas;
    SliceSet slices;
    LiveParameters parameters;
};

/// Times `cycle` alone; `prepare`, the slow thread's part, does not count.
template <typename Prepare, typename Cycle>
void Measure(benchmark::State& state, const Prepare& prepare, const Cycle& cycle)
{
    Clock::duration longest{0};
    for (auto _ : state) {
        prepare();
        const Clock::time_point start = Clock::now();
        cycle();
        const Clock::duration duration = Clock::now() - start;
        longest = std::max(longest, duration);
        state.SetIterationTime(std::chrono::duration<double>(duration).count());
    }
    state.counters["max_us"] = std::chrono::duration<double, std::micro>(longest).count();
}

void TakeOverAllGains(benchmark::State& state)
{
    Rig rig;
    LiveParameters::Change change;
    change.gains = rig.gains;
    Measure(
        state, [&] { rig.parameters.Publish(change); }, [&] { rig.parameters.TakeOver(); });
}
BENCHMARK(TakeOverAllGains)->UseManualTime()->Unit(benchmark::kMicrosecond);

void TakeOverOneReplacement(benchmark::State& state)
{
    Rig rig;
    LiveParameters::Change change;
    change.pdc = LiveParameters::Replacement{std::vector<float>(NUM_MODES), std::vector<float>(NUM_MODES)};
    Measure(
        state, [&] { rig.parameters.Publish(change); }, [&] { rig.parameters.TakeOver(); });
}
BENCHMARK(TakeOverOneReplacement)->UseManualTime()->Unit(benchmark::kMicrosecond);

void TakeOverNothing(benchmark::State& state)
{
    Rig rig;
    Measure(
        state, [] {}, [&] { rig.parameters.TakeOver(); });
}
BENCHMARK(TakeOverNothing)->UseManualTime()->Unit(benchmark::kMicrosecond);

/// A whole P2EDC on its way: the longest of its pieces is what a cycle pays.
void StagePieceOfMatrix(benchmark::State& state)
{
    Rig rig;
    const LiveParameters::Parts parts(2, std::vector<float>(rig.modes.p2edc.size() / 2, 1.0F));
    LiveParameters::Change change;
    change.p2edc = parts;
    bool is_staged = true;
    Measure(
        state,
        [&] {
            if (is_staged) {
                rig.parameters.TakeOver();
                rig.parameters.Publish(change);
                is_staged = false;
            }
        },
        [&] { is_staged = !rig.parameters.StagePiece(); });
}
BENCHMARK(StagePieceOfMatrix)->UseManualTime()->Unit(benchmark::kMicrosecond);

/// The reference: the same matrix copied by one cycle.
void CopyMatrixAtOnce(benchmark::State& state)
{
    const Rig rig;
    std::vector<float> target(rig.modes.p2edc.size());
    Measure(
        state, [] {},
        [&] {
            std::copy(rig.modes.p2edc.begin(), rig.modes.p2edc.end(), target.begin());
            benchmark::ClobberMemory();
        });
}
BENCHMARK(CopyMatrixAtOnce)->UseManualTime()->Unit(benchmark::kMicrosecond);

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
