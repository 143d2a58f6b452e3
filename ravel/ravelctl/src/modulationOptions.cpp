#include "modulationOptions.hpp"

#include "argumentChecks.hpp"
#include "error.hpp"
#include "modeList.hpp"

#include <lumo/mirrorsim/controlModes.hpp>

#include <fmt/core.h>

#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace lumo::ravelctl {

namespace {

constexpr std::array<std::pair<const char*, ModulationShape>, 4> SHAPES = {{
    {"sine", ModulationShape::Sine},
    {"step", ModulationShape::Step},
    {"chirp", ModulationShape::Chirp},
    {"noise", ModulationShape::Noise},
}};

/// An option that the shape does not take would be left aside without a word.
void CheckTaken(const char* option, bool is_given, bool is_taken, const char* takers, ModulationShape shape)
{
    if (is_given && !is_taken) {
        throw InputError(fmt::format("{}: expected with {} only but the shape is {}", option, takers, GetName(shape)));
    }
}

void CheckTaken(const ModulationOptions& options)
{
    const bool is_chirp = options.shape == ModulationShape::Chirp;
    const bool is_sine = options.shape == ModulationShape::Sine;
    const bool is_noise = options.shape == ModulationShape::Noise;
    CheckTaken("--frequency", options.frequency_hz.has_value(), is_sine || is_chirp, "sine and chirp", options.shape);
    CheckTaken("--to", options.to_hz.has_value(), is_chirp, "chirp", options.shape);
    CheckTaken("--seed", options.seed.has_value(), is_noise, "noise", options.shape);
}

/// Playback counts the values of all samples with 32 bits.
int CountSamples(const ModulationOptions& options)
{
    const std::int64_t samples = std::llround(options.duration_s * options.rate_hz);
    if (samples < 1) {
        throw InputError(fmt::format("--duration: expected 1 sample or more but {} s at {} Hz are {}",
                                     options.duration_s, options.rate_hz, samples));
    }
    constexpr std::int64_t MOST_VALUES = std::numeric_limits<std::int32_t>::max();
    if (samples * options.modes > MOST_VALUES) {
        throw InputError(fmt::format("--duration: expected at most {} values but {} samples of {} modes are {}",
                                     MOST_VALUES, samples, options.modes, samples * options.modes));
    }
    return static_cast<int>(samples);
}

}  // namespace

ModulationShape ParseModulationShape(const std::string& name)
{
    for (const auto& [known, shape] : SHAPES) {
        if (name == known) {
            return shape;
        }
    }
    throw InputError(fmt::format("SHAPE: expected sine, step, chirp or noise but got {}", name));
}

const char* GetName(ModulationShape shape)
{
    return SHAPES[static_cast<std::size_t>(shape)].first;
}

ModulationPlan PlanModulation(const ModulationOptions& options)
{
    constexpr double MOST_UM = 1000.0;
    CheckTaken(options);
    CheckRange("--modes", options.modes, 1, mirrorsim::NUM_MODES, "");
    CheckRange("--rate", options.rate_hz, 1.0, 5000.0, " Hz");
    CheckRange("--duration", options.duration_s, 0.0, 1.0e6, " s");
    const double least_um = options.shape == ModulationShape::Noise ? 0.0 : -MOST_UM;
    CheckRange("--amplitude", options.amplitude_um, least_um, MOST_UM, " um");

    ModulationPlan plan;
    plan.frequency_hz = options.frequency_hz.value_or(1.0);
    plan.to_hz = options.to_hz.value_or(0.2 * options.rate_hz);
    plan.seed = options.seed.value_or(1);
    if (options.shape == ModulationShape::Sine || options.shape == ModulationShape::Chirp) {
        CheckRange("--frequency", plan.frequency_hz, 0.0, 0.5 * options.rate_hz, " Hz");
        CheckRange("--to", plan.to_hz, 0.0, 0.5 * options.rate_hz, " Hz");
    }
    plan.samples = CountSamples(options);
    CheckRange("--start", options.start_s, 0.0, options.duration_s, " s");
    plan.first_sample = static_cast<int>(std::llround(options.start_s * options.rate_hz));
    if (plan.first_sample >= plan.samples) {
        throw InputError(fmt::format("--start: expected a sample or more after it but got {} of {} s", options.start_s,
                                     options.duration_s));
    }
    try {
        plan.on = ParseModeList(options.on, options.modes);
    } catch (const InputError& error) {
        throw InputError(fmt::format("--on: {}", error.what()));
    }
    return plan;
}

}  // namespace lumo::ravelctl
