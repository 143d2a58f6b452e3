#include "recorderTools.hpp"
#include "support/allocationGuard.hpp"
#include "support/quietLog.hpp"

#include <lumo/ravelcore/names.hpp>

#include <gtest/gtest.h>
#include <log4cplus/nullappender.h>

#include <algorithm>
#include <array>

namespace lumo::ravelctl {
namespace {

using ravelcore::test::AllocationGuard;

constexpr int SAMPLE_SIZE = 3;

/// A recorder after `calls` calls; call k, counted from 1, brings the stamp k and the values 10 k, 10 k + 1, 10 k + 2.
ravelcore::Recorder Record(int capacity, int calls, int decimation)
{
    ravelcore::Recorder recorder("r");
    recorder.Init(capacity, SAMPLE_SIZE);
    recorder.Start(true, decimation);
    for (int call = 1; call <= calls; ++call) {
        const auto value = 10.0F * static_cast<float>(call);
        const std::array<float, SAMPLE_SIZE> sample = {value, value + 1.0F, value + 2.0F};
        recorder.AddSample(call, sample.data());
    }
    return recorder;
}

/// Whether `recorder` holds the calls `first`, `first` + `step`, ... `last` and nothing else.
testing::AssertionResult Holds(const ravelcore::Recorder& recorder, int first, int last, int step)
{
    const int rows = (last - first) / step + 1;
    if (recorder.GetIndex() + 1 != rows || recorder.GetNumSamples() != rows) {
        return testing::AssertionFailure()
               << recorder.GetIndex() + 1 << " samples of " << recorder.GetNumSamples() << " rather than " << rows;
    }
    for (int row = 0; row < rows; ++row) {
        const int call = first + row * step;
        if (recorder.GetTimestamps().at(static_cast<std::size_t>(row)) != call) {
            return testing::AssertionFailure() << "row " << row << " is of another time than " << call;
        }
        for (int i = 0; i < SAMPLE_SIZE; ++i) {
            const float value = recorder.GetSamples().at(static_cast<std::size_t>(row * SAMPLE_SIZE + i));
            if (value != static_cast<float>(10 * call + i)) {
                return testing::AssertionFailure() << "row " << row << " value " << i << " is " << value;
            }
        }
    }
    return testing::AssertionSuccess();
}

TEST(RecorderToolsTest, WhatHasNotGoneRoundStaysInItsOrder)
{
    EXPECT_TRUE(Holds(InOrderOfTime(Record(5, 1, 1), 1), 1, 1, 1));
    EXPECT_TRUE(Holds(InOrderOfTime(Record(5, 4, 1), 4), 1, 4, 1));
    EXPECT_TRUE(Holds(InOrderOfTime(Record(5, 5, 1), 5), 1, 5, 1));
}

TEST(RecorderToolsTest, WhatHasGoneRoundIsTheNewestInTheOrderOfTime)
{
    for (int calls = 6; calls <= 17; ++calls) {
        EXPECT_TRUE(Holds(InOrderOfTime(Record(5, calls, 1), calls), calls - 4, calls, 1)) << calls;
    }
    EXPECT_TRUE(Holds(InOrderOfTime(Record(1, 9, 1), 9), 9, 9, 1));
}

TEST(RecorderToolsTest, OfEveryThirdCallTheNewestAreInTheOrderOfTime)
{
    for (int calls = 3; calls < 60; ++calls) {
        const int recorded = calls / 3;
        const int kept = std::min(recorded, 4);
        const ravelcore::Recorder ordered = InOrderOfTime(Record(4, calls, 3), recorded);
        EXPECT_TRUE(Holds(ordered, 3 * (recorded - kept + 1), 3 * recorded, 3)) << calls;
    }
}

TEST(RecorderToolsTest, ARecorderThatHasJustGoneRoundAndSkippedTheCallLosesNothing)
{
    const ravelcore::Recorder recorder = Record(4, 13, 3);  // the thirteenth call goes round and is then skipped
    ASSERT_EQ(recorder.GetIndex(), -1);
    EXPECT_TRUE(Holds(InOrderOfTime(recorder, 4), 3, 12, 3));
}

TEST(RecorderToolsTest, StoppingLosesNothingOfARecorderThatHasJustGoneRound)
{
    ravelcore::Recorder recorder = Record(4, 13, 3);
    StopRecorder(recorder);
    EXPECT_TRUE(Holds(InOrderOfTime(recorder, 4), 3, 12, 3));
}

TEST(RecorderToolsTest, TheOriginalIsLeftAsItWasAndTheCopyHasItsName)
{
    const ravelcore::Recorder recorder = Record(5, 7, 1);
    const std::vector<float> samples = recorder.GetSamples();
    const ravelcore::Recorder ordered = InOrderOfTime(recorder, 7);
    EXPECT_EQ(recorder.GetSamples(), samples);
    EXPECT_EQ(recorder.GetIndex(), 1);
    EXPECT_EQ(ordered.GetName(), "r");
    EXPECT_EQ(ordered.GetSampleSize(), SAMPLE_SIZE);
}

/// DEBUG is on while it lives, without output.
class DebugOn
{
public:
    DebugOn()
    {
        m_logger.removeAllAppenders();
        m_logger.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
        m_logger.setAdditivity(false);
        m_logger.setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
    }

    ~DebugOn() { m_logger.setLogLevel(log4cplus::FATAL_LOG_LEVEL); }

    DebugOn(const DebugOn&) = delete;
    DebugOn& operator=(const DebugOn&) = delete;

private:
    log4cplus::Logger m_logger = log4cplus::Logger::getInstance(ravelcore::LOGGER_RAVELCORE);
};

TEST(RecorderToolsTest, StoppingWhatHasRecordedNothingEndsNothingElseWithDebugOn)
{
    const DebugOn debug;
    ravelcore::Recorder recorder = Record(4, 0, 1);
    StopRecorder(recorder);
    const std::array<float, SAMPLE_SIZE> sample{};
    for (int call = 0; call < 10; ++call) {
        recorder.AddSample(call, sample.data());
    }
    EXPECT_EQ(recorder.GetIndex(), -1) << "it still records";
}

TEST(RecorderToolsTest, WhatWasNeverInitialisedOrStartedCanBeStoppedWithDebugOn)
{
    const DebugOn debug;
    ravelcore::Recorder never("never");
    StopRecorder(never);
    ravelcore::Recorder initialised("initialised");
    initialised.Init(4, SAMPLE_SIZE);
    StopRecorder(initialised);
    const std::array<float, SAMPLE_SIZE> sample{};
    never.AddSample(1.0, sample.data());
    initialised.AddSample(1.0, sample.data());
    EXPECT_EQ(never.GetIndex(), -1);
    EXPECT_EQ(initialised.GetIndex(), -1);
}

TEST(RecorderToolsTest, WhatIsStoppedRecordsNothingMoreAndTwiceIsAsOnce)
{
    const DebugOn debug;
    ravelcore::Recorder recorder = Record(4, 2, 1);
    StopRecorder(recorder);
    StopRecorder(recorder);
    const std::array<float, SAMPLE_SIZE> sample{};
    recorder.AddSample(1.0, sample.data());
    EXPECT_EQ(recorder.GetIndex(), 1);
    EXPECT_FALSE(recorder.IsStarted());
}

TEST(RecorderToolsTest, WhatIsStoppedCanBeStartedAgain)
{
    ravelcore::Recorder recorder = Record(4, 0, 1);
    StopRecorder(recorder);
    recorder.Start(false, 1);
    const std::array<float, SAMPLE_SIZE> sample = {5.0F, 6.0F, 7.0F};
    recorder.AddSample(1.5, sample.data());
    EXPECT_EQ(recorder.GetIndex(), 0);
    EXPECT_EQ(recorder.GetSamples().at(1), 6.0F);
}

TEST(RecorderToolsTest, StoppingNeverAllocates)
{
    test::QuietLog();
    ravelcore::Recorder full = Record(4, 2, 1);
    ravelcore::Recorder empty = Record(4, 0, 1);
    ravelcore::Recorder gone_round = Record(4, 13, 3);
    const AllocationGuard guard;
    StopRecorder(full);
    StopRecorder(empty);
    StopRecorder(gone_round);
    EXPECT_EQ(guard.GetCount(), 0);
}

}  // namespace
}  // namespace lumo::ravelctl
