#pragma once

#include "qualifyOptions.hpp"
#include "runArguments.hpp"

namespace CLI {
class App;
}

namespace lumo::ravelctl {

/// Tells the parser what `ravelctl qualify` takes. `options` must live as long as it parses; it is then what was read.
void AddQualifyOptions(CLI::App& command, QualifyOptions& options);

/// Takes from a run's options what there is to qualify for: its rate, workers and placement, and the size of the matrix
/// that the library's keys name, or else that of a worker's slice.
void QualifyFor(const RunArguments& run, QualifyOptions& options);

}  // namespace lumo::ravelctl
