#pragma once

#include "modulationOptions.hpp"
#include "replay.hpp"
#include "runOptions.hpp"

#include <ostream>
#include <variant>

namespace lumo::ravelctl {

/// What a command line asks for: a run, a modulation file, a replay, or to leave with this status (help or version have
/// been printed).
using Command = std::variant<RunOptions, ModulationOptions, ReplayOptions, int>;

/// Help and version go to `out`. Failure: InputError, one line.
Command ParseCommandLine(int argc, const char* const* argv, std::ostream& out);

}  // namespace lumo::ravelctl
