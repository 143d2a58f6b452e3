#pragma once

#include "optionPlaces.hpp"
#include "otherTables.hpp"
#include "placementOptions.hpp"

#include <lumo/mirrorsim/mirrorConfig.hpp>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// What is recorded, and which part of it.
struct RecordOptions
{
    bool modes = true;  // modes_in.fits, modes_out.fits, modes_ref.fits, modes_arw.fits
    bool es = false;    // es.fits: the edge sensors' records
    bool pact = false;  // pact.fits: the actuators' records
    int decimation = 1;
    std::optional<double> last_s;  // keep only the last seconds
};

/// "modes" and so on, of what is recorded.
std::vector<std::string> NameRecorded(const RecordOptions& record);

/// Recorded frames in place of the simulated sensors; none where the name is empty.
struct PlayOptions
{
    std::filesystem::path es;
    std::filesystem::path pact;
};

/// Samples to add to the modes' references; none where the name is empty.
struct InjectOptions
{
    std::filesystem::path file;
    int decimation = 1;  // cycles that each sample lasts
    bool loop = false;   // begin again after the last one
};

/// What `ravelctl run` can be told; the values here are its defaults.
struct RunOptions
{
    static constexpr double DEFAULT_DURATION_S = 20.0;
    static constexpr int MOST_WORKERS = 256;

    std::filesystem::path config;  // file that says the rest; none where it is empty
    int modes = 600;
    double rate_hz = 500.0;
    std::optional<double> duration_s;   // the default above, or as long as what is played, where it is not given
    std::optional<double> open_loop_s;  // a tenth of the duration where it is not given
    int workers = 1;                    // the command line says 2 where it is not told
    std::uint64_t seed = 1;
    std::filesystem::path output;    // a new folder named after the time where it is empty
    bool overwrite = false;          // replace the run that the output folder holds
    std::filesystem::path matrices;  // the user's cache where it is empty
    bool as_fast_as_possible = false;
    bool quiet = false;
    std::filesystem::path log_config;  // log4cplus properties
    std::vector<mirrorsim::Tone> tones;
    RecordOptions record;
    PlayOptions play;
    InjectOptions inject;
    std::filesystem::path gains;   // those of the channels to begin with; designed ones where it is empty
    std::filesystem::path script;  // changes while the loop runs; none where it is empty
    PlacementOptions placement;
    std::map<std::string, std::string> cfg;  // the library's own keys, as Task::Configure takes them
    OptionPlaces places;                     // of what stands in a file
    QualifyTable qualify;                    // of the file; a run does not use it
    TuneTable tune;                          // likewise
};

/// The names of the files and folders from which a run is made, which may be empty.
std::vector<std::filesystem::path*> ListInputs(RunOptions& options);

/// How the run divides into cycles. All counts are in cycles.
struct LoopPlan
{
    std::int64_t cycles = 0;       // of the whole run
    std::int64_t open_cycles = 0;  // with the loop open, at the beginning
    std::int64_t lead_cycles = 0;  // over which the references are led from the measured modes to 0
    double rate_hz = 0.0;
    bool paced = true;

    /// Synchronisation time of a cycle, in seconds from the first one.
    double TimeOf(std::int64_t cycle) const { return static_cast<double>(cycle) / rate_hz; }

    /// The cycle after the references have been led to 0: the first to which samples are added.
    std::int64_t FirstInjectedCycle() const { return open_cycles + lead_cycles + 1; }

    /// First cycle of the closed loop's second half, in which the result is judged.
    std::int64_t FirstJudgedCycle() const { return open_cycles + (cycles - open_cycles) / 2; }
};

/// What the run's placement is for.
PlacementNeeds NeedsOf(const RunOptions& options);

/// Checks every option and divides the run. Failure: InputError that says what was expected and what came, and
/// names the place of what stands in a file.
LoopPlan PlanRun(const RunOptions& options);

}  // namespace lumo::ravelctl
