#include "error.hpp"
#include "htmlReport.hpp"
#include "support/childProcess.hpp"
#include "support/recording.hpp"
#include "support/runInProcess.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"

#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>

// The program as a child process: what a shell sees of it.

namespace lumo::ravelctl {
namespace {

namespace fs = std::filesystem;
using test::ChildProcess;
using test::RunChild;
using testing::HasSubstr;
using testing::Not;

std::vector<std::string> RunArguments(const fs::path& output, const std::vector<std::string>& more)
{
    std::vector<std::string> arguments = {RAVELCTL_PROGRAM,       "run",      "--modes",      "20", "--matrices",
                                          RAVELCTL_TEST_MATRICES, "--output", output.string()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

/// `arguments` under a limit for the size of files, in units of 512 bytes.
std::vector<std::string> WithFileSizeLimit(int blocks, const std::vector<std::string>& arguments)
{
    std::vector<std::string> limited = {"/bin/sh", "-c", "ulimit -f " + std::to_string(blocks) + " && exec \"$@\"",
                                        "sh"};
    limited.insert(limited.end(), arguments.begin(), arguments.end());
    return limited;
}

nlohmann::json ReadSummary(const fs::path& folder)
{
    return nlohmann::json::parse(test::ReadBytes(folder / "summary.json"));
}

void ExpectOneLine(const std::string& text)
{
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
    EXPECT_EQ(text.rfind("ravelctl: ", 0), 0U) << text;
}

void ExpectWholeRecording(const fs::path& folder)
{
    const auto cycles = ReadSummary(folder).at("cycles").get<int>();
    EXPECT_GT(cycles, 0);
    for (const char* name : {"modes_in.fits", "modes_out.fits", "modes_ref.fits", "modes_arw.fits"}) {
        const test::Recording recording = test::LoadRecording(folder / name);
        EXPECT_EQ(recording.rows, cycles) << name;
        EXPECT_EQ(recording.timestamps.size(), static_cast<std::size_t>(cycles)) << name;
        EXPECT_EQ(recording.cols, 20) << name;
    }
}

TEST(RavelctlTest, ARunThatHoldsEndsWithZeroAReportAndItsFiles)
{
    const test::TestFolder folder;
    const ChildProcess::Result result =
        RunChild(RunArguments(folder / "run", {"--duration", "0.6", "--as-fast-as-possible"}));
    EXPECT_EQ(result.status, EXIT_OK) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, HasSubstr("the loop held"));
    EXPECT_THAT(result.out, HasSubstr(fmt::format("{}\n", fmt::join(test::FilesOfRun(), ", "))));
    EXPECT_THAT(result.out, Not(HasSubstr("\r"))) << "no terminal, no refreshing";
    EXPECT_EQ(ReadSummary(folder / "run").at("cycles"), 300);
    ExpectWholeRecording(folder / "run");
}

TEST(RavelctlTest, QuietPrintsNothingAtAll)
{
    const test::TestFolder folder;
    const ChildProcess::Result result =
        RunChild(RunArguments(folder / "run", {"--duration", "0.6", "--as-fast-as-possible", "--quiet"}));
    EXPECT_EQ(result.status, EXIT_OK);
    EXPECT_EQ(result.out + result.err, "");
}

TEST(RavelctlTest, CtrlCInTheTerminalEndsTheRunSavesItAndReports)
{
    const test::TestFolder folder;
    ChildProcess child(RunArguments(folder / "run", {"--duration", "60", "--open-loop", "0.2", "--workers", "2"}),
                       ChildProcess::Output::Terminal);
    ASSERT_TRUE(child.AwaitOutput("loop closed"));
    child.Type("\x03");
    const ChildProcess::Result result = child.Wait();
    EXPECT_EQ(result.status, EXIT_INTERRUPTED) << result.out;
    EXPECT_EQ(result.signal, 0);
    EXPECT_THAT(result.out, HasSubstr("\r"));
    EXPECT_THAT(result.out, HasSubstr("interrupted"));
    EXPECT_EQ(ReadSummary(folder / "run").at("interrupted"), true);
    ExpectWholeRecording(folder / "run");
}

TEST(RavelctlTest, APoliteKillIsAsCtrlC)
{
    const test::TestFolder folder;
    ChildProcess child(RunArguments(folder / "run", {"--duration", "60", "--open-loop", "0.2"}));
    ASSERT_TRUE(child.AwaitOutput("loop closed"));  // a plain line, where the output is no terminal
    child.Send(SIGTERM);
    const ChildProcess::Result result = child.Wait();
    EXPECT_EQ(result.status, EXIT_INTERRUPTED) << result.err;
    EXPECT_THAT(result.out, HasSubstr("interrupted"));
    ExpectWholeRecording(folder / "run");
}

TEST(RavelctlTest, ATerminalThatIsClosedEndsTheRunAndSavesIt)
{
    const test::TestFolder folder;
    ChildProcess child(RunArguments(folder / "run", {"--duration", "60", "--open-loop", "0.2"}),
                       ChildProcess::Output::Terminal);
    ASSERT_TRUE(child.AwaitOutput("loop closed"));
    child.CloseOutput();
    EXPECT_EQ(child.Wait().status, EXIT_INTERRUPTED);
    ExpectWholeRecording(folder / "run");
}

TEST(RavelctlTest, OutputThatNobodyReadsDoesNotEndTheRun)
{
    const test::TestFolder folder;
    ChildProcess child(RunArguments(folder / "run", {"--duration", "0.6"}));
    ASSERT_TRUE(child.AwaitOutput("ravelctl "));
    child.CloseOutput();
    EXPECT_EQ(child.Wait().status, EXIT_OK);
    EXPECT_EQ(ReadSummary(folder / "run").at("cycles"), 300);
    ExpectWholeRecording(folder / "run");
}

TEST(RavelctlTest, FilesThatCannotBeWrittenAreEachNamedAndTheStatusTells)
{
    const test::TestFolder folder;
    const ChildProcess::Result result =
        RunChild(WithFileSizeLimit(20, RunArguments(folder / "run", {"--duration", "0.6", "--as-fast-as-possible"})));
    EXPECT_EQ(result.status, EXIT_FAILED) << result.signal;
    for (const std::string name : {"modes_in.fits", "modes_out.fits", "modes_ref.fits", "modes_arw.fits"}) {
        EXPECT_THAT(result.err, HasSubstr("ravelctl: cannot write " + (folder / "run" / name).string()));
        EXPECT_FALSE(fs::exists(folder / "run" / name));
    }
    const int refused = ReportTemplate().empty() ? 4 : 5;  // the page is larger as well
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), refused) << result.err;
    // What could be written is there, and nothing half-written is.
    const nlohmann::json summary = ReadSummary(folder / "run");
    EXPECT_EQ(summary.at("files"), nlohmann::json({"gains.fits", "config.toml", "summary.json"}));
    EXPECT_EQ(summary.at("problems").size(), static_cast<std::size_t>(refused));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder / "run"), fs::directory_iterator()), 3);
}

TEST(RavelctlTest, MatricesThatCannotBeStoredEndItBeforeTheLoopClosesAndLeaveNoPart)
{
    const test::TestFolder folder;
    const ChildProcess::Result result =
        RunChild(WithFileSizeLimit(1000, {RAVELCTL_PROGRAM, "run", "--quiet", "--modes", "20", "--matrices",
                                          (folder / "matrices").string(), "--output", (folder / "run").string()}));
    EXPECT_EQ(result.status, EXIT_FAILED);
    ExpectOneLine(result.err);
    EXPECT_THAT(result.err, HasSubstr("cannot write " + (folder / "matrices").string()));
    EXPECT_THAT(result.err, HasSubstr("--matrices"));
    EXPECT_TRUE(fs::is_empty(folder / "matrices"));
    EXPECT_TRUE(fs::is_empty(folder / "run"));
}

TEST(RavelctlTest, BadInputIsOneLineOnStandardErrorAndStatusTwo)
{
    const test::TestFolder folder;
    test::WriteBytes(folder / "file", "x");
    const std::vector<std::vector<std::string>> bad = {
        {"--modes", "0"},
        {"--modes", "2391"},
        {"--rate", "0"},
        {"--unknown"},
        {"--duration", "soon"},
        {"--output", (folder / "file" / "below").string(), "--overwrite"},
        {"--log-config", (folder / "missing").string()},
        {"--tone", "1:2"},
    };
    for (const std::vector<std::string>& more : bad) {
        std::vector<std::string> arguments = {RAVELCTL_PROGRAM, "run"};
        if (more.front() != "--output") {
            arguments.insert(arguments.end(), {"--output", (folder / "run").string()});
        }
        arguments.insert(arguments.end(), more.begin(), more.end());
        const ChildProcess::Result result = RunChild(arguments);
        EXPECT_EQ(result.status, EXIT_BAD_INPUT) << more.front();
        EXPECT_EQ(result.out, "") << more.front();
        ExpectOneLine(result.err);
    }
    EXPECT_EQ(folder.CountEntries(), 1U) << "nothing was begun";
}

TEST(RavelctlTest, ARunIsNotReplacedUnlessAskedFor)
{
    const test::TestFolder folder;
    const std::vector<std::string> arguments =
        RunArguments(folder / "run", {"--duration", "0.2", "--as-fast-as-possible", "--quiet"});
    ASSERT_EQ(RunChild(arguments).signal, 0);
    const std::string before = test::ReadBytes(folder / "run" / "summary.json");
    const ChildProcess::Result again = RunChild(arguments);
    EXPECT_EQ(again.status, EXIT_BAD_INPUT);
    ExpectOneLine(again.err);
    EXPECT_EQ(test::ReadBytes(folder / "run" / "summary.json"), before);
    std::vector<std::string> overwrite = arguments;
    overwrite.emplace_back("--overwrite");
    EXPECT_NE(RunChild(overwrite).status, EXIT_BAD_INPUT);
    EXPECT_NE(test::ReadBytes(folder / "run" / "summary.json"), before);
}

TEST(RavelctlTest, AScriptTellsEachStepAsItIsDoneAndRefusesWhatCannotBeWhileTheLoopRunsOn)
{
    const test::TestFolder folder;
    const std::string matrices = RAVELCTL_TEST_MATRICES;
    test::WriteBytes(folder / "changes.toml",
                     "[[at]]\ntime = 0.2\ngains = { kp = 0.5 }\n"
                     "[[at]]\ntime = 0.3\np2edc = \"" +
                         matrices +
                         "/PACT2MODES.fits\"\n"
                         "[[at]]\ntime = 0.4\nsave = \"first\"\n");
    const ChildProcess::Result result =
        RunChild(RunArguments(folder / "run", {"--duration", "0.6", "--as-fast-as-possible", "--script",
                                               (folder / "changes.toml").string()}));
    EXPECT_THAT(result.out, HasSubstr("   0.200 s  gains of every mode: kp = 0.5 (before cycle 100, "));
    EXPECT_THAT(result.out,
                HasSubstr("   0.300 s  P2EDC from " + matrices + "/PACT2MODES.fits; REFUSED: Matrix P2EDC ("));
    EXPECT_THAT(result.out, HasSubstr("   0.400 s  saves what was recorded into first (before cycle 200, "));
    EXPECT_THAT(result.out, HasSubstr("script                  2 of 3 steps done, 0 cycles missed meanwhile\n"));
    EXPECT_THAT(result.out, HasSubstr("the loop held"));
    EXPECT_EQ(result.status, EXIT_FAILED) << "not everything that was asked for was done";
    ExpectOneLine(result.err);
    EXPECT_THAT(result.err, HasSubstr("script, at 0.3 s: Matrix P2EDC (" + matrices +
                                      "/PACT2MODES.fits) has dimension [2390,2394], expecting [20,4788]"));
    const nlohmann::json summary = ReadSummary(folder / "run");
    EXPECT_EQ(summary.at("files"), test::FilesOfRun({"first/modes_in.fits", "first/modes_out.fits",
                                                     "first/modes_ref.fits", "first/modes_arw.fits"},
                                                    {"gains.fits", "gains-100.fits"}));
    EXPECT_EQ(test::LoadRecording(folder / "run" / "first" / "modes_in.fits").rows, 200);
    EXPECT_EQ(test::LoadRecording(folder / "run" / "modes_in.fits").rows, 99) << "the cycle of the save is left out";
}

TEST(RavelctlTest, TheConfigurationBesideARunRepeatsIt)
{
    const test::TestFolder folder;
    const std::string changes = (folder / "changes.toml").string();
    test::WriteBytes(changes, "[[at]]\ntime = 0.3\ngains = { kp = 0.5 }\n");
    const ChildProcess::Result first =
        RunChild(RunArguments(folder / "first", {"--duration", "0.5", "--as-fast-as-possible", "--seed", "7", "--tone",
                                                 "3:10:50", "--script", changes}));
    ASSERT_EQ(first.status, EXIT_OK) << first.err;
    const ChildProcess::Result again = RunChild({RAVELCTL_PROGRAM, "run", (folder / "first" / "config.toml").string(),
                                                 "--output", (folder / "again").string()});
    EXPECT_EQ(again.status, EXIT_OK) << again.err;
    for (const char* file : {"modes_in.fits", "modes_out.fits"}) {
        EXPECT_TRUE(test::ReadBytes(folder / "first" / file) == test::ReadBytes(folder / "again" / file)) << file;
    }
}

TEST(RavelctlTest, TheDefaultConfigurationIsPrintedAndCanBeRun)
{
    const test::TestFolder folder;
    const ChildProcess::Result printed =
        RunChild({RAVELCTL_PROGRAM, "config", "--modes", "20", "--matrices", RAVELCTL_TEST_MATRICES});
    EXPECT_EQ(printed.status, EXIT_OK);
    EXPECT_EQ(printed.err, "");
    test::WriteBytes(folder / "night.toml", printed.out);
    const ChildProcess::Result run = RunChild({RAVELCTL_PROGRAM, "run", (folder / "night.toml").string(), "--duration",
                                               "0.6", "--as-fast-as-possible", "--output", (folder / "run").string()});
    EXPECT_EQ(run.status, EXIT_OK) << run.err;
    ExpectWholeRecording(folder / "run");
}

TEST(RavelctlTest, AMistakeInAConfigurationIsNamedWithItsPlace)
{
    const test::TestFolder folder;
    const std::string file = (folder / "night.toml").string();
    test::WriteBytes(file, "[run]\nmodes = 20\nrat = 250.0\n");
    const ChildProcess::Result result =
        RunChild({RAVELCTL_PROGRAM, "run", file, "--output", (folder / "run").string()});
    EXPECT_EQ(result.status, EXIT_BAD_INPUT);
    ExpectOneLine(result.err);
    EXPECT_THAT(result.err, HasSubstr(file + ":3:1: unknown key 'rat'"));
    EXPECT_THAT(result.err, HasSubstr("did you mean 'rate'?"));
}

TEST(RavelctlTest, AMistakeInAScriptIsNamedWithItsPlaceBeforeTheLoopCloses)
{
    const test::TestFolder folder;
    const std::string script = (folder / "changes.toml").string();
    test::WriteBytes(script, "[[at]]\ntime = 0.2\ngains = { kpp = 0.5 }\n");
    const ChildProcess::Result result = RunChild(RunArguments(folder / "run", {"--script", script}));
    EXPECT_EQ(result.status, EXIT_BAD_INPUT);
    EXPECT_EQ(result.out, "");
    ExpectOneLine(result.err);
    EXPECT_THAT(result.err, HasSubstr(script + ":3:11: unknown key 'kpp'"));
    EXPECT_THAT(result.err, HasSubstr("did you mean 'kp'?"));
    EXPECT_FALSE(fs::exists(folder / "run"));
}

TEST(RavelctlTest, MakeModulationMakesItsFileAndSaysSoInOneLine)
{
    const test::TestFolder folder;
    const std::string file = (folder / "chirp.fits").string();
    std::vector<std::string> arguments = {RAVELCTL_PROGRAM, "make-modulation", "chirp", "--output", file, "--on", "5"};
    const ChildProcess::Result result = RunChild(arguments);
    EXPECT_EQ(result.status, EXIT_OK);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, file +
                              ": 5000 samples of 600 modes, chirp 1 to 100 Hz of 0.1 um on mode 5, 10 s at 500 Hz "
                              "(12.0 MB)\n");
    EXPECT_EQ(fs::file_size(file) / 1000, 12006U);

    const ChildProcess::Result again = RunChild(arguments);
    EXPECT_EQ(again.status, EXIT_BAD_INPUT);
    EXPECT_EQ(again.out, "");
    ExpectOneLine(again.err);
    arguments.emplace_back("--overwrite");
    EXPECT_EQ(RunChild(arguments).status, EXIT_OK);
}

TEST(RavelctlTest, AModulationThatFindsNoRoomIsNamedAndLeavesNoPart)
{
    const test::TestFolder folder;
    const std::string file = (folder / "sine.fits").string();
    const ChildProcess::Result result = RunChild(
        WithFileSizeLimit(1000, {RAVELCTL_PROGRAM, "make-modulation", "sine", "--output", file, "--modes", "50"}));
    EXPECT_EQ(result.status, EXIT_FAILED);
    EXPECT_EQ(result.out, "");
    ExpectOneLine(result.err);
    EXPECT_THAT(result.err, HasSubstr("cannot write " + file));
    EXPECT_EQ(folder.CountEntries(), 0U);
}

TEST(RavelctlTest, ReplaySaysWhetherARunIsComputedAgainToTheLastBitAndWhatIsAskedForBesides)
{
    const test::TestFolder folder;
    const std::string run = (folder / "run").string();
    ASSERT_EQ(RunChild(RunArguments(run, {"--duration", "0.6", "--as-fast-as-possible", "--quiet"})).status, EXIT_OK);
    const std::string equal =
        "replayed 300 cycles of 20 modes: every output equal to the last bit\n"
        "verdict                 reproduced\n";
    const ChildProcess::Result same = RunChild({RAVELCTL_PROGRAM, "replay", run});
    EXPECT_EQ(same.status, EXIT_OK);
    EXPECT_EQ(same.out, equal);
    EXPECT_EQ(same.err, "");

    const std::string output = (folder / "other.fits").string();
    const ChildProcess::Result other = RunChild(
        {RAVELCTL_PROGRAM, "replay", run, "--set", "kp=0.5", "--set", "ki=20", "--modes", "0-4", "--output", output});
    EXPECT_EQ(other.status, EXIT_OK);
    EXPECT_THAT(other.out, HasSubstr(equal.substr(0, equal.find('\n') + 1) + "with kp = 0.5, ki = 20 for modes 0-4, "));
    EXPECT_EQ(test::LoadRecording(output).rows, 300);

    fs::copy_file(folder / "run" / "modes_in.fits", folder / "run" / "modes_out.fits",
                  fs::copy_options::overwrite_existing);
    const ChildProcess::Result different = RunChild({RAVELCTL_PROGRAM, "replay", run});
    EXPECT_EQ(different.status, EXIT_FAILED);
    EXPECT_THAT(different.out, testing::ContainsRegex("\nfirst difference: cycle 3[01], mode "));
    ExpectOneLine(different.err);
    EXPECT_THAT(different.err, HasSubstr(" outputs are not the recorded ones: "));
    const ChildProcess::Result bad = RunChild({RAVELCTL_PROGRAM, "replay", folder.GetPath().string()});
    EXPECT_EQ(bad.status, EXIT_BAD_INPUT);
    EXPECT_EQ(bad.out, "");
    ExpectOneLine(bad.err);
}

TEST(RavelctlTest, TuneProposesGainsThatARunTakesAndSaysWhetherItsPredictionCameTrue)
{
    const test::TestFolder folder;
    const std::string run = (folder / "run").string();
    const std::string tuned = (folder / "tuned").string();
    const std::string next = (folder / "next").string();
    ASSERT_EQ(RunChild(RunArguments(run, {"--duration", "6", "--as-fast-as-possible", "--quiet"})).status, EXIT_OK);
    const ChildProcess::Result proposal = RunChild({RAVELCTL_PROGRAM, "tune", run, "--output", tuned});
    EXPECT_EQ(proposal.status, EXIT_OK) << proposal.err;
    EXPECT_EQ(proposal.err, "");
    EXPECT_THAT(proposal.out, HasSubstr("ravelctl run " + run + "/config.toml --gains " + tuned + "/gains.fits"));

    const ChildProcess::Result again = RunChild(
        {RAVELCTL_PROGRAM, "run", run + "/config.toml", "--gains", tuned + "/gains.fits", "--output", next, "--quiet"});
    EXPECT_EQ(again.status, EXIT_OK) << again.err;
    const ChildProcess::Result check = RunChild({RAVELCTL_PROGRAM, "tune", next, "--check", tuned + "/tune.json"});
    EXPECT_EQ(check.status, EXIT_OK) << check.out << check.err;
    EXPECT_THAT(check.out, HasSubstr("confirmed within 20 %"));
    EXPECT_EQ(check.err, "");

    nlohmann::json prediction = nlohmann::json::parse(test::ReadBytes(tuned + "/tune.json"));
    prediction["measured_nm"]["predicted"] = 2.0 * prediction.at("measured_nm").at("predicted").get<double>();
    test::WriteBytes(tuned + "/tune.json", prediction.dump());
    const ChildProcess::Result wrong =
        RunChild({RAVELCTL_PROGRAM, "tune", next, "--check", tuned + "/tune.json", "--quiet"});
    EXPECT_EQ(wrong.status, EXIT_FAILED);
    EXPECT_EQ(wrong.out, "");
    ExpectOneLine(wrong.err);
    EXPECT_THAT(wrong.err, HasSubstr(" is NOT confirmed within 20 %: "));

    const ChildProcess::Result bad = RunChild({RAVELCTL_PROGRAM, "tune", folder.GetPath().string()});
    EXPECT_EQ(bad.status, EXIT_BAD_INPUT);
    EXPECT_EQ(bad.out, "");
    ExpectOneLine(bad.err);
}

TEST(RavelctlTest, AQualificationEndsWithZeroItsTableAndItsFile)
{
    const test::TestFolder folder;
    const ChildProcess::Result result =
        RunChild({RAVELCTL_PROGRAM, "qualify", "--rows", "20", "--cols", "300", "--workers", "2", "--flat-out",
                  "--cycles", "40", "--output", (folder / "result").string()});
    EXPECT_EQ(result.status, EXIT_OK) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, HasSubstr("execution, us"));
    EXPECT_THAT(result.out, HasSubstr("  worker1 on CPU "));
    EXPECT_THAT(result.out, HasSubstr("verdict      holds: 40 cycles, no deadline was set\n"));
    EXPECT_EQ(nlohmann::json::parse(test::ReadBytes(folder / "result" / "qualify.json")).at("cycles"), 40);
}

TEST(RavelctlTest, AQualificationThatDoesNotHoldSaysSoAndEndsWithOne)
{
    const test::TestFolder folder;
    const ChildProcess::Result result =
        RunChild({RAVELCTL_PROGRAM, "qualify", "--rows", "2000", "--cols", "300", "--flat-out", "--cycles", "20",
                  "--deadline-us", "1", "--quiet", "--output", folder.GetPath().string()});
    EXPECT_EQ(result.status, EXIT_FAILED);
    EXPECT_EQ(result.out, "");
    ExpectOneLine(result.err);
    EXPECT_THAT(result.err, HasSubstr("does NOT hold: 20 of 20 cycles took longer than 1 us"));
    EXPECT_THAT(result.err, testing::EndsWith("; see what ravelctl doctor recommends\n"));
}

TEST(RavelctlTest, AQualificationOfBadInputIsRefused)
{
    for (const std::vector<std::string>& bad : std::vector<std::vector<std::string>>{
             {"--rows", "0"}, {"--cpus", "0,x"}, {"--cpus", "99999"}, {"--cycles", "5", "--duration", "1"}}) {
        std::vector<std::string> arguments = {RAVELCTL_PROGRAM, "qualify"};
        arguments.insert(arguments.end(), bad.begin(), bad.end());
        const ChildProcess::Result result = RunChild(arguments);
        EXPECT_EQ(result.status, EXIT_BAD_INPUT) << bad.back();
        EXPECT_EQ(result.out, "") << bad.back();
        ExpectOneLine(result.err);
    }
}

TEST(RavelctlTest, CtrlCEndsAQualificationWithWhatWasMeasured)
{
    const test::TestFolder folder;
    ChildProcess child({RAVELCTL_PROGRAM, "qualify", "--rows", "20", "--cols", "300", "--rate", "100", "--priority",
                        "0", "--duration", "1000", "--output", (folder / "result").string()},
                       ChildProcess::Output::Terminal);
    ASSERT_TRUE(child.AwaitOutput("of 100000 cycles  max "));  // it tells how far it is
    child.Type("\x03");
    const ChildProcess::Result result = child.Wait();
    EXPECT_EQ(result.status, EXIT_INTERRUPTED) << result.out;
    EXPECT_THAT(result.out, HasSubstr("verdict      \x1b[33minterrupted: ")) << "on a terminal it is yellow";
    const auto json = nlohmann::json::parse(test::ReadBytes(folder / "result" / "qualify.json"));
    EXPECT_EQ(json.at("interrupted"), true);
    EXPECT_GT(json.at("cycles").get<int>(), 0);
    EXPECT_EQ(json.at("workers").at(0).at("cycles"), json.at("cycles"));
}

TEST(RavelctlTest, TheDoctorsStatusSaysWhetherAnythingIsBad)
{
    const ChildProcess::Result result = RunChild({RAVELCTL_PROGRAM, "doctor", "--json"});
    const auto json = nlohmann::json::parse(result.out);
    EXPECT_EQ(result.status, json.at("bad") == 0 ? EXIT_OK : EXIT_FAILED);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), json.at("bad")) << result.err;
    EXPECT_EQ(json.at("findings").size(), 16U);
}

TEST(RavelctlTest, WhatTheDoctorFindsBadIsALineOnStandardError)
{
    // No file can be written there.
    for (const char* option : {"", "--json"}) {
        const ChildProcess::Result result =
            RunChild({"/bin/sh", "-c", "cd /proc && exec \"$0\" doctor $1", RAVELCTL_PROGRAM, option});
        EXPECT_EQ(result.status, EXIT_FAILED) << option;
        EXPECT_THAT(result.out, HasSubstr("0 B free in /proc")) << option;
        EXPECT_THAT("\n" + result.err,
                    HasSubstr("\nravelctl: disk: 0 B free in /proc; try: df -h  # and choose a place "
                              "with --output\n"))
            << option;
    }
}

TEST(RavelctlTest, TheDoctorListsEveryFindingInALine)
{
    const ChildProcess::Result result = RunChild({RAVELCTL_PROGRAM, "doctor"});
    for (const char* name : {"kernel ", "CPUs ", "isolated CPUs ", "real-time priority ", "BLAS ", "timer ", "disk "}) {
        EXPECT_THAT("\n" + result.out, HasSubstr(std::string("\n") + name));
    }
    EXPECT_EQ(result.status == EXIT_OK, result.out.find(", 0 bad\n") != std::string::npos);
}

TEST(RavelctlTest, InspectShowsTheFilesOfARunAndNamesWhatIsNone)
{
    const test::TestFolder folder;
    ASSERT_EQ(RunChild(RunArguments(folder / "run", {"--duration", "0.6", "--as-fast-as-possible", "--quiet"})).status,
              EXIT_OK);
    const std::string modes_in = (folder / "run" / "modes_in.fits").string();
    const std::string modes_out = (folder / "run" / "modes_out.fits").string();
    const std::string summary = (folder / "run" / "summary.json").string();
    const auto shown = [](const std::string& file, const std::string& name) {
        return file + "  (34.6 kB)\n  table      " + name +
               ", 20 columns, 300 rows, 32-bit floats; time stamps from Timestamps\n"
               "  time       0.000 to 0.598 s, 300 samples\n"
               "  period     2.000 ms (500 Hz), jitter 0.000 us rms, max 0.000 us\n"
               "  gaps       none\n"
               "  values     finite\n";
    };
    const ChildProcess::Result both = RunChild({RAVELCTL_PROGRAM, "inspect", modes_in, modes_out});
    EXPECT_EQ(both.status, EXIT_OK);
    EXPECT_EQ(both.err, "");
    EXPECT_EQ(both.out, shown(modes_in, "modes_in") + "\n" + shown(modes_out, "modes_out"));

    const ChildProcess::Result one = RunChild({RAVELCTL_PROGRAM, "inspect", summary, modes_out});
    EXPECT_EQ(one.status, EXIT_BAD_INPUT);
    ExpectOneLine(one.err);
    EXPECT_THAT(one.err, HasSubstr("ravelctl: " + summary + ": expected a FITS file with a table of numbers"));
    EXPECT_EQ(one.out, shown(modes_out, "modes_out"));

    const ChildProcess::Result csv =
        RunChild({RAVELCTL_PROGRAM, "inspect", modes_in, "--csv", "--columns", "3", "--rows", "0:2"});
    EXPECT_EQ(csv.status, EXIT_OK);
    EXPECT_EQ(csv.out.rfind("time_s,modes_in_3\n0,", 0), 0U) << csv.out;
    EXPECT_EQ(std::count(csv.out.begin(), csv.out.end(), '\n'), 3);
}

TEST(RavelctlTest, InspectIntoAFullDeviceFails)
{
    const std::string matrix = std::string(RAVELCTL_TEST_MATRICES) + "/P2EDC.fits";
    const ChildProcess::Result result =
        RunChild({"/bin/sh", "-c", "exec \"$@\" > /dev/full", "sh", RAVELCTL_PROGRAM, "inspect", matrix});
    EXPECT_EQ(result.status, EXIT_FAILED);
    ExpectOneLine(result.err);
    EXPECT_THAT(result.err, HasSubstr("cannot write to standard output"));
}

TEST(RavelctlTest, HelpAndVersionEndWithZero)
{
    for (const char* option : {"--help", "--version"}) {
        const ChildProcess::Result result = RunChild({RAVELCTL_PROGRAM, option});
        EXPECT_EQ(result.status, EXIT_OK);
        EXPECT_THAT(result.out, HasSubstr("ravelctl"));
        EXPECT_EQ(result.err, "");
    }
}

}  // namespace
}  // namespace lumo::ravelctl
