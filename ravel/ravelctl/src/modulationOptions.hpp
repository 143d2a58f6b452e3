#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace lumo::ravelctl {

enum class ModulationShape
{
    Sine,
    Step,
    Chirp,
    Noise
};

/// What `ravelctl make-modulation` can be told; the values here are its defaults. Options that only some shapes take
/// are empty where they are not given.
struct ModulationOptions
{
    ModulationShape shape = ModulationShape::Sine;
    std::filesystem::path output;  // the file
    int modes = 600;               // of the run that it is for
    std::string on = "0";          // the modes that move, as ParseModeList reads them
    double amplitude_um = 0.1;     // of noise the standard deviation
    double rate_hz = 500.0;
    double duration_s = 10.0;
    double start_s = 0.0;                // zeros until then
    std::optional<double> frequency_hz;  // of a sine, and where a chirp begins: 1 Hz
    std::optional<double> to_hz;         // where a chirp ends: a fifth of the rate
    std::optional<std::uint64_t> seed;   // of noise: 1
    bool overwrite = false;              // replace the file
    bool quiet = false;
};

/// What the options mean: how many samples, which of them and which modes are not 0, and what the defaults are.
struct ModulationPlan
{
    int samples = 0;
    int first_sample = 0;  // of the shape; its time is 0
    std::vector<int> on;   // ascending
    double frequency_hz = 0.0;
    double to_hz = 0.0;
    std::uint64_t seed = 0;
};

/// "sine" and so on: what the command line says.
/// Failure: InputError for another name.
ModulationShape ParseModulationShape(const std::string& name);
const char* GetName(ModulationShape shape);

/// Checks every option but the file. Times are rounded to whole cycles.
/// Failure: InputError that says what was expected and what came.
ModulationPlan PlanModulation(const ModulationOptions& options);

}  // namespace lumo::ravelctl
