#pragma once

#include "controlLoop.hpp"
#include "gains.hpp"
#include "matrixStore.hpp"
#include "simulatedFrontEnd.hpp"
#include "sliceSet.hpp"
#include "support/quietLog.hpp"
#include "workerGroup.hpp"

#include <map>
#include <string>
#include <vector>

namespace lumo::ravelctl::test {

/// The first `num_modes` of the shared modes, read once per program.
inline const mirrorsim::ControlModes& SharedModes(int num_modes)
{
    static std::map<int, mirrorsim::ControlModes> read;
    const auto [place, is_new] = read.try_emplace(num_modes);
    if (is_new) {
        place->second = LoadOrComputeModes(mirrorsim::Geometry(), RAVELCTL_TEST_MATRICES, num_modes,
                                           [](const std::string& /*line*/) {});
    }
    return place->second;
}

/// Everything of a run but threads of its own for cycle and progress: the test's thread is the cycle's.
class SmallLoop
{
public:
    explicit SmallLoop(const RunOptions& options)
        : plan(PlanRun(options)),
          modes(SharedModes(options.modes)),
          front_end(mirrorsim::Mirror(geometry, MakeConfig(options), modes.modes2pact, modes.num_modes)),
          plant{front_end.GetMirror().GetLagCoefficient(), mirrorsim::Mirror::COMMAND_DELAY_CYCLES,
                1.0 / options.rate_hz},
          pid_params(
              DesignGains(DesignFor(options.rate_hz), plant, modes, front_end.GetMirror().GetConfig().stroke_limit_um)),
          slices(modes, options.workers, pid_params, plant.period_s, front_end.GetEsMeas().block1.data(),
                 static_cast<int>(plan.cycles)),
          workers(slices.GetTasks(), std::vector<Placement>(static_cast<std::size_t>(options.workers)),
                  std::chrono::minutes(1), log4cplus::Logger::getInstance("smallLoop")),
          loop(plan, modes, front_end, slices, workers)
    {
    }

    ~SmallLoop()
    {
        slices.PrepareStop();
        workers.Stop(true);
    }

    SmallLoop(const SmallLoop&) = delete;
    SmallLoop& operator=(const SmallLoop&) = delete;

    void Start()
    {
        QuietLog();
        workers.Start();
        slices.StartRecording(false, 0);
    }

    static mirrorsim::MirrorConfig MakeConfig(const RunOptions& options)
    {
        mirrorsim::MirrorConfig config;
        config.seed = options.seed;
        config.period_s = 1.0 / options.rate_hz;
        config.tones = options.tones;
        return config;
    }

    mirrorsim::Geometry geometry;
    LoopPlan plan;
    const mirrorsim::ControlModes& modes;
    SimulatedFrontEnd front_end;
    Plant plant;
    std::vector<float> pid_params;
    SliceSet slices;
    WorkerGroup workers;
    ControlLoop loop;
};

}  // namespace lumo::ravelctl::test
