#include "support/allocationGuard.hpp"
#include "support/edcRig.hpp"
#include "support/logCapture.hpp"

#include <lumo/ravelcore/logger.hpp>
#include <lumo/ravelcore/names.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace lumo::ravelcore {
namespace {

using test::EdcRig;
using test::LogCapture;
using test::LogEvent;

/// Stands in for any public operation.
struct Operation
{
    int line = 0;
    void Run()
    {
        line = __LINE__ + 1;
        RAVELCORE_TRACE_ENTRY(GetLogger());
    }
};

TEST(LoggerTest, IsTheOneNamedRavelcore)
{
    EXPECT_EQ(GetLogger().getName(), "ravelcore");
    EXPECT_EQ(GetLogger().getName(), LOGGER_RAVELCORE);
}

TEST(LoggerTest, IsTheSameObjectInEveryThread)
{
    std::vector<log4cplus::Logger*> seen(8, nullptr);
    std::vector<std::thread> threads;
    for (log4cplus::Logger*& one : seen) {
        threads.emplace_back([&one] { one = &GetLogger(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(seen, ::testing::Each(&GetLogger()));
}

TEST(LoggerTest, EntryLineIsPathBlankFunctionBlankLineAtTrace)
{
    const LogCapture log(LOGGER_RAVELCORE);
    Operation sut;
    sut.Run();
    const std::vector<LogEvent> events = log.Events();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].level, log4cplus::TRACE_LOG_LEVEL);
    EXPECT_EQ(events[0].logger, "ravelcore");
    EXPECT_EQ(events[0].message, std::string(__FILE__) + " Run " + std::to_string(sut.line));
}

TEST(LoggerTest, EntryLineCarriesFileLineAndFullSignatureAsLocation)
{
    const LogCapture log(LOGGER_RAVELCORE);
    Operation sut;
    sut.Run();
    const std::vector<LogEvent> events = log.Events();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].file, __FILE__);
    EXPECT_EQ(events[0].line, sut.line);
    EXPECT_THAT(events[0].function, ::testing::EndsWith("Operation::Run()"));
    EXPECT_THAT(events[0].function, ::testing::StartsWith("void "));
}

TEST(LoggerTest, EntryLineInsideAnotherMessageLeavesItWhole)
{
    const LogCapture log(LOGGER_RAVELCORE);
    const auto number = [] {
        RAVELCORE_TRACE_ENTRY(GetLogger());
        return 7;
    };
    LOG4CPLUS_DEBUG(GetLogger(), "number " << number() << " of 9");
    EXPECT_EQ(log.Messages(log4cplus::DEBUG_LOG_LEVEL), std::vector<std::string>{"number 7 of 9"});
}

TEST(LoggerTest, EntryLineIsSilentAboveTrace)
{
    const LogCapture log(LOGGER_RAVELCORE, log4cplus::DEBUG_LOG_LEVEL);
    Operation().Run();
    EXPECT_TRUE(log.Events().empty());
}

TEST(LoggerTest, NothingIsFormattedForAnEntryLineWhileTraceIsOff)
{
    LogCapture log(LOGGER_RAVELCORE, log4cplus::DEBUG_LOG_LEVEL);
    Operation sut;
    const test::AllocationGuard guard;
    sut.Run();
    EXPECT_EQ(guard.GetCount(), 0);
    log.SetLevel(log4cplus::TRACE_LOG_LEVEL);
    sut.Run();
    EXPECT_GT(guard.GetCount(), 0) << "the text, which is then needed";
}

TEST(LoggerTest, NothingIsFormattedInACycleWhileTheLevelsOfItsLinesAreOff)
{
    constexpr int NUM_MODES = 17;  // the least that the lines at DEBUG need
    constexpr int NUM_PACT = 225;
    EdcRig rig(NUM_PACT, 1, NUM_MODES);
    rig.sut.m_pdc_mask.assign(NUM_MODES, true);
    rig.sut.m_fdc_mask.assign(NUM_MODES, true);
    for (const auto level : {log4cplus::INFO_LOG_LEVEL, log4cplus::DEBUG_LOG_LEVEL, log4cplus::TRACE_LOG_LEVEL}) {
        rig.log.SetLevel(level);
        rig.log.Clear();
        const test::AllocationGuard guard;
        rig.sut.Execute(0.0, true);
        const bool has_allocated = guard.GetCount() != 0;
        EXPECT_EQ(has_allocated, level != log4cplus::INFO_LOG_LEVEL);
        EXPECT_EQ(rig.log.Messages(log4cplus::DEBUG_LOG_LEVEL).size(), level == log4cplus::INFO_LOG_LEVEL ? 0U : 4U);
    }
}

TEST(LogCaptureTest, SeesChildLoggersUnderTheirOwnNames)
{
    const LogCapture sut(LOGGER_RAVELCORE);
    const log4cplus::Logger child = log4cplus::Logger::getInstance("ravelcore.child");
    LOG4CPLUS_WARN(child, "from below");
    ASSERT_EQ(sut.Events().size(), 1U);
    EXPECT_EQ(sut.Events()[0].logger, "ravelcore.child");
    EXPECT_EQ(sut.Events()[0].level, log4cplus::WARN_LOG_LEVEL);
}

TEST(LogCaptureTest, RestoresLevelAdditivityAndAppendersAtItsEnd)
{
    log4cplus::Logger logger = log4cplus::Logger::getInstance("logCaptureTest.restored");
    logger.setLogLevel(log4cplus::ERROR_LOG_LEVEL);
    {
        LogCapture sut("logCaptureTest.restored", log4cplus::DEBUG_LOG_LEVEL);
        EXPECT_EQ(logger.getLogLevel(), log4cplus::DEBUG_LOG_LEVEL);
        EXPECT_FALSE(logger.getAdditivity());
        LOG4CPLUS_DEBUG(logger, "seen");
        LOG4CPLUS_TRACE(logger, "not seen");
        EXPECT_EQ(sut.Events().size(), 1U);
        sut.Clear();
        EXPECT_TRUE(sut.Events().empty());
    }
    EXPECT_EQ(logger.getLogLevel(), log4cplus::ERROR_LOG_LEVEL);
    EXPECT_TRUE(logger.getAdditivity());
    EXPECT_TRUE(logger.getAllAppenders().empty());
}

}  // namespace
}  // namespace lumo::ravelcore
