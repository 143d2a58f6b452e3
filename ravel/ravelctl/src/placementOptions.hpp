#pragma once

#include "optionPlaces.hpp"

#include <optional>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// What was said about CPUs or about a NUMA node.
struct PlaceChoice
{
    enum class Kind
    {
        Auto,  // chosen from what the machine has
        None,  // where the system likes
        Given  // `numbers`
    };

    std::string name;  // for messages: the option, or where the choice stands in a file
    Kind kind = Kind::Auto;
    std::vector<int> numbers{};  // at least one where they are given

    bool IsGiven() const { return kind == Kind::Given; }
};

/// Where the threads of a loop run, and what the process asks of the system for them; the values here are the defaults.
struct PlacementOptions
{
    static constexpr int DEFAULT_PRIORITY = 50;  // above what the system's own threads have by default
    static constexpr int PRIORITY_STEP = 10;     // from the workers to the cycle, which gives them their starts

    PlaceChoice cpus{"--cpus"};            // one per worker
    PlaceChoice cycle_cpu{"--cycle-cpu"};  // one
    PlaceChoice numa_node{"--numa-node"};  // one; of the workers and their memory
    std::optional<int> priority;           // of the workers: the default, or 0 where cycles are not paced
    std::optional<int> cycle_priority;     // a step above the workers', or 0 where theirs is
    bool lock_memory = true;               // where cycles are paced
    bool huge_pages = true;                // for the matrices
};

/// The priorities that are meant: what is given, or the defaults for cycles that are paced or not.
int PriorityOf(const PlacementOptions& options, bool is_paced);
int CyclePriorityOf(const PlacementOptions& options, bool is_paced);

/// Reads "auto", "none", or numbers such as "3", "2,3" or "4-7", in the order in which they are given.
/// Failure: InputError that begins with `name`, which the choice also has.
PlaceChoice ParsePlaceChoice(const std::string& name, const std::string& text);

/// What ParsePlaceChoice reads: "auto", "none" or "2,3".
std::string FormatPlaceChoice(const PlaceChoice& choice);

/// What the placement is for.
struct PlacementNeeds
{
    int num_workers = 1;
    std::string unpaced_by{};  // the option because of which cycles are not paced; empty where they are
    OptionPlaces places{};     // of the options, for messages

    bool IsPaced() const { return unpaced_by.empty(); }
};

/// Checks what does not depend on the machine. Failure: InputError that says what was expected and what came.
void CheckPlacementOptions(const PlacementOptions& options, const PlacementNeeds& needs);

}  // namespace lumo::ravelctl
