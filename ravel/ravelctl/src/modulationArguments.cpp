#include "modulationArguments.hpp"

#include "argumentChecks.hpp"
#include "commandOutline.hpp"
#include "helpText.hpp"

#include <CLI/CLI.hpp>

namespace lumo::ravelctl {

void AddModulationOptions(CLI::App& command, ModulationArguments& arguments)
{
    ModulationOptions& options = arguments.options;
    command.add_option("SHAPE", arguments.shape, "What the signals look like: sine, step, chirp or noise")
        ->required()
        ->type_name(NameValues({"sine", "step", "chirp", "noise"}));
    command.add_option("--output", options.output, "The file to make; compressed if its name ends in .gz")
        ->type_name(FILE_VALUE)
        ->required();
    command.add_option("--modes", options.modes, "Control modes of the run that it is for, 1 to 2390")
        ->capture_default_str();
    command.add_option("--on", options.on, "The modes to move, such as 5 or 0,3,10-19")
        ->type_name("LIST")
        ->capture_default_str();
    command.add_option("--amplitude", options.amplitude_um, "Amplitude in um; of noise the standard deviation")
        ->type_name("UM")
        ->capture_default_str();
    command.add_option("--rate", options.rate_hz, "Cycle rate of the run in Hz, 1 to 5000")
        ->type_name("HZ")
        ->capture_default_str();
    command.add_option("--duration", options.duration_s, "Length in seconds")->type_name("S")->capture_default_str();
    command.add_option("--start", options.start_s, "Seconds of zeros before the shape begins")
        ->type_name("S")
        ->capture_default_str();
    command.add_option("--frequency", options.frequency_hz, "Sine: its frequency in Hz; chirp: where it begins [1]")
        ->type_name("HZ");
    command
        .add_option("--to", options.to_hz,
                    "Chirp: the frequency in Hz where it ends, at most half the rate [a fifth of the rate]")
        ->type_name("HZ");
    command.add_option("--seed", options.seed, "Noise: its seed; equal seeds give equal bits [1]")
        ->check(CheckNotNegative);
    command.add_flag("--overwrite", options.overwrite, "Replace the file");
    command.add_flag("--quiet", options.quiet, "Print nothing but errors");
    command.footer(
        FormatFooter("Shapes, from the start to the end of the file:\n"
                     "  sine   of one frequency, beginning at phase 0\n"
                     "  step   from 0 to the amplitude, which stays\n"
                     "  chirp  a sine whose frequency changes evenly with time\n"
                     "  noise  white and Gaussian; each mode's is its own",
                     {"ravelctl make-modulation sine --output sine.fits --on 5 --frequency 2.5",
                      "ravelctl make-modulation step --output step.fits --on 0,3,10-19 --start 2 --amplitude -0.05",
                      "ravelctl make-modulation chirp --output chirp.fits --on 5 --to 50 --duration 60",
                      "ravelctl make-modulation noise --output noise.fits --modes 300 --on 0-299 --seed 7"},
                     "the file was written", "it could not be"));
}

ModulationOptions ReadModulationOptions(const ModulationArguments& arguments)
{
    ModulationOptions options = arguments.options;
    options.shape = ParseModulationShape(arguments.shape);
    return options;
}

}  // namespace lumo::ravelctl
