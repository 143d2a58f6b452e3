#pragma once

#include <filesystem>

namespace lumo::ravelctl {

/// Where an input lies: below the current folder or the data path, as the library looks for files; one that is nowhere
/// would lie below the current folder. Absolute. Thread: any slow one.
std::filesystem::path LocateInput(const std::filesystem::path& input);

}  // namespace lumo::ravelctl
