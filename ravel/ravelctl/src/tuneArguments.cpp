#include "tuneArguments.hpp"

#include "commandOutline.hpp"
#include "error.hpp"
#include "helpText.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>
#include <string>

namespace lumo::ravelctl {

namespace {

const std::map<std::string, TuneFrom>& PartsOfARun()
{
    static const std::map<std::string, TuneFrom> PARTS = {
        {"auto", TuneFrom::Auto}, {"open", TuneFrom::Open}, {"closed", TuneFrom::Closed}};
    return PARTS;
}

}  // namespace

TuneFrom ParseTuneFrom(const std::string& part)
{
    const auto found = PartsOfARun().find(part);
    if (found == PartsOfARun().end()) {
        throw InputError("expected open, closed or auto but got " + part);
    }
    return found->second;
}

std::string NameTuneFrom(TuneFrom from)
{
    const auto& parts = PartsOfARun();
    return std::find_if(parts.begin(), parts.end(), [from](const auto& part) { return part.second == from; })->first;
}

void TuneAs(const RunOptions& config, TuneOptions& options)
{
    options.from = config.tune.from;
    options.demands = config.tune.demands;
    options.output = config.tune.output;
    options.overwrite = config.tune.overwrite;
    for (const char* name :
         {"from", "phase-margin", "gain-margin", "max-sensitivity", "max-crossover", "output", "overwrite"}) {
        config.places.Move(std::string("--tune-") + name, std::string("--") + name, options.places);
    }
}

TuneOptions ReadTuneOptions(TuneOptions options)
{
    if (!options.check.empty()) {
        options.from = options.places.Has("--from") ? TuneFrom::Auto : options.from;
        options.output = options.places.Has("--output") ? std::filesystem::path() : options.output;
        options.overwrite = options.overwrite && !options.places.Has("--overwrite");
    }
    return options;
}

void AddTuneOptions(CLI::App& command, TuneOptions& options)
{
    command.add_option("RUN", options.run, "Output folder of the run")->required()->type_name(FOLDER_VALUE);
    command
        .add_option("--config", options.config,
                    "File of options, of which [tune] counts; options given here override it")
        ->type_name(FILE_VALUE);
    command
        .add_option_function<std::string>(
            "--from",
            [&options](const std::string& part) {
                try {
                    options.from = ParseTuneFrom(part);
                } catch (const InputError& e) {
                    throw CLI::ValidationError("--from", e.what());
                }
            },
            "Part of the run that tells the disturbance; auto: the longer one [auto]")
        ->type_name(NameValues({"open", "closed", "auto"}));
    LoopDemands& demands = options.demands;
    command.add_option("--phase-margin", demands.phase_margin_deg, "Least phase margin in degrees")
        ->type_name("DEG")
        ->capture_default_str();
    command.add_option("--gain-margin", demands.gain_margin_db, "Least gain margin in dB")
        ->type_name("DB")
        ->capture_default_str();
    command
        .add_option("--max-sensitivity", demands.sensitivity_peak,
                    "Largest factor by which the loop may amplify a disturbance of any frequency")
        ->capture_default_str();
    command.add_option("--max-crossover", demands.max_crossover_hz, "Highest open-loop crossover in Hz [any]")
        ->type_name("HZ");
    command.add_option("--output", options.output, "Folder to write gains.fits and tune.json into")
        ->type_name(FOLDER_VALUE);
    command.add_flag("--overwrite", options.overwrite, "Replace these files in that folder");
    command.add_option("--check", options.check, "Compare RUN with what this tune.json predicts, and propose nothing")
        ->type_name(FILE_VALUE);
    command.add_flag("--quiet", options.quiet, "Print nothing but errors");
    command.footer(FormatFooter(
        "Proposes kp and ki for each mode; what else its channel has is kept. The loop of each mode is computed cycle "
        "by cycle against the disturbance that the run recorded, and the gains are taken that leave the least. Noise "
        "of the sensors is told from the surface by the upper half of the spectrum, where only noise is left.",
        {"ravelctl tune night1", "ravelctl tune night1 --phase-margin 60 --output tuned",
         "ravelctl run night1/config.toml --gains tuned/gains.fits --output night2",
         "ravelctl tune night2 --check tuned/tune.json"},
        "done, and with --check the prediction was right within 20 %", "it was not"));
}

}  // namespace lumo::ravelctl
