#include "passingFolder.hpp"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <string>
#include <string_view>
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

constexpr std::string_view NAME = ".ravelctl-XXXXXX";

/// A descriptor that holds the folder's lock; -1 where it cannot be had, with the reason in errno.
int TakeLock(const fs::path& folder)
{
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (descriptor >= 0 && flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        close(descriptor);
        errno = error;
        return -1;
    }
    return descriptor;
}

bool IsLikeAPassingFolder(const fs::path& name)
{
    const std::string text = name.string();
    const std::string_view before = NAME.substr(0, NAME.find('X'));
    return text.size() == NAME.size() && text.starts_with(before);
}

}  // namespace

PassingFolder::PassingFolder(const fs::path& parent)
{
    const fs::path existing = parent.empty() ? "." : parent;
    Folders& folders = GetFolders();
    const std::lock_guard lock(folders.mutex);  // it is known from the moment it is there
    // Before it is locked somebody may take it for one of a dead process, and remove it.
    std::error_code ignored;
    while (true) {
        std::string name = (existing / NAME).string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), "no file can be made in " + existing.string());
        }
        m_path = name;
        m_lock = TakeLock(m_path);
        if (m_lock < 0 && errno != EWOULDBLOCK && errno != ENOENT) {
            break;  // there are no locks here, so nobody removes it
        }
        if (m_lock >= 0 && fs::exists(m_path, ignored)) {
            break;
        }
        if (m_lock >= 0) {
            close(m_lock);
        }
    }
    folders.paths.push_back(m_path);
}

PassingFolder::~PassingFolder()
{
    Folders& folders = GetFolders();
    const std::lock_guard lock(folders.mutex);
    Remove(m_path);
    if (m_lock >= 0) {
        close(m_lock);
    }
    folders.paths.erase(std::remove(folders.paths.begin(), folders.paths.end(), m_path), folders.paths.end());
}

void RemoveDeadPassingFolders(const fs::path& parent)
{
    std::error_code error;
    for (fs::directory_iterator entry(parent, error), end; !error && entry != end; entry.increment(error)) {
        const int lock = IsLikeAPassingFolder(entry->path().filename()) ? TakeLock(entry->path()) : -1;
        if (lock >= 0) {
            Remove(entry->path());
            close(lock);
        }
    }
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
