#include "commandLine.hpp"

#include "doctorArguments.hpp"
#include "error.hpp"
#include "modulationArguments.hpp"
#include "replayArguments.hpp"
#include "qualifyArguments.hpp"
#include "runArguments.hpp"
#include "runConfig.hpp"
#include "version.hpp"
#include "workerGroup.hpp"

#include <CLI/CLI.hpp>
#include <fmt/core.h>

#include <string>
#include <utility>
#include <vector>

namespace lumo::ravelctl {

namespace {

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

std::string VersionText()
{
    return fmt::format("ravelctl {}\n{}", VERSION, DescribeBlas());
}

/// What a run is told; `from` is what is meant where it is told nothing. An own parser: it writes where it is bound to.
struct Parsed
{
    explicit Parsed(RunArguments from) : run_arguments(std::move(from))
    {
        app.set_version_flag("--version", VersionText);
        app.require_subcommand(1);
        run = app.add_subcommand("run", "Run the closed loop on a simulated mirror and save what happened");
        AddRunOptions(*run, run_arguments);
        config =
            app.add_subcommand("config", "Print a run's options as a file, with the defaults of what is not given");
        AddRunOptions(*config, run_arguments);
        config->footer("Examples:\n  ravelctl config > night.toml\n  ravelctl run night.toml --duration 60");
        make_modulation =
            app.add_subcommand("make-modulation", "Make a file of signals to inject into the modes' references");
        AddModulationOptions(*make_modulation, modulation);
        replay = app.add_subcommand("replay", "Compute a run's control channels once more, or with other gains");
        AddReplayOptions(*replay, replay_arguments);
        qualify = app.add_subcommand("qualify", "Load and time the processors, as the loop would");
        AddQualifyOptions(*qualify, qualification);
        doctor = app.add_subcommand("doctor", "List what this machine has for real-time work, and what would help");
        AddDoctorOptions(*doctor, examination);
    }

    CLI::App app{"Closes the control loop of a segmented primary mirror of 798 segments.", "ravelctl"};
    RunArguments run_arguments;
    ModulationArguments modulation;
    ReplayArguments replay_arguments;
    CLI::App* run = nullptr;
    CLI::App* config = nullptr;
    CLI::App* make_modulation = nullptr;
    CLI::App* replay = nullptr;
    QualifyOptions qualification;
    DoctorOptions examination;
    CLI::App* qualify = nullptr;
    CLI::App* doctor = nullptr;
};

}  // namespace

Command ParseCommandLine(int argc, const char* const* argv, std::ostream& out)
{
    Parsed first({});
    try {
        first.app.parse(argc, argv);
    } catch (const CLI::Success& request) {  // help and version
        first.app.exit(request, out, out);
        return EXIT_OK;
    } catch (const CLI::ParseError& error) {
        throw InputError(Explain(first.app, error));
    }
    if (first.make_modulation->parsed()) {
        return ReadModulationOptions(first.modulation);
    }
    if (first.replay->parsed()) {
        return ReadReplayOptions(first.replay_arguments);
    }
    if (first.qualify->parsed()) {
        return first.qualification;
    }
    if (first.doctor->parsed()) {
        return first.examination;
    }
    RunArguments from_file;
    if (!first.run_arguments.config.empty()) {
        LoadConfig(first.run_arguments.config, from_file);
    }
    Parsed second(from_file);
    second.app.parse(argc, argv);  // once more, over what the file says
    const RunOptions options = ReadRunOptions(second.run_arguments);
    if (first.config->parsed()) {
        PlanRun(options);  // what it prints can be run
        out << FormatConfig(options) << std::flush;
        return EXIT_OK;
    }
    return options;
}

}  // namespace lumo::ravelctl
