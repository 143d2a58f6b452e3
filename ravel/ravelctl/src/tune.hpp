#pragma once

#include "tuneOptions.hpp"

#include <ostream>

namespace lumo::ravelctl {

/// Finds gains that leave less of the disturbance that a run recorded, predicts what they leave, and writes both; or
/// compares a run with such a prediction. Tells the user on `out`, and on `err` why the status it returns is not
/// EXIT_OK.
/// Thread: a slow one. Failure: InputError, RunError.
int Tune(const TuneOptions& options, std::ostream& out, std::ostream& err);

}  // namespace lumo::ravelctl
