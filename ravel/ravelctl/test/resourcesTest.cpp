#include "error.hpp"
#include "resources.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"
#include "support/thrown.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>

#include <limits>

namespace lumo::ravelctl {
namespace {

using test::ThrownLine;
using testing::HasSubstr;

constexpr std::uint64_t TOO_MUCH = std::numeric_limits<std::uint64_t>::max() / 2;

void Prepare(const std::filesystem::path& folder, std::uint64_t needed_bytes)
{
    PrepareOutputFolder(folder, needed_bytes, "the figures", "measure less");
}

TEST(ResourcesTest, PrepareOutputFolderMakesTheFolderAndItsParentsAndLeavesNothingElse)
{
    const test::TestFolder folder;
    const std::filesystem::path output = folder / "a" / "b";
    Prepare(output, 1000);
    EXPECT_TRUE(std::filesystem::is_directory(output));
    EXPECT_TRUE(std::filesystem::is_empty(output));
}

TEST(ResourcesTest, WhatAKilledProcessLeftUnfinishedGoesFromTheOutputFolder)
{
    const test::TestFolder folder;
    std::filesystem::create_directory(folder / ".ravelctl-abcdef");
    test::WriteBytes(folder / ".ravelctl-abcdef" / "half", "x");
    Prepare(folder.GetPath(), 1);
    EXPECT_EQ(folder.CountEntries(), 0U);
}

TEST(ResourcesTest, AFolderThatCannotBeMadeIsRefused)
{
    const test::TestFolder folder;
    test::WriteBytes(folder / "file", "x");
    for (const std::filesystem::path& output :
         {folder / "file", folder / "file" / "below", std::filesystem::path("/proc/ravelctl-test")}) {
        const std::string line = ThrownLine<InputError>([&] { Prepare(output, 1); });
        EXPECT_THAT(line, HasSubstr("--output: cannot make the folder " + output.string()));
        EXPECT_THAT(line, HasSubstr("choose another"));
    }
}

TEST(ResourcesTest, AFolderIntoWhichNothingCanBeWrittenIsRefused)
{
    // Not even root makes files there.
    const std::string line = ThrownLine<InputError>([] { Prepare("/proc/self", 0); });
    EXPECT_THAT(line, HasSubstr("--output"));
    EXPECT_THAT(line, HasSubstr("/proc/self"));
}

TEST(ResourcesTest, AFolderThatHoldsSomethingElseIsRefused)
{
    const test::TestFolder folder;
    EXPECT_NO_THROW(RefuseFolderOf("a qualification", "qualify.json", folder.GetPath()));
    test::WriteBytes(folder / "qualify.json", "{}");
    const std::string line =
        ThrownLine<InputError>([&] { RefuseFolderOf("a qualification", "qualify.json", folder.GetPath()); });
    EXPECT_THAT(line, HasSubstr(folder.GetPath().string() + " holds a qualification (qualify.json); choose another"));
}

TEST(ResourcesTest, ADiskThatIsTooFullIsRefusedWithBothFigures)
{
    const test::TestFolder folder;
    const std::string line = ThrownLine<InputError>([&] { Prepare(folder.GetPath(), TOO_MUCH); });
    EXPECT_THAT(line, testing::StartsWith("--output: the figures need " + FormatBytes(TOO_MUCH) + " but " +
                                          folder.GetPath().string() + " has "));
    EXPECT_THAT(line, testing::EndsWith(" free; free some space, or measure less"));
}

TEST(ResourcesTest, MoreMemoryThanThereIsIsRefusedWithBothFigures)
{
    ASSERT_GT(AvailableMemory(), 0U);
    EXPECT_NO_THROW(CheckMemory(1, "recordings", "record less"));
    const std::string line = ThrownLine<InputError>([] { CheckMemory(TOO_MUCH, "recordings", "record less"); });
    EXPECT_THAT(line, HasSubstr("recordings need " + FormatBytes(TOO_MUCH)));
    EXPECT_THAT(line, HasSubstr(" to spare; record less"));
}

TEST(ResourcesTest, AllowedCpusAreThoseOfThisProcessAscending)
{
    const std::vector<int> cpus = AllowedCpus();
    cpu_set_t set;
    ASSERT_EQ(sched_getaffinity(0, sizeof(set), &set), 0);
    ASSERT_EQ(static_cast<int>(cpus.size()), CPU_COUNT(&set));
    EXPECT_TRUE(std::is_sorted(cpus.begin(), cpus.end()));
    for (const int cpu : cpus) {
        EXPECT_TRUE(CPU_ISSET(static_cast<std::size_t>(cpu), &set)) << cpu;
    }
}

TEST(ResourcesTest, BytesAreWrittenInPowersOfAThousand)
{
    EXPECT_EQ(FormatBytes(0), "0 B");
    EXPECT_EQ(FormatBytes(999), "999 B");
    EXPECT_EQ(FormatBytes(1000), "1.0 kB");
    EXPECT_EQ(FormatBytes(12'345'678), "12.3 MB");
    EXPECT_EQ(FormatBytes(5'000'000'000'000'000), "5000.0 TB");
}

}  // namespace
}  // namespace lumo::ravelctl
