#include "reportText.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

using testing::ElementsAre;
using testing::Pair;

TEST(ReportTextTest, TheMachineIsDescribedByWhatItsFilesTell)
{
    MachineFacts facts;
    facts.cpu_model = "Some CPU";
    facts.cpus_allowed = "0-1";
    facts.cpus_online = "0-3";
    facts.cpus_isolated = "2-3";
    facts.governors = {"performance", "schedutil"};
    facts.kernel_release = "6.1.0-13-rt-amd64";
    facts.kernel_version = "#1 SMP PREEMPT_RT Debian 6.1.55-1";
    facts.memory_bytes = 8'000'000'000;
    facts.memory_available_bytes = 6'000'000'000;
    facts.huge_pages = 16;
    facts.transparent_huge_pages = "madvise";
    facts.numa_nodes = "0-1";
    facts.clock_source = "tsc";
    const ParameterGroup sut = DescribeMachine(facts, "some library");
    EXPECT_EQ(sut.title, "Machine");
    EXPECT_THAT(
        sut.rows,
        ElementsAre(Pair("processor", "Some CPU"), Pair("usable CPUs", "0-1 of 0-3 online"),
                    Pair("isolated CPUs", "2-3"), Pair("frequency governor", "performance, schedutil"),
                    Pair("kernel", "Linux 6.1.0-13-rt-amd64, #1 SMP PREEMPT_RT Debian 6.1.55-1"),
                    Pair("memory", "8.0 GB, 6.0 GB available"), Pair("huge pages", "16 reserved, transparent: madvise"),
                    Pair("NUMA nodes", "0-1"), Pair("clock", "tsc"), Pair("linear algebra", "some library")));
}

TEST(ReportTextTest, OfWhatTheMachineDoesNotTellOnlyWhatMattersIsNamed)
{
    const ParameterGroup sut = DescribeMachine({}, "some library");
    EXPECT_THAT(sut.rows, ElementsAre(Pair("isolated CPUs", "the system does not tell"),
                                      Pair("frequency governor", "the system does not tell"),
                                      Pair("linear algebra", "some library")));
    MachineFacts facts;
    facts.cpus_isolated = "";
    EXPECT_EQ(DescribeMachine(facts, "").rows.at(0), std::make_pair(std::string("isolated CPUs"), std::string("none")));
}

}  // namespace
}  // namespace lumo::ravelctl
