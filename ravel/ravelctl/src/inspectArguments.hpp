#pragma once

#include "inspectOptions.hpp"

#include <string>

namespace CLI {
class App;
}

namespace lumo::ravelctl {

/// What the parser reads for `ravelctl inspect`.
struct InspectArguments
{
    InspectOptions options;
    std::string rows;
};

/// Tells the parser what the command takes. `arguments` must live as long as it parses.
void AddInspectOptions(CLI::App& command, InspectArguments& arguments);

/// What was read. Failure: InputError for rows that are no range, and for options that do not go together.
InspectOptions ReadInspectOptions(const InspectArguments& arguments);

}  // namespace lumo::ravelctl
