#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace lumo::ravelctl {

/// Lets `write` make a file beside `file` and gives it that name when it is whole: nobody ever sees a half-written
/// file, and an old one stays until the new one is there. Failure: what `write` throws, or
/// std::filesystem::filesystem_error; the part is removed.
void WriteWhole(const std::filesystem::path& file, const std::function<void(const std::filesystem::path&)>& write);

/// A whole file of text. Failure: as WriteWhole; std::ios_base::failure.
void WriteWholeText(const std::filesystem::path& file, const std::string& text);

}  // namespace lumo::ravelctl
