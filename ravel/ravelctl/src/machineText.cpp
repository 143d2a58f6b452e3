#include "machineText.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

namespace lumo::ravelctl {

std::string DescribeGovernors(const MachineFacts& facts)
{
    return facts.governors.empty() ? "none; the frequency is fixed, or the host's affair"
                                   : fmt::format("{}", fmt::join(facts.governors, ", "));
}

std::string DescribeNumaNodes(const MachineFacts& facts)
{
    const std::size_t nodes = ParseCpuList(facts.numa_nodes.value_or("")).size();
    return nodes == 0 ? "the kernel knows none" : std::to_string(nodes);
}

std::string DescribeHugePages(const MachineFacts& facts)
{
    const std::string transparent =
        facts.transparent_huge_pages ? "transparent: " + *facts.transparent_huge_pages : "no transparent ones";
    return fmt::format("{}, {} reserved", transparent, facts.huge_pages.value_or(0));
}

}  // namespace lumo::ravelctl
