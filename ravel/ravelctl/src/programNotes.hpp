#pragma once

#include <array>

/// What help and manual page say of the program as a whole. The statuses stand with their names (error.hpp).
namespace lumo::ravelctl {

/// A name and what it means.
struct ProgramNote
{
    const char* name;
    const char* meaning;
};

inline constexpr const char* PROGRAM_DESCRIPTION =
    "Close and examine the control loop of a segmented primary mirror of 798 segments";

/// A walk through a night: is the machine fit, run the loop, look back.
inline constexpr std::array NIGHT_EXAMPLES = {
    "ravelctl doctor",
    "ravelctl qualify --workers 2 --duration 60",
    "ravelctl config > night.toml",
    "ravelctl run night.toml --output first",
    "ravelctl inspect first/*.fits",
    "ravelctl replay first --set kp=0.5",
    "ravelctl tune first --output tuned",
    "ravelctl run night.toml --gains tuned/gains.fits --output second",
    "xdg-open first/report.html",
};

inline constexpr std::array<ProgramNote, 5> ENVIRONMENT_VARIABLES = {{
    {"NO_COLOR", "with anything in it: no colours on a terminal"},
    {"TERM", "\"dumb\" or not set: neither colours nor lines that refresh"},
    {"XDG_CACHE_HOME", "where the matrices are kept, in ravelctl/mirror-1 [~/.cache]"},
    {"OPENBLAS_NUM_THREADS", "threads that compute the matrices [one per CPU]"},
    {"OPENBLAS_CORETYPE", "processor whose kernels the BLAS takes [this one]; the last bits of a result depend on it"},
}};

inline constexpr std::array<ProgramNote, 9> WRITTEN_FILES = {{
    {"DIR/summary.json", "figures of a run, for programs, with the names of its files"},
    {"DIR/report.html", "a run for people, in a browser; opens from disk"},
    {"DIR/config.toml", "what repeats a run: ravelctl run DIR/config.toml"},
    {"DIR/gains.fits",
     "gains of the channels, a row; gains-CYCLE.fits: those that a script put in force before that cycle"},
    {"DIR/modes_in.fits, modes_out.fits, modes_ref.fits, modes_arw.fits",
     "measured modes, outputs, references and anti-windup inputs of the channels: a row per cycle, with time stamps in "
     "seconds"},
    {"DIR/es.fits, DIR/pact.fits", "records of the edge sensors and of the actuators, as the front end gave them"},
    {"DIR/qualify.json", "figures of a qualification, for programs; report.html beside it is for people"},
    {"DIR/tune.json", "what ravelctl tune predicts of the gains.fits beside it"},
    {"~/.cache/ravelctl/mirror-1/*.fits", "the matrices, computed by the first run and used by all others"},
}};

}  // namespace lumo::ravelctl
