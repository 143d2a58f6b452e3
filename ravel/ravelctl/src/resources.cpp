#include "resources.hpp"

#include "error.hpp"
#include "memoryLimit.hpp"
#include "passingFolder.hpp"

#include <fmt/core.h>
#include <sched.h>

#include <algorithm>
#include <fstream>
#include <system_error>

namespace lumo::ravelctl {

namespace fs = std::filesystem;

namespace {

/// Whether a file can be made in the folder; access() would not see a full or read-only file system for root.
bool CanWrite(const fs::path& folder)
{
    try {
        const PassingFolder probe(folder);
        std::ofstream file(probe.GetPath() / "probe");
        file << "probe\n";
        return file.flush().good();
    } catch (const std::system_error&) {
        return false;
    }
}

}  // namespace

void PrepareOutputFolder(const fs::path& folder, std::uint64_t needed_bytes, const std::string& what,
                         const std::string& remedy)
{
    std::error_code error;
    MakeFolders(folder, error);
    if (error || !fs::is_directory(folder)) {
        throw InputError(fmt::format("--output: cannot make the folder {}: {}; choose another", folder.string(),
                                     error ? error.message() : "something else has that name"));
    }
    RemoveDeadPassingFolders(folder);
    const fs::space_info space = fs::space(folder, error);
    if (!error && space.available < needed_bytes) {
        throw InputError(fmt::format("--output: {} need {} but {} has {} free; free some space, or {}", what,
                                     FormatBytes(needed_bytes), folder.string(), FormatBytes(space.available), remedy));
    }
    if (!CanWrite(folder)) {
        throw InputError(fmt::format("--output: cannot write into {}; choose another folder or change its permissions",
                                     folder.string()));
    }
}

void RefuseFolderOf(const char* what, const char* file, const fs::path& folder)
{
    std::error_code ignored;
    if (fs::exists(folder / file, ignored)) {
        throw InputError(
            fmt::format("--output: expected a folder of its own but {} holds {} ({}); choose another folder",
                        folder.string(), what, file));
    }
}

void CheckMemory(std::uint64_t needed_bytes, const std::string& what, const std::string& remedy)
{
    const std::uint64_t available = AvailableMemory();
    if (available != 0 && needed_bytes > available) {
        throw InputError(fmt::format("{} need {} of memory but the machine has {} to spare; {}", what,
                                     FormatBytes(needed_bytes), FormatBytes(available), remedy));
    }
}

std::uint64_t AvailableMemory()
{
    std::ifstream meminfo("/proc/meminfo");
    std::string name;
    std::uint64_t kib = 0;
    while (meminfo >> name && !(name == "MemAvailable:" && meminfo >> kib)) {
        meminfo.ignore(1000, '\n');
    }
    const std::uint64_t of_machine = kib * 1024;
    const std::uint64_t left = MemoryLeftByGroups().value_or(of_machine);
    return of_machine == 0 ? left : std::min(of_machine, left);
}

std::vector<int> AllowedCpus()
{
    cpu_set_t set;
    CPU_ZERO(&set);
    std::vector<int> cpus;
    if (sched_getaffinity(0, sizeof(set), &set) == 0) {
        for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
            if (CPU_ISSET(static_cast<std::size_t>(cpu), &set)) {
                cpus.push_back(cpu);
            }
        }
    }
    return cpus;
}

std::string FormatBytes(std::uint64_t bytes)
{
    static constexpr const char* UNITS[] = {"B", "kB", "MB", "GB", "TB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (value >= 1000.0 && unit + 1 < std::size(UNITS)) {
        value /= 1000.0;
        ++unit;
    }
    return unit == 0 ? fmt::format("{} B", bytes) : fmt::format("{:.1f} {}", value, UNITS[unit]);
}

}  // namespace lumo::ravelctl
