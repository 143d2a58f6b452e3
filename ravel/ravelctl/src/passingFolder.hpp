#pragma once

#include <filesystem>
#include <string>
#include <system_error>

/// What must not be left behind when the process ends early.
namespace lumo::ravelctl {

/// A folder for what is not finished yet, with a name of its own in `parent`: what is moved from it to a place in
/// `parent` is there at once. It lives as long as this object, with all that is then still in it.
/// Thread: any slow one.
class PassingFolder
{
public:
    /// Failure: std::system_error.
    explicit PassingFolder(const std::filesystem::path& parent);
    ~PassingFolder();

    PassingFolder(const PassingFolder&) = delete;
    PassingFolder& operator=(const PassingFolder&) = delete;

    const std::filesystem::path& GetPath() const { return m_path; }

private:
    std::filesystem::path m_path;
    int m_lock = -1;  // held while this lives, and by nobody once the process is dead
};

/// Removes from `parent` the passing folders of processes that were killed: those whose locks nobody holds. Where the
/// file system has no locks all of them stay. Never throws. Thread: any slow one.
void RemoveDeadPassingFolders(const std::filesystem::path& parent);

/// Makes a folder, and those around it that are missing, as std::filesystem::create_directories does. Where the process
/// ends through EndWithoutPassingFolders, what was made here goes again if it is still empty. Thread: any slow one.
void MakeFolders(const std::filesystem::path& folder, std::error_code& error);

/// Makes a folder that was not there: of the name `stem`, or of that name with -2, -3 and so on where others have it.
/// It goes as one of MakeFolders does. Where none can be made it gives the name with which that was tried, for
/// MakeFolders to say why. Thread: any slow one.
std::filesystem::path MakeNewFolder(const std::string& stem);

/// Removes every passing folder and every empty folder of MakeFolders, writes `line` to standard error and ends the
/// process with `status`, at once: nothing is destroyed. Other threads may be in the middle of writing; none of them
/// can finish a file or complain any more. Thread: any, but no signal handler.
[[noreturn]] void EndWithoutPassingFolders(int status, const std::string& line);

}  // namespace lumo::ravelctl
