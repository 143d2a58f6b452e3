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
/// that the library's keys name, or else that of a worker's slice; and what they say of qualifying.
void QualifyFor(const RunArguments& run, QualifyOptions& options);

/// What was read. What the command line says takes the place of what the file says against it: cycles of a duration and
/// the other way round, flat out of real-time priorities.
QualifyOptions ReadQualifyOptions(QualifyOptions options);

}  // namespace lumo::ravelctl
