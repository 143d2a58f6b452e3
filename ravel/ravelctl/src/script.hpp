#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// The script of a run: a TOML file that says which parameters of the running loop change, and when.
///
///     # times are seconds from the run's first cycle, ascending
///     [[at]]
///     time = 10
///     gains = { modes = "0,3,10-19", kp = 0.9, ki = 40.0 }
///     references = { modes = [5, 6], value = 0.1 }
///     [[at]]
///     time = 12.5
///     pdc = { modes = 3, value = 0 }
///     p2edc = "other.fits"
///     save = "first"
namespace lumo::ravelctl {

/// Modes are ascending, without repetitions; where a script names none, all of them.
struct GainChange
{
    std::vector<int> modes;
    std::vector<std::pair<int, float>> params;  // place in the library's packed order (pidFilter.hpp), ascending
};

struct ReferenceChange
{
    std::vector<int> modes;
    float value_um = 0.0F;
};

/// Measured modes are replaced by a value, which takes them out of the loop.
struct ReplacementChange
{
    std::vector<int> modes;
    bool replace = true;  // false: the modes are given back to the loop
    float value_um = 0.0F;
};

/// What happens at one moment. Files are as seen from the folder of the script; an empty path or string is a thing that
/// it does not name.
struct ScriptStep
{
    double time_s = 0.0;
    int line = 0;  // of the script
    std::optional<GainChange> gains;
    std::filesystem::path gains_file;  // one row of 10 x modes floats
    std::optional<ReferenceChange> references;
    std::filesystem::path references_file;  // one row of modes floats, um
    std::optional<ReplacementChange> pdc;
    std::optional<ReplacementChange> fdc;  // where both replace a mode, this one wins
    std::filesystem::path p2edc;
    std::filesystem::path pact2modes;
    std::filesystem::path modes2pact;
    std::string save;  // folder, below the run's output, for what was recorded so far
};

/// Reads and checks the whole script for a run of `num_modes` modes whose last cycle begins at `last_s`; the files that
/// it names are not opened. Failure: InputError with file, line, what was expected and what came.
std::vector<ScriptStep> LoadScript(const std::filesystem::path& file, int num_modes, double last_s);

/// One line for people, such as "gains of modes 0,3,10-19: kp = 0.5; P2EDC from other.fits".
std::string Describe(const ScriptStep& step, int num_modes);

}  // namespace lumo::ravelctl
