#include "error.hpp"
#include "runReport.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <limits>

namespace lumo::ravelctl {
namespace {

using testing::HasSubstr;
using testing::Not;

RunReport MakeReport()
{
    RunReport report;
    report.version = "1.2.3";
    report.blas = "a BLAS";
    report.started_utc = "2030-01-02T03:04:05Z";
    report.options.modes = 300;
    report.options.workers = 2;
    report.options.seed = 18446744073709551615U;
    report.options.output = "night1";
    report.plan.cycles = 10000;
    report.plan.open_cycles = 1000;
    report.plan.rate_hz = 500.0;
    report.plant = {0.5, 1, 0.002};
    report.margins = {20.0, 68.0, 12.0};
    report.highest_crossover_hz = 35.0;
    report.cycles_done = 10000;
    report.missed_cycles = 4;
    report.cycle_time_us = Percentiles{1.0, 2.0, 3.0, 4.0, 5.0};
    report.execution_time_us = Percentiles{0.5, 1.5, 2.5, 3.5, 4.5};
    report.surface_rms_nm = {2000.0, 100.0};
    report.controlled_rms_nm = {1500.0, 15.0};
    report.edge_sensor_rms_nm = {200.0, 190.0};
    report.files = {"modes_in.fits", "summary.json"};
    return report;
}

nlohmann::json WriteAndRead(const RunReport& report)
{
    const test::TestFolder folder;
    WriteSummary(report, folder / "summary.json");
    return nlohmann::json::parse(test::ReadBytes(folder / "summary.json"));
}

TEST(RunReportTest, TheSummaryHoldsEveryFigureUnderItsKey)
{
    const nlohmann::json summary = WriteAndRead(MakeReport());
    EXPECT_EQ(summary.at("cycles"), 10000);
    EXPECT_EQ(summary.at("missed_cycles"), 4);
    EXPECT_EQ(summary.at("rate_hz"), 500.0);
    EXPECT_EQ(summary.at("modes"), 300);
    EXPECT_EQ(summary.at("workers"), 2);
    EXPECT_EQ(summary.at("seed"), 18446744073709551615U);
    const nlohmann::json plant = {{"lag_coefficient", 0.5}, {"delay_cycles", 1}};
    EXPECT_EQ(summary.at("plant"), plant);
    EXPECT_EQ(summary.at("crossover_hz"), 20.0);
    EXPECT_EQ(summary.at("highest_crossover_hz"), 35.0);
    const nlohmann::json cycle_time = {{"min", 1.0}, {"p50", 2.0}, {"p99", 3.0}, {"p999", 4.0}, {"max", 5.0}};
    EXPECT_EQ(summary.at("cycle_time_us"), cycle_time);
    const nlohmann::json exec_time = {{"min", 0.5}, {"p50", 1.5}, {"p99", 2.5}, {"p999", 3.5}, {"max", 4.5}};
    EXPECT_EQ(summary.at("execution_time_us"), exec_time);
    EXPECT_EQ(summary.at("surface_rms_nm"), nlohmann::json({{"before", 2000.0}, {"after", 100.0}}));
    EXPECT_EQ(summary.at("controlled_rms_nm"), nlohmann::json({{"before", 1500.0}, {"after", 15.0}}));
    EXPECT_EQ(summary.at("edge_sensor_rms_nm"), nlohmann::json({{"before", 200.0}, {"after", 190.0}}));
    EXPECT_EQ(summary.at("files"), nlohmann::json({"modes_in.fits", "summary.json"}));
    EXPECT_EQ(summary.at("held"), true);
}

TEST(RunReportTest, FiguresThatTheRunDidNotComeToAreNullAndADash)
{
    RunReport report = MakeReport();
    report.controlled_rms_nm.after = std::nullopt;
    report.surface_rms_nm.after = std::numeric_limits<double>::quiet_NaN();
    report.cycle_time_us = std::nullopt;
    const nlohmann::json summary = WriteAndRead(report);
    EXPECT_TRUE(summary.at("controlled_rms_nm").at("after").is_null());
    EXPECT_TRUE(summary.at("surface_rms_nm").at("after").is_null());
    EXPECT_TRUE(summary.at("cycle_time_us").is_null());
    EXPECT_THAT(FormatReport(report), HasSubstr("1500.0         -\n"));
}

TEST(RunReportTest, TheTextTellsFiguresFilesAndVerdict)
{
    const std::string text = FormatReport(MakeReport());
    EXPECT_THAT(text, HasSubstr("1500.0      15.0   100.0 times less"));
    EXPECT_THAT(text, HasSubstr("10000 of 10000, 4 missed"));
    EXPECT_THAT(text, HasSubstr("night1: modes_in.fits, summary.json"));
    EXPECT_THAT(text, HasSubstr("the loop held"));
    EXPECT_THAT(text, Not(HasSubstr("limited commands")));
}

TEST(RunReportTest, TheLoopHeldOnlyWhenItCameToItsEndFiniteAndBetterThanOpen)
{
    EXPECT_TRUE(MakeReport().DidHold());
    RunReport early = MakeReport();
    early.cycles_done = 9999;
    EXPECT_FALSE(early.DidHold());
    RunReport not_finite = MakeReport();
    not_finite.commands_not_finite = 1;
    EXPECT_FALSE(not_finite.DidHold());
    RunReport worse = MakeReport();
    worse.controlled_rms_nm.after = 1500.1;
    EXPECT_FALSE(worse.DidHold());
    EXPECT_THAT(FormatReport(worse), HasSubstr("did NOT hold"));
    RunReport not_a_number = MakeReport();
    not_a_number.controlled_rms_nm.after = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(not_a_number.DidHold());
    RunReport nothing = MakeReport();
    nothing.controlled_rms_nm.after = std::nullopt;
    EXPECT_FALSE(nothing.DidHold());
}

TEST(RunReportTest, ALoopThatWasNeverOpenIsComparedWithItsFirstCycleAndSaysSo)
{
    RunReport report = MakeReport();
    report.controlled_rms_nm = {std::nullopt, 15.0};
    report.first_closed_rms_nm = 1234.5;
    EXPECT_TRUE(report.DidHold());
    EXPECT_THAT(FormatReport(report),
                HasSubstr("verdict                 the loop held, compared with 1234.5 nm in the first cycle\n"));
    EXPECT_EQ(WriteAndRead(report).at("first_closed_rms_nm"), 1234.5);
    report.controlled_rms_nm.after = 1234.5;
    EXPECT_FALSE(report.DidHold());
    EXPECT_THAT(FormatReport(report), HasSubstr("the loop did NOT hold, compared with 1234.5 nm in the first cycle\n"));
    EXPECT_EQ(DescribeFailure(report),
              "the loop did not hold: 10000 of 10000 cycles done, 0 commands not finite, controlled modes 1234.5 nm "
              "rms in the first cycle and 1234.5 nm rms after");
    report.first_closed_rms_nm = std::nullopt;
    EXPECT_FALSE(report.DidHold()) << "compared with nothing";
}

TEST(RunReportTest, ALoopThatWasOpenIsNotComparedWithItsFirstCycle)
{
    const RunReport report = MakeReport();
    EXPECT_EQ(Verdict(report), "the loop held");
    EXPECT_TRUE(WriteAndRead(report).at("first_closed_rms_nm").is_null());
}

TEST(RunReportTest, AFailureIsDescribedByWhatIsKnown)
{
    RunReport report = MakeReport();
    report.controlled_rms_nm.after = 1600.0;
    EXPECT_EQ(DescribeFailure(report),
              "the loop did not hold: 10000 of 10000 cycles done, 0 commands not finite, controlled modes 1500.0 nm "
              "rms before and 1600.0 nm rms after");
    report.cycles_done = 2000;
    report.controlled_rms_nm.after = std::nullopt;
    EXPECT_THAT(DescribeFailure(report), testing::EndsWith("1500.0 nm rms before and unknown after"));
    report.mirror_was_seen = false;
    report.commands_not_finite = 3;
    EXPECT_EQ(DescribeFailure(report), "the loop did not hold: 2000 of 10000 cycles done, 3 commands not finite");
}

TEST(RunReportTest, TheSummaryTellsWhatWasRecordedPlayedAndInjected)
{
    const nlohmann::json plain = WriteAndRead(MakeReport());
    EXPECT_EQ(plain.at("recorded"), nlohmann::json({{"what", {"modes"}}, {"decimation", 1}, {"last_s", nullptr}}));
    EXPECT_EQ(plain.at("played"), nlohmann::json({{"es", ""}, {"pact", ""}}));
    EXPECT_EQ(plain.at("injected"), "");
    EXPECT_EQ(plain.at("script"), nlohmann::json::array());
    EXPECT_EQ(plain.at("missed_before_cycles"), nlohmann::json::array());
    RunReport report = MakeReport();
    report.options.record = {false, true, true, 7, 2.5};
    report.options.play = {"a b/es.fits", "pact.fits"};
    report.options.inject.file = "chirp.fits";
    report.missed_before = {5, 5, 6, 9000};
    const nlohmann::json summary = WriteAndRead(report);
    EXPECT_EQ(summary.at("recorded"), nlohmann::json({{"what", {"es", "pact"}}, {"decimation", 7}, {"last_s", 2.5}}));
    EXPECT_EQ(summary.at("played"), nlohmann::json({{"es", "a b/es.fits"}, {"pact", "pact.fits"}}));
    EXPECT_EQ(summary.at("injected"), "chirp.fits");
    EXPECT_EQ(summary.at("missed_before_cycles"), nlohmann::json({5, 5, 6, 9000}));
}

TEST(RunReportTest, TheSummaryTellsWhichGainsWereInForceFromWhichCycleOn)
{
    RunReport report = MakeReport();
    EXPECT_EQ(WriteAndRead(report).at("gains"), nlohmann::json::array());
    report.gains = {{0, "gains.fits"}, {250, "gains-250.fits"}};
    const nlohmann::json first = {{"before_cycle", 0}, {"file", "gains.fits"}};
    const nlohmann::json second = {{"before_cycle", 250}, {"file", "gains-250.fits"}};
    EXPECT_EQ(WriteAndRead(report).at("gains"), nlohmann::json::array({first, second}));
}

TEST(RunReportTest, NothingRecordedIsAnEmptyList)
{
    RunReport report = MakeReport();
    report.options.record.modes = false;
    EXPECT_EQ(WriteAndRead(report).at("recorded").at("what"), nlohmann::json::array());
}

ScriptEvent MakeStep(double time_s, const std::string& what, std::int64_t cycle, std::int64_t last_cycle)
{
    ScriptEvent event;
    event.time_s = time_s;
    event.what = what;
    event.cycle = cycle;
    event.last_cycle = last_cycle;
    event.take_over_us = 12.6;
    return event;
}

ScriptEvent MakeRefusedStep()
{
    ScriptEvent event;
    event.time_s = 15.25;
    event.what = "gains";
    event.problem = "there is no g.fits";
    return event;
}

TEST(RunReportTest, TheSummaryTellsEachStepOfTheScript)
{
    RunReport report = MakeReport();
    report.script = {MakeStep(5.0, "references", 2500, 2501), MakeRefusedStep()};
    report.missed_before = {2499, 2500, 2501, 2502, 2502, 2503};
    report.script.front().redefines_modes = true;
    const nlohmann::json done = {{"time_s", 5.0},        {"what", "references"}, {"begin_cycle", -1},
                                 {"ready_cycle", -1},    {"before_cycle", 2500}, {"last_cycle", 2501},
                                 {"take_over_us", 12.6}, {"missed_cycles", 4},   {"redefines_modes", true},
                                 {"problem", ""}};
    const nlohmann::json refused = {{"time_s", 15.25},          {"what", "gains"},
                                    {"begin_cycle", -1},        {"ready_cycle", -1},
                                    {"before_cycle", -1},       {"last_cycle", -1},
                                    {"take_over_us", 0.0},      {"missed_cycles", 0},
                                    {"redefines_modes", false}, {"problem", "there is no g.fits"}};
    EXPECT_EQ(WriteAndRead(report).at("script"), nlohmann::json::array({done, refused}));
}

TEST(RunReportTest, AStepMayHaveCausedTheMissesFromItsCycleToTheOneAfterItsLast)
{
    RunReport report;
    report.missed_before = {9, 10, 10, 13, 14, 15};
    EXPECT_EQ(report.CountMissed(MakeStep(0.0, "save", 10, 13)), 4);
    EXPECT_EQ(report.CountMissed(MakeStep(0.0, "save", 11, 11)), 0);
    EXPECT_EQ(report.CountMissed(MakeStep(0.0, "save", 15, 15)), 1);
    report.missed_before.clear();
    EXPECT_EQ(report.CountMissed(MakeStep(0.0, "save", 10, 13)), 0);
}

TEST(RunReportTest, AStepMayAlsoHaveCausedTheMissesWhileItWasPreparedButNotThoseWhileItWaited)
{
    RunReport report;
    report.missed_before = {9, 10, 12, 13, 50, 99, 100, 101, 102};
    ScriptEvent event = MakeStep(0.0, "matrix", 100, 100);
    event.begin_cycle = 10;
    event.ready_cycle = 12;
    EXPECT_EQ(report.CountMissed(event), 5);
}

TEST(RunReportTest, AMissIsCountedOnceHoweverManyStepsWereUnderWay)
{
    RunReport report;
    report.script = {MakeStep(0.0, "save", 10, 20), MakeStep(0.0, "gains", 15, 15), MakeRefusedStep()};
    report.missed_before = {15, 15, 16, 30};
    EXPECT_EQ(report.CountMissedInScript(), 3);
}

TEST(RunReportTest, AStepThatWasNotDoneCausedNoMisses)
{
    RunReport report;
    report.missed_before = {0, 0, 1};  // what comes before the first cycle is not the fault of a step without a cycle
    EXPECT_EQ(report.CountMissed(MakeRefusedStep()), 0);
}

TEST(RunReportTest, AStepIsToldInOneLine)
{
    EXPECT_EQ(FormatStep(MakeStep(5.0, "references", 2500, 2500)), "   5.000 s  references (before cycle 2500, 13 us)");
    EXPECT_EQ(FormatStep(MakeRefusedStep()), "  15.250 s  gains; REFUSED: there is no g.fits");
    ScriptEvent partly = MakeStep(0.0, "save", 0, 7);
    partly.problem = "the disk is full";
    EXPECT_EQ(FormatStep(partly), "   0.000 s  save (before cycle 0, 13 us); NOT ALL OF IT: the disk is full");
    ScriptEvent saved = MakeStep(2.0, "save", 1000, 1400);
    saved.files = {"first/modes_in.fits"};
    EXPECT_EQ(FormatStep(saved), "   2.000 s  save (before cycle 1000, 13 us; recording again from cycle 1400)");
}

TEST(RunReportTest, TheTextCountsTheStepsThatWereDoneAndTheMissesMeanwhile)
{
    EXPECT_THAT(FormatReport(MakeReport()), Not(HasSubstr("script ")));
    RunReport report = MakeReport();
    report.script = {MakeStep(5.0, "references", 2500, 2500), MakeRefusedStep(), MakeStep(6.0, "save", 3000, 3100)};
    report.missed_before = {2000, 2500, 3050, 3101};
    EXPECT_THAT(FormatReport(report),
                HasSubstr("\nscript                  2 of 3 steps done, 3 cycles missed meanwhile\n"));
}

TEST(RunReportTest, OfFramesThatWerePlayedBackNothingNeedsToHaveBecomeSmaller)
{
    RunReport report = MakeReport();
    report.mirror_was_seen = false;
    report.controlled_rms_nm = {};
    report.surface_rms_nm = {};
    EXPECT_TRUE(report.DidHold());
    const std::string text = FormatReport(report);
    EXPECT_THAT(text, HasSubstr("verdict                 the frames were played back\n"));
    EXPECT_THAT(text, HasSubstr("edge sensors"));
    EXPECT_THAT(text, Not(HasSubstr("surface")));
    EXPECT_EQ(WriteAndRead(report).at("held"), true);
}

TEST(RunReportTest, FramesThatWerePlayedBackDoNotHoldWhenTheRunEndsEarlyOrCommandsAreNotFinite)
{
    RunReport early = MakeReport();
    early.mirror_was_seen = false;
    early.cycles_done = 9999;
    EXPECT_FALSE(early.DidHold());
    EXPECT_THAT(FormatReport(early), HasSubstr("did NOT hold"));
    RunReport not_finite = MakeReport();
    not_finite.mirror_was_seen = false;
    not_finite.commands_not_finite = 1;
    EXPECT_FALSE(not_finite.DidHold());
}

TEST(RunReportTest, AnInterruptionOfFramesThatArePlayedBackIsOne)
{
    RunReport report = MakeReport();
    report.mirror_was_seen = false;
    report.interrupted = true;
    EXPECT_THAT(FormatReport(report), HasSubstr("verdict                 interrupted\n"));
}

TEST(RunReportTest, ASummaryThatCannotBeWrittenIsOneLineWithItsName)
{
    const test::TestFolder folder;
    const std::filesystem::path file = folder / "missing" / "summary.json";
    const std::string line = test::ThrownLine<RunError>([&] { WriteSummary(MakeReport(), file); });
    EXPECT_THAT(line, HasSubstr("cannot write " + file.string()));
    EXPECT_EQ(folder.CountEntries(), 0U);
}

}  // namespace
}  // namespace lumo::ravelctl
