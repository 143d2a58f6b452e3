#include "controller.hpp"
#include "error.hpp"
#include "resources.hpp"
#include "runConfig.hpp"
#include "support/describedLoop.hpp"
#include "support/logReaction.hpp"
#include "support/noMoreThreads.hpp"
#include "support/quietLog.hpp"
#include "support/recording.hpp"
#include "support/runInProcess.hpp"
#include "support/sanitizer.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <lumo/ravelcore/utils.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <sstream>

namespace lumo::ravelctl {
namespace {

using test::FinishedRun;
using test::Recording;
using test::RunInProcess;
using test::ShortRun;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(ControllerTest, TheLoopBringsTheControlledModesDownAtLeastTwentyfold)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    options.modes = test::SANITIZED ? 60 : RunOptions().modes;
    options.duration_s = 2.0;
    const FinishedRun run = RunInProcess(options);
    ASSERT_EQ(run.status, EXIT_OK) << run.text;
    const double before = run.report.controlled_rms_nm.before.value();
    const double after = run.report.controlled_rms_nm.after.value();
    std::cout << "controlled modes: " << before << " nm before, " << after << " nm after, seed " << options.seed
              << "\n";
    EXPECT_GE(before, 20.0 * after);
    EXPECT_LT(run.report.surface_rms_nm.after.value(), run.report.surface_rms_nm.before.value());
    EXPECT_THAT(run.text, HasSubstr("phase margin 68 deg, gain margin 12.0 dB"));
}

TEST(ControllerTest, TheStartSaysWhatRunsAndOnWhichBlas)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    options.workers = 2;
    const FinishedRun run = RunInProcess(options);
    EXPECT_THAT(run.text, testing::ContainsRegex("ravelctl [0-9.]+: 20 modes on 2 workers at 500 Hz, seed 1, "
                                                 "OpenBLAS [0-9.]+ .[a-zA-Z]+ build, [A-Za-z0-9_]+ kernel.\n"));
    EXPECT_THAT(run.text, HasSubstr(", seed 1, " + DescribeBlas() + "\n"));
    EXPECT_EQ(run.report.blas, DescribeBlas());
}

TEST(ControllerTest, ARunBeginsWithTheGainsOfAFileAndSaysWhatTheyMean)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "designed");
    RunInProcess(options);
    std::vector<float> gains = test::LoadRecording(options.output / "gains.fits").values;
    gains[5 * 10] *= 1.5F;   // kp of mode 5
    gains[7 * 10] *= 0.25F;  // and of mode 7
    options.gains = folder / "mine.fits";
    ravelcore::SaveMatrix(options.gains.string(), "gains", 1, static_cast<int>(gains.size()), gains);
    options.output = folder / "mine";
    const FinishedRun run = RunInProcess(options);
    EXPECT_EQ(run.status, EXIT_OK) << run.text;
    EXPECT_EQ(test::LoadRecording(options.output / "gains.fits").values, gains);
    EXPECT_THAT(run.text, HasSubstr("gains from " + options.gains.string() + "\n"));
    EXPECT_THAT(run.text,
                testing::ContainsRegex("open-loop crossover 5.0 to 30.[0-9] Hz, lowest phase margin 5[0-9] deg, "
                                       "lowest gain margin 8.5 dB\n"));
    const Recording designed = test::LoadRecording(folder / "designed" / "modes_out.fits");
    const Recording mine = test::LoadRecording(folder / "mine" / "modes_out.fits");
    const auto difference = [&](int mode) {
        return std::abs(static_cast<double>(designed.At(40, mode)) - static_cast<double>(mine.At(40, mode)));
    };
    EXPECT_GT(difference(5), 100.0 * difference(6)) << "the gains of mode 6 are the designed ones";
}

TEST(ControllerTest, AFolderThatWasMovedRepeatsItsRun)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "designed");
    RunInProcess(options);
    std::vector<float> gains = test::LoadRecording(options.output / "gains.fits").values;
    gains[5 * 10] *= 1.5F;  // kp of mode 5
    options.gains = folder / "mine.fits";
    ravelcore::SaveMatrix(options.gains.string(), "gains", 1, static_cast<int>(gains.size()), gains);
    options.output = folder / "mine";
    ASSERT_EQ(RunInProcess(options).status, EXIT_OK);
    std::filesystem::remove(options.gains);
    std::filesystem::rename(folder / "mine", folder / "moved");

    RunArguments arguments;
    LoadConfig(folder / "moved" / "config.toml", arguments);
    RunOptions repeated = ReadRunOptions(arguments);
    EXPECT_EQ(repeated.gains, folder / "moved" / "gains.fits") << "the run's own";
    repeated.output = folder / "again";
    ASSERT_EQ(RunInProcess(repeated).status, EXIT_OK);
    for (const std::string& file : test::MODE_FILES) {
        EXPECT_TRUE(test::ReadBytes(folder / "moved" / file) == test::ReadBytes(folder / "again" / file)) << file;
    }
}

TEST(ControllerTest, TheConfigurationOfARunHasWhatWasGivenAndInCommentsWhatWasMeant)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    options.as_fast_as_possible = false;
    options.open_loop_s.reset();
    options.tune.demands.phase_margin_deg = 60.0;
    RunInProcess(options);
    const std::string text = test::ReadBytes(options.output / "config.toml");
    for (const char* meant : {"\n# open_loop = 0.06 ", "\n# priority = 50 ", "\n# cycle_priority = 60 "}) {
        EXPECT_THAT(text, HasSubstr(meant));
    }
    RunArguments arguments;
    LoadConfig(options.output / "config.toml", arguments);
    const RunOptions& saved = arguments.options;
    EXPECT_EQ(saved.duration_s, 0.6);
    EXPECT_EQ(saved.open_loop_s, std::nullopt) << "it follows another duration";
    EXPECT_EQ(saved.placement.priority, std::nullopt);
    EXPECT_EQ(saved.placement.cycle_priority, std::nullopt) << "it follows another priority";
    EXPECT_EQ(saved.matrices, RAVELCTL_TEST_MATRICES);
    EXPECT_EQ(saved.tune.demands.phase_margin_deg, 60.0) << "handed on";
    EXPECT_TRUE(saved.output.empty()) << "it is to be repeated into another folder";
}

TEST(ControllerTest, GainsWithWhichTheLoopWouldRunAwayAreRefusedWithMode)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "designed");
    RunInProcess(options);
    std::vector<float> gains = test::LoadRecording(options.output / "gains.fits").values;
    gains[7 * 10] *= 6.0F;  // kp of mode 7
    options.gains = folder / "wild.fits";
    ravelcore::SaveMatrix(options.gains.string(), "gains", 1, static_cast<int>(gains.size()), gains);
    options.output = folder / "wild";
    EXPECT_THAT(test::ThrownLine<InputError>([&] { RunInProcess(options); }),
                testing::ContainsRegex("wild.fits: mode 7: expected gains with which the loop is stable but at 500 Hz "
                                       "they leave a phase margin of -[0-9]+ deg and a gain margin of -3.5 dB"));
}

TEST(ControllerTest, GainsOfAnotherNumberOfModesAreRefusedBeforeAnythingIsWritten)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    options.gains = folder / "gains.fits";
    ravelcore::SaveMatrix(options.gains.string(), "gains", 1, 190, std::vector<float>(190, 1.0F));
    EXPECT_EQ(test::ThrownLine<InputError>([&] { RunInProcess(options); }),
              options.gains.string() +
                  ": expected gains of the run's 20 modes but they are of 19; run with --modes 19, or use other gains");
    EXPECT_FALSE(std::filesystem::exists(options.output));
}

/// A disturbance of one mode, and how much larger than the wind on that mode it must be at that frequency.
struct ToneOnMode
{
    int mode;
    double frequency_hz;
    double amplitude_nm;
};

TEST(ControllerTest, DisturbancesAreRejectedAsTheDiscreteTransferFunctionSays)
{
    constexpr double RATE_HZ = 500.0;
    const std::vector<ToneOnMode> tones = {
        {5, 1.0, 20'000.0}, {10, 3.0, 5000.0}, {15, 8.0, 1000.0}, {20, 20.0, 500.0}, {35, 60.0, 200.0}};
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    options.modes = 40;
    options.duration_s = 6.0;
    options.open_loop_s = 0.5;
    for (const ToneOnMode& tone : tones) {
        options.tones.push_back({tone.mode, tone.frequency_hz, tone.amplitude_nm * 1.0e-3});
    }
    const FinishedRun run = RunInProcess(options);
    const Recording modes_in = test::LoadRecording(options.output / "modes_in.fits");
    ASSERT_EQ(modes_in.rows, 3000);

    const test::DescribedLoop loop = test::DescribeLoop(RATE_HZ);
    constexpr int BEGIN = 1000;  // 1.5 s after the loop has closed; then 4 s: whole periods of every tone
    for (const ToneOnMode& tone : tones) {
        const double left_um =
            test::MeasureAmplitude(modes_in, tone.mode, BEGIN, modes_in.rows, tone.frequency_hz, RATE_HZ);
        const double measured = left_um * 1.0e3 / tone.amplitude_nm;
        const double computed = std::abs(RejectionResponse(loop.channel, loop.plant, tone.frequency_hz));
        std::cout << "rejection at " << tone.frequency_hz << " Hz on mode " << tone.mode << ": measured " << measured
                  << ", computed " << computed << "\n";
        EXPECT_NEAR(measured, computed, 0.1 * computed) << tone.frequency_hz << " Hz";
    }
}

TEST(ControllerTest, ALoopThatEndsUpWorseThanOpenDidNotHoldAndSaysSo)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    options.duration_s = 2.0;
    options.tones = {{0, 60.0, 200.0}, {1, 60.0, 200.0}, {2, 60.0, 200.0}};  // where the loop amplifies
    const FinishedRun run = RunInProcess(options);
    EXPECT_EQ(run.status, EXIT_FAILED);
    EXPECT_THAT(run.report.problems, ElementsAre(HasSubstr("the loop did not hold")));
    EXPECT_EQ(run.report.files, test::FilesOfRun()) << "what was recorded is saved all the same";
}

TEST(ControllerTest, ALoopThatWasNeverOpenHoldsOnlyWhenItEndsBetterThanItsFirstCycle)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "held");
    options.duration_s = 2.0;
    options.open_loop_s = 0.0;
    const FinishedRun held = RunInProcess(options);
    EXPECT_EQ(held.status, EXIT_OK) << held.text;
    EXPECT_LT(held.report.controlled_rms_nm.after.value(), held.report.first_closed_rms_nm.value());
    EXPECT_GT(held.report.first_closed_rms_nm.value(), 1000.0) << "of a start of 2000 nm rms";

    options.output = folder / "worse";
    options.script = folder / "script.toml";
    test::WriteBytes(options.script, "[[at]]\ntime = 0.5\nreferences = { value = 100.0 }\n");  // um
    const FinishedRun worse = RunInProcess(options);
    EXPECT_EQ(worse.report.first_closed_rms_nm, held.report.first_closed_rms_nm);
    EXPECT_EQ(worse.status, EXIT_FAILED);
    EXPECT_THAT(worse.report.problems,
                ElementsAre(testing::AllOf(HasSubstr("the loop did not hold"), HasSubstr("in the first cycle and"))));
}

TEST(ControllerTest, EqualSeedsGiveEqualBitsAndAnotherSeedDoesNot)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "a");
    RunInProcess(options);
    options.output = folder / "b";
    RunInProcess(options);
    options.output = folder / "c";
    options.seed = 2;
    RunInProcess(options);
    for (const char* name : {"modes_in.fits", "modes_out.fits"}) {
        const std::string first = test::ReadBytes(folder / "a" / name);
        EXPECT_TRUE(first == test::ReadBytes(folder / "b" / name)) << name;
        EXPECT_FALSE(first == test::ReadBytes(folder / "c" / name)) << name;
    }
}

TEST(ControllerTest, PacingChangesNoBitOfTheResult)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "fast");
    const FinishedRun fast = RunInProcess(options);
    options.output = folder / "paced";
    options.as_fast_as_possible = false;
    const FinishedRun paced = RunInProcess(options);
    for (const char* name : {"modes_in.fits", "modes_out.fits"}) {
        EXPECT_TRUE(test::ReadBytes(folder / "fast" / name) == test::ReadBytes(folder / "paced" / name)) << name;
    }
    EXPECT_EQ(fast.report.surface_rms_nm.after, paced.report.surface_rms_nm.after);
    EXPECT_EQ(fast.report.missed_cycles, 0);
}

TEST(ControllerTest, SlicesGiveTheModesOfOneWorkerToFloatAccuracy)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "1");
    options.modes = 50;  // slices of 50, 25 + 25, 17 + 17 + 16
    RunInProcess(options);
    const Recording one = test::LoadRecording(folder / "1" / "modes_in.fits");
    for (const int workers : {2, 3}) {
        options.workers = workers;
        options.output = folder / std::to_string(workers);
        const FinishedRun run = RunInProcess(options);
        EXPECT_EQ(run.status, EXIT_OK) << run.text;
        for (const char* name : {"modes_in.fits", "modes_out.fits"}) {
            const Recording expected = test::LoadRecording(folder / "1" / name);
            const Recording several = test::LoadRecording(options.output / name);
            ASSERT_EQ(several.cols, 50);
            ASSERT_EQ(several.rows, expected.rows);
            EXPECT_EQ(several.timestamps, expected.timestamps);
            double largest = 0.0;
            double difference = 0.0;
            for (std::size_t i = 0; i < expected.values.size(); ++i) {
                largest = std::max(largest, static_cast<double>(std::abs(expected.values[i])));
                difference =
                    std::max(difference, static_cast<double>(std::abs(expected.values[i] - several.values[i])));
            }
            // Sums of 4788 and 2394 products in another order, fed back over 300 cycles.
            EXPECT_LT(difference, 1.0e-4 * largest) << name << ", " << workers << " workers";
        }
    }
}

TEST(ControllerTest, EveryFileThatTheReportNamesIsThereAndNothingElse)
{
    const test::TestFolder folder;
    const FinishedRun run = RunInProcess(ShortRun(folder, "run"));
    EXPECT_EQ(run.report.files, test::FilesOfRun());
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(folder / "run")) {
        found.push_back(entry.path().filename().string());
    }
    EXPECT_THAT(found, testing::UnorderedElementsAreArray(run.report.files));
}

TEST(ControllerTest, BadInputIsRefusedBeforeTheMatricesAreLookedAt)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    options.matrices = folder / "matrices";
    options.modes = 2391;
    test::QuietLog();
    std::ostringstream out;
    test::ThrownLine<InputError>([&] { Controller(options, out).Configure(); });
    options.modes = 20;
    options.output = "/proc/ravelctl-test";
    test::ThrownLine<InputError>([&] { Controller(options, out).Configure(); });
    EXPECT_EQ(folder.CountEntries(), 0U);
    EXPECT_EQ(out.str(), "");
}

TEST(ControllerTest, RecordingsThatCannotFitAreRefused)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    options.modes = 2390;
    options.duration_s = 1.0e6;
    std::ostringstream out;
    EXPECT_THAT(test::ThrownLine<InputError>([&] { Controller(options, out).Configure(); }),
                HasSubstr("run for a shorter time"));
}

TEST(ControllerTest, MoreMemoryThanTheMachineHasIsRefusedWithWhatEachPartTakes)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    options.duration_s = 298.0;
    options.record.es = true;
    options.record.pact = true;
    // 149000 samples of 14364 and 4788 floats, and four copies of the larger on the way to its file.
    constexpr std::uint64_t NEEDED = 149'000ULL * 4 * (14364 + 4788 + 3 * 14364);
    if (AvailableMemory() > NEEDED) {
        GTEST_SKIP() << "this machine has " << FormatBytes(AvailableMemory()) << " to spare";
    }
    std::ostringstream out;
    const std::string line = test::ThrownLine<InputError>([&] { Controller(options, out).Configure(); });
    EXPECT_THAT(line, HasSubstr("recordings (11.5 GB) and saving them (25.7 GB) need 37."));
    EXPECT_THAT(line, HasSubstr("GB of memory but the machine has "));
    EXPECT_THAT(line, HasSubstr("record less with --record, --record-decimation or --record-last"));
    EXPECT_EQ(folder.CountEntries(), 0U);
}

TEST(ControllerTest, TheMemoryOfTheRecordingsIsPrinted)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    options.record.pact = true;
    options.record.decimation = 3;
    const FinishedRun run = RunInProcess(options);
    // 100 samples: 4 x 20 modes and 4788 values of 4 bytes, 5 time stamps of 8.
    EXPECT_THAT(run.text, HasSubstr("recording modes, pact: 100 samples, one in 3 cycles, 2.0 MB of memory\n"));
}

TEST(ControllerTest, AReplacedRunLeavesNothingBehind)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    options.record.pact = true;
    RunInProcess(options);
    EXPECT_TRUE(std::filesystem::exists(folder / "run" / "pact.fits"));
    options.record.pact = false;
    options.overwrite = true;
    const FinishedRun run = RunInProcess(options);
    EXPECT_FALSE(std::filesystem::exists(folder / "run" / "pact.fits"));
    EXPECT_EQ(run.report.files, test::FilesOfRun());
}

TEST(ControllerTest, TheRunThatIsReplacedIsWholeUntilTheNewOneIsSaved)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    options.record.pact = true;
    RunInProcess(options);
    std::map<std::string, std::string> before;
    for (const auto& entry : std::filesystem::directory_iterator(options.output)) {
        before[entry.path().filename().string()] = test::ReadBytes(entry.path());
    }
    options.record.pact = false;
    options.overwrite = true;
    {
        std::ostringstream out;
        Controller killed(options, out);
        killed.Configure();
        killed.Start();
        killed.Stop();
    }
    for (const auto& [name, bytes] : before) {
        EXPECT_TRUE(test::ReadBytes(options.output / name) == bytes) << name;
    }
}

TEST(ControllerTest, TheSummaryOfTheRunThatIsReplacedGoesBeforeItsFilesAreReplaced)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    RunInProcess(options);
    options.overwrite = true;
    bool was_there = true;
    const test::LogReaction while_saving("Saved modes_in",
                                         [&] { was_there = std::filesystem::exists(options.output / "summary.json"); });
    EXPECT_EQ(RunInProcess(options).status, EXIT_OK);
    EXPECT_TRUE(while_saving.HasReacted());
    EXPECT_FALSE(was_there);
    EXPECT_TRUE(std::filesystem::exists(options.output / "summary.json"));
}

TEST(ControllerTest, AStartThatFailsTakesNothingFromTheRunThatItWouldReplace)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    RunInProcess(options);
    const std::string before = test::ReadBytes(options.output / "summary.json");
    options.overwrite = true;
    std::ostringstream out;
    Controller controller(options, out);
    controller.Configure();
    {
        const test::NoMoreThreads no_more;
        EXPECT_THROW(controller.Start(), std::exception);
    }
    EXPECT_EQ(test::ReadBytes(options.output / "summary.json"), before);
    for (const std::string& file : test::FilesOfRun()) {
        EXPECT_TRUE(std::filesystem::exists(options.output / file)) << file;
    }
}

TEST(ControllerTest, OptionsOfAnInjectionWithoutOneAreRefused)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    options.inject.loop = true;
    std::ostringstream out;
    EXPECT_EQ(test::ThrownLine<InputError>([&] { Controller(options, out).Configure(); }),
              "--inject-loop: expected --inject besides, a file of samples");
    options.inject = {"", 2, false};
    EXPECT_EQ(test::ThrownLine<InputError>([&] { Controller(options, out).Configure(); }),
              "--inject-decimation: expected --inject besides, a file of samples");
}

TEST(ControllerTest, DetailOfTheControlTaskIsRefusedWhereItWouldEndTheProcess)
{
    const test::TestFolder folder;
    log4cplus::Logger logger = log4cplus::Logger::getInstance("ravelcore.TaskEdc.1");
    logger.setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
    RunOptions options = ShortRun(folder, "run");
    options.modes = 33;
    options.workers = 2;  // slices of 17 and 16
    std::ostringstream out;
    EXPECT_THAT(test::ThrownLine<InputError>([&] { Controller(options, out).Configure(); }),
                HasSubstr("DEBUG on ravelcore.TaskEdc.1 needs at least 17 modes a worker but it has 16"));
    logger.setLogLevel(log4cplus::NOT_SET_LOG_LEVEL);
}

TEST(ControllerTest, QuietSaysNothing)
{
    const test::TestFolder folder;
    RunOptions options = ShortRun(folder, "run");
    options.quiet = true;
    EXPECT_EQ(RunInProcess(options).text, "");
}

}  // namespace
}  // namespace lumo::ravelctl
