#include "error.hpp"
#include "htmlReport.hpp"
#include "qualify.hpp"
#include "support/noMoreThreads.hpp"
#include "support/quietLog.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <fmt/core.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <numeric>
#include <sstream>
#include <thread>

// Short qualifications in this process. Nothing here depends on how long anything takes.

namespace lumo::ravelctl {
namespace {

using testing::HasSubstr;
using testing::Not;

/// Flat out: a loaded machine is slow, but misses nothing.
QualifyOptions Small(int workers, std::int64_t cycles)
{
    QualifyOptions options;
    options.rows = 20;
    options.cols = 300;
    options.workers = workers;
    options.flat_out = true;
    options.cycles = cycles;
    return options;
}

QualifyStop Never()
{
    return {[] {},
            [] {
                std::this_thread::sleep_for(std::chrono::milliseconds(2));  // Qualify expects it to take its time
                return false;
            }};
}

std::int64_t CountAll(const std::vector<HistogramBin>& bins)
{
    std::int64_t count = 0;
    for (const HistogramBin& bin : bins) {
        count += bin.count;
    }
    return count;
}

std::int64_t Sum(const std::vector<std::int64_t>& counts)
{
    return std::accumulate(counts.begin(), counts.end(), std::int64_t{0});
}

class QualifyTest : public testing::Test
{
protected:
    QualifyTest() { test::QuietLog(); }

    QualifyReport Run(QualifyOptions options)
    {
        if (options.output.empty()) {
            options.output = m_folder / "result";
        }
        return Qualify(options, Never(), m_out);
    }

    const test::TestFolder m_folder;
    std::ostringstream m_out;
};

TEST_F(QualifyTest, EveryWorkerDoesEveryCycleAndReadsAfterEveryTwentieth)
{
    const QualifyReport report = Run(Small(2, 105));
    EXPECT_EQ(report.cycles_done, 105);
    ASSERT_EQ(report.workers.size(), 2U);
    for (const WorkerFigures& worker : report.workers) {
        EXPECT_EQ(worker.cycles, 105);
        EXPECT_EQ(worker.reads, 5);
        ASSERT_TRUE(worker.execution_us && worker.latency_us && worker.read_us);
        EXPECT_GT(worker.execution_us->min, 0.0);
        EXPECT_LE(worker.execution_us->min, worker.execution_us->p50);
        EXPECT_LE(worker.execution_us->p50, worker.execution_us->max);
        EXPECT_GE(worker.latency_us->min, 0.0);
        // The cycle includes what its workers do.
        ASSERT_TRUE(report.cycle_us);
        EXPECT_GE(report.cycle_us->max, worker.execution_us->max);
        EXPECT_GE(report.cycle_us->min, worker.execution_us->min);
    }
    EXPECT_EQ(CountAll(report.execution_histogram), 210);
    EXPECT_EQ(CountAll(report.cycle_histogram), 105);
    EXPECT_FALSE(report.workers[0].missed_deadlines) << "there is no deadline";
    EXPECT_TRUE(report.problems.empty());
    EXPECT_TRUE(report.DidHold());
}

TEST_F(QualifyTest, ADeadlineThatNothingCanHoldIsMissedInEveryCycle)
{
    QualifyOptions options = Small(1, 30);
    options.rows = 2000;  // 2.4 MB within 1 us
    options.deadline_us = 1.0;
    const QualifyReport report = Run(options);
    EXPECT_EQ(report.late_cycles, 30);
    EXPECT_EQ(report.workers.at(0).missed_deadlines, 30);
    EXPECT_EQ(Sum(report.cycle_counts.late), 30);
    EXPECT_FALSE(report.DidHold());
    EXPECT_THAT(m_out.str(), HasSubstr("does NOT hold: 30 of 30 cycles took longer than 1 us"));
}

TEST_F(QualifyTest, AtARateEveryCycleIsGivenItsOwnInstant)
{
    QualifyOptions options = Small(2, 20);
    options.flat_out = false;
    options.rate_hz = 200.0;
    options.placement.priority = 0;
    const QualifyReport report = Run(options);
    EXPECT_EQ(report.cycles_done, 20);
    EXPECT_EQ(report.workers.at(1).reads, 1);
    ASSERT_TRUE(report.wake_up_us);
    EXPECT_GE(report.wake_up_us->min, 0.0);
    EXPECT_EQ(report.DidHold(), report.late_cycles == 0 && report.missed_instants == 0);
    EXPECT_THAT(m_out.str(), HasSubstr("20 cycles at 200 Hz, deadline 5000 us\n"));
}

TEST_F(QualifyTest, FlatOutForATimeEndsByItself)
{
    QualifyOptions options = Small(1, 1);
    options.cycles.reset();
    options.duration_s = 0.05;
    const QualifyReport report = Run(options);
    EXPECT_GT(report.cycles_done, 0);
    EXPECT_EQ(report.workers.at(0).cycles, report.cycles_done);
}

TEST_F(QualifyTest, TheFileAgreesWithTheTable)
{
    const test::TestFolder folder;
    QualifyOptions options = Small(2, 40);
    options.output = folder / "result";
    const QualifyReport report = Run(options);
    const auto json = nlohmann::json::parse(test::ReadBytes(options.output / "qualify.json"));
    EXPECT_EQ(json.at("cycles"), 40);
    EXPECT_EQ(json.at("rows"), 20);
    EXPECT_EQ(json.at("cols"), 300);
    EXPECT_EQ(json.at("matrix_bytes"), 24000);
    EXPECT_EQ(json.at("held"), report.DidHold());
    EXPECT_THAT(m_out.str(), HasSubstr("verdict      " + json.at("verdict").get<std::string>() + "\n"));
    ASSERT_EQ(json.at("workers").size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        const auto& worker = json.at("workers").at(i);
        const auto& times = worker.at("execution_us");
        EXPECT_EQ(times.at("p50").get<double>(), report.workers.at(i).execution_us->p50);
        const std::string name = fmt::format("  worker{} on CPU {}", i, worker.at("cpu").get<int>());
        const std::string row = fmt::format("{:<22}{:9.1f}{:9.1f}{:9.1f}", name, times.at("min").get<double>(),
                                            times.at("p50").get<double>(), times.at("p99").get<double>());
        EXPECT_THAT(m_out.str(), HasSubstr(row));
    }
}

TEST_F(QualifyTest, ItLeavesItsFileAndItsPageAndNamesThem)
{
    const QualifyReport report = Run(Small(1, 40));
    std::vector<std::string> expected = {"qualify.json"};
    if (!ReportTemplate().empty()) {
        expected.insert(expected.begin(), "report.html");
        const std::string page = test::ReadBytes(m_folder / "result" / "report.html");
        EXPECT_THAT(page, HasSubstr("Qualification of " + report.started_utc));
        EXPECT_THAT(page, HasSubstr("\"execution_times\":[{\"name\":\"worker0 on CPU "));
        EXPECT_THAT(page, Not(HasSubstr("@REPORT_DATA@")));
    } else {
        EXPECT_THAT(m_out.str(), HasSubstr(NO_PAGE));
    }
    EXPECT_EQ(report.files, expected);
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder / "result")) {
        found.push_back(entry.path().filename().string());
    }
    EXPECT_THAT(found, testing::UnorderedElementsAreArray(expected));
    const auto json = nlohmann::json::parse(test::ReadBytes(m_folder / "result" / "qualify.json"));
    EXPECT_EQ(json.at("files"), expected);
    EXPECT_THAT(m_out.str(), HasSubstr(fmt::format("files        {}: {}\n", (m_folder / "result").string(),
                                                   fmt::join(expected, ", "))));
}

TEST_F(QualifyTest, ThePagesHistogramsHoldEveryCycle)
{
    const QualifyReport report = Run(Small(2, 105));
    for (const WorkerFigures& worker : report.workers) {
        EXPECT_EQ(Sum(worker.execution_counts.counts), 105);
        EXPECT_EQ(Sum(worker.latency_counts.counts), 105);
    }
    EXPECT_EQ(Sum(report.cycle_counts.counts), 105);
    EXPECT_EQ(Sum(report.cycle_counts.late), report.late_cycles);
}

TEST_F(QualifyTest, WithoutAFolderItMakesOneNamedAfterTheTime)
{
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_folder.GetPath());
    const QualifyReport report = Qualify(Small(1, 5), Never(), m_out);
    std::filesystem::current_path(before);
    EXPECT_THAT(report.options.output.string(), testing::MatchesRegex("ravelctl-qualify-[0-9]{8}T[0-9]{6}Z"));
    EXPECT_TRUE(std::filesystem::exists(m_folder.GetPath() / report.options.output / "qualify.json"));
    EXPECT_THAT(m_out.str(), HasSubstr("files        " + report.options.output.string() + ": "));
}

TEST_F(QualifyTest, ThePageOfARunIsNeverReplaced)
{
    test::WriteBytes(m_folder / "summary.json", "{}");
    test::WriteBytes(m_folder / "report.html", "of the run");
    QualifyOptions options = Small(1, 5);
    options.output = m_folder.GetPath();
    options.overwrite = true;
    EXPECT_THAT(test::ThrownLine<InputError>([&] { Run(options); }), HasSubstr("holds a run (summary.json)"));
    EXPECT_EQ(test::ReadBytes(m_folder / "report.html"), "of the run");
}

TEST_F(QualifyTest, AFileIsNotReplacedUnlessAskedFor)
{
    const test::TestFolder folder;
    test::WriteBytes(folder / "qualify.json", "mine");
    QualifyOptions options = Small(1, 5);
    options.output = folder.GetPath();
    EXPECT_THAT(test::ThrownLine<InputError>([&] { Run(options); }), HasSubstr("--overwrite"));
    EXPECT_EQ(test::ReadBytes(folder / "qualify.json"), "mine");
    EXPECT_EQ(m_out.str(), "");
    options.overwrite = true;
    Run(options);
    EXPECT_NE(test::ReadBytes(folder / "qualify.json"), "mine");
}

TEST_F(QualifyTest, APageOfSomebodyElseIsNotReplacedUnlessAskedFor)
{
    test::WriteBytes(m_folder / "report.html", "mine");
    QualifyOptions options = Small(1, 5);
    options.output = m_folder.GetPath();
    EXPECT_THAT(test::ThrownLine<InputError>([&] { Run(options); }), HasSubstr("holds a report.html already; choose"));
    EXPECT_EQ(test::ReadBytes(m_folder / "report.html"), "mine");
}

TEST_F(QualifyTest, AStartThatFailsTakesNothingFromTheQualificationThatItWouldReplace)
{
    test::WriteBytes(m_folder / "qualify.json", "mine");
    test::WriteBytes(m_folder / "report.html", "its page");
    QualifyOptions options = Small(1, 5);
    options.output = m_folder.GetPath();
    options.overwrite = true;
    {
        const test::NoMoreThreads no_more;
        EXPECT_THROW(Run(options), std::exception);
    }
    EXPECT_EQ(test::ReadBytes(m_folder / "qualify.json"), "mine");
    EXPECT_EQ(test::ReadBytes(m_folder / "report.html"), "its page");
    Run(options);
    EXPECT_NE(test::ReadBytes(m_folder / "qualify.json"), "mine");
    const bool has_page = std::filesystem::exists(m_folder / "report.html");
    EXPECT_EQ(has_page, !ReportTemplate().empty()) << "an old page beside new figures";
}

TEST_F(QualifyTest, QuietPrintsNothing)
{
    QualifyOptions options = Small(1, 5);
    options.quiet = true;
    EXPECT_TRUE(Run(options).DidHold());
    EXPECT_EQ(m_out.str(), "");
}

TEST_F(QualifyTest, AnInterruptionEndsItWithWhatWasMeasured)
{
    QualifyOptions options = Small(2, 1'000'000);
    options.output = m_folder / "result";
    const QualifyReport report = Qualify(options,
                                         {[] {},
                                          [] {
                                              return true;
                                          }},
                                         m_out);
    EXPECT_TRUE(report.interrupted);
    EXPECT_LT(report.cycles_done, 1'000'000);
    EXPECT_EQ(report.workers.at(0).cycles, report.cycles_done);
    EXPECT_EQ(report.workers.at(1).cycles, report.cycles_done);
    EXPECT_EQ(GetExitStatus(report), EXIT_INTERRUPTED);
    EXPECT_THAT(m_out.str(), HasSubstr("verdict      interrupted: "));
}

TEST_F(QualifyTest, AnInterruptionIsAskedForOnceTheWorkersHaveStarted)
{
    std::vector<std::string> calls;
    QualifyOptions options = Small(2, 1'000'000);
    options.output = m_folder / "result";
    options.quiet = true;
    const QualifyStop stop{[&] { calls.emplace_back("started"); },
                           [&] {
                               calls.emplace_back("interrupted?");
                               return true;
                           }};
    Qualify(options, stop, m_out);
    EXPECT_THAT(calls, testing::ElementsAre("started", "interrupted?"));
}

TEST_F(QualifyTest, AQualificationThatCannotStartIsNeverSaidToHaveStarted)
{
    bool started = false;
    QualifyOptions options = Small(1, 1'000'000'000'000);
    options.output = m_folder / "result";
    const QualifyStop stop{[&] { started = true; },
                           [] {
                               return true;
                           }};
    test::ThrownLine<InputError>([&] { Qualify(options, stop, m_out); });
    EXPECT_FALSE(started);
}

TEST_F(QualifyTest, MoreMemoryThanThereIsIsRefusedBeforeAnythingRuns)
{
    QualifyOptions options = Small(1, 1'000'000'000'000);
    const std::string line = test::ThrownLine<InputError>([&] { Run(options); });
    EXPECT_THAT(line, HasSubstr("matrices and figures of 1000000000000 cycles need "));
    EXPECT_THAT(line, HasSubstr("fewer cycles"));
    EXPECT_EQ(m_out.str(), "");
}

}  // namespace
}  // namespace lumo::ravelctl
