#pragma once

#include "tuneOptions.hpp"

namespace CLI {
class App;
}

namespace lumo::ravelctl {

/// Tells the parser what `ravelctl tune` takes. `options` must live as long as it parses.
void AddTuneOptions(CLI::App& command, TuneOptions& options);

}  // namespace lumo::ravelctl
