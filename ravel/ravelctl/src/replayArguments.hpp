#pragma once

#include "replay.hpp"

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace lumo::ravelctl {

/// What the parser reads for `ravelctl replay`.
struct ReplayArguments
{
    std::vector<std::string> set;
    ReplayOptions options;
};

/// Tells the parser what the command takes. `arguments` must live as long as it parses.
void AddReplayOptions(CLI::App& command, ReplayArguments& arguments);

/// What was read. Failure: InputError for a parameter that there is not, or a value that it cannot have.
ReplayOptions ReadReplayOptions(const ReplayArguments& arguments);

}  // namespace lumo::ravelctl
