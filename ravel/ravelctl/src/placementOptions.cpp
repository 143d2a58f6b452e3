#include "placementOptions.hpp"

#include "argumentChecks.hpp"
#include "error.hpp"
#include "systemFiles.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <sstream>

namespace lumo::ravelctl {

namespace {

constexpr int HIGHEST_PRIORITY = 89;        // the cycle's is above it
constexpr int HIGHEST_CYCLE_PRIORITY = 99;  // of SCHED_FIFO

[[noreturn]] void RefuseText(const std::string& name, const std::string& text)
{
    throw InputError(
        fmt::format("{}: expected auto, none or numbers such as 3 or 2,3 or 4-7 but got '{}'", name, text));
}

void CheckOne(const PlaceChoice& choice)
{
    if (choice.IsGiven() && choice.numbers.size() != 1) {
        throw InputError(fmt::format("{}: expected auto, none or one number but got {}", choice.name,
                                     fmt::join(choice.numbers, ",")));
    }
}

void CheckWorkerCpus(const PlaceChoice& cpus, int num_workers)
{
    if (!cpus.IsGiven()) {
        return;
    }
    for (auto cpu = cpus.numbers.begin(); cpu != cpus.numbers.end(); ++cpu) {
        if (std::find(cpus.numbers.begin(), cpu, *cpu) != cpu) {
            throw InputError(fmt::format("{}: expected one worker per CPU but got {} twice", cpus.name, *cpu));
        }
    }
    if (cpus.numbers.size() != static_cast<std::size_t>(num_workers)) {
        throw InputError(fmt::format("{}: expected {} CPU{}, one per worker, but got {} ({})", cpus.name, num_workers,
                                     num_workers == 1 ? "" : "s", cpus.numbers.size(), fmt::join(cpus.numbers, ",")));
    }
}

void CheckPriority(const std::string& option, const std::optional<int>& priority, int highest,
                   const PlacementNeeds& needs)
{
    CheckRange(option, priority.value_or(0), 0, highest, "");
    if (!needs.IsPaced() && priority.value_or(0) > 0) {
        throw InputError(fmt::format("{}: expected 0 with {} but got {}; what never sleeps would let nothing else run",
                                     option, needs.unpaced_by, *priority));
    }
}

}  // namespace

int PriorityOf(const PlacementOptions& options, bool is_paced)
{
    return options.priority.value_or(is_paced ? PlacementOptions::DEFAULT_PRIORITY : 0);
}

int CyclePriorityOf(const PlacementOptions& options, bool is_paced)
{
    const int of_workers = PriorityOf(options, is_paced);
    return options.cycle_priority.value_or(of_workers > 0 ? of_workers + PlacementOptions::PRIORITY_STEP : 0);
}

PlaceChoice ParsePlaceChoice(const std::string& name, const std::string& text)
{
    if (text == "auto") {
        return {name, PlaceChoice::Kind::Auto, {}};
    }
    if (text == "none") {
        return {name, PlaceChoice::Kind::None, {}};
    }
    PlaceChoice choice{name, PlaceChoice::Kind::Given, {}};
    std::istringstream ranges(text);
    for (std::string range; std::getline(ranges, range, ',');) {
        if (!AppendCpuRange(range, choice.numbers)) {
            RefuseText(name, text);
        }
    }
    if (choice.numbers.empty() || text.back() == ',') {
        RefuseText(name, text);
    }
    return choice;
}

std::string FormatPlaceChoice(const PlaceChoice& choice)
{
    switch (choice.kind) {
        case PlaceChoice::Kind::None:
            return "none";
        case PlaceChoice::Kind::Given:
            return fmt::format("{}", fmt::join(choice.numbers, ","));
        case PlaceChoice::Kind::Auto:
            break;
    }
    return "auto";
}

void CheckPlacementOptions(const PlacementOptions& options, const PlacementNeeds& needs)
{
    CheckOne(options.cycle_cpu);
    CheckOne(options.numa_node);
    CheckWorkerCpus(options.cpus, needs.num_workers);
    CheckPriority(needs.places.Name("--priority"), options.priority, HIGHEST_PRIORITY, needs);
    CheckPriority(needs.places.Name("--cycle-priority"), options.cycle_priority, HIGHEST_CYCLE_PRIORITY, needs);
}

}  // namespace lumo::ravelctl
