#include "placementJson.hpp"

namespace lumo::ravelctl {

namespace {

using Json = nlohmann::ordered_json;

Json FaultsToJson(std::int64_t faults)
{
    return faults < 0 ? Json(nullptr) : Json(faults);
}

Json WorkersToJson(const PlacementReport& report)
{
    Json workers = Json::array();
    for (std::size_t i = 0; i < report.workers.size(); ++i) {
        workers.push_back(
            {{"cpu", report.workers[i].cpu},
             {"priority", report.workers[i].priority},
             {"numa_node", report.plan.workers.at(i).numa_node},
             {"page_faults",
              i < report.worker_page_faults.size() ? FaultsToJson(report.worker_page_faults[i]) : Json(nullptr)}});
    }
    return workers;
}

Json RefusedToJson(const PlacementReport& report)
{
    Json refused = Json::array();
    for (const Refusal& refusal : report.refused) {
        refused.push_back({{"what", refusal.what},
                           {"why", refusal.why},
                           {"remedy", refusal.remedy.empty() ? Json(nullptr) : Json(refusal.remedy)}});
    }
    return refused;
}

}  // namespace

Json PlacementToJson(const PlacementReport& report)
{
    return {{"workers", WorkersToJson(report)},
            {"cycle",
             {{"cpu", report.cycle.cpu},
              {"priority", report.cycle.priority},
              {"page_faults", FaultsToJson(report.cycle_page_faults)}}},
            {"other_cpus", report.plan.rest},
            {"memory_locked", report.memory_locked},
            {"huge_pages",
             {{"wanted_bytes", report.huge_pages.wanted_bytes}, {"granted_bytes", report.huge_pages.granted_bytes}}},
            {"refused", RefusedToJson(report)}};
}

}  // namespace lumo::ravelctl
