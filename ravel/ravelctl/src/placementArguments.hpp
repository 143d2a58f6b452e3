#pragma once

#include "placementOptions.hpp"

namespace CLI {
class App;
}

namespace lumo::ravelctl {

/// Tells the parser what a command takes about the placement of its threads. `options` must live as long as it parses;
/// the parser throws InputError for what is no placement.
void AddPlacementOptions(CLI::App& command, PlacementOptions& options);

/// Takes away the priorities that stand in a file, because of what the command line says against them.
void ForgetPriorities(const OptionPlaces& places, PlacementOptions& options);

}  // namespace lumo::ravelctl
