#pragma once

#include "hugePages.hpp"
#include "ownThread.hpp"
#include "placement.hpp"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace lumo::ravelctl {

/// Something for real-time work that the machine does not give.
struct Refusal
{
    std::string what;
    std::string why;
    std::string remedy;  // the command that would allow it; "" where no command does
};

/// Which placement was in force.
struct PlacementReport
{
    PlacementPlan plan;                 // what was asked of the system, without what it is known to refuse
    std::vector<GrantedPlace> workers;  // what they were given
    GrantedPlace cycle;
    bool memory_locked = false;
    HugePages huge_pages;
    std::vector<Refusal> refused;
    std::int64_t cycle_page_faults = -1;           // of the cycle's thread while the cycles ran; -1: not counted
    std::vector<std::int64_t> worker_page_faults;  // likewise
};

/// One line: "not granted: ...".
std::string FormatRefusal(const Refusal& refusal);

/// Where everything runs, in one line without an end: "workers on CPUs 3, 2, priority 50; cycle on CPU 1, ...".
std::string FormatPlacement(const PlacementReport& report);

/// Rows for a table: what, and how.
std::vector<std::pair<std::string, std::string>> DescribePlacement(const PlacementReport& report);

}  // namespace lumo::ravelctl
