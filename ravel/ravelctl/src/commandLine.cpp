#include "commandLine.hpp"

#include "error.hpp"
#include "modulationArguments.hpp"
#include "runArguments.hpp"
#include "version.hpp"
#include "workerGroup.hpp"

#include <CLI/CLI.hpp>
#include <fmt/core.h>

#include <string>
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

}  // namespace

Command ParseCommandLine(int argc, const char* const* argv, std::ostream& out)
{
    CLI::App app("Closes the control loop of a segmented primary mirror of 798 segments.", "ravelctl");
    app.set_version_flag("--version", VersionText);
    app.require_subcommand(1);
    RunArguments run_arguments;
    CLI::App* run = app.add_subcommand("run", "Run the closed loop on a simulated mirror and save what happened");
    AddRunOptions(*run, run_arguments);
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
    return ReadRunOptions(run_arguments);
}

}  // namespace lumo::ravelctl
