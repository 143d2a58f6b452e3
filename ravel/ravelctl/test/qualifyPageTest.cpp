#include "htmlReport.hpp"
#include "qualifyPage.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace lumo::ravelctl {
namespace {

using nlohmann::json;
using testing::Contains;
using testing::ElementsAre;
using testing::Pair;

/// Of two workers; the second one was never given a read.
QualifyReport MakeReport()
{
    const std::vector<float> first = {100.0F, 100.0F, 150.0F};
    const std::vector<float> second = {200.0F, 200.0F, 900.0F};
    const std::vector<float> latencies = {5.0F, 6.0F, 50.0F};
    const std::vector<float> cycles = {210.0F, 220.0F, 1000.5F};
    QualifyReport report;
    report.version = "1.2.3";
    report.blas = "some library";
    report.started_utc = "2026-01-02T03:04:05Z";
    report.options.rows = 10;
    report.options.cols = 5000;
    report.plan.placement.workers = {{3, 50, -1}, {2, 50, -1}};
    report.plan.most_cycles = 3;
    report.plan.rate_hz = 500.0;
    report.plan.deadline_us = 1000.0;
    report.plan.matrix_bytes = 200'000;
    report.workers = {{{3, 50},
                       3,
                       1,
                       2,
                       ComputePercentiles(first),
                       ComputePercentiles(latencies),
                       Percentiles{1.0, 1.0, 1.0, 1.0, 1.0, 1.0},
                       CountDurations(first, {}),
                       CountDurations(latencies, {})},
                      {{2, 50}, 3, 0, 0, ComputePercentiles(second), {}, {}, CountDurations(second, {}), {}}};
    report.cycles_done = 3;
    report.late_cycles = 1;
    report.missed_instants = 2;
    report.cycle_us = ComputePercentiles(cycles);
    report.wake_up_us = Percentiles{1.0, 2.0, 3.0, 4.0, 6.0, 5.0};
    report.cycle_counts = CountAgainstDeadline(cycles, 1000.0);
    return report;
}

TEST(QualifyPageTest, EveryWorkerHasItsTimesAndItsSpeed)
{
    const ReportData sut = DescribeQualification(MakeReport(), {});
    ASSERT_EQ(sut.tables.size(), 3U);
    EXPECT_EQ(sut.tables[0].rows.at(0).first, "worker0 on CPU 3");
    EXPECT_THAT(sut.tables[0].rows.at(0).second, ElementsAre(100.0, 100.0, 150.0, 150.0, 150.0, 150.0));
    EXPECT_EQ(sut.tables[1].rows.at(0).second.at(1), 6.0);
    EXPECT_THAT(sut.tables[1].rows.at(1).second, testing::Each(std::optional<double>()));
    EXPECT_EQ(sut.tables[2].rows.at(1),
              std::make_pair(std::string("instant to start"),
                             std::vector<std::optional<double>>{1.0, 2.0, 3.0, 4.0, 5.0, 6.0}));
    ASSERT_EQ(sut.execution_times.size(), 2U);
    EXPECT_EQ(sut.execution_times[1].name, "worker1 on CPU 2");
    EXPECT_EQ(sut.execution_times[1].percentiles_us.max, 900.0);
    EXPECT_EQ(sut.execution_times[1].histogram.counts.back(), 1);
    EXPECT_EQ(sut.start_latencies.size(), 1U);
    ASSERT_EQ(sut.speeds.size(), 2U);
    EXPECT_EQ(sut.speeds[0].product, 2.0) << "200 kB in 100 us";
    EXPECT_EQ(sut.speeds[0].read, 200.0);
    EXPECT_EQ(sut.speeds[1].product, 1.0);
    EXPECT_FALSE(sut.speeds[1].read);
}

TEST(QualifyPageTest, CyclesBeyondTheDeadlineAreCountedAndMarked)
{
    const ReportData sut = DescribeQualification(MakeReport(), {});
    EXPECT_FALSE(sut.is_good);
    EXPECT_EQ(sut.verdict, MakeReport().FormatVerdict());
    ASSERT_TRUE(sut.cycle_times);
    EXPECT_EQ(sut.cycle_times->deadline_us, 1000.0);
    EXPECT_EQ(sut.cycle_times->late, 1);
    EXPECT_EQ(sut.cycle_times->missed, 2);
    EXPECT_EQ(sut.cycle_times->histogram.late.back(), 1);
    EXPECT_EQ(sut.cycle_times->histogram.late.front(), 0);
    const ParameterGroup& work = sut.parameters.at(0);
    EXPECT_THAT(work.rows, Contains(Pair("matrix of each worker", "10 x 5000, 200.0 kB")));
    EXPECT_THAT(work.rows, Contains(Pair("scheduling", "priority 50 granted")));
    EXPECT_THAT(work.rows, Contains(Pair("deadline", "1000 us")));
    EXPECT_EQ(sut.parameters.at(1).title, "Missed deadlines");
    EXPECT_THAT(sut.parameters.at(1).rows,
                ElementsAre(Pair("worker0 on CPU 3", "2 of 3 cycles"), Pair("worker1 on CPU 2", "0 of 3 cycles")));
    EXPECT_EQ(sut.parameters.at(3).title, "Machine");
}

TEST(QualifyPageTest, FlatOutThereIsNoInstantAndWithoutADeadlineNothingIsLate)
{
    QualifyReport report = MakeReport();
    report.plan.paced = false;
    report.plan.longest_s = 2.0;
    report.plan.deadline_us.reset();
    report.late_cycles = 0;
    report.missed_instants = 0;
    report.workers[0].place.cpu = -1;
    report.workers[0].missed_deadlines.reset();
    const ReportData sut = DescribeQualification(report, {});
    EXPECT_TRUE(sut.is_good);
    EXPECT_EQ(sut.tables[2].rows.size(), 1U);
    EXPECT_FALSE(sut.cycle_times->deadline_us);
    EXPECT_EQ(sut.tables[0].rows.at(0).first, "worker0 on any CPU");
    EXPECT_THAT(sut.parameters.at(0).rows, Contains(Pair("pace", "flat out")));
    EXPECT_THAT(sut.parameters.at(1).rows, Contains(Pair("worker0 on any CPU", "no deadline")));
    EXPECT_THAT(sut.parameters.at(0).rows, Contains(Pair("planned", "2 s")));
}

TEST(QualifyPageTest, AQualificationThatNeverBeganHasNoCharts)
{
    QualifyReport report;
    report.interrupted = true;
    const ReportData sut = DescribeQualification(report, {});
    EXPECT_FALSE(sut.cycle_times);
    EXPECT_TRUE(sut.execution_times.empty() && sut.start_latencies.empty() && sut.speeds.empty());
    const json data = json::parse(ReportJson(sut));
    for (const char* section : {"mirror", "residual", "cycle_times", "execution_times", "start_latencies", "speeds"}) {
        EXPECT_FALSE(data.contains(section)) << section;
    }
}

TEST(QualifyPageTest, ThePagesDataHoldTheFigures)
{
    const json sut = json::parse(ReportJson(DescribeQualification(MakeReport(), {})));
    EXPECT_EQ(sut.at("execution_times").at(1).at("name"), "worker1 on CPU 2");
    EXPECT_EQ(sut.at("execution_times").at(1).at("median_us"), 200.0);
    EXPECT_EQ(sut.at("speeds").at(0),
              json({{"name", "worker0 on CPU 3"}, {"product_gb_per_s", 2.0}, {"read_gb_per_s", 200.0}}));
    EXPECT_EQ(sut.at("speeds").at(1).at("read_gb_per_s"), nullptr);
    EXPECT_EQ(sut.at("cycle_times").at("late"), 1);
    EXPECT_EQ(sut.at("tables").at(0).at("rows").at(1).at("values").at(5), 900.0);
    EXPECT_EQ(sut.at("tables").at(1).at("rows").at(1).at("values").at(0), nullptr);
}

}  // namespace
}  // namespace lumo::ravelctl
