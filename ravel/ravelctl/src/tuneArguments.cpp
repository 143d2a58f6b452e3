#include "tuneArguments.hpp"

#include <CLI/CLI.hpp>

#include <map>
#include <string>

namespace lumo::ravelctl {

namespace {

TuneFrom ParsePart(const std::string& part)
{
    static const std::map<std::string, TuneFrom> PARTS = {
        {"auto", TuneFrom::Auto}, {"open", TuneFrom::Open}, {"closed", TuneFrom::Closed}};
    const auto found = PARTS.find(part);
    if (found == PARTS.end()) {
        throw CLI::ValidationError("--from", "expected open, closed or auto but got " + part);
    }
    return found->second;
}

}  // namespace

void AddTuneOptions(CLI::App& command, TuneOptions& options)
{
    command.add_option("RUN", options.run, "Output folder of the run")->required()->type_name("");
    command
        .add_option_function<std::string>(
            "--from", [&options](const std::string& part) { options.from = ParsePart(part); },
            "Part of the run that tells the disturbance: open, closed, or auto for the longer one [auto]")
        ->type_name("PART");
    LoopDemands& demands = options.demands;
    command.add_option("--phase-margin", demands.phase_margin_deg, "Least phase margin in degrees")
        ->capture_default_str();
    command.add_option("--gain-margin", demands.gain_margin_db, "Least gain margin in dB")->capture_default_str();
    command
        .add_option("--max-sensitivity", demands.sensitivity_peak,
                    "Largest factor by which the loop may amplify a disturbance of any frequency")
        ->capture_default_str();
    command.add_option("--max-crossover", demands.max_crossover_hz, "Highest open-loop crossover in Hz [any]");
    command.add_option("--output", options.output, "Folder to write gains.fits and tune.json into");
    command.add_flag("--overwrite", options.overwrite, "Replace these files in that folder");
    command.add_option("--check", options.check, "Compare RUN with what this tune.json predicts, and propose nothing")
        ->type_name("FILE");
    command.footer(
        "Proposes kp and ki for each mode; what else its channel has is kept. The loop of each mode is computed cycle\n"
        "by cycle against the disturbance that the run recorded, and the gains are taken that leave the least. Noise "
        "of\n"
        "the sensors is told from the surface by the upper half of the spectrum, where only noise is left.\n\n"
        "Examples:\n"
        "  ravelctl tune night1\n"
        "  ravelctl tune night1 --phase-margin 60 --output tuned\n"
        "  ravelctl run night1/config.toml --gains tuned/gains.fits --output night2\n"
        "  ravelctl tune night2 --check tuned/tune.json\n\n"
        "Exit status: 0 done, and with --check the prediction was right within 20 %; 1 it was not; 2 bad input.");
}

}  // namespace lumo::ravelctl
