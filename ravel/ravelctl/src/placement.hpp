#pragma once

#include "cpuTopology.hpp"
#include "placementOptions.hpp"
#include "workerGroup.hpp"

#include <vector>

namespace lumo::ravelctl {

/// Where everything runs.
struct PlacementPlan
{
    std::vector<Placement> workers;
    Placement cycle;        // the thread that gives the starts
    std::vector<int> rest;  // CPUs of all other threads; none: where the system likes
};

/// Gives every thread its place.
///
/// CPUs that are chosen automatically are one per core, isolated ones first, on one NUMA node as far as they fit, from
/// the last one down. The workers get a core each, the cycle one that no worker has, and at least one core is left for
/// the rest. Where the cores are too few, the cycle and the rest run anywhere, or nothing is pinned at all. Paced
/// threads of ordinary scheduling are pinned to isolated CPUs only: on others they would have to wait for other
/// programs.
/// Failure: InputError that says what was expected and what came.
PlacementPlan PlanPlacement(const PlacementOptions& options, const PlacementNeeds& needs, const CpuTopology& topology);

}  // namespace lumo::ravelctl
