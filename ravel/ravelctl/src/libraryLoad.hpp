#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace lumo::ravelctl {

/// Loads a file through the library: calls `load` with the path at which the file is found. What the library, its file
/// layer and the standard library throw comes out as one kind, and a table without rows, which would end the process
/// there, does not come that far.
///
/// Real time: no.
/// Failure:   InputError of one line, that names the file and the reason.
void LoadThroughLibrary(const std::filesystem::path& file, const std::function<void(const std::string& path)>& load);

}  // namespace lumo::ravelctl
