#include "commandLine.hpp"
#include "error.hpp"
#include "support/childProcess.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <set>
#include <thread>

// How the program behaves towards who uses it: errors, colours, progress, and being interrupted.

namespace lumo::ravelctl {
namespace {

namespace fs = std::filesystem;
using test::ChildProcess;
using test::RunChild;
using testing::HasSubstr;
using testing::Not;

std::vector<std::string> Command(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), RAVELCTL_PROGRAM);
    return arguments;
}

std::vector<std::string> ShortRun(const test::TestFolder& folder)
{
    return Command({"run", "--modes", "20", "--matrices", RAVELCTL_TEST_MATRICES, "--output", (folder / "run").string(),
                    "--duration", "0.6", "--as-fast-as-possible"});
}

/// What every error of input is: one line on standard error that says what to do, status 2, and nothing else.
void ExpectRefusal(const std::vector<std::string>& arguments)
{
    const ChildProcess::Result result = RunChild(Command(arguments));
    const std::string what = testing::PrintToString(arguments) + ": " + result.err;
    EXPECT_EQ(result.status, EXIT_BAD_INPUT) << what;
    EXPECT_EQ(result.out, "") << what;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << what;
    EXPECT_THAT(result.err, testing::StartsWith("ravelctl: ")) << what;
    EXPECT_THAT(result.err, testing::ContainsRegex("expected|try: ravelctl|choose|did you mean|repeat|use ")) << what;
}

TEST(MannersTest, ABadCommandLineIsOneLineWithARemedyWhateverTheCommand)
{
    std::set<std::string> tried;
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {},
             {"fly"},
             {"--modes"},
             {"run", "--mode"},
             {"run", "--modes", "many"},
             {"run", "--modes", "a\nb"},
             {"run", "--workers", "0"},
             {"run", "--record", "everything"},
             {"run", "--tone", "1"},
             {"run", "--inject-loop"},
             {"run", "--record-last", "soon"},
             {"config", "--rate", "0"},
             {"config", "--seed", "-1"},
             {"config", "a", "b"},
             {"make-modulation"},
             {"make-modulation", "sine"},
             {"make-modulation", "saw", "--output", "f"},
             {"make-modulation", "sine", "--output", "f", "--on", "700"},
             {"make-modulation", "sine", "--output", "f", "--frequency", "-1"},
             {"inspect"},
             {"inspect", "a", "b", "--csv"},
             {"inspect", "a", "--rows", "1:2"},
             {"replay"},
             {"replay", "a", "--set", "kq=1"},
             {"replay", "a", "--modes", "1"},
             {"tune"},
             {"tune", "a", "--phase-margin", "much"},
             {"tune", "a", "--from", "both"},
             {"qualify", "--rows", "0"},
             {"qualify", "--cpus", "x"},
             {"qualify", "--cycles", "5", "--duration", "1"},
             {"doctor", "please"},
             {"doctor", "--yaml"},
         }) {
        ExpectRefusal(arguments);
        tried.insert(arguments.empty() ? "" : arguments.front());
    }
    for (const CommandOutline& command : OutlineCommandLine().commands) {
        EXPECT_TRUE(tried.contains(command.name)) << command.name;
    }
}

TEST(MannersTest, ABadFileIsOneLineWithARemedyWhateverTheCommand)
{
    const test::TestFolder folder;
    const auto path = [&folder](const char* name) {
        return (folder / name).string();
    };
    const std::string text = path("text");
    const std::string missing = path("missing");
    const std::string output = path("output");
    test::WriteBytes(text, "SIMPLE? no\n");
    test::WriteBytes(path("empty"), "");
    test::WriteBytes(path("bad.toml"), "[run]\nmodes = [\n");
    fs::create_directories(folder / "run");
    test::WriteBytes(folder / "run" / "summary.json", "{}");
    fs::create_directories(folder / "broken");
    test::WriteBytes(folder / "broken" / "summary.json",
                     R"({"cycles": 300, "open_loop_cycles": 30, "modes": 20, "rate_hz": 500.0, "files": [],
                         "recorded": {"what": ["modes"], "decimation": 1, "last_s": null},
                         "gains": [{"before_cycle": 0, "file": "gains.fits"}]})");
    test::WriteBytes(folder / "broken" / "gains.fits", "no table");
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"run", missing},
             {"run", text},
             {"run", path("bad.toml")},
             {"run", folder.GetPath().string()},
             {"run", "--output", output, "--script", missing},
             {"run", "--output", output, "--script", path("bad.toml")},
             {"run", "--output", output, "--play-es", missing},
             {"run", "--output", output, "--play-es", text},
             {"run", "--output", output, "--play-pact", path("empty")},
             {"run", "--output", output, "--inject", missing},
             {"run", "--output", output, "--inject", text},
             {"run", "--output", output, "--log-config", missing},
             {"run", "--output", output, "--log-config", path("empty")},
             {"run", "--output", text},
             {"run", "--output", path("run")},
             {"config", missing},
             {"config", text},
             {"make-modulation", "sine", "--output", text},
             {"make-modulation", "sine", "--output", folder.GetPath().string()},
             {"make-modulation", "sine", "--output", missing + "/f"},
             {"inspect", missing},
             {"inspect", text},
             {"inspect", path("empty")},
             {"inspect", folder.GetPath().string()},
             {"replay", missing},
             {"replay", text},
             {"replay", folder.GetPath().string()},
             {"replay", path("run")},
             {"replay", path("broken")},
             {"tune", missing},
             {"tune", text},
             {"tune", folder.GetPath().string()},
             {"tune", path("broken")},
             {"tune", path("broken"), "--check", text},
             {"qualify", "--output", text},
         }) {
        ExpectRefusal(arguments);
    }
    EXPECT_FALSE(fs::exists(output)) << "nothing was begun";
    EXPECT_EQ(folder.CountEntries(), 5U);
}

TEST(MannersTest, WhatCannotBePrintedIsAnErrorAndNotSilentlyLost)
{
    for (const char* command : {"--help", "--version", "--man-page", "--bash-completion", "config", "doctor"}) {
        const ChildProcess::Result result =
            RunChild({"/bin/sh", "-c", "exec \"$@\" > /dev/full", "sh", RAVELCTL_PROGRAM, command});
        EXPECT_EQ(result.status, EXIT_FAILED) << command;
        EXPECT_EQ(result.err, "ravelctl: cannot write to standard output; free some space or send it elsewhere\n");
    }
}

TEST(MannersTest, OnATerminalTheVerdictHasAColour)
{
    const test::TestFolder folder;
    const ChildProcess::Result result = ChildProcess(ShortRun(folder), ChildProcess::Output::Terminal).Wait();
    EXPECT_EQ(result.status, EXIT_OK);
    EXPECT_THAT(result.out, HasSubstr("\x1b[32mthe loop held\x1b[0m"));
    const ChildProcess::Result doctor = ChildProcess(Command({"doctor"}), ChildProcess::Output::Terminal).Wait();
    EXPECT_THAT(doctor.out, HasSubstr("\x1b[32mok "));
    const ChildProcess::Result qualify =
        ChildProcess(Command({"qualify", "--rows", "2000", "--cols", "300", "--flat-out", "--cycles", "20",
                              "--deadline-us", "1", "--output", (folder / "qualified").string()}),
                     ChildProcess::Output::Terminal)
            .Wait();
    EXPECT_EQ(qualify.status, EXIT_FAILED);
    EXPECT_THAT(qualify.out, HasSubstr("\x1b[31mdoes NOT hold"));
    const ChildProcess::Result replay =
        ChildProcess(Command({"replay", (folder / "run").string()}), ChildProcess::Output::Terminal).Wait();
    EXPECT_THAT(replay.out, HasSubstr("verdict                 \x1b[32mreproduced\x1b[0m"));
}

TEST(MannersTest, WithNoColorOnATerminalThereIsNoneButTheLineStillRefreshes)
{
    const test::TestFolder folder;
    std::vector<std::string> arguments = {"/usr/bin/env", "NO_COLOR=1"};
    const std::vector<std::string> run = ShortRun(folder);
    arguments.insert(arguments.end(), run.begin(), run.end());
    const ChildProcess::Result result = ChildProcess(arguments, ChildProcess::Output::Terminal).Wait();
    EXPECT_EQ(result.status, EXIT_OK);
    EXPECT_THAT(result.out, HasSubstr("the loop held"));
    EXPECT_THAT(result.out, Not(testing::ContainsRegex("\x1b\\[[0-9]+m")));
    EXPECT_THAT(result.out, HasSubstr("\x1b[K"));
}

TEST(MannersTest, ADumbTerminalGetsPlainLines)
{
    const test::TestFolder folder;
    std::vector<std::string> arguments = {"/usr/bin/env", "TERM=dumb"};
    const std::vector<std::string> run = ShortRun(folder);
    arguments.insert(arguments.end(), run.begin(), run.end());
    const ChildProcess::Result result = ChildProcess(arguments, ChildProcess::Output::Terminal).Wait();
    EXPECT_EQ(result.status, EXIT_OK);
    EXPECT_THAT(result.out, HasSubstr("the loop held"));
    EXPECT_THAT(result.out, Not(HasSubstr("\x1b")));
}

/// The lines that told a run's progress in place, as the terminal got them.
std::vector<std::string> ProgressLines(const std::string& out)
{
    std::vector<std::string> lines;
    const std::string end = "\x1b[K";
    for (std::size_t at = out.find(end); at != std::string::npos; at = out.find(end, at + 1)) {
        const std::size_t begin = out.rfind('\r', at) + 1;
        const std::string line = out.substr(begin, at - begin);
        if (line.find(" s  ") != std::string::npos) {  // the others tell what takes long on a slow machine
            lines.push_back(line);
        }
    }
    return lines;
}

TEST(MannersTest, TheLineOfARunFitsIntoTheTerminalThatItRefreshesOn)
{
    for (const unsigned short columns : {std::uint16_t{80}, std::uint16_t{40}}) {
        const test::TestFolder folder;
        const ChildProcess::Result result =
            ChildProcess(ShortRun(folder), ChildProcess::Output::Terminal, columns).Wait();
        EXPECT_EQ(result.status, EXIT_OK);
        const std::vector<std::string> lines = ProgressLines(result.out);
        ASSERT_FALSE(lines.empty());
        for (const std::string& line : lines) {
            EXPECT_LT(line.size(), columns) << line;
        }
        EXPECT_THAT(lines.back(), testing::StartsWith("0.6/0.6 s  closed  cycle "));
        EXPECT_EQ(lines.back().ends_with(" nm"), columns == 80) << lines.back();
    }
}

/// A run that has to compute the matrices first, which takes seconds.
std::vector<std::string> FirstRun(const test::TestFolder& folder)
{
    return Command({"run", "--matrices", (folder / "matrices").string(), "--output", (folder / "run").string()});
}

TEST(MannersTest, WhileAQualificationFillsItsMatricesAStopEndsItAtOnce)
{
    const test::TestFolder folder;
    // To fill it takes a second or so, to send a signal much less.
    ChildProcess child(Command({"qualify", "--rows", "4000", "--cols", "20000", "--duration", "1000", "--output",
                                (folder / "result").string()}));
    ASSERT_TRUE(child.AwaitOutput("cycles to warm up are not counted\n"));
    child.Send(SIGINT);
    const ChildProcess::Result result = child.Wait();
    EXPECT_EQ(result.status, EXIT_INTERRUPTED);
    EXPECT_EQ(result.err, "ravelctl: interrupted; no half-written file is left\n");
    EXPECT_THAT(result.out, Not(HasSubstr("verdict")));
    EXPECT_FALSE(fs::exists(folder / "result" / "qualify.json"));
}

TEST(MannersTest, WhileTheMatricesAreComputedAStopEndsTheRunAtOnceAndLeavesNoFile)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        const test::TestFolder folder;
        ChildProcess child(FirstRun(folder));
        ASSERT_TRUE(child.AwaitOutput("computing all 2390 control modes"));
        child.Send(signal);
        const ChildProcess::Result result = child.Wait();
        EXPECT_EQ(result.status, EXIT_INTERRUPTED);
        EXPECT_EQ(result.err, "ravelctl: interrupted; no half-written file is left\n");
        EXPECT_THAT(result.out, Not(HasSubstr("computed and stored")));
        EXPECT_EQ(folder.CountEntries(), 0U) << "the folders are gone as well, if they were not there before";
    }
}

TEST(MannersTest, CtrlCInTheTerminalWhileTheMatricesAreComputedIsAnsweredOnALineOfItsOwn)
{
    const test::TestFolder folder;
    ChildProcess child(FirstRun(folder), ChildProcess::Output::Terminal);
    ASSERT_TRUE(child.AwaitOutput("computing all 2390 control modes"));
    // It tells what it does after two seconds, which a quick machine does not take.
    child.Send(SIGSTOP);
    std::this_thread::sleep_for(std::chrono::seconds(3));
    child.Send(SIGCONT);
    ASSERT_TRUE(child.AwaitOutput("getting the matrices ("));
    child.Type("\x03");
    const ChildProcess::Result result = child.Wait();
    EXPECT_EQ(result.status, EXIT_INTERRUPTED);
    EXPECT_THAT(result.out, HasSubstr("\nravelctl: interrupted; no half-written file is left\r\n"));
    EXPECT_EQ(folder.CountEntries(), 0U);
}

TEST(MannersTest, AStopLeavesFoldersThatWereThereBefore)
{
    const test::TestFolder folder;
    fs::create_directories(folder / "run");
    ChildProcess child(FirstRun(folder));
    ASSERT_TRUE(child.AwaitOutput("computing all 2390 control modes"));
    child.Send(SIGTERM);
    EXPECT_EQ(child.Wait().status, EXIT_INTERRUPTED);
    EXPECT_TRUE(fs::exists(folder / "run"));
    EXPECT_FALSE(fs::exists(folder / "matrices"));
}

TEST(MannersTest, ImpatienceWhileARunIsSavedTakesNothingFromItsFiles)
{
    const test::TestFolder folder;
    ChildProcess child(Command({"run", "--modes", "20", "--matrices", RAVELCTL_TEST_MATRICES, "--output",
                                (folder / "run").string(), "--duration", "60", "--open-loop", "0.2"}),
                       ChildProcess::Output::Terminal);
    ASSERT_TRUE(child.AwaitOutput("loop closed"));
    child.Type("\x03\x03\x03");
    child.Type("\x03");
    const ChildProcess::Result result = child.Wait();
    EXPECT_EQ(result.status, EXIT_INTERRUPTED);
    for (const char* name : {"modes_in.fits", "modes_out.fits", "gains.fits", "config.toml", "summary.json"}) {
        EXPECT_TRUE(fs::exists(folder / "run" / name)) << name;
    }
}

TEST(MannersTest, QuietCommandsSayNothing)
{
    const test::TestFolder folder;
    const std::string sine = (folder / "sine.fits").string();
    const ChildProcess::Result made =
        RunChild(Command({"make-modulation", "sine", "--output", sine, "--modes", "5", "--quiet"}));
    EXPECT_EQ(made.status, EXIT_OK);
    EXPECT_EQ(made.out + made.err, "");
    EXPECT_TRUE(fs::exists(sine));
    ASSERT_EQ(RunChild(ShortRun(folder)).status, EXIT_OK);
    const ChildProcess::Result replayed = RunChild(Command({"replay", (folder / "run").string(), "--quiet"}));
    EXPECT_EQ(replayed.status, EXIT_OK);
    EXPECT_EQ(replayed.out + replayed.err, "");
}

TEST(MannersTest, TheGuideListsTheStatusesInTheProgramsWords)
{
    const std::string guide = test::ReadBytes(RAVELCTL_GUIDE);
    for (const ExitStatus& status : EXIT_STATUSES) {
        EXPECT_THAT(guide, HasSubstr("| " + std::to_string(status.status) + " | " + status.meaning + " |"));
    }
}

}  // namespace
}  // namespace lumo::ravelctl
