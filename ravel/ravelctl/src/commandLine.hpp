#pragma once

#include "modulationOptions.hpp"
#include "runOptions.hpp"

#include <ostream>
#include <variant>

namespace lumo::ravelctl {

/// What a command line asks for: a run, a modulation file, or to leave with this status (help or version have been
/// printed).
using Command = std::variant<RunOptions, ModulationOptions, int>;

/// Help and version go to `out`. Failure: InputError, one line.
Command ParseCommandLine(int argc, const char* const* argv, std::ostream& out);

}  // namespace lumo::ravelctl
