#include "doctor.hpp"
#include "reportText.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

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
                    Pair("memory", "8.0 GB, 6.0 GB available"), Pair("huge pages", "transparent: madvise, 16 reserved"),
                    Pair("NUMA nodes", "2"), Pair("clock", "tsc"), Pair("linear algebra", "some library")));
}

TEST(ReportTextTest, OfWhatTheMachineDoesNotTellOnlyWhatMattersIsNamed)
{
    const ParameterGroup sut = DescribeMachine({}, "some library");
    EXPECT_THAT(sut.rows,
                ElementsAre(Pair("isolated CPUs", "the system does not tell"),
                            Pair("frequency governor", "none; the frequency is fixed, or the host's affair"),
                            Pair("huge pages", "no transparent ones, 0 reserved"),
                            Pair("NUMA nodes", "the kernel knows none"), Pair("linear algebra", "some library")));
    MachineFacts facts;
    facts.cpus_isolated = "";
    EXPECT_EQ(DescribeMachine(facts, "").rows.at(0), std::make_pair(std::string("isolated CPUs"), std::string("none")));
}

TEST(ReportTextTest, ThePageSaysOfTheMachineWhatTheDoctorSays)
{
    MachineFacts facts;
    facts.numa_nodes = "0";
    facts.transparent_huge_pages = "always";
    facts.huge_pages = 4;
    for (const std::vector<std::string>& governors : {std::vector<std::string>(), {"powersave", "schedutil"}}) {
        facts.governors = governors;
        const ParameterGroup page = DescribeMachine(facts, "some library");
        std::set<std::string> compared;
        for (const Finding& finding : Examine(facts)) {
            for (const auto& [name, value] : page.rows) {
                if (name == finding.name && name != "isolated CPUs") {
                    EXPECT_EQ(value, finding.value) << name;
                    compared.insert(name);
                }
            }
        }
        EXPECT_EQ(compared, (std::set<std::string>{"NUMA nodes", "frequency governor", "huge pages"}));
    }
}

}  // namespace
}  // namespace lumo::ravelctl
