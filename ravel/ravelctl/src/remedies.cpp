#include "remedies.hpp"

#include "modeList.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <set>
#include <sstream>
#include <vector>

namespace lumo::ravelctl::remedies {

std::string UserLimit(const std::string& item, const std::string& value)
{
    return fmt::format("echo \"$USER - {} {}\" | sudo tee -a /etc/security/limits.d/ravel.conf  # then log in again",
                       item, value);
}

std::string RealTimePriority(int needed)
{
    constexpr int USUAL = 89;  // room for more, and still below the system's watchdogs
    return UserLimit("rtprio", std::to_string(std::max(needed, USUAL)));
}

std::string LockedMemory()
{
    return UserLimit("memlock", "unlimited");
}

std::string Governor()
{
    return "echo performance | sudo tee /sys/devices/system/cpu/cpu*/cpufreq/scaling_governor";
}

std::string TransparentHugePages()
{
    return "echo madvise | sudo tee /sys/kernel/mm/transparent_hugepage/enabled";
}

std::string KernelArguments(const std::string& arguments)
{
    std::vector<std::string> names;
    std::istringstream words(arguments);
    for (std::string word; words >> word;) {
        names.push_back(word.substr(0, word.find('=')));
    }
    return fmt::format(
        "sudo sed -i -E 's/({})=[^ \"]* *//g' /etc/default/grub && "
        "sudo sed -i 's/^GRUB_CMDLINE_LINUX=\"/&{} /' /etc/default/grub && sudo update-grub && sudo reboot",
        fmt::join(names, "|"), arguments);
}

std::string CpusToSetAside(const CpuTopology& topology)
{
    std::set<int> cores;
    for (const int cpu : topology.usable) {
        cores.insert(topology.CoreOf(cpu));
    }
    constexpr std::size_t FEWEST = 2;
    if (cores.size() < FEWEST) {
        return "";
    }
    const int first_aside = *std::next(cores.begin(), static_cast<std::ptrdiff_t>((cores.size() + 1) / 2));
    std::vector<int> aside;
    std::copy_if(topology.usable.begin(), topology.usable.end(), std::back_inserter(aside),
                 [&](int cpu) { return topology.CoreOf(cpu) >= first_aside; });
    return FormatModeList(aside);
}

}  // namespace lumo::ravelctl::remedies
