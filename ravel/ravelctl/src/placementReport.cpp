#include "placementReport.hpp"

#include "modeList.hpp"
#include "resources.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <functional>
#include <utility>

namespace lumo::ravelctl {

namespace {

std::string NameCpu(int cpu)
{
    return cpu < 0 ? "any CPU" : fmt::format("CPU {}", cpu);
}

std::string NamePriority(int priority)
{
    return priority == 0 ? "ordinary scheduling" : fmt::format("priority {}", priority);
}

std::string DescribeWorkers(const PlacementReport& report)
{
    std::vector<std::string> places;
    places.reserve(report.workers.size());
    for (std::size_t i = 0; i < report.workers.size(); ++i) {
        const int node = report.plan.workers.at(i).numa_node;
        places.push_back(NameCpu(report.workers[i].cpu) + (node < 0 ? "" : fmt::format(" (node {})", node)));
    }
    const bool are_same = std::adjacent_find(places.begin(), places.end(), std::not_equal_to<>()) == places.end();
    if (are_same && places.size() > 1) {
        places.resize(1);
    }
    const int priority = report.workers.empty() ? 0 : report.workers.front().priority;
    return fmt::format("{}, {}", fmt::join(places, ", "), NamePriority(priority));
}

std::string DescribeCycle(const PlacementReport& report)
{
    return fmt::format("{}, {}", NameCpu(report.plan.cycle.cpu), NamePriority(report.plan.cycle.priority));
}

bool IsCounted(std::int64_t faults)
{
    return faults >= 0;
}

std::string DescribeHugePages(const HugePages& pages)
{
    return fmt::format("{} of {} of matrices", FormatBytes(pages.granted_bytes), FormatBytes(pages.wanted_bytes));
}

}  // namespace

std::string FormatRefusal(const Refusal& refusal)
{
    return fmt::format("not granted: {} ({}){}{}", refusal.what, refusal.why,
                       refusal.remedy.empty() ? "" : "; what would allow it: ", refusal.remedy);
}

std::string FormatPlacement(const PlacementReport& report)
{
    std::string text = fmt::format("worker{} on {}; cycle on {}", report.workers.size() == 1 ? "" : "s",
                                   DescribeWorkers(report), DescribeCycle(report));
    if (!report.plan.rest.empty()) {
        text += fmt::format("; the rest on CPU {}", FormatModeList(report.plan.rest));
    }
    text += report.memory_locked ? "; memory locked" : "; memory not locked";
    if (report.huge_pages.wanted_bytes > 0) {
        text += fmt::format("; {} in huge pages", DescribeHugePages(report.huge_pages));
    }
    return text;
}

std::vector<std::pair<std::string, std::string>> DescribePlacement(const PlacementReport& report)
{
    std::vector<std::pair<std::string, std::string>> rows = {
        {"workers run on", DescribeWorkers(report)},
        {"cycle runs on", DescribeCycle(report)},
        {"other threads run on", report.plan.rest.empty() ? "any CPU" : "CPU " + FormatModeList(report.plan.rest)},
        {"memory", report.memory_locked ? "locked" : "not locked"},
        {"huge pages", report.huge_pages.wanted_bytes == 0 ? "none" : DescribeHugePages(report.huge_pages)}};
    if (report.cycle_page_faults >= 0) {
        rows.emplace_back("page faults of the cycle", std::to_string(report.cycle_page_faults));
    }
    if (!report.worker_page_faults.empty() &&
        std::all_of(report.worker_page_faults.begin(), report.worker_page_faults.end(), IsCounted)) {
        rows.emplace_back("page faults of the workers", fmt::format("{}", fmt::join(report.worker_page_faults, ", ")));
    }
    for (const Refusal& refusal : report.refused) {
        rows.emplace_back("not granted", fmt::format("{} ({})", refusal.what, refusal.why));
    }
    return rows;
}

}  // namespace lumo::ravelctl
