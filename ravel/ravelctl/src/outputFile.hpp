#pragma once

#include <filesystem>

namespace lumo::ravelctl {

/// Whether the file of --output may be made, asked before the work. Failure: InputError that says what stands in the
/// way and what to do.
void CheckOutputFile(const std::filesystem::path& file, bool overwrite);

}  // namespace lumo::ravelctl
