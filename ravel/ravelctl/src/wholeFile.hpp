#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace lumo::ravelctl {

/// Lets `write` make a file of the same name in a passing folder beside `file` and moves it to its place when it is
/// whole: nobody ever sees a half-written file, and an old one stays until the new one is there. An early end of the
/// process through EndWithoutPassingFolders takes the folder with it. Failure: what `write` throws, or
/// std::system_error; the folder is removed.
void WriteWhole(const std::filesystem::path& file, const std::function<void(const std::filesystem::path&)>& write);

/// A whole file of text. Failure: as WriteWhole; std::ios_base::failure.
void WriteWholeText(const std::filesystem::path& file, const std::string& text);

}  // namespace lumo::ravelctl
