#pragma once

#include "modulationOptions.hpp"

#include <string>

namespace CLI {
class App;
}

namespace lumo::ravelctl {

/// What the parser reads for `ravelctl make-modulation`.
struct ModulationArguments
{
    std::string shape;
    ModulationOptions options;
};

/// Tells the parser what the command takes. `arguments` must live as long as it parses.
void AddModulationOptions(CLI::App& command, ModulationArguments& arguments);

/// What was read. Failure: InputError for a shape that there is not.
ModulationOptions ReadModulationOptions(const ModulationArguments& arguments);

}  // namespace lumo::ravelctl
