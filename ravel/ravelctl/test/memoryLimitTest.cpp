#include "memoryLimit.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"

#include <gtest/gtest.h>

#include <string>

namespace lumo::ravelctl {
namespace {

class MemoryLimitTest : public testing::Test
{
protected:
    void Write(const std::filesystem::path& file, const std::string& text)
    {
        std::filesystem::create_directories((m_root / file).parent_path());
        test::WriteBytes(m_root / file, text);
    }

    void WriteGroup(const std::filesystem::path& group, const std::string& limit, const std::string& used)
    {
        Write(group / "memory.max", limit + "\n");
        Write(group / "memory.current", used + "\n");
    }

    std::optional<std::uint64_t> Left() const { return MemoryLeftByGroups(m_root.GetPath()); }

    const test::TestFolder m_root;
};

const std::filesystem::path V2 = "sys/fs/cgroup";
const std::filesystem::path V1 = "sys/fs/cgroup/memory";

TEST_F(MemoryLimitTest, WhereNothingIsSaidThereIsNoLimit)
{
    EXPECT_EQ(Left(), std::nullopt);
    Write("proc/self/cgroup", "0::/service\nnonsense\n");
    EXPECT_EQ(Left(), std::nullopt);
    WriteGroup(V2 / "service", "max", "1000");
    EXPECT_EQ(Left(), std::nullopt);
}

TEST_F(MemoryLimitTest, AGroupLeavesItsLimitLessWhatItHolds)
{
    Write("proc/self/cgroup", "0::/service\n");
    WriteGroup(V2 / "service", "5000", "2000");
    EXPECT_EQ(Left(), 3000U);
}

TEST_F(MemoryLimitTest, PagesOfFilesThatCanBeDroppedAreNotHeld)
{
    Write("proc/self/cgroup", "0::/service\n");
    WriteGroup(V2 / "service", "5000", "2000");
    Write(V2 / "service/memory.stat", "anon 400\ninactive_file 1500\nactive_file 100\n");
    EXPECT_EQ(Left(), 4500U);
}

TEST_F(MemoryLimitTest, TheTightestGroupAboveCounts)
{
    Write("proc/self/cgroup", "0::/slice/service/part\n");
    WriteGroup(V2 / "slice", "4000", "3900");
    WriteGroup(V2 / "slice/service", "max", "300");
    WriteGroup(V2 / "slice/service/part", "5000", "200");
    EXPECT_EQ(Left(), 100U);
}

TEST_F(MemoryLimitTest, AGroupThatHoldsMoreThanItsLimitLeavesNothing)
{
    Write("proc/self/cgroup", "0::/service\n");
    WriteGroup(V2 / "service", "1000", "2000");
    EXPECT_EQ(Left(), 0U);
}

TEST_F(MemoryLimitTest, InAContainerTheMountIsTheGroup)
{
    Write("proc/self/cgroup", "0::/host/path/that/is/not/here\n");
    WriteGroup(V2, "5000", "1000");
    EXPECT_EQ(Left(), 4000U);
}

TEST_F(MemoryLimitTest, TheFirstVersionsFilesAreReadWhereMemoryIsAmongTheControllers)
{
    Write("proc/self/cgroup", "5:cpu,cpuacct:/other\n4:hugetlb,memory:/box\n");
    Write(V1 / "box/memory.limit_in_bytes", "8000\n");
    Write(V1 / "box/memory.usage_in_bytes", "3000\n");
    Write(V1 / "box/memory.stat", "inactive_file 1\ntotal_inactive_file 1000\n");
    Write(V1 / "other/memory.limit_in_bytes", "1\n");
    Write(V1 / "other/memory.usage_in_bytes", "1\n");
    EXPECT_EQ(Left(), 6000U);
}

TEST_F(MemoryLimitTest, TheFirstVersionsLargestNumberIsNoLimit)
{
    Write("proc/self/cgroup", "4:memory:/box\n");
    Write(V1 / "box/memory.limit_in_bytes", "9223372036854771712\n");
    Write(V1 / "box/memory.usage_in_bytes", "3000\n");
    EXPECT_EQ(Left(), std::nullopt);
}

}  // namespace
}  // namespace lumo::ravelctl
