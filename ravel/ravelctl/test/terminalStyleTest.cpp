#include "terminalStyle.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace lumo::ravelctl {
namespace {

TEST(TerminalStyleTest, ATerminalRefreshesAndHasColours)
{
    const TerminalStyle style = DecideTerminalStyle(true, "xterm", "");
    EXPECT_TRUE(style.is_terminal && style.refreshes && style.colours);
}

TEST(TerminalStyleTest, AnythingInNoColorTakesTheColoursAndNothingElse)
{
    for (const char* value : {"1", "0", "false"}) {
        const TerminalStyle style = DecideTerminalStyle(true, "xterm", value);
        EXPECT_TRUE(style.refreshes) << value;
        EXPECT_FALSE(style.colours) << value;
    }
}

TEST(TerminalStyleTest, ATerminalOfNoKnownKindGetsNoEscapeSequence)
{
    for (const char* term : {"dumb", ""}) {
        const TerminalStyle style = DecideTerminalStyle(true, term, "");
        EXPECT_TRUE(style.is_terminal);
        EXPECT_FALSE(style.refreshes || style.colours) << term;
    }
}

TEST(TerminalStyleTest, WhatIsNoTerminalIsPlain)
{
    const TerminalStyle style = DecideTerminalStyle(false, "xterm", "");
    EXPECT_FALSE(style.is_terminal || style.refreshes || style.colours);
}

TEST(TerminalStyleTest, APaletteColoursOnlyWhereThereAreColours)
{
    const Palette coloured(DecideTerminalStyle(true, "xterm", ""));
    EXPECT_EQ(coloured.Good("held"), "\x1b[32mheld\x1b[0m");
    EXPECT_EQ(coloured.Doubtful("interrupted"), "\x1b[33minterrupted\x1b[0m");
    EXPECT_EQ(coloured.Bad("failed"), "\x1b[31mfailed\x1b[0m");
    const Palette plain(DecideTerminalStyle(true, "xterm", "1"));
    EXPECT_EQ(plain.Good("held") + plain.Doubtful("interrupted") + plain.Bad("failed"), "heldinterruptedfailed");
    EXPECT_EQ(Palette().Good("held"), "held");
}

TEST(TerminalWidthTest, IsThatOfATerminalThatSaysOneAndOfNothingElse)
{
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    EXPECT_EQ(FindTerminalWidth(terminal), std::nullopt) << "a new one does not say";
    winsize size{};
    size.ws_col = 132;
    ASSERT_EQ(ioctl(terminal, TIOCSWINSZ, &size), 0);
    EXPECT_EQ(FindTerminalWidth(terminal), 132);
    const int file = open("/dev/null", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(FindTerminalWidth(file), std::nullopt);
    EXPECT_EQ(FindTerminalWidth(-1), std::nullopt);
    close(file);
    close(terminal);
}

}  // namespace
}  // namespace lumo::ravelctl
