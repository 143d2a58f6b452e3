#pragma once

#include "doctor.hpp"

namespace CLI {
class App;
}

namespace lumo::ravelctl {

/// Tells the parser what `ravelctl doctor` takes. `options` must live as long as it parses; it is then what was read.
void AddDoctorOptions(CLI::App& command, DoctorOptions& options);

}  // namespace lumo::ravelctl
