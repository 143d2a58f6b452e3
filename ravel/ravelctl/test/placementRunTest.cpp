#include "cpuTopology.hpp"
#include "error.hpp"
#include "support/childProcess.hpp"
#include "support/runInProcess.hpp"
#include "support/sanitizer.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <iostream>
#include <sstream>

// Whole runs in their places: what was asked of the system, what it gave, and that the results do not depend on it.

namespace lumo::ravelctl {
namespace {

using test::ChildProcess;
using test::FinishedRun;
using testing::HasSubstr;
using testing::Not;

/// 0.6 s in time, with two workers.
RunOptions PacedRun(const test::TestFolder& folder, const std::string& name)
{
    RunOptions options = test::ShortRun(folder, name);
    options.as_fast_as_possible = false;
    options.workers = 2;
    options.placement.lock_memory = !test::SANITIZED;  // a sanitizer lets nothing be locked
    return options;
}

nlohmann::json ReadPlacement(const RunOptions& options)
{
    return nlohmann::json::parse(test::ReadBytes(options.output / "summary.json")).at("placement");
}

/// The program without the right to priorities and locked memory, also where root runs the tests.
ChildProcess::Result CallWithoutRights(const std::vector<std::string>& arguments)
{
    std::vector<std::string> command = {"/bin/bash", "-c", "ulimit -r 0 && ulimit -l 64 && exec \"$@\"", "sh"};
    if (geteuid() == 0) {
        command.insert(command.end(), {"/usr/bin/setpriv", "--bounding-set=-sys_nice,-ipc_lock,-sys_resource",
                                       "--inh-caps=-sys_nice,-ipc_lock,-sys_resource"});
    }
    command.emplace_back(RAVELCTL_PROGRAM);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return test::RunChild(command);
}

ChildProcess::Result RunWithoutRights(const RunOptions& options, const std::vector<std::string>& more)
{
    std::vector<std::string> arguments = {"run",
                                          "--modes",
                                          "20",
                                          "--duration",
                                          "0.6",
                                          "--matrices",
                                          RAVELCTL_TEST_MATRICES,
                                          "--output",
                                          options.output.string()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return CallWithoutRights(arguments);
}

std::ptrdiff_t CountLines(const std::string& text, const std::string& part)
{
    std::istringstream lines(text);
    std::ptrdiff_t count = 0;
    for (std::string line; std::getline(lines, line);) {
        count += line.find(part) == std::string::npos ? 0 : 1;
    }
    return count;
}

TEST(PlacementRunTest, EveryPlacementGivesTheSameBits)
{
    const test::TestFolder folder;
    const int cpu = FindCpuTopology().usable.front();
    RunOptions everywhere = test::ShortRun(folder, "everywhere");
    everywhere.workers = 2;
    everywhere.placement.huge_pages = false;
    RunOptions automatic = PacedRun(folder, "automatic");
    RunOptions pinned = PacedRun(folder, "pinned");  // whatever priority there is
    pinned.workers = 2;
    const int last = FindCpuTopology().usable.back();
    if (last != cpu) {  // else nobody can be pinned
        pinned.placement.cpus = ParsePlaceChoice("--cpus", std::to_string(cpu) + "," + std::to_string(last));
    }
    pinned.placement.priority = 0;
    RunOptions one_cpu = PacedRun(folder, "one-cpu");
    one_cpu.placement.cpus.kind = PlaceChoice::Kind::None;
    one_cpu.placement.cycle_cpu = ParsePlaceChoice("--cycle-cpu", std::to_string(cpu));
    one_cpu.placement.numa_node = ParsePlaceChoice("--numa-node", "none");
    one_cpu.placement.priority = 0;
    for (const RunOptions* options : {&everywhere, &automatic, &pinned, &one_cpu}) {
        const FinishedRun run = test::RunInProcess(*options);
        ASSERT_EQ(run.report.cycles_done, 300) << run.text;
    }
    for (const std::string& name : test::MODE_FILES) {
        const std::string bytes = test::ReadBytes(everywhere.output / name);
        EXPECT_TRUE(bytes == test::ReadBytes(automatic.output / name)) << name;
        EXPECT_TRUE(bytes == test::ReadBytes(pinned.output / name)) << name;
        EXPECT_TRUE(bytes == test::ReadBytes(one_cpu.output / name)) << name;
    }
}

TEST(PlacementRunTest, TheSummarySaysWhichPlacementWasInForce)
{
    const test::TestFolder folder;
    const std::vector<int> cpus = FindCpuTopology().usable;
    RunOptions options = PacedRun(folder, "run");
    options.workers = 1;
    options.placement.cpus = ParsePlaceChoice("--cpus", std::to_string(cpus.back()));
    options.placement.cycle_cpu = ParsePlaceChoice("--cycle-cpu", std::to_string(cpus.front()));
    options.placement.priority = 0;
    const FinishedRun run = test::RunInProcess(options);
    const nlohmann::json placement = ReadPlacement(options);
    ASSERT_EQ(placement.at("workers").size(), 1U);
    const nlohmann::json& worker = placement.at("workers").front();
    EXPECT_EQ(worker.at("cpu"), cpus.back());
    EXPECT_EQ(worker.at("priority"), 0);
    EXPECT_GE(worker.at("page_faults"), 0);
    EXPECT_EQ(placement.at("cycle").at("cpu"), cpus.front());
    EXPECT_EQ(placement.at("cycle").at("priority"), 0);
    EXPECT_EQ(placement.at("memory_locked"), run.report.placement.memory_locked);
    EXPECT_THAT(run.text, HasSubstr("worker on CPU " + std::to_string(cpus.back()) +
                                    ", ordinary scheduling; cycle on CPU " + std::to_string(cpus.front())));
}

TEST(PlacementRunTest, CyclesFindHardlyAnyPageThatWasNotTouched)
{
    const test::TestFolder folder;
    RunOptions options = PacedRun(folder, "run");
    options.record = {true, true, true, 1, std::nullopt};
    const FinishedRun run = test::RunInProcess(options);
    ASSERT_EQ(run.report.cycles_done, 300);
    const PlacementReport& placement = run.report.placement;
    std::cout << "page faults: cycle " << placement.cycle_page_faults << ", workers "
              << testing::PrintToString(placement.worker_page_faults) << "\n";
    EXPECT_GE(placement.cycle_page_faults, 0);
    for (const std::int64_t faults : placement.worker_page_faults) {
        EXPECT_GE(faults, 0);
    }
    if (test::SANITIZED) {
        GTEST_SKIP() << "a sanitizer has pages of its own";
    }
    constexpr std::int64_t MOST = 30;  // the edge sensors' frames alone fill 300 times 5 pages
    EXPECT_LE(placement.cycle_page_faults, MOST);
    for (const std::int64_t faults : placement.worker_page_faults) {
        EXPECT_LE(faults, MOST);
    }
}

TEST(PlacementRunTest, WhatTheSystemRefusesIsSaidOnceWithTheCommandAndTheRunGoesOn)
{
    const test::TestFolder folder;
    const RunOptions options = PacedRun(folder, "run");
    const ChildProcess::Result result = RunWithoutRights(options, {});
    EXPECT_EQ(result.status, EXIT_OK) << result.out << result.err;
    EXPECT_EQ(CountLines(result.out, "not granted: real-time priority 60 (Operation not permitted; "), 1) << result.out;
    EXPECT_THAT(result.out, HasSubstr("echo \"$USER - rtprio 89\" | sudo tee -a"));
    EXPECT_EQ(CountLines(result.out, "not granted: locked memory ("), 1) << result.out;
    EXPECT_THAT(result.out, HasSubstr("echo \"$USER - memlock unlimited\" | sudo tee -a"));
    EXPECT_EQ(result.err, "") << "the threads do not complain besides";
    const nlohmann::json placement = ReadPlacement(options);
    EXPECT_EQ(placement.at("memory_locked"), false);
    EXPECT_EQ(placement.at("cycle").at("priority"), 0);
    EXPECT_EQ(placement.at("refused").at(0).at("what"), "real-time priority 60");
    EXPECT_THAT(placement.at("refused").at(0).at("remedy").get<std::string>(), HasSubstr("rtprio"));
}

TEST(PlacementRunTest, AQualificationAsksForNothingThatItIsKnownToBeRefused)
{
    const test::TestFolder folder;
    const std::string output = (folder / "q").string();
    const ChildProcess::Result result =
        CallWithoutRights({"qualify", "--rows", "10", "--cols", "100", "--cycles", "20", "--output", output});
    EXPECT_EQ(CountLines(result.out, "not granted: real-time priority"), 1) << result.out;
    EXPECT_THAT(result.out, Not(HasSubstr("NOT granted"))) << "it was said already";
    const nlohmann::json figures = nlohmann::json::parse(test::ReadBytes(output + "/qualify.json"));
    EXPECT_EQ(figures.at("workers").at(0).at("priority_asked"), 0);
}

TEST(PlacementRunTest, WhatIsSwitchedOffIsNotMissed)
{
    const test::TestFolder folder;
    const RunOptions options = PacedRun(folder, "run");
    const ChildProcess::Result result =
        RunWithoutRights(options, {"--priority", "0", "--no-lock-memory", "--no-huge-pages"});
    EXPECT_EQ(result.status, EXIT_OK) << result.out << result.err;
    EXPECT_THAT(result.out, Not(HasSubstr("not granted: real-time priority")));
    EXPECT_THAT(result.out, Not(HasSubstr("not granted: locked memory")));
    EXPECT_EQ(result.err, "");
}

TEST(PlacementRunTest, QuietRunsKeepRefusalsForTheSummary)
{
    const test::TestFolder folder;
    const RunOptions options = PacedRun(folder, "run");
    const ChildProcess::Result result = RunWithoutRights(options, {"--quiet"});
    EXPECT_EQ(result.status, EXIT_OK);
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_GE(ReadPlacement(options).at("refused").size(), 2U);
}

TEST(PlacementRunTest, ACpuThatTheMachineDoesNotHaveEndsTheRunBeforeItBegins)
{
    const test::TestFolder folder;
    test::WriteBytes(folder / "night.toml", "[run]\nworkers = 1\n[placement]\ncpus = 60000\n");
    const ChildProcess::Result result = test::RunChild(
        {RAVELCTL_PROGRAM, "run", (folder / "night.toml").string(), "--output", (folder / "run").string()});
    EXPECT_EQ(result.status, EXIT_BAD_INPUT);
    EXPECT_THAT(result.err, HasSubstr("ravelctl: " + (folder / "night.toml").string() +
                                      ":4:8: cpus: expected CPUs on which this process may run ("));
    EXPECT_FALSE(std::filesystem::exists(folder / "run"));
}

}  // namespace
}  // namespace lumo::ravelctl
