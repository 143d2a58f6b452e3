#include "support/runInProcess.hpp"

#include "controller.hpp"
#include "htmlReport.hpp"
#include "support/quietLog.hpp"

#include <chrono>
#include <sstream>
#include <thread>

namespace lumo::ravelctl::test {

RunOptions ShortRun(const TestFolder& folder, const std::string& name)
{
    RunOptions options;
    options.modes = 20;
    options.duration_s = 0.6;
    options.as_fast_as_possible = true;
    options.output = folder / name;
    options.matrices = RAVELCTL_TEST_MATRICES;
    return options;
}

FinishedRun RunInProcess(const RunOptions& options)
{
    QuietLog();
    std::ostringstream out;
    Controller controller(options, out);
    controller.Configure();
    controller.Start();
    controller.Wait([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));  // Wait expects the question to take its time
        return false;
    });
    controller.Stop();
    controller.Save();
    return {controller.GetReport(), controller.GetExitStatus(), out.str()};
}

std::vector<std::string> FilesOfRun(const std::vector<std::string>& before, const std::vector<std::string>& gains)
{
    std::vector<std::string> files = before;
    files.insert(files.end(), MODE_FILES.begin(), MODE_FILES.end());
    files.insert(files.end(), gains.begin(), gains.end());
    files.emplace_back("config.toml");
    if (!ReportTemplate().empty()) {
        files.emplace_back("report.html");
    }
    files.emplace_back("summary.json");
    return files;
}

}  // namespace lumo::ravelctl::test
