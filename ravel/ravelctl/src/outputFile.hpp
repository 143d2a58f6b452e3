#pragma once

#include <filesystem>
#include <string>

namespace lumo::ravelctl {

/// Whether the file of --output may be made, asked before the work. Failure: InputError that says what stands in the
/// way and what to do.
void CheckOutputFile(const std::filesystem::path& file, bool overwrite);

/// What to say, and to do, where a file of --output could not be written.
std::string CannotWrite(const std::filesystem::path& file, const std::string& reason);

}  // namespace lumo::ravelctl
