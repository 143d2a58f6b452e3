#include "error.hpp"
#include "modeList.hpp"
#include "support/thrown.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

namespace lumo::ravelctl {
namespace {

using test::ThrownLine;
using testing::ElementsAre;

constexpr int NUM_MODES = 600;

std::string Refusal(const std::string& text, int num_modes = NUM_MODES)
{
    return ThrownLine<InputError>([&] { ParseModeList(text, num_modes); });
}

TEST(ModeListTest, ModesAndRangesAreReadFromTheFirstToTheLast)
{
    EXPECT_THAT(ParseModeList("5", NUM_MODES), ElementsAre(5));
    EXPECT_THAT(ParseModeList("0,3,10-13", NUM_MODES), ElementsAre(0, 3, 10, 11, 12, 13));
    EXPECT_THAT(ParseModeList("7-7", NUM_MODES), ElementsAre(7));
    EXPECT_THAT(ParseModeList("599", NUM_MODES), ElementsAre(599));
    EXPECT_THAT(ParseModeList("0", 1), ElementsAre(0));
    std::vector<int> all(NUM_MODES);
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(ParseModeList("0-599", NUM_MODES), all);
}

TEST(ModeListTest, TheModesAreAscendingAndEachIsThereOnce)
{
    EXPECT_THAT(ParseModeList("9,2,4-6,5-7,2,0", NUM_MODES), ElementsAre(0, 2, 4, 5, 6, 7, 9));
}

TEST(ModeListTest, ModesThatTheRunDoesNotHaveAreRefused)
{
    EXPECT_EQ(Refusal("600"), "expected modes 0 to 599 but got 600");
    EXPECT_EQ(Refusal("3,0-600"), "expected modes 0 to 599 but got 600");
    EXPECT_EQ(Refusal("1", 1), "expected modes 0 to 0 but got 1");
    EXPECT_EQ(Refusal("99999999999999999999,1"), "expected modes 0 to 599 but got 99999999999999999999");
}

TEST(ModeListTest, ARangeThatEndsBeforeItBeginsIsRefused)
{
    EXPECT_EQ(Refusal("1,19-10"), "expected the smaller mode first but got 19-10");
}

TEST(ModeListTest, WhatIsNoListIsRefused)
{
    for (const std::string text : {"", ",", "5,", ",5", "5,,6", "-", "-1", "1-", "1--2", "1-2-3", "+1", "a", "5a",
                                   "1.5", "1;2", " 1", "1 ", "1, 2", "0x5"}) {
        EXPECT_EQ(Refusal(text), "expected a list of modes, such as 5 or 0,3,10-19, but got " + text);
    }
}

TEST(ModeListTest, WhatIsNoModeIsCalledByItsOwnName)
{
    const auto refusal = [](const char* text) {
        return test::ThrownLine<InputError>([text] { ParseModeList(text, 20, "column"); });
    };
    EXPECT_EQ(refusal("20"), "expected columns 0 to 19 but got 20");
    EXPECT_EQ(refusal("9-1"), "expected the smaller column first but got 9-1");
    EXPECT_EQ(refusal("x"), "expected a list of columns, such as 5 or 0,3,10-19, but got x");
}

TEST(ModeListTest, AListIsWrittenWithRangesForThreeAndMore)
{
    EXPECT_EQ(FormatModeList({0, 3, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19}), "0,3,10-19");
    EXPECT_EQ(FormatModeList({5}), "5");
    EXPECT_EQ(FormatModeList({5, 6}), "5,6");
    EXPECT_EQ(FormatModeList({5, 6, 7}), "5-7");
    EXPECT_EQ(FormatModeList({0, 1, 2, 4, 5, 6, 8}), "0-2,4-6,8");
    EXPECT_EQ(FormatModeList({}), "");
}

TEST(ModeListTest, WhatIsWrittenIsReadAsTheSameModes)
{
    for (unsigned pattern = 1; pattern < 256; ++pattern) {
        std::vector<int> modes;
        for (int mode = 0; mode < 8; ++mode) {
            if ((pattern >> static_cast<unsigned>(mode) & 1U) != 0) {
                modes.push_back(mode);
            }
        }
        EXPECT_EQ(ParseModeList(FormatModeList(modes), 8), modes) << FormatModeList(modes);
    }
}

}  // namespace
}  // namespace lumo::ravelctl
