#include "runOptions.hpp"

#include "argumentChecks.hpp"
#include "error.hpp"
#include "figureText.hpp"

#include <lumo/mirrorsim/controlModes.hpp>

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace lumo::ravelctl {

namespace {

void CheckTones(const RunOptions& options)
{
    const std::string name = options.places.Name("--tone");
    for (const mirrorsim::Tone& tone : options.tones) {
        CheckRange(name + ": mode", tone.mode, 0, options.modes - 1, "");
        CheckRange(name + ": frequency", tone.frequency_hz, 0.0, 0.5 * options.rate_hz, " Hz");
        CheckRange(name + ": amplitude", tone.amplitude_um * 1.0e3, 0.0, 1.0e6, " nm");
    }
}

}  // namespace

std::vector<std::string> NameRecorded(const RecordOptions& record)
{
    std::vector<std::string> names;
    for (const auto& [is_recorded, name] :
         {std::pair(record.modes, "modes"), std::pair(record.es, "es"), std::pair(record.pact, "pact")}) {
        if (is_recorded) {
            names.emplace_back(name);
        }
    }
    return names;
}

std::vector<std::filesystem::path*> ListInputs(RunOptions& options)
{
    return {&options.matrices,  &options.gains,       &options.script,    &options.play.es,
            &options.play.pact, &options.inject.file, &options.log_config};
}

PlacementNeeds NeedsOf(const RunOptions& options)
{
    return {options.workers, options.as_fast_as_possible ? options.places.Name("--as-fast-as-possible") : "",
            options.places};
}

LoopPlan PlanRun(const RunOptions& options)
{
    constexpr std::int64_t FEWEST_CYCLES = 50;
    constexpr double LEAD_S = 0.5;
    const OptionPlaces& places = options.places;
    CheckRange(places.Name("--modes"), options.modes, 1, mirrorsim::NUM_MODES, "");
    CheckRange(places.Name("--rate"), options.rate_hz, 1.0, 5000.0, " Hz");
    const double duration_s = options.duration_s.value_or(RunOptions::DEFAULT_DURATION_S);
    CheckRange(places.Name("--duration"), duration_s, 0.01, 1.0e6, " s");
    CheckRange(places.Name("--workers"), options.workers, 1, RunOptions::MOST_WORKERS, "");
    CheckTones(options);

    LoopPlan plan;
    plan.rate_hz = options.rate_hz;
    plan.paced = !options.as_fast_as_possible;
    plan.cycles = std::llround(duration_s * options.rate_hz);
    if (plan.cycles < FEWEST_CYCLES || plan.cycles > std::numeric_limits<std::int32_t>::max()) {
        throw InputError(fmt::format("{}: expected {} to {} cycles but {} s at {} Hz are {}", places.Name("--duration"),
                                     FEWEST_CYCLES, std::numeric_limits<std::int32_t>::max(), FormatFigure(duration_s),
                                     FormatFigure(options.rate_hz), plan.cycles));
    }
    const double open_s = options.open_loop_s.value_or(0.1 * duration_s);
    CheckRange(places.Name("--open-loop"), open_s, 0.0, 0.9 * duration_s, " s");
    plan.open_cycles = std::llround(open_s * options.rate_hz);
    plan.lead_cycles =
        std::min<std::int64_t>(std::llround(LEAD_S * options.rate_hz), (plan.cycles - plan.open_cycles) / 4);

    const int slice = (options.modes + options.workers - 1) / options.workers;
    const int needed = (options.modes + slice - 1) / slice;
    if (needed < options.workers) {
        throw InputError(fmt::format("{}: {} modes in slices of {} leave {} of {} workers without work; use {}",
                                     places.Name("--workers"), options.modes, slice, options.workers - needed,
                                     options.workers, needed));
    }
    CheckPlacementOptions(options.placement, NeedsOf(options));
    return plan;
}

}  // namespace lumo::ravelctl
