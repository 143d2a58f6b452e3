#include "memoryLimit.hpp"

#include <algorithm>
#include <fstream>
#include <string>

namespace lumo::ravelctl {

namespace {

namespace fs = std::filesystem;

/// A hierarchy of groups that knows about memory, and the names of its files. The kernel's cgroup-v2.rst and
/// cgroup-v1/memory.rst describe them.
struct Hierarchy
{
    fs::path mount;
    const char* limit;
    const char* used;
    const char* droppable;  // line of memory.stat
};

/// None also for "max", which stands for no limit.
std::optional<std::uint64_t> ReadNumber(const fs::path& file)
{
    std::ifstream stream(file);
    std::uint64_t value = 0;
    return stream >> value ? std::optional<std::uint64_t>(value) : std::nullopt;
}

std::uint64_t ReadStat(const fs::path& file, const std::string& wanted)
{
    std::ifstream stream(file);
    std::string name;
    std::uint64_t value = 0;
    while (stream >> name >> value) {
        if (name == wanted) {
            return value;
        }
    }
    return 0;
}

std::optional<std::uint64_t> LeftBy(const fs::path& group, const Hierarchy& hierarchy)
{
    constexpr std::uint64_t NO_LIMIT = std::uint64_t{1} << 62U;  // version 1 writes a number this large
    const std::optional<std::uint64_t> limit = ReadNumber(group / hierarchy.limit);
    const std::optional<std::uint64_t> used = ReadNumber(group / hierarchy.used);
    if (!limit || !used || *limit >= NO_LIMIT) {
        return std::nullopt;
    }
    const std::uint64_t droppable = std::min(*used, ReadStat(group / "memory.stat", hierarchy.droppable));
    const std::uint64_t held = *used - droppable;
    return *limit - std::min(*limit, held);
}

std::optional<std::uint64_t> Least(std::optional<std::uint64_t> left, std::optional<std::uint64_t> right)
{
    return left && right ? std::min(*left, *right) : (left ? left : right);
}

/// `path` begins with "/" and is seen from the mount. Inside a container it may be the host's, which is not there: then
/// the mount itself is the container's group.
std::optional<std::uint64_t> LeftFrom(const std::string& path, const Hierarchy& hierarchy)
{
    std::optional<std::uint64_t> left = LeftBy(hierarchy.mount, hierarchy);
    fs::path group = hierarchy.mount;
    for (const fs::path& name : fs::path(path).relative_path()) {
        group /= name;
        left = Least(left, LeftBy(group, hierarchy));
    }
    return left;
}

}  // namespace

std::optional<std::uint64_t> MemoryLeftByGroups(const fs::path& root)
{
    const fs::path mounts = root / "sys/fs/cgroup";
    const Hierarchy version1{mounts / "memory", "memory.limit_in_bytes", "memory.usage_in_bytes",
                             "total_inactive_file"};
    const Hierarchy version2{mounts, "memory.max", "memory.current", "inactive_file"};
    std::optional<std::uint64_t> left;
    std::ifstream groups(root / "proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {  // "4:memory:/a/b" or, of version 2, "0::/a/b"
        const std::size_t first = line.find(':');
        const std::size_t second = first == std::string::npos ? first : line.find(':', first + 1);
        if (second == std::string::npos) {
            continue;
        }
        const std::string controllers = line.substr(first + 1, second - first - 1);
        const std::string path = line.substr(second + 1);
        if (controllers.empty()) {
            left = Least(left, LeftFrom(path, version2));
        } else if ((',' + controllers + ',').find(",memory,") != std::string::npos) {
            left = Least(left, LeftFrom(path, version1));
        }
    }
    return left;
}

}  // namespace lumo::ravelctl
