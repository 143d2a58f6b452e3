#include "error.hpp"
#include "placement.hpp"
#include "remedies.hpp"
#include "support/thrown.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

namespace lumo::ravelctl {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<int> FirstCpus(int count)
{
    std::vector<int> cpus(static_cast<std::size_t>(count));
    std::iota(cpus.begin(), cpus.end(), 0);
    return cpus;
}

/// A machine of single cores on one node.
CpuTopology Plain(int num_cpus)
{
    return {FirstCpus(num_cpus), {}, {}, {}, {0}};
}

/// 16 CPUs: 4 cores of two threads each (n and n + 8) on node 0, and as many on node 1.
CpuTopology TwoNodes()
{
    CpuTopology topology = Plain(16);
    topology.nodes = {0, 1};
    for (int cpu = 0; cpu < 16; ++cpu) {
        topology.core_of[cpu] = cpu % 8;
        topology.node_of[cpu] = cpu % 8 / 4;
    }
    return topology;
}

PlacementOptions WithCpus(const std::string& text)
{
    PlacementOptions options;
    options.cpus = ParsePlaceChoice("--cpus", text);
    return options;
}

PlacementPlan Plan(int num_workers, const CpuTopology& topology, const PlacementOptions& options = {})
{
    return PlanPlacement(options, {num_workers}, topology);
}

std::vector<int> CpusOf(const PlacementPlan& plan)
{
    std::vector<int> cpus;
    for (const Placement& worker : plan.workers) {
        cpus.push_back(worker.cpu);
    }
    return cpus;
}

std::vector<int> NodesOf(const PlacementPlan& plan)
{
    std::vector<int> nodes;
    for (const Placement& worker : plan.workers) {
        nodes.push_back(worker.numa_node);
    }
    return nodes;
}

std::string Refusal(const PlacementOptions& options, int num_workers = 2)
{
    return test::ThrownLine<InputError>([&] { Plan(num_workers, Plain(8), options); });
}

TEST(PlacementTest, EveryWorkerHasACoreTheCycleOneAndTheRestWhatIsLeft)
{
    const PlacementPlan plan = Plan(2, Plain(8));
    EXPECT_THAT(CpusOf(plan), ElementsAre(7, 6));
    EXPECT_EQ(plan.cycle.cpu, 5);
    EXPECT_THAT(plan.rest, ElementsAre(0, 1, 2, 3, 4));
    EXPECT_THAT(NodesOf(plan), Each(-1)) << "there is one node only";
    EXPECT_EQ(plan.workers[1].priority, 50);
    EXPECT_EQ(plan.cycle.priority, 60) << "it gives the workers their starts";
}

TEST(PlacementTest, CoresThatJustSufficeAreOneEach)
{
    const PlacementPlan plan = Plan(2, Plain(4));
    EXPECT_THAT(CpusOf(plan), ElementsAre(3, 2));
    EXPECT_EQ(plan.cycle.cpu, 1);
    EXPECT_THAT(plan.rest, ElementsAre(0));
}

TEST(PlacementTest, WithTooFewCoresTheCycleRunsAnywhere)
{
    EXPECT_THAT(CpusOf(Plan(2, Plain(2))), ElementsAre(1, 0));
    EXPECT_EQ(Plan(2, Plain(2)).cycle.cpu, -1);
    EXPECT_THAT(Plan(2, Plain(2)).rest, IsEmpty());
    const PlacementPlan plan = Plan(2, Plain(3));
    EXPECT_THAT(CpusOf(plan), ElementsAre(2, 1));
    EXPECT_EQ(plan.cycle.cpu, -1);
    EXPECT_THAT(plan.rest, IsEmpty()) << "a cycle without a CPU of its own would be kept there too";
}

TEST(PlacementTest, WithTooFewCoresForTheWorkersNothingIsPinned)
{
    const PlacementPlan plan = Plan(3, Plain(2));
    EXPECT_THAT(CpusOf(plan), ElementsAre(-1, -1, -1));
    EXPECT_EQ(plan.cycle.cpu, -1);
    EXPECT_THAT(plan.rest, IsEmpty());
    EXPECT_EQ(plan.workers[0].priority, 50) << "they still come before everything else";
}

TEST(PlacementTest, CpusAreToBeSetAsideByWholeCores)
{
    EXPECT_EQ(remedies::CpusToSetAside(TwoNodes()), "4-7,12-15") << "n and n + 8 are one core";
    EXPECT_EQ(remedies::CpusToSetAside(Plain(5)), "3,4");
    EXPECT_EQ(remedies::CpusToSetAside(Plain(1)), "");
    CpuTopology one_core = Plain(2);
    one_core.core_of = {{0, 0}, {1, 0}};
    EXPECT_EQ(remedies::CpusToSetAside(one_core), "") << "two threads of one core";
}

TEST(PlacementTest, OrdinarySchedulingIsPinnedToIsolatedCpusOnly)
{
    PlacementOptions options;
    options.priority = 0;
    EXPECT_THAT(CpusOf(Plan(2, Plain(8), options)), Each(-1)) << "it would wait for other programs there";
    CpuTopology topology = Plain(8);
    topology.isolated = {3, 4, 5, 6};
    const PlacementPlan plan = Plan(2, topology, options);
    EXPECT_THAT(CpusOf(plan), ElementsAre(6, 5));
    EXPECT_EQ(plan.cycle.cpu, 4);
    EXPECT_THAT(plan.rest, ElementsAre(0, 1, 2, 7));
    EXPECT_THAT(CpusOf(Plan(5, topology, options)), Each(-1)) << "4 are isolated";
    EXPECT_EQ(Plan(3, topology, options).cycle.cpu, 3) << "the rest has CPUs of its own";
    options.cpus = ParsePlaceChoice("--cpus", "0,1");
    EXPECT_THAT(CpusOf(Plan(2, topology, options)), ElementsAre(0, 1)) << "what is given is given";
    EXPECT_THAT(CpusOf(PlanPlacement({}, {1, "--flat-out"}, Plain(4))), ElementsAre(3)) << "no time is kept";
}

TEST(PlacementTest, NoTwoThreadsShareACore)
{
    CpuTopology topology = Plain(8);
    for (int cpu = 0; cpu < 8; ++cpu) {
        topology.core_of[cpu] = cpu / 2 * 2;
    }
    const PlacementPlan plan = Plan(2, topology);
    EXPECT_THAT(CpusOf(plan), ElementsAre(6, 4));
    EXPECT_EQ(plan.cycle.cpu, 2);
    EXPECT_THAT(plan.rest, ElementsAre(0, 1)) << "nothing else on the cores of the loop";
    EXPECT_THAT(CpusOf(Plan(5, topology)), Each(-1)) << "8 CPUs are 4 cores";
}

TEST(PlacementTest, IsolatedCpusComeFirstAndNeverToTheRest)
{
    CpuTopology topology = Plain(8);
    topology.isolated = {2, 3, 4};
    const PlacementPlan plan = Plan(2, topology);
    EXPECT_THAT(CpusOf(plan), ElementsAre(4, 3));
    EXPECT_EQ(plan.cycle.cpu, 2);
    EXPECT_THAT(plan.rest, ElementsAre(0, 1, 5, 6, 7));
    EXPECT_THAT(Plan(1, topology).rest, ElementsAre(0, 1, 5, 6, 7)) << "2 is isolated and unused";
    EXPECT_THAT(CpusOf(Plan(4, topology)), ElementsAre(4, 3, 2, 7)) << "then the others";
}

TEST(PlacementTest, AnIsolatedCpuStandsForItsCore)
{
    CpuTopology topology = Plain(8);
    topology.isolated = {5, 7};
    for (int cpu = 0; cpu < 8; ++cpu) {
        topology.core_of[cpu] = cpu / 2 * 2;
    }
    EXPECT_THAT(CpusOf(Plan(2, topology)), ElementsAre(7, 5));
}

TEST(PlacementTest, WorkersStayOnOneNodeAsFarAsTheyFit)
{
    const PlacementPlan plan = Plan(3, TwoNodes());
    EXPECT_THAT(CpusOf(plan), ElementsAre(7, 6, 5));
    EXPECT_THAT(NodesOf(plan), Each(1));
    EXPECT_EQ(plan.cycle.cpu, 4) << "beside its workers";
    const PlacementPlan more = Plan(5, TwoNodes());
    EXPECT_THAT(CpusOf(more), ElementsAre(7, 6, 5, 4, 3));
    EXPECT_THAT(NodesOf(more), ElementsAre(1, 1, 1, 1, 0)) << "each near its own memory";
}

TEST(PlacementTest, TheNodeWithEnoughCoresIsTaken)
{
    CpuTopology topology = Plain(8);
    topology.nodes = {0, 1};
    topology.node_of = {{6, 1}, {7, 1}};
    EXPECT_THAT(CpusOf(Plan(3, topology)), ElementsAre(5, 4, 3));
    EXPECT_THAT(CpusOf(Plan(1, topology)), ElementsAre(7));
}

TEST(PlacementTest, ANodeThatIsGivenHoldsWorkersAndMemory)
{
    PlacementOptions options;
    options.numa_node = ParsePlaceChoice("--numa-node", "0");
    const PlacementPlan plan = Plan(2, TwoNodes(), options);
    EXPECT_THAT(CpusOf(plan), ElementsAre(3, 2));
    EXPECT_THAT(NodesOf(plan), Each(0));
    const PlacementPlan more = Plan(5, TwoNodes(), options);
    EXPECT_THAT(CpusOf(more), Each(-1)) << "the node has 4 cores";
    EXPECT_THAT(NodesOf(more), Each(0));
    options.numa_node = ParsePlaceChoice("--numa-node", "none");
    EXPECT_THAT(NodesOf(Plan(2, TwoNodes(), options)), Each(-1));
}

TEST(PlacementTest, NoneMeansWhereTheSystemLikes)
{
    PlacementPlan plan = Plan(2, Plain(8), WithCpus("none"));
    EXPECT_THAT(CpusOf(plan), Each(-1));
    EXPECT_EQ(plan.cycle.cpu, -1);
    EXPECT_THAT(plan.rest, IsEmpty());
    PlacementOptions options;
    options.cycle_cpu = ParsePlaceChoice("--cycle-cpu", "none");
    plan = Plan(2, Plain(8), options);
    EXPECT_THAT(CpusOf(plan), ElementsAre(7, 6));
    EXPECT_EQ(plan.cycle.cpu, -1);
    EXPECT_THAT(plan.rest, IsEmpty());
}

TEST(PlacementTest, CpusThatAreGivenAreTakenInTheirOrder)
{
    PlacementOptions options = WithCpus("1,6");
    PlacementPlan plan = Plan(2, Plain(8), options);
    EXPECT_THAT(CpusOf(plan), ElementsAre(1, 6));
    EXPECT_EQ(plan.cycle.cpu, 7) << "the next one that is free";
    EXPECT_THAT(plan.rest, ElementsAre(0, 2, 3, 4, 5));
    options.cycle_cpu = ParsePlaceChoice("--cycle-cpu", "1");
    plan = Plan(2, Plain(8), options);
    EXPECT_EQ(plan.cycle.cpu, 1) << "beside a worker: one waits while the other works";
    EXPECT_THAT(plan.rest, ElementsAre(0, 2, 3, 4, 5, 7));
}

TEST(PlacementTest, ACycleCpuThatIsGivenIsNotAWorkersCpu)
{
    PlacementOptions options;
    options.cycle_cpu = ParsePlaceChoice("--cycle-cpu", "7");
    EXPECT_THAT(CpusOf(Plan(2, Plain(8), options)), ElementsAre(6, 5));
    EXPECT_THAT(CpusOf(Plan(8, Plain(8), options)), Each(-1));
}

TEST(PlacementTest, PrioritiesFollowTheWorkersAndAreOrdinaryWithoutPacing)
{
    PlacementOptions options;
    options.priority = 7;
    EXPECT_EQ(Plan(1, Plain(4), options).cycle.priority, 17);
    options.cycle_priority = 3;
    EXPECT_EQ(Plan(1, Plain(4), options).cycle.priority, 3);
    options = {};
    options.priority = 0;
    EXPECT_EQ(Plan(1, Plain(4), options).cycle.priority, 0);
    const PlacementPlan unpaced = PlanPlacement({}, {1, "--flat-out"}, Plain(4));
    EXPECT_EQ(unpaced.workers[0].priority, 0);
    EXPECT_EQ(unpaced.cycle.priority, 0);
}

TEST(PlacementTest, WhatThisMachineDoesNotHaveIsRefusedInTheNameOfTheOption)
{
    EXPECT_EQ(Refusal(WithCpus("1,9")), "--cpus: expected CPUs on which this process may run (0-7) but got 9");
    PlacementOptions options;
    options.cycle_cpu = ParsePlaceChoice("night.toml:3:9: cycle_cpu", "8");
    EXPECT_EQ(Refusal(options),
              "night.toml:3:9: cycle_cpu: expected CPUs on which this process may run (0-7) but got 8");
    options = {};
    options.numa_node = ParsePlaceChoice("--numa-node", "1");
    EXPECT_EQ(Refusal(options), "--numa-node: expected a node of this machine (0) but got 1");
}

TEST(PlacementTest, WhatCannotBeIsRefusedOnAnyMachine)
{
    EXPECT_EQ(Refusal(WithCpus("1,2,3")), "--cpus: expected 2 CPUs, one per worker, but got 3 (1,2,3)");
    EXPECT_EQ(Refusal(WithCpus("1,1")), "--cpus: expected one worker per CPU but got 1 twice");
    PlacementOptions options;
    options.cycle_cpu = ParsePlaceChoice("--cycle-cpu", "1,2");
    EXPECT_EQ(Refusal(options), "--cycle-cpu: expected auto, none or one number but got 1,2");
    options = {};
    options.numa_node = ParsePlaceChoice("--numa-node", "0-1");
    EXPECT_EQ(Refusal(options), "--numa-node: expected auto, none or one number but got 0,1");
    options = {};
    options.priority = 90;
    EXPECT_EQ(Refusal(options), "--priority: expected 0 to 89 but got 90");
    options = {};
    options.cycle_priority = -1;
    EXPECT_EQ(Refusal(options), "--cycle-priority: expected 0 to 99 but got -1");
    options.cycle_priority = 5;
    EXPECT_EQ(test::ThrownLine<InputError>([&] {
                  PlanPlacement(options, {1, "--flat-out"}, Plain(4));
              }),
              "--cycle-priority: expected 0 with --flat-out but got 5; what never sleeps would let nothing else run");
}

TEST(PlacementTest, TextsOfChoicesAreReadAndWrittenAlike)
{
    for (const char* text : {"auto", "none", "3", "2,3", "7,0,5"}) {
        EXPECT_EQ(FormatPlaceChoice(ParsePlaceChoice("--cpus", text)), text);
    }
    EXPECT_THAT(ParsePlaceChoice("--cpus", "9,4-6").numbers, ElementsAre(9, 4, 5, 6));
    for (const char* text : {"", "all", "-1", "1,", ",1", "1;2", "3-1", "1-", "1.5", "99999999999", "auto,1"}) {
        EXPECT_THAT(test::ThrownLine<InputError>([text] { ParsePlaceChoice("--cpus", text); }),
                    HasSubstr("--cpus: expected auto, none or numbers such as 3 or 2,3 or 4-7 but got '"))
            << text;
    }
}

}  // namespace
}  // namespace lumo::ravelctl
