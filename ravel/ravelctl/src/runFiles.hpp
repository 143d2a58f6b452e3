#pragma once

#include "runOptions.hpp"
#include "script.hpp"

#include <filesystem>
#include <string>
#include <vector>

/// What a run writes into its output folder, and what it may take the place of.
namespace lumo::ravelctl {

/// Refuses an output folder in which this run would replace what nobody has given up: that of a qualification or of a
/// proposal of gains in any case; without --overwrite one in which there is any of the run's files; with it one that
/// holds a file from which this very run is made. Failure: InputError that names the first such file.
void CheckRunFolder(const RunOptions& options, const std::vector<ScriptStep>& script);

/// The files that the summary of the run in `folder` names, as paths below it; none where there is no summary. Names
/// that lead out of the folder are left out. Never throws.
std::vector<std::filesystem::path> ListFilesOfOldRun(const std::filesystem::path& folder);

/// Takes the summary away from the run in `folder`, if there is one: before the first of its files is replaced, so that
/// no summary ever speaks of another run's files. A folder without one is no run. Never throws.
void RemoveSummary(const std::filesystem::path& folder);

/// Removes of `old_files`, those of a run that has been replaced, what is not among `files`, the new ones. What
/// somebody else has put into the folder stays. Never throws: what cannot be removed stays.
void RemoveStaleFiles(const std::filesystem::path& folder, const std::vector<std::filesystem::path>& old_files,
                      const std::vector<std::string>& files);

}  // namespace lumo::ravelctl
