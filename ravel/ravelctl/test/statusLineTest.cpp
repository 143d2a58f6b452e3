#include "statusLine.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/ioctl.h>
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

TEST(StatusLineTest, OnEightyColumnsEveryFigureIsThereInFewerWords)
{
    LoopProgress progress;
    Fill(progress);
    EXPECT_EQ(StatusLine::FormatFor(80, progress, MakePlan()),
              "5.0/20.0 s  closed  cycle 512/902 us  missed 3  residual 15.6 nm");
    progress.closed = false;
    EXPECT_THAT(StatusLine::FormatFor(80, progress, MakePlan()), HasSubstr("20.0 s  open  cycle"));
}

TEST(StatusLineTest, OnEightyColumnsEveryFigureOfANightIsThere)
{
    LoopPlan night = MakePlan();
    night.cycles = 20'000'000;
    LoopProgress progress;
    progress.cycles_done = 19'999'999;
    progress.missed = 1234;
    progress.cycle_time_us = 1234.0;
    progress.max_cycle_time_us = 54321.0;
    progress.residual_nm = 123.4;
    progress.closed = true;
    const std::string line = StatusLine::FormatFor(80, progress, night);
    EXPECT_EQ(line, "40000.0/40000.0 s  closed  cycle 1234/54321 us  missed 1234  residual 123.4 nm");
    EXPECT_LE(line.size(), 79U);
}

TEST(StatusLineTest, WhereItFitsTheLineHasAllItsWords)
{
    LoopProgress progress;
    Fill(progress);
    const std::string full = StatusLine::Format(progress, MakePlan());
    const int length = static_cast<int>(full.size());
    EXPECT_EQ(StatusLine::FormatFor(length + 1, progress, MakePlan()), full);
    EXPECT_NE(StatusLine::FormatFor(length, progress, MakePlan()), full) << "the last column stays free";
}

TEST(StatusLineTest, OnFewerColumnsTheLineIsCut)
{
    LoopProgress progress;
    Fill(progress);
    const std::string brief = StatusLine::FormatFor(80, progress, MakePlan());
    for (const int columns : {40, 2, 1}) {
        EXPECT_EQ(StatusLine::FormatFor(columns, progress, MakePlan()),
                  brief.substr(0, static_cast<std::size_t>(columns - 1)));
    }
}

TEST(StatusLineTest, ALineThatRefreshesFollowsTheSizeOfItsTerminal)
{
    LoopProgress progress;
    Fill(progress);
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    std::ostringstream out;
    StatusLine sut(StatusLine::Style::Refresh, MakePlan(), out, terminal);
    std::string expected;
    for (const int columns : {80, 200, 40}) {
        winsize size{};
        size.ws_col = static_cast<unsigned short>(columns);
        ASSERT_EQ(ioctl(terminal, TIOCSWINSZ, &size), 0);
        sut.Update(progress);
        expected += "\r" + StatusLine::FormatFor(columns, progress, MakePlan()) + "\x1b[K";
    }
    EXPECT_EQ(out.str(), expected);
    close(terminal);
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
