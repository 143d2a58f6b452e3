#include "passingFolder.hpp"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

namespace lumo::ravelctl {

namespace {

namespace fs = std::filesystem;

struct Folders
{
    std::mutex mutex;
    std::vector<fs::path> paths;
    std::vector<fs::path> made;  // those that are to stay, the outer ones first
};

/// Never destroyed: a thread may end the process while another one leaves main.
Folders& GetFolders()
{
    static auto* const folders = new Folders;
    return *folders;
}

void Remove(const fs::path& folder)
{
    // Who writes into it may add a file while it is being emptied.
    constexpr int ATTEMPTS = 10;
    std::error_code error;
    for (int attempt = 0; attempt < ATTEMPTS && (attempt == 0 || error); ++attempt) {
        fs::remove_all(folder, error);
    }
}

}  // namespace

PassingFolder::PassingFolder(const fs::path& parent)
{
    const fs::path existing = parent.empty() ? "." : parent;
    std::string name = (existing / ".ravelctl-XXXXXX").string();
    Folders& folders = GetFolders();
    const std::lock_guard lock(folders.mutex);  // it is known from the moment it is there
    if (mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "no file can be made in " + existing.string());
    }
    m_path = name;
    folders.paths.push_back(m_path);
}

PassingFolder::~PassingFolder()
{
    Folders& folders = GetFolders();
    const std::lock_guard lock(folders.mutex);
    Remove(m_path);
    folders.paths.erase(std::remove(folders.paths.begin(), folders.paths.end(), m_path), folders.paths.end());
}

void MakeFolders(const fs::path& folder, std::error_code& error)
{
    Folders& folders = GetFolders();
    const std::lock_guard lock(folders.mutex);
    std::vector<fs::path> missing;  // the inner ones first
    std::error_code ignored;
    for (fs::path path = fs::absolute(folder).lexically_normal(); !path.empty() && !fs::exists(path, ignored);
         path = path.parent_path()) {
        missing.push_back(path);
    }
    fs::create_directories(folder, error);
    if (!error) {
        folders.made.insert(folders.made.end(), missing.rbegin(), missing.rend());
    }
}

fs::path MakeNewFolder(const std::string& stem)
{
    Folders& folders = GetFolders();
    const std::lock_guard lock(folders.mutex);
    std::error_code error;
    fs::path folder = stem;
    for (int number = 2; !fs::create_directory(folder, error); ++number) {  // in one step: others choose names as well
        std::error_code ignored;
        if (!fs::exists(fs::symlink_status(folder, ignored))) {
            return folder;
        }
        folder = stem + "-" + std::to_string(number);
    }
    folders.made.push_back(fs::absolute(folder));
    return folder;
}

void EndWithoutPassingFolders(int status, const std::string& line)
{
    Folders& folders = GetFolders();
    folders.mutex.lock();  // for good: whoever begins or ends a file from here on waits for the end
    for (const fs::path& path : folders.paths) {
        Remove(path);
    }
    std::error_code ignored;
    for (auto path = folders.made.rbegin(); path != folders.made.rend(); ++path) {
        fs::remove(*path, ignored);  // which it does not where there is something in it
    }
    // A terminal shows what was typed, and perhaps a line that refreshes: ours begins below it.
    const std::string text = (isatty(STDERR_FILENO) == 1 ? "\n" : "") + line + "\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
    _exit(status);
}

}  // namespace lumo::ravelctl
