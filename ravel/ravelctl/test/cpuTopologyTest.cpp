#include "cpuTopology.hpp"
#include "resources.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;

/// A file of a made-up machine.
void Write(const test::TestFolder& root, const std::string& name, const std::string& text)
{
    std::filesystem::create_directories((root / name).parent_path());
    test::WriteBytes(root / name, text);
}

TEST(CpuTopologyTest, SiblingsIsolatedCpusAndNodesAreRead)
{
    const test::TestFolder root;
    Write(root, "sys/devices/system/cpu/isolated", "2-3,6\n");
    for (const int cpu : {0, 1, 2, 3}) {
        const std::string siblings = std::to_string(cpu % 2) + "," + std::to_string(cpu % 2 + 2) + "\n";
        Write(root, "sys/devices/system/cpu/cpu" + std::to_string(cpu) + "/topology/thread_siblings_list", siblings);
    }
    Write(root, "sys/devices/system/node/online", "0-1\n");
    Write(root, "sys/devices/system/node/node0/cpulist", "0,2\n");
    Write(root, "sys/devices/system/node/node1/cpulist", "1,3\n");
    const CpuTopology topology = ReadCpuTopology(root.GetPath(), {0, 1, 2, 3});
    EXPECT_THAT(topology.usable, ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(topology.isolated, ElementsAre(2, 3)) << "6 is not usable";
    EXPECT_EQ(topology.CoreOf(2), 0);
    EXPECT_EQ(topology.CoreOf(3), 1);
    EXPECT_THAT(topology.nodes, ElementsAre(0, 1));
    EXPECT_EQ(topology.NodeOf(2), 0);
    EXPECT_EQ(topology.NodeOf(3), 1);
    EXPECT_TRUE(topology.IsIsolated(3) && !topology.IsIsolated(1));
    EXPECT_TRUE(topology.IsUsable(1) && !topology.IsUsable(6));
}

TEST(CpuTopologyTest, AKernelThatTellsNothingHasCoresOfOneCpuOnNodeZero)
{
    const test::TestFolder root;
    const CpuTopology topology = ReadCpuTopology(root.GetPath(), {4, 5});
    EXPECT_THAT(topology.isolated, IsEmpty());
    EXPECT_EQ(topology.CoreOf(5), 5);
    EXPECT_EQ(topology.NodeOf(5), 0);
    EXPECT_THAT(topology.nodes, ElementsAre(0));
}

TEST(CpuTopologyTest, OnThisMachineWhatIsAllowedIsUsable)
{
    const std::vector<int> before = AllowedCpus();
    const CpuTopology topology = FindCpuTopology();
    EXPECT_THAT(topology.usable, IsSupersetOf(before));
    EXPECT_FALSE(topology.nodes.empty());
    EXPECT_EQ(AllowedCpus(), before) << "the caller stays where it was";
}

}  // namespace
}  // namespace lumo::ravelctl
