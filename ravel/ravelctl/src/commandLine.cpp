#include "commandLine.hpp"

#include "argumentChecks.hpp"
#include "error.hpp"
#include "modulationArguments.hpp"
#include "version.hpp"
#include "workerGroup.hpp"

#include <CLI/CLI.hpp>
#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace lumo::ravelctl {

namespace {

// Half of 600 modes fits a core's cache where all of them do not, and two cores are what every machine has. A number
// that does not depend on the machine keeps the results of one seed the same to the last bit.
constexpr int DEFAULT_WORKERS = 2;

/// "MODE:HZ:NM", as in "5:2.5:100".
mirrorsim::Tone ParseTone(const std::string& text)
{
    mirrorsim::Tone tone{};
    long mode = 0;
    double amplitude_nm = 0.0;
    int used = 0;
    if (std::sscanf(text.c_str(), "%ld:%lf:%lf%n", &mode, &tone.frequency_hz, &amplitude_nm, &used) != 3 ||
        static_cast<std::size_t>(used) != text.size() || !std::in_range<int>(mode)) {
        throw InputError(fmt::format("--tone: expected MODE:HZ:NM, such as 5:2.5:100, but got {}", text));
    }
    tone.mode = static_cast<int>(mode);
    tone.amplitude_um = amplitude_nm * 1.0e-3;
    return tone;
}

/// What the parser says, in one line; of a word that it does not know it would say that a command is missing.
std::string Explain(const CLI::App& app, const CLI::ParseError& error)
{
    const std::vector<CLI::App*> parsed = app.get_subcommands();
    const std::vector<std::string> unknown = app.remaining();
    if (parsed.empty() && !unknown.empty()) {
        return fmt::format("{} is no command or option of ravelctl (try: ravelctl --help)", unknown.front());
    }
    return fmt::format("{} (try: ravelctl {}--help)", error.what(),
                       parsed.empty() ? "" : parsed.front()->get_name() + " ");
}

void AddRunOptions(CLI::App& run, RunOptions& options, std::vector<std::string>& tones)
{
    run.add_option("--modes", options.modes, "Control modes, 1 to 2390, the least stiff ones")->capture_default_str();
    run.add_option("--rate", options.rate_hz, "Cycle rate in Hz, 1 to 5000")->capture_default_str();
    run.add_option("--duration", options.duration_s, "Length of the run in seconds, open loop included")
        ->capture_default_str();
    run.add_option("--open-loop", options.open_loop_s,
                   "Seconds at the beginning with the loop open [a tenth of the duration]");
    run.add_option("--workers", options.workers, "Worker threads; each controls a slice of the modes [2]");
    run.add_option("--seed", options.seed, "Seed of everything random; equal seeds give equal bits")
        ->check(CheckNotNegative)
        ->capture_default_str();
    run.add_option("--output", options.output, "Folder for the run's files [ravelctl-<time> here]");
    run.add_flag("--overwrite", options.overwrite, "Replace the run that the output folder holds");
    run.add_option("--matrices", options.matrices,
                   "Folder in which the matrices are kept [ravelctl/mirror-1 in the user's cache]");
    run.add_flag("--as-fast-as-possible", options.as_fast_as_possible, "Do not wait between cycles; same results");
    run.add_option("--tone", tones, "Disturb mode MODE with a sine of HZ Hz and NM nm: MODE:HZ:NM; may be repeated")
        ->type_name("MODE:HZ:NM");
    run.add_option("--log-config", options.log_config, "File of log4cplus properties [warnings to standard error]");
    run.add_flag("--quiet", options.quiet, "Print nothing but errors");
    run.footer(
        "Examples:\n"
        "  ravelctl run\n"
        "  ravelctl run --modes 300 --workers 2 --duration 60 --output night1\n"
        "  ravelctl run --as-fast-as-possible --duration 10 --tone 5:2.5:100\n\n"
        "Exit status: 0 the loop held and every file was written; 1 it did not; 2 bad input; 130 after Ctrl-C.");
}

std::string VersionText()
{
    return fmt::format("ravelctl {}\n{}", VERSION, DescribeBlas());
}

}  // namespace

Command ParseCommandLine(int argc, const char* const* argv, std::ostream& out)
{
    CLI::App app("Closes the control loop of a segmented primary mirror of 798 segments.", "ravelctl");
    app.set_version_flag("--version", VersionText);
    app.require_subcommand(1);
    RunOptions options;
    std::vector<std::string> tones;
    CLI::App* run = app.add_subcommand("run", "Run the closed loop on a simulated mirror and save what happened");
    AddRunOptions(*run, options, tones);
    ModulationArguments modulation;
    CLI::App* make_modulation =
        app.add_subcommand("make-modulation", "Make a file of signals to inject into the modes' references");
    AddModulationOptions(*make_modulation, modulation);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& request) {  // help and version
        app.exit(request, out, out);
        return EXIT_OK;
    } catch (const CLI::ParseError& error) {
        throw InputError(Explain(app, error));
    }
    if (make_modulation->parsed()) {
        return ReadModulationOptions(modulation);
    }
    if (run->count("--workers") == 0) {
        options.workers = std::clamp(options.modes, 1, DEFAULT_WORKERS);
    }
    for (const std::string& tone : tones) {
        options.tones.push_back(ParseTone(tone));
    }
    return options;
}

}  // namespace lumo::ravelctl
