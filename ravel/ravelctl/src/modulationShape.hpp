#pragma once

#include "modulationOptions.hpp"

#include <vector>

namespace lumo::ravelctl {

/// The samples of a modulation in um, row-major: one row per cycle, one column per mode. Equal options give equal bits.
/// Failure: as PlanModulation.
std::vector<float> MakeModulation(const ModulationOptions& options);

}  // namespace lumo::ravelctl
