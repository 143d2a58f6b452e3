#include "doctorArguments.hpp"

#include <CLI/CLI.hpp>

namespace lumo::ravelctl {

void AddDoctorOptions(CLI::App& command, DoctorOptions& options)
{
    command.add_flag("--json", options.json, "Print JSON");
    command.footer(
        "Examples:\n"
        "  ravelctl doctor\n"
        "  ravelctl doctor --json > machine.json\n\n"
        "Under what is not ok stands the command that helps, where there is one. Changes nothing itself.\n"
        "Exit status: 0 nothing is bad; 1 something is; 2 bad input.");
}

}  // namespace lumo::ravelctl
