#include "commandLine.hpp"
#include "controller.hpp"
#include "error.hpp"
#include "inspect.hpp"
#include "logSetup.hpp"
#include "makeModulation.hpp"
#include "qualify.hpp"
#include "replay.hpp"
#include "runReport.hpp"
#include "stopSignals.hpp"
#include "tune.hpp"

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

int TuneGains(const TuneOptions& options)
{
    SurviveFailedWrites();
    SetUpLogging({});
    return Tune(options, std::cout);
}

int QualifyMachine(const QualifyOptions& options)
{
    StopSignals signals;
    SetUpLogging({});
    const QualifyReport report = Qualify(
        options, [&signals] { return signals.Await(); }, std::cout);
    for (const std::string& problem : report.problems) {
        std::cerr << "ravelctl: " << problem << '\n';
    }
    const int status = GetExitStatus(report);
    if (status == EXIT_FAILED && report.problems.empty()) {
        std::cerr << "ravelctl: " << report.FormatVerdict() << '\n';
    }
    return status;
}

int ExamineMachine(const DoctorOptions& options)
{
    SurviveFailedWrites();
    return RunDoctor(options, std::cout);
}

/// Output that nobody reads on ends it: quietly, as is the custom of what stands before a pipe.
int Inspect(const InspectOptions& options)
{
    SetUpLogging({});
    return InspectFiles(options, std::cout, std::cerr);
}

/// Does what each command means.
struct Commands
{
    int operator()(const RunOptions& options) const { return Run(options); }
    int operator()(const ModulationOptions& options) const { return MakeModulation(options); }
    int operator()(const InspectOptions& options) const { return Inspect(options); }
    int operator()(const ReplayOptions& options) const { return Replay(options); }
    int operator()(const TuneOptions& options) const { return TuneGains(options); }
    int operator()(const QualifyOptions& options) const { return QualifyMachine(options); }
    int operator()(const DoctorOptions& options) const { return ExamineMachine(options); }
    int operator()(int status) const { return status; }
};

}  // namespace

int main(int argc, char** argv)
{
    int status = EXIT_FAILED;
    try {
        status = std::visit(Commands{}, ParseCommandLine(argc, argv, std::cout));
    } catch (const InputError& e) {
        std::cerr << "ravelctl: " << e.what() << '\n';
        status = EXIT_BAD_INPUT;
    } catch (const std::exception& e) {
        std::cerr << "ravelctl: " << e.what() << '\n';
    }
    ShutDownLogging();
    return status;
}
