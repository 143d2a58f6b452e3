#pragma once

#include <brisk/export.hpp>

#include <string>

namespace brisk {

/// Small services around files.
/// Thread:    any; FindFile reads the environment, which nobody may change meanwhile.
/// Real time: no.
/// Failure:   what cannot be looked at (no permission, too many links) counts as not there.
class BRISK_API Helper
{
public:
    Helper() = delete;

    /// Whether `name` is a regular file, or a symbolic link to one.
    /// Directories, devices and sockets do not count: callers remove what "exists" before they write it anew, and a
    /// directory or a device must never be removed that way.
    static bool FileExists(const std::string& name);

    /// Where the file `name` is, or "" when there is none. Regular files only (as FileExists).
    /// An absolute path is taken as it is. A relative one is looked for in the current directory, which returns `name`
    /// unchanged, then in each directory of the environment variable BRISK_DATA_PATH (colon-separated, empty entries
    /// are skipped), which returns directory + "/" + `name`.
    static std::string FindFile(const std::string& name);
};

}  // namespace brisk
