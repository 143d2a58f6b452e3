#pragma once

#include "commandOutline.hpp"
#include "doctor.hpp"
#include "inspectOptions.hpp"
#include "modulationOptions.hpp"
#include "qualifyOptions.hpp"
#include "replay.hpp"
#include "runOptions.hpp"
#include "tuneOptions.hpp"

#include <ostream>
#include <variant>

namespace lumo::ravelctl {

/// What a command line asks for: the options of a command, or to leave with this status (help, version or a
/// configuration have been printed).
using Command = std::variant<RunOptions, ModulationOptions, InspectOptions, ReplayOptions, TuneOptions, QualifyOptions,
                             DoctorOptions, int>;

/// What ParseCommandLine takes.
ProgramOutline OutlineCommandLine();

/// Help, version, manual page and completion go to `out`. Failure: InputError, one line.
Command ParseCommandLine(int argc, const char* const* argv, std::ostream& out);

}  // namespace lumo::ravelctl
