#pragma once

#include <lumo/ravelcore/modulation.hpp>

#include <filesystem>
#include <functional>
#include <string>

namespace lumo::ravelctl {

/// Loads the samples of a modulation for an option of the command line. `say` is told what takes long. Real time: no.
/// Failure: InputError that names the option and the file: none, unreadable, no rows, rows of another length, more than
/// 2^31 - 1 values, too little memory.
void LoadModulation(ravelcore::Modulation& modulation, const std::filesystem::path& file, const std::string& option,
                    const std::function<void(const std::string&)>& say);

}  // namespace lumo::ravelctl
