#pragma once

#include "qualifyOptions.hpp"
#include "qualifyReport.hpp"

#include <functional>
#include <ostream>

namespace lumo::ravelctl {

/// Loads and times the processors: one TaskSgemv per worker, in the loop's handshake. Says to `out` what it does, how
/// far it is and, unless quiet, what came out of it; writes qualify.json and the page.
///
/// `is_interrupted` is asked again and again while the workers run and takes its time (StopSignals::Await); what was
/// measured until then is reported.
/// Thread:  the main one; it starts the others and joins them.
/// Failure: InputError for options that cannot work or too little memory, before anything runs; RunError when a worker
///          cannot be started. What goes wrong later is a problem in the report.
QualifyReport Qualify(const QualifyOptions& options, const std::function<bool()>& is_interrupted, std::ostream& out);

/// Of the command.
int GetExitStatus(const QualifyReport& report);

}  // namespace lumo::ravelctl
