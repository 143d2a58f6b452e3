#pragma once

#include "runOptions.hpp"
#include "tuneOptions.hpp"

#include <string>

namespace CLI {
class App;
}

namespace lumo::ravelctl {

/// Tells the parser what `ravelctl tune` takes. `options` must live as long as it parses.
void AddTuneOptions(CLI::App& command, TuneOptions& options);

/// Takes what a configuration says of tuning.
void TuneAs(const RunOptions& config, TuneOptions& options);

/// What was read. Where nothing is to be proposed, what the configuration says of proposals does not count.
TuneOptions ReadTuneOptions(TuneOptions options);

/// "open", "closed" or "auto". Failure: InputError, without the option's name.
TuneFrom ParseTuneFrom(const std::string& part);
std::string NameTuneFrom(TuneFrom from);

}  // namespace lumo::ravelctl
