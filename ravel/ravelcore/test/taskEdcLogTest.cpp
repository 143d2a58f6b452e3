#include "support/edcRig.hpp"

#include <brisk/exception.hpp>
#include <lumo/ravelcore/taskEdc.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <log4cplus/appender.h>
#include <log4cplus/loggingmacros.h>
#include <log4cplus/spi/loggingevent.h>

#include <chrono>
#include <limits>
#include <string>
#include <vector>

// What the cycle logs, and what its fixed probes, mode 16 and actuator elements 222 to 224, ask of the sizes.

namespace lumo::ravelcore {
namespace {

using log4cplus::DEBUG_LOG_LEVEL;
using log4cplus::INFO_LOG_LEVEL;
using log4cplus::TRACE_LOG_LEVEL;
using test::EdcRig;
using test::LogCapture;
using test::LogEvent;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::SizeIs;

/// The smallest task whose probes exist.
class TaskEdcLogTest : public ::testing::Test
{
protected:
    static constexpr std::size_t PROBE = 16;
    static constexpr std::size_t NUM_MODES = 17;
    static constexpr std::size_t NUM_PACT = 225;

    TaskEdcLogTest()
    {
        sut.m_pid_enabled = false;
        sut.m_filter_enabled = false;
        sut.SetP2EdcValue(PROBE * NUM_MODES + PROBE, 1.0F);
        sut.SetPact2ModesValue(PROBE * NUM_PACT, 1.0F);
        sut.SetModes2PactValue(222 * NUM_MODES + PROBE, 1.0F);
        sut.SetModes2PactValue(223 * NUM_MODES + PROBE, -0.5F);
        sut.SetModes2PactValue(224 * NUM_MODES + PROBE, 1048576.0F);
        m_rig.es[PROBE] = 0.1F;
        sut.m_modes_ref[PROBE] = 1.0F / 3.0F;
        sut.m_pact_in[0] = 1234567.0F;
        sut.m_pid_filters[PROBE].ui = -2.5F;
        m_rig.log.SetLevel(DEBUG_LOG_LEVEL);
        m_rig.log.Clear();
    }

    std::vector<std::string> Lines() const { return m_rig.log.Messages(DEBUG_LOG_LEVEL); }

    EdcRig m_rig{NUM_PACT, NUM_MODES, NUM_MODES};
    TaskEdc& sut = m_rig.sut;
};

TEST_F(TaskEdcLogTest, LaterCycleWritesTwoLinesAtDebug)
{
    sut.Execute(3.0, false);
    EXPECT_THAT(Lines(),
                ElementsAre("m_modes_in[16] = 0.1, m_modes_ref[16] = 0.333333, m_feed_forward_enabled = 0, "
                            "m_modes_rate_limited[16] = 1.23457e+06, m_pid_filters[16].ui = -2.5, m_pid_enabled = 0, "
                            "m_filter_enabled = 0, is_first_execution = 0",
                            "m_modes_in[16] = 0.1 m_modes_ref[16] = 0.333333 m_modes_out[16] = 0.433333 "
                            "m_pid_filters[16].ui = -2.5 m_pact_ref[74] = (0.433333, -0.216667, 454383) "
                            "is_first_execution = 0"));
    EXPECT_THAT(m_rig.log.Events(), Each(Field(&LogEvent::logger, "ravelcore.TaskEdc.7")));
    EXPECT_THAT(m_rig.log.Events(), SizeIs(2));
}

TEST_F(TaskEdcLogTest, FirstCycleShowsTheReferenceItHasTaken)
{
    sut.Execute(3.0, true);
    EXPECT_THAT(Lines(),
                ElementsAre("m_modes_in[16] = 0.1, m_modes_ref[16] = 0.1, m_feed_forward_enabled = 0, "
                            "m_modes_rate_limited[16] = 1.23457e+06, m_pid_filters[16].ui = -2.5, m_pid_enabled = 0, "
                            "m_filter_enabled = 0, is_first_execution = 1",
                            "m_modes_in[16] = 0.1 m_modes_ref[16] = 0.1 m_modes_out[16] = 0.1 "
                            "m_pid_filters[16].ui = -2.5 m_pact_ref[74] = (0.1, -0.05, 104858) "
                            "is_first_execution = 1"));
}

TEST_F(TaskEdcLogTest, EachFlagPrintsAsOneOrZeroAtItsOwnPlace)
{
    sut.m_feed_forward_enabled = true;
    sut.Execute(3.0, false);
    EXPECT_THAT(Lines().front(), HasSubstr("m_feed_forward_enabled = 1,"));
    EXPECT_THAT(Lines().front(), HasSubstr("m_pid_enabled = 0, m_filter_enabled = 0, is_first_execution = 0"));
    m_rig.log.Clear();
    sut.m_feed_forward_enabled = false;
    sut.m_pid_enabled = true;
    sut.Execute(3.0, false);
    EXPECT_THAT(Lines().front(), HasSubstr("m_feed_forward_enabled = 0,"));
    EXPECT_THAT(Lines().front(), HasSubstr("m_pid_enabled = 1, m_filter_enabled = 0, is_first_execution = 0"));
    m_rig.log.Clear();
    sut.m_pid_enabled = false;
    sut.m_filter_enabled = true;
    sut.Execute(3.0, false);
    EXPECT_THAT(Lines().front(), HasSubstr("m_pid_enabled = 0, m_filter_enabled = 1, is_first_execution = 0"));
}

TEST_F(TaskEdcLogTest, IntegralIsShownBeforeAndAfterTheChannelsHaveRun)
{
    sut.m_pid_enabled = true;
    sut.m_pid_filters[PROBE].ki = 0.0F;
    PidFilterInit(sut.m_pid_filters[PROBE]);
    sut.m_pid_filters[PROBE].ui = -2.5F;
    m_rig.es[PROBE] = 8.0F;
    sut.Execute(3.0, true);
    ASSERT_THAT(Lines(), SizeIs(2));
    EXPECT_THAT(Lines()[0], HasSubstr("m_pid_filters[16].ui = -2.5,"));
    EXPECT_THAT(Lines()[1], HasSubstr("m_pid_filters[16].ui = 8 "));
}

TEST_F(TaskEdcLogTest, ValuesThatAreNoNumbersAreWrittenAsTheStreamWritesThem)
{
    m_rig.es[PROBE] = std::numeric_limits<float>::infinity();
    sut.m_modes_ref[PROBE] = std::numeric_limits<float>::quiet_NaN();
    sut.Execute(3.0, false);
    EXPECT_THAT(Lines().front(), HasSubstr("m_modes_in[16] = inf, m_modes_ref[16] = nan, "));
}

TEST_F(TaskEdcLogTest, ReplacementIsLoggedBeforeItIsMadeWithTheOldValueFdcAfterPdc)
{
    sut.m_pdc_mask[PROBE] = true;
    sut.m_fdc_mask[PROBE] = true;
    sut.m_pdc_values[PROBE] = -1.5F;
    sut.m_fdc_values[PROBE] = 7.25F;
    sut.Execute(3.0, false);
    ASSERT_THAT(Lines(), SizeIs(4));
    EXPECT_EQ(Lines()[0], "Replacing m_modes_in[16] = 0.1 with PDC -1.5");
    EXPECT_EQ(Lines()[1], "Replacing m_modes_in[16] = -1.5 with FDC 7.25");
    EXPECT_THAT(Lines()[2], HasSubstr("m_modes_in[16] = 7.25, m_modes_ref[16] = "));
    EXPECT_THAT(Lines()[3], HasSubstr("m_modes_in[16] = 7.25 m_modes_ref[16] = "));
}

TEST_F(TaskEdcLogTest, OneKindOfReplacementWritesOneLine)
{
    sut.m_pdc_mask[PROBE] = true;
    sut.m_pdc_values[PROBE] = -1.5F;
    sut.Execute(3.0, false);
    EXPECT_THAT(Lines(), SizeIs(3));
    EXPECT_EQ(Lines()[0], "Replacing m_modes_in[16] = 0.1 with PDC -1.5");
    m_rig.log.Clear();
    sut.m_pdc_mask[PROBE] = false;
    sut.m_fdc_mask[PROBE] = true;
    sut.m_fdc_values[PROBE] = 7.25F;
    sut.Execute(3.0, false);
    EXPECT_THAT(Lines(), SizeIs(3));
    EXPECT_EQ(Lines()[0], "Replacing m_modes_in[16] = 0.1 with FDC 7.25");
}

TEST_F(TaskEdcLogTest, ReplacementOfOtherModesIsNotLogged)
{
    sut.m_pdc_mask.assign(NUM_MODES, true);
    sut.m_fdc_mask.assign(NUM_MODES, true);
    sut.m_pdc_mask[PROBE] = false;
    sut.m_fdc_mask[PROBE] = false;
    sut.Execute(3.0, false);
    EXPECT_THAT(Lines(), SizeIs(2));
}

TEST_F(TaskEdcLogTest, CycleAndCombinePactRefBeginWithTheirEntryLines)
{
    m_rig.log.SetLevel(TRACE_LOG_LEVEL);
    sut.Execute(3.0, false);
    std::vector<LogEvent> events = m_rig.log.Events();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events[0].level, TRACE_LOG_LEVEL);
    EXPECT_EQ(events[0].logger, "ravelcore.TaskEdc.7");
    EXPECT_THAT(events[0].message, MatchesRegex("ravel/ravelcore/src/taskEdc\\.cpp Execute [0-9]+"));
    m_rig.log.Clear();
    std::vector<float> pact(NUM_PACT);
    sut.CombinePactRef(pact);
    events = m_rig.log.Events();
    ASSERT_THAT(events, SizeIs(1));
    EXPECT_THAT(events[0].message, MatchesRegex("ravel/ravelcore/src/taskEdc\\.cpp CombinePactRef [0-9]+"));
}

TEST_F(TaskEdcLogTest, WithoutMeasurementsOnlyTheEntryLineIsWritten)
{
    m_rig.log.SetLevel(TRACE_LOG_LEVEL);
    sut.m_es_meas = nullptr;
    sut.m_pdc_mask[PROBE] = true;
    EXPECT_THROW(sut.Execute(3.0, false), brisk::Exception);
    EXPECT_THAT(m_rig.log.Events(), SizeIs(1));
    EXPECT_THAT(m_rig.log.Messages(TRACE_LOG_LEVEL), ElementsAre(HasSubstr("taskEdc.cpp Execute ")));
}

TEST_F(TaskEdcLogTest, NothingIsWrittenWithDebugOff)
{
    m_rig.log.SetLevel(INFO_LOG_LEVEL);
    sut.m_pdc_mask[PROBE] = true;
    sut.Execute(3.0, true);
    EXPECT_THAT(m_rig.log.Events(), IsEmpty());
}

TEST_F(TaskEdcLogTest, ResultsAreTheSameWithDebugOnAndOff)
{
    sut.Execute(3.0, true);
    const std::vector<float> expected = sut.m_pact_ref;
    m_rig.log.SetLevel(INFO_LOG_LEVEL);
    sut.Execute(3.0, true);
    EXPECT_EQ(sut.m_pact_ref, expected);
}

/// Takes its time over every event.
class SlowAppender : public log4cplus::Appender
{
public:
    static constexpr std::chrono::milliseconds DELAY{2};

    ~SlowAppender() override { destructorImpl(); }
    void close() override {}

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& /*event*/) override
    {
        const auto end = std::chrono::steady_clock::now() + DELAY;
        while (std::chrono::steady_clock::now() < end) {
        }
    }
};

TEST_F(TaskEdcLogTest, WritingAtDebugCountsAsPartOfTheCyclesDuration)
{
    log4cplus::Logger logger = log4cplus::Logger::getInstance("ravelcore.TaskEdc.7");
    const log4cplus::SharedAppenderPtr slow(new SlowAppender);
    logger.addAppender(slow);
    sut.Execute(3.0, true);
    logger.removeAppender(slow);
    EXPECT_GE(sut.GetExecTime(), 2 * SlowAppender::DELAY) << "both lines";
    EXPECT_EQ(sut.GetExecTime(), sut.GetMaxExecTime());
}

/// Checked element access says which probe is missing.
class TaskEdcProbesDeathTest : public ::testing::Test
{
protected:
    TaskEdcProbesDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    static void RunOneCycle(int num_pact, int num_modes, log4cplus::LogLevel level)
    {
        EdcRig rig(num_pact, 5, num_modes);
        rig.log.SetLevel(level);
        rig.sut.Execute(0.0, true);
    }

    static constexpr const char* OUT_OF_RANGE = "__n < this->size\\(\\)";
};

TEST_F(TaskEdcProbesDeathTest, SixteenModesEndTheProcessWithDebugOn)
{
    EXPECT_DEATH(RunOneCycle(225, 16, DEBUG_LOG_LEVEL), OUT_OF_RANGE);
    EXPECT_DEATH(RunOneCycle(225, 1, TRACE_LOG_LEVEL), OUT_OF_RANGE);
}

TEST_F(TaskEdcProbesDeathTest, TwoHundredAndTwentyFourActuatorsEndTheProcessWithDebugOn)
{
    EXPECT_DEATH(RunOneCycle(224, 17, DEBUG_LOG_LEVEL), OUT_OF_RANGE);
    EXPECT_DEATH(RunOneCycle(222, 17, DEBUG_LOG_LEVEL), OUT_OF_RANGE);
}

TEST_F(TaskEdcProbesDeathTest, SeventeenModesAndTwoHundredAndTwentyFiveActuatorsRunWithDebugOn)
{
    RunOneCycle(225, 17, DEBUG_LOG_LEVEL);
}

TEST_F(TaskEdcProbesDeathTest, FewerModesAndActuatorsRunWithDebugOff)
{
    RunOneCycle(225, 16, INFO_LOG_LEVEL);
    RunOneCycle(224, 17, INFO_LOG_LEVEL);
    RunOneCycle(1, 1, INFO_LOG_LEVEL);
}

}  // namespace
}  // namespace lumo::ravelcore
