#include "placementArguments.hpp"

#include <CLI/CLI.hpp>

#include <optional>

namespace lumo::ravelctl {

namespace {

void AddChoice(CLI::App& command, const char* name, PlaceChoice& choice, const char* type, const char* description)
{
    command
        .add_option_function<std::string>(
            name, [name, &choice](const std::string& text) { choice = ParsePlaceChoice(name, text); }, description)
        ->type_name(type);
}

}  // namespace

void AddPlacementOptions(CLI::App& command, PlacementOptions& options)
{
    AddChoice(command, "--cpus", options.cpus, "LIST",
              "CPUs of the workers: one each, such as 2,3; none: where the system likes [auto: a core each]");
    AddChoice(command, "--cycle-cpu", options.cycle_cpu, "CPU",
              "CPU of the cycle's thread, or none [auto: a core that no worker has]");
    AddChoice(command, "--numa-node", options.numa_node, "NODE",
              "NUMA node of the workers and their memory, or none [auto: where their CPUs are]");
    command.add_option("--priority", options.priority,
                       "Real-time priority of the workers, 0 to 89 [50; 0 where cycles are not paced]");
    command.add_option("--cycle-priority", options.cycle_priority,
                       "Real-time priority of the cycle's thread, 0 to 99 [10 above the workers']");
    command.add_flag("--lock-memory,!--no-lock-memory", options.lock_memory,
                     "Keep the memory from being paged out [on where cycles are paced]");
    command.add_flag("--huge-pages,!--no-huge-pages", options.huge_pages, "Put the matrices into huge pages [on]");
}

void ForgetPriorities(const OptionPlaces& places, PlacementOptions& options)
{
    options.priority = places.Has("--priority") ? std::nullopt : options.priority;
    options.cycle_priority = places.Has("--cycle-priority") ? std::nullopt : options.cycle_priority;
}

}  // namespace lumo::ravelctl
