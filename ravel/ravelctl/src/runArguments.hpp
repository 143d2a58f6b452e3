#pragma once

#include "runOptions.hpp"

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace lumo::ravelctl {

/// What the parser reads for `ravelctl run`.
struct RunArguments
{
    RunOptions options;
    std::optional<int> workers;
    std::vector<std::string> tones;
    std::vector<std::string> record;
    std::optional<std::string> record_last;
};

/// Tells the parser what the command takes. `arguments` must live as long as it parses.
void AddRunOptions(CLI::App& command, RunArguments& arguments);

/// What was read. Failure: InputError for what the parser alone does not understand.
RunOptions ReadRunOptions(const RunArguments& arguments);

}  // namespace lumo::ravelctl
