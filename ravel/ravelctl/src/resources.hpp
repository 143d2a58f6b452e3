#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace lumo::ravelctl {

/// Makes the folder of a command's files and checks that they fit: it can be written to, and the `needed_bytes` of
/// `what` are free. What killed processes left unfinished there goes. Failure: InputError that says what stands in the
/// way and what to do (`remedy`, besides freeing space); an empty folder may be left behind.
void PrepareOutputFolder(const std::filesystem::path& folder, std::uint64_t needed_bytes, const std::string& what,
                         const std::string& remedy);

/// Refuses a folder that holds `file`, the sign of something else (`what`) whose files would be replaced.
/// Failure: InputError.
void RefuseFolderOf(const char* what, const char* file, const std::filesystem::path& folder);

/// Checks that the machine has `needed_bytes` of memory to spare for `what`. Failure: InputError with both figures
/// and what to do (`remedy`).
void CheckMemory(std::uint64_t needed_bytes, const std::string& what, const std::string& remedy);

/// Bytes that the machine and the control groups of this process have to spare; 0 where neither says.
std::uint64_t AvailableMemory();

/// The CPUs on which this process may run, ascending.
std::vector<int> AllowedCpus();

/// "12.3 MB" and the like, powers of 1000.
std::string FormatBytes(std::uint64_t bytes);

}  // namespace lumo::ravelctl
