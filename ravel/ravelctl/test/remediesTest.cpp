#include "remedies.hpp"
#include "support/childProcess.hpp"
#include "support/testFolder.hpp"
#include "support/textFile.hpp"

#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

/// Gives the command that changes the kernel's arguments to the shell, for a file of ours, and does not restart.
std::string Apply(const std::string& arguments, const test::TestFolder& folder)
{
    const std::string file = (folder / "grub").string();
    const std::string script =
        "sudo() { case $1 in sed) command \"$@\" ;; esac; }\n" + remedies::KernelArguments(arguments);
    std::string ours = script;
    const std::string theirs = "/etc/default/grub";
    for (std::size_t at = ours.find(theirs); at != std::string::npos; at = ours.find(theirs)) {
        ours.replace(at, theirs.size(), file);
    }
    EXPECT_EQ(test::RunChild({"/bin/sh", "-c", ours}).status, 0) << ours;
    return test::ReadBytes(file);
}

TEST(RemediesTest, TheKernelsArgumentsStandInItsLineOnceHoweverOftenTheCommandIsGiven)
{
    const test::TestFolder folder;
    test::WriteBytes(folder / "grub", "GRUB_TIMEOUT=5\nGRUB_CMDLINE_LINUX=\"\"\n");
    const std::string once = Apply("isolcpus=2,3 nohz_full=2,3", folder);
    EXPECT_EQ(once, "GRUB_TIMEOUT=5\nGRUB_CMDLINE_LINUX=\"isolcpus=2,3 nohz_full=2,3 \"\n");
    EXPECT_EQ(Apply("isolcpus=2,3 nohz_full=2,3", folder), once);
}

TEST(RemediesTest, TheKernelsArgumentsReplaceEarlierOnesAndNoOthers)
{
    const test::TestFolder folder;
    test::WriteBytes(folder / "grub",
                     "GRUB_CMDLINE_LINUX_DEFAULT=\"quiet isolcpus=7\"\n"
                     "GRUB_CMDLINE_LINUX=\"splash isolcpus=1 mem=4G nohz_full=5\"\n");
    EXPECT_EQ(Apply("isolcpus=2-3", folder),
              "GRUB_CMDLINE_LINUX_DEFAULT=\"quiet \"\n"
              "GRUB_CMDLINE_LINUX=\"isolcpus=2-3 splash mem=4G nohz_full=5\"\n");
}

}  // namespace
}  // namespace lumo::ravelctl
