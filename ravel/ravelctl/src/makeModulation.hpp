#pragma once

#include "modulationOptions.hpp"

#include <ostream>

namespace lumo::ravelctl {

/// Makes a modulation file, which ravelcore::Modulation loads, and says in one line to `out` what is in it.
/// Failure: InputError for options that cannot work or too little memory, before anything is written; RunError when the
/// file cannot be written. An old file is then still there.
void MakeModulationFile(const ModulationOptions& options, std::ostream& out);

}  // namespace lumo::ravelctl
