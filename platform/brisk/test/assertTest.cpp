#include "logCapture.hpp"

#include <brisk/assert.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace brisk {

namespace {

std::vector<std::string> g_reports;

void Remember(const char* file, const char* function, int line)
{
    g_reports.push_back(std::string(file) + "|" + function + "|" + std::to_string(line));
}

void Throw(const char* /*file*/, const char* /*function*/, int /*line*/)
{
    throw std::logic_error("asserted");
}

class AssertTest : public testing::Test
{
protected:
    void SetUp() override { g_reports.clear(); }
    void TearDown() override { SetAssertHandler(nullptr); }
};

}  // namespace

TEST_F(AssertTest, FalseConditionCallsTheHandlerAndReturns)
{
    SetAssertHandler(&Remember);
    Assert(false, "mirror.cpp", "Find", 42);
    EXPECT_EQ(g_reports, std::vector<std::string>{"mirror.cpp|Find|42"});
}

TEST_F(AssertTest, TrueConditionDoesNotCallTheHandler)
{
    SetAssertHandler(&Remember);
    Assert(true, "mirror.cpp", "Find", 42);
    EXPECT_TRUE(g_reports.empty());
}

TEST_F(AssertTest, SetAssertHandlerReturnsThePreviousOne)
{
    const AssertHandler standard = SetAssertHandler(&Remember);
    ASSERT_NE(standard, nullptr);
    EXPECT_EQ(SetAssertHandler(&Throw), &Remember);
    EXPECT_EQ(SetAssertHandler(standard), &Throw);
    EXPECT_EQ(SetAssertHandler(nullptr), standard);
}

TEST_F(AssertTest, NullRestoresTheDefaultHandler)
{
    const AssertHandler standard = SetAssertHandler(&Remember);
    SetAssertHandler(nullptr);

    const test::LogCapture log;
    Assert(false, "mirror.cpp", "Find", 42);
    EXPECT_TRUE(g_reports.empty());
    EXPECT_EQ(log.GetLines().size(), 1U);
    EXPECT_EQ(SetAssertHandler(nullptr), standard);
}

TEST_F(AssertTest, WhatTheHandlerThrowsPassesThrough)
{
    SetAssertHandler(&Throw);
    EXPECT_THROW(Assert(false, "mirror.cpp", "Find", 42), std::logic_error);
}

TEST_F(AssertTest, DefaultHandlerLogsOneFatalLineWithThePlace)
{
    const test::LogCapture log;
    Assert(false, "mirror.cpp", "Find", 42);

    const auto lines = log.GetLines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, log4cplus::FATAL_LOG_LEVEL);
    EXPECT_NE(lines[0].message.find("in Find at mirror.cpp:42."), std::string::npos) << lines[0].message;
    EXPECT_EQ(lines[0].file, "mirror.cpp");
    EXPECT_EQ(lines[0].function, "Find");
    EXPECT_EQ(lines[0].line, 42);
}

TEST_F(AssertTest, DefaultHandlerCopesWithAnUnknownPlace)
{
    const test::LogCapture log;
    Assert(false, nullptr, nullptr, 0);

    const auto lines = log.GetLines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].message.find("in (unknown function) at (unknown file):0."), std::string::npos)
        << lines[0].message;
}

}  // namespace brisk
