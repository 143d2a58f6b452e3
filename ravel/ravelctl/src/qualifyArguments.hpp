#pragma once

#include "qualifyOptions.hpp"

namespace CLI {
class App;
}

namespace lumo::ravelctl {

/// Tells the parser what `ravelctl qualify` takes. `options` must live as long as it parses; it is then what was read.
void AddQualifyOptions(CLI::App& command, QualifyOptions& options);

}  // namespace lumo::ravelctl
