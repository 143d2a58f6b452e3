#include "statusLine.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <sstream>

namespace lumo::ravelctl {
namespace {

using testing::HasSubstr;

LoopPlan MakePlan()
{
    LoopPlan plan;
    plan.cycles = 10000;
    plan.rate_hz = 500.0;
    return plan;
}

void Fill(LoopProgress& progress)
{
    progress.cycles_done = 2500;
    progress.missed = 3;
    progress.cycle_time_us = 512.4;
    progress.max_cycle_time_us = 901.6;
    progress.residual_nm = 15.62;
    progress.closed = true;
}

TEST(StatusLineTest, TheLineTellsProgressTimesMissesAndResidual)
{
    LoopProgress progress;
    Fill(progress);
    const std::string line = StatusLine::Format(progress, MakePlan());
    EXPECT_THAT(line, HasSubstr("5.0 of 20.0 s"));
    EXPECT_THAT(line, HasSubstr("loop closed"));
    EXPECT_THAT(line, HasSubstr("512 us (max 902)"));
    EXPECT_THAT(line, HasSubstr("missed 3"));
    EXPECT_THAT(line, HasSubstr("15.6 nm"));
    progress.closed = false;
    EXPECT_THAT(StatusLine::Format(progress, MakePlan()), HasSubstr("loop open"));
}

TEST(StatusLineTest, OnATerminalItRefreshesInPlaceAndEndsWithANewLine)
{
    LoopProgress progress;
    Fill(progress);
    std::ostringstream out;
    StatusLine sut(StatusLine::Style::Refresh, MakePlan(), out);
    sut.Update(progress);
    sut.Update(progress);
    EXPECT_EQ(out.str().find('\n'), std::string::npos);
    sut.Finish(progress);
    const std::string once = "\r" + StatusLine::Format(progress, MakePlan()) + "\x1b[K";
    EXPECT_EQ(out.str(), once + once + once + "\n");
}

TEST(StatusLineTest, ElsewhereItIsPlainLinesAndTheFinalOneIsAlwaysThere)
{
    LoopProgress progress;
    Fill(progress);
    std::ostringstream out;
    StatusLine sut(StatusLine::Style::Plain, MakePlan(), out);
    sut.Finish(progress);
    EXPECT_EQ(out.str(), StatusLine::Format(progress, MakePlan()) + "\n");
}

TEST(StatusLineTest, APlainLineIsNotSaidTwice)
{
    LoopProgress progress;
    std::ostringstream out;
    StatusLine sut(StatusLine::Style::Plain, MakePlan(), out);
    sut.Finish(progress);
    const std::string once = out.str();
    sut.Finish(progress);
    EXPECT_EQ(out.str(), once);
    progress.missed.store(1);
    sut.Finish(progress);
    EXPECT_GT(out.str().size(), once.size());
}

TEST(StatusLineTest, OnATerminalANoteTakesTheLinesPlaceAndStaysAboveIt)
{
    LoopProgress progress;
    Fill(progress);
    std::ostringstream out;
    StatusLine sut(StatusLine::Style::Refresh, MakePlan(), out);
    sut.Update(progress);
    sut.Note("gains changed");
    sut.Update(progress);
    const std::string line = "\r" + StatusLine::Format(progress, MakePlan()) + "\x1b[K";
    EXPECT_EQ(out.str(), line + "\rgains changed\x1b[K\n" + line);
}

TEST(StatusLineTest, ElsewhereANoteIsAPlainLine)
{
    LoopProgress progress;
    Fill(progress);
    std::ostringstream out;
    StatusLine sut(StatusLine::Style::Plain, MakePlan(), out);
    sut.Note("gains changed");
    sut.Note("saved");
    sut.Finish(progress);
    EXPECT_EQ(out.str(), "gains changed\nsaved\n" + StatusLine::Format(progress, MakePlan()) + "\n");
}

TEST(StatusLineTest, QuietPrintsNothing)
{
    const LoopProgress progress;
    std::ostringstream out;
    StatusLine sut(StatusLine::Style::Quiet, MakePlan(), out);
    sut.Update(progress);
    sut.Finish(progress);
    EXPECT_EQ(out.str(), "");
}

TEST(StatusLineTest, TheStyleFollowsWhatTheOutputIs)
{
    setenv("TERM", "xterm", 1);
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    const int file = open("/dev/null", O_WRONLY);
    ASSERT_GE(terminal, 0);
    EXPECT_EQ(StatusLine::StyleFor(false, terminal), StatusLine::Style::Refresh);
    EXPECT_EQ(StatusLine::StyleFor(false, file), StatusLine::Style::Plain);
    EXPECT_EQ(StatusLine::StyleFor(true, terminal), StatusLine::Style::Quiet);
    setenv("TERM", "dumb", 1);
    EXPECT_EQ(StatusLine::StyleFor(false, terminal), StatusLine::Style::Plain) << "it cannot go back in a line";
    close(terminal);
    close(file);
}

}  // namespace
}  // namespace lumo::ravelctl
