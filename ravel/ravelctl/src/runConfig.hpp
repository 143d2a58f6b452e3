#pragma once

#include "runArguments.hpp"

#include <filesystem>
#include <string>

/// The file of a run's options, TOML. It covers everything that the options of `ravelctl run` cover, and the library's
/// own keys under their own names ("cfg.task_edc.num_pact" is key num_pact of table cfg.task_edc).
namespace lumo::ravelctl {

/// Reads a file into what the command line reads into; what the file does not say stays as it is.
/// Failure: InputError with file, line, column, what was expected and what came; for an unknown key the nearest one.
void LoadConfig(const std::filesystem::path& file, RunArguments& arguments);

/// The file that says the same as `options`: every entry with a comment and its unit; what is not given is commented
/// out, with an example.
std::string FormatConfig(const RunOptions& options);

}  // namespace lumo::ravelctl
