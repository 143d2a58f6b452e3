#include "commandLine.hpp"
#include "controller.hpp"
#include "error.hpp"
#include "logSetup.hpp"
#include "makeModulation.hpp"
#include "replay.hpp"
#include "runReport.hpp"
#include "stopSignals.hpp"

#include <exception>
#include <iostream>

namespace {

using namespace lumo::ravelctl;

int Run(const RunOptions& options)
{
    StopSignals signals;
    SetUpLogging(options.log_config);
    Controller controller(options, std::cout);
    controller.Configure();  // may throw; nothing is running yet
    controller.Start();      // workers up; no allocation in the cycle from here on
    controller.Wait([&signals] { return signals.Await(); });
    controller.Stop();  // workers joined
    controller.Save();
    const RunReport& report = controller.GetReport();
    if (!options.quiet) {
        std::cout << FormatReport(report) << std::flush;
    }
    for (const std::string& problem : report.problems) {
        std::cerr << "ravelctl: " << problem << '\n';
    }
    return controller.GetExitStatus();
}

int MakeModulation(const ModulationOptions& options)
{
    SurviveFailedWrites();
    SetUpLogging({});
    MakeModulationFile(options, std::cout);
    return EXIT_OK;
}

int Replay(const ReplayOptions& options)
{
    SurviveFailedWrites();
    SetUpLogging({});
    return ReplayRun(options, std::cout);
}

int Execute(const Command& command)
{
    if (const auto* modulation = std::get_if<ModulationOptions>(&command)) {
        return MakeModulation(*modulation);
    }
    if (const auto* replay = std::get_if<ReplayOptions>(&command)) {
        return Replay(*replay);
    }
    return Run(std::get<RunOptions>(command));
}

}  // namespace

int main(int argc, char** argv)
{
    int status = EXIT_FAILED;
    try {
        const Command command = ParseCommandLine(argc, argv, std::cout);
        if (const int* leave = std::get_if<int>(&command)) {
            return *leave;
        }
        status = Execute(command);
    } catch (const InputError& e) {
        std::cerr << "ravelctl: " << e.what() << '\n';
        status = EXIT_BAD_INPUT;
    } catch (const std::exception& e) {
        std::cerr << "ravelctl: " << e.what() << '\n';
    }
    ShutDownLogging();
    return status;
}
