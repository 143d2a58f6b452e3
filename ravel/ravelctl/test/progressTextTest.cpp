#include "progressText.hpp"

#include <gtest/gtest.h>

#include <sstream>

namespace lumo::ravelctl {
namespace {

using std::chrono::milliseconds;

/// What is printed for a text that is offered every half second for `half_seconds`.
std::string Print(StatusLine::Style style, int half_seconds)
{
    std::ostringstream out;
    const ProgressText::Clock::time_point begin{};
    ProgressText sut(style, out, begin);
    for (int i = 0; i <= half_seconds; ++i) {
        sut.Update(std::to_string(i), begin + milliseconds(500) * i);
    }
    sut.Finish();
    return out.str();
}

TEST(ProgressTextTest, WhatIsOverWithinTwoSecondsShowsNothing)
{
    EXPECT_EQ(Print(StatusLine::Style::Plain, 3), "");
    EXPECT_EQ(Print(StatusLine::Style::Refresh, 3), "");
}

TEST(ProgressTextTest, WithoutATerminalThereIsALineEveryTwoSeconds)
{
    EXPECT_EQ(Print(StatusLine::Style::Plain, 13), "4\n8\n12\n");
}

TEST(ProgressTextTest, OnATerminalTheLineRefreshesAndIsEnded)
{
    EXPECT_EQ(Print(StatusLine::Style::Refresh, 6), "\r4\x1b[K\r5\x1b[K\r6\x1b[K\n");
}

TEST(ProgressTextTest, QuietShowsNothing)
{
    EXPECT_EQ(Print(StatusLine::Style::Quiet, 20), "");
}

}  // namespace
}  // namespace lumo::ravelctl
