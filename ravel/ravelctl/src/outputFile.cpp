#include "outputFile.hpp"

#include "error.hpp"

#include <fmt/core.h>

namespace lumo::ravelctl {

namespace fs = std::filesystem;

void CheckOutputFile(const fs::path& file, bool overwrite)
{
    std::error_code ignored;
    if (!file.has_filename() || fs::is_directory(file, ignored)) {
        throw InputError(fmt::format("--output: expected the name of a file but got {}",
                                     file.empty() ? "an empty one" : file.string()));
    }
    if (const fs::path folder = fs::absolute(file).parent_path(); !fs::is_directory(folder, ignored)) {
        throw InputError(fmt::format("--output: expected a folder that exists but got {}", folder.string()));
    }
    if (!fs::exists(file, ignored)) {
        return;
    }
    if (!fs::is_regular_file(file, ignored)) {
        throw InputError(
            fmt::format("--output: expected a file or a new name but {} is something else", file.string()));
    }
    if (!overwrite) {
        throw InputError(fmt::format(
            "--output: {} exists already; choose another name, or replace that file with --overwrite", file.string()));
    }
}

std::string CannotWrite(const fs::path& file, const std::string& reason)
{
    return fmt::format("cannot write {}: {}; free some space or choose another place with --output", file.string(),
                       reason);
}

}  // namespace lumo::ravelctl
