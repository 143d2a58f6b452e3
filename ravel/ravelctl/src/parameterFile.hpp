#pragma once

#include <filesystem>
#include <string>
#include <vector>

/// Files of parameters, as a script names them and a run leaves them. Thread: a slow one. Real time: no.
namespace lumo::ravelctl {

/// The one row of a file, of `size` floats. A file that has no path of its own is also looked for as the library does.
/// Failure: InputError with the shape that was expected and the one that came, or a value that is not finite.
std::vector<float> LoadParameterRow(const std::filesystem::path& file, const std::string& name, int size);

/// A matrix of `rows` x `cols` floats, row-major. Failure: as above.
std::vector<float> LoadParameterMatrix(const std::filesystem::path& file, const std::string& name, int rows, int cols);

/// Gains of `num_modes` channels with which these can work, 10 floats each. Failure: InputError that names the file.
std::vector<float> LoadGainsFile(const std::filesystem::path& file, int num_modes);

/// Writes gains as LoadGainsFile and a script take them. Failure: RunError that names the file.
void SaveGainsFile(const std::filesystem::path& file, const std::vector<float>& params);

}  // namespace lumo::ravelctl
