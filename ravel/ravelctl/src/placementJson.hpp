#pragma once

#include "placementReport.hpp"

#include <nlohmann/json.hpp>

namespace lumo::ravelctl {

/// The object "placement" of summary.json and qualify.json. CPU -1: any; NUMA node -1: no preference.
nlohmann::ordered_json PlacementToJson(const PlacementReport& report);

}  // namespace lumo::ravelctl
