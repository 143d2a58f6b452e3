#pragma once

#include "qualifyOptions.hpp"
#include "qualifyReport.hpp"

#include <functional>
#include <ostream>

namespace lumo::ravelctl {

/// How a qualification is ended early.
struct QualifyStop
{
    /// Called once, when the workers have started: what an end at once would lose is measured from here on.
    std::function<void()> workers_started = [] {
    };

    /// Asked again and again from then on; takes its time (StopSignals::Await). What was measured until it says yes is
    /// reported.
    std::function<bool()> is_interrupted;
};

/// Loads and times the processors: one TaskSgemv per worker, in the loop's handshake. Says to `out` what it does, how
/// far it is and, unless quiet, what came out of it; writes qualify.json and the page.
/// Thread:  the main one; it starts the others and joins them.
/// Failure: InputError for options that cannot work or too little memory, before anything runs; RunError when a worker
///          cannot be started. What goes wrong later is a problem in the report.
QualifyReport Qualify(const QualifyOptions& options, const QualifyStop& stop, std::ostream& out);

/// Of the command.
int GetExitStatus(const QualifyReport& report);

}  // namespace lumo::ravelctl
