#include "error.hpp"
#include "qualifyOptions.hpp"
#include "support/thrown.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

using test::ThrownLine;
using testing::HasSubstr;

const CpuTopology MACHINE = {{0, 1, 2, 5}, {}, {}, {}, {0}};

std::string Refusal(const QualifyOptions& options)
{
    return ThrownLine<InputError>([&options] { PlanQualification(options, MACHINE); });
}

TEST(QualifyOptionsTest, TheDefaultsAreTenSecondsOfOneWorkerAtTheLoopsRate)
{
    const QualifyPlan plan = PlanQualification({}, MACHINE);
    EXPECT_EQ(plan.most_cycles, 5000);
    EXPECT_FALSE(plan.longest_s);
    EXPECT_TRUE(plan.paced);
    EXPECT_EQ(plan.rate_hz, 500.0);
    EXPECT_EQ(plan.deadline_us, 2000.0) << "the period";
    EXPECT_EQ(plan.matrix_bytes, 300U * 4788U * 4U);
    ASSERT_EQ(plan.placement.workers.size(), 1U);
    EXPECT_EQ(plan.placement.workers[0].cpu, 5);
    EXPECT_EQ(plan.placement.workers[0].priority, 50);
    EXPECT_EQ(plan.placement.workers[0].numa_node, -1);
    EXPECT_EQ(plan.placement.cycle.cpu, 2);
    EXPECT_EQ(plan.placement.cycle.priority, 60);
    EXPECT_EQ(plan.CountReads(), 250);
}

TEST(QualifyOptionsTest, ThereAreAsManyWorkersAsGivenCpus)
{
    QualifyOptions options;
    options.placement.cpus = ParsePlaceChoice("--cpus", "1,0");
    options.placement.priority = 7;
    const QualifyPlan plan = PlanQualification(options, MACHINE);
    EXPECT_EQ(plan.CountWorkers(), 2);
    EXPECT_EQ(plan.placement.workers[0].cpu, 1);
    EXPECT_EQ(plan.placement.workers[1].cpu, 0);
    EXPECT_EQ(plan.placement.workers[1].priority, 7);
    EXPECT_EQ(plan.placement.cycle.priority, 17);
}

TEST(QualifyOptionsTest, FlatOutHasNoDeadlineNoPriorityAndEndsWithItsTime)
{
    QualifyOptions options;
    options.flat_out = true;
    options.duration_s = 2.0;
    const QualifyPlan plan = PlanQualification(options, MACHINE);
    EXPECT_FALSE(plan.paced);
    EXPECT_FALSE(plan.deadline_us);
    EXPECT_EQ(plan.longest_s, 2.0);
    EXPECT_GT(plan.most_cycles, 10000) << "more than any processor does";
    EXPECT_EQ(plan.placement.workers[0].cpu, 5) << "a processor is timed";
    EXPECT_EQ(plan.placement.workers[0].priority, 0);
    EXPECT_EQ(plan.placement.cycle.priority, 0);

    options.duration_s.reset();
    options.cycles = 30;
    options.deadline_us = 100.0;
    EXPECT_EQ(PlanQualification(options, MACHINE).most_cycles, 30);
    EXPECT_FALSE(PlanQualification(options, MACHINE).longest_s);
    EXPECT_EQ(PlanQualification(options, MACHINE).deadline_us, 100.0);
}

TEST(QualifyOptionsTest, MemoryGrowsWithMatricesWorkersAndCycles)
{
    QualifyOptions options;
    const std::uint64_t one = PlanQualification(options, MACHINE).memory_bytes;
    EXPECT_GE(one, 300U * 4788U * 4U + 2U * 5000U * 4U);
    options.workers = 2;
    const std::uint64_t two = PlanQualification(options, MACHINE).memory_bytes;
    EXPECT_GE(two, one + 300U * 4788U * 4U);
    options.cycles = 1'000'000;
    EXPECT_GE(PlanQualification(options, MACHINE).memory_bytes, two + 2U * 2U * 4U * 990'000U);
}

TEST(QualifyOptionsTest, WhatCannotWorkIsNamedWithWhatWasExpected)
{
    const auto with = [](auto member, auto value) {
        QualifyOptions options;
        options.*member = value;
        return Refusal(options);
    };
    EXPECT_THAT(with(&QualifyOptions::rows, 0), HasSubstr("--rows: expected 1 to"));
    EXPECT_THAT(with(&QualifyOptions::cols, -1), HasSubstr("--cols: expected 1 to"));
    EXPECT_THAT(with(&QualifyOptions::rows, 1'000'000), HasSubstr("1000000 x 4788 are 4788000000"));
    EXPECT_THAT(with(&QualifyOptions::workers, 0), HasSubstr("--workers: expected 1 to 64 but got 0"));
    EXPECT_THAT(with(&QualifyOptions::rate_hz, 0.5), HasSubstr("--rate: expected 1 to 5000 Hz but got 0.5"));
    EXPECT_THAT(with(&QualifyOptions::duration_s, 0.0), HasSubstr("--duration: expected"));
    EXPECT_THAT(with(&QualifyOptions::cycles, 0), HasSubstr("--cycles: expected 1 to"));
    EXPECT_THAT(with(&QualifyOptions::deadline_us, 0.0), HasSubstr("--deadline-us: expected 1 to"));
    QualifyOptions options;
    options.placement.cpus = ParsePlaceChoice("--cpus", "1,3");
    EXPECT_THAT(Refusal(options), HasSubstr("--cpus: expected CPUs on which this process may run (0-2,5) but got 3"));
}

TEST(QualifyOptionsTest, OptionsThatContradictEachOtherAreRefused)
{
    QualifyOptions options;
    options.placement.cpus = ParsePlaceChoice("--cpus", "0,1");
    options.workers = 3;
    EXPECT_THAT(Refusal(options), HasSubstr("--workers: expected 2, one per CPU of --cpus, but got 3"));
    options.workers = 2;
    EXPECT_NO_THROW(PlanQualification(options, MACHINE));
    options.cycles = 5;
    options.duration_s = 1.0;
    EXPECT_THAT(Refusal(options), HasSubstr("--cycles: expected without --duration"));
    options.duration_s.reset();
    options.flat_out = true;
    options.placement.priority = 1;
    EXPECT_THAT(Refusal(options), HasSubstr("--priority: expected 0 with --flat-out but got 1"));
}

}  // namespace
}  // namespace lumo::ravelctl
