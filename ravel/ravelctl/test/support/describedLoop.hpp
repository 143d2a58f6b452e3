#pragma once

#include "gains.hpp"
#include "loopAnalysis.hpp"

#include <lumo/mirrorsim/geometry.hpp>
#include <lumo/mirrorsim/mirror.hpp>

#include <vector>

namespace lumo::ravelctl::test {

/// What determines the loop of a mode as `run` designs it, but for the limits.
struct DescribedLoop
{
    Plant plant;
    ravelcore::PidFilterContext channel;
};

/// From where a run itself takes its figures.
inline DescribedLoop DescribeLoop(double rate_hz)
{
    mirrorsim::MirrorConfig config;
    config.period_s = 1.0 / rate_hz;
    const mirrorsim::Mirror mirror(mirrorsim::Geometry(), config);
    const Plant plant{mirror.GetLagCoefficient(), mirrorsim::Mirror::COMMAND_DELAY_CYCLES, config.period_s};
    mirrorsim::ControlModes modes;
    modes.num_modes = 1;
    modes.modes2pact.assign(static_cast<std::size_t>(mirrorsim::NUM_PACT), 0.02F);
    std::vector<ravelcore::PidFilterContext> channels;
    ravelcore::PidFilterCopy(static_cast<float>(plant.period_s), 0.0F,
                             DesignGains(DesignFor(rate_hz), plant, modes, config.stroke_limit_um), channels);
    return {plant, channels.at(0)};
}

}  // namespace lumo::ravelctl::test
