#include "error.hpp"
#include "qualify.hpp"
#include "qualifyLoop.hpp"
#include "qualifyReport.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sstream>

namespace lumo::ravelctl {
namespace {

using std::chrono::microseconds;
using std::chrono::nanoseconds;
using testing::HasSubstr;
using testing::Not;

QualifyReport MakeReport()
{
    QualifyReport report;
    report.version = "1.2.3";
    report.blas = "OpenBLAS";
    report.started_utc = "2026-01-02T03:04:05Z";
    report.plan.placement.workers = {{3, 50, -1}, {2, 50, -1}};
    report.plan.most_cycles = 1000;
    report.plan.rate_hz = 500.0;
    report.plan.deadline_us = 2000.0;
    report.plan.matrix_bytes = 5'000'000;
    report.workers = {
        {{3, 50},
         1000,
         50,
         3,
         Percentiles{90.0, 100.0, 120.0, 130.0, 150.04, 140.0},
         Percentiles{5.0, 7.5, 20.0, 30.0, 41.0, 40.0},
         Percentiles{70.0, 80.0, 81.0, 82.0, 83.0, 83.0}},
        {{2, 50}, 1000, 0, 0, Percentiles{1091.0, 1250.0, 1300.0, 1400.0, 1600.0, 1500.0}, std::nullopt, std::nullopt},
    };
    report.cycles_done = 1000;
    report.cycle_us = Percentiles{1100.0, 1300.0, 1400.0, 1500.0, 1700.0, 1600.0};
    report.wake_up_us = Percentiles{10.0, 20.0, 30.0, 40.0, 60.0, 50.0};
    report.options.output = "cpu23";
    report.files = {"qualify.json"};
    report.execution_histogram = {{79.43, 100.0, 400}, {100.0, 125.9, 1}};
    report.cycle_histogram = {{1000.0, 1259.0, 7}};
    return report;
}

TEST(QualifyReportTest, TheTableHasALinePerWorkerAndFitsATerminal)
{
    const std::string text = FormatQualification(MakeReport());
    EXPECT_EQ(text,
              "\n"
              "execution, us               min   median     99 %   99.9 %  99.99 %      max\n"
              "  worker0 on CPU 3         90.0    100.0    120.0    130.0    140.0    150.0\n"
              "  worker1 on CPU 2       1091.0   1250.0   1300.0   1400.0   1500.0   1600.0\n"
              "\n"
              "start latency, us           min   median     99 %   99.9 %  99.99 %      max\n"
              "  worker0 on CPU 3          5.0      7.5     20.0     30.0     40.0     41.0\n"
              "  worker1 on CPU 2            -        -        -        -        -        -\n"
              "\n"
              "whole cycle, us             min   median     99 %   99.9 %  99.99 %      max\n"
              "  start to ready         1100.0   1300.0   1400.0   1500.0   1600.0   1700.0\n"
              "  instant to start         10.0     20.0     30.0     40.0     50.0     60.0\n"
              "\n"
              "speed                      GB/s     read    ratio  missed deadlines\n"
              "  worker0 on CPU 3         50.0     62.5     0.80                 3\n"
              "  worker1 on CPU 2          4.0        -        -                 0\n"
              "  read: the worker only reads its matrix, once after every 20 cycles and on an\n"
              "  instant of its own; ratio: the product's speed over the read's, in the median\n"
              "\n"
              "execution of all workers, us\n"
              "      79.4 to 100               400  ########################################\n"
              "       100 to 126                 1  .\n"
              "\n"
              "start to ready, us\n"
              "      1000 to 1259                7  ########################################\n"
              "\n"
              "scheduling   priority 50 granted\n"
              "files        cpu23: qualify.json\n"
              "verdict      holds: 0 of 1000 cycles took longer than 2000 us, 0 instants missed\n"
              "             starts up to 60 us after their instants\n");
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 80U) << line;
    }
}

TEST(QualifyReportTest, APriorityThatAnyWorkerDidNotGetIsSaid)
{
    QualifyReport report = MakeReport();
    report.workers[1].place.priority = 0;
    EXPECT_THAT(FormatQualification(report), HasSubstr("priority 50 was NOT granted; see ravelctl doctor"));
    report.plan.placement.workers = {{3, 0, -1}, {2, 0, -1}};
    EXPECT_THAT(FormatQualification(report), HasSubstr("scheduling   ordinary scheduling\n"));
}

TEST(QualifyReportTest, AWorkerThatMayRunAnywhereHasNoCpu)
{
    QualifyReport report = MakeReport();
    report.workers[0].place.cpu = -1;
    EXPECT_THAT(FormatQualification(report), HasSubstr("\n  worker0 on any CPU       90.0"));
}

TEST(QualifyReportTest, ItHoldsWhenEveryCycleWasDoneInTimeOnItsInstant)
{
    EXPECT_TRUE(MakeReport().DidHold());
    EXPECT_EQ(GetExitStatus(MakeReport()), EXIT_OK);
    const auto broken = [](auto member, auto value) {
        QualifyReport report = MakeReport();
        report.*member = value;
        EXPECT_FALSE(report.DidHold());
        return report;
    };
    EXPECT_EQ(broken(&QualifyReport::late_cycles, 1).FormatVerdict(),
              "does NOT hold: 1 of 1000 cycles took longer than 2000 us, 0 instants missed; starts up to 60 us after "
              "their instants");
    EXPECT_EQ(broken(&QualifyReport::missed_instants, 2).FormatVerdict(),
              "does NOT hold: 0 of 1000 cycles took longer than 2000 us, 2 instants missed; starts up to 60 us after "
              "their instants");
    EXPECT_THAT(broken(&QualifyReport::missed_instants, 1).FormatVerdict(), HasSubstr(" us, 1 instant missed; "));
    EXPECT_EQ(GetExitStatus(broken(&QualifyReport::cycles_done, 999)), EXIT_FAILED);
    EXPECT_EQ(GetExitStatus(broken(&QualifyReport::problems, std::vector<std::string>{"worker0 ended"})), EXIT_FAILED);
    const QualifyReport interrupted = broken(&QualifyReport::interrupted, true);
    EXPECT_EQ(GetExitStatus(interrupted), EXIT_INTERRUPTED);
    QualifyReport interrupted_and_more = interrupted;
    interrupted_and_more.problems = {"cannot write the page"};
    EXPECT_EQ(GetExitStatus(interrupted_and_more), EXIT_INTERRUPTED) << "its problems are told all the same";
    EXPECT_THAT(interrupted.FormatVerdict(), HasSubstr("interrupted: 0 of 1000 cycles"));
}

TEST(QualifyReportTest, WithoutADeadlineNobodyMissesOne)
{
    const test::TestFolder folder;
    QualifyReport report = MakeReport();
    report.workers[0].missed_deadlines.reset();
    EXPECT_THAT(FormatQualification(report), HasSubstr("0.80                 -\n"));
    WriteQualification(report, folder / "qualify.json");
    const auto json = nlohmann::json::parse(test::ReadBytes(folder / "qualify.json"));
    EXPECT_EQ(json.at("workers").at(0).at("missed_deadlines"), nullptr);
}

TEST(QualifyReportTest, FlatOutForATimeAnyNumberOfCyclesHolds)
{
    QualifyReport report = MakeReport();
    report.plan.paced = false;
    report.plan.longest_s = 2.0;
    report.plan.deadline_us.reset();
    report.cycles_done = 17;
    EXPECT_TRUE(report.DidHold());
    EXPECT_EQ(report.FormatVerdict(), "holds: 17 cycles, no deadline was set");
    EXPECT_THAT(FormatQualification(report), Not(HasSubstr("instant to start")));
    report.cycles_done = 0;
    EXPECT_FALSE(report.DidHold());
}

TEST(QualifyReportTest, TheFileHasEverythingThatTheTextHas)
{
    const test::TestFolder folder;
    const QualifyReport report = MakeReport();
    WriteQualification(report, folder / "qualify.json");
    const auto json = nlohmann::json::parse(test::ReadBytes(folder / "qualify.json"));
    EXPECT_EQ(json.at("held"), true);
    EXPECT_EQ(json.at("verdict"), report.FormatVerdict());
    EXPECT_EQ(json.at("deadline_us"), 2000.0);
    EXPECT_EQ(json.at("cycles"), 1000);
    EXPECT_EQ(json.at("cycle_us").at("p9999"), 1600.0);
    EXPECT_EQ(json.at("wake_up_us").at("max"), 60.0);
    const auto& worker = json.at("workers").at(0);
    EXPECT_EQ(worker.at("cpu"), 3);
    EXPECT_EQ(worker.at("missed_deadlines"), 3);
    EXPECT_EQ(worker.at("execution_us"),
              nlohmann::json(
                  {{"min", 90.0}, {"p50", 100.0}, {"p99", 120.0}, {"p999", 130.0}, {"p9999", 140.0}, {"max", 150.04}}));
    EXPECT_EQ(worker.at("start_latency_us").at("p50"), 7.5);
    EXPECT_EQ(worker.at("gb_per_s"), 50.0);
    EXPECT_EQ(worker.at("read_gb_per_s"), 62.5);
    EXPECT_EQ(worker.at("ratio_to_read"), 0.8);
    EXPECT_EQ(json.at("workers").at(1).at("start_latency_us"), nullptr);
    EXPECT_EQ(json.at("workers").at(1).at("ratio_to_read"), nullptr);
    EXPECT_EQ(json.at("execution_histogram_us").at(0).at("count"), 400);
    EXPECT_EQ(json.at("cycle_histogram_us").size(), 1U);
    EXPECT_EQ(json.at("files"), nlohmann::json({"qualify.json"}));
}

TEST(QualifyReportTest, AFileThatCannotBeWrittenIsNamed)
{
    const test::TestFolder folder;
    const std::string line = test::ThrownLine<RunError>([&folder] { WriteQualification({}, folder / "no" / "file"); });
    EXPECT_THAT(line, HasSubstr("cannot write " + (folder / "no" / "file").string()));
}

TEST(DeadlineCounterTest, OnlyCyclesThatTakeLongerAreLate)
{
    DeadlineCounter sut(100.5);
    for (const nanoseconds duration :
         {nanoseconds(1), nanoseconds(100'500), nanoseconds(100'501), nanoseconds(1 << 30)}) {
        sut.Add(duration);
    }
    EXPECT_EQ(sut.GetNumLate(), 2);
}

TEST(DeadlineCounterTest, WithoutADeadlineNothingIsLate)
{
    DeadlineCounter sut(std::nullopt);
    sut.Add(microseconds(10'000'000));
    EXPECT_EQ(sut.GetNumLate(), 0);
}

}  // namespace
}  // namespace lumo::ravelctl
