#pragma once

#include "optionPlaces.hpp"

#include <filesystem>
#include <optional>

namespace lumo::ravelctl {

/// Which part of a run tells the disturbance.
enum class TuneFrom
{
    Auto,    // the longer one
    Open,    // what was measured with the loop open
    Closed,  // what was measured with the loop closed, less what the commands did
};

/// How far a loop must stay from instability.
struct LoopDemands
{
    double phase_margin_deg = 45.0;          // at least
    double gain_margin_db = 6.0;             // at least
    double sensitivity_peak = 2.0;           // at most: the largest factor by which the loop amplifies a disturbance
    std::optional<double> max_crossover_hz;  // open loop, at most
};

/// What `ravelctl tune` can be told.
struct TuneOptions
{
    std::filesystem::path run;     // its output folder
    std::filesystem::path config;  // file with a table of these options; none where it is empty
    TuneFrom from = TuneFrom::Auto;
    LoopDemands demands;
    std::filesystem::path output;  // folder for gains.fits and tune.json; no files where it is empty
    bool overwrite = false;        // replace these files
    std::filesystem::path check;   // a tune.json: compare the run with that prediction instead
    bool quiet = false;            // the files and the status alone tell
    OptionPlaces places;           // of what stands in the file
};

/// Checks what can be checked without the run. Failure: InputError.
void CheckTuneOptions(const TuneOptions& options);

}  // namespace lumo::ravelctl
