#include "doctorArguments.hpp"

#include "helpText.hpp"

#include <CLI/CLI.hpp>

namespace lumo::ravelctl {

void AddDoctorOptions(CLI::App& command, DoctorOptions& options)
{
    command.add_flag("--json", options.json, "Print JSON, for programs");
    command.footer(
        FormatFooter("Under what is not ok stands the command that helps, where there is one. Changes nothing itself.",
                     {"ravelctl doctor", "ravelctl doctor --json > machine.json"}, "nothing is bad", "something is"));
}

}  // namespace lumo::ravelctl
