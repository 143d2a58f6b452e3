#pragma once

#include "inspectOptions.hpp"

#include <ostream>

namespace lumo::ravelctl {

/// Says to `out` what the files hold, each in its turn. A file that cannot be read is one line to `err`, and the others
/// are still shown. Returns the exit status. Real time: no. Failure: RunError when `out` takes no more.
int InspectFiles(const InspectOptions& options, std::ostream& out, std::ostream& err);

}  // namespace lumo::ravelctl
