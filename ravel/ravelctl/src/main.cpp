#include "commandLine.hpp"
#include "controller.hpp"
#include "error.hpp"
#include "errorLine.hpp"
#include "inspect.hpp"
#include "logSetup.hpp"
#include "makeModulation.hpp"
#include "qualify.hpp"
#include "replay.hpp"
#include "runReport.hpp"
#include "stopSignals.hpp"
#include "terminalStyle.hpp"
#include "tune.hpp"

#include <unistd.h>

#include <exception>
#include <iostream>

namespace {

using namespace lumo::ravelctl;

int Run(const RunOptions& options, StopSignals& signals)
{
    SetUpLogging(options.log_config);
    Controller controller(options, std::cout);
    controller.Configure();  // may throw; nothing is running yet
    signals.SetEffect(StopSignals::Effect::Note);
    controller.Start();  // workers up; no allocation in the cycle from here on
    controller.Wait([&signals] { return signals.Await(); });
    controller.Stop();  // workers joined
    controller.Save();
    const RunReport& report = controller.GetReport();
    if (!options.quiet) {
        std::cout << FormatReport(report, Palette(FindTerminalStyle(STDOUT_FILENO))) << std::flush;
    }
    for (const std::string& problem : report.problems) {
        std::cerr << FormatErrorLine(problem);
    }
    return controller.GetExitStatus();
}

int MakeModulation(const ModulationOptions& options)
{
    SetUpLogging({});
    MakeModulationFile(options, std::cout);
    return EXIT_OK;
}

int Replay(const ReplayOptions& options)
{
    SetUpLogging({});
    return ReplayRun(options, std::cout, std::cerr);
}

int TuneGains(const TuneOptions& options)
{
    SetUpLogging({});
    return Tune(options, std::cout, std::cerr);
}

int QualifyMachine(const QualifyOptions& options, StopSignals& signals)
{
    SetUpLogging({});
    const QualifyStop stop{[&signals] { signals.SetEffect(StopSignals::Effect::Note); },
                           [&signals] {
                               return signals.Await();
                           }};
    const QualifyReport report = Qualify(options, stop, std::cout);
    for (const std::string& problem : report.problems) {
        std::cerr << FormatErrorLine(problem);
    }
    const int status = GetExitStatus(report);
    if (status == EXIT_FAILED && report.problems.empty()) {
        std::cerr << FormatErrorLine(report.FormatVerdict() + "; see what ravelctl doctor recommends");
    }
    return status;
}

int ExamineMachine(const DoctorOptions& options)
{
    EndWhenNobodyReads();
    return RunDoctor(options, std::cout, std::cerr);
}

int Inspect(const InspectOptions& options)
{
    EndWhenNobodyReads();
    SetUpLogging({});
    return InspectFiles(options, std::cout, std::cerr);
}

/// Does what each command means. A stop signal ends it at once and leaves no unfinished file, unless the command wants
/// to be told.
struct Commands
{
    int operator()(const RunOptions& options) const { return Run(options, signals); }
    int operator()(const ModulationOptions& options) const { return MakeModulation(options); }
    int operator()(const InspectOptions& options) const { return Inspect(options); }
    int operator()(const ReplayOptions& options) const { return Replay(options); }
    int operator()(const TuneOptions& options) const { return TuneGains(options); }
    int operator()(const QualifyOptions& options) const { return QualifyMachine(options, signals); }
    int operator()(const DoctorOptions& options) const { return ExamineMachine(options); }
    int operator()(int status) const { return status; }

    StopSignals& signals;
};

}  // namespace

int main(int argc, char** argv)
{
    int status = EXIT_FAILED;
    try {
        const Command command = ParseCommandLine(argc, argv, std::cout);
        StopSignals signals(StopSignals::Effect::EndProcess);
        status = std::visit(Commands{signals}, command);
    } catch (const InputError& e) {
        std::cerr << FormatErrorLine(e.what());
        status = EXIT_BAD_INPUT;
    } catch (const std::exception& e) {
        std::cerr << FormatErrorLine(e.what());
    }
    ShutDownLogging();
    return status;
}
