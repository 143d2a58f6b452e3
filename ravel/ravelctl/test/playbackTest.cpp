#include "controller.hpp"
#include "error.hpp"
#include "support/recording.hpp"
#include "support/runInProcess.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

// A run that records what the front end gave, and runs that are given it again.

namespace lumo::ravelctl {
namespace {

using test::FinishedRun;
using test::RunInProcess;
using test::ShortRun;

RunOptions RecordEverything(const test::TestFolder& folder)
{
    RunOptions options = ShortRun(folder, "recorded");
    options.workers = 2;
    options.record.es = true;
    options.record.pact = true;
    return options;
}

/// The same parameters as the recorded run, and its frames.
RunOptions PlayBack(const test::TestFolder& folder, const std::string& name)
{
    RunOptions options = ShortRun(folder, name);
    options.workers = 2;
    options.duration_s.reset();
    options.play.es = folder / "recorded" / "es.fits";
    options.play.pact = folder / "recorded" / "pact.fits";
    return options;
}

bool HaveEqualBytes(const test::TestFolder& folder, const char* a, const char* b, const char* file)
{
    return test::ReadBytes(folder / a / file) == test::ReadBytes(folder / b / file);
}

TEST(PlaybackTest, TheFramesOfARunGiveItsModesAgainToTheLastBit)
{
    const test::TestFolder folder;
    RunInProcess(RecordEverything(folder));
    RunOptions options = PlayBack(folder, "played");
    options.seed = 99;  // another mirror, wind and noise: nothing of them is left
    const FinishedRun run = RunInProcess(options);
    EXPECT_EQ(run.status, EXIT_OK) << run.text;
    EXPECT_EQ(run.report.cycles_done, 300) << "as long as what is played";
    EXPECT_TRUE(HaveEqualBytes(folder, "recorded", "played", "modes_in.fits"));
    EXPECT_TRUE(HaveEqualBytes(folder, "recorded", "played", "modes_out.fits"));
}

TEST(PlaybackTest, WhatIsRecordedOfAPlaybackIsWhatWasPlayed)
{
    const test::TestFolder folder;
    RunInProcess(RecordEverything(folder));
    RunOptions options = PlayBack(folder, "played");
    options.record.es = true;
    options.record.pact = true;
    RunInProcess(options);
    EXPECT_TRUE(HaveEqualBytes(folder, "recorded", "played", "es.fits"));
    EXPECT_TRUE(HaveEqualBytes(folder, "recorded", "played", "pact.fits"));
}

TEST(PlaybackTest, OneOtherBitInAFrameShowsInTheModesFromItsCycleOn)
{
    const test::TestFolder folder;
    RunInProcess(RecordEverything(folder));
    RunOptions options = PlayBack(folder, "played");
    std::string bytes = test::ReadBytes(options.play.es);
    constexpr std::size_t FRAME = 100;
    constexpr std::size_t ROW = sizeof(double) + 14364 * sizeof(float);
    constexpr std::size_t BLOCK = 2880;
    const std::size_t data = bytes.find("END     ", BLOCK) / BLOCK * BLOCK + BLOCK;  // after the table's header
    // The lowest bit of the exponent of the first reading: twice, or half, as much.
    bytes.at(data + FRAME * ROW + sizeof(double) + 1) ^= '\x80';
    options.play.es = folder / "changed.fits";
    test::WriteBytes(options.play.es, bytes);
    RunInProcess(options);
    const test::Recording before = test::LoadRecording(folder / "recorded" / "modes_in.fits");
    const test::Recording after = test::LoadRecording(folder / "played" / "modes_in.fits");
    ASSERT_EQ(after.rows, before.rows);
    for (std::size_t row = 0; row < static_cast<std::size_t>(before.rows); ++row) {
        const auto begin = static_cast<std::ptrdiff_t>(row * 20);
        const bool equal =
            std::equal(before.values.begin() + begin, before.values.begin() + begin + 20, after.values.begin() + begin);
        ASSERT_EQ(equal, row != FRAME) << row;
    }
}

TEST(PlaybackTest, ThereAreNoFiguresOfAMirrorThatNobodySaw)
{
    const test::TestFolder folder;
    RunInProcess(RecordEverything(folder));
    const FinishedRun run = RunInProcess(PlayBack(folder, "played"));
    EXPECT_FALSE(run.report.mirror_was_seen);
    EXPECT_FALSE(run.report.surface_rms_nm.before || run.report.surface_rms_nm.after);
    EXPECT_GT(run.report.edge_sensor_rms_nm.after.value(), 0.0);
    const std::string text = FormatReport(run.report);
    EXPECT_THAT(text, testing::HasSubstr("the frames were played back"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("surface")));
}

TEST(PlaybackTest, ARunThatIsInterruptedAtItsBeginningHasNoFigureOfItsEnd)
{
    const test::TestFolder folder;
    RunInProcess(RecordEverything(folder));
    RunOptions options = PlayBack(folder, "played");
    options.rate_hz = 20.0;  // judged from 8 s on
    options.as_fast_as_possible = false;
    std::ostringstream out;
    Controller controller(options, out);
    controller.Configure();
    controller.Start();
    controller.Wait([] { return true; });
    controller.Stop();
    controller.Save();
    const RunReport& report = controller.GetReport();
    EXPECT_LT(report.cycles_done, report.plan.FirstJudgedCycle());
    EXPECT_EQ(report.edge_sensor_rms_nm.before.has_value(), report.cycles_done > 0);
    EXPECT_FALSE(report.edge_sensor_rms_nm.after.has_value());
    const std::string summary = test::ReadBytes(options.output / "summary.json");
    const std::size_t figures = summary.find("\"edge_sensor_rms_nm\"");
    EXPECT_THAT(summary.substr(figures, summary.find('}', figures) - figures), testing::HasSubstr("\"after\": null"));
    EXPECT_THAT(FormatReport(report), testing::ContainsRegex("edge sensors[^\n]* -\n"));
    EXPECT_EQ(controller.GetExitStatus(), EXIT_INTERRUPTED);
}

TEST(PlaybackTest, ARunLongerThanItsFramesIsRefusedWithBothNumbers)
{
    const test::TestFolder folder;
    RunInProcess(RecordEverything(folder));
    RunOptions options = PlayBack(folder, "played");
    options.duration_s = 1.0;
    std::ostringstream out;
    EXPECT_EQ(test::ThrownLine<InputError>([&] { Controller(options, out).Configure(); }),
              "--duration: expected at most the 300 recorded frames but it takes 500; run for 0.6 s");
}

TEST(PlaybackTest, AShorterRunPlaysTheBeginning)
{
    const test::TestFolder folder;
    RunInProcess(RecordEverything(folder));
    RunOptions options = PlayBack(folder, "played");
    options.duration_s = 0.4;
    options.open_loop_s = 0.06;  // as the recorded one
    const FinishedRun run = RunInProcess(options);
    EXPECT_EQ(run.report.cycles_done, 200);
    EXPECT_EQ(run.report.files, test::FilesOfRun());
}

}  // namespace
}  // namespace lumo::ravelctl
