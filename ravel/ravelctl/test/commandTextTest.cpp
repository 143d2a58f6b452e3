#include "commandText.hpp"
#include "support/childProcess.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lumo::ravelctl {
namespace {

using testing::ElementsAre;

TEST(CommandTextTest, WhatFitsIsOneLine)
{
    EXPECT_THAT(WrapCommand("df -h  # and look", 17), ElementsAre("df -h  # and look"));
}

TEST(CommandTextTest, LinesEndWhereTheShellWaitsForMore)
{
    EXPECT_THAT(WrapCommand("echo fast | sudo tee /sys/file && sudo reboot", 30),
                ElementsAre("echo fast |", "sudo tee /sys/file &&", "sudo reboot"));
}

TEST(CommandTextTest, ALineThatTheShellWouldTakeForWholeEndsInABackslash)
{
    EXPECT_THAT(WrapCommand("one two three four", 11), ElementsAre("one two \\", "three four"));
    EXPECT_THAT(WrapCommand("one two three four", 10), ElementsAre("one two \\", "three four"));
    EXPECT_THAT(WrapCommand("one two three four", 8), ElementsAre("one \\", "two \\", "three \\", "four"));
}

TEST(CommandTextTest, WhatIsQuotedStaysTogetherHoweverLong)
{
    EXPECT_THAT(WrapCommand("sed -i 's/^A=\"/& b /' file", 10), ElementsAre("sed -i \\", "'s/^A=\"/& b /' \\", "file"));
    EXPECT_THAT(WrapCommand("echo \"it's a b\" | cat", 12), ElementsAre("echo \\", "\"it's a b\" |", "cat"));
}

TEST(CommandTextTest, ACommentHasItsMarkInEachLine)
{
    EXPECT_THAT(WrapCommand("top | head  # and look", 16), ElementsAre("top |", "head  # and look"));
    EXPECT_THAT(WrapCommand("df -h  # and choose a place's name", 16),
                ElementsAre("df -h", "# and choose a", "# place's name"));
}

TEST(CommandTextTest, TheShellReadsTheSameCommandFromTheLines)
{
    const std::string command = "echo one 'two  #  three' \"four five\" && echo six seven | tr a-z A-Z  # and no more";
    const std::string output = "one two  #  three four five\nSIX SEVEN\n";
    for (std::size_t width = 3; width < 90; ++width) {
        std::string script;
        for (const std::string& line : WrapCommand(command, width)) {
            script += line + "\n";
        }
        EXPECT_EQ(test::RunChild({"/bin/sh", "-c", script}).out, output) << width << ": " << script;
    }
}

}  // namespace
}  // namespace lumo::ravelctl
