#include <brisk/helper.hpp>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <system_error>

namespace brisk {

bool Helper::FileExists(const std::string& name)
{
    std::error_code ignored;  // what cannot be looked at counts as not there
    return std::filesystem::is_regular_file(name, ignored);
}

std::string Helper::FindFile(const std::string& name)
{
    if (FileExists(name)) {
        return name;  // absolute, or relative to the current directory
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): only read, and nothing here changes the environment
    const char* const data_path = std::getenv("BRISK_DATA_PATH");
    if (data_path == nullptr || std::filesystem::path(name).is_absolute()) {
        return "";
    }
    std::istringstream directories(data_path);
    for (std::string directory; std::getline(directories, directory, ':');) {
        if (directory.empty()) {
            continue;
        }
        directory.append("/").append(name);
        if (FileExists(directory)) {
            return directory;
        }
    }
    return "";
}

}  // namespace brisk
